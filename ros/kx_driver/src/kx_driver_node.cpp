// kx_driver_node: the ROS 1 face of one controller. Everything that is not
// ROS (connection, state conversion, URDF, trajectory execution) lives in
// ArmCore and its helpers; this file only maps it onto topics, services,
// the action, tf and parameters.
#include <actionlib/server/action_server.h>
#include <diagnostic_msgs/DiagnosticArray.h>
#include <geometry_msgs/PoseStamped.h>
#include <geometry_msgs/TransformStamped.h>
#include <geometry_msgs/WrenchStamped.h>
#include <kx_msgs/ArmState.h>
#include <kx_msgs/FollowJointTrajectoryAction.h>
#include <kx_msgs/Gripper.h>
#include <kx_msgs/MoveJoint.h>
#include <kx_msgs/MoveLine.h>
#include <kx_msgs/SetDigitalOutput.h>
#include <ros/ros.h>
#include <sensor_msgs/JointState.h>
#include <std_srvs/Trigger.h>
#include <tf2_ros/transform_broadcaster.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

#include "kx_driver/arm_core.h"
#include "kx_driver/urdf.h"
#include "kx_interface.h"

namespace kx_driver {
namespace {

using Server = actionlib::ActionServer<kx_msgs::FollowJointTrajectoryAction>;
using Result_ = kx_msgs::FollowJointTrajectoryResult;

template <class Response>
bool answer(Response& res, const Result& r) {
    res.success = r.ok();
    res.code = r.code;
    res.message = r.message;
    return true;
}

std::array<double, 7> to_pose7(const geometry_msgs::Pose& p) {
    return {p.position.x, p.position.y, p.position.z, p.orientation.x, p.orientation.y, p.orientation.z,
            p.orientation.w};
}

geometry_msgs::Pose to_msg(const std::array<double, 7>& p) {
    geometry_msgs::Pose m;
    m.position.x = p[0];
    m.position.y = p[1];
    m.position.z = p[2];
    m.orientation.x = p[3];
    m.orientation.y = p[4];
    m.orientation.z = p[5];
    m.orientation.w = p[6];
    return m;
}

class Ros1Driver : public ArmCore::Listener {
public:
    Ros1Driver(ros::NodeHandle nh, ros::NodeHandle pnh, ArmConfig config)
        : nh_(nh), pnh_(pnh), core_(std::move(config), *this) {
        pnh_.param<std::string>("tf_prefix", prefix_, "");
        pnh_.param<std::string>("base_frame", names_.base, "base_link");
        pnh_.param<std::string>("tool_frame", names_.tool, "tool0");
        pnh_.param("publish_tool_tf", publish_tf_, true);
        names_.prefix = prefix_;
        base_frame_ = prefix_ + names_.base;
        tool_frame_ = prefix_ + names_.tool;

        joint_pub_ = nh_.advertise<sensor_msgs::JointState>("joint_states", 50);
        pose_pub_ = nh_.advertise<geometry_msgs::PoseStamped>("tool_pose", 50);
        state_pub_ = nh_.advertise<kx_msgs::ArmState>("arm_state", 10, true);
        diag_pub_ = nh_.advertise<diagnostic_msgs::DiagnosticArray>("/diagnostics", 10);

        services_.push_back(trigger("stop", &ArmCore::stop_arm));  // also ends a goal being executed
        services_.push_back(trigger("pause", &ArmCore::pause));
        services_.push_back(trigger("resume", &ArmCore::resume));
        services_.push_back(trigger("clear_errors", &ArmCore::clear_errors));
        services_.push_back(nh_.advertiseService<kx_msgs::MoveJoint::Request, kx_msgs::MoveJoint::Response>(
            "move_joint", [this](auto& req, auto& res) {
                return answer(res, core_.move_joint(req.positions, req.speed, req.wait));
            }));
        services_.push_back(nh_.advertiseService<kx_msgs::MoveLine::Request, kx_msgs::MoveLine::Response>(
            "move_line", [this](auto& req, auto& res) {
                return answer(res, core_.move_line(to_pose7(req.pose), req.speed, req.wait));
            }));
        services_.push_back(
            nh_.advertiseService<kx_msgs::SetDigitalOutput::Request, kx_msgs::SetDigitalOutput::Response>(
                "set_digital_output", [this](auto& req, auto& res) {
                    return answer(res, core_.set_digital_output(req.channel, req.value));
                }));
        services_.push_back(nh_.advertiseService<kx_msgs::Gripper::Request, kx_msgs::Gripper::Response>(
            "gripper", [this](auto& req, auto& res) {
                return answer(res, core_.gripper(req.position, req.force, req.wait));
            }));

        joint_sub_ = nh_.subscribe("joint_command", 10, &Ros1Driver::on_joint_command, this,
                                   ros::TransportHints().tcpNoDelay());
        pose_sub_ = nh_.subscribe("pose_command", 10, &Ros1Driver::on_pose_command, this,
                                  ros::TransportHints().tcpNoDelay());

        server_ = std::make_unique<Server>(nh_, "follow_joint_trajectory",
                                           [this](Server::GoalHandle g) { on_goal(g); },
                                           [this](Server::GoalHandle g) { on_cancel(g); }, false);
        server_->start();
        diag_timer_ = nh_.createWallTimer(ros::WallDuration(1.0), [this](const ros::WallTimerEvent&) {
            publish_diagnostics();
        });
        core_.start();
    }

    ~Ros1Driver() override {
        cancel_active();
        core_.stop();
    }

    // ---- ArmCore::Listener ----
    void on_connected(const ArmModel& model) override {
        std::lock_guard lock(model_mutex_);
        std::vector<std::string> names;
        for (int i = 0; i < model.dof; ++i) names.push_back(prefix_ + "joint_" + std::to_string(i + 1));
        joint_names_ = names;
        nh_.setParam("robot_description", make_urdf(model, names_));
        if (model.force_type != KX_FORCE_TYPE_P_E && !wrench_pub_)
            wrench_pub_ = nh_.advertise<geometry_msgs::WrenchStamped>("wrench", 50);
    }

    void on_link(Link link, const std::string& why) override {
        if (link == Link::kUp)
            ROS_INFO("%s", why.c_str());
        else
            ROS_ERROR("controller %s:%d: %s; reconnecting", core_.config().ip.c_str(), core_.config().port,
                      why.c_str());
        publish_diagnostics();
        if (link == Link::kDown) publish_arm_state(nullptr);
    }

    void on_sample(const ArmSample& s) override {
        const ros::Time now = ros::Time::now();
        const int stream_error = ArmCore::streaming_error(s);
        if (streaming_error_.exchange(stream_error) != stream_error && stream_error)
            ROS_ERROR("the controller refused a streamed target (error 0x%X) and refuses every further one: "
                      "call clear_errors",
                      stream_error);
        std::vector<std::string> names;
        bool wrench = false;
        {
            std::lock_guard lock(model_mutex_);
            names = joint_names_;
            wrench = static_cast<bool>(wrench_pub_);
        }
        sensor_msgs::JointState js;
        js.header.stamp = now;
        js.name = names;
        js.position.assign(s.position.begin(), s.position.begin() + s.dof);
        js.velocity.assign(s.velocity.begin(), s.velocity.begin() + s.dof);
        joint_pub_.publish(js);

        geometry_msgs::PoseStamped ps;
        ps.header.stamp = now;
        ps.header.frame_id = base_frame_;
        ps.pose = to_msg(s.tool);
        pose_pub_.publish(ps);

        if (publish_tf_) {
            geometry_msgs::TransformStamped t;
            t.header = ps.header;
            t.child_frame_id = tool_frame_;
            t.transform.translation.x = s.tool[0];
            t.transform.translation.y = s.tool[1];
            t.transform.translation.z = s.tool[2];
            t.transform.rotation = ps.pose.orientation;
            tf_.sendTransform(t);
        }
        if (wrench && s.has_wrench) {
            geometry_msgs::WrenchStamped w;
            w.header.stamp = now;
            w.header.frame_id = tool_frame_;
            w.wrench.force.x = s.wrench[0];
            w.wrench.force.y = s.wrench[1];
            w.wrench.force.z = s.wrench[2];
            w.wrench.torque.x = s.wrench[3];
            w.wrench.torque.y = s.wrench[4];
            w.wrench.torque.z = s.wrench[5];
            wrench_pub_.publish(w);
        }
        // Arm state: on every change, else ten times a second.
        const bool changed = s.errors != last_errors_ || s.trajectory_state != last_traj_state_ ||
                             s.joint_errors != last_joint_errors_ || s.joint_enabled != last_enabled_;
        if (changed || now - last_state_pub_ >= ros::Duration(0.1)) {
            last_errors_ = s.errors;
            last_traj_state_ = s.trajectory_state;
            last_joint_errors_ = s.joint_errors;
            last_enabled_ = s.joint_enabled;
            last_state_pub_ = now;
            publish_arm_state(&s);
        }
    }

private:
    ros::ServiceServer trigger(const std::string& name, Result (ArmCore::*fn)()) {
        return nh_.advertiseService<std_srvs::Trigger::Request, std_srvs::Trigger::Response>(
            name, [this, fn](auto&, auto& res) {
                const Result r = (core_.*fn)();
                res.success = r.ok();
                res.message = r.message + " (code " + std::to_string(r.code) + ")";
                return true;
            });
    }

    void publish_arm_state(const ArmSample* s) {
        kx_msgs::ArmState m;
        m.header.stamp = ros::Time::now();
        m.connected = s != nullptr && core_.connected();
        {
            std::lock_guard lock(model_mutex_);
            m.joint_names = joint_names_;
        }
        if (s) {
            m.errors = s->errors;
            m.joint_errors.assign(s->joint_errors.begin(), s->joint_errors.begin() + s->dof);
            for (int i = 0; i < s->dof; ++i) m.joint_enabled.push_back(s->joint_enabled[i]);
            m.trajectory_state = static_cast<uint8_t>(s->trajectory_state);
        }
        m.trajectory_state_name = trajectory_state_name(m.trajectory_state);
        state_pub_.publish(m);
    }

    void publish_diagnostics() {
        const auto now = Clock::now();
        const uint64_t n = core_.samples();
        double rate = 0;
        {
            std::lock_guard lock(diag_mutex_);
            const double dt = std::chrono::duration<double>(now - rate_since_).count();
            if (dt > 0.5) {
                rate_ = (n - rate_count_) / dt;
                rate_since_ = now;
                rate_count_ = n;
            }
            rate = rate_;
        }
        const double expected = 1000.0 / core_.config().push_cycle_ms;
        diagnostic_msgs::DiagnosticStatus st;
        st.name = "kx_driver" + ros::this_node::getNamespace();
        st.hardware_id = core_.config().ip + ":" + std::to_string(core_.config().port);
        ArmSample s;
        const bool have = core_.latest(s);
        if (!core_.connected()) {
            st.level = diagnostic_msgs::DiagnosticStatus::ERROR;
            const std::string why = core_.last_failure();
            st.message = "disconnected" + (why.empty() ? std::string() : ": " + why);
        } else if (have && ArmCore::streaming_error(s)) {
            st.level = diagnostic_msgs::DiagnosticStatus::ERROR;
            char text[120];
            std::snprintf(text, sizeof text, "connected; the controller refuses streamed targets (error 0x%X): call clear_errors",
                          ArmCore::streaming_error(s));
            st.message = text;
        } else if (have && !s.errors.empty()) {
            st.level = diagnostic_msgs::DiagnosticStatus::WARN;
            st.message = "connected; the controller reports errors";
        } else if (rate < 0.9 * expected) {
            st.level = diagnostic_msgs::DiagnosticStatus::WARN;
            st.message = "connected; realtime state below its rate";
        } else {
            st.level = diagnostic_msgs::DiagnosticStatus::OK;
            st.message = "connected";
        }
        auto kv = [&](const std::string& k, const std::string& v) {
            diagnostic_msgs::KeyValue x;
            x.key = k;
            x.value = v;
            st.values.push_back(x);
        };
        kv("connected", core_.connected() ? "true" : "false");
        kv("push rate (Hz)", std::to_string(rate));
        kv("expected push rate (Hz)", std::to_string(expected));
        kv("udp port", std::to_string(core_.udp_port()));
        kv("reconnections", std::to_string(core_.reconnects()));
        kv("refused streamed targets", std::to_string(core_.refused_targets()));
        std::string errs;
        if (have)
            for (int e : s.errors) errs += (errs.empty() ? "" : " ") + std::to_string(e);
        kv("error codes", errs.empty() ? "none" : errs);
        diagnostic_msgs::DiagnosticArray a;
        a.header.stamp = ros::Time::now();
        a.status.push_back(st);
        diag_pub_.publish(a);
    }

    // ---- streamed targets ----
    // A refused target is not sent (the arm keeps the last one): it is
    // counted on /diagnostics and warned about at most once a second.

    void on_joint_command(const sensor_msgs::JointState::ConstPtr& msg) {
        std::vector<std::string> names;
        {
            std::lock_guard lock(model_mutex_);
            names = joint_names_;
        }
        std::vector<double> q(names.size());
        if (msg->name.empty()) {
            if (msg->position.size() != names.size()) {
                ROS_WARN_THROTTLE(1, "joint_command: %zu positions for %zu joints", msg->position.size(), names.size());
                return;
            }
            q = msg->position;
        } else {
            if (msg->name.size() != msg->position.size() || msg->name.size() != names.size()) {
                ROS_WARN_THROTTLE(1, "joint_command: names and positions must cover all %zu joints", names.size());
                return;
            }
            for (size_t i = 0; i < names.size(); ++i) {
                const auto it = std::find(msg->name.begin(), msg->name.end(), names[i]);
                if (it == msg->name.end()) {
                    ROS_WARN_THROTTLE(1, "joint_command: no position for %s", names[i].c_str());
                    return;
                }
                q[i] = msg->position[static_cast<size_t>(it - msg->name.begin())];
            }
        }
        const Result r = core_.stream_joints(q);
        if (!r.ok()) ROS_WARN_THROTTLE(1, "joint_command: %s", r.message.c_str());
    }

    void on_pose_command(const geometry_msgs::PoseStamped::ConstPtr& msg) {
        if (!msg->header.frame_id.empty() && msg->header.frame_id != base_frame_) {
            ROS_WARN_THROTTLE(1, "pose_command: frame '%s' is not %s", msg->header.frame_id.c_str(),
                              base_frame_.c_str());
            return;
        }
        const Result r = core_.stream_pose(to_pose7(msg->pose));
        if (!r.ok()) ROS_WARN_THROTTLE(1, "pose_command: %s", r.message.c_str());
    }

    // ---- the trajectory action ----
    void on_goal(Server::GoalHandle g) {
        Result_ result;
        auto reject = [&](int code, const std::string& why) {
            result.error_code = code;
            result.error_string = why;
            ROS_WARN("follow_joint_trajectory: goal rejected: %s", why.c_str());
            g.setRejected(result, why);
        };
        if (!core_.connected()) return reject(Result_::INVALID_GOAL, "not connected to the controller");
        ArmSample now;
        if (!core_.latest(now)) return reject(Result_::INVALID_GOAL, "no realtime state from the controller yet");
        const auto goal = g.getGoal();
        std::vector<TrajectoryPoint> points;
        for (const auto& p : goal->trajectory.points)
            points.push_back({p.time_from_start.toSec(), p.positions, p.velocities});
        const JointLimits limits = core_.limits(prefix_);
        Trajectory traj;
        const TrajectoryCheck check =
            prepare_trajectory(goal->trajectory.joint_names, points, limits,
                               std::vector<double>(now.position.begin(), now.position.begin() + now.dof),
                               core_.config().push_cycle_ms / 1000.0, traj);
        if (!check.ok())
            return reject(check.error == TrajectoryError::kInvalidJoints ? Result_::INVALID_JOINTS
                                                                          : Result_::INVALID_GOAL,
                          check.message);
        Tolerances tol;
        auto per_joint = [&](const std::vector<kx_msgs::JointTolerance>& given) {
            std::vector<double> out(limits.names.size(), 0.0);
            for (const auto& t : given)
                for (size_t j = 0; j < limits.names.size(); ++j)
                    if (t.name == limits.names[j]) out[j] = t.position;
            return out;
        };
        tol.path = per_joint(goal->path_tolerance);
        tol.goal = per_joint(goal->goal_tolerance);
        if (goal->goal_time_tolerance.toSec() > 0) tol.settle = goal->goal_time_tolerance.toSec();
        const ros::Time start = goal->trajectory.header.stamp;

        cancel_active();  // a new goal replaces the one running
        std::lock_guard lock(goal_mutex_);
        g.setAccepted();
        active_ = g;
        cancel_ = false;
        executor_ = std::thread([this, g, traj, tol, start, names = limits.names]() mutable {
            // A stamped trajectory starts at its stamp (zero: now).
            while (!cancel_ && ros::ok() && ros::Time::now() < start) ros::WallDuration(0.005).sleep();
            const Execution e = core_.execute(
                traj, tol, [this] { return cancel_.load(); },
                [&](const Progress& p) {
                    kx_msgs::FollowJointTrajectoryFeedback f;
                    f.header.stamp = ros::Time::now();
                    f.joint_names = names;
                    f.desired.positions = p.desired_position;
                    f.desired.velocities = p.desired_velocity;
                    f.desired.time_from_start = ros::Duration(p.time);
                    f.actual.positions.assign(p.actual.position.begin(), p.actual.position.begin() + p.actual.dof);
                    f.actual.velocities.assign(p.actual.velocity.begin(), p.actual.velocity.begin() + p.actual.dof);
                    f.actual.time_from_start = f.desired.time_from_start;
                    f.error.time_from_start = f.desired.time_from_start;
                    for (size_t j = 0; j < f.actual.positions.size() && j < p.desired_position.size(); ++j)
                        f.error.positions.push_back(p.desired_position[j] - f.actual.positions[j]);
                    g.publishFeedback(f);
                });
            Result_ r;
            r.error_string = e.message;
            switch (e.outcome) {
            case Outcome::kSucceeded: r.error_code = Result_::SUCCESSFUL; g.setSucceeded(r, e.message); break;
            case Outcome::kCancelled: r.error_code = Result_::SUCCESSFUL; g.setCanceled(r, e.message); break;
            case Outcome::kStopped: r.error_code = Result_::STOPPED; g.setAborted(r, e.message); break;
            case Outcome::kConnectionLost: r.error_code = Result_::CONNECTION_LOST; g.setAborted(r, e.message); break;
            case Outcome::kRefused: r.error_code = Result_::CONTROLLER_REFUSED; g.setAborted(r, e.message); break;
            case Outcome::kPathTolerance:
                r.error_code = Result_::PATH_TOLERANCE_VIOLATED;
                g.setAborted(r, e.message);
                break;
            case Outcome::kGoalTolerance:
                r.error_code = Result_::GOAL_TOLERANCE_VIOLATED;
                g.setAborted(r, e.message);
                break;
            }
            if (e.outcome != Outcome::kSucceeded) ROS_WARN("follow_joint_trajectory: %s", e.message.c_str());
        });
    }

    void on_cancel(Server::GoalHandle g) {
        std::lock_guard lock(goal_mutex_);
        if (active_ == g) cancel_ = true;
    }

    // Ends the goal being executed (its executor stops the arm) and joins the executor.
    void cancel_active() {
        std::lock_guard lock(goal_mutex_);
        cancel_ = true;
        if (executor_.joinable()) executor_.join();
    }

    ros::NodeHandle nh_, pnh_;
    std::string prefix_, base_frame_, tool_frame_;
    UrdfNames names_;
    bool publish_tf_ = true;

    ros::Publisher joint_pub_, pose_pub_, state_pub_, diag_pub_, wrench_pub_;
    std::vector<ros::ServiceServer> services_;
    ros::Subscriber joint_sub_, pose_sub_;
    tf2_ros::TransformBroadcaster tf_;
    ros::WallTimer diag_timer_;
    std::unique_ptr<Server> server_;

    std::mutex model_mutex_;  // joint names and the wrench publisher, set at each connection
    std::vector<std::string> joint_names_;

    std::mutex diag_mutex_;
    Clock::time_point rate_since_ = Clock::now();
    uint64_t rate_count_ = 0;
    double rate_ = 0;

    // Touched only on the dispatch thread.
    std::vector<int> last_errors_;
    int last_traj_state_ = -1;
    std::array<uint16_t, 7> last_joint_errors_{};
    std::array<bool, 7> last_enabled_{};
    ros::Time last_state_pub_;

    std::atomic<int> streaming_error_{0};

    std::mutex goal_mutex_;
    Server::GoalHandle active_;
    std::atomic<bool> cancel_{false};
    std::thread executor_;

    ArmCore core_;  // last: stopped first, before what its callbacks use goes away
};

}  // namespace
}  // namespace kx_driver

// The library's messages, into the node's log. While a controller is away
// every reconnection attempt fails the same way: say it once a minute.
static void library_log(const char* fmt, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, args);
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    static std::mutex m;
    static std::string last;
    static ros::WallTime last_time;
    std::lock_guard lock(m);
    const ros::WallTime now = ros::WallTime::now();
    if (line == last && now - last_time < ros::WallDuration(60)) return;
    last = line;
    last_time = now;
    ROS_WARN("libapi_c: %s", line.c_str());
}

int main(int argc, char** argv) {
    ros::init(argc, argv, "kx_driver_node");
    ros::NodeHandle nh, pnh("~");
    kx_driver::ArmConfig config;
    if (!pnh.getParam("ip", config.ip) || config.ip.empty()) {
        ROS_FATAL("kx_driver_node: the private parameter ~ip (controller address) is required");
        return 1;
    }
    pnh.param("port", config.port, 8080);
    pnh.param("udp_port", config.udp_port, 0);
    pnh.param("push_port", config.push_port, 0);
    pnh.param("push_cycle_ms", config.push_cycle_ms, 5);
    if (config.push_cycle_ms < 1) config.push_cycle_ms = 1;
    kx_set_log_call_back(library_log, LOG_LEVEL_ERROR);
    ros::AsyncSpinner spinner(4);  // a waiting move must not hold up stop
    spinner.start();
    {
        kx_driver::Ros1Driver driver(nh, pnh, config);
        ros::waitForShutdown();
    }
    return 0;
}
