#include "socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "log.h"

namespace {

constexpr int kMaxDescriptor = 100000;
// A send that would block is retried every 1 ms; after this many retries
// (about the connect-time send timeout of 3 s) the peer is taken as stuck.
constexpr int kMaxSendRetries = 3000;
// Sends never raise SIGPIPE: a peer that closed yields an error code instead.
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
// The send timeout set at connect time.
constexpr int kSendTimeoutMs = 3000;

}  // namespace

extern "C" {

KX_API kx_socket_handle* kx_socket_handle_init(const char* ip, int port) {
    if (!ip || port < 1 || strnlen(ip, 21) >= 21) return nullptr;
    auto* handle = static_cast<kx_socket_handle*>(calloc(1, sizeof(kx_socket_handle)));
    if (!handle) return nullptr;
    handle->socket_id = -1;
    memcpy(handle->ip, ip, strlen(ip));  // a 20-character address fills the field without a terminator
    handle->port = port;
    handle->init = socket_connect;
    handle->send = socket_send;
    handle->block_send = socket_block_send;
    handle->receive = socket_receive;
    handle->block_receive = socket_blocking_recive;
    handle->close = socket_close;
    return handle;
}

KX_API int socket_connect(kx_socket_handle* handle) {
    if (!handle) return -1;
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 1 || fd > kMaxDescriptor) {
        if (fd >= 0) close(fd);
        kx::set_socket_fd(handle, -1);
        return -1;
    }
    char ip[sizeof handle->ip + 1] = {};
    memcpy(ip, handle->ip, sizeof handle->ip);
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = inet_addr(ip);
    addr.sin_port = htons(static_cast<uint16_t>(handle->port));

    struct timeval timeout = {3, 0};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0) {
        perror("setsockopt error");
        close(fd);
        return -2;
    }
    if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) != 0) {
        kx::set_socket_fd(handle, -1);
        close(fd);
        return -3;
    }
    int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        perror("Error setting non-blocking");
        close(fd);
        return -4;
    }
    // Requests are single small writes: send each at once rather than coalesce.
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    kx::set_socket_fd(handle, fd);
    return fd;
}

// A request cut short would garble the stream: what the kernel did not take
// at once is written as soon as it has room, within the send timeout.
KX_API int socket_send(kx_socket_handle* handle, uint8_t* bytes, int len) {
    if (!bytes || len < 1) return -1;
    const int fd = kx::socket_fd(handle);
    size_t sent = 0;
    while (sent < static_cast<size_t>(len)) {
        ssize_t n = send(fd, bytes + sent, static_cast<size_t>(len) - sent, kSendFlags);
        if (n >= 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return -2;
        struct pollfd pfd = {fd, POLLOUT, 0};
        if (poll(&pfd, 1, kSendTimeoutMs) <= 0) return -2;
    }
    return 0;
}

KX_API int socket_block_send(kx_socket_handle* handle, uint8_t* bytes, int len) {
    if (!bytes || len < 1) return -1;
    size_t sent = 0;
    return kx::send_counted(handle, bytes, static_cast<size_t>(len), &sent);
}

KX_API int socket_receive(kx_socket_handle* handle, uint8_t* bytes, int len) {
    if (!bytes || len <= 0) return -1;
    ssize_t n = recv(kx::socket_fd(handle), bytes, static_cast<size_t>(len), 0);
    if (n < 0) return -2;
    if (kx::log_enabled(LOG_LEVEL_DEBUG)) {  // the buffer need not be terminated
        auto* text = reinterpret_cast<const char*>(bytes);
        kx_log_debug("buf:is %.*s\n", static_cast<int>(strnlen(text, static_cast<size_t>(len))), text);
    }
    return static_cast<int>(n);
}

KX_API int socket_blocking_recive(kx_socket_handle* handle, uint8_t* bytes, int len) {
    ssize_t n = recv(kx::socket_fd(handle), bytes, static_cast<size_t>(len), MSG_DONTWAIT);
    if (n > 0) return static_cast<int>(n);
    return n == 0 ? -1 : -2;
}

KX_API int socket_close(kx_socket_handle* handle) {
    if (handle) close(kx::socket_fd(handle));
    return 0;
}

KX_API int kx_socket_handle_destroy(kx_socket_handle* handle) {
    if (!handle) return 0;
    if (kx::socket_fd(handle) > 0) handle->close(handle);
    free(handle);
    return 0;
}

}  // extern "C"

namespace kx {

int send_counted(kx_socket_handle* handle, const uint8_t* bytes, size_t len, size_t* sent) {
    *sent = 0;
    int retries = 0;
    while (*sent < len) {
        ssize_t n = send(socket_fd(handle), bytes + *sent, len - *sent, kSendFlags);
        if (n >= 0) {
            // Keep writing the rest of a partial send so a request is never cut.
            *sent += static_cast<size_t>(n);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return -2;
        if (++retries > kMaxSendRetries) return -2;
        fputs("Send would block, retrying later...\n", stdout);
        usleep(1000);
    }
    return 0;
}

}  // namespace kx
