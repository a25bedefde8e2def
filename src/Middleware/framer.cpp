#include "framer.h"

#include <algorithm>
#include <cstring>

#include <cJSON.h>

#include "log.h"

namespace kx {

namespace {
constexpr size_t kFreshGuard = 5;  // a fresh buffer's terminator is looked for from offset 5 on
}

void Framer::append(const char* data, size_t len) {
    if (start_ >= buf_.size()) {
        buf_.clear();
        start_ = scan_ = 0;
        guard_ = kFreshGuard;
    } else if (start_ > 0) {
        buf_.erase(0, start_);
        scan_ -= std::min(scan_, start_);
        guard_ -= std::min(guard_, start_);
        start_ = 0;
    }
    buf_.append(data, len);
}

bool Framer::next(char*& frame, size_t& len) {
    for (;;) {
        size_t from = std::max({scan_, guard_, start_});
        size_t pos = from < buf_.size() ? buf_.find("\r\n", from) : std::string::npos;
        if (pos == std::string::npos) {
            size_t pending = buf_.size() - start_;
            if (!resync_ && pending > kMaxFrame) {
                kx_log_error("[thread_socket_receive] frame longer than %zu bytes dropped\n", kMaxFrame);
                resync_ = true;
            }
            if (resync_) start_ = (!buf_.empty() && buf_.back() == '\r') ? buf_.size() - 1 : buf_.size();
            scan_ = std::max(start_, buf_.empty() ? 0 : buf_.size() - 1);  // a lone '\r' may end the chunk
            return false;
        }
        size_t begin = start_;
        buf_[pos] = '\0';
        buf_[pos + 1] = '\0';
        start_ = scan_ = pos + 2;
        guard_ = 0;
        if (resync_) {
            resync_ = false;  // the tail of a dropped frame
            continue;
        }
        if (pos - begin > kMaxFrame) {
            kx_log_error("[thread_socket_receive] frame longer than %zu bytes dropped\n", kMaxFrame);
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
    return true;
}

void Framer::clear() {
    buf_.clear();
    start_ = scan_ = guard_ = 0;
    resync_ = false;
}

}  // namespace kx
