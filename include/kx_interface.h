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

/* ---- force sensor data and calibration --------------------------------- */

/** Reads the six-axis force sensor: raw, zeroed, work-frame and tool-frame values (N, N·m; 6 each).
 *  Blocks at most 500 ms. 0 read; -1 unknown handle or send failure; -2 no reply; -3 reply not decodable. */
KX_API int kx_get_force_data(kx_robot_handle* handle, kx_force_data_t* data);
/** Zeroes the six-axis force sensor. Blocks at most 500 ms.
 *  0 done; 1 refused (for example no six-axis sensor); -1 unknown handle or send failure; -2 no reply; -3 undecodable reply. */
KX_API int kx_clear_force_data(kx_robot_handle* handle);
/** Starts the automatic calibration of the six-axis sensor. With block, waits up to 30 s for the outcome:
 *  0 calibrated; 1 refused; -2 no outcome within 30 s; -3 undecodable. Without block, returns 0 about 10 ms
 *  after sending. -1 unknown handle or send failure. */
KX_API int kx_set_force_sensor(kx_robot_handle* handle, bool block);
/** Sends calibration pose `count` (1..4) of a manual six-axis calibration; `joint` holds the arm's joint count of
 *  angles in degrees. Only pose 4 with block waits, up to 30 s. 0 sent (or calibrated); 1 refused; -1 unknown
 *  handle, send failure, joint count not 6 or 7 or null joint; -2 no outcome within 30 s; -3 undecodable;
 *  -4 count outside 1..4 (nothing sent). */
KX_API int kx_manual_set_force(kx_robot_handle* handle, int count, float* joint, bool block);
/** Stops a running sensor calibration. Blocks at most 500 ms.
 *  0 stopped; 1 refused; -1 unknown handle or send failure; -2 no reply; -3 undecodable. */
KX_API int kx_stop_set_force_sensor(kx_robot_handle* handle);
/** Reads the one-axis (Fz) sensor, newtons. Blocks at most 500 ms.
 *  0 read; -1 unknown handle or send failure; -2 no reply; -3 undecodable; -4 the arm has no one-axis sensor (nothing sent). */
KX_API int kx_get_Fz(kx_robot_handle* handle, kx_fz_data_t* data);
/** Zeroes the one-axis sensor. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_clear_Fz(kx_robot_handle* handle);
/** Starts the automatic calibration of the one-axis sensor. With block, waits up to 30 s for the outcome:
 *  0 calibrated; 1 refused (for example no one-axis sensor); -2 no outcome within 30 s; -3 undecodable. Without
 *  block, returns 0 about 10 ms after sending. -1 unknown handle or send failure. */
KX_API int kx_auto_set_Fz(kx_robot_handle* handle, bool block);
/** Manual calibration of the one-axis sensor from two poses (the arm's joint count of angles each, degrees). With
 *  block, waits up to 30 s: 0 calibrated; 1 refused; -2 no outcome within 30 s; -3 undecodable. Without block,
 *  returns 0 about 10 ms after sending. -1 unknown handle, send failure, joint count not 6 or 7, a null pose or a
 *  non-finite angle. */
KX_API int kx_manual_set_Fz(kx_robot_handle* handle, float* joint1, float* joint2, bool block);

/* ---- drag teaching and trajectory saving ------------------------------- */

/** Starts drag teaching; trajectory_record 1 has the controller record the path. Blocks at most 500 ms.
 *  0 started; 1 refused; -1 unknown handle or send failure; -2 no reply; -3 undecodable. */
KX_API int kx_start_drag_teach(kx_robot_handle* handle, int trajectory_record);
/** Stops drag teaching. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_stop_drag_teach(kx_robot_handle* handle);
/** Starts multi-frame drag teaching in `mode`. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_start_multi_drag_teach(kx_robot_handle* handle, int mode, int singular_wall);
/** Starts multi-frame drag teaching with per-axis freedom; free_axes and singular_wall are sent only to six-axis
 *  force arms (a warning is logged otherwise). Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_start_multi_drag_teach_new(kx_robot_handle* handle, kx_multi_drag_teach_t teach_state);
/** Sets the drag sensitivity grade. Blocks at most 1000 ms. 0 set; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_set_drag_teach_sensitivity(kx_robot_handle* handle, int grade);
/** Reads the drag sensitivity grade. Blocks at most 500 ms. 0 read; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_get_drag_teach_sensitivity(kx_robot_handle* handle, int* grade);
/** Moves to the start of the recorded path. block 0 returns about 10 ms after sending (0 sent, -1 not sent);
 *  otherwise waits without time limit for the motion's end: 0 arrived; 1 the motion failed; -3 event undecodable;
 *  -4 another device's motion ended; a failing trajectory query's own code; in single mode -3. */
KX_API int kx_drag_trajectory_origin(kx_robot_handle* handle, int block);
/** Replays the recorded path. timeout 0: returns 0 once sent. Otherwise (seconds): the call pauses `timeout` s,
 *  waits while the replay runs and then up to 1 s for the verdict: 0 done; 1 refused; -1 send failure or unknown
 *  handle; -2 no verdict; -3 undecodable. */
KX_API int kx_run_drag_trajectory(kx_robot_handle* handle, int timeout);
/** Pauses the replay. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_pause_drag_trajectory(kx_robot_handle* handle);
/** Continues a paused replay. Blocks at most 500 ms. 0 done; 1 refused (nothing replaying, or not paused); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_continue_drag_trajectory(kx_robot_handle* handle);
/** Stops the replay. Blocks at most 500 ms. 0 done; 1 refused (nothing replaying, or not paused); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_stop_drag_trajectory(kx_robot_handle* handle);
/** Saves the recorded path to `file_name` (one JSON point line per sample, CR LF ends); `*num` receives the number
 *  of points announced. One save at a time per process. Blocks 2 s plus the streaming time (threaded modes) or
 *  until 2 s of silence after the last point (single mode). 0 saved; 1 refused; -1 send failure or unknown
 *  handle; -2 no reply; -3 undecodable reply or negative count; -4 the file could not be opened; -6 no point
 *  within 2 s, a malformed point, or (single mode) the file was closed meanwhile. */
KX_API int kx_save_trajectory(kx_robot_handle* handle, const char* file_name, int* num);

/* ---- force-position control ------------------------------------------- */

/** Starts static force-position control along `direction` with force N (newtons; truncated, then ×10 on the wire).
 *  Blocks at most 500 ms. 0 started; 1 refused; -1 unknown handle, send failure or non-finite N; -2 no reply; -3 undecodable. */
KX_API int kx_set_force_position(kx_robot_handle* handle, int sensor, int mode, int direction, float N);
/** Starts static force-position control with per-axis parameters (forces ×10 then truncated, velocity limits ×1000).
 *  Blocks at most 500 ms. 0 started; 1 refused; -1 unknown handle, send failure or a non-finite value; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_set_force_position_new(kx_robot_handle* handle, kx_force_position_t param);
/** Ends static force-position control. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_stop_force_position(kx_robot_handle* handle);
/** Sets the force drag mode. Blocks at most 1000 ms. 0 set; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable; -4 the arm has no force sensor (nothing sent). */
KX_API int kx_set_force_drag_mode(kx_robot_handle* handle, int mode);
/** Reads the force drag mode. Blocks at most 500 ms. 0 read; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable; -4 the arm has no force sensor (nothing sent). */
KX_API int kx_get_force_drag_mode(kx_robot_handle* handle, int* mode);
/** Enters force-position streaming. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_start_force_position_move(kx_robot_handle* handle);
/** Leaves force-position streaming. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_stop_force_position_move(kx_robot_handle* handle);
/** Streams a joint target (joint count angles, degrees) with force (N, truncated then ×10). Never waits.
 *  0 sent; -1 unknown handle, send failure, null joint or joint count not 6 or 7. */
KX_API int kx_force_position_move_joint(kx_robot_handle* handle, const float* joint, int sensor, int mode, int dir,
                                        float force, bool follow);
/** Streams a Cartesian target: "pose_quat" when the quaternion is nearly unit, else position and Euler angles.
 *  Never waits. 0 sent; -1 unknown handle or send failure. */
KX_API int kx_force_position_move_pose(kx_robot_handle* handle, kx_pose_t pose, int sensor, int mode, int dir,
                                       float force, bool follow);
/** Streams one full force-position target (joint when param.flag is 0, else Cartesian); an out-of-range radio only
 *  warns. Never waits. 0 sent; -1 unknown handle, send failure or joint count not 6 or 7. */
KX_API int kx_force_position_move(kx_robot_handle* handle, kx_force_position_move_t param);

/* ---- program upload and run -------------------------------------------- */

/** Uploads a program file (or, with project_type set, converts a drag-teach trajectory file into one first, saved
 *  beside it under a time-stamped name) in 100-byte chunks paced 2 ms apart, and has the controller run or save it.
 *  Blocks 500 ms for the announcement, 2 ms per chunk, then up to 2 s for the acknowledgement. `*err_line` gets the
 *  refused line number, or -1 when accepted. 0 accepted; 1 refused; -1 unknown handle or announcement not sent;
 *  -2 no reply; -3 undecodable reply; -5 the local file could not be opened, sized, allocated or read.
 *  A missing trajectory file ends the process with status 1 (see countLinesInFile). */
KX_API int kx_send_project(kx_robot_handle* handle, kx_send_project_t project, int* err_line);
/** Sends program text held in memory (data_len bytes, 10-byte pieces, no announcement) and waits up to 10 s for
 *  the acknowledgement. Codes and err_line as kx_send_project (no -5). */
KX_API int kx_send_project_lock(kx_robot_handle* handle, const char* data, int data_len, int* err_line);
/** Announces a program of file_size bytes named project.project_path. Blocks at most 500 ms.
 *  0 accepted; 1 refused; -1 unknown handle or send failure; -2 no reply; -3 undecodable. */
KX_API int kx_run_project(kx_robot_handle* handle, kx_send_project_t project, int file_size);
/** The local time as "hh_mm_ss" in a static buffer shared by all callers. Never fails. */
KX_API char* kx_get_cur_times(void);
/** Writes the program file project_path from the drag-teach trajectory file file_path (two header lines, then the
 *  points). Reports failures on standard output and returns; ends the process (status 1) when file_path cannot be opened. */
KX_API void add_lines_to_file(kx_robot_handle* handle, const char* file_path, const char* project_path);
/** Number of 1024-byte line reads of a text file. Ends the whole process with exit status 1 when the file cannot be opened. */
KX_API int countLinesInFile(const char* filename);

/* ---- program library --------------------------------------------------- */

/** Sets the planning speed ratio of the running program. Blocks at most 500 ms. 0 done; 1 refused; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_set_plan_speed(kx_robot_handle* handle, int speed);
/** Reads one page of the program library (at most 100 entries; vague_search null for all). Blocks at most 500 ms.
 *  0 read; -1 unknown handle, send failure or null record; -2 no reply; -3 undecodable. */
KX_API int kx_get_program_trajectory_list(kx_robot_handle* handle, int page_num, int page_size,
                                          const char* vague_search, kx_program_trajectorys_t* trajectorys);
/** Reads the program run state. Blocks at most 500 ms. 0 read; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_get_program_run_state(kx_robot_handle* handle, kx_program_run_state_t* run_state);
/** Deletes stored program `id`. Blocks at most 500 ms. 0 done; 1 refused (for example no such program or waypoint); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_delete_program_trajectory(kx_robot_handle* handle, int id);
/** Renames and re-speeds stored program `id`. Blocks at most 500 ms. 0 done; 1 refused (for example no such program or waypoint); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_update_program_trajectory(kx_robot_handle* handle, int id, int speed, const char* name);
/** Sets the program run by default. Blocks at most 500 ms. 0 done; 1 refused (for example no such program or waypoint); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_set_default_run_program(kx_robot_handle* handle, int id);
/** Reads the program run by default. Blocks at most 500 ms. 0 read; -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_get_default_run_program(kx_robot_handle* handle, int* id);
/** Starts stored program `id` (speed 0 keeps its own). block 0 returns the verdict; otherwise waits for its
 *  "program_run_finish" (single mode: block is the timeout in seconds; threaded modes: without limit).
 *  0 started (block 0) or finished; 1 refused (no such program, or one is running); -1 unknown handle or send
 *  failure; -2 no reply to the start in time; -3 reply not decodable; -4 no finish message, or another program finished. */
KX_API int kx_set_program_id_run(kx_robot_handle* handle, int id, int speed, int block);

/* ---- global waypoints -------------------------------------------------- */

/** Stores a global waypoint; its time is stamped with the local time. Blocks at most 500 ms.
 *  0 stored; 1 refused (for example the name exists already, or does not exist for an update); -1 unknown handle, send failure, joint count not 6 or 7 or a non-finite value; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_add_global_waypoint(kx_robot_handle* handle, kx_waypoint_t waypoint);
/** Replaces the global waypoint of the same name; codes as kx_add_global_waypoint (1: no waypoint of that name). */
KX_API int kx_update_global_waypoint(kx_robot_handle* handle, kx_waypoint_t waypoint);
/** Deletes a global waypoint. Blocks at most 500 ms. 0 done; 1 refused (for example no such program or waypoint); -1 unknown handle or send failure; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_delete_global_waypoint(kx_robot_handle* handle, const char* point_name);
/** Reads one global waypoint. Blocks at most 500 ms. 0 read; 1 no such waypoint; -1 unknown handle, send failure or joint
 *  count not 6 or 7; -2 no reply; -3 undecodable. */
KX_API int kx_get_given_global_waypoint(kx_robot_handle* handle, const char* name, kx_waypoint_t* point);
/** Reads one page of global waypoints (at most 100; vague_search null for all). Blocks at most 2000 ms.
 *  0 read; 1 refused ("get_state" false, for example a bad page); -1 unknown handle, send failure or joint count
 *  not 6 or 7; -2 no reply in time; -3 reply not decodable. */
KX_API int kx_get_global_waypoints_list(kx_robot_handle* handle, int page_num, int page_size,
                                        const char* vague_search, kx_waypoint_list_t* point_list);

/* ---- peripherals: controller and tool I/O ---------------------------
 * One request, one reply, 500 ms (m_nOutTime) unless stated. Results: 0 done,
 * 1 refused (or a rejected argument where stated), -1 unknown handle, null
 * pointer or send failure, -2 no reply in time, -3 reply not decodable. */

/** Sets the mode of controller I/O channel `io_num` (0..4); `config.io_mode` 0..14,
 *  mode 14 also sends its realtime speed and mode. Returns 1 without sending when
 *  `io_num` or the mode is out of range (logs "input param error..."). Blocks up to 500 ms. */
KX_API int kx_set_IO_mode(kx_robot_handle* handle, int io_num, kx_io_config_t config);
/** Sets digital output `io_num` to `state` (0/1). Generic results; blocks up to 500 ms. */
KX_API int kx_set_DO_state(kx_robot_handle* handle, int io_num, int state);
/** Reads state and mode of channel `io_num` (0..4; otherwise 1 without sending). Below
 *  mode 14 speed and mode read -1. -3 when a value is missing or negative. Up to 500 ms. */
KX_API int kx_get_IO_state(kx_robot_handle* handle, int io_num, kx_io_get_t* config);
/** Reads the four digital inputs into `DI_state[0..3]`. Generic results; up to 500 ms. */
KX_API int kx_get_IO_input(kx_robot_handle* handle, int* DI_state);
/** Reads the four digital outputs into `DO_state[0..3]`. Generic results; up to 500 ms. */
KX_API int kx_get_IO_output(kx_robot_handle* handle, int* DO_state);
/** Selects the controller's I/O supply voltage (controller's type code). Up to 500 ms. */
KX_API int kx_set_voltage(kx_robot_handle* handle, int voltage_type);
/** Reads the I/O supply voltage type. Generic results; up to 500 ms. */
KX_API int kx_get_voltage(kx_robot_handle* handle, int* voltage_type);
/** Sets tool digital output `io_num` to `state`. Generic results; up to 500 ms. */
KX_API int kx_set_tool_DO_state(kx_robot_handle* handle, int io_num, int state);
/** Sets the mode of tool channel `io_num` (sent under "state"). Generic results; up to 500 ms. */
KX_API int kx_set_tool_IO_mode(kx_robot_handle* handle, int io_num, int io_mode);
/** Reads the tool's two channels: modes into `mode[0..1]`, states into `state[0..1]`. Up to 500 ms. */
KX_API int kx_get_tool_IO_state(kx_robot_handle* handle, int* mode, int* state);
/** Selects the tool supply voltage (controller's type code). Generic results; up to 500 ms. */
KX_API int kx_set_tool_voltage(kx_robot_handle* handle, int voltage_type);
/** Reads the tool supply voltage type. Generic results; up to 500 ms. */
KX_API int kx_get_tool_voltage(kx_robot_handle* handle, int* voltage_type);

/* ---- peripherals: RS485 and Modbus -----------------------------------
 * Nothing is checked on the client; port numbers, baud rates and timeouts
 * are the controller's. Registers travel as two integers (high byte, low
 * byte) per 16-bit register, coils as one integer per 8 coils. Results: 0
 * done, 1 refused or the device did not answer, -1 unknown handle, null
 * pointer or send failure, -2 no reply in time, -3 reply not decodable. */

/** Runs RS485 `port` as a Modbus RTU master at `baudrate` with the controller's `timeout`.
 *  Blocks up to 1000 ms (m_nOutTime_max). */
KX_API int kx_set_modbus_mode(kx_robot_handle* handle, int port, int baudrate, int timeout);
/** Ends Modbus RTU mode on `port`. Blocks up to 1000 ms. */
KX_API int kx_close_modbus_mode(kx_robot_handle* handle, int port);
/** Opens the Modbus TCP master link to the device at `ip`:`port`. Blocks up to 1000 ms. */
KX_API int kx_set_modbustcp_mode(kx_robot_handle* handle, const char* ip, int port, int timeout);
/** Closes the Modbus TCP master link. Blocks up to 1000 ms. */
KX_API int kx_close_modbustcp_mode(kx_robot_handle* handle);
/** Reads the controller RS485 port's mode, baud rate and Modbus timeout; outside Modbus RTU
 *  mode the timeout is absent from the reply and reads 0. Blocks up to 500 ms. */
KX_API int kx_get_controller_RS485_mode(kx_robot_handle* handle, int* mode, int* baudrate, int* timeout);
/** The same for the tool's RS485 port. Blocks up to 500 ms. */
KX_API int kx_get_tool_RS485_mode(kx_robot_handle* handle, int* mode, int* baudrate, int* timeout);
/** Reads `params.num` coils from `params.address` into `*data` (bits, first coil lowest).
 *  1 when the controller reports the read failed. Blocks up to 1000 ms. */
KX_API int kx_read_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Reads `params.num` discrete inputs into `*data`, as kx_read_coils. Blocks up to 1000 ms. */
KX_API int kx_read_input_status(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Reads one holding register into `*data` (`params.num` unused). Blocks up to 1000 ms. */
KX_API int kx_read_holding_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Reads one input register into `*data` (`params.num` unused). Blocks up to 1000 ms. */
KX_API int kx_read_input_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Writes one coil (`data` 0/1). Blocks up to 3000 ms. */
KX_API int kx_write_single_coil(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int data);
/** Writes one holding register. Blocks up to 1000 ms. */
KX_API int kx_write_single_register(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int data);
/** Writes `params.num` registers from `data` (`num` x 2 byte values, high byte first).
 *  Blocks up to 1000 ms. */
KX_API int kx_write_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Writes `params.num` coils from `data`, one byte value per 8 coils: `num` / 8 entries are
 *  sent (integer division; a partial last byte is not sent). Blocks up to 3000 ms. */
KX_API int kx_write_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Reads `params.num` coils as byte values; `num` / 8 entries are delivered into `data`
 *  (integer division: a partial last byte is dropped). Blocks up to 3000 ms. */
KX_API int kx_read_multiple_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data);
/** Reads `params.num` holding registers into `data` (`num` x 2 byte values, at most 24).
 *  Blocks up to 1000 ms. */
KX_API int kx_read_multiple_holding_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params,
                                              int* data);
/** Reads `params.num` input registers into `data`, as the holding registers. Up to 1000 ms. */
KX_API int kx_read_multiple_input_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params,
                                            int* data);

/* ---- peripherals: gripper, hand, lift, expansion axis -----------------
 * Blocking forms wait for the "current_trajectory_state" event of their own
 * device (1 gripper, 2 hand, 3 lift, 4 expansion axis); `timeout` of the
 * gripper and hand is in seconds. Units and ranges are the controller's. */

/** Sets the gripper's opening range `min_limit`..`max_limit`. 0, 1 refused, -1, -2, -3.
 *  Blocks up to 1000 ms. */
KX_API int kx_set_gripper_route(kx_robot_handle* handle, int min_limit, int max_limit);
/** Opens the gripper at `speed`. With `block` false and `timeout` 0 the command is sent without
 *  reading a reply (returns 0 or -1 after about 1 s). Otherwise the acceptance is awaited (1000 ms;
 *  -1, -2, -3) and, when `block` is false, returned (0 or 1 refused). When `block` is true the
 *  completion is awaited up to `timeout` s: 0 finished, 1 the gripper reported failure, -3 event not
 *  decodable, -4 no completion in time, -5 another device finished. */
KX_API int kx_set_gripper_release(kx_robot_handle* handle, int speed, bool block, int timeout);
/** Closes the gripper at `speed` until `force` is reached; results and waits as kx_set_gripper_release. */
KX_API int kx_set_gripper_pick(kx_robot_handle* handle, int speed, int force, bool block, int timeout);
/** Closes the gripper and keeps holding with `force`; results and waits as kx_set_gripper_release. */
KX_API int kx_set_gripper_pick_on(kx_robot_handle* handle, int speed, int force, bool block, int timeout);
/** Moves the fingers to `position`; results and waits as kx_set_gripper_release (the -4 timeout
 *  also logs "[kx_set_gripper_position] timeout error"). */
KX_API int kx_set_gripper_position(kx_robot_handle* handle, int position, bool block, int timeout);
/** Reads the gripper's state. 0, -1, -2, -3; blocks up to 500 ms. */
KX_API int kx_get_gripper_state(kx_robot_handle* handle, kx_gripper_state_t* state);
/** Runs stored hand posture `posture_num`. The acceptance is awaited (1000 ms) and returned when
 *  `block` is false (0, 1 refused, -1, -2, -3). When `block` is true the completion is awaited up to
 *  `timeout` s: 0 finished, 1 the hand reported failure, -3 event not decodable, -4 another device
 *  finished, -5 no completion in time. */
KX_API int kx_set_hand_posture(kx_robot_handle* handle, int posture_num, bool block, int timeout);
/** Runs stored hand sequence `seq_num`; results and waits as kx_set_hand_posture. */
KX_API int kx_set_hand_seq(kx_robot_handle* handle, int seq_num, bool block, int timeout);
/** Sets the six finger angles `hand_angle[0..5]`. 0, 1, -1, -2, -3; blocks up to 1000 ms. */
KX_API int kx_set_hand_angle(kx_robot_handle* handle, const int* hand_angle);
/** Streams six finger angles. With `block` the echo is awaited 20 ms (0, 1, -1, -2, -3);
 *  without, the send code is returned at once (0 or -1). */
KX_API int kx_set_hand_follow_angle(kx_robot_handle* handle, const int* hand_angle, bool block);
/** Streams six finger positions `hand_pos[0..5]`; as kx_set_hand_follow_angle. */
KX_API int kx_set_hand_follow_pos(kx_robot_handle* handle, const int* hand_pos, bool block);
/** Sets the hand's speed. 0, 1, -1, -2, -3; blocks up to 1000 ms. */
KX_API int kx_set_hand_speed(kx_robot_handle* handle, int speed);
/** Sets the hand's force threshold. 0, 1, -1, -2, -3; blocks up to 1000 ms. */
KX_API int kx_set_hand_force(kx_robot_handle* handle, int hand_force);
/** Runs the lift at `speed` (signed; 0 stops). 0, 1, -1, -2, -3; blocks up to 500 ms. */
KX_API int kx_set_lift_speed(kx_robot_handle* handle, int speed);
/** Moves the lift to `height` at `speed`. With `block` 0 returns the acceptance (0, 1, -1, -2, -3);
 *  otherwise waits without time limit for the lift's completion: 0 arrived, 1 refused or failed,
 *  -3 undecodable, -4 another device finished, or the state query's code after 6 failures.
 *  In single-thread mode the wait is the single-mode step (-3 or -5). */
KX_API int kx_set_lift_height(kx_robot_handle* handle, int speed, int height, int block);
/** Reads the lift's state (height into `pos`). 0, -1, -2, -3; blocks up to 500 ms. */
KX_API int kx_get_lift_state(kx_robot_handle* handle, kx_expand_state_t* state);
/** Reads the expansion axis's state. 0, -1, -2, -3; blocks up to 500 ms. */
KX_API int kx_get_expand_state(kx_robot_handle* handle, kx_expand_state_t* state);
/** Runs the expansion axis at `speed` (signed; 0 stops). 0, 1, -1, -2, -3; up to 500 ms. */
KX_API int kx_set_expand_speed(kx_robot_handle* handle, int speed);
/** Moves the expansion axis to `pos` at `speed`; results and waits as kx_set_lift_height. */
KX_API int kx_set_expand_pos(kx_robot_handle* handle, int speed, int pos, int block);

/* ---- safety zones: electronic fences, virtual wall, self-collision ----
 * Geometry is in metres and travels as thousandths (truncated toward zero).
 * Results: 0 done, 1 refused, -1 unknown handle, null pointer or send
 * failure, -2 no reply within 500 ms, -3 reply not decodable, -4 where
 * stated. Each blocks up to 500 ms. */

/** Stores a new named fence of form 1 cube, 2 plane or 3 sphere. -4 without sending for another
 *  form. The cube's "z_min_limit" carries `cube.x_min_limit`, as the controller expects. */
KX_API int kx_add_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config);
/** Replaces the stored fence of the same name; as kx_add_electronic_fence_config. */
KX_API int kx_update_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config);
/** Deletes the stored fence `form_name`. 1 when the controller refuses (unknown name). */
KX_API int kx_delete_electronic_fence_config(kx_robot_handle* handle, const char* form_name);
/** Lists the stored fence names into `names` (10 entries), their count into `*len`;
 *  a name of 12 characters is not zero-terminated. -3 with a log line when the list is unusable. */
KX_API int kx_get_electronic_fence_list_names(kx_robot_handle* handle, kx_fence_names_t* names, int* len);
/** Reads the stored fence `name` into `config`. 1 when no such fence exists. */
KX_API int kx_get_given_electronic_fence_config(kx_robot_handle* handle, const char* name, kx_fence_config_t* config);
/** Reads every stored fence into `config_list` (10 entries), their count into `*len`. */
KX_API int kx_get_electronic_fence_list_infos(kx_robot_handle* handle, kx_fence_config_list_t* config_list,
                                              int* len);
/** Enables or disables the active electronic fence, with its side and region codes. */
KX_API int kx_set_electronic_fence_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t state);
/** Reads whether the active electronic fence is enforced. */
KX_API int kx_get_electronic_fence_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t* state);
/** Sets the active fence: form 1 cube or 2 plane; form 3 returns -4 without sending; any other
 *  form sends the form alone. */
KX_API int kx_set_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config);
/** Reads the active fence (forms 1 and 2 carry geometry). 1 when the controller has none. */
KX_API int kx_get_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t* config);
/** Enables or disables the virtual wall, with its side and region codes. */
KX_API int kx_set_virtual_wall_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t state);
/** Reads whether the virtual wall is enforced. */
KX_API int kx_get_virtual_wall_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t* state);
/** Sets the virtual wall: form 1 cube or 3 sphere; form 2 logs an error and, like any other form,
 *  sends the form alone. */
KX_API int kx_set_virtual_wall_config(kx_robot_handle* handle, kx_fence_config_t config);
/** Reads the virtual wall (forms 1 and 3 carry geometry). 1 when the controller has none. */
KX_API int kx_get_virtual_wall_config(kx_robot_handle* handle, kx_fence_config_t* config);
/** Switches self-collision detection on or off. */
KX_API int kx_set_self_collision_enable(kx_robot_handle* handle, bool state);
/** Reads whether self-collision detection is on. */
KX_API int kx_get_self_collision_enable(kx_robot_handle* handle, bool* state);

#ifdef __cplusplus
}
#endif

#endif /* KX_INTERFACE_H */
