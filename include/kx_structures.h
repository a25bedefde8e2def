/*
 * Internal records of libapi_c. They are published so that tests and tools
 * can inspect the library's state byte for byte; applications need only
 * kx_define.h and kx_interface.h.
 */
#ifndef KX_STRUCTURES_H
#define KX_STRUCTURES_H

#include <stddef.h>
#include <stdint.h>

#include "kx_define.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/* ---- TCP transport ---------------------------------------------------- */

typedef struct __kx_socket_handle {
    int socket_id; /* descriptor; -1 until connected, after a failed connect or once the peer closed */
    char ip[20];
    int port;
    char udp_ip[20];
    int udp_port;
    int (*init)(struct __kx_socket_handle* handle);
    int (*send)(struct __kx_socket_handle* handle, uint8_t* bytes, int len);
    int (*block_send)(struct __kx_socket_handle* handle, uint8_t* bytes, int len);
    int (*receive)(struct __kx_socket_handle* handle, uint8_t* bytes, int len);
    int (*block_receive)(struct __kx_socket_handle* handle, uint8_t* bytes, int len);
    int (*close)(struct __kx_socket_handle* handle);
} kx_socket_handle;

/* ---- reply queue ------------------------------------------------------ */

#define KX_FIFO_SLOTS 40
#define KX_FIFO_COMMAND_LEN 50
#define KX_FIFO_FRAME_LEN 10240
#define KX_RECV_FRAME_LEN 20480

typedef struct __attribute__((packed)) {
    uint8_t is_used;
    int recevie_len;
    char command[KX_FIFO_COMMAND_LEN];
    uint32_t id;
    uint8_t str_json[KX_FIFO_FRAME_LEN];
    uint64_t time;
} kx_socket_fifo;

typedef struct {
    kx_socket_fifo fifo[KX_FIFO_SLOTS];
    uint8_t head;
    uint8_t tail;
    uint64_t current_time;
} kx_socket_fifo_handle;

typedef struct {
    int length;
    uint8_t data[KX_RECV_FRAME_LEN];
} RECV_FRAME;

/* ---- connection record ------------------------------------------------ */

typedef struct {
    uint8_t id;
    kx_socket_handle* socket_handle;
    kx_socket_fifo_handle* fifo_handle;
    kx_robot_handle robot_handle;
    int arm_dof;
    kx_robot_arm_model_e arm_model;
    kx_force_type_e force_type;
    kx_frame_t tool_frame;
    kx_frame_t work_frame;
    float install_angle[3];
    float joint_max_limit[7];
    float joint_min_limit[7];
    float joint_max_acc[7];
    float joint_max_speed[7];
    kx_dh_t dh;
    int udp_port;
} kx_handle_t;

/* ---- JSON codec tables ------------------------------------------------ */

typedef enum {
    JSON_STRING = 0,
    JSON_INT = 1,
    JSON_ARRAY = 2,
    JSON_BOOL = 3,
    JSON_OBJECT = 4,
} JsonValueType;

/* One request member. A row with a null key is skipped. */
typedef struct {
    JsonValueType type;
    const char* key;
    int array_size;
    union {
        const char* str_value;
        int int_value;
        const int* array_value;
        bool bool_value;
        struct cJSON* sub_json; /* ownership passes to the request */
    } data;
} JsonValue;

/* One reply member to decode. */
typedef struct {
    JsonValueType type;
    const char* key;
    int array_size;
    union {
        char str_value[28];
        int int_value;
        int array_value[24];
        bool bool_value;
        struct cJSON* sub_json; /* deep copy; the caller frees it */
    } data;
} KeyValue;

/* ---- logging ---------------------------------------------------------- */

typedef struct {
    LogCallback callback;
    LogLevel log_level;
} Logger;

/* ---- events ----------------------------------------------------------- */

typedef struct {
    kx_event_callback_ptr event_callback;
    int flag; /* 0 none, 1 discard next trajectory event, 2 discard next program event */
} kx_event_listener_t;

/* ---- UDP port registry ------------------------------------------------ */

typedef struct {
    int udp_id;
    int port;
    int user_num;
} kx_udp_info;

typedef struct __kx_udp_handle {
    kx_udp_info udp_list[5];
    int (*udp_add_port)(struct __kx_udp_handle* handle, int port);
    int (*udp_delete_port)(struct __kx_udp_handle* handle, int port);
} kx_udp_handle;

#ifdef __cplusplus
}
#endif

#endif /* KX_STRUCTURES_H */
