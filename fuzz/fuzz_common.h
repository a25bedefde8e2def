/* Shared by the fuzz targets: a silent log sink and the input as text. */
#ifndef KX_FUZZ_COMMON_H
#define KX_FUZZ_COMMON_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kx_interface.h"

namespace kxfuzz {

/* Decoders log every failure; the fuzzer feeds failures by the million. */
inline void silence_log() {
    kx_set_log_call_back([](const char*, va_list) {}, LOG_LEVEL_ERROR);
}

/* The input as a NUL-terminated string, cut at its first zero byte as a
 * reply buffer would be. */
inline std::string as_text(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

}  // namespace kxfuzz

#endif /* KX_FUZZ_COMMON_H */
