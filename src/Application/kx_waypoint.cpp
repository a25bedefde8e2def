/* Global waypoints stored on the controller: joints, pose and the frames
 * they refer to, converted between the caller's floats and wire integers. */
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"
#include "kx_reply.h"

using namespace kx;

namespace {

constexpr int kListTimeout = 2000;
constexpr int kMaxEntries = 100;
constexpr size_t kNameKept = 17;  /* names read back keep 16 characters */
constexpr size_t kFrameKept = 11; /* frame names read back keep 10 */

/* A record's fixed text field, which may fill its array without a terminator. */
template <size_t N>
struct Text {
    char text[N + 1] = {};
    explicit Text(const char (&src)[N]) { std::memcpy(text, src, N); }
};

/* Add and update share everything but their names. */
int store_waypoint(const char* fn, const char* command, const char* verdict, kx_robot_handle* h,
                   const kx_waypoint_t& wp) {
    int dof = checked_dof(fn, h);
    if (dof < 0) return -1;
    int joint[7], pose[6];
    Request req(command);
    req.joints(wp.joint, dof, joint, "joint");
    req.pose(wp.pose, pose, "pose");
    char stamp[50];
    time_t now = time(nullptr);
    struct tm t {};
    localtime_r(&now, &t);
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                  t.tm_hour, t.tm_min, t.tm_sec);
    Text name(wp.point_name);
    Text work(wp.work_frame), tool(wp.tool_frame);
    req.str("point_name", name.text)
        .ints("joint", joint, dof)
        .ints("pose", pose, 6)
        .str("work_frame", work.text)
        .str("tool_frame", tool.text)
        .str("time", stamp);
    return set_command(fn, h, req, command, verdict);
}

void joints_from_wire(const int* wire, int dof, float* out) {
    for (int i = 0; i < dof; ++i) out[i] = from_wire(wire[i], kMilli);
}

/* A waypoint's pose as it travels: position and Euler angles only, the
 * caller's quaternion is left as it was. */
void waypoint_pose_from_wire(const int wire[6], kx_pose_t* pose) {
    const kx_quat_t kept = pose->quaternion;
    pose_from_wire(wire, pose);
    pose->quaternion = kept;
}

bool read_entry(const cJSON* item, int dof, kx_waypoint_t& p) {
    const char* name = MIO_JSON_GetObjectItemStr(item, "point_name");
    const char* tool = MIO_JSON_GetObjectItemStr(item, "tool_frame");
    const char* work = MIO_JSON_GetObjectItemStr(item, "work_frame");
    const char* time = MIO_JSON_GetObjectItemStr(item, "time");
    int joint[7], pose[6];
    if (!name || !tool || !work || !time || read_ints(item, "joint", dof, joint) != Read::Ok ||
        read_ints(item, "pose", 6, pose) != Read::Ok)
        return false;
    copy_str(p.point_name, kNameKept, name);
    copy_str(p.tool_frame, tool);
    copy_str(p.work_frame, work);
    copy_str(p.time, time);
    joints_from_wire(joint, dof, p.joint);
    waypoint_pose_from_wire(pose, &p.pose);
    return true;
}

}  // namespace

extern "C" {

KX_API int parser_get_point_list(const char* caller_function_name, const char* json_str, int dof,
                                 kx_waypoint_list_t* point_list) {
    (void)caller_function_name;
    if (point_list == nullptr || dof < 1 || dof > 7) return kUndecodable;
    cJSON* root = json_str ? MIO_JSON_Parse(json_str) : nullptr;
    if (root == nullptr) return kUndecodable;
    int result = 0;
    const cJSON* state = MIO_JSON_GetObjectItem(root, "get_state");
    const cJSON* total = MIO_JSON_GetObjectItem(root, "total_size");
    const cJSON* list = MIO_JSON_GetObjectItem(root, "list");
    if (state != nullptr && !cJSON_IsBool(state)) result = -3;
    else if (cJSON_IsFalse(state)) result = 1;
    else if (!json_int(total, &point_list->total_size) || !cJSON_IsArray(list)) result = -3;
    if (result == 0) {
        int n = std::min(cJSON_GetArraySize(list), kMaxEntries);
        point_list->list_len = n;
        for (int i = 0; i < n && result == 0; ++i)
            if (!read_entry(cJSON_GetArrayItem(list, i), dof, point_list->points_list[i])) result = -3;
    }
    MIO_JSON_Delete(root);
    return result;
}

KX_API int kx_add_global_waypoint(kx_robot_handle* handle, kx_waypoint_t waypoint) {
    return store_waypoint("kx_add_global_waypoint", "add_global_waypoint", "add_state", handle, waypoint);
}

KX_API int kx_update_global_waypoint(kx_robot_handle* handle, kx_waypoint_t waypoint) {
    return store_waypoint("kx_update_global_waypoint", "update_global_waypoint", "update_state", handle, waypoint);
}

KX_API int kx_delete_global_waypoint(kx_robot_handle* handle, const char* point_name) {
    Request req("delete_global_waypoint");
    req.str("point_name", point_name);
    return set_command("kx_delete_global_waypoint", handle, req, "delete_global_waypoint", "delete_state");
}

KX_API int kx_get_given_global_waypoint(kx_robot_handle* handle, const char* name, kx_waypoint_t* point) {
    static const char* const fn = "kx_get_given_global_waypoint";
    if (point == nullptr) return kFailed;
    Request req("given_global_waypoint");
    req.str("point_name", name);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "given_global_waypoint", buf);
    if (r < 1) return r;
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    KeyValue kv[6] = {kv_str("point_name"), kv_ints("joint", dof), kv_ints("pose", 6),
                      kv_str("work_frame"), kv_str("tool_frame"),  kv_str("time")};
    int d = common_json_parse(fn, buf.text, kv, 6);
    if (d == 0) {
        copy_str(point->point_name, kNameKept, kv[0].data.str_value);
        joints_from_wire(kv[1].data.array_value, dof, point->joint);
        waypoint_pose_from_wire(kv[2].data.array_value, &point->pose);
        copy_str(point->work_frame, kFrameKept, kv[3].data.str_value);
        copy_str(point->tool_frame, kFrameKept, kv[4].data.str_value);
        copy_str(point->time, 29, kv[5].data.str_value);
        return 0;
    }
    if (d == -3 && parse_kx_set_command(fn, buf.text, "given_state") == 1) return 1;
    return d;
}

KX_API int kx_get_global_waypoints_list(kx_robot_handle* handle, int page_num, int page_size,
                                        const char* vague_search, kx_waypoint_list_t* point_list) {
    static const char* const fn = "kx_get_global_waypoints_list";
    if (point_list == nullptr) return kFailed;
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    static thread_local char buf[kListBuf];
    int r = list_page(fn, handle, "get_global_waypoints_list", page_num, page_size, vague_search, buf, sizeof buf,
                      kListTimeout);
    if (r < 1) return r;
    return parser_get_point_list(fn, buf, dof, point_list);
}

}  // extern "C"
