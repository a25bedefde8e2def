// No exception crosses the C interface: with every C++ allocation of the
// calling thread failing, exported functions return their error codes and the library keeps working
// once memory is back.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cstdlib>
#include <new>

#include "test_core_util.h"

namespace {
thread_local bool g_fail_allocations = false;  // this thread only: the simulator keeps its memory

// A log sink that allocates nothing: the messages, one after another.
char g_log[16384];
std::atomic<size_t> g_log_used{0};
void quiet_sink(const char* fmt, va_list args) {
    char line[512];
    int n = vsnprintf(line, sizeof line, fmt, args);
    if (n <= 0) return;
    size_t len = std::min(static_cast<size_t>(n), sizeof line - 1);
    size_t at = g_log_used.fetch_add(len);
    if (at + len < sizeof g_log) std::memcpy(g_log + at, line, len);
}
bool logged(const char* text) {
    return std::string(g_log, std::min(g_log_used.load(), sizeof g_log)).find(text) != std::string::npos;
}
}  // namespace

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KX_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define KX_TSAN 1
#endif

#ifndef KX_TSAN  // ThreadSanitizer's runtime owns the allocator: nothing to replace there
// This program's allocator, which the library's allocations go through too.
void* operator new(std::size_t size) {
    if (g_fail_allocations) throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#endif

TEST(CoreNoThrow, AllocationFailureBecomesAResultCode) {
#ifdef KX_TSAN
    GTEST_SKIP() << "the allocator cannot be replaced under ThreadSanitizer";
#endif
    kx_set_log_call_back(quiet_sink, LOG_LEVEL_ERROR);
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = kxtest::start_sim(2);
    kx_robot_handle* arm = kxtest::connect_arm(*sim, 0);
    ASSERT_TRUE(arm && arm->id == 1);
    const std::string path = ::testing::TempDir() + "nothrow_program.txt";
    ASSERT_TRUE(kxtest::write_file(path, "{\"file\":6}\r\n"));
    kx_send_project_t project = kxtest::project_of(path);
    project.project_type = 1;  // saved under a new name first: the most string work
    kx_realtime_push_config_t push{};
    int err_line = 0;

    // Nothing below may allocate through gtest while allocations fail.
    g_fail_allocations = true;
    const int sent = kx_send_project(arm, project, &err_line);
    kx_robot_handle* second = kxtest::connect_arm(*sim, 1);
    const int query = kx_get_realtime_push(arm, &push);
    const int stopped = kx_set_arm_stop(arm);
    g_fail_allocations = false;

    EXPECT_EQ(-1, sent);
    EXPECT_TRUE(logged("[kx_send_project] out of memory"));
    EXPECT_EQ(nullptr, second);
    EXPECT_TRUE(logged("[kx_create_robot_arm] out of memory"));
    EXPECT_EQ(0, query);  // the round trip itself needs no C++ allocation
    EXPECT_EQ(0, stopped);

    // Memory is back: everything works again, the failed create took no slot.
    kx_robot_handle* later = kxtest::connect_arm(*sim, 1);
    ASSERT_NE(nullptr, later);
    EXPECT_EQ(2, later->id);
    EXPECT_EQ(0, kx_get_realtime_push(arm, &push));
    std::remove(path.c_str());
    EXPECT_EQ(0, kx_destory());
}
