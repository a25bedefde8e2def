// Controller events pushed on the command connection, and the arm event callback.
#include <pthread.h>
#include <string.h>
#include <time.h>

#include <condition_variable>
#include <mutex>
#include <vector>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_core.h"
#include "kx_reply.h"
#include "kx_interface.h"
#include "log.h"

extern "C" {
KX_API kx_event_listener_t event_listener = {nullptr, 0};
KX_API kx_event_push_data_t event_data;
}

namespace {

// Event and realtime callbacks run on one dispatch thread, in arrival order,
// so that a callback may itself call the library (its replies are read by
// other threads) and a slow one holds up no reading. What does not fit in
// the queue is dropped and counted.
constexpr size_t kQueueCapacity = 1024;
// How long a shutdown waits for a callback that is still running.
constexpr long kJoinGraceMs = 500;

struct Item {
    bool is_event;
    kx_event_push_data_t event;
    kx_realtime_arm_joint_state_t state;
};

struct Dispatcher {
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<Item> ring = std::vector<Item>(kQueueCapacity);
    size_t head = 0, size = 0;
    bool running = false;
    bool stop = false;
    uintptr_t generation = 0; /* a thread left running by a shutdown from a callback ends on its own */
    unsigned long long drops = 0;
    pthread_t thread{};
};

Dispatcher& dispatcher() {
    static auto* d = new Dispatcher;  // never destroyed: threads may outlive statics
    return *d;
}

void deliver_event(const kx_event_push_data_t& event) {
    event_data = event;
    kx_event_callback_ptr callback = __atomic_load_n(&event_listener.event_callback, __ATOMIC_ACQUIRE);
    if (callback) callback(event);
}

void deliver_state(const kx_realtime_arm_joint_state_t& state) {
    kx_realtime_arm_state_callback_ptr callback = __atomic_load_n(&kx_arm_state_callback, __ATOMIC_ACQUIRE);
    if (!callback) return;
    kx_log_debug("kx_arm_state_callback kx_arm_state_callback kx_arm_state_callback\n");
    callback(state);
}

// Queues an item, or runs it at once when no dispatch thread runs.
template <class Fill>
void post(Fill fill) {
    Dispatcher& d = dispatcher();
    std::unique_lock lock(d.mutex);
    if (!d.running) {
        lock.unlock();
        Item item;
        fill(item);
        if (item.is_event)
            deliver_event(item.event);
        else
            deliver_state(item.state);
        return;
    }
    if (d.size == d.ring.size()) {
        unsigned long long drops = ++d.drops;
        lock.unlock();
        if ((drops & (drops - 1)) == 0)  // 1, 2, 4, 8, ...: counted, not flooding the log
            kx_log_error("[dispatch] callback queue full, %llu callbacks dropped\n", drops);
        return;
    }
    fill(d.ring[(d.head + d.size) % d.ring.size()]);
    ++d.size;
    lock.unlock();
    d.cv.notify_one();
}

void* run_dispatcher(void* arg) {
    const auto mine = reinterpret_cast<uintptr_t>(arg);
    Dispatcher& d = dispatcher();
    Item item;
    std::unique_lock lock(d.mutex);
    for (;;) {
        d.cv.wait(lock, [&] { return d.stop || d.generation != mine || d.size > 0; });
        if (d.stop || d.generation != mine) return nullptr;
        item = d.ring[d.head];
        d.head = (d.head + 1) % d.ring.size();
        --d.size;
        lock.unlock();
        try {
            if (item.is_event)
                deliver_event(item.event);
            else
                deliver_state(item.state);
        } catch (...) {
        }
        lock.lock();
    }
}

}  // namespace

void kx::dispatch_event(const kx_handle_t* record, const cJSON* root, const char* key) {
    kx_event_push_data_t event = {};
    event.handle_id = handle_id(record);
    if (strcmp(key, "current_trajectory_state") == 0) {
        event.event_type = KX_CURRENT_TRAJECTORY_STATE_E;
        event.device = MIO_JSON_GetObjectItemInt(root, "device");
        // A missing or non-boolean member reads -1, which counts as reached.
        // A missing or non-boolean member reads as true (the getter's -1): kept on purpose.
        event.trajectory_state = MIO_JSON_GetObjectItemBool(root, "trajectory_state") != 0;
        event.trajectory_connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
        event.program_id = 0;
    } else if (strcmp(key, "program_run_finish") == 0) {
        event.event_type = KX_PROGRAM_RUN_FINISH_E;
        event.program_id = MIO_JSON_GetObjectItemInt(root, "finish_id");
    } else {
        return;
    }
    post([&](Item& item) {
        item.is_event = true;
        item.event = event;
    });
}

void kx::dispatch_state(const kx_realtime_arm_joint_state_t& state) {
    if (!__atomic_load_n(&kx_arm_state_callback, __ATOMIC_ACQUIRE)) return;
    post([&](Item& item) {
        item.is_event = false;
        item.state = state;
    });
}

bool kx::start_dispatcher() {
    Dispatcher& d = dispatcher();
    std::lock_guard lock(d.mutex);
    if (d.running) return true;
    d.stop = false;
    d.head = d.size = 0;  // what a shutdown left undelivered is dropped
    ++d.generation;
    if (pthread_create(&d.thread, nullptr, run_dispatcher, reinterpret_cast<void*>(d.generation)) != 0) return false;
    d.running = true;
    return true;
}

void kx::stop_dispatcher() {
    Dispatcher& d = dispatcher();
    {
        std::lock_guard lock(d.mutex);
        if (!d.running) return;
        d.stop = true;
        d.running = false;
    }
    d.cv.notify_all();
    if (pthread_equal(d.thread, pthread_self())) {
        pthread_detach(d.thread);  // shut down from a callback: the thread ends when it returns
        return;
    }
    // A callback that does not return in time is left to finish on its own;
    // the thread then ends without touching anything a later start made.
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += kJoinGraceMs * 1000000L;
    until.tv_sec += until.tv_nsec / 1000000000L;
    until.tv_nsec %= 1000000000L;
    if (pthread_timedjoin_np(d.thread, nullptr, &until) != 0) pthread_detach(d.thread);
}

unsigned long long kx::dispatch_drops() {
    std::lock_guard lock(dispatcher().mutex);
    return dispatcher().drops;
}

extern "C" {

KX_API void kx_get_arm_event_call_back(kx_event_callback_ptr event_callback) {
    if (event_callback) __atomic_store_n(&event_listener.event_callback, event_callback, __ATOMIC_RELEASE);
}

KX_API int parse_kx_move_command(const char* json_str, int* device, int* trajectory_connect) {
    const kx::ReplyView reply(json_str);
    const cJSON* root = reply.root();
    if (!root) {
        kx_log_error("Set command parse err\n");
        return kx::kUndecodable;
    }
    int state = MIO_JSON_GetObjectItemBool(root, "trajectory_state");
    int dev = MIO_JSON_GetObjectItemInt(root, "device");
    int connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
    if ((state == 1 || state == 0) && dev >= 0 && connect >= 0) {
        if (device) *device = dev;
        if (trajectory_connect) *trajectory_connect = connect;
        if (state == 1) {
            kx_log_debug("Move command result is: true, current Device: %d, trajectory_connect: %d\n", dev, connect);
            return 1;
        }
        kx_log_error("Move command result is: false, current Device: %d, trajectory_connect: %d\n", dev, connect);
        return 0;
    }
    kx_log_error("Move command parse err\n");
    return kx::kUndecodable;
}

}  // extern "C"
