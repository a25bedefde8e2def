/* The program file reader: countLinesInFile over any file content counts
 * what fgets reads with its line buffer, and never reads past it. */
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_common.h"
#include "kx_interface.h"

namespace {

/* fgets into 1024 bytes: a read ends after '\n', after 1023 bytes, or at the end. */
int expected_lines(const uint8_t* data, size_t size) {
    int count = 0;
    size_t taken = 0;
    for (size_t i = 0; i < size; ++i) {
        ++taken;
        if (data[i] == '\n' || taken == 1023) {
            ++count;
            taken = 0;
        }
    }
    return count + (taken > 0 ? 1 : 0);
}

int g_fd = -1;
std::string g_path;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kxfuzz::silence_log();
    g_fd = memfd_create("kx_fuzz_program", 0);
    if (g_fd < 0) std::abort();
    g_path = "/proc/self/fd/" + std::to_string(g_fd);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    if (ftruncate(g_fd, 0) != 0 || pwrite(g_fd, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    if (countLinesInFile(g_path.c_str()) != expected_lines(data, size)) {
        std::fprintf(stderr, "fuzz_files: line count differs\n");
        std::abort();
    }
    return 0;
}
