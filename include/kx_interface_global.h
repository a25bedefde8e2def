/*
 * Process-wide state and internal procedures of the connection layer.
 *
 * These have C linkage and are exported so that tests and tools can drive the
 * library's internals directly; applications use kx_interface.h.
 */
#ifndef KX_INTERFACE_GLOBAL_H
#define KX_INTERFACE_GLOBAL_H

/* pthread_rwlock_t needs POSIX 2001 in strict C modes. */
#if !defined(_POSIX_C_SOURCE) && !defined(_GNU_SOURCE)
#define _POSIX_C_SOURCE 200809L
#endif

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "kx_define.h"
#include "kx_structures.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- process-wide state ----------------------------------------------- */
KX_API extern kx_handle_t* gHandleList[5];
KX_API extern kx_thread_mode_e g_mode;
KX_API extern volatile bool should_exit;
KX_API extern pthread_t thread_id;
KX_API extern pthread_t thread_udp_id;
KX_API extern kx_udp_handle* gUdpHandle;
KX_API extern pthread_mutex_t m_hMutex;
KX_API extern pthread_rwlock_t rwlock;
KX_API extern int m_nOutTime;     /* ms, queries and most set commands */
KX_API extern int m_nOutTime_max; /* ms, slower commands */
KX_API extern kx_event_listener_t event_listener;
KX_API extern kx_event_push_data_t event_data;
KX_API extern kx_realtime_arm_state_callback_ptr kx_arm_state_callback;
KX_API extern int min_time;
KX_API extern int min_index;
KX_API extern RECV_FRAME recv_data;

/* Drag-teach trajectory saving: one save at a time per process. The receive
 * side writes point frames to F_SaveDragTeach and keeps these flags. */
KX_API extern FILE* F_SaveDragTeach;
KX_API extern int drag_teach_count;
KX_API extern int drag_teach_total_num;
KX_API extern int drag_teach_save_start;
KX_API extern int drag_teach_save_state;
KX_API extern int drag_teach_save_complete;

/* ---- registry and locks ----------------------------------------------- */
KX_API kx_handle_t* kx_get_kx_handle_by_robot_handle(kx_robot_handle* handle);
KX_API kx_handle_t* kx_get_kx_handle_by_fifo_handle(kx_socket_fifo_handle* handle);
KX_API kx_handle_t* kx_handle_init(const char* ip, int port);
KX_API int kx_sync_robot_info(kx_robot_handle* handle);
KX_API int kx_mutex_lock(void);
KX_API int kx_mutex_unlock(void);
KX_API int kx_rwlock_init(void);
KX_API int kx_rdlock_lock(void);
KX_API int kx_wrlock_lock(void);
KX_API int kx_rdlock_unlock(void);
KX_API int kx_wrlock_unlock(void);
KX_API void sleep_cp(int ms);

/* ---- receive thread, framing, reply queue ----------------------------- */
KX_API void* thread_socket_receive(void* arg);
KX_API void add_str_to_fifo(kx_handle_t* handle, uint8_t* str, int str_len);
KX_API int get_str_from_fifo(kx_socket_fifo_handle* handle, const char* command, uint8_t* str, int str_len);
KX_API int handle_revice_data(const char* caller_function_name, kx_handle_t* handle, const char* command,
                              uint8_t* buf, int buf_len, int timeout);

/* ---- command envelope and generic codec ------------------------------- */
KX_API int common_json_pack_set(const char* caller_function_name, kx_handle_t* handle,
                                const JsonValue* json_values, size_t num_values);
KX_API int common_json_parse(const char* caller_function_name, const char* json_str, KeyValue* key_values,
                             int num_keys);
KX_API int kx_pack_lock_set(const char* caller_function_name, kx_robot_handle* handle,
                            const JsonValue* json_values, size_t num_values, const char* command, uint8_t* buf,
                            int buf_len, int timeout);
KX_API int parse_kx_set_command(const char* caller_function_name, const char* json_str, const char* key);
KX_API int common_json_pack_get(const char* caller_function_name, kx_handle_t* handle, const char* command,
                                char* out, int out_len);

/* ---- events ----------------------------------------------------------- */
KX_API int parse_kx_move_command(const char* json_str, int* device, int* trajectory_connect);

/* ---- realtime --------------------------------------------------------- */
KX_API void* thread_udp_receive(void* arg);
KX_API int parse_kx_realtime_arm_joint_state(const char* json_str, kx_realtime_arm_joint_state_t* robotstate);
KX_API kx_udp_arm_current_status_e get_arm_status_from_string(const char* status);

#ifdef __cplusplus
}
#endif

#endif /* KX_INTERFACE_GLOBAL_H */
