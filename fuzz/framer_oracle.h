/* The framing property, shared by the framing test and the framer fuzzer:
 * a stream fed in pieces gives the same frames as the stream fed at once. */
#ifndef KX_FUZZ_FRAMER_ORACLE_H
#define KX_FUZZ_FRAMER_ORACLE_H

#include <string>
#include <vector>

#include "framer.h"

namespace kxfuzz {

/* Feeds `stream` cut before each offset of `cuts` (ascending) and collects
 * every frame, as the receive thread does. Where a cut falls just before a
 * "\r\n" the sender paused before the terminator, and the receiver takes the
 * pending bytes as an unterminated frame when they are one. */
inline std::vector<std::string> frames_of(const std::string& stream, const std::vector<size_t>& cuts) {
    kx::Framer framer;
    std::vector<std::string> out;
    size_t from = 0;
    auto feed = [&](size_t to) {
        framer.append(stream.data() + from, to - from);
        char* frame;
        size_t len;
        while (framer.next(frame, len)) out.emplace_back(frame, len);
        if (to + 1 < stream.size() && stream[to] == '\r' && stream[to + 1] == '\n' &&
            framer.take_unterminated(frame, len))
            out.emplace_back(frame, len);
        from = to;
    };
    for (size_t cut : cuts)
        if (cut > from && cut < stream.size()) feed(cut);
    feed(stream.size());
    return out;
}

inline std::vector<std::string> frames_at_once(const std::string& stream) { return frames_of(stream, {}); }

}  // namespace kxfuzz

#endif /* KX_FUZZ_FRAMER_ORACLE_H */
