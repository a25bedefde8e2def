// The reply queue of each connection: storing a frame (with its key, its
// slot and the event it carries) and taking the frame a caller waits for.
#include <string.h>

#include <algorithm>

#include "MIO_JSON.h"
#include "kx_receive.h"
#include "kx_reply.h"
#include "log.h"

extern "C" {
/* One eviction mark for every queue, which only ever falls: the interface's
 * own behaviour, kept on purpose (a per-queue mark would pick other slots). */
KX_API int min_time = 100000;
KX_API int min_index = -1;
}

namespace {

constexpr const char* kTrajectoryEvent = "current_trajectory_state";
constexpr const char* kProgramEvent = "program_run_finish";
constexpr int kStaleFrames = 50;  // a frame unread for more than this many later frames is overwritten

using kx::load;
using kx::store;

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

const char* frame_key(const cJSON* root) {
    const char* key = MIO_JSON_GetObjectItemStr(root, "command");
    return key ? key : MIO_JSON_GetObjectItemStr(root, "state");
}

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
            const size_t whole = strnlen(reinterpret_cast<const char*>(slot.str_json), sizeof slot.str_json);
            size_t n = std::min(whole, static_cast<size_t>(std::max(out_len - 1, 0)));
            if (out && n > 0) {
                memcpy(out, slot.str_json, n);
                out[n] = 0;
                if (n == whole && whole == static_cast<size_t>(slot.recevie_len))
                    taken_whole(fifo, static_cast<int>(&slot - fifo->fifo), slot.time, reinterpret_cast<char*>(out), n);
            }
            *length = slot.recevie_len;
            memset(&slot, 0, sizeof slot);
            return Take::Found;
        }
    }
    return Take::Missed;
}

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
    uint64_t stamp;
    {
        std::lock_guard lock(sync.mutex);
        stamp = ++fifo->current_time;
        index = choose_slot(fifo);
        if (index >= 0 && key) store_locked(sync, handle, key, str, str_len, index, stamp);
    }
    if (index >= 0 && key) sync.cv.notify_all();
    if (root && !key && index >= 0) save_point_frame(root, str, str_len);  // a drag-teach point
    if (key && (strcmp(key, kTrajectoryEvent) == 0 || strcmp(key, kProgramEvent) == 0))
        dispatch_event(handle, root, key);  // to the callback, even when the queue had no room
    // Stays parsed on this thread: the caller reading its own reply takes it next.
    if (index >= 0 && key && strnlen(reinterpret_cast<const char*>(str), static_cast<size_t>(str_len)) ==
                                 static_cast<size_t>(str_len) &&
        static_cast<size_t>(str_len) <= sizeof fifo->fifo[0].str_json)
        keep_stored_tree(fifo, index, stamp, root);
    else
        cJSON_Delete(root);
}
}  // namespace kx

extern "C" {

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
    return take_locked(sync, handle, command, str, str_len, &length) == kx::Take::Found ? length : -1;
}
}  // extern "C"
