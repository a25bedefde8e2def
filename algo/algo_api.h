/*
 * Pose helpers behind the kx_algo_ facade: matrix/pose wrappers, frame
 * changes and Cartesian offsets and rotations. Radians and metres, except
 * joint vectors, which arrive in degrees.
 */
#ifndef ALGO_API_H
#define ALGO_API_H

#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API Matrix algo_euler_to_matrix(Euler e);
KX_API Matrix algo_pose_to_matrix(Pose p);
KX_API Pose algo_matrix_to_pose(Matrix m);
/* Pose of M x T(p) / of M^-1 x T(p), T from position and Euler angles. */
KX_API Pose algo_base_to_workframe(Matrix m, Pose p);
KX_API Pose algo_workframe_to_base(Matrix m, Pose p);

/* delta: dx, dy, dz (metres), drx, dry, drz (radians). frameMode 0: along
 * the work frame's axes, 1: along the tool's; anything else: all zeros. */
KX_API Pose algo_pose_move(Pose current, const float* delta, int frameMode);
KX_API Pose dPosMove(Pose pose, const float* delta, int mode);
KX_API Pose dPosMoveWork(Pose pose, const float* delta);
KX_API Pose dPosMoveTool(Pose pose, const float* delta);
KX_API Pose rotateMove(Pose pose, const float* delta, int mode);

/* Current tool pose (joints in degrees) rotated by angle about axis 1 = X,
 * 2 = Y, 3 = Z of the work frame. */
KX_API Pose algo_rotate_move(const float* joints, int rotate_axis, Pose choose_axis, float angle);
/* Current tool pose (joints in degrees) shifted along the tool's own axes,
 * in the work frame; the install angle is not applied on this path. */
KX_API Pose algo_cartesian_tool(const float* joints, float dx, float dy, float dz);

/* The orientation of pose rotated by angle about a unit axis of the base
 * (Rodrigues_rotate_simplify) or of the pose itself (..._tool). */
KX_API Euler Rodrigues_rotate_simplify(const float* axis, Pose pose, float angle);
KX_API Euler Rodrigues_rotate_simplify_tool(const float* axis, Pose pose, float angle);
/* Tool pose at joints q (radians) with its attitude stepped by angle about
 * axis (frameMode 0: base axis, 1: tool axis). */
KX_API Pose step_attitude(const float* q, const float* axis, float angle, int frameMode);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_API_H */
