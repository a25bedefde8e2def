/**
 * @file kx_define.h
 * @brief libapi_c public enumerations and records.
 *
 * Every record here crosses the library boundary by value or by pointer, so
 * field order, types and array sizes are part of the ABI: do not reorder.
 */
#ifndef KX_DEFINE_H
#define KX_DEFINE_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>

/** Marks the functions and data the library exports. */
#if defined(_WIN32)
#define KX_API
#else
#define KX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- logging ---------------------------------------------------------- */

/** Severity of a log message; kx_set_log_call_back() passes on this level and above. */
typedef enum {
    LOG_LEVEL_DEBUG = 0, /**< every detail, including each request sent */
    LOG_LEVEL_INFO = 1, /**< informational messages */
    LOG_LEVEL_WARN = 2, /**< warnings */
    LOG_LEVEL_ERROR = 3, /**< errors only (the default) */
} LogLevel;

/** A log sink: receives each message's printf format and its arguments (see kx_set_log_call_back()). */
typedef void (*LogCallback)(const char* fmt, va_list args);

/* ---- lifecycle -------------------------------------------------------- */

/** Thread mode chosen once by kx_init(). */
typedef enum {
    KX_SINGLE_MODE_E = 0, /**< no thread: each call reads its own reply; no realtime state */
    KX_DUAL_MODE_E = 1, /**< a TCP receive thread collects replies and events; no realtime state */
    KX_TRIPLE_MODE_E = 2, /**< TCP and UDP receive threads: replies, events and realtime state */
} kx_thread_mode_e;

/** Arm model, decided from the controller's product string. */
typedef enum {
    KX_MODEL_AVEN_E = 0, /**< AVEN (6 joints) */
    KX_MODEL_BRIV_E = 1, /**< BRIV (7 joints) */
    KX_MODEL_CALD_I_E = 2, /**< CALD I (6 joints) */
    KX_MODEL_CALD_II_E = 3, /**< CALD II (6 joints) */
    KX_MODEL_CALD_III_E = 4, /**< CALD III (6 joints) */
    KX_MODEL_CALD_IV_E = 5, /**< CALD IV (6 joints) */
    KX_MODEL_DUMO_E = 6, /**< DUMO (6 joints) */
    KX_MODEL_ESKA_E = 7, /**< ESKA (6 joints) */
    KX_MODEL_FIRU_E = 8, /**< FIRU (7 joints) */
    KX_MODEL_GOLT_E = 9, /**< GOLT (6 joints) */
} kx_robot_arm_model_e;

/** Force edition of an arm: which force sensor it carries. */
typedef enum {
    KX_FORCE_TYPE_P_E = 0, /**< no force sensor */
    KX_FORCE_TYPE_QA_E = 1, /**< one-axis (Fz) force sensor */
    KX_FORCE_TYPE_QS_E = 2, /**< six-axis force/torque sensor */
} kx_force_type_e;

/** The application's handle of one arm, returned by kx_create_robot_arm(); pass the very pointer to every call. */
typedef struct {
    int id; /**< Slot number + 1 (1 to 5) when connected, -1 after a failed connection. */
} kx_robot_handle;

/** Joint count, model and force edition of a connection (kx_get_robot_info()). */
typedef struct {
    int arm_dof; /**< Joint count, 6 or 7. */
    kx_robot_arm_model_e arm_model; /**< Model. */
    kx_force_type_e force_type; /**< Force edition. */
} kx_robot_info_t;

/* ---- poses ------------------------------------------------------------ */

/** A position, metres. */
typedef struct {
    float x; /**< metres */
    float y; /**< metres */
    float z; /**< metres */
} kx_position_t;

/** Fixed-axis roll-pitch-yaw angles, radians: R = Rz(rz)·Ry(ry)·Rx(rx). */
typedef struct {
    float rx; /**< radians, about x */
    float ry; /**< radians, about y */
    float rz; /**< radians, about z */
} kx_euler_t;

/** A unit quaternion. */
typedef struct {
    float w; /**< scalar part */
    float x; /**< x component */
    float y; /**< y component */
    float z; /**< z component */
} kx_quat_t;

/** A tool or frame pose: position, and orientation both as quaternion and as Euler angles. */
typedef struct {
    kx_position_t position; /**< metres */
    kx_quat_t quaternion; /**< orientation as a unit quaternion */
    kx_euler_t euler; /**< orientation as Euler angles, radians */
} kx_pose_t;

/** A homogeneous transform, row-major, translation (metres) in the last column. */
typedef struct {
    int16_t irow; /**< row count, 4 */
    int16_t iline; /**< column count, 4 */
    float data[4][4]; /**< rows of the transform */
} kx_matrix_t;

/** Modified DH parameters, one entry per joint (6 or 7 used). */
typedef struct {
    float d[8]; /**< metres */
    float a[8]; /**< metres */
    float alpha[8]; /**< degrees */
    float offset[8]; /**< degrees */
} kx_dh_t;

/** Error codes reported by the controller. A single code 0 means "no error":
 * a healthy arm reports err_len 1 with err[0] 0, not err_len 0. */
typedef struct {
    uint8_t err_len; /**< number of codes in err (1 with a single 0 when there is no error) */
    int err[24]; /**< error codes, err_len used */
} kx_err_t;

/* ---- frames ----------------------------------------------------------- */

/** The name of a stored frame. */
typedef struct {
    char name[12]; /**< frame name, NUL-terminated */
} kx_frame_name_t;

/** A tool or work frame: name, pose, payload and centre of mass. */
typedef struct {
    char frame_name[12]; /**< frame name, NUL-terminated */
    kx_pose_t pose; /**< pose of the frame (tool: relative to the flange; work: in the base frame) */
    float payload; /**< kg */
    float x; /**< centre of mass x, metres */
    float y; /**< centre of mass y, metres */
    float z; /**< centre of mass z, metres */
} kx_frame_t;

/** One ball of a tool's collision envelope. */
typedef struct {
    char name[12]; /**< ball name */
    float radius; /**< metres */
    float x; /**< centre x, metres */
    float y; /**< centre y, metres */
    float z; /**< centre z, metres */
} kx_envelopes_ball_t;

/** A tool's collision envelope: up to 5 balls. */
typedef struct {
    kx_envelopes_ball_t balls[5]; /**< the balls, size used */
    int size; /**< number of balls, 0 to 5 */
    char tool_name[12]; /**< tool frame the envelope belongs to */
} kx_envelope_balls_list_t;

/* ---- events ----------------------------------------------------------- */

/** Kind of a controller event. */
typedef enum {
    KX_NONE_EVENT_E = 0, /**< no event */
    KX_CURRENT_TRAJECTORY_STATE_E = 1, /**< a motion ended */
    KX_PROGRAM_RUN_FINISH_E = 2, /**< a program finished */
} kx_event_type_e;

/** A controller event, as passed to the event callback. */
typedef struct {
    int handle_id; /**< id of the arm that sent the event */
    kx_event_type_e event_type; /**< kind of event */
    bool trajectory_state; /**< true when the motion completed */
    int device; /**< device whose motion ended (0 the arm) */
    int trajectory_connect; /**< 1 when the motion was joined to the next */
    int program_id; /**< program that finished (program events) */
} kx_event_push_data_t;

/** Event callback (kx_get_arm_event_call_back()); runs on the library's dispatch thread. */
typedef void (*kx_event_callback_ptr)(kx_event_push_data_t data);

/* ---- realtime push ---------------------------------------------------- */

/** Optional members of the realtime datagram: 1 include, 0 leave out, -1 do not send the setting. */
typedef struct {
    int joint_speed; /**< joint speeds */
    int lift_state; /**< lifting axis state */
    int expand_state; /**< expansion axis state */
    int hand_state; /**< hand state */
    int arm_current_status; /**< what the arm is doing */
    int aloha_state; /**< auxiliary inputs */
} kx_udp_custom_config_t;

/** Realtime state push configuration (kx_set_realtime_push(), kx_get_realtime_push()). */
typedef struct {
    int cycle; /**< push period, ms (1 and above) */
    bool enable; /**< push on or off */
    int port; /**< destination UDP port */
    int force_coordinate; /**< frame of the force values (-1 not sent) */
    char ip[28]; /**< destination IPv4 address, dotted quad */
    kx_udp_custom_config_t custom_config; /**< optional members */
} kx_realtime_push_config_t;

/** Per-joint state in a realtime datagram; one entry per joint. */
typedef struct {
    float joint_current[7]; /**< current, in the controller's unit */
    bool joint_en_flag[7]; /**< true (1) when enabled */
    uint16_t joint_err_code[7]; /**< error code, 0 none */
    float joint_position[7]; /**< angle, degrees */
    float joint_temperature[7]; /**< degrees Celsius */
    float joint_voltage[7]; /**< volts */
    float joint_speed[7]; /**< speed, degrees per second */
} kx_joint_status_t;

/** Force sensor values in a realtime datagram (force editions only). */
typedef struct {
    float force[6]; /**< Fx, Fy, Fz (N), Mx, My, Mz (N·m) */
    float zero_force[6]; /**< zero offsets, same units */
    int coordinate; /**< frame of the values */
} kx_force_sensor_t;

/** Lifting axis state in a realtime datagram. */
typedef struct {
    int height; /**< height, mm */
    float pos; /**< position */
    int current; /**< current */
    int err_flag; /**< error flag */
    int en_flag; /**< enabled flag */
} kx_udp_lift_state_t;

/** Expansion axis state in a realtime datagram. */
typedef struct {
    float pos; /**< position */
    int current; /**< current */
    int err_flag; /**< error flag */
    int en_flag; /**< enabled flag */
    int joint_id; /**< axis id */
    int mode; /**< mode */
} kx_udp_expand_state_t;

/** Dexterous hand state in a realtime datagram. */
typedef struct {
    int hand_pos[6]; /**< finger positions */
    int hand_angle[6]; /**< finger angles */
    int hand_force[6]; /**< finger forces */
    int hand_state[6]; /**< finger states */
    int hand_err; /**< hand error code */
} kx_udp_hand_state_t;

/** What the arm is doing, as reported in a realtime datagram. */
typedef enum {
    KX_IDLE_E = 0, /**< idle */
    KX_MOVE_L_E = 1, /**< linear move */
    KX_MOVE_J_E = 2, /**< joint move */
    KX_MOVE_C_E = 3, /**< arc move */
    KX_MOVE_S_E = 4, /**< spline move */
    KX_MOVE_THROUGH_JOINT_E = 5, /**< following streamed joints */
    KX_MOVE_THROUGH_POSE_E = 6, /**< following streamed poses */
    KX_MOVE_THROUGH_FORCE_POSE_E = 7, /**< following streamed poses under force control */
    KX_MOVE_THROUGH_CURRENT_E = 8, /**< following streamed currents */
    KX_STOP_E = 9, /**< stopped */
    KX_SLOW_STOP_E = 10, /**< stopping slowly */
    KX_PAUSE_E = 11, /**< paused */
    KX_CURRENT_DRAG_E = 12, /**< drag teaching by current */
    KX_SENSOR_DRAG_E = 13, /**< drag teaching by force sensor */
    KX_TECH_DEMONSTRATION_E = 14, /**< teaching demonstration */
} kx_udp_arm_current_status_e;

/** State of the two auxiliary I/O inputs in a realtime datagram. */
typedef struct {
    int io1_state; /**< input 1 */
    int io2_state; /**< input 2 */
} kx_udp_aloha_state_t;

/** One realtime state datagram, decoded; passed to the realtime callback. */
typedef struct {
    int errCode; /**< 0 decoded; -3 the datagram could not be decoded */
    char arm_ip[16]; /**< address the datagram came from: tells arms apart */
    kx_joint_status_t joint_status; /**< per-joint state */
    kx_force_sensor_t force_sensor; /**< force sensor values */
    kx_err_t err; /**< error codes */
    kx_pose_t waypoint; /**< tool pose */
    kx_udp_lift_state_t liftState; /**< lifting axis */
    kx_udp_expand_state_t expandState; /**< expansion axis */
    kx_udp_hand_state_t handState; /**< dexterous hand */
    kx_udp_arm_current_status_e arm_current_status; /**< what the arm is doing */
    kx_udp_aloha_state_t aloha_state; /**< auxiliary inputs */
} kx_realtime_arm_joint_state_t;

/** Realtime callback (kx_realtime_arm_state_call_back()); runs on the library's dispatch thread. */
typedef void (*kx_realtime_arm_state_callback_ptr)(kx_realtime_arm_joint_state_t state);

/* ---- motion ----------------------------------------------------------- */

/** Planning type of the motion being executed (kx_get_arm_current_trajectory()). */
typedef enum {
    KX_NO_PLANNING_E = 0, /**< idle */
    KX_JOINT_SPACE_PLANNING_E = 1, /**< joint-space motion */
    KX_CARTESIAN_LINEAR_PLANNING_E = 2, /**< linear motion */
    KX_CARTESIAN_ARC_PLANNING_E = 3, /**< arc motion */
    KX_SPLINE_CURVE_MOTION_PLANNING_E = 4, /**< spline motion */
    KX_TRAJECTORY_REPLAY_PLANNING_E = 5, /**< replaying a recorded trajectory */
} kx_arm_current_trajectory_e;

/** A streamed joint target (kx_movej_canfd()). */
typedef struct {
    float* joint; /**< target angles, degrees, one per joint */
    float expand; /**< expansion axis target */
    bool follow; /**< follow mode */
    int trajectory_mode; /**< controller trajectory mode 0, 1 or 2 */
    int radio; /**< coefficient of the trajectory mode */
} kx_movej_canfd_mode_t;

/** A streamed Cartesian target (kx_movep_canfd()). */
typedef struct {
    kx_pose_t pose; /**< target pose */
    bool follow; /**< follow mode */
    int trajectory_mode; /**< controller trajectory mode 0, 1 or 2 */
    int radio; /**< coefficient of the trajectory mode */
} kx_movep_canfd_mode_t;

/** Axis of a position step or teach motion. */
typedef enum {
    KX_X_DIR_E = 0, /**< x axis */
    KX_Y_DIR_E = 1, /**< y axis */
    KX_Z_DIR_E = 2, /**< z axis */
} kx_pos_teach_type_e;

/** Axis of an orientation step or teach motion. */
typedef enum {
    KX_RX_ROTATE_E = 0, /**< about x */
    KX_RY_ROTATE_E = 1, /**< about y */
    KX_RZ_ROTATE_E = 2, /**< about z */
} kx_ort_teach_type_e;

/* ---- arm state -------------------------------------------------------- */

/** Joints, tool pose and errors (kx_get_current_arm_state()). */
typedef struct {
    kx_pose_t pose; /**< tool pose */
    float joint[7]; /**< angles, degrees, one per joint */
    kx_err_t err; /**< error codes */
} kx_current_arm_state_t;

/** Per-joint telemetry and errors (kx_get_arm_all_state()). */
typedef struct {
    float joint_current[7]; /**< current, in the controller's unit */
    int joint_en_flag[7]; /**< 1 enabled */
    float joint_temperature[7]; /**< degrees Celsius */
    float joint_voltage[7]; /**< volts */
    int joint_err_code[7]; /**< error code, 0 none */
    kx_err_t err; /**< error codes */
} kx_arm_all_state_t;

/* ---- controller ------------------------------------------------------- */

/** Version of the controller's algorithm library. */
typedef struct {
    char version[20]; /**< version string */
} kx_algorithm_version_t;

/** Version of the controller software. */
typedef struct {
    char build_time[20]; /**< build time */
    char version[10]; /**< version string */
} kx_ctrl_version_t;

/** Version of the controller's dynamics model. */
typedef struct {
    char model_version[5]; /**< model version */
} kx_dynamic_version_t;

/** Version of the controller's planner. */
typedef struct {
    char build_time[20]; /**< build time */
    char version[10]; /**< version string */
} kx_planinfo_t;

/** Product string and software versions (kx_get_arm_software_info()). */
typedef struct {
    char product_version[10]; /**< product string, e.g. "AVEN-P" (model and edition) */
    kx_algorithm_version_t algorithm_info; /**< algorithm library */
    kx_ctrl_version_t ctrl_info; /**< controller software */
    kx_dynamic_version_t dynamic_info; /**< dynamics model */
    kx_planinfo_t plan_info; /**< planner */
} kx_arm_software_version_t;

/** Wi-Fi settings of the controller (kx_get_wifi_net()). */
typedef struct {
    int channel; /**< Wi-Fi channel */
    char ip[16]; /**< address */
    char mac[18]; /**< MAC address */
    char mask[16]; /**< netmask */
    char mode[5]; /**< "ap" or "sta" */
    char password[16]; /**< password */
    char ssid[32]; /**< network name */
} kx_wifi_net_t;

/* ---- force sensing and drag teaching --------------------------------- */

/** Six-axis force/torque readings: Fx, Fy, Fz in newtons, then Mx, My, Mz in newton-metres. */
typedef struct {
    float force_data[6];           /**< raw sensor values */
    float zero_force_data[6];      /**< values after zeroing, in the sensor frame */
    float work_zero_force_data[6]; /**< zeroed values in the work frame */
    float tool_zero_force_data[6]; /**< zeroed values in the tool frame */
} kx_force_data_t;

/** One-axis (Fz) sensor readings, newtons. */
typedef struct {
    float Fz;           /**< raw value */
    float zero_Fz;      /**< after zeroing, sensor frame */
    float work_zero_Fz; /**< zeroed, work frame */
    float tool_zero_Fz; /**< zeroed, tool frame */
} kx_fz_data_t;

/** Constraints of multi-frame drag teaching. */
typedef struct {
    int free_axes[6];  /**< one flag per Cartesian axis (x, y, z, rx, ry, rz); six-axis arms only */
    int frame;         /**< reference frame of the constraint */
    int singular_wall; /**< six-axis arms only */
} kx_multi_drag_teach_t;

/** Static force-position control parameters. */
typedef struct {
    int sensor;             /**< sensor used for the control (the controller's numbering) */
    int mode;               /**< reference frame of the control (the controller's numbering) */
    int control_mode[6];    /**< per Cartesian axis (x, y, z, rx, ry, rz): 0 position, otherwise force controlled */
    float desired_force[6]; /**< per axis: N for x, y, z; N·m for rx, ry, rz */
    float limit_vel[6];     /**< per axis speed limit while force controlled (m/s, rad/s) */
} kx_force_position_t;

/** One streamed force-position target. */
typedef struct {
    int flag;               /**< 0: joint target, otherwise Cartesian target */
    kx_pose_t pose;         /**< Cartesian target: position (m), quaternion or Euler angles (rad) */
    float joint[7];         /**< joint target, degrees (the arm's joint count used) */
    int sensor;             /**< sensor used for the control */
    int mode;               /**< reference frame of the control */
    bool follow;            /**< follow mode flag */
    int control_mode[6];    /**< per Cartesian axis: 0 position, otherwise force controlled */
    float desired_force[6]; /**< per axis, N or N·m (never sent by kx_force_position_move) */
    float limit_vel[6];     /**< per axis speed limit while force controlled */
    int trajectory_mode;    /**< the controller's trajectory mode 0, 1 or 2 */
    int radio;              /**< smoothing coefficient; range depends on trajectory_mode */
} kx_force_position_move_t;

/* ---- programs and waypoints ------------------------------------------- */

/** A program upload (passed by value). */
typedef struct {
    char project_path[300]; /**< file on this machine; on return the program name that was announced */
    int project_path_len;   /**< characters of project_path to use */
    int plan_speed;         /**< planning speed ratio */
    int only_save;          /**< 0 run, 1 only save on the controller */
    int save_id;            /**< program slot on the controller */
    int step_flag;          /**< step mode */
    int auto_start;         /**< not sent */
    int project_type;       /**< 0 program file; non-zero drag-teach trajectory file to convert first */
} kx_send_project_t;

/** One entry of the controller's program library. */
typedef struct {
    int id;                   /**< library number */
    int size;                 /**< program size, bytes */
    int speed;                /**< planning speed ratio, percent */
    char trajectory_name[32]; /**< program name */
} kx_trajectory_data_t;

/** One page of the program library. */
typedef struct {
    int page_num;                              /**< page returned */
    int page_size;                             /**< entries per page */
    int list_size;                             /**< programs matching in total */
    char vague_search[32];                     /**< the search text echoed (filled only when one was given) */
    kx_trajectory_data_t trajectory_list[100]; /**< the page's entries */
} kx_program_trajectorys_t;

/** State of the program being run. */
typedef struct {
    int run_state;      /**< 0 idle, 1 running, other values the controller's */
    int id;             /**< program running */
    int edit_id;        /**< program being edited */
    int plan_num;       /**< line being executed */
    int total_loop;     /**< entries of loop_num */
    int step_mode;      /**< 1 when running step by step */
    int plan_speed;     /**< planning speed ratio, percent */
    int loop_num[100];  /**< iterations of each loop */
    int loop_cont[100]; /**< iterations done of each loop */
} kx_program_run_state_t;

/** A global waypoint. */
typedef struct {
    char point_name[20]; /**< waypoint name (16 characters read back) */
    float joint[7];      /**< degrees, the arm's joint count used */
    kx_pose_t pose;      /**< position (m) and Euler angles (rad); the quaternion is neither sent nor filled */
    char work_frame[12]; /**< work frame name (10 characters read back) */
    char tool_frame[12]; /**< tool frame name (10 characters read back) */
    char time[50];       /**< "YYYY-MM-DD hh:mm:ss", stamped when stored */
} kx_waypoint_t;

/** One page of global waypoints. */
typedef struct {
    int page_num;                   /**< not filled by the list call */
    int page_size;                  /**< not filled by the list call */
    int total_size;                 /**< waypoints matching in total */
    char vague_search[32];          /**< not filled by the list call */
    int list_len;                   /**< entries of points_list filled */
    kx_waypoint_t points_list[100]; /**< the page's entries */
} kx_waypoint_list_t;

/* ---- peripherals: controller and tool I/O --------------------------- */

/** Mode of one controller I/O channel. */
typedef struct {
    int io_mode; /**< 0..14, the controller's mode numbers */
    /** Speed and mode of the realtime-speed mode, used only when `io_mode` is 14. */
    struct {
        int speed; /**< controller's speed setting */
        int mode;  /**< controller's sub-mode */
    } io_real_time_config_t;
} kx_io_config_t;

/** State and mode of one controller I/O channel, as read back. */
typedef struct {
    int io_state;            /**< 0 low, 1 high */
    kx_io_config_t io_config; /**< speed and mode are -1 below mode 14 */
} kx_io_get_t;

/* ---- peripherals: RS485 and Modbus ----------------------------------- */

/** Where and what a Modbus read or write addresses. */
typedef struct {
    int port;    /**< Modbus port of the controller: its RS485, the tool's RS485 or the TCP link */
    int address; /**< first coil or register */
    int device;  /**< Modbus slave (device) id */
    int num;     /**< number of coils or registers, where the command takes it */
} kx_peripheral_read_write_params_t;

/* ---- peripherals: gripper, hand, lift, expansion axis ---------------- */

/** Device codes carried by the "current_trajectory_state" completion event. */
typedef enum {
    KX_DEVICE_ARM_E = 0,     /**< the arm's own motion */
    KX_DEVICE_GRIPPER_E = 1, /**< two-finger gripper */
    KX_DEVICE_HAND_E = 2,    /**< dexterous hand */
    KX_DEVICE_LIFT_E = 3,    /**< lift */
    KX_DEVICE_EXPAND_E = 4,  /**< expansion axis */
} kx_device_e;

/** State of the two-finger gripper. */
typedef struct {
    int enable_state;  /**< 1 enabled */
    int status;        /**< controller's status code */
    int error;         /**< controller's error code, 0 none */
    int mode;          /**< controller's motion mode, 0 idle */
    int current_force; /**< force currently applied, controller's units */
    int temperature;   /**< controller's units */
    int actpos;        /**< finger opening, 1..1000 */
} kx_gripper_state_t;

/** State of the lift or of the expansion axis. */
typedef struct {
    int pos;      /**< lift height or axis position, controller's units */
    int current;  /**< controller's units */
    int err_flag; /**< 0 no error */
    int mode;     /**< 0 at rest, non-zero moving */
} kx_expand_state_t;

/* ---- safety zones: electronic fences, virtual wall ------------------- */

/** Fence and wall forms. */
typedef enum {
    KX_FENCE_FORM_CUBE_E = 1,   /**< axis-aligned box */
    KX_FENCE_FORM_PLANE_E = 2,  /**< plane through three points */
    KX_FENCE_FORM_SPHERE_E = 3, /**< sphere */
} kx_fence_form_e;

/** Axis-aligned box, metres. */
typedef struct {
    float x_min_limit; /**< lowest x, metres */
    float x_max_limit; /**< highest x, metres */
    float y_min_limit; /**< lowest y, metres */
    float y_max_limit; /**< highest y, metres */
    float z_min_limit; /**< lowest z, metres */
    float z_max_limit; /**< highest z, metres */
} kx_fence_config_cube_t;

/** Plane through three points, metres. */
typedef struct {
    float x1; /**< first point, metres */
    float y1; /**< first point, metres */
    float z1; /**< first point, metres */
    float x2; /**< second point, metres */
    float y2; /**< second point, metres */
    float z2; /**< second point, metres */
    float x3; /**< third point, metres */
    float y3; /**< third point, metres */
    float z3; /**< third point, metres */
} kx_fence_config_plane_t;

/** Sphere: centre and radius, metres. */
typedef struct {
    float x;      /**< centre, metres */
    float y;      /**< centre, metres */
    float z;      /**< centre, metres */
    float radius; /**< metres */
} kx_fence_config_sphere_t;

/** One named fence (or the active fence, or the virtual wall). */
typedef struct {
    int form;                        /**< kx_fence_form_e */
    char name[12];                   /**< sent as "form_name" */
    kx_fence_config_cube_t cube;     /**< form 1 */
    kx_fence_config_plane_t plan;    /**< form 2 */
    kx_fence_config_sphere_t sphere; /**< form 3 */
} kx_fence_config_t;

/** A fence name, not necessarily zero-terminated when 12 characters long. */
typedef struct {
    char name[12]; /**< fence name */
} kx_fence_names_t;

/** Every stored fence. */
typedef struct {
    kx_fence_config_t config[10]; /**< the fences, in the controller's order */
} kx_fence_config_list_t;

/** Whether a fence or the virtual wall is enforced, and how. */
typedef struct {
    bool enable_state;    /**< enforced */
    int in_out_side;      /**< controller's side code: 0 stay inside, 1 stay outside */
    int effective_region; /**< controller's region code */
} kx_electronic_fence_enable_t;

/* ---- local algorithms ------------------------------------------------- */

/** Input of kx_algo_inverse_kinematics(). */
typedef struct {
    float q_in[7]; /**< reference joints, degrees: the solution nearest to them is chosen */
    kx_pose_t q_pose; /**< target pose */
    uint8_t flag; /**< 0: orientation from the quaternion, 1: from the Euler angles */
} kx_inverse_kinematics_params_t;

#ifdef __cplusplus
}
#endif

#endif /* KX_DEFINE_H */
