// Singular configurations of every model with an inverse solver, the
// measure of how the solver answers there, and Cartesian paths solved step
// by step: shared by the kinematics tests and bench_kinematics.
//
// A sample is an in-limit configuration with one joint at (or, for "near",
// a little away from) its singular value, and a reference within 2 degrees
// of it on every joint: the configuration itself is then an answer within
// 2 degrees, so a good answer lies within a few degrees of the reference.
#ifndef TEST_ALGO_SINGULAR_H
#define TEST_ALGO_SINGULAR_H

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "algo_arm.h"
#include "libalgo_interface.h"
#include "robot_define.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

namespace singular {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;

// Aligned wrist axes (every model); the shoulder (wrist point on the
// cylinder the shoulder offset sweeps) and a straight elbow for the
// three-parallel-axes arms; a straight elbow for the seven-joint arms.
enum Kind { WRIST, SHOULDER, ELBOW };
inline const char* name(Kind k) { return k == WRIST ? "wrist" : k == SHOULDER ? "shoulder" : "elbow"; }

inline bool parallel_axes(int type) { return type == DUMO || type == ESKA || type == GOLT; }

inline bool applies(int type, Kind k) {
    if (k == WRIST) return true;
    if (k == SHOULDER) return parallel_axes(type);
    return parallel_axes(type) || type == BRIV || type == FIRU;
}

inline std::vector<Kind> kinds_of(int type) {
    std::vector<Kind> out;
    for (Kind k : {WRIST, SHOULDER, ELBOW})
        if (applies(type, k)) out.push_back(k);
    return out;
}

// The joint whose value makes the configuration singular.
inline int joint_of(const algo::ArmModel& m, Kind k) {
    if (k == WRIST) return m.dof == 7 ? 5 : 4;
    if (k == SHOULDER) return 1;
    return m.dof == 7 ? 3 : 2;
}

// Joint values (DH angle + whole turns) inside the limits.
inline void in_limits(const algo::ArmModel& m, int j, double theta, std::vector<double>& out) {
    for (int t = -2; t <= 2; ++t) {
        const double q = theta + 2 * kPi * t - m.offset[j];
        if (q >= m.jmin[j] && q <= m.jmax[j]) out.push_back(q);
    }
}

// Distance of the wrist point from the plane through the base axis and
// the parallel axes: zero at the shoulder singularity.
inline double shoulder_function(const algo::ArmModel& m, float* q) {
    float T[4][4];
    algo::arm_fk(m, q, T);
    const double d6 = m.d[5], t1 = q[0] + m.offset[0];
    const double px = T[0][3] - d6 * T[0][2], py = T[1][3] - d6 * T[1][2];
    return px * std::cos(t1) + py * std::sin(t1);
}

// The singular values of joint joint_of(m, k) for the other joints of q.
inline std::vector<double> singular_values(const algo::ArmModel& m, Kind k, float* q) {
    std::vector<double> out;
    const int j = joint_of(m, k);
    if (k == WRIST) {
        in_limits(m, j, 0, out);
        in_limits(m, j, kPi, out);
    } else if (k == ELBOW && m.dof == 6) {
        in_limits(m, j, 0, out);
    } else if (k == ELBOW) {
        // |wrist - shoulder|^2 = K + P cos(t4) + Q sin(t4): longest at atan2(Q, P).
        const double s3 = std::sin(m.alpha[3]), s4 = std::sin(m.alpha[4]);
        const double a3 = m.a[3], a4 = m.a[4], d3 = m.d[2], d5 = m.d[4];
        const double P = 2 * a3 * a4 - 2 * d3 * s3 * s4 * d5, Q = 2 * a3 * s4 * d5 + 2 * d3 * s3 * a4;
        in_limits(m, j, std::atan2(Q, P), out);
    } else {
        // Roots of the shoulder function in joint 2: a scan, then bisection.
        const int steps = 90;
        const float keep = q[j];
        auto f = [&](double v) {
            q[j] = static_cast<float>(v);
            return shoulder_function(m, q);
        };
        double lo = m.jmin[j], flo = f(lo);
        for (int i = 1; i <= steps; ++i) {
            const double hi = m.jmin[j] + (m.jmax[j] - m.jmin[j]) * i / steps, fhi = f(hi);
            if ((flo < 0) != (fhi < 0)) {
                double a = lo, b = hi, fa = flo;
                for (int it = 0; it < 60; ++it) {
                    const double c = 0.5 * (a + b), fc = f(c);
                    if ((fa < 0) == (fc < 0)) a = c, fa = fc;
                    else b = c;
                }
                out.push_back(0.5 * (a + b));
            }
            lo = hi, flo = fhi;
        }
        q[j] = keep;
    }
    return out;
}

struct Sample {
    float q[8] = {}, ref[8] = {};
};

// A configuration at the singularity (moved off it by up to `off` radians,
// on a logarithmic scale down to 1e-7, when off > 0) and its reference.
inline bool sample(const algo::ArmModel& m, Kind k, double off, std::mt19937& rng, Sample& s) {
    auto uni = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    const int j = joint_of(m, k);
    for (int attempt = 0; attempt < 20; ++attempt) {
        for (int i = 0; i < m.dof; ++i) s.q[i] = static_cast<float>(uni(m.jmin[i], m.jmax[i]));
        const std::vector<double> v = singular_values(m, k, s.q);
        if (v.empty()) continue;
        double q = v[std::uniform_int_distribution<size_t>(0, v.size() - 1)(rng)];
        if (off > 0) q += (uni(0, 1) < 0.5 ? -1 : 1) * std::pow(10.0, uni(-7, std::log10(off)));
        if (q < m.jmin[j] || q > m.jmax[j]) continue;
        s.q[j] = static_cast<float>(q);
        for (int i = 0; i < m.dof; ++i)
            s.ref[i] = static_cast<float>(std::clamp<double>(s.q[i] + uni(-2, 2) * kDeg, m.jmin[i], m.jmax[i]));
        return true;
    }
    return false;
}

// Whether q reaches target (single precision) inside the limits; its
// orientation as flag selects it (near pitch +-90 the Euler angles and
// the quaternion of one pose differ by the Euler conversion's 1e-3 rad).
inline bool reaches(const algo::ArmModel& m, const float* q, const Pose& target, uint8_t flag) {
    for (int i = 0; i < m.dof; ++i)
        if (!(q[i] >= m.jmin[i] && q[i] <= m.jmax[i])) return false;
    const Matrix A = pose_quat_to_transformation_matrix(forward_kinematics(q));
    const Matrix B = flag == 1 ? pose_euler_to_transformation_matrix(target) : pose_quat_to_transformation_matrix(target);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            if (!(std::fabs(A.data[r][c] - B.data[r][c]) < (c == 3 ? 1e-5 : 1e-4))) return false;
    return true;
}

struct Tally {
    int tried = 0, solved = 0, near = 0;  // near: every joint within 5 degrees of the reference
    double worst = 0;                     // largest joint distance to the reference, degrees
    std::vector<double> us;               // solve times, microseconds
    double solved_share() const { return tried ? 100.0 * solved / tried : 0; }
    double near_share() const { return solved ? 100.0 * near / solved : 0; }
};

// Solves n samples of one kind through the configuration store (model
// `type`, plain edition), alternating Euler and quaternion targets.
inline Tally run(int type, Kind k, double off, int n, unsigned seed) {
    algo::ArmModel m;
    Tally t;
    if (!algo::default_model(type, _P, &m)) return t;
    libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _P);
    std::mt19937 rng(seed);
    for (int i = 0; i < n; ++i) {
        Sample s;
        if (!sample(m, k, off, rng, s)) continue;
        const Pose target = forward_kinematics(s.q);
        float out[8] = {};
        const uint8_t flag = i % 2 ? 1 : 2;
        const auto t0 = std::chrono::steady_clock::now();
        const int rc = inverse_kinematics(s.ref, &target, out, flag);
        t.us.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
        ++t.tried;
        if (rc != 0 || !reaches(m, out, target, flag)) continue;
        ++t.solved;
        double far = 0;
        for (int j = 0; j < m.dof; ++j) far = std::max(far, std::fabs(static_cast<double>(out[j]) - s.ref[j]) / kDeg);
        t.near += far <= 5;
        t.worst = std::max(t.worst, far);
    }
    return t;
}

// ---- Cartesian paths ---------------------------------------------------
// Targets at a fixed orientation 1 mm apart, each solved through the store
// from the previous answer.

struct PathRun {
    double largest = 0;       // largest change of one joint in one step, degrees
    bool at_limit = false;    // that step began or ended with a joint at its limit
    int steps = 0, done = 0;  // done < steps: the path left the reachable set there
    double clearance = 1e9;   // closest any joint came to a limit, degrees
    double largest_clear = 0; // largest step with every joint 5 degrees or more inside its limits
};

using Vec = std::array<double, 3>;

inline PathRun follow(const algo::ArmModel& m, const float* q0, const std::function<Vec(int)>& at, int steps) {
    PathRun run;
    run.steps = steps;
    Pose target = forward_kinematics(q0);
    float q[8], next[8] = {};
    std::copy(q0, q0 + 8, q);
    const double margin = 0.5 * kDeg;
    auto near_limit = [&](const float* v) {
        for (int i = 0; i < m.dof; ++i)
            if (v[i] < m.jmin[i] + margin || v[i] > m.jmax[i] - margin) return true;
        return false;
    };
    for (int i = 1; i <= steps; ++i) {
        const Vec p = at(i);
        target.position = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
        if (inverse_kinematics(q, &target, next, 2) != 0) break;
        double step = 0, clear = 1e9;
        for (int j = 0; j < m.dof; ++j) {
            step = std::max(step, std::fabs(next[j] - q[j]) / kDeg);
            clear = std::min({clear, (next[j] - m.jmin[j]) / kDeg, (m.jmax[j] - next[j]) / kDeg,
                              (q[j] - m.jmin[j]) / kDeg, (m.jmax[j] - q[j]) / kDeg});
        }
        run.clearance = std::min(run.clearance, clear);
        if (clear >= 5) run.largest_clear = std::max(run.largest_clear, step);
        if (step > run.largest) {
            run.largest = step;
            run.at_limit = near_limit(q) || near_limit(next);
        }
        std::copy(next, next + 8, q);
        run.done = i;
    }
    return run;
}

inline Vec position_of(const float* q) {
    const Pose p = forward_kinematics(q);
    return {p.position.x, p.position.y, p.position.z};
}

// A line from the tool's position at q0 along dir (any length), 1 mm steps.
inline PathRun line(const algo::ArmModel& m, const float* q0, Vec dir, double length) {
    const Vec p0 = position_of(q0);
    const double n = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    return follow(m, q0, [&](int i) {
        const double s = 0.001 * i / n;
        return Vec{p0[0] + s * dir[0], p0[1] + s * dir[1], p0[2] + s * dir[2]};
    }, static_cast<int>(length / 0.001));
}

// A circle through the tool's position at q0 in the plane spanned by e1, e2
// (unit, orthogonal), its centre r away along -e1.
inline PathRun circle(const algo::ArmModel& m, const float* q0, Vec e1, Vec e2, double r) {
    const Vec p0 = position_of(q0);
    const Vec c = {p0[0] - r * e1[0], p0[1] - r * e1[1], p0[2] - r * e1[2]};
    const int steps = static_cast<int>(std::ceil(2 * kPi * r / 0.001));
    return follow(m, q0, [&](int i) {
        const double t = 2 * kPi * i / steps, a = r * std::cos(t), b = r * std::sin(t);
        return Vec{c[0] + a * e1[0] + b * e2[0], c[1] + a * e1[1] + b * e2[1], c[2] + a * e1[2] + b * e2[2]};
    }, steps);
}

inline Vec unit(Vec v) {
    const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return {v[0] / n, v[1] / n, v[2] / n};
}
inline Vec cross(const Vec& a, const Vec& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// Joints at the tool position p (orientation of q_ref's pose), from q_ref.
inline bool solve_at(const float* q_ref, const Vec& p, float* q) {
    Pose target = forward_kinematics(q_ref);
    target.position = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    return inverse_kinematics(q_ref, &target, q, 2) == 0;
}

// Direction of joint `j`'s axis (base frame) at q.
inline Vec axis_of(const algo::ArmModel& m, const float* q, int j) {
    algo::ArmModel part = m;
    part.dof = j + 1;
    float T[4][4];
    algo::arm_fk(part, q, T);
    return {T[0][2], T[1][2], T[2][2]};
}

// How far the arm's first three joints are from their own singularities at
// q: |det| of the wrist point's Jacobian in joints 1 to 3 over the product
// of its columns' lengths (1 when they are orthogonal, 0 when singular).
inline double arm_conditioning(const algo::ArmModel& m, const float* q) {
    algo::ArmModel part = m;
    part.dof = 5;
    auto wrist = [&](const float* v) {
        float T[4][4];
        algo::arm_fk(part, v, T);
        return Vec{T[0][3], T[1][3], T[2][3]};
    };
    const Vec w0 = wrist(q);
    Vec c[3];
    double lengths = 1;
    for (int j = 0; j < 3; ++j) {
        float v[8];
        std::copy(q, q + 8, v);
        v[j] += 1e-3f;
        const Vec w = wrist(v);
        c[j] = {w[0] - w0[0], w[1] - w0[1], w[2] - w0[2]};
        lengths *= std::sqrt(c[j][0] * c[j][0] + c[j][1] * c[j][1] + c[j][2] * c[j][2]);
    }
    const Vec x = cross(c[1], c[2]);
    return lengths > 0 ? std::fabs(c[0][0] * x[0] + c[0][1] * x[1] + c[0][2] * x[2]) / lengths : 0;
}

// A line through the pose at q_s, 2 * half long along dir.
inline PathRun line_through(const algo::ArmModel& m, const float* q_s, Vec dir, double half) {
    const Vec ps = position_of(q_s);
    dir = unit(dir);
    float q0[8] = {};
    if (!solve_at(q_s, {ps[0] - half * dir[0], ps[1] - half * dir[1], ps[2] - half * dir[2]}, q0)) return {};
    return line(m, q0, dir, 2 * half);
}

// A circle of radius r centred on the wrist-singular pose at q_s (a
// six-joint arm), in the plane across the curve of wrist-singular positions
// at this orientation (joints 2 and 3 turning against each other keep the
// forearm's direction, and with it the wrist's alignment).
inline PathRun circle_around(const algo::ArmModel& m, const float* q_s, double r) {
    const Vec ps = position_of(q_s);
    float qt[8], q0[8] = {};
    std::copy(q_s, q_s + 8, qt);
    qt[1] += 1e-4f;
    qt[2] -= 1e-4f;
    const Vec pt = position_of(qt);
    const Vec along = unit({pt[0] - ps[0], pt[1] - ps[1], pt[2] - ps[2]});
    const Vec e1 = unit(cross(along, std::fabs(along[2]) < 0.9 ? Vec{0, 0, 1} : Vec{1, 0, 0}));
    const Vec e2 = cross(along, e1);
    if (!solve_at(q_s, {ps[0] + r * e1[0], ps[1] + r * e1[1], ps[2] + r * e1[2]}, q0)) return {};
    return circle(m, q0, e1, e2, r);
}

}  // namespace singular

#endif /* TEST_ALGO_SINGULAR_H */
