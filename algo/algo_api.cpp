// Pose helpers behind the facade: frame changes and Cartesian moves.
#include "algo_api.h"

#include <cmath>

#include "constant_define.h"
#include "libalgo_interface.h"
#include "tovi_kinematics.h"
#include "tovi_int.h"
#include "tovi_mathfuncs.h"

namespace {

// Rodrigues: R = I + sin(a) K + (1 - cos(a)) K^2, K the axis' cross matrix.
Matrix axis_rotation(const float* axis, float angle) {
    Matrix r = algo::matrix_eye();
    if (!axis) return r;
    const double k[3] = {axis[0], axis[1], axis[2]};
    const double K[3][3] = {{0, -k[2], k[1]}, {k[2], 0, -k[0]}, {-k[1], k[0], 0}};
    const double s = std::sin(angle), c1 = 1 - std::cos(angle);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double kk = 0;
            for (int m = 0; m < 3; ++m) kk += K[i][m] * K[m][j];
            r.data[i][j] = static_cast<float>((i == j ? 1.0 : 0.0) + s * K[i][j] + c1 * kk);
        }
    return r;
}

Euler rodrigues(const float* axis, const Pose& pose, float angle, bool tool_axis) {
    const Matrix T = pose_euler_to_transformation_matrix(pose);
    const Matrix R = axis_rotation(axis, angle);
    // A base axis acts from the left, a tool axis from the right; only the
    // orientation is read back, so the position plays no part.
    return matrix_to_euler(tool_axis ? matrix_m(T, R) : matrix_m(R, T));
}

// The pose with new Euler angles and the quaternion recomputed from them.
Pose with_euler(Pose p, Euler e) {
    p.euler = e;
    p.quaternion = euler_to_quat(e.rx, e.ry, e.rz);
    return p;
}

void joints_to_radians(const float* joints, float* q) {
    const int dof = libalgo_get_rbt_dof();
    for (int i = 0; i < 8; ++i) q[i] = 0;
    if (!joints) return;
    for (int i = 0; i < dof && i < 8; ++i) q[i] = static_cast<float>(joints[i] * 0.0174532925199433);
}

}  // namespace

extern "C" {

KX_API Matrix algo_euler_to_matrix(Euler e) { return euler_to_matrix(e.rx, e.ry, e.rz); }
KX_API Matrix algo_pose_to_matrix(Pose p) { return pose_euler_to_transformation_matrix(p); }
KX_API Pose algo_matrix_to_pose(Matrix m) { return transformation_matrix_to_pose(m); }

KX_API Pose algo_base_to_workframe(Matrix m, Pose p) {
    return transformation_matrix_to_pose(matrix_m(m, pose_euler_to_transformation_matrix(p)));
}
KX_API Pose algo_workframe_to_base(Matrix m, Pose p) {
    return transformation_matrix_to_pose(matrix_m(matrix_inv(m), pose_euler_to_transformation_matrix(p)));
}

KX_API Pose dPosMoveWork(Pose pose, const float* delta) {
    Pose out{};
    if (!delta) return out;
    out.position = Pos{pose.position.x + delta[0], pose.position.y + delta[1], pose.position.z + delta[2]};
    return out;
}

KX_API Pose dPosMoveTool(Pose pose, const float* delta) {
    if (!delta) return Pose{};
    const Matrix T = matrix_m(pose_euler_to_transformation_matrix(pose), pose_euler_to_transformation_matrix(
                                                                             Pose{{delta[0], delta[1], delta[2]}, {}, {}}));
    pose.position = Pos{T.data[0][3], T.data[1][3], T.data[2][3]};
    return pose;
}

KX_API Pose dPosMove(Pose pose, const float* delta, int mode) {
    if (mode == 0) return dPosMoveWork(pose, delta);
    if (mode == 1) return dPosMoveTool(pose, delta);
    return Pose{};
}

KX_API Pose rotateMove(Pose pose, const float* delta, int mode) {
    if ((mode != 0 && mode != 1) || !delta) return Pose{};
    // The frames are part of the configuration this move is taken in; the
    // increments are about the axes of the pose's own frame (base or tool).
    (void)libalgo_get_tool_cs_params();
    (void)libalgo_get_work_cs_params();
    static const float axes[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    // Cumulative: X first, then Y on the result, then Z.
    for (int i = 0; i < 3; ++i) pose = with_euler(pose, rodrigues(axes[i], pose, delta[3 + i], mode == 1));
    return pose;
}

KX_API Pose algo_pose_move(Pose current, const float* delta, int frameMode) {
    Pose out = rotateMove(current, delta, frameMode);
    out.position = dPosMove(current, delta, frameMode).position;
    return out;
}

KX_API Euler Rodrigues_rotate_simplify(const float* axis, Pose pose, float angle) {
    return rodrigues(axis, pose, angle, false);
}
KX_API Euler Rodrigues_rotate_simplify_tool(const float* axis, Pose pose, float angle) {
    return rodrigues(axis, pose, angle, true);
}

KX_API Pose step_attitude(const float* q, const float* axis, float angle, int frameMode) {
    const Pose p = forward_kinematics(q);
    return with_euler(p, rodrigues(axis, p, angle, frameMode == 1));
}

KX_API Pose algo_rotate_move(const float* joints, int rotate_axis, Pose choose_axis, float angle) {
    (void)choose_axis;  // the axis is chosen by rotate_axis alone
    float q[8];
    joints_to_radians(joints, q);
    float axis[3] = {0, 0, 0};
    if (rotate_axis >= 1 && rotate_axis <= 3) axis[rotate_axis - 1] = 1;
    const Pose p = forward_kinematics(q);
    return with_euler(p, rodrigues(axis, p, angle, false));
}

KX_API Pose algo_cartesian_tool(const float* joints, float dx, float dy, float dz) {
    float q[8];
    joints_to_radians(joints, q);
    Pose shift{};
    shift.position = Pos{dx, dy, dz};
    const Matrix T = matrix_m(matrix_m(forward_kinematics_e(q), libalgo_get_tool_cs_matrix()),
                              pose_euler_to_transformation_matrix(shift));
    return algo_base_to_workframe(libalgo_get_work_cs_to_base_matrix(), transformation_matrix_to_pose(T));
}

}  // extern "C"
