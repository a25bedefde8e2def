/* The framer against its oracle: frames out equal frames in, however the
 * stream is cut into reads.
 *
 * Input: one byte n, then n big-endian 16-bit cut offsets, then the stream,
 * in which each 0x01 byte stands for 4096 'x' bytes (so that a few bytes of
 * input reach the 64 KiB frame limit). */
#include <algorithm>
#include <cstdlib>

#include "framer_oracle.h"
#include "fuzz_common.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kxfuzz::silence_log();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    size_t n = data[0] % 16;
    if (size < 1 + 2 * n) return 0;
    std::string stream;
    for (size_t i = 1 + 2 * n; i < size; ++i) {
        if (data[i] == 0x01)
            stream.append(4096, 'x');
        else
            stream.push_back(static_cast<char>(data[i]));
    }
    std::vector<size_t> cuts;
    for (size_t i = 0; i < n; ++i) {
        size_t at = (static_cast<size_t>(data[1 + 2 * i]) << 8 | data[2 + 2 * i]) * 7;
        if (!stream.empty()) cuts.push_back(at % stream.size());
    }
    std::sort(cuts.begin(), cuts.end());
    if (kxfuzz::frames_of(stream, cuts) != kxfuzz::frames_at_once(stream)) std::abort();
    return 0;
}
