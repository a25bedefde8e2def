/*
 * The kinematics library's configuration store: one robot description for
 * the whole process, read by every solver and written by the facade.
 * Angles are radians, lengths metres. Not locked: callers serialise.
 */
#ifndef ALGO_LIBALGO_INTERFACE_H
#define ALGO_LIBALGO_INTERFACE_H

#include <stdint.h>

#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API void libalgo_init(void);
KX_API int libalgo_set_robot_and_sensor_type(RobotType type, SensorType sensor);
KX_API int lib_internal_set_robot_default_config(RobotType type, SensorType sensor);
KX_API RobotType libalgo_get_robot_type(void);
KX_API SensorType libalgo_get_sensor_type(void);
KX_API int16_t libalgo_get_rbt_dof(void);

KX_API void libalgo_set_dh_params(DH dh);
KX_API DH libalgo_get_dh_value(void);
KX_API void libalgo_set_dh_compensation_value(DH dh);
KX_API DH libalgo_get_dh_compensation_value(void);
KX_API void libalgo_set_dh_params_default(DH dh);
KX_API DH libalgo_get_dh_params_default(void);
KX_API int libalgo_check_dh_params_is_default(void);

/* 8 values each, one per joint slot. */
KX_API void libalgo_set_jointlim_max(const float* q);
KX_API void libalgo_get_jointlim_max(float* q);
KX_API void libalgo_set_jointlim_min(const float* q);
KX_API void libalgo_get_jointlim_min(float* q);
KX_API void libalgo_set_joint_vel_maxlim(const float* v);
KX_API void libalgo_get_joint_vel_maxlim(float* v);
KX_API void libalgo_set_joint_acc_maxlim(const float* a);
KX_API void libalgo_get_joint_acc_maxlim(float* a);
KX_API void libalgo_get_modeling_jointlim_max(float* q);
KX_API void libalgo_get_modeling_jointlim_min(float* q);
KX_API void libalgo_set_joint_direction(const float* dir);
KX_API void libalgo_get_joint_direction(float* dir);

/* Three angles (radians) about X, Y, Z, applied as Rz·Ry·Rx. */
KX_API void libalgo_set_robot_install_angle(const float* angle);
KX_API void libalgo_get_robot_install_angle(float* angle);
KX_API Matrix libalgo_get_robot_install_angle_matrix(void);
KX_API void libalgo_get_gravity_vector(float* g);

KX_API void libalgo_set_tool_cs_params(Coord tool);
KX_API Coord libalgo_get_tool_cs_params(void);
KX_API Matrix libalgo_get_tool_cs_matrix(void);
KX_API void libalgo_set_work_cs_params(Coord work);
KX_API Coord libalgo_get_work_cs_params(void);
KX_API Matrix libalgo_get_work_cs_to_base_matrix(void);
KX_API void libalgo_set_payload_params(PayloadCfg payload);
KX_API PayloadCfg libalgo_get_payload_params(void);

KX_API int libalgo_set_safety_level(int16_t level);
KX_API int16_t libalgo_get_safety_level(void);
KX_API int libalgo_set_system_all_dof(int n);
KX_API int libalgo_get_system_all_dof(void);
KX_API void libalgo_set_is_avoid_Singularity(int on);
KX_API int libalgo_get_is_avoid_Singularity(void);
KX_API void libalgo_set_dynamics_model_type(int type);
KX_API int libalgo_get_dynamics_model_type(void);
KX_API void libalgo_set_control_loop_period(float seconds);
KX_API float libalgo_get_control_loop_period(void);
KX_API void libalgo_set_user_collision_threshold(const float* threshold);
KX_API void libalgo_get_user_collision_threshold(float* threshold);
/* Link dynamics of the current sensor edition: 7 links x 10 values. */
KX_API void libalgo_set_link_dynamics_params(const float* params);
KX_API void libalgo_get_link_dynamics_params(float* params);
/* Measured joint state (positions, speeds, torques; 8 each). */
KX_API void libalgo_update_feedback_data(const float* q, const float* dq, const float* tau);
KX_API void libalgo_get_robot_feedback_data(float* q, float* dq, float* tau);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_LIBALGO_INTERFACE_H */
