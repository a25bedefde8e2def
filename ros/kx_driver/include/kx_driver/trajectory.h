// Joint trajectories as the driver executes them: checked against the arm
// before anything moves, then sampled at the streaming period.
#ifndef KX_DRIVER_TRAJECTORY_H
#define KX_DRIVER_TRAJECTORY_H

#include <deque>
#include <string>
#include <vector>

namespace kx_driver {

struct JointLimits {
    std::vector<std::string> names;  // the arm's joint names, in joint order
    std::vector<double> min_pos, max_pos, max_speed;  // rad, rad/s
};

struct TrajectoryPoint {
    double time = 0;                    // s from the start
    std::vector<double> position;       // rad, arm joint order
    std::vector<double> velocity;       // rad/s, empty when not given
};

// A trajectory in the arm's joint order, starting at the arm's current joints (time 0).
struct Trajectory {
    std::vector<TrajectoryPoint> points;
    double duration() const { return points.empty() ? 0 : points.back().time; }
    // Position and velocity at time t (clamped to [0, duration]): cubic Hermite
    // between points (an empty velocity counts as zero).
    void sample(double t, std::vector<double>& pos, std::vector<double>& vel) const;
};

enum class TrajectoryError { kNone = 0, kInvalidJoints, kInvalidGoal };

struct TrajectoryCheck {
    TrajectoryError error = TrajectoryError::kNone;
    std::string message;
    bool ok() const { return error == TrajectoryError::kNone; }
};

// Reorders the goal's points into the arm's joint order, prepends the current
// joints at time 0, fills the velocities the goal left out (from the
// neighbouring segments, zero where the motion turns and at the end) and checks: known joint names (each once, all of them),
// increasing times, every position within its limits, and no segment (or the
// first step from the current joints) faster than the joints' speed limits,
// sampled at `period` s as it will be streamed.
TrajectoryCheck prepare_trajectory(const std::vector<std::string>& goal_names,
                                   const std::vector<TrajectoryPoint>& goal_points, const JointLimits& limits,
                                   const std::vector<double>& current, double period, Trajectory& out);

// True when every joint of `to` is within its limits and reachable from `from`
// within `dt` s at the joints' speed limits; `why` says which joint is not.
bool within_limits(const JointLimits& limits, const std::vector<double>& from, const std::vector<double>& to,
                   double dt, std::string* why);

// The period of a stream of targets as the controller measures it from their
// arrival: the mean gap over the last eight targets, or the time since the
// last one when that is longer, within [1, 100] ms. A stream starts (or starts
// again after 0.5 s without a target) as if eight targets had come 20 ms
// apart. The controller refuses, and then holds an arm error until it is
// cleared, a target farther from the last than a joint travels in one such
// period (plus a 10 % margin, which the driver leaves to network jitter).
class StreamClock {
public:
    static constexpr double kDefault = 0.020, kRestart = 0.5, kMin = 0.001, kMax = 0.100;  // s
    static constexpr size_t kWindow = 8;

    double period(double now) const;
    bool active(double now) const { return !times_.empty() && now - times_.back() <= kRestart; }
    // How long from `now` until the period is at least `needed` s: 0 when it is
    // already, negative when waiting cannot make it so.
    double wait_for(double now, double needed) const;
    void sent(double now);
    void reset() { times_.clear(); }

private:
    std::deque<double> times_;
};

// Seconds the slowest joint needs from `from` to `to` at the joints' speed limits.
double travel_time(const JointLimits& limits, const std::vector<double>& from, const std::vector<double>& to);

}  // namespace kx_driver

#endif
