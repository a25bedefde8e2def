// The TCP receive side: framing, the per-connection reply queues and the
// waits that take replies from them. One thread at a time reads a
// connection: the receive thread (events, replies nobody waits for) or a
// caller waiting for a reply there, which frames its own reply and so needs
// no second thread to wake it. In single mode the waiting call reads alone.
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
#include <chrono>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_core.h"
#include "log.h"
#include "socket.h"

extern "C" {
/* One eviction mark for every queue, which only ever falls: the interface's
 * own behaviour, kept on purpose (a per-queue mark would pick other slots). */
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
        kx_log_error("Error: 'point' is not an array. %.*s\n", len, reinterpret_cast<const char*>(str));
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
    kx_log_debug("drag_save len %d robot_handle: %d drag_save:%.*s\n", static_cast<int>(n), kx::handle_id(handle),
                 static_cast<int>(n), frame);
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

// Picks the slot for a new frame, with the process-wide eviction mark (shared
// by every queue, so read and written atomically).
int choose_slot(kx_socket_fifo_handle* fifo) {
    for (int i = 0; i < KX_FIFO_SLOTS; ++i) {
        if (fifo->fifo[i].time < static_cast<uint64_t>(load(min_time))) {
            store(min_time, static_cast<int>(fifo->fifo[i].time));
            store(min_index, i);
        }
    }
    for (int i = 0; i < KX_FIFO_SLOTS; ++i) {
        int mark = load(min_index);
        if (i == KX_FIFO_SLOTS - 1 && mark >= 0 && mark < KX_FIFO_SLOTS)
            memset(&fifo->fifo[mark], 0, sizeof(kx_socket_fifo));
        const kx_socket_fifo& slot = fifo->fifo[i];
        if (slot.is_used != 1 || slot.time + kStaleFrames < fifo->current_time) return i;
    }
    return -1;
}

enum class Take { Found, Missed, Discarded };

// One scan of a queue under its lock: lowest slot index wins. The discard
// marker is the connection's own; a record without a connection follows the
// listener's flag.
Take take_locked(kx::QueueSync& sync, kx_socket_fifo_handle* fifo, const char* command, uint8_t* out, int out_len,
                 int* length) {
    const bool orphan = &sync == &kx::orphan_sync();
    for (auto& slot : fifo->fifo) {
        if (slot.is_used != 1) continue;
        int flag = orphan ? load(event_listener.flag) : sync.discard;
        if ((flag == 1 && strcmp(slot.command, kTrajectoryEvent) == 0) ||
            (flag == 2 && strcmp(slot.command, kProgramEvent) == 0)) {
            sync.discard = 0;
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

using Deadline = Clock::time_point;

Deadline deadline_after(int polls) { return Clock::now() + std::chrono::milliseconds(polls * kPollSliceMs); }

// A record without a connection: wait for someone else to store the frame.
int wait_orphan(kx_handle_t* handle, const char* command, uint8_t* buf, int buf_len, Deadline deadline) {
    kx::QueueSync& sync = kx::orphan_sync();
    std::unique_lock lock(sync.mutex);
    for (;;) {
        int length = -1;
        Take take = take_locked(sync, handle->fifo_handle, command, buf, buf_len, &length);
        if (take == Take::Found) return length;
        if (take == Take::Discarded) continue;
        if (Clock::now() >= deadline || kx::stopping()) return -1;
        sync.cv.wait_until(lock, deadline);
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

// ---- reading a connection -----------------------------------------------------
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

// Waits for the frame keyed `command` on a connection, reading the socket
// itself whenever no other thread does.
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

// The frame's key, its slot, and the event it carries, stored under the queue lock.
void store_locked(kx::QueueSync& sync, kx_handle_t* handle, const char* key, const uint8_t* str, int str_len,
                  int index, uint64_t stamp) {
    kx_socket_fifo& slot = handle->fifo_handle->fifo[index];
    set_key(slot, key);
    if (strcmp(key, "conduct_project") == 0) return;  // never queued
    size_t n = std::min(static_cast<size_t>(str_len), sizeof slot.str_json);
    memcpy(slot.str_json, str, n);
    if (kx::log_enabled(LOG_LEVEL_DEBUG))
        kx_log_debug("fifo str_json %.*s----handle->fifo_handle->fifo->id %d\n",
                     kx::field_len(slot.str_json, sizeof slot.str_json), reinterpret_cast<const char*>(slot.str_json),
                     static_cast<int>(slot.id));
    slot.time = stamp;
    slot.recevie_len = static_cast<int>(n);
    slot.is_used = 1;
}

}  // namespace

namespace kx {

QueueSync& orphan_sync() {
    static auto* sync = new QueueSync;  // never destroyed: threads may outlive statics
    return *sync;
}

void mark_discard(kx_robot_handle* handle) {
    __atomic_store_n(&event_listener.flag, 1, __ATOMIC_SEQ_CST);
    ConnUse use(handle);
    if (!use) return;
    std::lock_guard lock(use.conn().sync.mutex);
    use.conn().sync.discard = 1;
}

void store_frame(QueueSync& sync, kx_handle_t* handle, const uint8_t* str, int str_len) {
    kx_socket_fifo_handle* fifo = handle->fifo_handle;
    cJSON* root = cJSON_ParseWithLength(reinterpret_cast<const char*>(str), static_cast<size_t>(str_len));
    const char* key = root ? frame_key(root) : nullptr;
    int index;
    {
        std::lock_guard lock(sync.mutex);
        fifo->current_time++;
        index = choose_slot(fifo);
        if (index >= 0 && key) store_locked(sync, handle, key, str, str_len, index, fifo->current_time);
    }
    if (index >= 0 && key) sync.cv.notify_all();
    if (root && !key && index >= 0) save_point_frame(root, str, str_len);  // a drag-teach point
    if (key && (strcmp(key, kTrajectoryEvent) == 0 || strcmp(key, kProgramEvent) == 0))
        dispatch_event(handle, root, key);  // to the callback, even when the queue had no room
    cJSON_Delete(root);
}

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
    if (values && send_request(conn, line.bytes(), line.len) != 0) {
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

KX_API void add_str_to_fifo(kx_handle_t* handle, uint8_t* str, int str_len) {
    if (!handle || !handle->fifo_handle || !str || str_len <= 0) return;
    try {
        auto conn = kx::conn_of(handle);
        kx::store_frame(conn ? conn->sync : kx::orphan_sync(), handle, str, str_len);
    } catch (...) {
    }
}

KX_API int get_str_from_fifo(kx_socket_fifo_handle* handle, const char* command, uint8_t* str, int str_len) {
    if (!handle) return -1;
    auto conn = kx::conn_of_fifo(handle);
    kx::QueueSync& sync = conn ? conn->sync : kx::orphan_sync();
    std::lock_guard lock(sync.mutex);
    int length = -1;
    return take_locked(sync, handle, command, str, str_len, &length) == Take::Found ? length : -1;
}

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
