// A raw-socket peer for the simulator tests: writes request lines, reads
// "\r\n"-framed replies, receives realtime datagrams. Independent of the
// client library on purpose.
#ifndef TEST_SIM_CLIENT_H
#define TEST_SIM_CLIENT_H

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "simulator.h"

namespace simtest {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
inline Json parse(const std::string& s) { return Json(cJSON_Parse(s.c_str()), cJSON_Delete); }

inline std::string command_of(const cJSON* j) {
    const cJSON* c = cJSON_GetObjectItemCaseSensitive(j, "command");
    return cJSON_IsString(c) ? c->valuestring : "";
}

inline std::vector<int> ints(const cJSON* j, const char* key) {
    std::vector<int> v;
    const cJSON* el = nullptr;
    const cJSON* arr = cJSON_GetObjectItemCaseSensitive(j, key);
    cJSON_ArrayForEach(el, arr) v.push_back(el->valueint);
    return v;
}

inline int num(const cJSON* j, const char* key) {
    const cJSON* n = cJSON_GetObjectItemCaseSensitive(j, key);
    return cJSON_IsNumber(n) ? n->valueint : -999999;
}

/* 1 true, 0 false, -1 missing or not a boolean. */
inline int flag(const cJSON* j, const char* key) {
    const cJSON* b = cJSON_GetObjectItemCaseSensitive(j, key);
    return cJSON_IsBool(b) ? (cJSON_IsTrue(b) ? 1 : 0) : -1;
}

class Peer {
public:
    /* Connects to arm index `arm` of `sim`, at its own address. */
    Peer(const kxsim::Simulator& sim, int arm) : Peer(sim.port(arm), sim.host(arm).c_str()) {}
    explicit Peer(int port, const char* host = "127.0.0.1") {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        ::inet_pton(AF_INET, host, &a.sin_addr);
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            ::close(fd_);
            fd_ = -1;
        }
        const int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~Peer() {
        if (fd_ >= 0) ::close(fd_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool ok() const { return fd_ >= 0; }
    void send_bytes(const std::string& b) const { (void)!::send(fd_, b.data(), b.size(), MSG_NOSIGNAL); }
    void send_line(const std::string& l) const { send_bytes(l + "\r\n"); }

    /* Next line without its "\r\n"; "" on timeout or end of stream (then eof() tells). */
    std::string line(int timeout_ms = 3000) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
        for (;;) {
            const size_t p = buf_.find("\r\n");
            if (p != std::string::npos) {
                std::string l = buf_.substr(0, p);
                buf_.erase(0, p + 2);
                return l;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                    std::chrono::steady_clock::now());
            pollfd pf{fd_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&pf, 1, static_cast<int>(left.count())) <= 0) return "";
            char tmp[65536];
            const ssize_t n = ::recv(fd_, tmp, sizeof tmp, 0);
            if (n <= 0) {
                eof_ = true;
                return "";
            }
            ++reads_;
            buf_.append(tmp, static_cast<size_t>(n));
        }
    }

    /* Next frame named `name`, skipping others (events) into `skipped`. */
    Json wait_for(const std::string& name, int timeout_ms = 3000) {
        for (;;) {
            const std::string l = line(timeout_ms);
            if (l.empty()) return Json(nullptr, cJSON_Delete);
            Json j = parse(l);
            if (j && command_of(j.get()) == name) return j;
            skipped.push_back(l);
        }
    }

    /* Sends a request and returns the reply named `reply` (default: the command). */
    Json ask(const std::string& request, const std::string& reply = "") {
        send_line(request);
        std::string name = reply;
        if (name.empty()) name = command_of(parse(request).get());
        return wait_for(name);
    }

    bool eof() const { return eof_; }
    int reads() const { return reads_; }
    std::vector<std::string> skipped;

private:
    int fd_ = -1;
    std::string buf_;
    bool eof_ = false;
    int reads_ = 0;
};

/* A UDP port on loopback chosen by the kernel, for realtime datagrams. */
class UdpSink {
public:
    UdpSink() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        socklen_t len = sizeof a;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
    }
    ~UdpSink() { ::close(fd_); }
    UdpSink(const UdpSink&) = delete;
    UdpSink& operator=(const UdpSink&) = delete;
    int port() const { return port_; }
    /* One datagram; "" on timeout. */
    std::string receive(int timeout_ms = 3000) const {
        pollfd pf{fd_, POLLIN, 0};
        if (::poll(&pf, 1, timeout_ms) <= 0) return "";
        char buf[4096];
        const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    }

private:
    int fd_ = -1;
    int port_ = 0;
};

/* A started simulator of the given products, push off unless asked. */
inline kxsim::Options options(std::vector<std::string> products, double time_scale = 50.0) {
    kxsim::Options o;
    o.arms.clear();
    for (auto& p : products) o.arms.push_back({p});
    o.base_port = 0;
    o.time_scale = time_scale;
    o.push_enabled = false;
    return o;
}

}  // namespace simtest

#endif
