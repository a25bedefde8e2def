// Library start-up and tear-down, the connection table and its locks.
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <vector>

#include "kx_core.h"
#include "kx_result.h"
#include "kx_interface.h"
#include "log.h"
#include "socket.h"
#include "udp.h"

extern "C" {
KX_API kx_handle_t* gHandleList[5] = {};
KX_API kx_thread_mode_e g_mode = KX_TRIPLE_MODE_E;
KX_API volatile bool should_exit = false;
KX_API pthread_t thread_id;
KX_API pthread_t thread_udp_id;
KX_API kx_udp_handle* gUdpHandle = nullptr;
KX_API pthread_mutex_t m_hMutex = PTHREAD_MUTEX_INITIALIZER;
KX_API pthread_rwlock_t rwlock = PTHREAD_RWLOCK_INITIALIZER;
KX_API int m_nOutTime = 500;
KX_API int m_nOutTime_max = 1000;
}

namespace {

constexpr int kSlots = 5;

// The table's read lock for a scope.
struct ReadLock {
    ReadLock() { kx_rdlock_lock(); }
    ~ReadLock() { kx_rdlock_unlock(); }
    ReadLock(const ReadLock&) = delete;
    ReadLock& operator=(const ReadLock&) = delete;
};

// The bodies of kx_init and kx_create_robot_arm, run guarded.
int init(kx_thread_mode_e mode);
kx_robot_handle* create(const char* ip, int port);

bool g_rx_started = false;
bool g_udp_started = false;
bool g_dispatch_started = false;

// Guarded by the table's write lock: slots a create has reserved while it
// connects and synchronises, outside the lock.
bool g_reserved[kSlots] = {};

// The connection table, guarded by `rwlock` like gHandleList, its face:
// gHandleList[i] is table()[i]->record whenever either is set. Never
// destroyed: the receive threads may still run while statics unwind.
std::array<std::shared_ptr<kx::Conn>, kSlots>& table() {
    static auto* conns = new std::array<std::shared_ptr<kx::Conn>, kSlots>;
    return *conns;
}
std::mutex& stop_mutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}
std::condition_variable& stop_cv() {
    static auto* cv = new std::condition_variable;
    return *cv;
}

int find_slot(const kx_robot_handle* handle) {
    for (int i = 0; i < kSlots; ++i)
        if (gHandleList[i] && &gHandleList[i]->robot_handle == handle) return i;
    return -1;
}

void free_record(kx_handle_t* record) {
    if (!record) return;
    kx_socket_handle* sock = record->socket_handle;
    if (sock && kx::socket_fd(sock) > 0) sock->close(sock);
    free(sock);
    free(record->fifo_handle);
    free(record);
}

// Takes a slot out of the table (write lock held); what it held is retired
// afterwards, without the lock.
struct Taken {
    kx_handle_t* record = nullptr;
    std::shared_ptr<kx::Conn> conn;
};
Taken take_slot(int slot) {
    Taken taken{gHandleList[slot], nullptr};
    gHandleList[slot] = nullptr;
    taken.conn = std::move(table()[slot]);
    return taken;
}

// Waits until no call uses the connection, stops watching it, releases its
// realtime ports, and lets it go (the receive thread may hold it a moment longer).
void retire(Taken taken) {
    if (!taken.conn) {
        free_record(taken.record);
        return;
    }
    kx::Conn& conn = *taken.conn;
    for (int n; (n = conn.users.load()) != 0;) conn.users.wait(n);
    kx::unwatch(conn);
    std::lock_guard lock(kx::udp::registry_mutex());
    for (int i = 0; i < conn.udp_port_count; ++i)
        if (gUdpHandle) gUdpHandle->udp_delete_port(gUdpHandle, conn.udp_ports[i]);
    conn.udp_port_count = 0;
}

// Stops and joins the threads that were started (and only those).
void stop_threads() {
    {
        std::lock_guard lock(stop_mutex());
        __atomic_store_n(&should_exit, true, __ATOMIC_RELEASE);
    }
    kx::wake_all_for_stop();
    kx::udp::wake();
    if (g_rx_started) pthread_join(thread_id, nullptr);
    if (g_udp_started) pthread_join(thread_udp_id, nullptr);
    if (g_dispatch_started) kx::stop_dispatcher();
    g_rx_started = g_udp_started = g_dispatch_started = false;
}

void stop_udp_registry() {
    if (!gUdpHandle) return;
    for (auto& entry : gUdpHandle->udp_list) kx_udp_close(entry.udp_id);
    free(gUdpHandle);
    gUdpHandle = nullptr;
}

// Closes every bound realtime port that is left.
void close_udp_ports() {
    if (!gUdpHandle) return;
    std::lock_guard lock(kx::udp::registry_mutex());
    for (auto& entry : gUdpHandle->udp_list) {
        kx_udp_close(entry.udp_id);
        entry = kx_udp_info{};
    }
}

// Empties the table and retires everything in it, failed records included.
void release_all() {
    Taken taken[kSlots];
    kx_wrlock_lock();
    for (int i = 0; i < kSlots; ++i)
        if (gHandleList[i]) taken[i] = take_slot(i);
    kx_wrlock_unlock();
    for (auto& t : taken) retire(std::move(t));
}

}  // namespace

// ---- internal glue ---------------------------------------------------------

namespace kx {

Conn::~Conn() {
    kx_socket_handle* sock = record->socket_handle;
    if (sock && socket_fd(sock) > 0)
        sock->close(sock);
    else if (fd > 0)
        ::close(fd);  // the peer closed and the record forgot its descriptor
    free(sock);
    free(record->fifo_handle);
    free(record);
}

std::shared_ptr<Conn> conn_of(const kx_handle_t* record) {
    if (!record) return nullptr;
    ReadLock lock;
    for (auto& conn : table())
        if (conn && conn->record == record) return conn;
    return nullptr;
}

std::shared_ptr<Conn> conn_by_fd(int fd) {
    ReadLock lock;
    for (auto& conn : table())
        if (conn && conn->fd == fd) return conn;
    return nullptr;
}

std::shared_ptr<Conn> conn_of_fifo(const kx_socket_fifo_handle* fifo) {
    ReadLock lock;
    for (auto& conn : table())
        if (conn && conn->record->fifo_handle == fifo) return conn;
    return nullptr;
}

ConnUse::ConnUse(kx_robot_handle* handle) {
    kx_rdlock_lock();
    if (kx_handle_t* record = kx_get_kx_handle_by_robot_handle(handle)) {
        for (auto& conn : table()) {
            if (conn && conn->record == record) {
                conn->users.fetch_add(1);
                conn_ = conn;
                break;
            }
        }
    }
    kx_rdlock_unlock();
}

ConnUse::~ConnUse() {
    if (!conn_) return;
    if (conn_->users.fetch_sub(1) == 1) conn_->users.notify_all();
}

void note_udp_port(kx_robot_handle* handle, int port) {
    ConnUse use(handle);
    if (!use) return;
    std::lock_guard lock(udp::registry_mutex());
    Conn& conn = use.conn();
    if (conn.udp_port_count < static_cast<int>(std::size(conn.udp_ports)))
        conn.udp_ports[conn.udp_port_count++] = port;
}

bool stopping() { return __atomic_load_n(&should_exit, __ATOMIC_ACQUIRE); }

void pause_ms(int ms) {
    if (ms <= 0) return;
    std::unique_lock lock(stop_mutex());
    stop_cv().wait_for(lock, std::chrono::milliseconds(ms), [] { return stopping(); });
}

int stop_fd() {
    static int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return fd;
}

void wake_all_for_stop() {
    uint64_t one = 1;
    if (write(stop_fd(), &one, sizeof one) < 0) { /* already readable */ }
    stop_cv().notify_all();
    auto wake = [](QueueSync& sync) {
        { std::lock_guard lock(sync.mutex); }
        sync.cv.notify_all();
    };
    wake(orphan_sync());
    ReadLock lock;
    for (auto& conn : table())
        if (conn) wake(conn->sync);
}


}  // namespace kx

// ---- exported --------------------------------------------------------------

extern "C" {

KX_API int kx_mutex_lock(void) { return pthread_mutex_lock(&m_hMutex); }
KX_API int kx_mutex_unlock(void) { return pthread_mutex_unlock(&m_hMutex); }
KX_API int kx_rwlock_init(void) { return pthread_rwlock_init(&rwlock, nullptr); }
KX_API int kx_rdlock_lock(void) { return pthread_rwlock_rdlock(&rwlock); }
KX_API int kx_wrlock_lock(void) { return pthread_rwlock_wrlock(&rwlock); }
KX_API int kx_rdlock_unlock(void) { return pthread_rwlock_unlock(&rwlock); }
KX_API int kx_wrlock_unlock(void) { return pthread_rwlock_unlock(&rwlock); }

KX_API void sleep_cp(int ms) {
    if (ms > 0) usleep(static_cast<useconds_t>(ms) * 1000);
}

KX_API kx_handle_t* kx_get_kx_handle_by_robot_handle(kx_robot_handle* handle) {
    int slot = find_slot(handle);
    return slot < 0 ? nullptr : gHandleList[slot];
}

KX_API kx_handle_t* kx_get_kx_handle_by_fifo_handle(kx_socket_fifo_handle* handle) {
    for (auto* record : gHandleList)
        if (record && record->fifo_handle == handle) return record;
    return nullptr;
}

KX_API int kx_init(kx_thread_mode_e mode) {
    return kx::guarded("kx_init", -1, [&] { return init(mode); });
}

KX_API kx_robot_handle* kx_create_robot_arm(const char* ip, int port) {
    return kx::guarded("kx_create_robot_arm", static_cast<kx_robot_handle*>(nullptr), [&] { return create(ip, port); });
}

}  // extern "C"

namespace {

int init(kx_thread_mode_e mode) {
    if (g_rx_started || g_udp_started || g_dispatch_started) stop_threads();  // a second start without a shutdown
    kx_rwlock_init();
    g_mode = mode;
    release_all();
    __atomic_store_n(&should_exit, false, __ATOMIC_RELEASE);
    uint64_t pending;
    if (read(kx::stop_fd(), &pending, sizeof pending) < 0) { /* was not signalled */ }
    if (mode == KX_DUAL_MODE_E || mode == KX_TRIPLE_MODE_E) {
        if (mode == KX_TRIPLE_MODE_E) {
            stop_udp_registry();
            gUdpHandle = kx_udp_init();
        }
        g_dispatch_started = kx::start_dispatcher();  // without it callbacks run where events arrive
        int err = pthread_create(&thread_id, nullptr, thread_socket_receive, nullptr);
        if (err != 0) {
            kx_log_error("Error creating thread thread_id: %d\n", err);
            return -1;
        }
        g_rx_started = true;
        if (mode == KX_TRIPLE_MODE_E) {
            err = pthread_create(&thread_udp_id, nullptr, thread_udp_receive, nullptr);
            if (err != 0) {
                kx_log_error("Error creating thread thread_udp_id: %d\n", err);
                return -1;
            }
            g_udp_started = true;
        }
    }
    return 0;
}

}  // namespace

extern "C" {

KX_API int kx_destory(void) {
    stop_threads();
    release_all();
    close_udp_ports();
    return 0;
}

KX_API kx_handle_t* kx_handle_init(const char* ip, int port) {
    auto* record = static_cast<kx_handle_t*>(calloc(1, sizeof(kx_handle_t)));
    auto* fifo = static_cast<kx_socket_fifo_handle*>(calloc(1, sizeof(kx_socket_fifo_handle)));
    kx_socket_handle* sock = kx_socket_handle_init(ip, port);
    if (!record || !fifo || !sock) {
        free(record);
        free(fifo);
        free(sock);
        return nullptr;
    }
    record->fifo_handle = fifo;
    record->socket_handle = sock;
    sock->init(sock);
    return record;
}

// The slot is reserved under the table's write lock, the connect runs
// without it, and the record is published under it; synchronisation then
// runs like any other caller's commands. A failed create keeps its slot, with
// id -1, until it is deleted: the caller tells failure by the id, and a
// record whose synchronisation failed (an arm model this library does not
// know, say) stays usable for what it could not read.
}  // extern "C"

namespace {

kx_robot_handle* create(const char* ip, int port) {
    kx_wrlock_lock();
    int slot = 0;
    while (slot < kSlots && (gHandleList[slot] || g_reserved[slot])) ++slot;
    if (slot == kSlots) {
        kx_wrlock_unlock();
        kx_log_error("[kx_create_robot_arm] robot num is max");
        return nullptr;
    }
    g_reserved[slot] = true;
    kx_wrlock_unlock();

    auto unreserve = [slot] {
        kx_wrlock_lock();
        g_reserved[slot] = false;
        kx_wrlock_unlock();
    };
    kx_handle_t* record = kx_handle_init(ip, port);
    if (!record) {
        // Bad address or port, or out of memory: there is no record to keep.
        unreserve();
        kx_log_error("[kx_create_robot_arm] socket connect err!\n");
        return nullptr;
    }
    std::shared_ptr<kx::Conn> conn;
    try {
        conn = std::make_shared<kx::Conn>(record);
    } catch (const std::bad_alloc&) {
        free_record(record);
        unreserve();
        kx_log_error("[kx_create_robot_arm] out of memory\n");
        return nullptr;
    }
    const int fd = kx::socket_fd(record->socket_handle);
    const bool connected = fd > 0;
    conn->fd = fd;
    if (connected) {
        record->id = static_cast<uint8_t>(slot + 1);
        kx::set_handle_id(&record->robot_handle, slot + 1);
        strncpy(record->socket_handle->ip, ip, 16);
    } else {
        kx::set_handle_id(&record->robot_handle, -1);
    }

    kx_wrlock_lock();
    g_reserved[slot] = false;
    gHandleList[slot] = record;
    table()[slot] = conn;
    kx_wrlock_unlock();
    if (!connected) {
        kx_log_error("[kx_create_robot_arm] socket connect err!\n");
        return &record->robot_handle;
    }
    kx::watch(*conn);

    int result = kx_sync_robot_info(&record->robot_handle);
    kx_algo_arm_state_set(&record->robot_handle);
    if (result != 0) {
        kx_log_error("[kx_create_robot_arm] get robot info err!\n");
        kx::set_handle_id(&record->robot_handle, -1);
    }
    return &record->robot_handle;
}

}  // namespace

extern "C" {

KX_API int kx_delete_robot_arm(kx_robot_handle* handle) {
    kx_wrlock_lock();
    int slot = find_slot(handle);
    if (slot < 0) {
        kx_wrlock_unlock();
        kx_log_error("not find handle\n");
        return kx::kFailed;
    }
    Taken taken = take_slot(slot);
    kx_wrlock_unlock();
    retire(std::move(taken));
    return 0;
}

KX_API int kx_get_robot_info(kx_robot_handle* handle, kx_robot_info_t* out) {
    kx_rdlock_lock();
    kx_handle_t* record = kx_get_kx_handle_by_robot_handle(handle);
    if (!record || !out) {
        kx_rdlock_unlock();
        kx_log_error("[%s] handle is NULL!\n", "kx_get_robot_info");
        return kx::kFailed;
    }
    out->arm_dof = record->arm_dof;
    out->arm_model = record->arm_model;
    out->force_type = record->force_type;
    kx_rdlock_unlock();
    return out->arm_dof == 0 ? -2 : 0;
}

KX_API int kx_get_arm_dof(kx_robot_handle* handle, int* dof) {
    kx_rdlock_lock();
    kx_handle_t* record = kx_get_kx_handle_by_robot_handle(handle);
    int arm_dof = record ? record->arm_dof : 0;
    kx_rdlock_unlock();
    if (!record || (arm_dof != 6 && arm_dof != 7)) return kx::kFailed;
    if (dof) *dof = arm_dof;
    return 0;
}

KX_API int kx_sync_robot_info(kx_robot_handle* handle) {
    kx_arm_software_version_t software = {};
    kx_realtime_push_config_t push = {};
    kx_frame_t frame = {};
    float x = 0, y = 0, z = 0;
    float joints[7] = {};
    kx_dh_t dh = {};
    int result;
    if ((result = kx_get_arm_software_info(handle, &software)) != 0) return result;
    if ((result = kx_get_realtime_push(handle, &push)) != 0) return result;
    if ((result = kx_get_current_work_frame(handle, &frame)) != 0) return result;
    if ((result = kx_get_current_tool_frame(handle, &frame)) != 0) return result;
    if ((result = kx_get_install_pose(handle, &x, &y, &z)) != 0) return result;
    if ((result = kx_get_joint_min_pos(handle, joints)) != 0) return result;
    if ((result = kx_get_joint_max_pos(handle, joints)) != 0) return result;
    if ((result = kx_get_joint_max_acc(handle, joints)) != 0) return result;
    if ((result = kx_get_joint_max_speed(handle, joints)) != 0) return result;
    return kx_get_DH_data(handle, &dh);
}

}  // extern "C"
