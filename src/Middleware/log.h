/* The process-wide logger: four level functions and one replaceable sink. */
#ifndef KX_MIDDLEWARE_LOG_H
#define KX_MIDDLEWARE_LOG_H

#include <stdarg.h>
#include <stdio.h>

#include "kx_define.h"
#include "kx_structures.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API extern Logger gLogger;
KX_API extern FILE* g_log_file;

KX_API void kx_log_debug(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
KX_API void kx_log_info(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
KX_API void kx_log_warn(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
KX_API void kx_log_error(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
KX_API void kx_log(LogLevel level, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
KX_API void kx_set_log_callback(LogCallback cb, int level);
KX_API void default_log(const char* fmt, va_list args);
KX_API void custom_api_log(const char* fmt, va_list args);
KX_API char* kx_get_cur_time(void);

#ifdef __cplusplus
}

namespace kx {
/* Whether a message of this level would reach the sink: lets callers skip
 * building expensive arguments (bounded copies of frames) for dropped levels. */
bool log_enabled(LogLevel level);
}  // namespace kx
#endif

#endif /* KX_MIDDLEWARE_LOG_H */
