// Small rigid-transform helpers: poses as x y z qx qy qz qw.
#ifndef KX_DRIVER_POSE_MATH_H
#define KX_DRIVER_POSE_MATH_H

#include <array>
#include <cmath>

namespace kx_driver {

using Pose7 = std::array<double, 7>;
using Mat3 = std::array<std::array<double, 3>, 3>;

inline Pose7 identity_pose() { return {0, 0, 0, 0, 0, 0, 1}; }

inline std::array<double, 4> quat_mul(const std::array<double, 4>& a, const std::array<double, 4>& b) {
    // x y z w
    return {a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1],
            a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
            a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3],
            a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
}

inline std::array<double, 3> quat_rotate(const std::array<double, 4>& q, const std::array<double, 3>& v) {
    const std::array<double, 4> p{v[0], v[1], v[2], 0};
    const std::array<double, 4> qc{-q[0], -q[1], -q[2], q[3]};
    const auto r = quat_mul(quat_mul(q, p), qc);
    return {r[0], r[1], r[2]};
}

inline std::array<double, 4> rot(const Pose7& p) { return {p[3], p[4], p[5], p[6]}; }

// a * b
inline Pose7 compose(const Pose7& a, const Pose7& b) {
    const auto t = quat_rotate(rot(a), {b[0], b[1], b[2]});
    const auto q = quat_mul(rot(a), rot(b));
    return {a[0] + t[0], a[1] + t[1], a[2] + t[2], q[0], q[1], q[2], q[3]};
}

inline Pose7 inverse(const Pose7& a) {
    const std::array<double, 4> qc{-a[3], -a[4], -a[5], a[6]};
    const auto t = quat_rotate(qc, {a[0], a[1], a[2]});
    return {-t[0], -t[1], -t[2], qc[0], qc[1], qc[2], qc[3]};
}

inline Pose7 normalized(Pose7 p) {
    const double n = std::sqrt(p[3] * p[3] + p[4] * p[4] + p[5] * p[5] + p[6] * p[6]);
    if (!(n > 1e-9)) return {p[0], p[1], p[2], 0, 0, 0, 1};
    for (int i = 3; i < 7; ++i) p[i] /= n;
    return p;
}

// Fixed-axis roll-pitch-yaw, R = Rz(yaw) Ry(pitch) Rx(roll).
inline std::array<double, 4> quat_from_rpy(double r, double p, double y) {
    const double cr = std::cos(r / 2), sr = std::sin(r / 2), cp = std::cos(p / 2), sp = std::sin(p / 2),
                 cy = std::cos(y / 2), sy = std::sin(y / 2);
    return {sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy, cr * cp * sy - sr * sp * cy,
            cr * cp * cy + sr * sp * sy};
}

inline std::array<double, 3> rpy_from_matrix(const Mat3& m) {
    const double pitch = std::atan2(-m[2][0], std::hypot(m[0][0], m[1][0]));
    if (std::hypot(m[0][0], m[1][0]) < 1e-9)  // gimbal lock: yaw folded into roll
        return {std::atan2(-m[1][2], m[1][1]), pitch, 0};
    return {std::atan2(m[2][1], m[2][2]), pitch, std::atan2(m[1][0], m[0][0])};
}

inline std::array<double, 3> rpy_from_quat(const std::array<double, 4>& q) {
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    const Mat3 m{{{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                  {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                  {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}}};
    return rpy_from_matrix(m);
}

}  // namespace kx_driver

#endif
