/*
 * libapi_c public enumerations and records.
 *
 * Every record here crosses the library boundary by value or by pointer, so
 * field order, types and array sizes are part of the ABI: do not reorder.
 */
#ifndef KX_DEFINE_H
#define KX_DEFINE_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>

#if defined(_WIN32)
#define KX_API
#else
#define KX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- logging ---------------------------------------------------------- */

typedef enum {
    LOG_LEVEL_DEBUG = 0,
    LOG_LEVEL_INFO = 1,
    LOG_LEVEL_WARN = 2,
    LOG_LEVEL_ERROR = 3,
} LogLevel;

/* A log sink: receives the message's format and its captured arguments. */
typedef void (*LogCallback)(const char* fmt, va_list args);

/* ---- lifecycle -------------------------------------------------------- */

typedef enum {
    KX_SINGLE_MODE_E = 0,
    KX_DUAL_MODE_E = 1,
    KX_TRIPLE_MODE_E = 2,
} kx_thread_mode_e;

typedef enum {
    KX_MODEL_AVEN_E = 0,
    KX_MODEL_BRIV_E = 1,
    KX_MODEL_CALD_I_E = 2,
    KX_MODEL_CALD_II_E = 3,
    KX_MODEL_CALD_III_E = 4,
    KX_MODEL_CALD_IV_E = 5,
    KX_MODEL_DUMO_E = 6,
    KX_MODEL_ESKA_E = 7,
    KX_MODEL_FIRU_E = 8,
    KX_MODEL_GOLT_E = 9,
} kx_robot_arm_model_e;

typedef enum {
    KX_FORCE_TYPE_P_E = 0,
    KX_FORCE_TYPE_QA_E = 1,
    KX_FORCE_TYPE_QS_E = 2,
} kx_force_type_e;

/* The application's handle of one arm: slot + 1 (1..5), or -1 after a failure. */
typedef struct {
    int id;
} kx_robot_handle;

typedef struct {
    int arm_dof;
    kx_robot_arm_model_e arm_model;
    kx_force_type_e force_type;
} kx_robot_info_t;

/* ---- poses ------------------------------------------------------------ */

typedef struct {
    float x;
    float y;
    float z;
} kx_position_t;

typedef struct {
    float rx;
    float ry;
    float rz;
} kx_euler_t;

typedef struct {
    float w;
    float x;
    float y;
    float z;
} kx_quat_t;

typedef struct {
    kx_position_t position;
    kx_quat_t quaternion;
    kx_euler_t euler;
} kx_pose_t;

/* Homogeneous transform, row-major, translation in the last column (metres). */
typedef struct {
    int16_t irow;
    int16_t iline;
    float data[4][4];
} kx_matrix_t;

typedef struct {
    float d[8];      /* metres */
    float a[8];      /* metres */
    float alpha[8];  /* degrees */
    float offset[8]; /* degrees */
} kx_dh_t;

typedef struct {
    uint8_t err_len;
    int err[24];
} kx_err_t;

/* ---- frames ----------------------------------------------------------- */

typedef struct {
    char name[12];
} kx_frame_name_t;

typedef struct {
    char frame_name[12];
    kx_pose_t pose;
    float payload; /* kg */
    float x;       /* centre of mass, metres */
    float y;
    float z;
} kx_frame_t;

typedef struct {
    char name[12];
    float radius;
    float x;
    float y;
    float z;
} kx_envelopes_ball_t;

typedef struct {
    kx_envelopes_ball_t balls[5];
    int size;
    char tool_name[12];
} kx_envelope_balls_list_t;

/* ---- events ----------------------------------------------------------- */

typedef enum {
    KX_NONE_EVENT_E = 0,
    KX_CURRENT_TRAJECTORY_STATE_E = 1,
    KX_PROGRAM_RUN_FINISH_E = 2,
} kx_event_type_e;

typedef struct {
    int handle_id;
    kx_event_type_e event_type;
    bool trajectory_state;
    int device;
    int trajectory_connect;
    int program_id;
} kx_event_push_data_t;

typedef void (*kx_event_callback_ptr)(kx_event_push_data_t data);

/* ---- realtime push ---------------------------------------------------- */

typedef struct {
    int joint_speed;
    int lift_state;
    int expand_state;
    int hand_state;
    int arm_current_status;
    int aloha_state;
} kx_udp_custom_config_t;

typedef struct {
    int cycle;
    bool enable;
    int port;
    int force_coordinate;
    char ip[28];
    kx_udp_custom_config_t custom_config;
} kx_realtime_push_config_t;

typedef struct {
    float joint_current[7];
    bool joint_en_flag[7];
    uint16_t joint_err_code[7];
    float joint_position[7];
    float joint_temperature[7];
    float joint_voltage[7];
    float joint_speed[7];
} kx_joint_status_t;

typedef struct {
    float force[6];
    float zero_force[6];
    int coordinate;
} kx_force_sensor_t;

typedef struct {
    int height;
    float pos;
    int current;
    int err_flag;
    int en_flag;
} kx_udp_lift_state_t;

typedef struct {
    float pos;
    int current;
    int err_flag;
    int en_flag;
    int joint_id;
    int mode;
} kx_udp_expand_state_t;

typedef struct {
    int hand_pos[6];
    int hand_angle[6];
    int hand_force[6];
    int hand_state[6];
    int hand_err;
} kx_udp_hand_state_t;

typedef enum {
    KX_IDLE_E = 0,
    KX_MOVE_L_E = 1,
    KX_MOVE_J_E = 2,
    KX_MOVE_C_E = 3,
    KX_MOVE_S_E = 4,
    KX_MOVE_THROUGH_JOINT_E = 5,
    KX_MOVE_THROUGH_POSE_E = 6,
    KX_MOVE_THROUGH_FORCE_POSE_E = 7,
    KX_MOVE_THROUGH_CURRENT_E = 8,
    KX_STOP_E = 9,
    KX_SLOW_STOP_E = 10,
    KX_PAUSE_E = 11,
    KX_CURRENT_DRAG_E = 12,
    KX_SENSOR_DRAG_E = 13,
    KX_TECH_DEMONSTRATION_E = 14,
} kx_udp_arm_current_status_e;

typedef struct {
    int io1_state;
    int io2_state;
} kx_udp_aloha_state_t;

typedef struct {
    int errCode;
    char arm_ip[16];
    kx_joint_status_t joint_status;
    kx_force_sensor_t force_sensor;
    kx_err_t err;
    kx_pose_t waypoint;
    kx_udp_lift_state_t liftState;
    kx_udp_expand_state_t expandState;
    kx_udp_hand_state_t handState;
    kx_udp_arm_current_status_e arm_current_status;
    kx_udp_aloha_state_t aloha_state;
} kx_realtime_arm_joint_state_t;

typedef void (*kx_realtime_arm_state_callback_ptr)(kx_realtime_arm_joint_state_t state);

/* ---- motion ----------------------------------------------------------- */

typedef enum {
    KX_NO_PLANNING_E = 0,
    KX_JOINT_SPACE_PLANNING_E = 1,
    KX_CARTESIAN_LINEAR_PLANNING_E = 2,
    KX_CARTESIAN_ARC_PLANNING_E = 3,
    KX_SPLINE_CURVE_MOTION_PLANNING_E = 4,
    KX_TRAJECTORY_REPLAY_PLANNING_E = 5,
} kx_arm_current_trajectory_e;

typedef struct {
    float* joint; /* degrees, arm_dof entries */
    float expand;
    bool follow;
    int trajectory_mode;
    int radio;
} kx_movej_canfd_mode_t;

typedef struct {
    kx_pose_t pose;
    bool follow;
    int trajectory_mode;
    int radio;
} kx_movep_canfd_mode_t;

typedef enum {
    KX_X_DIR_E = 0,
    KX_Y_DIR_E = 1,
    KX_Z_DIR_E = 2,
} kx_pos_teach_type_e;

typedef enum {
    KX_RX_ROTATE_E = 0,
    KX_RY_ROTATE_E = 1,
    KX_RZ_ROTATE_E = 2,
} kx_ort_teach_type_e;

/* ---- arm state -------------------------------------------------------- */

typedef struct {
    kx_pose_t pose;
    float joint[7];
    kx_err_t err;
} kx_current_arm_state_t;

typedef struct {
    float joint_current[7];
    int joint_en_flag[7];
    float joint_temperature[7];
    float joint_voltage[7];
    int joint_err_code[7];
    kx_err_t err;
} kx_arm_all_state_t;

/* ---- controller ------------------------------------------------------- */

typedef struct {
    char version[20];
} kx_algorithm_version_t;

typedef struct {
    char build_time[20];
    char version[10];
} kx_ctrl_version_t;

typedef struct {
    char model_version[5];
} kx_dynamic_version_t;

typedef struct {
    char build_time[20];
    char version[10];
} kx_planinfo_t;

typedef struct {
    char product_version[10];
    kx_algorithm_version_t algorithm_info;
    kx_ctrl_version_t ctrl_info;
    kx_dynamic_version_t dynamic_info;
    kx_planinfo_t plan_info;
} kx_arm_software_version_t;

typedef struct {
    int channel;
    char ip[16];
    char mac[18];
    char mask[16];
    char mode[5];
    char password[16];
    char ssid[32];
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

typedef struct {
    float q_in[7];      /* reference joints, degrees */
    kx_pose_t q_pose;   /* target */
    uint8_t flag;       /* 0: orientation from quaternion, 1: from Euler angles */
} kx_inverse_kinematics_params_t;

#ifdef __cplusplus
}
#endif

#endif /* KX_DEFINE_H */
