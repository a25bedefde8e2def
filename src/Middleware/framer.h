/* Cuts one connection's byte stream into "\r\n"-terminated frames without
 * losing bytes at read boundaries. */
#ifndef KX_MIDDLEWARE_FRAMER_H
#define KX_MIDDLEWARE_FRAMER_H

#ifdef __cplusplus
#include <cstddef>
#include <string>

namespace kx {

class Framer {
public:
    /* Frames longer than this are dropped (logged) and the stream resyncs at the next "\r\n". */
    static constexpr size_t kMaxFrame = 64 * 1024;

    void append(const char* data, size_t len);
    /* Next complete frame, terminator removed and replaced by NUL bytes in place.
     * The pointer stays valid until the next append(). */
    bool next(char*& frame, size_t& len);
    /* The pending bytes as one frame when they are a complete JSON text ending in
     * '}' that simply lacks its "\r\n"; call only when nothing more is waiting. */
    bool take_unterminated(char*& frame, size_t& len);
    void clear();

private:
    std::string buf_;
    size_t start_ = 0; /* first byte of the pending frame */
    size_t scan_ = 0;  /* where the search for "\r\n" resumes */
    size_t guard_ = 0; /* no split before this offset: a fresh buffer's first frame is at least 6 bytes */
    bool resync_ = false;
};

}  // namespace kx
#endif

#endif /* KX_MIDDLEWARE_FRAMER_H */
