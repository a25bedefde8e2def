// The ROS-independent heart of the driver: one controller's connection (kept
// alive across controller restarts), its realtime state in SI units, its
// commands, and the streaming of joint trajectories. A ROS layer (ROS 1 here;
// ROS 2 would be another thin layer) only maps these onto topics, services
// and actions.
#ifndef KX_DRIVER_ARM_CORE_H
#define KX_DRIVER_ARM_CORE_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "kx_define.h"
#include "kx_driver/trajectory.h"

namespace kx_driver {

using Clock = std::chrono::steady_clock;

struct ArmConfig {
    std::string ip;            // controller address (a host name is resolved to its IPv4 address)
    int port = 8080;           // controller command port
    int udp_port = 0;          // where this process receives realtime state; 0 = a free port
    int push_port = 0;         // where the controller is told to send it; 0 = udp_port (differs only behind a relay)
    int push_cycle_ms = 5;     // realtime push period
    int max_backoff_ms = 2000; // cap of the reconnection backoff
};

// What the controller says about the arm, read at each connection.
struct ArmModel {
    int dof = 0;
    kx_robot_arm_model_e model = KX_MODEL_AVEN_E;
    kx_force_type_e force_type = KX_FORCE_TYPE_P_E;
    std::array<double, 7> min_pos{}, max_pos{};  // rad
    std::array<double, 7> max_speed{};           // rad/s
    kx_dh_t dh{};                                // as the controller reports it (m, degrees)
    std::array<double, 7> tool{0, 0, 0, 0, 0, 0, 1};  // tool frame in the flange: x y z qx qy qz qw
    std::array<double, 7> work{0, 0, 0, 0, 0, 0, 1};  // work frame in the base
};

// One realtime datagram in SI units, tool pose in the base frame.
struct ArmSample {
    Clock::time_point received;
    int dof = 0;
    std::array<double, 7> position{};  // rad
    std::array<double, 7> velocity{};  // rad/s
    bool has_velocity = false;
    std::array<double, 7> tool{};  // x y z qx qy qz qw
    bool has_wrench = false;
    std::array<double, 6> wrench{};  // Fx Fy Fz (N) Mx My Mz (N m)
    std::vector<int> errors;         // non-zero arm error codes
    std::array<uint16_t, 7> joint_errors{};
    std::array<bool, 7> joint_enabled{};
    int trajectory_state = 0;  // kx_udp_arm_current_status_e
};

// Outcome of a command: the library's result code and a sentence for humans.
struct Result {
    int code = 0;
    std::string message;
    bool refused = false;  // a streamed target the driver did not send
    bool ok() const { return code == 0; }
};

enum class Link { kDown, kUp };

// How a trajectory execution ended.
enum class Outcome { kSucceeded, kCancelled, kStopped, kConnectionLost, kRefused, kPathTolerance, kGoalTolerance };

// Per joint, rad; 0 or missing: the default (none on the path, 0.01 rad at the goal).
struct Tolerances {
    std::vector<double> path, goal;
    double settle = 1.0;  // s allowed after the last point for the joints to reach the goal
};

struct Execution {
    Outcome outcome = Outcome::kSucceeded;
    std::string message;
};

// What the executor reports while it streams (about 20 times a second).
struct Progress {
    double time = 0;  // s from the start
    std::vector<double> desired_position, desired_velocity;
    ArmSample actual;
};

// The realtime state converted to SI units. Pure: exposed for tests.
ArmSample convert_state(const kx_realtime_arm_joint_state_t& s, int dof, kx_force_type_e force_type,
                        const std::array<double, 7>& work);
// Name of a kx_udp_arm_current_status_e value.
const char* trajectory_state_name(int state);
// A sentence for a library result code.
std::string describe(int code);

class ArmCore {
public:
    struct Listener {
        virtual ~Listener() = default;
        virtual void on_connected(const ArmModel& model) = 0;          // after every (re)connection
        virtual void on_link(Link link, const std::string& why) = 0;   // up/down changes
        virtual void on_sample(const ArmSample& sample) = 0;           // library dispatch thread
    };

    ArmCore(ArmConfig config, Listener& listener);
    ~ArmCore();
    ArmCore(const ArmCore&) = delete;
    ArmCore& operator=(const ArmCore&) = delete;

    void start();  // connects in the background, reconnecting until stop()
    void stop();

    bool connected() const { return up_.load(); }
    ArmModel model() const;
    bool latest(ArmSample& out) const;  // false before the first sample
    // Waits (real time) for a sample received after `after`; false on timeout or loss.
    bool wait_sample(Clock::time_point after, std::chrono::milliseconds timeout, ArmSample& out) const;
    const ArmConfig& config() const { return config_; }
    int udp_port() const { return udp_port_; }
    uint64_t samples() const { return samples_.load(); }
    uint64_t reconnects() const { return reconnects_.load(); }
    std::string last_failure() const;

    // Commands; each returns the library's code. Joints in rad, poses in the base frame.
    Result stop_arm();  // also ends a trajectory being executed: no target of it follows the stop
    Result pause();
    Result resume();
    Result clear_errors();
    Result move_joint(const std::vector<double>& q, int speed, bool wait);
    Result move_line(const std::array<double, 7>& pose, int speed, bool wait);
    Result set_digital_output(int channel, bool value);
    Result gripper(int position, int force, bool wait);
    // Streams one joint target (rad). No target outruns a joint: each is
    // measured from the one before (from the arm's joints when a stream
    // starts) against the joints' speed limits over the stream's period as the
    // controller measures it (StreamClock), of which it uses 80 %, leaving the
    // rest to the target's way to the controller. A target that arrives a little
    // early is held until the period admits it (at most kHold); one that needs
    // longer, one beyond a limit, one while a trajectory executes or while the
    // controller holds a streaming error is refused and counted.
    Result stream_joints(const std::vector<double>& q);
    // Streams one Cartesian target (base frame): solved against the current joints
    // and checked like a joint target.
    Result stream_pose(const std::array<double, 7>& pose);
    static constexpr double kHold = 0.020;  // s
    uint64_t refused_targets() const { return refused_.load(); }
    // The streaming error the controller holds (0x500A or 0x500B, refusing
    // every streamed target until clear_errors()), or 0.
    static int streaming_error(const ArmSample& s);

    // The arm's joint names, limits and speeds, for trajectory checks.
    JointLimits limits(const std::string& prefix) const;
    // Streams `trajectory` at the push period, stopping the arm if a joint
    // strays beyond its path tolerance, then waits up to `settle` s for every
    // joint to be within its goal tolerance of the last point. `cancelled` is
    // polled every step; a cancel stops the arm. A stop_arm() from elsewhere
    // ends it too (kStopped).
    Execution execute(const Trajectory& trajectory, const Tolerances& tolerances,
                      const std::function<bool()>& cancelled, const std::function<void(const Progress&)>& progress);

    // The callback of the library's realtime push (process-wide: one per arm address).
    void on_datagram(const kx_realtime_arm_joint_state_t& state);

private:
    void supervise();
    bool connect_once(std::string& why);
    void disconnect(const std::string& why);
    bool healthy();
    template <class F>
    Result call(const char* what, F&& f);
    enum class Hold { kNo, kYes };
    // Under motion_mutex_: paces and sends one streamed target (rad).
    Result send_streamed(const std::vector<double>& q, Hold hold, const std::function<int(kx_robot_handle*)>& send);
    Result refuse(std::string why);
    void end_stream();  // under motion_mutex_: the next target is measured from the arm's joints

    const ArmConfig config_;
    Listener& listener_;
    int udp_port_ = 0;

    mutable std::shared_mutex handle_mutex_;  // shared: a command; exclusive: connect/disconnect
    kx_robot_handle* handle_ = nullptr;
    std::atomic<bool> up_{false};
    std::atomic<bool> accept_{false};  // datagrams are ours only once the push is configured

    mutable std::mutex state_mutex_;
    mutable std::condition_variable state_cv_;
    ArmModel model_;
    ArmSample latest_;
    bool have_sample_ = false;
    Clock::time_point connected_at_;
    std::string last_failure_;

    std::atomic<uint64_t> samples_{0}, reconnects_{0};
    std::mutex motion_mutex_;  // a streamed trajectory target and a stop never cross
    uint64_t stops_ = 0;       // stop requests so far, under motion_mutex_
    StreamClock stream_clock_;           // under motion_mutex_
    std::vector<double> stream_last_;    // the last target sent, under motion_mutex_; empty: none in this stream
    bool executing_ = false;             // a trajectory streams, under motion_mutex_
    std::atomic<uint64_t> refused_{0};
    std::atomic<bool> running_{false};
    std::mutex wake_mutex_;
    std::condition_variable wake_cv_;
    std::thread supervisor_;
};

}  // namespace kx_driver

#endif
