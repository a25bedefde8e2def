/* The receive side's internal interface, shared by its three parts: the
 * reply queue (kx_reply_queue.cpp), reading a connection in the threaded
 * modes (kx_reader.cpp) and the waiting call that reads its own socket in
 * single mode (kx_single_mode.cpp). Drag-teach points met on the way are
 * saved by drag teaching (kx_drag_teach.cpp). */
#ifndef KX_APPLICATION_KX_RECEIVE_H
#define KX_APPLICATION_KX_RECEIVE_H

#include <chrono>
#include <cstddef>
#include <cstdint>

#include <cjson/cJSON.h>

#include "kx_core.h"

namespace kx {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

inline constexpr int kPollSliceMs = 2; /* a wait of T ms is T/2 polls of this */
inline Deadline deadline_after(int polls) { return Clock::now() + std::chrono::milliseconds(polls * kPollSliceMs); }

template <class T>
T load(const T& value) { return __atomic_load_n(&value, __ATOMIC_ACQUIRE); }
template <class T>
void store(T& target, T value) { __atomic_store_n(&target, value, __ATOMIC_RELEASE); }

/* ---- reply queue ---- */
/* A frame's key: its "command" string, else its "state" string, else null. */
const char* frame_key(const cJSON* root);
enum class Take { Found, Missed, Discarded };
/* One scan of a queue for `command` (queue lock held): lowest slot wins. */
Take take_locked(QueueSync& sync, kx_socket_fifo_handle* fifo, const char* command, uint8_t* out, int out_len,
                 int* length);
/* A record without a connection: waits for someone else to store the frame. */
int wait_orphan(kx_handle_t* handle, const char* command, uint8_t* buf, int buf_len, Deadline deadline);

/* ---- threaded modes: reading a connection ---- */
/* Waits for the frame keyed `command`, reading the socket itself whenever no
 * other thread does (`reading`: the caller already holds the reading role). */
int wait_conn(Conn& conn, const char* command, uint8_t* buf, int buf_len, Deadline deadline, bool reading);

/* ---- single mode ---- */
/* The waiting call reads and frames its own socket for `polls` 2 ms polls. */
int wait_socket(kx_handle_t* handle, const char* command, uint8_t* buf, int buf_len, int polls);

/* ---- drag-teach saving (kx_drag_teach.cpp) ---- */
/* Threaded modes: a point frame goes to the save file. */
void save_point_frame(const cJSON* root, const uint8_t* str, int len);
/* Single mode: a point line is written unchanged. */
void save_point_line_single(const kx_handle_t* handle, const char* frame, size_t total);
/* Single mode: a poll that received nothing; enough of them end a save. */
void count_idle_poll();

}  // namespace kx

#endif /* KX_APPLICATION_KX_RECEIVE_H */
