/**
 * @file kx_interface.h
 * @brief libapi_c: commanding and monitoring networked robot-arm controllers.
 *
 * Call kx_init() once, connect each arm with kx_create_robot_arm(), pass the
 * returned handle to the calls below, and end with kx_destory().
 *
 * Result codes of every @c int function: 0 success; 1 the controller refused
 * the request; -1 unknown handle, invalid argument, or the request could not
 * be sent; -2 no reply within the timeout; -3 the reply could not be decoded;
 * -4 to -6 operation-specific, as each function states.
 *
 * Units: joint angles in degrees, positions in metres, Euler angles in
 * radians (fixed-axis roll-pitch-yaw, R = Rz(rz)·Ry(ry)·Rx(rx)), speeds in
 * percent of the maximum. Joint arrays hold 7 floats, of which the arm's
 * joint count (6 or 7) is used.
 *
 * Blocking: a command waits for its reply on the caller's thread, at most
 * the reply timeout (500 ms unless a function says otherwise); calls on
 * several connections may run at once from several threads. Event and
 * realtime callbacks run on one library dispatch thread, in arrival order;
 * kx_destory() waits at most half a second for a callback still running.
 */
#ifndef KX_INTERFACE_H
#define KX_INTERFACE_H

#include "kx_define.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- lifecycle -------------------------------------------------------- */
/** Starts the library; call once before anything else.
 *
 * The thread mode decides which threads run: ::KX_SINGLE_MODE_E none (each
 * call reads its own reply), ::KX_DUAL_MODE_E the TCP receive thread,
 * ::KX_TRIPLE_MODE_E also the UDP receive thread for realtime state.
 * @param mode thread mode.
 * @retval 0 started.
 * @retval -1 a receive thread could not be created (logged).
 * @par Blocking
 * No network traffic; returns at once.
 */
KX_API int kx_init(kx_thread_mode_e mode);
/** The library's version, "MAJOR.MINOR.PATCH" (::KX_API_VERSION_STRING).
 * Static storage; valid at any time, even before kx_init().
 */
KX_API const char* kx_api_version(void);
/** Connects to one controller and reads its configuration.
 *
 * Takes the lowest of five free slots, connects over TCP, then reads the
 * software information (model, joint count, force edition), the realtime
 * push configuration, the current work and tool frames, the installation
 * pose, joint limits, accelerations and speeds and the DH parameters, caches
 * them and loads them into the local kinematics.
 * @param ip controller IPv4 address, dotted quad.
 * @param port controller TCP port.
 * @return the handle to pass to every other call. Its @c id is the slot + 1
 *   (1 to 5) on success and -1 when the connection or the synchronisation
 *   failed (logged); a failed handle keeps its slot until kx_delete_robot_arm()
 *   or kx_destory(). NULL when all five slots are taken. Never free it.
 * @par Blocking
 * Up to 3 s for the connection, then ten queries of at most 500 ms each
 * (1 s for the DH parameters).
 */
KX_API kx_robot_handle* kx_create_robot_arm(const char* ip, int port);
/** Closes one connection and frees its slot. The handle is invalid afterwards.
 * @param handle a handle returned by kx_create_robot_arm() (the very pointer, not a copy).
 * @retval 0 closed.
 * @retval -1 no connection has this handle (logged "not find handle").
 * @par Blocking
 * Waits until no other call is using the connection; no network traffic.
 */
KX_API int kx_delete_robot_arm(kx_robot_handle* handle);
/** Shuts the library down: stops and joins the receive threads and closes
 * every connection. kx_init() may be called again afterwards.
 * @retval 0 always.
 * @par Blocking
 * Until the receive threads have ended (they notice the stop at once), and
 * at most half a second more for a callback still running.
 */
KX_API int kx_destory(void);
/** Joint count, model and force edition of a connection, from its cache.
 * @param handle connection.
 * @param out filled on success.
 * @retval 0 filled.
 * @retval -1 unknown handle.
 * @retval -2 the model is not known (the synchronisation failed).
 * @par Blocking
 * No network traffic.
 */
KX_API int kx_get_robot_info(kx_robot_handle* handle, kx_robot_info_t* out);
/** Joint count (6 or 7) of a connection, from its cache.
 * @param handle connection.
 * @param dof receives 6 or 7.
 * @retval 0 filled.
 * @retval -1 unknown handle, or the joint count is not known.
 * @par Blocking
 * No network traffic.
 */
KX_API int kx_get_arm_dof(kx_robot_handle* handle, int* dof);

/* ---- logging and callbacks -------------------------------------------- */
/** Sends the library's messages to @p cb instead of standard error.
 * @param cb receives each message's printf format and its arguments; called
 *   on whichever thread logs (the caller's or a receive thread).
 * @param level lowest ::LogLevel passed on (by default only errors are written).
 */
KX_API void kx_set_log_call_back(LogCallback cb, int level);
/** Also appends every message, of every level, to the file at @p path.
 * @param path log file, opened for appending.
 * @warning When the file cannot be opened the library prints the error and
 * ends the process with status 1.
 */
KX_API void kx_set_log_save(const char* path);
/** Registers the callback for controller events (a motion finished,
 * a program finished). Events of every connection arrive here; @c handle_id
 * tells them apart. NULL is ignored (the previous callback stays).
 * @param event_callback called on the library's dispatch thread, one call at
 *   a time in arrival order (in single mode, on the thread of the call that
 *   reads the event). It may call any library function.
 */
KX_API void kx_get_arm_event_call_back(kx_event_callback_ptr event_callback);
/** Registers the callback for realtime state datagrams
 * (::KX_TRIPLE_MODE_E only). Datagrams of every arm arrive here; @c arm_ip
 * tells them apart. NULL is ignored (the previous callback stays).
 * @param realtime_callback called on the library's dispatch thread (shared
 *   with the event callback), once per datagram in arrival order. A slow
 *   callback delays no reading: while 1024 calls are pending, further
 *   datagrams are dropped and counted in the error log. It may call any
 *   library function.
 */
KX_API void kx_realtime_arm_state_call_back(kx_realtime_arm_state_callback_ptr realtime_callback);

/* ---- generic commands ------------------------------------------------- */
/** Generic integer query: sends {"command": cmd_str} and reads the
 * integer member @p valua_str of the reply named @p cmd_str.
 * @param handle connection.
 * @param data receives the integer.
 * @param cmd_str command name.
 * @param valua_str reply member to read.
 \rc_get \blocks{500}
 */
KX_API int kx_get_data_common(kx_robot_handle* handle, int* data, char* cmd_str, char* valua_str);
/** Generic integer setting: sends {"command": cmd_str, valua_str: data}
 * and reads the verdict "set_state" of the reply named @p cmd_str.
 * @param handle connection.
 * @param data value sent.
 * @param cmd_str command name.
 * @param valua_str request member name.
 \rc_set \blocks{1000}
 */
KX_API int kx_set_data_common(kx_robot_handle* handle, int data, char* cmd_str, char* valua_str);

/* ---- realtime push ---------------------------------------------------- */
/** Configures the controller's realtime state push, then reads the
 * configuration back and registers its UDP port with the library.
 * @param handle connection.
 * @param config cycle (ms, 1 and above), enable, port (1 to 65535), force
 *   coordinate (-1 = not sent), destination ip, and which optional members
 *   the datagram carries (-1 = not sent).
 * @retval 0 applied.
 * @retval 1 refused by the controller.
 * @retval -4 invalid cycle, port or ip (logged, nothing sent).
 \rc_common \blocks{1000}
 */
KX_API int kx_set_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t config);
/** Reads the realtime push configuration and registers its UDP port
 * with the library (triple mode), so that its datagrams reach the callback.
 * @param handle connection.
 * @param config filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t* config);

/* ---- moves ------------------------------------------------------------ */
/** Joint-space move to joint angles.
 * @param joint target angles, degrees, one per joint (6 or 7 read).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block 0 returns once the controller accepted the motion (its
 *   completion arrives as an event); non-zero waits until the arm has finished.
 * @retval 0 accepted (block 0) or finished (block non-zero).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0 in the blocking form.
 \rc_common
 * @par Blocking
 * Non-blocking: at most 500 ms for the controller's acceptance. Blocking:
 * until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movej(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block);
/** Joint-space move to joint angles. Returns once the controller accepted it (kx_movej with block 0).
 * @param joint target angles, degrees, one per joint (6 or 7 read).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @retval 0 the controller accepted the motion (its completion arrives as an event).
 * @retval 1 the controller refused the motion.
 *  \rc_common
 * @note -1 also when the joint count is not 6 or 7; nothing is sent then.
 * @par Blocking
 * At most 500 ms for the controller's acceptance; the motion is not waited for.
 */
KX_API int kx_movej_nblock(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect);
/** Joint-space move to joint angles. Waits until the arm has finished (kx_movej with block non-zero).
 * @param joint target angles, degrees, one per joint (6 or 7 read).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block the motion is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 * @retval 0 the motion finished (or, with trajectory_connect 1, was accepted).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 \rc_common
 * @par Blocking
 * Until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movej_block(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block);
/** Straight-line move of the tool to a pose.
 * @param pose target: position (metres) and Euler angles (radians) are sent.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block 0 returns once the controller accepted the motion (its
 *   completion arrives as an event); non-zero waits until the arm has finished.
 * @retval 0 accepted (block 0) or finished (block non-zero).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0 in the blocking form.
 \rc_common
 * @par Blocking
 * Non-blocking: at most 500 ms for the controller's acceptance. Blocking:
 * until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movel(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Straight-line move of the tool to a pose. Returns once the controller accepted it (kx_movel with block 0).
 * @param pose target: position (metres) and Euler angles (radians) are sent.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @retval 0 the controller accepted the motion (its completion arrives as an event).
 * @retval 1 the controller refused the motion.
 *  \rc_common
 * @par Blocking
 * At most 500 ms for the controller's acceptance; the motion is not waited for.
 */
KX_API int kx_movel_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
/** Straight-line move of the tool to a pose. Waits until the arm has finished (kx_movel with block non-zero).
 * @param pose target: position (metres) and Euler angles (radians) are sent.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block the motion is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 * @retval 0 the motion finished (or, with trajectory_connect 1, was accepted).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 \rc_common
 * @par Blocking
 * Until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movel_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Spline move through this pose (one of a sequence joined by trajectory_connect 1).
 * @param pose next point: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block 0 returns once the controller accepted the motion (its
 *   completion arrives as an event); non-zero waits until the arm has finished.
 * @retval 0 accepted (block 0) or finished (block non-zero).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0 in the blocking form.
 \rc_common
 * @par Blocking
 * Non-blocking: at most 500 ms for the controller's acceptance. Blocking:
 * until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_moves(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Spline move through this pose (one of a sequence joined by trajectory_connect 1). Returns once the controller accepted it (kx_moves with block 0).
 * @param pose next point: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @retval 0 the controller accepted the motion (its completion arrives as an event).
 * @retval 1 the controller refused the motion.
 *  \rc_common
 * @par Blocking
 * At most 500 ms for the controller's acceptance; the motion is not waited for.
 */
KX_API int kx_moves_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
/** Spline move through this pose (one of a sequence joined by trajectory_connect 1). Waits until the arm has finished (kx_moves with block non-zero).
 * @param pose next point: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block the motion is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 * @retval 0 the motion finished (or, with trajectory_connect 1, was accepted).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 \rc_common
 * @par Blocking
 * Until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_moves_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Joint-space move to a tool pose.
 * @param pose target: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block 0 returns once the controller accepted the motion (its
 *   completion arrives as an event); non-zero waits until the arm has finished.
 * @retval 0 accepted (block 0) or finished (block non-zero).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0 in the blocking form.
 \rc_common
 * @par Blocking
 * Non-blocking: at most 500 ms for the controller's acceptance. Blocking:
 * until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movej_p(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Joint-space move to a tool pose. Returns once the controller accepted it (kx_movej_p with block 0).
 * @param pose target: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @retval 0 the controller accepted the motion (its completion arrives as an event).
 * @retval 1 the controller refused the motion.
 *  \rc_common
 * @par Blocking
 * At most 500 ms for the controller's acceptance; the motion is not waited for.
 */
KX_API int kx_movej_p_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect);
/** Joint-space move to a tool pose. Waits until the arm has finished (kx_movej_p with block non-zero).
 * @param pose target: position (metres) and Euler angles (radians).
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block the motion is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 * @retval 0 the motion finished (or, with trajectory_connect 1, was accepted).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 \rc_common
 * @par Blocking
 * Until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movej_p_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block);
/** Circular arc through a via pose.
 * @param pose_via a point on the arc.
 * @param pose_to the arc's end.
 * @param loop number of full circles, passed to the controller.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block 0 returns once the controller accepted the motion (its
 *   completion arrives as an event); non-zero waits until the arm has finished.
 * @retval 0 accepted (block 0) or finished (block non-zero).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0 in the blocking form.
 @retval -6 trajectory_connect is neither 0 nor 1 (nothing sent).
 \rc_common
 * @par Blocking
 * Non-blocking: at most 500 ms for the controller's acceptance. Blocking:
 * until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movec(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                    int trajectory_connect, int block);
/** Circular arc; returns once accepted.
 * @param pose_via a point on the arc.
 * @param pose_to the arc's end.
 * @param loop number of full circles, passed to the controller.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @retval 0 the controller accepted the motion (its completion arrives as an event).
 * @retval 1 the controller refused the motion.
 *  @retval -6 trajectory_connect is neither 0 nor 1 (nothing sent).
 \rc_common
 * @par Blocking
 * At most 500 ms for the controller's acceptance; the motion is not waited for.
 */
KX_API int kx_movec_nblock(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                           int trajectory_connect);
/** Circular arc; waits until finished.
 * @param pose_via a point on the arc.
 * @param pose_to the arc's end.
 * @param loop number of full circles, passed to the controller.
 * @param handle connection.
 * @param v speed, percent of the maximum (1 to 100).
 * @param r blend radius, passed to the controller.
 * @param trajectory_connect 0: plan this motion now; 1: join it to the next one
 *   (it is then never waited for).
 * @param block the motion is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 * @retval 0 the motion finished (or, with trajectory_connect 1, was accepted).
 * @retval 1 the controller refused the motion, or reported it failed.
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 @retval -6 trajectory_connect is neither 0 nor 1 (nothing sent).
 \rc_common
 * @par Blocking
 * Until the motion ends (as long as the motion lasts), watching for the
 * completion event and querying the current trajectory meanwhile.
 */
KX_API int kx_movec_block(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                          int trajectory_connect, int block);

/* ---- streaming -------------------------------------------------------- */
/** Streams one joint target for the arm to follow directly (pass-through),
 * typically every few milliseconds.
 * @param handle connection.
 * @param config joint (degrees, one per joint), expansion axis target, follow
 *   flag, trajectory mode (0, 1, 2) and its coefficient radio.
 * @retval 0 the target was handed to the connection.
 * @retval -1 unknown handle, invalid argument, joint count not 6 or 7, or send failure.
 * @par Blocking
 * No reply is awaited; returns as soon as the target is sent.
 */
KX_API int kx_movej_canfd(kx_robot_handle* handle, kx_movej_canfd_mode_t config);
/** Streams one Cartesian target for the arm to follow directly.
 * A unit quaternion in the pose is sent with the position; otherwise the
 * Euler angles are.
 * @param handle connection.
 * @param config pose (metres, radians), follow flag, trajectory mode and radio.
 * @retval 0 the target was handed to the connection.
 * @retval -1 unknown handle, invalid argument, joint count not 6 or 7, or send failure.
 * @par Blocking
 * No reply is awaited; returns as soon as the target is sent.
 */
KX_API int kx_movep_canfd(kx_robot_handle* handle, kx_movep_canfd_mode_t config);
/** Streams one joint target in follow mode.
 * @param handle connection.
 * @param joint target angles, degrees, one per joint.
 * @retval 0 the target was handed to the connection.
 * @retval -1 unknown handle, invalid argument, joint count not 6 or 7, or send failure.
 * @par Blocking
 * No reply is awaited; returns as soon as the target is sent.
 */
KX_API int kx_movej_follow(kx_robot_handle* handle, float* joint);
/** Streams one Cartesian target in follow mode.
 * @param handle connection.
 * @param pose target, metres and radians.
 * @retval 0 the target was handed to the connection.
 * @retval -1 unknown handle, invalid argument, joint count not 6 or 7, or send failure.
 * @par Blocking
 * No reply is awaited; returns as soon as the target is sent.
 */
KX_API int kx_movep_follow(kx_robot_handle* handle, kx_pose_t pose);

/* ---- jogging, teaching, stopping -------------------------------------- */
/** Steps one joint by a relative angle.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param step degrees (signed).
 * @param v speed, percent.
 * @param block 0: send and return after about 500 ms without reading a reply
 *   (a refusal cannot be reported); non-zero: wait for the controller's
 *   acceptance and then for the end of the step.
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @par Blocking
 * Non-blocking: about 500 ms. Blocking: until the step ends.
 */
KX_API int kx_set_joint_step(kx_robot_handle* handle, int joint_num, float step, int v, int block);
/** Steps one joint by a relative angle.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param step degrees (signed).
 * @param v speed, percent.
 * @retval 0 the request was sent (no reply is read, so a refusal cannot be reported).
 * @retval -1 unknown handle, invalid argument, or the request could not be built or sent.
 * @par Blocking
 * Does not wait for the step: pauses about 500 ms (m_nOutTime) after sending, then returns.
 */
KX_API int kx_set_joint_step_nblock(kx_robot_handle* handle, int joint_num, float step, int v);
/** Steps one joint by a relative angle.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param step degrees (signed).
 * @param v speed, percent.
 * @param block the step is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 * @par Blocking
 * Until the step ends: waits for the controller's acceptance, then for the
 * end of the step, querying the current trajectory meanwhile.
 */
KX_API int kx_set_joint_step_block(kx_robot_handle* handle, int joint_num, float step, int v, int block);
/** Steps the tool along one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step metres (signed).
 * @param v speed, percent.
 * @param block 0: send and return after about 500 ms without reading a reply
 *   (a refusal cannot be reported); non-zero: wait for the controller's
 *   acceptance and then for the end of the step.
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @par Blocking
 * Non-blocking: about 500 ms. Blocking: until the step ends.
 */
KX_API int kx_set_pos_step(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block);
/** Steps the tool along one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step metres (signed).
 * @param v speed, percent.
 * @retval 0 the request was sent (no reply is read, so a refusal cannot be reported).
 * @retval -1 unknown handle, invalid argument, or the request could not be built or sent.
 * @par Blocking
 * Does not wait for the step: pauses about 500 ms (m_nOutTime) after sending, then returns.
 */
KX_API int kx_set_pos_step_nblock(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v);
/** Steps the tool along one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step metres (signed).
 * @param v speed, percent.
 * @param block the step is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 * @par Blocking
 * Until the step ends: waits for the controller's acceptance, then for the
 * end of the step, querying the current trajectory meanwhile.
 */
KX_API int kx_set_pos_step_block(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block);
/** Rotates the tool about one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step radians (signed).
 * @param v speed, percent.
 * @param block 0: send and return after about 500 ms without reading a reply
 *   (a refusal cannot be reported); non-zero: wait for the controller's
 *   acceptance and then for the end of the step.
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @par Blocking
 * Non-blocking: about 500 ms. Blocking: until the step ends.
 */
KX_API int kx_set_ort_step(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block);
/** Rotates the tool about one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step radians (signed).
 * @param v speed, percent.
 * @retval 0 the request was sent (no reply is read, so a refusal cannot be reported).
 * @retval -1 unknown handle, invalid argument, or the request could not be built or sent.
 * @par Blocking
 * Does not wait for the step: pauses about 500 ms (m_nOutTime) after sending, then returns.
 */
KX_API int kx_set_ort_step_nblock(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v);
/** Rotates the tool about one axis of the teach frame.
 * @param handle connection.
 * @param type axis.
 * @param step radians (signed).
 * @param v speed, percent.
 * @param block the step is always waited for; in single mode, the number of
 *   completion checks (0 returns -5).
 \rc_set
 * @retval -4 the motion that ended was another device's.
 * @retval -5 single mode with block 0.
 * @par Blocking
 * Until the step ends: waits for the controller's acceptance, then for the
 * end of the step, querying the current trajectory meanwhile.
 */
KX_API int kx_set_ort_step_block(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block);
/** Starts moving one joint continuously until kx_set_stop_teach().
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param direction 0 negative, 1 positive.
 * @param v speed, percent.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_teach(kx_robot_handle* handle, int joint_num, int direction, int v);
/** Starts moving the tool continuously along one axis until kx_set_stop_teach().
 * @param handle connection.
 * @param type axis.
 * @param direction 0 negative, 1 positive.
 * @param v speed, percent.
 \rc_set \blocks{500}
 */
KX_API int kx_set_pos_teach(kx_robot_handle* handle, kx_pos_teach_type_e type, int direction, int v);
/** Starts rotating the tool continuously about one axis until kx_set_stop_teach().
 * @param handle connection.
 * @param type axis.
 * @param direction 0 negative, 1 positive.
 * @param v speed, percent.
 \rc_set \blocks{500}
 */
KX_API int kx_set_ort_teach(kx_robot_handle* handle, kx_ort_teach_type_e type, int direction, int v);
/** Stops a continuous teach motion.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_stop_teach(kx_robot_handle* handle);
/** Chooses the frame the position and orientation steps and teaching use.
 * @param handle connection.
 * @param frame_type frame code, passed to the controller.
 \rc_set \blocks{500}
 */
KX_API int kx_set_teach_frame(kx_robot_handle* handle, int frame_type);
/** Reads the frame the steps and teaching use.
 * @param handle connection.
 * @param frame_type receives the frame code.
 \rc_get \blocks{500}
 */
KX_API int kx_get_teach_frame(kx_robot_handle* handle, int* frame_type);
/** Stops the running motion along its path, decelerating.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_slow_stop(kx_robot_handle* handle);
/** Stops the arm at once.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_stop(kx_robot_handle* handle);
/** Pauses the running motion; kx_set_arm_continue() resumes it.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_pause(kx_robot_handle* handle);
/** Resumes a paused motion.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_continue(kx_robot_handle* handle);
/** Discards the current trajectory (after a pause).
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_delete_current_trajectory(kx_robot_handle* handle);
/** Discards every queued trajectory (after a pause).
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_delete_trajectory(kx_robot_handle* handle);

/* ---- current trajectory ----------------------------------------------- */
/** Reads what the arm is executing now.
 * @param handle connection.
 * @param type receives the planning type (::KX_NO_PLANNING_E when idle).
 * @param data receives the current joints (degrees, one per joint) for joint
 *   planning, or the pose (x, y, z metres, rx, ry, rz radians) otherwise:
 *   room for 7 floats.
 \rc_get \blocks{1000}
 */
KX_API int kx_get_arm_current_trajectory(kx_robot_handle* handle, kx_arm_current_trajectory_e* type, float* data);

/* ---- joint and arm limits --------------------------------------------- */
/** Sets one joint's speed limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_speed degrees per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_max_speed(kx_robot_handle* handle, int joint_num, float max_speed);
/** Sets one joint's acceleration limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_acc degrees per second squared.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_max_acc(kx_robot_handle* handle, int joint_num, float max_acc);
/** Sets one joint's lower position limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param min_pos degrees.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_min_pos(kx_robot_handle* handle, int joint_num, float min_pos);
/** Sets one joint's upper position limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_pos degrees.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_max_pos(kx_robot_handle* handle, int joint_num, float max_pos);
/** Sets one joint drive's own speed limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_speed degrees per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_drive_max_speed(kx_robot_handle* handle, int joint_num, float max_speed);
/** Sets one joint drive's own acceleration limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_acc degrees per second squared.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_drive_max_acc(kx_robot_handle* handle, int joint_num, float max_acc);
/** Sets one joint drive's own lower position limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param min_pos degrees.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_drive_min_pos(kx_robot_handle* handle, int joint_num, float min_pos);
/** Sets one joint drive's own upper position limit.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param max_pos degrees.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_drive_max_pos(kx_robot_handle* handle, int joint_num, float max_pos);
/** Enables or disables one joint.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 * @param en_state 1 enable, 0 disable.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_en_state(kx_robot_handle* handle, int joint_num, int en_state);
/** Makes one joint's current position its zero.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_zero_pos(kx_robot_handle* handle, int joint_num);
/** Clears one joint's error.
 * @param handle connection.
 * @param joint_num joint, 1 to the joint count.
 \rc_set \blocks{500}
 */
KX_API int kx_set_joint_clear_err(kx_robot_handle* handle, int joint_num);
/** Restores the joint limits from the controller's model.
 * @param handle connection.
 * @param limit_mode mode code, passed to the controller.
 \rc_set \blocks{500}
 */
KX_API int kx_auto_set_joint_limit(kx_robot_handle* handle, int limit_mode);
/** Sets the tool's linear speed limit.
 * @param handle connection.
 * @param speed metres per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_max_line_speed(kx_robot_handle* handle, float speed);
/** Sets the tool's linear acceleration limit.
 * @param handle connection.
 * @param acc metres per second squared.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_max_line_acc(kx_robot_handle* handle, float acc);
/** Sets the tool's angular speed limit.
 * @param handle connection.
 * @param speed radians per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_max_angular_speed(kx_robot_handle* handle, float speed);
/** Sets the tool's angular acceleration limit.
 * @param handle connection.
 * @param acc radians per second squared.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_max_angular_acc(kx_robot_handle* handle, float acc);
/** Restores the default Cartesian speed and acceleration limits.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_tcp_init(kx_robot_handle* handle);
/** Sets the collision detection sensitivity.
 * @param handle connection.
 * @param stage level, 0 (off) upwards as the controller defines.
 \rc_set \blocks{500}
 */
KX_API int kx_set_collision_state(kx_robot_handle* handle, int stage);
/** Sets the arm's initial (home) joint angles.
 * @param handle connection.
 * @param joint degrees, one per joint.
 \rc_set \blocks{500}
 */
KX_API int kx_set_init_pose(kx_robot_handle* handle, const float* joint);
/** Sets the installation angles of the arm's base.
 * @param handle connection.
 * @param x angle about x, degrees.
 * @param y angle about y, degrees.
 * @param z angle about z, degrees.
 \rc_set \blocks{500}
 */
KX_API int kx_set_install_pose(kx_robot_handle* handle, float x, float y, float z);
/** Reads the joint speed limits.
 * @param handle connection.
 * @param max_speed receives one value per joint, degrees per second (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_max_speed(kx_robot_handle* handle, float* max_speed);
/** Reads the joint acceleration limits.
 * @param handle connection.
 * @param max_acc receives one value per joint, degrees per second squared (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_max_acc(kx_robot_handle* handle, float* max_acc);
/** Reads the joint lower position limits.
 * @param handle connection.
 * @param min_pos receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_min_pos(kx_robot_handle* handle, float* min_pos);
/** Reads the joint upper position limits.
 * @param handle connection.
 * @param max_pos receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_max_pos(kx_robot_handle* handle, float* max_pos);
/** Reads the joint drives' own speed limits.
 * @param handle connection.
 * @param max_speed receives one value per joint, degrees per second (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_drive_max_speed(kx_robot_handle* handle, float* max_speed);
/** Reads the joint drives' own acceleration limits.
 * @param handle connection.
 * @param max_acc receives one value per joint, degrees per second squared (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_drive_max_acc(kx_robot_handle* handle, float* max_acc);
/** Reads the joint drives' own lower position limits.
 * @param handle connection.
 * @param min_pos receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_drive_min_pos(kx_robot_handle* handle, float* min_pos);
/** Reads the joint drives' own upper position limits.
 * @param handle connection.
 * @param max_pos receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_drive_max_pos(kx_robot_handle* handle, float* max_pos);
/** Reads which joints are enabled.
 * @param handle connection.
 * @param en_state receives one value per joint, 1 enabled, 0 disabled (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_en_state(kx_robot_handle* handle, uint8_t* en_state);
/** Reads each joint's error flags and brake state.
 * @param handle connection.
 * @param err_flag receives one value per joint (room for 7).
 * @param brake_state receives one value per joint (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_err_flag(kx_robot_handle* handle, uint16_t* err_flag, uint16_t* brake_state);
/** Reads the collision detection sensitivity.
 * @param handle connection.
 * @param stage receives the level.
 \rc_get \blocks{500}
 */
KX_API int kx_get_collision_stage(kx_robot_handle* handle, int* stage);
/** Reads the tool's linear speed limit.
 * @param handle connection.
 * @param speed receives metres per second.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_max_line_speed(kx_robot_handle* handle, float* speed);
/** Reads the tool's linear acceleration limit.
 * @param handle connection.
 * @param acc receives metres per second squared.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_max_line_acc(kx_robot_handle* handle, float* acc);
/** Reads the tool's angular speed limit.
 * @param handle connection.
 * @param speed receives radians per second.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_max_angular_speed(kx_robot_handle* handle, float* speed);
/** Reads the tool's angular acceleration limit.
 * @param handle connection.
 * @param acc receives radians per second squared.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_max_angular_acc(kx_robot_handle* handle, float* acc);
/** Reads the arm's initial (home) joint angles.
 * @param handle connection.
 * @param joint receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_init_pose(kx_robot_handle* handle, float* joint);
/** Reads the installation angles of the arm's base.
 * @param handle connection.
 * @param x receives the angle about x, degrees.
 * @param y receives the angle about y, degrees.
 * @param z receives the angle about z, degrees.
 \rc_get \blocks{500}
 */
KX_API int kx_get_install_pose(kx_robot_handle* handle, float* x, float* y, float* z);

/* ---- tool and work frames --------------------------------------------- */
/** Records the current tool point as point @p point_num of a tool frame being taught.
 * @param handle connection.
 * @param point_num 1 to 6.
 \rc_set \blocks{500}
 */
KX_API int kx_set_auto_tool_frame(kx_robot_handle* handle, int point_num);
/** Computes a tool frame from the taught points and stores it. Names are at most 11 characters (longer ones are cut).
 * @param handle connection.
 * @param name frame name.
 * @param payload kg.
 * @param x centre of mass, metres.
 * @param y centre of mass, metres.
 * @param z centre of mass, metres.
 \rc_set \blocks{500}
 */
KX_API int kx_generate_auto_tool_frame(kx_robot_handle* handle, const char* name, float payload, float x, float y,
                                       float z);
/** Stores a tool frame given by its pose. Names are at most 11 characters (longer ones are cut).
 * @param handle connection.
 * @param frame name, pose (metres, radians), payload (kg) and centre of mass (metres).
 \rc_set \blocks{500}
 */
KX_API int kx_set_manual_tool_frame(kx_robot_handle* handle, kx_frame_t frame);
/** Makes a stored tool frame the current one.
 * @param handle connection.
 * @param tool_name frame name.
 \rc_set \blocks{500}
 */
KX_API int kx_change_tool_frame(kx_robot_handle* handle, const char* tool_name);
/** Deletes a stored tool frame.
 * @param handle connection.
 * @param tool_name frame name.
 \rc_set \blocks{500}
 */
KX_API int kx_delete_tool_frame(kx_robot_handle* handle, const char* tool_name);
/** Replaces a stored tool frame.
 * @param handle connection.
 * @param frame name, pose (metres, radians), payload (kg) and centre of mass (metres).
 \rc_set \blocks{500}
 */
KX_API int kx_update_tool_frame(kx_robot_handle* handle, kx_frame_t frame);
/** Records the current tool point as point @p point_num of a work frame being taught, or (point 4) computes and stores it. Names are at most 11 characters (longer ones are cut).
 * @param handle connection.
 * @param workname frame name.
 * @param point_num 1 to 4.
 \rc_set \blocks{500}
 */
KX_API int kx_set_auto_work_frame(kx_robot_handle* handle, const char* workname, int point_num);
/** Stores a work frame given by its pose. Names are at most 11 characters (longer ones are cut).
 * @param handle connection.
 * @param work_name frame name.
 * @param pose metres and radians, in the base frame.
 \rc_set \blocks{500}
 */
KX_API int kx_set_manual_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose);
/** Makes a stored work frame the current one.
 * @param handle connection.
 * @param work_name frame name.
 \rc_set \blocks{500}
 */
KX_API int kx_change_work_frame(kx_robot_handle* handle, const char* work_name);
/** Deletes a stored work frame.
 * @param handle connection.
 * @param work_name frame name.
 \rc_set \blocks{500}
 */
KX_API int kx_delete_work_frame(kx_robot_handle* handle, const char* work_name);
/** Replaces a stored work frame.
 * @param handle connection.
 * @param work_name frame name.
 * @param pose metres and radians, in the base frame.
 \rc_set \blocks{500}
 */
KX_API int kx_update_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose);
/** Sets the collision envelope (up to 5 balls) of a tool.
 * @param handle connection.
 * @param envelope tool name, ball count and balls (name, radius and centre, metres).
 \rc_set \blocks{500}
 */
KX_API int kx_set_tool_envelope(kx_robot_handle* handle, kx_envelope_balls_list_t envelope);
/** Lists the names of the stored tool frames.
 * @param handle connection.
 * @param frame_names receives the names: room for 10.
 * @param len receives the count.
 \rc_get \blocks{500}
 */
KX_API int kx_get_total_tool_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len);
/** Lists the names of the stored work frames.
 * @param handle connection.
 * @param frame_names receives the names: room for 10.
 * @param len receives the count.
 \rc_get \blocks{500}
 */
KX_API int kx_get_total_work_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len);
/** Reads one stored tool frame.
 * @param handle connection.
 * @param name frame name.
 * @param frame filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_given_tool_frame(kx_robot_handle* handle, const char* name, kx_frame_t* frame);
/** Reads one stored work frame.
 * @param handle connection.
 * @param name frame name.
 * @param pose receives its pose, metres and radians.
 \rc_get
 * @par Blocking
 * Waits at most 500 ms for the reply, then once more at most 1 s.
 */
KX_API int kx_get_given_work_frame(kx_robot_handle* handle, const char* name, kx_pose_t* pose);
/** Reads the current tool frame (and caches it for the kinematics).
 * @param handle connection.
 * @param tool_frame filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_tool_frame(kx_robot_handle* handle, kx_frame_t* tool_frame);
/** Reads the current work frame (and caches it for the kinematics).
 * @param handle connection.
 * @param work_frame filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_work_frame(kx_robot_handle* handle, kx_frame_t* work_frame);
/** Reads a tool's collision envelope.
 * @param handle connection.
 * @param tool_name tool frame name.
 * @param envelope filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_tool_envelope(kx_robot_handle* handle, const char* tool_name, kx_envelope_balls_list_t* envelope);

/* ---- arm state -------------------------------------------------------- */
/** Reads the joints, the tool pose and the error codes.
 * @param handle connection.
 * @param state joints in degrees (one per joint), pose in metres and radians (quaternion computed), errors.
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_arm_state(kx_robot_handle* handle, kx_current_arm_state_t* state);
/** Reads the joint temperatures.
 * @param handle connection.
 * @param temperature receives one value per joint, degrees Celsius (sent as thousandths) (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_joint_temperature(kx_robot_handle* handle, float* temperature);
/** Reads the joint currents.
 * @param handle connection.
 * @param current receives one value per joint, in the controller's unit (sent as thousandths) (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_joint_current(kx_robot_handle* handle, float* current);
/** Reads the joint voltages.
 * @param handle connection.
 * @param voltage receives one value per joint, volts (sent as thousandths) (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_current_joint_voltage(kx_robot_handle* handle, float* voltage);
/** Reads the joint angles.
 * @param handle connection.
 * @param joint receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_degree(kx_robot_handle* handle, float* joint);
/** Reads temperature, current, voltage, error code and enable flag of every joint, and the arm's errors.
 * @param handle connection.
 * @param state filled on success (one entry per joint in each array).
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_all_state(kx_robot_handle* handle, kx_arm_all_state_t* state);

/* ---- controller, network, versions ------------------------------------ */
/** Reads the controller's supply and its error flag.
 * @param handle connection.
 * @param voltage receives volts.
 * @param current receives amperes.
 * @param temperature receives degrees Celsius.
 * @param err_flag receives the controller's error flag.
 \rc_get \blocks{500}
 */
KX_API int kx_get_controller_state(kx_robot_handle* handle, float* voltage, float* current, float* temperature,
                                   int* err_flag);
/** Switches the arm's power.
 * @param handle connection.
 * @param arm_power 1 on, 0 off.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_power(kx_robot_handle* handle, int arm_power);
/** Reads whether the arm is powered.
 * @param handle connection.
 * @param power_state receives 1 on, 0 off.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_power_state(kx_robot_handle* handle, int* power_state);
/** Reads the controller's accumulated running time.
 * @param handle connection.
 * @param day receives days.
 * @param hour receives hours.
 * @param min receives minutes.
 * @param sec receives seconds.
 \rc_get \blocks{500}
 */
KX_API int kx_get_system_runtime(kx_robot_handle* handle, int* day, int* hour, int* min, int* sec);
/** Resets the accumulated running time.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_clear_system_runtime(kx_robot_handle* handle);
/** Reads each joint's accumulated travel.
 * @param handle connection.
 * @param joint_odom receives one value per joint, degrees (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_odom(kx_robot_handle* handle, float* joint_odom);
/** Resets the joints' accumulated travel.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_clear_joint_odom(kx_robot_handle* handle);
/** Clears the controller's errors.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_clear_system_err(kx_robot_handle* handle);
/** Sets the controller's wired IP address (effective after its restart).
 * @param handle connection.
 * @param ip dotted quad.
 \rc_set \blocks{500}
 */
KX_API int kx_set_NetIP(kx_robot_handle* handle, const char* ip);
/** Makes the controller a Wi-Fi access point.
 * @param handle connection.
 * @param wifi_name network name.
 * @param password network password.
 \rc_set \blocks{500}
 */
KX_API int kx_set_wifi_ap(kx_robot_handle* handle, const char* wifi_name, const char* password);
/** Makes the controller join a Wi-Fi network.
 * @param handle connection.
 * @param router_name network name.
 * @param password network password.
 \rc_set \blocks{500}
 */
KX_API int kx_set_wifi_sta(kx_robot_handle* handle, const char* router_name, const char* password);
/** Sets the baud rate of the controller's USB serial port.
 * @param handle connection.
 * @param baudrate bits per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_usb(kx_robot_handle* handle, int baudrate);
/** Sets the baud rate of the controller's RS485 port.
 * @param handle connection.
 * @param baudrate bits per second.
 \rc_set \blocks{500}
 */
KX_API int kx_set_RS485(kx_robot_handle* handle, int baudrate);
/** Reads the wired network settings.
 * @param handle connection.
 * @param ip receives the address: room for 16 bytes.
 * @param mask receives the netmask: room for 16 bytes.
 * @param mac receives the MAC address: room for 18 bytes.
 \rc_get \blocks{500}
 */
KX_API int kx_get_wired_net(kx_robot_handle* handle, char* ip, char* mask, char* mac);
/** Reads the Wi-Fi settings.
 * @param handle connection.
 * @param wifi_net filled on success.
 \rc_get \blocks{500}
 */
KX_API int kx_get_wifi_net(kx_robot_handle* handle, kx_wifi_net_t* wifi_net);
/** Restores the factory network settings.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_net_default(kx_robot_handle* handle);
/** Switches Wi-Fi off.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_wifi_close(kx_robot_handle* handle);
/** Reads each joint drive's firmware version.
 * @param handle connection.
 * @param version receives one value per joint, as the controller encodes it (room for 7).
 \rc_get \blocks{500}
 */
KX_API int kx_get_joint_software_version(kx_robot_handle* handle, int* version);
/** Reads the tool flange's firmware version.
 * @param handle connection.
 * @param version receives the version number.
 \rc_get \blocks{500}
 */
KX_API int kx_get_tool_software_version(kx_robot_handle* handle, int* version);
/** Sets the controller's execution mode.
 * @param handle connection.
 * @param mode mode code, passed to the controller.
 \rc_set \blocks{500}
 */
KX_API int kx_set_arm_run_mode(kx_robot_handle* handle, int mode);
/** Reads the execution mode.
 * @param handle connection.
 * @param mode receives the mode code.
 \rc_get \blocks{500}
 */
KX_API int kx_get_arm_run_mode(kx_robot_handle* handle, int* mode);
/** Reads the product string and the software versions, and from them the connection's model, joint count and force edition.
 * @param handle connection.
 * @param software_info filled on success.
 * @retval 0 Success; the outputs are filled.
 * @retval -1 Unknown handle, send failure, or the product names no known model or edition (logged).
 * @retval -2 No matching reply within the timeout.
 * @retval -3 The reply could not be decoded.
 \blocks{500}
 */
KX_API int kx_get_arm_software_info(kx_robot_handle* handle, kx_arm_software_version_t* software_info);

/* ---- DH parameters ---------------------------------------------------- */
/** Sets the DH parameters (the seventh row is sent as zeros on a six-joint arm).
 * @param handle connection.
 * @param dh d and a in metres, alpha and offset in degrees; one row per joint.
 \rc_set \blocks{500}
 */
KX_API int kx_set_DH_data(kx_robot_handle* handle, kx_dh_t dh);
/** Reads the DH parameters (and caches them for the kinematics).
 * @param handle connection.
 * @param dh filled on success.
 \rc_get \blocks{1000}
 */
KX_API int kx_get_DH_data(kx_robot_handle* handle, kx_dh_t* dh);
/** Restores the model's default DH parameters.
 * @param handle connection.
 \rc_set \blocks{500}
 */
KX_API int kx_set_DH_data_default(kx_robot_handle* handle);

/* ---- local algorithms (no network traffic) ---------------------------- */
/** Loads a connection's cached configuration (model, frames, limits, DH) into the kinematics.
 * @param handle connection.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_arm_state_set(kx_robot_handle* handle);
/** The kinematics library's version string (::KX_ALGO_VERSION_STRING); static storage, do not modify.
 */
KX_API char* kx_algo_version(void);
/** Loads a model's default configuration into the kinematics, for use without a connection.
 * @param Mode arm model.
 * @param Type force edition.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_init_sys_data(kx_robot_arm_model_e Mode, kx_force_type_e Type);
/** Sets the installation angles used by the kinematics.
 * @param x degrees.
 * @param y degrees.
 * @param z degrees.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_angle(float x, float y, float z);
/** Reads the installation angles used by the kinematics.
 * @param x receives degrees.
 * @param y receives degrees.
 * @param z receives degrees.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_angle(float* x, float* y, float* z);
/** Chooses how the seven-joint inverse kinematics searches the redundancy.
 * @param mode true: traverse the whole range; false: search near the reference.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_redundant_parameter_traversal_mode(bool mode);
/** Sets the work frame used by the kinematics.
 * @param coord_work frame (metres, radians).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_workframe(const kx_frame_t* const coord_work);
/** Reads the work frame used by the kinematics.
 * @param coord_work receives the frame.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_curr_workframe(kx_frame_t* coord_work);
/** Sets the tool frame used by the kinematics.
 * @param coord_tool frame (metres, radians).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_toolframe(const kx_frame_t* const coord_tool);
/** Reads the tool frame used by the kinematics.
 * @param coord_tool receives the frame.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_curr_toolframe(kx_frame_t* coord_tool);
/** Sets the upper joint limits used by the kinematics.
 * @param joint_limit degrees, one per joint (7 read).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_joint_max_limit(const float* joint_limit);
/** Reads the upper joint limits used by the kinematics.
 * @param joint_limit receives degrees: room for 7.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_joint_max_limit(float* joint_limit);
/** Sets the lower joint limits used by the kinematics.
 * @param joint_limit degrees, one per joint (7 read).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_joint_min_limit(const float* joint_limit);
/** Reads the lower joint limits used by the kinematics.
 * @param joint_limit receives degrees: room for 7.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_joint_min_limit(float* joint_limit);
/** Sets the joint speed limits used by the kinematics.
 * @param joint_slim_max degrees per second, one per joint (7 read).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_joint_max_speed(const float* joint_slim_max);
/** Reads the joint speed limits used by the kinematics.
 * @param joint_slim_max receives degrees per second: room for 7.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_joint_max_speed(float* joint_slim_max);
/** Sets the joint acceleration limits used by the kinematics.
 * @param joint_alim_max degrees per second squared, one per joint (7 read).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_set_joint_max_acc(const float* joint_alim_max);
/** Reads the joint acceleration limits used by the kinematics.
 * @param joint_alim_max receives degrees per second squared: room for 7.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API void kx_algo_get_joint_max_acc(float* joint_alim_max);
/** Checks joint angles against the kinematics' joint limits.
 * @param joint degrees, one per joint.
 * @retval 0 every joint within its limits (a joint on a limit is within).
 * @retval -1 a joint is beyond its limit.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API int kx_algo_judgment_overpos(float* joint);
/** Converts Euler angles (radians, R = Rz·Ry·Rx) to a unit quaternion.
 * @param eu Euler angles.
 * @return the quaternion (w, x, y, z).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_quat_t kx_algo_euler2quaternion(kx_euler_t eu);
/** Converts a unit quaternion to Euler angles (radians, R = Rz·Ry·Rx).
 * @param qua quaternion (w, x, y, z).
 * @return the Euler angles.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_euler_t kx_algo_quaternion2euler(kx_quat_t qua);
/** Rotation of Euler angles as a homogeneous matrix (no translation).
 * @param state Euler angles, radians.
 * @return 4 x 4 matrix.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_matrix_t kx_algo_euler2matrix(kx_euler_t state);
/** Joint angles that put the tool at a pose, nearest to a reference,
 * with the connection's cached configuration.
 * @param handle connection (its model, frames and limits are used).
 * @param params reference joints (degrees), target pose (metres, radians) and
 *   which orientation to use (flag 0 quaternion, 1 Euler angles).
 * @param q_out receives degrees, one per joint: room for 7.
 * @retval 0 solved.
 * @retval 1 no solution (out of reach, beyond the joint limits or singular).
 * @retval -1 a reference joint is beyond its limit (limits inclusive).
 * @retval -2 flag 0 and the quaternion's squared norm is not exactly 1.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API int kx_algo_inverse_kinematics(kx_robot_handle* handle, kx_inverse_kinematics_params_t params, float* q_out);
/** Tool pose at joint angles, with the connection's cached configuration (tool and work frames applied).
 * @param handle connection.
 * @param joint degrees, one per joint.
 * @return pose in metres and radians (all zero for an unknown handle).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_forward_kinematics(kx_robot_handle* handle, const float* const joint);
/** A pose as a homogeneous matrix.
 * @param state pose (metres, radians).
 * @return 4 x 4 matrix, translation in the last column.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_matrix_t kx_algo_pos2matrix(kx_pose_t state);
/** A homogeneous matrix as a pose.
 * @param matrix 4 x 4, translation in metres.
 * @return the pose (metres, radians, quaternion).
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_matrix2pos(kx_matrix_t matrix);
/** Expresses a base-frame pose in a work frame.
 * @param matrix the work frame as a homogeneous matrix.
 * @param state pose in the base frame.
 * @return pose in the work frame.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_base2workframe(kx_matrix_t matrix, kx_pose_t state);
/** Expresses a work-frame pose in the base frame.
 * @param matrix the work frame as a homogeneous matrix.
 * @param state pose in the work frame.
 * @return pose in the base frame.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_workframe2base(kx_matrix_t matrix, kx_pose_t state);
/** Flange pose to tool pose, with the connection's current tool frame.
 * @param handle connection.
 * @param eu_end flange pose.
 * @return tool pose.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_end2tool(kx_robot_handle* handle, kx_pose_t eu_end);
/** Tool pose to flange pose, with the connection's current tool frame.
 * @param handle connection.
 * @param eu_tool tool pose.
 * @return flange pose.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_tool2end(kx_robot_handle* handle, kx_pose_t eu_tool);
/** Pose reached by moving the tool along its own axes from the pose at @p curr_joint.
 * @param handle connection.
 * @param curr_joint degrees, one per joint.
 * @param move_lengthx metres along the tool's x.
 * @param move_lengthy metres along the tool's y.
 * @param move_lengthz metres along the tool's z.
 * @return the pose.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_cartesian_tool(kx_robot_handle* handle, const float* curr_joint, float move_lengthx,
                                        float move_lengthy, float move_lengthz);
/** Pose reached by rotating the tool pose at @p curr_joint about one axis of a chosen frame.
 * @param handle connection.
 * @param curr_joint degrees, one per joint.
 * @param rotate_axis 0 x, 1 y, 2 z.
 * @param rotate_angle degrees.
 * @param choose_axis the frame whose axis is used.
 * @return the pose.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_rotate_move(kx_robot_handle* handle, const float* const curr_joint, int rotate_axis,
                                     float rotate_angle, kx_pose_t choose_axis);
/** Pose offset by a translation and rotation in the base (0) or tool (1) frame.
 * @param handle connection.
 * @param poseCurrent starting pose.
 * @param deltaPosAndRot dx, dy, dz (metres) and drx, dry, drz (radians): 6 floats.
 * @param frameMode 0 base frame, 1 tool frame.
 * @return the pose.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_pose_t kx_algo_pose_move(kx_robot_handle* handle, kx_pose_t poseCurrent, const float* deltaPosAndRot,
                                   int frameMode);
/** Reads the DH parameters used by the kinematics.
 * @return d and a in metres, alpha and offset in degrees.
 * @par Blocking
 * Local computation, no network traffic.
 */
KX_API kx_dh_t kx_algo_get_dh(void);
/** Sets the DH parameters used by the kinematics.
 * @param dh d and a in metres, alpha and offset in degrees.
 * @par Blocking
 * Local computation, no network traffic.
 */
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
