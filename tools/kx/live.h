// Live state of several arms from their realtime push and events, shared by
// `kx watch` and `kx view`.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kx.h"

namespace kx {

struct LiveEvent {
    double epoch_ms;
    std::string text;
};

struct LiveArm {
    int index = 0;  // 1-based, in command-line order
    Arm arm;
    kx_dh_t dh{};
    float min_limit[7] = {}, max_limit[7] = {};
    kx_frame_t tool{};
    kx_realtime_push_config_t saved_push{};  // given back at the end
    kx_realtime_push_config_t our_push{};    // pointing at this process
    std::chrono::steady_clock::time_point push_set_at{};
    bool push_changed = false;
    std::mutex reconnect_mutex;  // one reconnection at a time
    std::mutex handle_mutex;     // guards arm.handle while it is replaced
    std::mutex jog_mutex;        // one waited step at a time: two would compete for one end event
    kx_robot_handle* handle();
    // Guarded by Live::mutex.
    int handle_id = 0;
    kx_realtime_arm_joint_state_t rt{};
    bool have_rt = false;
    std::chrono::steady_clock::time_point rt_at{};
    unsigned long long count = 0;
    std::deque<LiveEvent> events;  // newest last
};

class Live {
public:
    Live() = default;
    ~Live();
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;

    // Connects every arm and points its realtime push at this process.
    // Prints what went wrong and returns an exit code (kOk on success).
    int open(const std::vector<std::string>& addrs, bool verbose);
    // Waits until every arm has sent a state (false after `ms`).
    bool wait_for_states(int ms);
    // Points the push of every arm whose state stopped arriving (another
    // client, or a restarted controller, changed it) at this process again;
    // at most every few seconds per arm.
    void renew_stale_push();
    // Gives every arm its previous push configuration back.
    void close();

    // Runs a command on the arm. A controller serves one command connection
    // at a time, so another client may have taken it over: when the command
    // could not be sent (-1, so nothing reached the controller), connects
    // again and sends it once more.
    int command(LiveArm& a, const std::function<int(kx_robot_handle*)>& fn);

    // The state of every arm as JSON (see tools/kx/README.md).
    cJSON* snapshot();

    std::vector<std::unique_ptr<LiveArm>> arms;
    std::mutex mutex;

private:
    int setup_push(LiveArm& a, int udp_port);
    static void on_realtime(kx_realtime_arm_joint_state_t s);
    static void on_event(kx_event_push_data_t e);
    static void add_event(LiveArm& a, const std::string& text);  // under `mutex`
    static Live* current_;  // the library's callbacks carry no user pointer
};

const char* status_name(int status);

// Frames of the arm's figure from modified DH parameters: the points of the
// link polyline and the flange pose as a 3 x 4 row-major matrix (metres).
void arm_figure(const kx_dh_t& dh, const float* joints_deg, int dof, std::vector<float>& points, float flange[12]);

}  // namespace kx
