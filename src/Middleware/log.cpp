#include "log.h"

#include <stdlib.h>
#include <time.h>

/* The logger is read by every thread without a lock; its fields are accessed
 * atomically so that replacing the sink while receive threads log is safe. */
extern "C" {
KX_API Logger gLogger = {default_log, LOG_LEVEL_ERROR};
KX_API FILE* g_log_file = nullptr;
}

namespace {

LogCallback load_sink() { return __atomic_load_n(&gLogger.callback, __ATOMIC_ACQUIRE); }
int load_level() { return __atomic_load_n(reinterpret_cast<int*>(&gLogger.log_level), __ATOMIC_ACQUIRE); }

// Level gates exactly as the level functions define them: debug only at 0,
// info up to 1, warn up to 2, error up to 3; above 3 silences everything.
bool gate(LogLevel level) {
    int threshold = load_level();
    return level == LOG_LEVEL_DEBUG ? threshold == 0 : threshold <= static_cast<int>(level);
}

void emit(const char* fmt, va_list args) {
    LogCallback cb = load_sink();
    if (cb) cb(fmt, args);
}

}  // namespace

bool kx::log_enabled(LogLevel level) { return gate(level); }

#define KX_LOG_AT(level)              \
    if (!gate(level)) return;         \
    va_list args;                     \
    va_start(args, fmt);              \
    emit(fmt, args);                  \
    va_end(args)

extern "C" {

KX_API void kx_log_debug(const char* fmt, ...) { KX_LOG_AT(LOG_LEVEL_DEBUG); }
KX_API void kx_log_info(const char* fmt, ...) { KX_LOG_AT(LOG_LEVEL_INFO); }
KX_API void kx_log_warn(const char* fmt, ...) { KX_LOG_AT(LOG_LEVEL_WARN); }
KX_API void kx_log_error(const char* fmt, ...) { KX_LOG_AT(LOG_LEVEL_ERROR); }

/* Generic form: passes when level is below the threshold, the reverse of the
 * level functions. Kept that way for callers that rely on it. */
/* The level test is the opposite of the four level functions': the
 * interface's own behaviour, kept on purpose (nothing in the library calls it). */
KX_API void kx_log(LogLevel level, const char* fmt, ...) {
    if (!(static_cast<int>(level) < load_level())) return;
    va_list args;
    va_start(args, fmt);
    emit(fmt, args);
    va_end(args);
}

KX_API void kx_set_log_callback(LogCallback cb, int level) {
    __atomic_store_n(&gLogger.callback, cb ? cb : default_log, __ATOMIC_RELEASE);
    __atomic_store_n(reinterpret_cast<int*>(&gLogger.log_level), level, __ATOMIC_RELEASE);
}

KX_API void default_log(const char* fmt, va_list args) { vfprintf(stderr, fmt, args); }

KX_API char* kx_get_cur_time(void) {
    // One buffer per thread, so concurrent file logging cannot tear a stamp.
    static thread_local char stamp[64];
    time_t now = time(nullptr);
    struct tm tm_now;
    localtime_r(&now, &tm_now);
    snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d_%02d_%02d", tm_now.tm_year + 1900, tm_now.tm_mon + 1,
             tm_now.tm_mday, tm_now.tm_hour, tm_now.tm_min, tm_now.tm_sec);
    return stamp;
}

KX_API void custom_api_log(const char* fmt, va_list args) {
    if (!fmt) {
        fputs("Error: message is a null pointer\n", stderr);
        return;
    }
    char message[1024];
    vsnprintf(message, sizeof message, fmt, args);
    FILE* file = __atomic_load_n(&g_log_file, __ATOMIC_ACQUIRE);
    if (!file) return;
    fprintf(file, "[%s]: %s\n", kx_get_cur_time(), message);
    fflush(file);
}

}  // extern "C"
