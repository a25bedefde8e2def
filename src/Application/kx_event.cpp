// Controller events pushed on the command connection, and the arm event callback.
#include <string.h>

#include "MIO_JSON.h"
#include "kx_core.h"
#include "kx_interface.h"
#include "log.h"

extern "C" {
KX_API kx_event_listener_t event_listener = {nullptr, 0};
KX_API kx_event_push_data_t event_data;
}

void kx::dispatch_event(const kx_handle_t* record, const cJSON* root, const char* key) {
    kx_event_push_data_t event = {};
    event.handle_id = handle_id(record);
    if (strcmp(key, "current_trajectory_state") == 0) {
        event.event_type = KX_CURRENT_TRAJECTORY_STATE_E;
        event.device = MIO_JSON_GetObjectItemInt(root, "device");
        // A missing or non-boolean member reads -1, which counts as reached.
        event.trajectory_state = MIO_JSON_GetObjectItemBool(root, "trajectory_state") != 0;
        event.trajectory_connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
        event.program_id = 0;
    } else if (strcmp(key, "program_run_finish") == 0) {
        event.event_type = KX_PROGRAM_RUN_FINISH_E;
        event.program_id = MIO_JSON_GetObjectItemInt(root, "finish_id");
    } else {
        return;
    }
    event_data = event;
    kx_event_callback_ptr callback = __atomic_load_n(&event_listener.event_callback, __ATOMIC_ACQUIRE);
    if (callback) callback(event);
}

extern "C" {

KX_API void kx_get_arm_event_call_back(kx_event_callback_ptr event_callback) {
    if (event_callback) __atomic_store_n(&event_listener.event_callback, event_callback, __ATOMIC_RELEASE);
}

KX_API int parse_kx_move_command(const char* json_str, int* device, int* trajectory_connect) {
    cJSON* root = MIO_JSON_Parse(json_str);
    if (!root) {
        kx_log_error("Set command parse err\n");
        return -3;
    }
    int state = MIO_JSON_GetObjectItemBool(root, "trajectory_state");
    int dev = MIO_JSON_GetObjectItemInt(root, "device");
    int connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
    MIO_JSON_Delete(root);
    if ((state == 1 || state == 0) && dev >= 0 && connect >= 0) {
        if (device) *device = dev;
        if (trajectory_connect) *trajectory_connect = connect;
        if (state == 1) {
            kx_log_debug("Move command result is: true, current Device: %d, trajectory_connect: %d\n", dev, connect);
            return 1;
        }
        kx_log_error("Move command result is: false, current Device: %d, trajectory_connect: %d\n", dev, connect);
        return 0;
    }
    kx_log_error("Move command parse err\n");
    return -3;
}

}  // extern "C"
