#include "kx_driver/trajectory.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kx_driver {
namespace {

constexpr double kMaxDuration = 3600;  // s: every step is checked before the goal is accepted

bool finite(const std::vector<double>& v) {
    return std::all_of(v.begin(), v.end(), [](double x) { return std::isfinite(x); });
}

std::string fmt(const char* f, const std::string& name, double a, double b) {
    char buf[200];
    std::snprintf(buf, sizeof buf, f, name.c_str(), a, b);
    return buf;
}

TrajectoryCheck fail(TrajectoryError e, std::string message) { return {e, std::move(message)}; }

// Slope-averaged velocity at an interior point, zero where the motion turns.
double blend(double q0, double q1, double q2, double t0, double t1, double t2) {
    const double s1 = (q1 - q0) / (t1 - t0), s2 = (q2 - q1) / (t2 - t1);
    if (s1 * s2 <= 0) return 0;
    return (q2 - q0) / (t2 - t0);
}

}  // namespace

void Trajectory::sample(double t, std::vector<double>& pos, std::vector<double>& vel) const {
    pos.clear();
    vel.clear();
    if (points.empty()) return;
    const size_t n = points.front().position.size();
    if (t <= 0 || points.size() == 1) {
        pos = points.front().position;
        vel.assign(n, 0.0);
        return;
    }
    if (t >= duration()) {
        pos = points.back().position;
        vel = points.back().velocity.empty() ? std::vector<double>(n, 0.0) : points.back().velocity;
        return;
    }
    // The first point at or after t (binary search: goals may have many points).
    const auto after = std::lower_bound(points.begin() + 1, points.end() - 1, t,
                                        [](const TrajectoryPoint& p, double time) { return p.time < time; });
    const size_t k = static_cast<size_t>(after - points.begin());
    const TrajectoryPoint& a = points[k - 1];
    const TrajectoryPoint& b = points[k];
    const double h = b.time - a.time, s = (t - a.time) / h;
    const double h00 = 2 * s * s * s - 3 * s * s + 1, h10 = s * s * s - 2 * s * s + s, h01 = -2 * s * s * s + 3 * s * s,
                 h11 = s * s * s - s * s;
    pos.resize(n);
    vel.resize(n);
    for (size_t j = 0; j < n; ++j) {
        const double va = a.velocity.empty() ? 0 : a.velocity[j], vb = b.velocity.empty() ? 0 : b.velocity[j];
        const double p0 = a.position[j], p1 = b.position[j];
        pos[j] = h00 * p0 + h10 * h * va + h01 * p1 + h11 * h * vb;
        vel[j] = ((6 * s * s - 6 * s) * p0 + (3 * s * s - 4 * s + 1) * h * va + (-6 * s * s + 6 * s) * p1 +
                  (3 * s * s - 2 * s) * h * vb) /
                 h;
    }
}

bool within_limits(const JointLimits& limits, const std::vector<double>& from, const std::vector<double>& to,
                   double dt, std::string* why) {
    const size_t n = limits.names.size();
    if (to.size() != n || !finite(to)) {
        if (why) *why = "expected " + std::to_string(n) + " finite joint values";
        return false;
    }
    constexpr double kSlack = 1e-6;
    for (size_t j = 0; j < n; ++j) {
        if (to[j] < limits.min_pos[j] - kSlack || to[j] > limits.max_pos[j] + kSlack) {
            if (why) *why = fmt("%s target %.4f rad is beyond its limits", limits.names[j], to[j], 0) +
                            fmt(" [%s%.4f, %.4f] rad", "", limits.min_pos[j], limits.max_pos[j]);
            return false;
        }
        if (j < from.size() && std::fabs(to[j] - from[j]) > limits.max_speed[j] * dt * (1 + 1e-3) + kSlack) {
            if (why)
                *why = fmt("%s would need %.3f rad/s, above its limit of %.3f rad/s", limits.names[j],
                           std::fabs(to[j] - from[j]) / std::max(dt, 1e-9), limits.max_speed[j]);
            return false;
        }
    }
    return true;
}

TrajectoryCheck prepare_trajectory(const std::vector<std::string>& goal_names,
                                   const std::vector<TrajectoryPoint>& goal_points, const JointLimits& limits,
                                   const std::vector<double>& current, double period, Trajectory& out) {
    out.points.clear();
    const size_t n = limits.names.size();
    if (goal_names.size() != n)
        return fail(TrajectoryError::kInvalidJoints, "the goal names " + std::to_string(goal_names.size()) +
                                                         " joints, the arm has " + std::to_string(n));
    std::vector<size_t> index(n);  // goal column -> arm joint
    std::vector<bool> seen(n, false);
    for (size_t c = 0; c < n; ++c) {
        const auto it = std::find(limits.names.begin(), limits.names.end(), goal_names[c]);
        if (it == limits.names.end())
            return fail(TrajectoryError::kInvalidJoints, "unknown joint '" + goal_names[c] + "'");
        index[c] = static_cast<size_t>(it - limits.names.begin());
        if (seen[index[c]]) return fail(TrajectoryError::kInvalidJoints, "joint '" + goal_names[c] + "' given twice");
        seen[index[c]] = true;
    }
    if (goal_points.empty()) return fail(TrajectoryError::kInvalidGoal, "the trajectory has no point");
    if (current.size() != n) return fail(TrajectoryError::kInvalidGoal, "the arm's current joints are not known");

    out.points.push_back({0.0, current, std::vector<double>(n, 0.0)});
    double last = 0;
    for (size_t k = 0; k < goal_points.size(); ++k) {
        const TrajectoryPoint& g = goal_points[k];
        if (g.position.size() != n || !finite(g.position) || (!g.velocity.empty() && g.velocity.size() != n) ||
            !finite(g.velocity) || !std::isfinite(g.time))
            return fail(TrajectoryError::kInvalidGoal,
                        "point " + std::to_string(k) + " needs " + std::to_string(n) + " finite positions");
        TrajectoryPoint p{g.time, std::vector<double>(n), {}};
        for (size_t c = 0; c < n; ++c) p.position[index[c]] = g.position[c];
        if (!g.velocity.empty()) {
            p.velocity.resize(n);
            for (size_t c = 0; c < n; ++c) p.velocity[index[c]] = g.velocity[c];
        }
        std::string why;
        if (!within_limits(limits, {}, p.position, 0, &why))
            return fail(TrajectoryError::kInvalidGoal, "point " + std::to_string(k) + ": " + why);
        if (p.time <= last) {
            // A first point at time 0 only restates where the arm is.
            if (k == 0 && p.time <= 0 && within_limits(limits, current, p.position, 0.01, nullptr)) continue;
            return fail(TrajectoryError::kInvalidGoal, "point " + std::to_string(k) +
                                                           (k == 0 ? " at time 0 is not where the arm is"
                                                                   : " does not come after the one before"));
        }
        last = p.time;
        out.points.push_back(std::move(p));
    }
    if (out.duration() > kMaxDuration)
        return fail(TrajectoryError::kInvalidGoal, "the trajectory lasts longer than an hour");
    // Fill the velocities the goal left out.
    auto& pts = out.points;
    for (size_t k = 1; k < pts.size(); ++k) {
        if (!pts[k].velocity.empty()) continue;
        pts[k].velocity.assign(n, 0.0);
        if (k + 1 == pts.size()) continue;
        for (size_t j = 0; j < n; ++j)
            pts[k].velocity[j] = blend(pts[k - 1].position[j], pts[k].position[j], pts[k + 1].position[j],
                                       pts[k - 1].time, pts[k].time, pts[k + 1].time);
    }
    // Check the path as it will be streamed: limits and speed at every step.
    std::vector<double> prev = current, pos, vel;
    const double T = out.duration();
    for (double t = period;; t += period) {
        const double ts = std::min(t, T);
        out.sample(ts, pos, vel);
        std::string why;
        if (!within_limits(limits, prev, pos, period, &why)) {
            char at[48];
            std::snprintf(at, sizeof at, "at %.3f s: ", ts);
            return fail(TrajectoryError::kInvalidGoal, at + why);
        }
        prev = pos;
        if (ts >= T) break;
    }
    return {};
}

}  // namespace kx_driver

namespace kx_driver {

double StreamClock::period(double now) const {
    if (!active(now)) return kDefault;
    const double mean = (now - times_.front()) / static_cast<double>(times_.size());
    return std::clamp(std::max(mean, now - times_.back()), kMin, kMax);
}

double StreamClock::wait_for(double now, double needed) const {
    if (!active(now)) return needed <= kDefault ? 0 : -1;
    if (needed > kMax) return -1;
    // Both the mean gap and the time since the last target grow with the wait.
    const double by_mean = needed * static_cast<double>(times_.size()) - (now - times_.front());
    const double wait = std::max(0.0, std::min(by_mean, needed - (now - times_.back())));
    return now + wait - times_.back() > kRestart ? -1 : wait;
}

void StreamClock::sent(double now) {
    if (!active(now)) {
        times_.clear();
        for (size_t k = kWindow - 1; k > 0; --k) times_.push_back(now - static_cast<double>(k) * kDefault);
    }
    times_.push_back(now);
    if (times_.size() > kWindow) times_.pop_front();
}

double travel_time(const JointLimits& limits, const std::vector<double>& from, const std::vector<double>& to) {
    double t = 0;
    for (size_t j = 0; j < limits.max_speed.size() && j < from.size() && j < to.size(); ++j)
        t = std::max(t, limits.max_speed[j] > 0 ? std::fabs(to[j] - from[j]) / limits.max_speed[j] : HUGE_VAL);
    return t;
}

}  // namespace kx_driver
