/* Which planned motion the controller is executing, and its target. The
 * blocking motions poll this to see their motion start and end. */
#include <cjson/cJSON.h>

#include "MIO_JSON.h"
#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"

#include <cstring>

using namespace kx;

namespace {

struct TrajectoryKind {
    const char* type;
    kx_arm_current_trajectory_e value;
    bool pose; /* target is a pose rather than joint angles */
    const char* name_log;
};

/* Compared in this order. */
constexpr TrajectoryKind kKinds[] = {
    {"none", KX_NO_PLANNING_E, false, "[kx_get_arm_current_trajectory] Current trajectory is None!\n"},
    {"movej", KX_JOINT_SPACE_PLANNING_E, false, "[kx_get_arm_current_trajectory] Current trajectory is MoveJ!\n"},
    {"movel", KX_CARTESIAN_LINEAR_PLANNING_E, true, "[kx_get_arm_current_trajectory] Current trajectory is MoveL!\n"},
    {"moves", KX_SPLINE_CURVE_MOTION_PLANNING_E, true,
     "[kx_get_arm_current_trajectory] Current trajectory is MoveS!\n"},
    {"movec", KX_CARTESIAN_ARC_PLANNING_E, true, "[kx_get_arm_current_trajectory] Current trajectory is MoveC!\n"},
    {"re_trajectory", KX_TRAJECTORY_REPLAY_PLANNING_E, false,
     "[kx_get_arm_current_trajectory] Current trajectory is Re-Trajectory!\n"},
};

}  // namespace

extern "C" {

KX_API int parse_kx_get_arm_current_trajectory(kx_robot_handle* handle, const char* msg,
                                               kx_arm_current_trajectory_e* type, float* data) {
    if (msg == nullptr || type == nullptr || data == nullptr) return -1;
    int dof = checked_dof("parse_kx_get_arm_current_trajectory", handle);
    if (dof < 0) return -1;
    cJSON* root = cJSON_Parse(msg);
    const cJSON* arr = root ? cJSON_GetObjectItem(root, "data") : nullptr;
    if (!cJSON_IsArray(arr)) {
        kx_log_error("[kx_get_arm_current_trajectory] Get arm current trajectory parse err\n");
        cJSON_Delete(root);
        return -1;
    }
    int size = cJSON_GetArraySize(arr);
    int wire[7] = {};
    for (int i = 0; i < size && i < 7; ++i) {
        const cJSON* item = cJSON_GetArrayItem(arr, i);
        wire[i] = -1; /* a non-number entry */
        if (cJSON_IsNumber(item) && !kx::json_int(item, &wire[i])) {
            kx_log_error("[kx_get_arm_current_trajectory] Get arm current trajectory parse err\n");
            cJSON_Delete(root);
            return -1;
        }
    }
    kx_log_info("[kx_get_arm_current_trajectory] Current trajectory data size: %d, data : (%d, %d, %d, %d, %d, %d, %d)\n",
                size, wire[0], wire[1], wire[2], wire[3], wire[4], wire[5], wire[6]);

    const cJSON* type_item = cJSON_GetObjectItem(root, "type");
    const char* type_text = cJSON_IsString(type_item) ? type_item->valuestring : nullptr;
    const TrajectoryKind* kind = nullptr;
    for (const TrajectoryKind& k : kKinds)
        if (type_text != nullptr && std::strcmp(type_text, k.type) == 0) {
            kind = &k;
            break;
        }
    cJSON_Delete(root);
    if (kind == nullptr) return -1;

    *type = kind->value;
    kx_log_info("%s", kind->name_log);
    if (kind->pose) {
        for (int i = 0; i < 6; ++i) data[i] = from_wire(wire[i], i < 3 ? kMicro : kMilli);
        kx_log_info("[kx_get_arm_current_trajectory] End effector pose:  %.3f, %.3f, %.3f, %.3f, %.3f, %.3f\n",
                    data[0], data[1], data[2], data[3], data[4], data[5]);
        kx_log_info("\n");
    } else {
        for (int i = 0; i < dof; ++i) data[i] = from_wire(wire[i], kMilli);
        if (dof == 6)
            kx_log_info("[kx_get_arm_current_trajectory] Joint Angles: %.3f, %.3f, %.3f, %.3f, %.3f, %.3f\n", data[0],
                        data[1], data[2], data[3], data[4], data[5]);
        else
            kx_log_info("[kx_get_arm_current_trajectory] Joint Angles: %.3f, %.3f, %.3f, %.3f, %.3f, %.3f, %.3f\n",
                        data[0], data[1], data[2], data[3], data[4], data[5], data[6]);
    }
    return 0;
}

KX_API int kx_get_arm_current_trajectory(kx_robot_handle* handle, kx_arm_current_trajectory_e* type, float* data) {
    if (type == nullptr || data == nullptr) return kFailed;
    Request req("get_arm_current_trajectory");
    ReplyBuf buf;
    int r = exchange("kx_get_arm_current_trajectory", handle, &req, "arm_current_trajectory", buf, 1000);
    if (r < 1) return r;
    return parse_kx_get_arm_current_trajectory(handle, buf.text, type, data);
}

}  // extern "C"
