// The threaded modes' receive side: one thread at a time reads a connection,
// either the receive thread (events, replies nobody waits for) or a caller
// waiting for a reply there, which frames its own reply and so needs no
// second thread to wake it. Also the round trip every command goes through.
#include <errno.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "kx_receive.h"
#include "log.h"
#include "socket.h"

namespace {

using kx::Clock;
using kx::Deadline;
using kx::deadline_after;
using kx::kPollSliceMs;
using kx::wait_orphan;
using kx::wait_socket;
using kx::wait_conn;

// One thread at a time reads and frames a connection: the receive thread, or
// a caller waiting for a reply on it, which then gets its reply without a
// second thread in between.

void deliver(kx::Conn& conn, char* frame, size_t len, ssize_t received) {
    if (kx::log_enabled(LOG_LEVEL_DEBUG))
        kx_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", static_cast<int>(received),
                     kx::handle_id(conn.record), frame);
    kx::store_frame(conn.sync, conn.record, reinterpret_cast<uint8_t*>(frame), static_cast<int>(len));
}

int epoll_fd() {
    static int fd = epoll_create1(EPOLL_CLOEXEC);
    return fd;
}

int receiver_wake_fd() {
    static int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return fd;
}

// Whether the receive thread watches the connection's descriptor.
void set_watched(kx::Conn& conn, bool on) {
    struct epoll_event ev = {};
    ev.events = on ? static_cast<uint32_t>(EPOLLIN) : 0u;
    ev.data.fd = conn.fd;
    epoll_ctl(epoll_fd(), EPOLL_CTL_MOD, conn.fd, &ev);
}

void peer_closed(kx::Conn& conn) {
    char* frame;
    size_t len;
    if (conn.framer.take_unterminated(frame, len)) deliver(conn, frame, len, static_cast<ssize_t>(len));
    kx_log_error("服务器已关闭!\n");  // "the server has closed": the interface's own line, kept untranslated
    kx::set_socket_fd(conn.record->socket_handle, -1);
    conn.closed = true;
    epoll_ctl(epoll_fd(), EPOLL_CTL_DEL, conn.fd, nullptr);
}

// Reads everything waiting on one connection and stores each complete frame.
// The caller holds the connection's reading role.
void drain(kx::Conn& conn) {
    static thread_local std::vector<char> chunk(KX_RECV_FRAME_LEN);
    for (;;) {
        ssize_t n = recv(conn.fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (n > 0) {
            conn.framer.append(chunk.data(), static_cast<size_t>(n));
            char* frame;
            size_t len;
            while (conn.framer.next(frame, len)) deliver(conn, frame, len, n);
            if (static_cast<size_t>(n) < chunk.size()) break;  // the rest, if any, makes the descriptor readable again
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        peer_closed(conn);  // orderly close or reset: nothing more will arrive
        return;
    }
    // A complete object that came without its "\r\n" is taken as it is.
    char* frame;
    size_t len;
    if (conn.framer.take_unterminated(frame, len)) deliver(conn, frame, len, static_cast<ssize_t>(len));
}

// Takes the reading role (queue lock held) and keeps the receive thread off
// the descriptor meanwhile.
bool claim_reading(kx::Conn& conn) {
    if (conn.sync.reading || !conn.active || conn.closed) return false;
    conn.sync.reading = true;
    set_watched(conn, false);
    return true;
}

void release_reading(kx::Conn& conn) {
    conn.sync.reading = false;
    if (conn.active && !conn.closed) set_watched(conn, true);
    conn.sync.cv.notify_all();  // another waiter may take the role
}

// How long a waiting caller checks its socket before it sleeps. A reply on
// loopback or a LAN usually comes within this; catching it awake saves the
// wake-up of an idle CPU, which costs tens of microseconds on virtual machines.
constexpr auto kSpin = std::chrono::microseconds(60);

// Callers checking their sockets right now. At most one fewer than the CPUs
// (and at least one) may do so, so that spinning callers never keep the
// peers they wait for, or each other, off the processors.
std::atomic<int> g_spinners{0};

int max_spinners() {
    static const int n = [] {
        long cpus = sysconf(_SC_NPROCESSORS_ONLN);
        return cpus > 2 ? static_cast<int>(cpus - 1) : 1;
    }();
    return n;
}

// Checks the socket without sleeping until `until`, yielding between checks
// so that a peer on the same CPU can answer. True when it became readable;
// false at once when enough other callers are already checking theirs.
bool spin_readable(int fd, Clock::time_point until) {
    if (g_spinners.fetch_add(1, std::memory_order_relaxed) >= max_spinners()) {
        g_spinners.fetch_sub(1, std::memory_order_relaxed);
        return false;
    }
    struct pollfd pfd = {fd, POLLIN, 0};
    bool readable = false;
    for (;;) {
        if (poll(&pfd, 1, 0) > 0) {
            readable = true;
            break;
        }
        if (Clock::now() >= until) break;
        sched_yield();
    }
    g_spinners.fetch_sub(1, std::memory_order_relaxed);
    return readable;
}

// Waits (without the queue lock) until the connection is readable, the
// deadline passes or the library shuts down, then reads what came.
void read_until(kx::Conn& conn, Deadline deadline) {
    auto left = deadline - Clock::now();
    if (left <= Clock::duration::zero()) return;
    if (spin_readable(conn.fd, std::min(deadline, Clock::now() + kSpin))) {
        drain(conn);
        return;
    }
    left = deadline - Clock::now();
    if (left <= Clock::duration::zero()) return;
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
    struct timespec ts = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    struct pollfd fds[2] = {{conn.fd, POLLIN, 0}, {kx::stop_fd(), POLLIN, 0}};
    if (ppoll(fds, 2, &ts, nullptr) > 0 && fds[0].revents) drain(conn);
}

}  // namespace

namespace kx {

int wait_conn(kx::Conn& conn, const char* command, uint8_t* buf, int buf_len, Deadline deadline, bool reading) {
    kx::QueueSync& sync = conn.sync;
    std::unique_lock lock(sync.mutex);
    for (;;) {
        int length = -1;
        Take take = take_locked(sync, conn.record->fifo_handle, command, buf, buf_len, &length);
        if (take == Take::Discarded) continue;
        if (take == Take::Found || Clock::now() >= deadline || kx::stopping()) {
            if (reading) release_reading(conn);
            return take == Take::Found ? length : -1;
        }
        if (reading && conn.closed) {
            release_reading(conn);
            reading = false;
        }
        if (!reading) reading = claim_reading(conn);
        if (!reading) {
            sync.cv.wait_until(lock, deadline);
            continue;
        }
        lock.unlock();
        read_until(conn, deadline);
        lock.lock();
    }
}

}  // namespace kx

namespace {

// ---- receive thread ----------------------------------------------------------

void serve(kx::Conn& conn) {
    {
        std::lock_guard lock(conn.sync.mutex);
        if (conn.sync.reading || !conn.active || conn.closed) return;  // a waiter reads it
        conn.sync.reading = true;
    }
    drain(conn);
    std::lock_guard lock(conn.sync.mutex);
    conn.sync.reading = false;
    conn.sync.cv.notify_all();
}

void run_receiver() {
    struct epoll_event wake = {};
    wake.events = EPOLLIN;
    wake.data.fd = receiver_wake_fd();
    epoll_ctl(epoll_fd(), EPOLL_CTL_ADD, receiver_wake_fd(), &wake);
    struct epoll_event stop = {};
    stop.events = EPOLLIN;
    stop.data.fd = kx::stop_fd();
    epoll_ctl(epoll_fd(), EPOLL_CTL_ADD, kx::stop_fd(), &stop);
    struct epoll_event events[8];
    while (!kx::stopping()) {
        int n = epoll_wait(epoll_fd(), events, 8, -1);
        if (n < 0) {
            if (errno != EINTR) sleep_cp(1);  // never spin on a persistent error
            continue;
        }
        for (int i = 0; i < n; ++i) {
            int fd = events[i].data.fd;
            if (fd == receiver_wake_fd()) {
                uint64_t count;
                if (read(fd, &count, sizeof count) < 0) { /* nothing pending */ }
                continue;
            }
            if (fd == kx::stop_fd()) continue;
            // A frame that cannot be stored (out of memory) is lost, never the thread.
            kx::guarded("thread_socket_receive", 0, [&] {
                if (auto conn = kx::conn_by_fd(fd)) serve(*conn);
                return 0;
            });
        }
    }
    epoll_ctl(epoll_fd(), EPOLL_CTL_DEL, receiver_wake_fd(), nullptr);
    epoll_ctl(epoll_fd(), EPOLL_CTL_DEL, kx::stop_fd(), nullptr);
}

}  // namespace

namespace kx {

void watch(Conn& conn) {
    struct epoll_event ev = {};
    ev.events = EPOLLIN;
    ev.data.fd = conn.fd;
    conn.active = true;
    epoll_ctl(epoll_fd(), EPOLL_CTL_ADD, conn.fd, &ev);
}

void unwatch(Conn& conn) {
    std::lock_guard lock(conn.sync.mutex);
    conn.active = false;
    epoll_ctl(epoll_fd(), EPOLL_CTL_DEL, conn.fd, nullptr);
}

int round_trip(const char* caller, kx_robot_handle* handle, const JsonValue* values, size_t count,
               const char* command, uint8_t* buf, int buf_len, int timeout) {
    ConnUse use(handle);
    if (!use) {
        release_trees(values, count);  // the request owned them; it ends here
        return -1;
    }
    Conn& conn = use.conn();
    const bool threaded = g_mode == KX_DUAL_MODE_E || g_mode == KX_TRIPLE_MODE_E;
    const int polls = timeout / 2;
    // One writer at a time; the writer lock comes before the reading role, so
    // that a caller waiting to write never holds the socket's reader.
    std::unique_lock<std::recursive_mutex> writing(conn.writer, std::defer_lock);
    RequestLine line;
    if (values) {
        if (encode_request(values, count, line) != 0) return kSendFailed;
        writing.lock();
    }
    // Read the reply ourselves: take the reading role before the request leaves.
    bool reading = false;
    if (threaded && command && polls > 0) {
        std::lock_guard lock(conn.sync.mutex);
        reading = claim_reading(conn);
    }
    auto give_back = [&] {
        if (!reading) return;
        std::lock_guard lock(conn.sync.mutex);
        release_reading(conn);
        reading = false;
    };
    if (values && write_request(conn, line.bytes(), line.len) != 0) {
        give_back();
        return kSendFailed;
    }
    if (writing.owns_lock()) writing.unlock();
    if (!command) {
        pause_ms(timeout);
        return 0;
    }
    int result = -1;
    try {
        if (threaded && polls > 0) {
            result = wait_conn(conn, command, buf, buf_len, deadline_after(polls), reading);
            reading = false;
        } else {
            give_back();
            result = handle_revice_data(caller, use.record(), command, buf, buf_len, timeout);
        }
    } catch (...) {
        give_back();
    }
    return result > 0 ? result : -2;
}

void* run_thread(const char* name, void (*body)()) {
    try {
        body();
    } catch (...) {
        kx_log_error("[%s] receive thread stopped: out of memory\n", name);
    }
    return nullptr;
}
}  // namespace kx

extern "C" {

KX_API void* thread_socket_receive(void*) { return kx::run_thread("thread_socket_receive", run_receiver); }

KX_API int handle_revice_data(const char* caller_function_name, kx_handle_t* handle, const char* command,
                              uint8_t* buf, int buf_len, int timeout) {
    int polls = timeout / 2;
    if (!handle || !command || polls <= 0) return -1;
    try {
        switch (g_mode) {
            case KX_DUAL_MODE_E:
            case KX_TRIPLE_MODE_E: {
                if (!handle->fifo_handle) return -1;
                auto conn = kx::conn_of(handle);
                if (conn) return wait_conn(*conn, command, buf, buf_len, deadline_after(polls), false);
                return wait_orphan(handle, command, buf, buf_len, deadline_after(polls));
            }
            case KX_SINGLE_MODE_E:
                return handle->socket_handle ? wait_socket(handle, command, buf, buf_len, polls) : -1;
            default:
                kx::pause_ms(polls * kPollSliceMs);
                return -1;
        }
    } catch (...) {
        return -1;
    }
}
}  // extern "C"
