/*
 * Glue between the kx_algo_ facade and the kinematics library: one library
 * call each, converting the API's degrees to the library's radians.
 */
#ifndef KX_INVOKE_ALGO_H
#define KX_INVOKE_ALGO_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#include "kx_define.h"
#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The last install angle set through the facade, radians. */
KX_API extern float angleU;
KX_API extern float angleV;
KX_API extern float angleH;
/* When true every facade inverse kinematics widens the 7-joint search. */
KX_API extern bool defaut_traversal_mode;
/* Current tool and work frames as matrices, written by the frame queries. */
KX_API extern Matrix Tool_Matrix;
KX_API extern Matrix Frame_Matrix;
/* Longest and shortest solve seen by the overspeed-checking variant, ms. */
KX_API extern double invoke_inverse_time_total_max;
KX_API extern double invoke_inverse_time_total_min;

KX_API void invoke_libalgo_init(void);
KX_API int16_t invoke_libalgo_set_robot_type(RobotType type, SensorType sensor);
KX_API void invoke_libalgo_set_tool_cs_params(Coord tool);
KX_API Coord invoke_libalgo_get_tool_cs_params(void);
KX_API void invoke_libalgo_set_work_cs_params(Coord work);
KX_API Coord invoke_libalgo_get_work_cs_params(void);
/* Three angles in degrees. */
KX_API void invoke_libalgo_set_robot_install_angle(const float* angle);
KX_API void invoke_libalgo_get_robot_install_angle(float* angle);
/* Per-joint values in degrees (and degrees/s, degrees/s^2), dof of them. */
KX_API void invoke_libalgo_set_jointlim_max(const float* q);
KX_API void invoke_libalgo_get_jointlim_max(float* q);
KX_API void invoke_libalgo_set_jointlim_min(const float* q);
KX_API void invoke_libalgo_get_jointlim_min(float* q);
KX_API void invoke_libalgo_set_joint_vel_maxlim(const float* v);
KX_API void invoke_libalgo_get_joint_vel_maxlim(float* v);
KX_API void invoke_libalgo_set_joint_acc_maxlim(const float* a);
KX_API void invoke_libalgo_get_joint_acc_maxlim(float* a);
KX_API Pose invoke_forward_kinematics(const float* joint);
KX_API Matrix invoke_forward_kinematics_e(const float* joint);
/* Joints in degrees; q_out in degrees on success. Returns the library's code. */
KX_API int invoke_inverse_kinematics(const float* q_in, kx_pose_t q_pose, float* q_out, uint8_t flag);
/* As invoke_inverse_kinematics, then the step from q_in to the answer is
 * checked against each joint's speed limit over one control period: 0 when
 * it fits, else the first joint k (from 1) that would move too fast; q_out
 * holds the answer either way. The answer is always the one nearest q_in,
 * singular configurations included; this is how a caller streaming
 * Cartesian targets learns that a target needs a fast turn (e.g. a path
 * leaving an exactly wrist-singular pose across joint 5's axis needs joint 4
 * to turn first) instead of sending it. */
KX_API int invoke_inverse_kinematics_with_judgment_overspeed(const float* q_in, kx_pose_t q_pose, float* q_out,
                                                             uint8_t flag);
KX_API int invoke_joint_overspeed_judgment(const float* q_current, const float* q_solve, float vel_factor);
KX_API void invoke_libalgo_set_control_loop_period(float seconds);
KX_API int invoke_libalgo_set_dh_params(DH dh);
KX_API void get_time_of_day(struct timeval* tv);

/* Flange-side pose of the current configuration as a matrix (degrees in). */
KX_API Matrix Forward_Kinematics_e(const float* joint);

#ifdef __cplusplus
}

#include <mutex>

namespace kx {
/* The kinematics library holds one configuration for the whole process. Each
 * facade call that loads, reads or computes from it runs whole under this
 * lock, so concurrent calls give the results of sequential ones. Recursive:
 * facade calls nest. */
std::recursive_mutex& algo_mutex();
struct AlgoLock {
    AlgoLock() : lock(algo_mutex()) {}
    std::lock_guard<std::recursive_mutex> lock;
};
}  // namespace kx
#endif

#endif /* KX_INVOKE_ALGO_H */
