// Public logging entries: replace the sink, or append everything to a file.
#include <stdio.h>
#include <stdlib.h>

#include "kx_interface.h"
#include "log.h"

extern "C" {

KX_API void kx_set_log_call_back(LogCallback cb, int level) { kx_set_log_callback(cb, level); }

KX_API void kx_set_log_save(const char* path) {
    FILE* file = path ? fopen(path, "a") : nullptr;
    if (!file) {
        perror("Failed to open log file");
        exit(1);  // the interface offers no error return here
    }
    fprintf(file, "[%s] Begin API Testing.\n", kx_get_cur_time());
    fflush(file);
    FILE* previous = __atomic_exchange_n(&g_log_file, file, __ATOMIC_ACQ_REL);
    kx_set_log_callback(custom_api_log, LOG_LEVEL_DEBUG);
    if (previous) fclose(previous);
}

}  // extern "C"
