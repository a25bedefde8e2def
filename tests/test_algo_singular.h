// Singular configurations of every model with an inverse solver, and the
// measure of how the solver answers there: shared by the kinematics tests
// and bench_kinematics.
//
// A sample is an in-limit configuration with one joint at (or, for "near",
// a little away from) its singular value, and a reference within 2 degrees
// of it on every joint: the configuration itself is then an answer within
// 2 degrees, so a good answer lies within a few degrees of the reference.
#ifndef TEST_ALGO_SINGULAR_H
#define TEST_ALGO_SINGULAR_H

#include <algorithm>
#include <chrono>
#include <cmath>
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

}  // namespace singular

#endif /* TEST_ALGO_SINGULAR_H */
