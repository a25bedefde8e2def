#include "udp.h"

#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

namespace {

// Five arms pushing at 1 kHz can outrun one receive pass; a deep buffer rides
// out scheduling gaps without dropping states.
constexpr int kReceiveBuffer = 4 * 1024 * 1024;

}  // namespace

std::recursive_mutex& kx::udp::registry_mutex() {
    static auto* mutex = new std::recursive_mutex;  // never destroyed: threads may outlive statics
    return *mutex;
}

int kx::udp::wake_fd() {
    static int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return fd;
}

void kx::udp::wake() {
    uint64_t one = 1;
    if (write(wake_fd(), &one, sizeof one) < 0) { /* counter saturated: already readable */ }
}

int kx::udp::epoll_fd() {
    static int fd = [] {
        int ep = epoll_create1(EPOLL_CLOEXEC);
        struct epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.fd = wake_fd();
        epoll_ctl(ep, EPOLL_CTL_ADD, wake_fd(), &ev);
        return ep;
    }();
    return fd;
}

void kx::udp::drain_wake() {
    uint64_t count;
    if (read(wake_fd(), &count, sizeof count) < 0) { /* nothing pending */ }
}

extern "C" {

KX_API kx_udp_handle* kx_udp_init(void) {
    auto* handle = static_cast<kx_udp_handle*>(calloc(1, sizeof(kx_udp_handle)));
    if (!handle) return nullptr;
    handle->udp_add_port = kx_udp_add_port;
    handle->udp_delete_port = kx_udp_delete_port;
    return handle;
}

KX_API int kx_udp_create_connect(int port) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        perror("socket creation failed");
        return -2;
    }
    struct timeval timeout = {3, 0};
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) < 0) {
        perror("setsockopt error");
        close(fd);
        return -2;
    }
    // No address reuse: a port another process listens on is refused, not
    // shared (a datagram would reach only one of the two).
    int rcvbuf = kReceiveBuffer;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);  // best effort
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) < 0) {
        perror("bind failed");
        close(fd);
        return -2;
    }
    return fd;
}

KX_API int kx_udp_add_port(kx_udp_handle* handle, int port) {
    if (!handle) return -1;
    std::lock_guard lock(kx::udp::registry_mutex());
    for (auto& entry : handle->udp_list) {
        if (entry.user_num != 0 && entry.port == port) {
            entry.user_num++;
            return 1;
        }
    }
    for (auto& entry : handle->udp_list) {
        if (entry.user_num != 0) continue;
        int fd = kx_udp_create_connect(port);
        if (fd <= 0) {
            entry.udp_id = 0;
            return -1;
        }
        entry.udp_id = fd;
        entry.port = port;
        entry.user_num = 1;
        struct epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.fd = fd;
        epoll_ctl(kx::udp::epoll_fd(), EPOLL_CTL_ADD, fd, &ev);
        return 0;
    }
    return -2;
}

KX_API int kx_udp_delete_port(kx_udp_handle* handle, int port) {
    if (!handle) return 0;
    std::lock_guard lock(kx::udp::registry_mutex());
    for (auto& entry : handle->udp_list)
        if (entry.port == port) entry.user_num--;
    for (auto& entry : handle->udp_list) {
        if (entry.user_num >= 1) continue;
        kx_udp_close(entry.udp_id);
        entry = kx_udp_info{};
    }
    return 0;
}

// The receive thread waits in epoll, which holds no reference to the socket:
// once closed here the port is free at once.
KX_API int kx_udp_close(int udp_id) {
    if (udp_id > 0) {
        epoll_ctl(kx::udp::epoll_fd(), EPOLL_CTL_DEL, udp_id, nullptr);
        close(udp_id);
    }
    return 0;
}

}  // extern "C"
