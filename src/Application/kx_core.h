/* Internal glue between the lifecycle, the receive side, the codec and the
 * callback dispatcher. */
#ifndef KX_APPLICATION_KX_CORE_H
#define KX_APPLICATION_KX_CORE_H

#include <atomic>
#include <cstdlib>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <cstring>
#include <string>
#include <vector>

#include <cJSON.h>
#include <poll.h>

#include "framer.h"
#include "kx_interface_global.h"
#include "log.h"

namespace kx {

/* Locks, in the order they are taken (a thread holding one may take only
 * those below it; none is held across a wait for the network except as noted):
 *   1. rwlock (kx_rdlock_lock / kx_wrlock_lock): the connection table and its
 *      face gHandleList; held only for a moment to find, publish or remove a
 *      connection, and nothing is awaited under it, so its read side may also
 *      be taken under 2 (an upload's announcement finds its connection again).
 *   2. Conn::writer: one writer per connection; held for one request's send,
 *      or a program upload from its announcement to its last chunk (that one
 *      waits for the announcement's reply while holding it).
 *   3. QueueSync::mutex: a connection's reply queue and its reading role;
 *      released before reading the socket or sleeping.
 *   4. Conn::rx_mutex (single mode: the framer of callers sharing a socket).
 *   5. udp::registry_mutex: the realtime port registry (the UDP thread holds
 *      it while it reads and decodes datagrams).
 *   6. the callback dispatcher's mutex, the shutdown mutex, the orphan queue's
 *      mutex: leaves, nothing is taken under them.
 * m_hMutex (kx_mutex_lock) is offered to applications; the library never takes it.
 * Callbacks run on the dispatch thread holding none of these. */

/* The reply queue of one connection: its lock, the signal of a stored frame,
 * the discard marker of the connection's accepted non-blocking move, and who
 * reads its socket right now. */
struct QueueSync {
    std::mutex mutex;
    std::condition_variable cv;
    int discard = 0;      /* 1: drop the next trajectory event, 2: the next program event */
    bool reading = false; /* one thread at a time reads and frames the socket */
};

/* Per-connection state that the public record has no room for. Owns the
 * record: destroying the last reference closes the socket and frees the
 * record, its reply queue and its socket record. */
struct Conn {
    explicit Conn(kx_handle_t* record) : record(record) {}
    ~Conn();
    Conn(const Conn&) = delete;
    Conn& operator=(const Conn&) = delete;

    kx_handle_t* const record;
    int fd = -1;                      /* descriptor, closed on release */
    std::atomic<bool> active{false};  /* published: watched by the receive thread */
    std::atomic<bool> closed{false};  /* the peer closed; nothing more will arrive */
    std::atomic<int> users{0};        /* calls using the connection right now */
    std::mutex rx_mutex;              /* single mode: callers waiting on one socket share the framer */
    /* One writer at a time: a request, or an upload from its announcement to
     * its last chunk, leaves whole. Recursive so that an upload holding it can
     * send its announcement through the ordinary round trip. */
    std::recursive_mutex writer;
    bool cut = false;                 /* (writer) a request was cut short: the next write starts a new line */
    Framer framer;                    /* partial frame between reads (held by the reader) */
    QueueSync sync;
    int udp_ports[5] = {};            /* realtime ports this connection added (registry lock) */
    int udp_port_count = 0;
};

/* ---- the connection table ------------------------------------------------ */

/* The connection of a record, or null. */
std::shared_ptr<Conn> conn_of(const kx_handle_t* record);
std::shared_ptr<Conn> conn_by_fd(int fd);
std::shared_ptr<Conn> conn_of_fifo(const kx_socket_fifo_handle* fifo);

/* A call's hold on a connection: taken under the table's read lock, kept
 * without it; a delete waits until every hold is released. */
class ConnUse {
public:
    explicit ConnUse(kx_robot_handle* handle);
    ~ConnUse();
    ConnUse(const ConnUse&) = delete;
    ConnUse& operator=(const ConnUse&) = delete;
    explicit operator bool() const { return conn_ != nullptr; }
    Conn& conn() const { return *conn_; }
    kx_handle_t* record() const { return conn_->record; }

private:
    std::shared_ptr<Conn> conn_;
};

/* Records that the handle's connection added `port` to the realtime port
 * registry, so that releasing the connection releases the port. */
void note_udp_port(kx_robot_handle* handle, int port);

/* ---- reply queues ---------------------------------------------------------- */

/* The queue lock of records that have no connection. */
QueueSync& orphan_sync();

/* Marks the connection's next trajectory event as not to be taken by a wait
 * (and writes the listener's flag). */
void mark_discard(kx_robot_handle* handle);

/* Stores one frame in the record's queue, dispatching events. */
void store_frame(QueueSync& sync, kx_handle_t* record, const uint8_t* str, int len);

/* Sends a request (when given) and waits for the reply named `command` on the
 * caller's thread, reading the connection itself when nobody else does.
 * Returns the reply length (> 0), 0 (no reply expected; paused `timeout`
 * ms), -1 (unknown handle), kSendFailed, or -2 (no reply in time). */
inline constexpr int kSendFailed = -100;
/* kx_pack_lock_set: the round trip with its result codes and, when `report`,
 * its "send error" / "revice error" log lines. */
int send_and_wait(const char* caller, kx_robot_handle* handle, const JsonValue* values, size_t count,
                  const char* command, uint8_t* buf, int buf_len, int timeout, bool report);
/* One request as it goes on the wire: the rows printed unformatted and
 * "\r\n" appended (len counts the "\r\n", not the terminating zero). */
struct RequestLine {
    RequestLine() = default;
    RequestLine(const RequestLine&) = delete;
    RequestLine& operator=(const RequestLine&) = delete;
    ~RequestLine() { std::free(text); }
    const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(text); }
    char* text = nullptr;
    size_t len = 0;
};
/* Frees the nested members of a request table that will not be encoded. */
void release_trees(const JsonValue* values, size_t count);
/* Builds the line of a request table, consuming its nested members: 0, or
 * -1 (no rows, or not printable). */
int encode_request(const JsonValue* values, size_t count, RequestLine& line);
/* Writes one request line whole, under the connection's writer lock: 0, or
 * -2 when it could not be written (a cut line is ended before the next). */
int send_request(Conn& conn, const uint8_t* bytes, size_t len);
/* The same for a caller that holds the writer lock already. */
int write_request(Conn& conn, const uint8_t* bytes, size_t len);
int round_trip(const char* caller, kx_robot_handle* handle, const JsonValue* values, size_t count,
               const char* command, uint8_t* buf, int buf_len, int timeout);

/* ---- receive threads and shutdown ------------------------------------------ */

/* Shutdown: should_exit, read and written atomically. */
bool stopping();
/* Sleeps ms milliseconds unless the library shuts down first. */
void pause_ms(int ms);
/* Readable from a shutdown until the next start. */
int stop_fd();
/* Wakes every sleeper and waiter for a shutdown. */
void wake_all_for_stop();

/* The receive thread's watch list. */
void watch(Conn& conn);
void unwatch(Conn& conn);

/* Runs a receive thread's body; nothing it throws leaves the thread. */
void* run_thread(const char* name, void (*body)());

/* ---- callbacks ----------------------------------------------------------------- */

/* Decodes a stored event frame and hands it to the dispatcher. */
void dispatch_event(const kx_handle_t* record, const cJSON* root, const char* key);
/* A decoded realtime state for the realtime callback. */
void dispatch_state(const kx_realtime_arm_joint_state_t& state);
/* The dispatch thread: callbacks run there in arrival order. */
bool start_dispatcher();
void stop_dispatcher();
unsigned long long dispatch_drops();

/* The handle id read atomically (a failed synchronisation rewrites it). */
inline int handle_id(const kx_handle_t* record) {
    return __atomic_load_n(&record->robot_handle.id, __ATOMIC_ACQUIRE);
}
inline void set_handle_id(kx_robot_handle* handle, int id) { __atomic_store_n(&handle->id, id, __ATOMIC_RELEASE); }

/* The length of a possibly unterminated field, for a "%.*s" log argument. */
inline int field_len(const void* data, size_t max_len) {
    return static_cast<int>(strnlen(static_cast<const char*>(data), max_len));
}

/* Runs the body of an exported function: whatever it throws (an allocation
 * failure, say) ends as `failure` after a log line naming `fn`, never as an
 * exception crossing the C interface. */
template <class R, class Body>
R guarded(const char* fn, R failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        kx_log_error("[%s] out of memory\n", fn);
    } catch (...) {
        kx_log_error("[%s] internal error\n", fn);
    }
    return failure;
}

}  // namespace kx

#endif /* KX_APPLICATION_KX_CORE_H */
