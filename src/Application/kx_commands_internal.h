/*
 * Reply decoders and motion helpers of the command families.
 *
 * They have C linkage and are exported so that tests and tools can feed them
 * replies directly; applications use kx_interface.h.
 */
#ifndef KX_COMMANDS_INTERNAL_H
#define KX_COMMANDS_INTERNAL_H

#include "kx_define.h"
#include "kx_structures.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Most frame names a total-frame reply fills into the caller's list. */
#define KX_FRAME_NAMES_MAX 10
/* Most balls of a tool envelope. */
#define KX_ENVELOPE_BALLS_MAX 5

/* Current trajectory reply: 0, or -1 (dof unknown, no usable "data", unknown
 * "type"). `data` holds 7 floats. */
KX_API int parse_kx_get_arm_current_trajectory(kx_robot_handle* handle, const char* msg,
                                               kx_arm_current_trajectory_e* type, float* data);

/* Frame-name list reply: 0, or -2 (no name array). `names` holds
 * KX_FRAME_NAMES_MAX entries. */
KX_API int parse_kx_get_total_frame(const char* msg, kx_frame_name_t* names, int* len);

/* Active tool / work frame replies: 0, or -1 when a part is missing. */
KX_API int parse_kx_get_current_tool_frame(const char* msg, kx_frame_t* frame);
KX_API int parse_kx_get_current_work_frame(const char* msg, kx_frame_t* frame);

/* Tool envelope reply: 0, 1 (the controller answered "get_state" false) or -3. */
KX_API int Parser_Get_Tool_Envelope(const char* msg, kx_envelope_balls_list_t* envelope);

/* Software information reply: 0, or -3 when the reply is not JSON. */
KX_API int parse_kx_get_arm_software_info(const char* msg, kx_arm_software_version_t* info);

/* The single-thread-mode completion step of the blocking motions. */
KX_API int kx_movecmd_singlemode_parse(kx_robot_handle* handle, int block, int tar_device);

/* ---- peripherals and safety zones ------------------------------------ */

/** I/O state reply: "IO_state" and "IO_Mode" 0 or more, and below mode 14 speed and mode set to
 *  -1; mode 14 needs the object "realtime_speed" with "speed" and "mode" 0 or more. 0, or -3. */
KX_API int prase_get_IO_state(const char* msg, kx_io_get_t* config);

/** RS485 mode reply decoded into the table `key_values` (n rows, zeroed by the caller). A missing
 *  third key ("modbus_timeout": the port is not in Modbus RTU mode) ends the decode with 0 and a
 *  warning; another missing key, a wrong type or an array size mismatch gives -3. */
KX_API int parse_rs485(const char* msg, KeyValue* key_values, int n);

/** Fence list reply: the array "info_list" into `list` (at most 10 entries), its count into
 *  `*len`. The first missing or mistyped member ends the decode with -3. */
KX_API int Parser_Get_Electronic_Fence_List_Info(const char* msg, kx_fence_config_list_t* list, int* len);

#ifdef __cplusplus
}
#endif

#endif /* KX_COMMANDS_INTERNAL_H */
