/* Internal glue between the lifecycle, the receive side and the codec. */
#ifndef KX_APPLICATION_KX_CORE_H
#define KX_APPLICATION_KX_CORE_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include <cJSON.h>
#include <poll.h>

#include "framer.h"
#include "kx_interface_global.h"

namespace kx {

/* Per-connection state that the public record has no room for. Owns the
 * record: destroying the last reference closes the socket and frees the
 * record, its reply queue and its socket record. The receive thread holds a
 * reference while it reads, so a delete never frees what it is using. */
struct Conn {
    explicit Conn(kx_handle_t* record) : record(record) {}
    ~Conn();
    Conn(const Conn&) = delete;
    Conn& operator=(const Conn&) = delete;

    kx_handle_t* const record;
    int fd = -1;                      /* descriptor watched by the receive thread, closed on release */
    std::atomic<bool> active{false};  /* in the receive thread's poll set */
    std::atomic<bool> closed{false};  /* the peer closed; nothing more will arrive */
    std::mutex rx_mutex;              /* single mode: callers waiting on one socket share the framer */
    Framer framer;                    /* partial frame between reads */
};

/* The connection table, slot for slot beside gHandleList. */
void conn_set(int slot, std::shared_ptr<Conn> conn);
std::shared_ptr<Conn> conn_of(const kx_handle_t* record);
std::vector<std::shared_ptr<Conn>> active_conns();

/* Frees a record that never got a Conn. */
void free_record(kx_handle_t* record, int extra_fd);

/* Reply queues: one lock for all of them, and waiters are woken when a frame is stored. */
std::mutex& fifo_mutex();
std::condition_variable& fifo_cv();

/* Shutdown: should_exit, read and written atomically. */
bool stopping();
/* Sleeps ms milliseconds unless the library shuts down first. */
void pause_ms(int ms);

/* Receive-thread wake-up descriptor. */
int receiver_wake_fd();
void wake_receiver();
void drain_receiver_wake();

/* Blocks until a descriptor of fds is readable; fds[0] is the thread's wake-up
 * descriptor, drained here. False when the wait failed (the caller retries). */
bool wait_readable(std::vector<struct pollfd>& fds, void (*drain_wake)());

/* Runs a receive thread's body; nothing it throws leaves the thread. */
void* run_thread(const char* name, void (*body)());

/* Fills event_data from a stored event frame and calls the callback. */
void dispatch_event(const kx_handle_t* record, const cJSON* root, const char* key);

/* The handle id read atomically (a failed synchronisation rewrites it). */
inline int handle_id(const kx_handle_t* record) {
    return __atomic_load_n(&record->robot_handle.id, __ATOMIC_ACQUIRE);
}
inline void set_handle_id(kx_robot_handle* handle, int id) { __atomic_store_n(&handle->id, id, __ATOMIC_RELEASE); }

/* Bounded, terminated copy of a possibly unterminated field. */
std::string bounded(const void* data, size_t max_len);

}  // namespace kx

#endif /* KX_APPLICATION_KX_CORE_H */
