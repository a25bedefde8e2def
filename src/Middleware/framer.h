/* Cuts one connection's byte stream into "\r\n"-terminated frames. The
 * frames do not depend on how the stream was cut into reads: every byte
 * sequence is framed exactly as if it had arrived in one read. */
#ifndef KX_MIDDLEWARE_FRAMER_H
#define KX_MIDDLEWARE_FRAMER_H

#ifdef __cplusplus
#include <cstddef>
#include <string>

namespace kx {

class Framer {
public:
    /* Frames longer than this are dropped (logged once) and the stream
     * resynchronises at the next "\r\n". */
    static constexpr size_t kMaxFrame = 64 * 1024;

    void append(const char* data, size_t len);
    /* Next complete frame, terminator removed and replaced by NUL bytes in place.
     * The pointer stays valid until the next append(). */
    bool next(char*& frame, size_t& len);
    /* The pending bytes as one frame when they are a complete JSON text ending in
     * '}' that simply lacks its "\r\n"; call only when nothing more is waiting.
     * Should its "\r\n" arrive after all, it is taken as that frame's end. */
    bool take_unterminated(char*& frame, size_t& len);
    void clear();

private:
    void compact();
    std::string buf_;
    size_t start_ = 0; /* first byte of the pending frame */
    size_t scan_ = 0;  /* where the search for "\r\n" resumes */
    bool resync_ = false;   /* dropping the rest of an over-long frame */
    bool late_end_ = false; /* a frame was taken unterminated; its "\r\n" may still come */
};

}  // namespace kx
#endif

#endif /* KX_MIDDLEWARE_FRAMER_H */
