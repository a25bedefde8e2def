// Helpers shared by the connection-core tests: log capture, the simulator,
// ports, fixtures.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kx_interface.h"
#include "kx_interface_global.h"
#include "simulator.h"

namespace kxtest {

// Writes `text` to `path`, replacing it; false when it cannot be written.
inline bool write_file(const std::string& path, const std::string& text) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    return std::fclose(f) == 0 && ok;
}

// The upload record for a program file at `path`.
inline kx_send_project_t project_of(const std::string& path, int only_save = 0, int save_id = 0) {
    kx_send_project_t p{};
    std::snprintf(p.project_path, sizeof p.project_path, "%s", path.c_str());
    p.project_path_len = static_cast<int>(path.size());
    p.plan_speed = 50;
    p.only_save = only_save;
    p.save_id = save_id;
    return p;
}

// Collects every formatted log message.
class LogCapture {
public:
    static void install(int level = LOG_LEVEL_DEBUG) {
        clear();
        kx_set_log_call_back(&LogCapture::sink, level);
    }
    static void sink(const char* fmt, va_list args) {
        char text[4096];
        vsnprintf(text, sizeof text, fmt, args);
        std::lock_guard lock(mutex());
        lines().emplace_back(text);
    }
    static bool contains(const std::string& needle) {
        std::lock_guard lock(mutex());
        for (auto& line : lines())
            if (line.find(needle) != std::string::npos) return true;
        return false;
    }
    static bool has_line(const std::string& exact) {
        std::lock_guard lock(mutex());
        for (auto& line : lines())
            if (line == exact) return true;
        return false;
    }
    static std::vector<std::string> all() {
        std::lock_guard lock(mutex());
        return lines();
    }
    static void clear() {
        std::lock_guard lock(mutex());
        lines().clear();
    }

private:
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> l;
        return l;
    }
};

// A started simulator with one arm per product string, quiet unless asked to push.
inline std::unique_ptr<kxsim::Simulator> start_sim(std::vector<std::string> products, int udp_port = 0,
                                                   bool push = false) {
    kxsim::Options options;
    options.arms.clear();
    for (auto& product : products) options.arms.push_back(kxsim::ArmOptions{product});
    options.push_enabled = push;
    if (udp_port) options.udp_port = udp_port;
    auto sim = std::make_unique<kxsim::Simulator>(options);
    EXPECT_TRUE(sim->start());
    return sim;
}
inline std::unique_ptr<kxsim::Simulator> start_sim(int arms = 1) {
    return start_sim(std::vector<std::string>(static_cast<size_t>(arms), "AVEN-P"));
}

// A local port that was free a moment ago: bound to port 0, read back, closed.
// For TCP nothing listens there afterwards.
inline int bound_port(int type) {
    int fd = socket(AF_INET, type, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t len = sizeof addr;
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    close(fd);
    return ntohs(addr.sin_port);
}
inline int free_udp_port() { return bound_port(SOCK_DGRAM); }

// Connects to arm k (0-based) of a simulator, at its own address.
inline kx_robot_handle* connect_arm(const kxsim::Simulator& sim, int arm) {
    return kx_create_robot_arm(sim.host(arm).c_str(), sim.port(arm));
}

// The library's record behind a handle (tests inspect its fields).
inline kx_handle_t* record_of(kx_robot_handle* handle) {
    kx_rdlock_lock();
    kx_handle_t* record = kx_get_kx_handle_by_robot_handle(handle);
    kx_rdlock_unlock();
    return record;
}

// Collects what a callback delivers on a library thread, for a test to await.
template <class T>
class Collector {
public:
    void add(const T& item) {
        std::lock_guard lock(mutex_);
        items_.push_back(item);
        cv_.notify_all();
    }
    // The items once there are at least n (fewer after 10 s).
    std::vector<T> wait_for(size_t n) {
        return wait_until([n](const std::vector<T>& items) { return items.size() >= n; });
    }
    // The items once `done(items)` holds (or after 10 s).
    template <class Done>
    std::vector<T> wait_until(Done done) {
        std::unique_lock lock(mutex_);
        cv_.wait_for(lock, std::chrono::seconds(10), [&] { return done(items_); });
        return items_;
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<T> items_;
};

// Closes the drag-teach save file and returns what was written to it.
inline std::string close_save_file() {
    std::string content;
    if (FILE* file = F_SaveDragTeach) {
        rewind(file);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, file)) > 0) content.append(buf, n);
        fclose(file);
    }
    F_SaveDragTeach = nullptr;
    return content;
}

// A test run once per thread mode, with the library started and shut down around it.
class ModeTest : public ::testing::TestWithParam<kx_thread_mode_e> {
protected:
    void SetUp() override { ASSERT_EQ(0, kx_init(GetParam())); }
    void TearDown() override { EXPECT_EQ(0, kx_destory()); }
};

// A listening TCP socket on a free loopback port (its address in *addr), with
// a receive buffer of `rcvbuf` bytes when not 0; -1 when it cannot listen.
inline int listen_loopback(int backlog, int rcvbuf, sockaddr_in* addr) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (rcvbuf > 0) setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    addr->sin_family = AF_INET;
    addr->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof *addr;
    if (bind(fd, reinterpret_cast<sockaddr*>(addr), sizeof *addr) != 0 || listen(fd, backlog) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(addr), &len) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// A local listener that never accepts, its backlog filled, so that a
// connection attempt gets no answer at all: the stand-in for a host that
// drops connection attempts.
class DeafPeer {
public:
    DeafPeer() {
        sockaddr_in addr{};
        fd_ = listen_loopback(0, 0, &addr);
        if (fd_ < 0) return;
        port_ = ntohs(addr.sin_port);
        for (int i = 0; i < 16; ++i) {
            int c = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            fillers_.push_back(c);
            connect(c, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
            pollfd p{c, POLLOUT, 0};
            if (poll(&p, 1, 200) == 0) {  // this one is left unanswered: the backlog is full
                full_ = true;
                break;
            }
        }
    }
    ~DeafPeer() {
        for (int c : fillers_) close(c);
        if (fd_ >= 0) close(fd_);
    }
    bool full() const { return full_; }
    int port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
    bool full_ = false;
    std::vector<int> fillers_;
};

}  // namespace kxtest

namespace kxtest {

// A loopback peer in front of a simulator arm: it forwards both ways while
// `forwarding`, keeps every line the library wrote, and can stop reading the
// library's side for a while (a controller whose receive buffer is full).
class SlowPeer {
public:
    SlowPeer(const std::string& host, int port) : host_(host), port_(port) {
        sockaddr_in addr{};
        listen_ = listen_loopback(1, 4096, &addr);  // a small window fills the library's send buffer soon
        if (listen_ < 0) return;
        listen_port_ = ntohs(addr.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~SlowPeer() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        for (int fd : {listen_, client_, upstream_})
            if (fd >= 0) close(fd);
    }
    int port() const { return listen_port_; }
    void set_forwarding(bool on) { forwarding_ = on; }
    void stall_for(std::chrono::milliseconds ms) {
        std::lock_guard lock(mutex_);
        stall_until_ = std::chrono::steady_clock::now() + ms;
    }
    // Lines (without "\r\n") written by the library while not forwarding.
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    size_t line_count() {
        std::lock_guard lock(mutex_);
        return lines_.size();
    }
    size_t pending_bytes() {
        std::lock_guard lock(mutex_);
        return partial_.size();
    }

private:
    void run() {
        pollfd lp{listen_, POLLIN, 0};
        while (!stop_ && poll(&lp, 1, 50) <= 0) {}
        if (stop_) return;
        client_ = accept(listen_, nullptr, nullptr);
        upstream_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        inet_pton(AF_INET, host_.c_str(), &addr.sin_addr);
        addr.sin_port = htons(static_cast<uint16_t>(port_));
        if (connect(upstream_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return;
        char buf[4096];
        while (!stop_) {
            bool stalled;
            {
                std::lock_guard lock(mutex_);
                stalled = std::chrono::steady_clock::now() < stall_until_;
            }
            pollfd fds[2] = {{client_, static_cast<short>(stalled ? 0 : POLLIN), 0}, {upstream_, POLLIN, 0}};
            if (poll(fds, 2, 5) <= 0) continue;
            if (fds[1].revents & POLLIN) {
                ssize_t n = recv(upstream_, buf, sizeof buf, 0);
                if (n <= 0) return;
                if (send(client_, buf, static_cast<size_t>(n), MSG_NOSIGNAL) != n) return;
            }
            if (fds[0].revents & POLLIN) {
                ssize_t n = recv(client_, buf, forwarding_ ? sizeof buf : 61, 0);  // slowly, in odd pieces
                if (n <= 0) return;
                if (forwarding_) {
                    if (send(upstream_, buf, static_cast<size_t>(n), MSG_NOSIGNAL) != n) return;
                    continue;
                }
                std::lock_guard lock(mutex_);
                partial_.append(buf, static_cast<size_t>(n));
                for (size_t end; (end = partial_.find("\r\n")) != std::string::npos;) {
                    lines_.push_back(partial_.substr(0, end));
                    partial_.erase(0, end + 2);
                }
            }
        }
    }

    std::string host_;
    int port_;
    int listen_ = -1, client_ = -1, upstream_ = -1;
    int listen_port_ = 0;
    std::atomic<bool> stop_{false}, forwarding_{true};
    std::mutex mutex_;
    std::chrono::steady_clock::time_point stall_until_{};
    std::vector<std::string> lines_;
    std::string partial_;
    std::thread thread_;
};

}  // namespace kxtest
