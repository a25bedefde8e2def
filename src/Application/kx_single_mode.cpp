// Single mode: no receive thread; the waiting call reads and frames its own
// socket, keeps the reply it waits for, saves drag-teach points and drops
// everything else.
#include <poll.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <mutex>

#include "MIO_JSON.h"
#include "kx_receive.h"
#include "log.h"
#include "socket.h"

extern "C" {
KX_API RECV_FRAME recv_data;
}

namespace {

using kx::frame_key;
using kx::save_point_line_single;
using kx::count_idle_poll;

// Single mode: a complete frame read by the waiting call itself.
int single_mode_frame(const kx_handle_t* handle, const char* command, char* frame, size_t len, uint8_t* buf,
                      int buf_len) {
    size_t total = len + 2;  // with its "\r\n"
    if (total <= 5) return 0;
    frame[len] = '\r';
    frame[len + 1] = '\n';
    cJSON* root = cJSON_ParseWithLength(frame, len);
    if (!root) return 0;
    int result = 0;
    const char* key = frame_key(root);
    if (!key) {
        if (MIO_JSON_GetObjectItem(root, "point")) save_point_line_single(handle, frame, total);
    } else if (strcmp(key, command) == 0 && buf_len > 0) {
        memset(buf, 0, static_cast<size_t>(buf_len));
        memcpy(buf, frame, std::min(total, static_cast<size_t>(buf_len - 1)));
        kx_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", static_cast<int>(total),
                     kx::handle_id(handle), reinterpret_cast<char*>(buf));
        result = static_cast<int>(total);
    }
    cJSON_Delete(root);
    return result;
}

}  // namespace

namespace kx {

int wait_socket(kx_handle_t* handle, const char* command, uint8_t* buf, int buf_len, int polls) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(polls * kPollSliceMs);
    std::shared_ptr<kx::Conn> conn = kx::conn_of(handle);
    kx::Framer local;
    std::mutex local_mutex;
    kx::Framer& framer = conn ? conn->framer : local;
    std::mutex& framer_mutex = conn ? conn->rx_mutex : local_mutex;
    kx_socket_handle* sock = handle->socket_handle;
    bool peer_closed = false;
    static thread_local char chunk[KX_RECV_FRAME_LEN];
    for (;;) {
        {
            std::lock_guard lock(framer_mutex);
            char* frame;
            size_t len;
            while (framer.next(frame, len)) {
                int result = single_mode_frame(handle, command, frame, len, buf, buf_len);
                if (result > 0) return result;
            }
        }
        auto now = Clock::now();
        if (now >= deadline || kx::stopping()) return -1;
        auto slice = std::min<Clock::duration>(deadline - now, std::chrono::milliseconds(kPollSliceMs));
        auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(slice).count();
        struct timespec ts = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
        int fd = kx::socket_fd(sock);
        if (fd <= 0 || peer_closed) {
            nanosleep(&ts, nullptr);
            count_idle_poll();
            continue;
        }
        struct pollfd pfd = {fd, POLLIN, 0};
        if (ppoll(&pfd, 1, &ts, nullptr) <= 0) {
            count_idle_poll();
            continue;
        }
        int n = sock->block_receive(sock, reinterpret_cast<uint8_t*>(chunk), sizeof chunk);
        if (n > 0) {
            std::lock_guard lock(framer_mutex);
            framer.append(chunk, static_cast<size_t>(n));
        } else {
            peer_closed = n == -1;  // nothing more will come: wait out the rest without spinning
            count_idle_poll();
        }
    }
}

}  // namespace kx
