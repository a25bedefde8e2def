#include "framer.h"

#include <algorithm>
#include <cstring>

#include <cJSON.h>

#include "log.h"

namespace kx {

namespace {
void log_dropped() { kx_log_error("[thread_socket_receive] frame longer than %zu bytes dropped\n", Framer::kMaxFrame); }
}  // namespace

void Framer::compact() {
    if (start_ == 0) return;
    buf_.erase(0, start_);
    scan_ -= std::min(scan_, start_);
    start_ = 0;
}

void Framer::append(const char* data, size_t len) {
    compact();
    buf_.append(data, len);
}

bool Framer::next(char*& frame, size_t& len) {
    for (;;) {
        if (late_end_ && start_ < buf_.size()) {
            /* The late "\r\n" of a frame already taken ends nothing new. */
            if (buf_[start_] != '\r') {
                late_end_ = false;
            } else if (start_ + 1 < buf_.size()) {
                late_end_ = false;
                if (buf_[start_ + 1] == '\n') start_ = scan_ = start_ + 2;
            } else {
                return false; /* a lone '\r' so far: wait for the next byte */
            }
        }
        size_t from = std::max(scan_, start_);
        size_t pos = from < buf_.size() ? buf_.find("\r\n", from) : std::string::npos;
        if (pos == std::string::npos) {
            /* A trailing '\r' may be the first half of the terminator: it is not
             * counted in the frame's length yet and is kept for the next read. */
            const bool cr = !buf_.empty() && buf_.back() == '\r';
            const size_t pending = buf_.size() - start_ - (cr && buf_.size() > start_ ? 1 : 0);
            if (!resync_ && pending > kMaxFrame) {
                log_dropped();
                resync_ = true;
            }
            if (resync_) start_ = cr ? buf_.size() - 1 : buf_.size();
            scan_ = std::max(start_, cr ? buf_.size() - 1 : buf_.size());
            return false;
        }
        size_t begin = start_;
        buf_[pos] = '\0';
        buf_[pos + 1] = '\0';
        start_ = scan_ = pos + 2;
        if (resync_) {
            resync_ = false; /* the tail of a dropped frame */
            continue;
        }
        if (pos - begin > kMaxFrame) {
            log_dropped();
            continue;
        }
        frame = &buf_[begin];
        len = pos - begin;
        return true;
    }
}

bool Framer::take_unterminated(char*& frame, size_t& len) {
    if (resync_ || start_ >= buf_.size() || buf_.back() != '}') return false;
    cJSON* root = cJSON_ParseWithLength(buf_.data() + start_, buf_.size() - start_);
    if (!root) return false;
    cJSON_Delete(root);
    len = buf_.size() - start_;
    buf_.push_back('\0');
    frame = &buf_[start_];
    start_ = scan_ = buf_.size();
    late_end_ = true;
    return true;
}

void Framer::clear() {
    buf_.clear();
    start_ = scan_ = 0;
    resync_ = false;
    late_end_ = false;
}

}  // namespace kx
