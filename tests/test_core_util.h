// Helpers shared by the connection-core tests: log capture and a minimal
// scripted TCP controller for framing tests that need exact bytes.
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
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kx_interface.h"
#include "kx_interface_global.h"

namespace kxtest {

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

// Accepts one client at a time on an ephemeral loopback port; records request
// lines and answers through a handler that returns raw bytes (or nothing).
class FakeController {
public:
    using Handler = std::function<std::string(const std::string& line)>;

    explicit FakeController(Handler handler = {}) : handler_(std::move(handler)) {
        listen_fd_ = socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        listen(listen_fd_, 8);
        socklen_t len = sizeof addr;
        getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        pipe(stop_pipe_);
        thread_ = std::thread([this] { run(); });
    }
    ~FakeController() {
        write(stop_pipe_[1], "x", 1);
        thread_.join();
        close_client();
        close(listen_fd_);
        close(stop_pipe_[0]);
        close(stop_pipe_[1]);
    }
    int port() const { return port_; }
    void set_handler(Handler handler) {
        std::lock_guard lock(mutex_);
        handler_ = std::move(handler);
    }
    void send_raw(const std::string& bytes) {
        std::lock_guard lock(mutex_);
        if (client_ >= 0) send(client_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    // Writes each byte separately, so the client sees one segment per byte.
    void send_bytewise(const std::string& bytes) {
        for (char c : bytes) {
            send_raw(std::string(1, c));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    void close_client() {
        std::lock_guard lock(mutex_);
        if (client_ >= 0) close(client_);
        client_ = -1;
    }
    std::vector<std::string> received() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    bool wait_received(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        std::unique_lock lock(mutex_);
        return cv_.wait_for(lock, timeout, [&] { return lines_.size() >= n; });
    }
    bool wait_connected(std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        std::unique_lock lock(mutex_);
        return cv_.wait_for(lock, timeout, [&] { return client_ >= 0; });
    }

private:
    void run() {
        std::string pending;
        for (;;) {
            int client;
            {
                std::lock_guard lock(mutex_);
                client = client_;
            }
            pollfd fds[3] = {{stop_pipe_[0], POLLIN, 0}, {listen_fd_, POLLIN, 0}, {client, POLLIN, 0}};
            poll(fds, client >= 0 ? 3 : 2, 100);
            if (fds[0].revents) return;
            if (fds[1].revents & POLLIN) {
                int fd = accept(listen_fd_, nullptr, nullptr);
                std::lock_guard lock(mutex_);
                if (client_ >= 0) close(client_);
                client_ = fd;
                pending.clear();
                cv_.notify_all();
                continue;
            }
            if (client >= 0 && (fds[2].revents & (POLLIN | POLLHUP))) {
                char buf[4096];
                ssize_t n = recv(client, buf, sizeof buf, MSG_DONTWAIT);
                if (n <= 0) {
                    std::lock_guard lock(mutex_);
                    if (client_ == client) {
                        close(client_);
                        client_ = -1;
                    }
                    continue;
                }
                pending.append(buf, static_cast<size_t>(n));
                size_t pos;
                while ((pos = pending.find("\r\n")) != std::string::npos) {
                    std::string line = pending.substr(0, pos);
                    pending.erase(0, pos + 2);
                    Handler handler;
                    {
                        std::lock_guard lock(mutex_);
                        lines_.push_back(line);
                        handler = handler_;
                        cv_.notify_all();
                    }
                    if (handler) {
                        std::string reply = handler(line);
                        if (!reply.empty()) send_raw(reply);
                    }
                }
            }
        }
    }

    Handler handler_;
    int listen_fd_ = -1;
    int port_ = 0;
    int stop_pipe_[2] = {-1, -1};
    int client_ = -1;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> lines_;
    std::thread thread_;
};

// The "command" value of a request line (crude, enough for scripted replies).
inline std::string command_of(const std::string& line) {
    const std::string key = "\"command\":\"";
    size_t at = line.find(key);
    if (at == std::string::npos) return "";
    size_t start = at + key.size();
    return line.substr(start, line.find('"', start) - start);
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
        std::unique_lock lock(mutex_);
        cv_.wait_for(lock, std::chrono::seconds(10), [&] { return items_.size() >= n; });
        return items_;
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<T> items_;
};

// A test run once per thread mode, with the library started and shut down around it.
class ModeTest : public ::testing::TestWithParam<kx_thread_mode_e> {
protected:
    void SetUp() override { ASSERT_EQ(0, kx_init(GetParam())); }
    void TearDown() override { EXPECT_EQ(0, kx_destory()); }
};

}  // namespace kxtest
