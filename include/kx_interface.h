/*
 * libapi_c: commanding and monitoring networked robot-arm controllers.
 *
 * Every function returns an int result code unless stated otherwise:
 *   0 success, 1 refused by the controller, -1 unknown handle / bad argument /
 *   send failure, -2 no reply within the timeout, -3 reply not decodable,
 *   -4..-6 operation-specific (see each family).
 */
#ifndef KX_INTERFACE_H
#define KX_INTERFACE_H

#include "kx_define.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- lifecycle -------------------------------------------------------- */
KX_API int kx_init(kx_thread_mode_e mode);
KX_API const char* kx_api_version(void);
KX_API kx_robot_handle* kx_create_robot_arm(const char* ip, int port);
KX_API int kx_delete_robot_arm(kx_robot_handle* handle);
KX_API int kx_destory(void);
KX_API int kx_get_robot_info(kx_robot_handle* handle, kx_robot_info_t* out);
KX_API int kx_get_arm_dof(kx_robot_handle* handle, int* dof);

/* ---- logging and callbacks -------------------------------------------- */
KX_API void kx_set_log_call_back(LogCallback cb, int level);
KX_API void kx_set_log_save(const char* path);
KX_API void kx_get_arm_event_call_back(kx_event_callback_ptr event_callback);
KX_API void kx_realtime_arm_state_call_back(kx_realtime_arm_state_callback_ptr realtime_callback);

/* ---- generic commands ------------------------------------------------- */
KX_API int kx_get_data_common(kx_robot_handle* handle, int* data, char* cmd_str, char* valua_str);
KX_API int kx_set_data_common(kx_robot_handle* handle, int data, char* cmd_str, char* valua_str);

/* ---- realtime push ---------------------------------------------------- */
KX_API int kx_set_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t config);
KX_API int kx_get_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t* config);

/* ---- moves ------------------------------------------------------------ */
KX_API int kx_movej(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block);
KX_API int kx_movej_nblock(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect);
KX_API int kx_movej_block(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block);
KX_API int kx_movel(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_movel_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
KX_API int kx_movel_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_moves(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_moves_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
KX_API int kx_moves_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_movej_p(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_movej_p_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
KX_API int kx_movej_p_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
KX_API int kx_movec(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                    int trajectory_connect, int block);
KX_API int kx_movec_nblock(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                           int trajectory_connect);
KX_API int kx_movec_block(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                          int trajectory_connect, int block);

/* ---- streaming -------------------------------------------------------- */
KX_API int kx_movej_canfd(kx_robot_handle* handle, kx_movej_canfd_mode_t config);
KX_API int kx_movep_canfd(kx_robot_handle* handle, kx_movep_canfd_mode_t config);
KX_API int kx_movej_follow(kx_robot_handle* handle, float* joint);
KX_API int kx_movep_follow(kx_robot_handle* handle, kx_pose_t pose);

/* ---- jogging, teaching, stopping -------------------------------------- */
KX_API int kx_set_joint_step(kx_robot_handle* handle, int joint_num, float step, int v, int block);
KX_API int kx_set_joint_step_nblock(kx_robot_handle* handle, int joint_num, float step, int v);
KX_API int kx_set_joint_step_block(kx_robot_handle* handle, int joint_num, float step, int v, int block);
KX_API int kx_set_pos_step(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block);
KX_API int kx_set_pos_step_nblock(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v);
KX_API int kx_set_pos_step_block(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block);
KX_API int kx_set_ort_step(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block);
KX_API int kx_set_ort_step_nblock(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v);
KX_API int kx_set_ort_step_block(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block);
KX_API int kx_set_joint_teach(kx_robot_handle* handle, int joint_num, int direction, int v);
KX_API int kx_set_pos_teach(kx_robot_handle* handle, kx_pos_teach_type_e type, int direction, int v);
KX_API int kx_set_ort_teach(kx_robot_handle* handle, kx_ort_teach_type_e type, int direction, int v);
KX_API int kx_set_stop_teach(kx_robot_handle* handle);
KX_API int kx_set_teach_frame(kx_robot_handle* handle, int frame_type);
KX_API int kx_get_teach_frame(kx_robot_handle* handle, int* frame_type);
KX_API int kx_set_arm_slow_stop(kx_robot_handle* handle);
KX_API int kx_set_arm_stop(kx_robot_handle* handle);
KX_API int kx_set_arm_pause(kx_robot_handle* handle);
KX_API int kx_set_arm_continue(kx_robot_handle* handle);
KX_API int kx_set_delete_current_trajectory(kx_robot_handle* handle);
KX_API int kx_set_arm_delete_trajectory(kx_robot_handle* handle);

/* ---- current trajectory ----------------------------------------------- */
KX_API int kx_get_arm_current_trajectory(kx_robot_handle* handle, kx_arm_current_trajectory_e* type, float* data);

/* ---- joint and arm limits --------------------------------------------- */
KX_API int kx_set_joint_max_speed(kx_robot_handle* handle, int joint_num, float max_speed);
KX_API int kx_set_joint_max_acc(kx_robot_handle* handle, int joint_num, float max_acc);
KX_API int kx_set_joint_min_pos(kx_robot_handle* handle, int joint_num, float min_pos);
KX_API int kx_set_joint_max_pos(kx_robot_handle* handle, int joint_num, float max_pos);
KX_API int kx_set_joint_drive_max_speed(kx_robot_handle* handle, int joint_num, float max_speed);
KX_API int kx_set_joint_drive_max_acc(kx_robot_handle* handle, int joint_num, float max_acc);
KX_API int kx_set_joint_drive_min_pos(kx_robot_handle* handle, int joint_num, float min_pos);
KX_API int kx_set_joint_drive_max_pos(kx_robot_handle* handle, int joint_num, float max_pos);
KX_API int kx_set_joint_en_state(kx_robot_handle* handle, int joint_num, int en_state);
KX_API int kx_set_joint_zero_pos(kx_robot_handle* handle, int joint_num);
KX_API int kx_set_joint_clear_err(kx_robot_handle* handle, int joint_num);
KX_API int kx_auto_set_joint_limit(kx_robot_handle* handle, int limit_mode);
KX_API int kx_set_arm_max_line_speed(kx_robot_handle* handle, float speed);
KX_API int kx_set_arm_max_line_acc(kx_robot_handle* handle, float acc);
KX_API int kx_set_arm_max_angular_speed(kx_robot_handle* handle, float speed);
KX_API int kx_set_arm_max_angular_acc(kx_robot_handle* handle, float acc);
KX_API int kx_set_arm_tcp_init(kx_robot_handle* handle);
KX_API int kx_set_collision_state(kx_robot_handle* handle, int stage);
KX_API int kx_set_init_pose(kx_robot_handle* handle, const float* joint);
KX_API int kx_set_install_pose(kx_robot_handle* handle, float x, float y, float z);
KX_API int kx_get_joint_max_speed(kx_robot_handle* handle, float* max_speed);
KX_API int kx_get_joint_max_acc(kx_robot_handle* handle, float* max_acc);
KX_API int kx_get_joint_min_pos(kx_robot_handle* handle, float* min_pos);
KX_API int kx_get_joint_max_pos(kx_robot_handle* handle, float* max_pos);
KX_API int kx_get_joint_drive_max_speed(kx_robot_handle* handle, float* max_speed);
KX_API int kx_get_joint_drive_max_acc(kx_robot_handle* handle, float* max_acc);
KX_API int kx_get_joint_drive_min_pos(kx_robot_handle* handle, float* min_pos);
KX_API int kx_get_joint_drive_max_pos(kx_robot_handle* handle, float* max_pos);
KX_API int kx_get_joint_en_state(kx_robot_handle* handle, uint8_t* en_state);
KX_API int kx_get_joint_err_flag(kx_robot_handle* handle, uint16_t* err_flag, uint16_t* brake_state);
KX_API int kx_get_collision_stage(kx_robot_handle* handle, int* stage);
KX_API int kx_get_arm_max_line_speed(kx_robot_handle* handle, float* speed);
KX_API int kx_get_arm_max_line_acc(kx_robot_handle* handle, float* acc);
KX_API int kx_get_arm_max_angular_speed(kx_robot_handle* handle, float* speed);
KX_API int kx_get_arm_max_angular_acc(kx_robot_handle* handle, float* acc);
KX_API int kx_get_init_pose(kx_robot_handle* handle, float* joint);
KX_API int kx_get_install_pose(kx_robot_handle* handle, float* x, float* y, float* z);

/* ---- tool and work frames --------------------------------------------- */
KX_API int kx_set_auto_tool_frame(kx_robot_handle* handle, int point_num);
KX_API int kx_generate_auto_tool_frame(kx_robot_handle* handle, const char* name, float payload, float x, float y,
                                       float z);
KX_API int kx_set_manual_tool_frame(kx_robot_handle* handle, kx_frame_t frame);
KX_API int kx_change_tool_frame(kx_robot_handle* handle, const char* tool_name);
KX_API int kx_delete_tool_frame(kx_robot_handle* handle, const char* tool_name);
KX_API int kx_update_tool_frame(kx_robot_handle* handle, kx_frame_t frame);
KX_API int kx_set_auto_work_frame(kx_robot_handle* handle, const char* workname, int point_num);
KX_API int kx_set_manual_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose);
KX_API int kx_change_work_frame(kx_robot_handle* handle, const char* work_name);
KX_API int kx_delete_work_frame(kx_robot_handle* handle, const char* work_name);
KX_API int kx_update_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose);
KX_API int kx_set_tool_envelope(kx_robot_handle* handle, kx_envelope_balls_list_t envelope);
KX_API int kx_get_total_tool_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len);
KX_API int kx_get_total_work_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len);
KX_API int kx_get_given_tool_frame(kx_robot_handle* handle, const char* name, kx_frame_t* frame);
KX_API int kx_get_given_work_frame(kx_robot_handle* handle, const char* name, kx_pose_t* pose);
KX_API int kx_get_current_tool_frame(kx_robot_handle* handle, kx_frame_t* tool_frame);
KX_API int kx_get_current_work_frame(kx_robot_handle* handle, kx_frame_t* work_frame);
KX_API int kx_get_tool_envelope(kx_robot_handle* handle, const char* tool_name, kx_envelope_balls_list_t* envelope);

/* ---- arm state -------------------------------------------------------- */
KX_API int kx_get_current_arm_state(kx_robot_handle* handle, kx_current_arm_state_t* state);
KX_API int kx_get_current_joint_temperature(kx_robot_handle* handle, float* temperature);
KX_API int kx_get_current_joint_current(kx_robot_handle* handle, float* current);
KX_API int kx_get_current_joint_voltage(kx_robot_handle* handle, float* voltage);
KX_API int kx_get_joint_degree(kx_robot_handle* handle, float* joint);
KX_API int kx_get_arm_all_state(kx_robot_handle* handle, kx_arm_all_state_t* state);

/* ---- controller, network, versions ------------------------------------ */
KX_API int kx_get_controller_state(kx_robot_handle* handle, float* voltage, float* current, float* temperature,
                                   int* err_flag);
KX_API int kx_set_arm_power(kx_robot_handle* handle, int arm_power);
KX_API int kx_get_arm_power_state(kx_robot_handle* handle, int* power_state);
KX_API int kx_get_system_runtime(kx_robot_handle* handle, int* day, int* hour, int* min, int* sec);
KX_API int kx_clear_system_runtime(kx_robot_handle* handle);
KX_API int kx_get_joint_odom(kx_robot_handle* handle, float* joint_odom);
KX_API int kx_clear_joint_odom(kx_robot_handle* handle);
KX_API int kx_clear_system_err(kx_robot_handle* handle);
KX_API int kx_set_NetIP(kx_robot_handle* handle, const char* ip);
KX_API int kx_set_wifi_ap(kx_robot_handle* handle, const char* wifi_name, const char* password);
KX_API int kx_set_wifi_sta(kx_robot_handle* handle, const char* router_name, const char* password);
KX_API int kx_set_usb(kx_robot_handle* handle, int baudrate);
KX_API int kx_set_RS485(kx_robot_handle* handle, int baudrate);
KX_API int kx_get_wired_net(kx_robot_handle* handle, char* ip, char* mask, char* mac);
KX_API int kx_get_wifi_net(kx_robot_handle* handle, kx_wifi_net_t* wifi_net);
KX_API int kx_set_net_default(kx_robot_handle* handle);
KX_API int kx_set_wifi_close(kx_robot_handle* handle);
KX_API int kx_get_joint_software_version(kx_robot_handle* handle, int* version);
KX_API int kx_get_tool_software_version(kx_robot_handle* handle, int* version);
KX_API int kx_set_arm_run_mode(kx_robot_handle* handle, int mode);
KX_API int kx_get_arm_run_mode(kx_robot_handle* handle, int* mode);
KX_API int kx_get_arm_software_info(kx_robot_handle* handle, kx_arm_software_version_t* software_info);

/* ---- DH parameters ---------------------------------------------------- */
KX_API int kx_set_DH_data(kx_robot_handle* handle, kx_dh_t dh);
KX_API int kx_get_DH_data(kx_robot_handle* handle, kx_dh_t* dh);
KX_API int kx_set_DH_data_default(kx_robot_handle* handle);

/* ---- local algorithms (no network traffic) ---------------------------- */
KX_API void kx_algo_arm_state_set(kx_robot_handle* handle);
KX_API char* kx_algo_version(void);
KX_API void kx_algo_init_sys_data(kx_robot_arm_model_e Mode, kx_force_type_e Type);
KX_API void kx_algo_set_angle(float x, float y, float z);
KX_API void kx_algo_get_angle(float* x, float* y, float* z);
KX_API void kx_algo_set_redundant_parameter_traversal_mode(bool mode);
KX_API void kx_algo_set_workframe(const kx_frame_t* const coord_work);
KX_API void kx_algo_get_curr_workframe(kx_frame_t* coord_work);
KX_API void kx_algo_set_toolframe(const kx_frame_t* const coord_tool);
KX_API void kx_algo_get_curr_toolframe(kx_frame_t* coord_tool);
KX_API void kx_algo_set_joint_max_limit(const float* joint_limit);
KX_API void kx_algo_get_joint_max_limit(float* joint_limit);
KX_API void kx_algo_set_joint_min_limit(const float* joint_limit);
KX_API void kx_algo_get_joint_min_limit(float* joint_limit);
KX_API void kx_algo_set_joint_max_speed(const float* joint_slim_max);
KX_API void kx_algo_get_joint_max_speed(float* joint_slim_max);
KX_API void kx_algo_set_joint_max_acc(const float* joint_alim_max);
KX_API void kx_algo_get_joint_max_acc(float* joint_alim_max);
KX_API int kx_algo_judgment_overpos(float* joint);
KX_API kx_quat_t kx_algo_euler2quaternion(kx_euler_t eu);
KX_API kx_euler_t kx_algo_quaternion2euler(kx_quat_t qua);
KX_API kx_matrix_t kx_algo_euler2matrix(kx_euler_t state);
KX_API int kx_algo_inverse_kinematics(kx_robot_handle* handle, kx_inverse_kinematics_params_t params, float* q_out);
KX_API kx_pose_t kx_algo_forward_kinematics(kx_robot_handle* handle, const float* const joint);
KX_API kx_matrix_t kx_algo_pos2matrix(kx_pose_t state);
KX_API kx_pose_t kx_algo_matrix2pos(kx_matrix_t matrix);
KX_API kx_pose_t kx_algo_base2workframe(kx_matrix_t matrix, kx_pose_t state);
KX_API kx_pose_t kx_algo_workframe2base(kx_matrix_t matrix, kx_pose_t state);
KX_API kx_pose_t kx_algo_end2tool(kx_robot_handle* handle, kx_pose_t eu_end);
KX_API kx_pose_t kx_algo_tool2end(kx_robot_handle* handle, kx_pose_t eu_tool);
KX_API kx_pose_t kx_algo_cartesian_tool(kx_robot_handle* handle, const float* curr_joint, float move_lengthx,
                                        float move_lengthy, float move_lengthz);
KX_API kx_pose_t kx_algo_rotate_move(kx_robot_handle* handle, const float* const curr_joint, int rotate_axis,
                                     float rotate_angle, kx_pose_t choose_axis);
KX_API kx_pose_t kx_algo_pose_move(kx_robot_handle* handle, kx_pose_t poseCurrent, const float* deltaPosAndRot,
                                   int frameMode);
KX_API kx_dh_t kx_algo_get_dh(void);
KX_API void kx_algo_set_dh(kx_dh_t dh);

#ifdef __cplusplus
}
#endif

#endif /* KX_INTERFACE_H */
