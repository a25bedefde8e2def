/* Inverse kinematics over the configuration store. Radians, metres. */
#ifndef ALGO_TOVI_INV_KINEMATICS_H
#define ALGO_TOVI_INV_KINEMATICS_H

#include <stdint.h>

#include "algo_matrix.h"
#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The 7-joint search: range (radians) and strategy (1 narrow, 0 wide). */
KX_API extern float theta_v;
KX_API extern int global_is_movl;

/* Joints reaching target (tool pose in the work frame) nearest q_in.
 * flag 1: orientation from the Euler angles, otherwise the quaternion.
 * 0 solved; -1/-2 no admissible solution; -4 no solver for the model.
 * Nearest at singular configurations too: joints whose axes align (or a
 * straight elbow) share their free combination as q_in does, and every
 * joint is the 2pi-equivalent nearest q_in within its limits. Whether the
 * step from q_in is fast enough for a stream is joint_overspeed_judgment's
 * question. */
KX_API int inverse_kinematics(const float* q_in, const Pose* target, float* q_out, uint8_t flag);
/* The target as a matrix in the arm's base: W^-1 x T(pose). */
KX_API Matrix calc_Tbase2tool_from_Pose(const Pose* pose, uint8_t flag);
/* 0, or joint k (from 1) whose step would exceed speed limit x period x factor. */
KX_API int joint_overspeed_judgment(const float* q_current, const float* q_solve, float vel_factor);

KX_API void ikine_set_7dof_solver_search_strategy(int strategy);
KX_API int ikine_get_7dof_solver_search_strategy(void);
KX_API void ikine_set_solution_range_briv(float range);
KX_API float ikine_get_solution_range_briv(void);

/* Per-model solvers. The 6-joint ones take the target in the arm's base
 * (work frame removed) and remove install angle and tool themselves; the
 * 7-joint ones take the flange target. q_out is written only on success. */
KX_API int inverse_kinematics_aven(const float* q_ref, Matrix target, float* q_out);
KX_API int inverse_kinematics_cald_2(const float* q_ref, Matrix target, float* q_out);
KX_API int inverse_kinematics_cald_3(const float* q_ref, Matrix target, float* q_out);
KX_API int inverse_kinematics_orla(const float* q_ref, Matrix target, float* q_out);
KX_API int inverse_kinematics_briv(const float* q_ref, Mat target, float* q_out);
KX_API int inverse_kinematics_firu(const float* q_ref, Mat target, float* q_out);
/* Flange Jacobian (6 x 7) and flange transform (4 x 4) at q. */
KX_API int ikine_jacobe_and_pose_firu(const float* q, Mat* jacobian, Mat* pose);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_TOVI_INV_KINEMATICS_H */
