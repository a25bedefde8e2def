/*
 * Rigid-transform helpers for the simulator: poses as 4x4 matrices in
 * double precision, Euler angles in the controller's convention
 * R = Rz(rz) * Ry(ry) * Rx(rx), quaternions (w, x, y, z).
 */
#ifndef KX_SIM_MATH_H
#define KX_SIM_MATH_H

#include <array>
#include <vector>

namespace kxsim {

using Mat4 = std::array<std::array<double, 4>, 4>;

Mat4 identity();
Mat4 mul(const Mat4& a, const Mat4& b);
/* Inverse of a rigid transform. */
Mat4 inverse(const Mat4& a);
/* x, y, z (metres), rx, ry, rz (radians) to a transform and back. */
Mat4 from_pose6(const double v[6]);
void to_pose6(const Mat4& m, double v[6]);
/* Unit quaternion (w, x, y, z) of the rotation part. */
void to_quat(const Mat4& m, double q[4]);
Mat4 from_quat(const double pos[3], const double q[4]);
/* Position interpolated linearly, rotation along the shortest arc. */
Mat4 interpolate(const Mat4& a, const Mat4& b, double s);
/* Translation distance and rotation angle between two transforms. */
double distance(const Mat4& a, const Mat4& b);
double angle_between(const Mat4& a, const Mat4& b);
/* Rotation by `angle` about the unit axis `axis`, no translation. */
Mat4 rotation(const double axis[3], double angle);

/* Rotation vector (axis times angle) of the rotation part. */
std::array<double, 3> rotation_vector(const Mat4& m);
/* Solves A x = b (n x n, partial pivoting); false when singular. */
bool solve_linear(std::vector<std::vector<double>> A, std::vector<double> b, std::vector<double>& x);

}  // namespace kxsim

#endif
