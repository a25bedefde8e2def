/**
 * @file kx_structures.h
 * @brief Internal records of libapi_c: the socket record, the reply queue, the
 * connection record, the codec tables, the logger, the event listener and the
 * UDP port registry. Not installed: the public interface (kx_define.h,
 * kx_interface.h) needs none of them. Tests and tools built in the tree read
 * them through kx_interface_global.h.
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

/** One TCP connection to a controller, with its operations. */
typedef struct __kx_socket_handle {
    int socket_id; /**< descriptor; -1 until connected, after a failed connect or once the peer closed */
    char ip[20]; /**< controller address */
    int port; /**< TCP port (kx_udp_info: UDP port) */
    char udp_ip[20]; /**< realtime push address */
    int udp_port; /**< realtime push port registered for this connection */
    int (*init)(struct __kx_socket_handle* handle); /**< connects */
    int (*send)(struct __kx_socket_handle* handle, uint8_t* bytes, int len); /**< sends without blocking */
    int (*block_send)(struct __kx_socket_handle* handle, uint8_t* bytes, int len); /**< sends, waiting for room */
    int (*receive)(struct __kx_socket_handle* handle, uint8_t* bytes, int len); /**< receives what is waiting */
    int (*block_receive)(struct __kx_socket_handle* handle, uint8_t* bytes, int len); /**< receives, waiting for data */
    int (*close)(struct __kx_socket_handle* handle); /**< closes the connection */
} kx_socket_handle;

/* ---- reply queue ------------------------------------------------------ */

#define KX_FIFO_SLOTS 40 /**< slots of a reply queue */
#define KX_FIFO_COMMAND_LEN 50 /**< bytes of a queued command name */
#define KX_FIFO_FRAME_LEN 10240 /**< bytes of a queued frame */
#define KX_RECV_FRAME_LEN 20480 /**< bytes of the receive buffer */

/** One slot of a connection's reply queue: a received frame and its command name. */
typedef struct __attribute__((packed)) {
    uint8_t is_used; /**< 1 when the slot holds a frame */
    int recevie_len; /**< frame length, bytes */
    char command[KX_FIFO_COMMAND_LEN]; /**< the frame's "command" (or "state") value */
    uint32_t id; /**< slot number + 1 */
    uint8_t str_json[KX_FIFO_FRAME_LEN]; /**< the frame */
    uint64_t time; /**< arrival stamp */
} kx_socket_fifo;

/** A connection's reply queue: KX_FIFO_SLOTS slots. */
typedef struct {
    kx_socket_fifo fifo[KX_FIFO_SLOTS]; /**< the slots */
    uint8_t head; /**< next slot to read */
    uint8_t tail; /**< next slot to write */
    uint64_t current_time; /**< stamp counter */
} kx_socket_fifo_handle;

/** Receive buffer of the receive thread. */
typedef struct {
    int length; /**< bytes held */
    uint8_t data[KX_RECV_FRAME_LEN]; /**< the bytes (KeyValue, JsonValue: the value) */
} RECV_FRAME;

/* ---- connection record ------------------------------------------------ */

/** The library's record of one connection, with its cached configuration. */
typedef struct {
    uint8_t id; /**< slot number + 1 */
    kx_socket_handle* socket_handle; /**< the TCP connection, owned */
    kx_socket_fifo_handle* fifo_handle; /**< the reply queue, owned */
    kx_robot_handle robot_handle; /**< the handle given to the application; its address is the key */
    int arm_dof; /**< joint count, 6 or 7 once known */
    kx_robot_arm_model_e arm_model; /**< model */
    kx_force_type_e force_type; /**< force edition */
    kx_frame_t tool_frame; /**< current tool frame */
    kx_frame_t work_frame; /**< current work frame */
    float install_angle[3]; /**< installation angles, degrees */
    float joint_max_limit[7]; /**< upper joint limits, degrees */
    float joint_min_limit[7]; /**< lower joint limits, degrees */
    float joint_max_acc[7]; /**< joint acceleration limits */
    float joint_max_speed[7]; /**< joint speed limits */
    kx_dh_t dh; /**< DH parameters */
    int udp_port; /**< realtime push port registered for this connection */
} kx_handle_t;

/* ---- JSON codec tables ------------------------------------------------ */

/** Type of a JSON member in the codec tables. */
typedef enum {
    JSON_STRING = 0, /**< string */
    JSON_INT = 1, /**< integer */
    JSON_ARRAY = 2, /**< integer array */
    JSON_BOOL = 3, /**< boolean */
    JSON_OBJECT = 4, /**< nested object */
} JsonValueType;

/** One request member. A row with a null key is skipped. */
typedef struct {
    JsonValueType type; /**< value type */
    const char* key; /**< member name; a row with a null key is skipped */
    int array_size; /**< element count of an array value */
    union {
        const char* str_value; /**< string value */
        int int_value; /**< integer value */
        const int* array_value; /**< integer array value */
        bool bool_value; /**< boolean value */
        struct cJSON* sub_json; /**< nested object; ownership passes to the request */
    } data; /**< the value, by type */
} JsonValue;

/** One reply member to decode. */
typedef struct {
    JsonValueType type; /**< value type */
    const char* key; /**< member name; a row with a null key is skipped */
    int array_size; /**< element count of an array value */
    union {
        char str_value[28]; /**< string value */
        int int_value; /**< integer value */
        int array_value[24]; /**< integer array value */
        bool bool_value; /**< boolean value */
        struct cJSON* sub_json; /**< nested object, a deep copy; the caller frees it */
    } data; /**< the decoded value, by type */
} KeyValue;

/* ---- logging ---------------------------------------------------------- */

/** The current log sink and threshold. */
typedef struct {
    LogCallback callback; /**< sink, or null for standard error */
    LogLevel log_level; /**< lowest level written */
} Logger;

/* ---- events ----------------------------------------------------------- */

/** The event callback and the discard flag of the reply queue. */
typedef struct {
    kx_event_callback_ptr event_callback; /**< the application's event callback */
    int flag; /**< 0 none, 1 discard the next trajectory event, 2 discard the next program event */
} kx_event_listener_t;

/* ---- UDP port registry ------------------------------------------------ */

/** One registered realtime UDP port. */
typedef struct {
    int udp_id; /**< socket descriptor */
    int port; /**< TCP port (kx_udp_info: UDP port) */
    int user_num; /**< connections using the port */
} kx_udp_info;

/** The realtime UDP port registry (triple mode). */
typedef struct __kx_udp_handle {
    kx_udp_info udp_list[5]; /**< the registered ports */
    int (*udp_add_port)(struct __kx_udp_handle* handle, int port); /**< registers a port (or counts one more user) */
    int (*udp_delete_port)(struct __kx_udp_handle* handle, int port); /**< releases a port */
} kx_udp_handle;

#ifdef __cplusplus
}
#endif

#endif /* KX_STRUCTURES_H */
