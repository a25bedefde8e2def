// The TCP receive side: framing, the per-connection reply queues and the
// waits that take replies from them (or, in single mode, from the socket).
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_core.h"
#include "log.h"
#include "socket.h"

extern "C" {
KX_API int min_time = 100000;
KX_API int min_index = -1;
KX_API RECV_FRAME recv_data;

KX_API FILE* F_SaveDragTeach = nullptr;
KX_API int drag_teach_count = 0;
KX_API int drag_teach_total_num = 0;
KX_API int drag_teach_save_start = 0;
KX_API int drag_teach_save_state = 0;
KX_API int drag_teach_save_complete = 0;
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kTrajectoryEvent = "current_trajectory_state";
constexpr const char* kProgramEvent = "program_run_finish";
constexpr int kStaleFrames = 50;       // a frame unread for more than this many later frames is overwritten
constexpr int kSingleSaveIdle = 1000;  // single mode: 2 ms polls of silence that end a drag-teach save
constexpr size_t kSingleSaveLine = 2048;
constexpr int kPollSliceMs = 2;

template <class T>
T load(const T& value) { return __atomic_load_n(&value, __ATOMIC_ACQUIRE); }
template <class T>
void store(T& target, T value) { __atomic_store_n(&target, value, __ATOMIC_RELEASE); }

const char* frame_key(const cJSON* root) {
    const char* key = MIO_JSON_GetObjectItemStr(root, "command");
    return key ? key : MIO_JSON_GetObjectItemStr(root, "state");
}

// Threaded modes: a point of a drag-teach save goes to the save file.
void save_point_frame(const cJSON* root, const uint8_t* str, int len) {
    const cJSON* point = MIO_JSON_GetObjectItem(root, "point");
    if (!point) return;
    if (!cJSON_IsArray(point)) {
        kx_log_error("Error: 'point' is not an array. %s\n", std::string(reinterpret_cast<const char*>(str), len).c_str());
        store(drag_teach_save_state, 1);
        return;
    }
    store(drag_teach_save_start, 1);
    if (FILE* file = load(F_SaveDragTeach)) {
        fwrite(str, 1, static_cast<size_t>(len), file);
        fwrite("\r\n", 1, 2, file);
        fflush(file);
    }
    int count = __atomic_add_fetch(&drag_teach_count, 1, __ATOMIC_ACQ_REL);
    int total = load(drag_teach_total_num);
    kx_log_debug("drag_teach_count:  %d  drag_teach_total_num: %d\n", count, total);
    if (count != 0 && count == total) store(drag_teach_save_complete, 1);
}

// Single mode: a point line is written unchanged, completion comes from silence.
void save_point_line_single(const kx_handle_t* handle, const char* frame, size_t total) {
    store(drag_teach_save_start, 1);
    FILE* file = load(F_SaveDragTeach);
    if (!file) {
        store(drag_teach_save_state, 1);
        return;
    }
    size_t n = std::min(total, kSingleSaveLine);
    store(drag_teach_save_state, 0);
    fwrite(frame, 1, n, file);
    kx_log_debug("drag_save len %d robot_handle: %d drag_save:%s\n", static_cast<int>(n), kx::handle_id(handle),
                 std::string(frame, n).c_str());
    fflush(file);
}

void count_idle_poll() {
    if (!load(drag_teach_save_start)) return;
    if (__atomic_add_fetch(&drag_teach_count, 1, __ATOMIC_ACQ_REL) > kSingleSaveIdle)
        store(drag_teach_save_complete, 1);
}

void set_key(kx_socket_fifo& slot, const char* key) {
    memset(slot.command, 0, sizeof slot.command);
    strncpy(slot.command, key, sizeof slot.command - 1);
}

// Picks the slot for a new frame, with the process-wide eviction mark.
int choose_slot(kx_socket_fifo_handle* fifo) {
    for (int i = 0; i < KX_FIFO_SLOTS; ++i) {
        if (fifo->fifo[i].time < static_cast<uint64_t>(min_time)) {
            min_time = static_cast<int>(fifo->fifo[i].time);
            min_index = i;
        }
    }
    for (int i = 0; i < KX_FIFO_SLOTS; ++i) {
        if (i == KX_FIFO_SLOTS - 1 && min_index >= 0 && min_index < KX_FIFO_SLOTS)
            memset(&fifo->fifo[min_index], 0, sizeof(kx_socket_fifo));
        const kx_socket_fifo& slot = fifo->fifo[i];
        if (slot.is_used != 1 || slot.time + kStaleFrames < fifo->current_time) return i;
    }
    return -1;
}

enum class Take { Found, Missed, Discarded };

// One scan of a queue under the queue lock: lowest slot index wins.
Take take_locked(kx_socket_fifo_handle* fifo, const char* command, uint8_t* out, int out_len, int* length) {
    for (auto& slot : fifo->fifo) {
        if (slot.is_used != 1) continue;
        int flag = load(event_listener.flag);
        if ((flag == 1 && strcmp(slot.command, kTrajectoryEvent) == 0) ||
            (flag == 2 && strcmp(slot.command, kProgramEvent) == 0)) {
            store(event_listener.flag, 0);
            memset(&slot, 0, sizeof slot);
            return Take::Discarded;
        }
        if (command && strcmp(slot.command, command) == 0) {
            size_t n = strnlen(reinterpret_cast<const char*>(slot.str_json), sizeof slot.str_json);
            n = std::min(n, static_cast<size_t>(std::max(out_len - 1, 0)));
            if (out && n > 0) {
                memcpy(out, slot.str_json, n);
                out[n] = 0;
            }
            *length = slot.recevie_len;
            memset(&slot, 0, sizeof slot);
            return Take::Found;
        }
    }
    return Take::Missed;
}

int wait_queue(kx_handle_t* handle, const char* command, uint8_t* buf, int buf_len, int polls) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(polls * kPollSliceMs);
    std::unique_lock lock(kx::fifo_mutex());
    bool expired = false;
    for (;;) {
        int length = -1;
        Take take = take_locked(handle->fifo_handle, command, buf, buf_len, &length);
        if (take == Take::Found) return length;
        if (take == Take::Discarded) continue;
        if (expired || kx::stopping()) return -1;
        expired = kx::fifo_cv().wait_until(lock, deadline) == std::cv_status::timeout;
    }
}

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

// ---- receive thread ----------------------------------------------------------

void deliver(kx::Conn& conn, char* frame, size_t len, ssize_t received) {
    if (kx::log_enabled(LOG_LEVEL_DEBUG))
        kx_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", static_cast<int>(received),
                     kx::handle_id(conn.record), frame);
    add_str_to_fifo(conn.record, reinterpret_cast<uint8_t*>(frame), static_cast<int>(len));
}

void peer_closed(kx::Conn& conn) {
    char* frame;
    size_t len;
    if (conn.framer.take_unterminated(frame, len)) deliver(conn, frame, len, static_cast<ssize_t>(len));
    kx_log_error("服务器已关闭!\n");
    kx::set_socket_fd(conn.record->socket_handle, -1);
    conn.closed = true;
}

// Reads everything waiting on one connection and queues each complete frame.
void drain(kx::Conn& conn, char* chunk, size_t size) {
    for (;;) {
        ssize_t n = recv(conn.fd, chunk, size, MSG_DONTWAIT);
        if (n > 0) {
            conn.framer.append(chunk, static_cast<size_t>(n));
            char* frame;
            size_t len;
            while (conn.framer.next(frame, len)) deliver(conn, frame, len, n);
            if (static_cast<size_t>(n) < size) break;  // poll is level-triggered: more wakes it again
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

void run_receiver() {
    std::vector<char> chunk(KX_RECV_FRAME_LEN);
    std::vector<std::shared_ptr<kx::Conn>> conns;
    std::vector<struct pollfd> fds;
    while (!kx::stopping()) {
        conns = kx::active_conns();
        fds.assign(1, pollfd{kx::receiver_wake_fd(), POLLIN, 0});
        for (auto& conn : conns) fds.push_back(pollfd{conn->fd, POLLIN, 0});
        if (!kx::wait_readable(fds, kx::drain_receiver_wake)) continue;
        for (size_t i = 0; i < conns.size(); ++i) {
            kx::Conn& conn = *conns[i];
            if (fds[i + 1].revents && conn.active && !conn.closed) drain(conn, chunk.data(), chunk.size());
        }
    }
}

}  // namespace

namespace kx {

std::mutex& fifo_mutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::condition_variable& fifo_cv() {
    static auto* cv = new std::condition_variable;
    return *cv;
}

void* run_thread(const char* name, void (*body)()) {
    try {
        body();
    } catch (...) {
        kx_log_error("[%s] receive thread stopped: out of memory\n", name);
    }
    return nullptr;
}

bool wait_readable(std::vector<struct pollfd>& fds, void (*drain_wake)()) {
    if (poll(fds.data(), fds.size(), -1) < 0) {
        if (errno != EINTR) sleep_cp(1);  // never spin on a persistent error
        return false;
    }
    if (fds[0].revents) drain_wake();
    return true;
}

}  // namespace kx

extern "C" {

KX_API void* thread_socket_receive(void*) { return kx::run_thread("thread_socket_receive", run_receiver); }

KX_API void add_str_to_fifo(kx_handle_t* handle, uint8_t* str, int str_len) {
    if (!handle || !handle->fifo_handle || !str || str_len <= 0) return;
    kx_socket_fifo_handle* fifo = handle->fifo_handle;
    cJSON* root = cJSON_ParseWithLength(reinterpret_cast<const char*>(str), static_cast<size_t>(str_len));
    std::unique_lock lock(kx::fifo_mutex());
    fifo->current_time++;
    const uint64_t stamp = fifo->current_time;
    int index = choose_slot(fifo);
    if (index < 0 || !root) {
        lock.unlock();
        cJSON_Delete(root);
        return;
    }
    kx_socket_fifo& slot = fifo->fifo[index];
    const char* key = frame_key(root);
    if (!key) {
        lock.unlock();
        save_point_frame(root, str, str_len);
        cJSON_Delete(root);
        return;
    }
    set_key(slot, key);
    lock.unlock();

    // The callback runs without the queue lock: it may itself issue commands.
    if (strcmp(key, kTrajectoryEvent) == 0 || strcmp(key, kProgramEvent) == 0) kx::dispatch_event(handle, root, key);
    if (strcmp(key, "conduct_project") == 0) {
        cJSON_Delete(root);
        return;
    }

    lock.lock();
    set_key(slot, key);
    size_t n = std::min(static_cast<size_t>(str_len), sizeof slot.str_json);
    memcpy(slot.str_json, str, n);
    if (kx::log_enabled(LOG_LEVEL_DEBUG))
        kx_log_debug("fifo str_json %s----handle->fifo_handle->fifo->id %d\n",
                     kx::bounded(slot.str_json, sizeof slot.str_json).c_str(), static_cast<int>(slot.id));
    slot.time = stamp;
    slot.recevie_len = static_cast<int>(n);
    slot.is_used = 1;
    lock.unlock();
    cJSON_Delete(root);
    kx::fifo_cv().notify_all();
}

KX_API int get_str_from_fifo(kx_socket_fifo_handle* handle, const char* command, uint8_t* str, int str_len) {
    if (!handle) return -1;
    std::lock_guard lock(kx::fifo_mutex());
    int length = -1;
    return take_locked(handle, command, str, str_len, &length) == Take::Found ? length : -1;
}

KX_API int handle_revice_data(const char* caller_function_name, kx_handle_t* handle, const char* command,
                              uint8_t* buf, int buf_len, int timeout) {
    int polls = timeout / 2;
    if (!handle || !command || polls <= 0) return -1;
    try {
        switch (g_mode) {
            case KX_DUAL_MODE_E:
            case KX_TRIPLE_MODE_E:
                return handle->fifo_handle ? wait_queue(handle, command, buf, buf_len, polls) : -1;
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
