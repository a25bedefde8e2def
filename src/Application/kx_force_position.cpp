/* Hybrid force-position control: the static mode, the force drag mode and
 * the streamed force-position targets. The targets are sent like the
 * pass-through stream: one line each, nothing awaited. */
#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

constexpr const char* kMove = "Force_Position_Move";

/* Two force scalings are kept apart on purpose: these truncate the force
 * first (2.7 N -> 20), the record forms scale first (2.7 N -> 27). */
int force_truncated_first(Request& req, float n, const char* name) {
    return req.check(n, name) ? trunc_wire(static_cast<double>(trunc_wire(n)) * 10.0) : 0;
}

void encode6(Request& req, const float* in, float k, const char* name, int (&out)[6]) {
    for (int i = 0; i < 6; ++i) out[i] = req.f(in[i], k, name, i);
}

/* A sensor-less arm has no force drag mode: refused here, nothing sent. */
bool has_force_sensor(kx_robot_handle* h) {
    kx_robot_info_t info{};
    if (kx_get_robot_info(h, &info) == 0 && info.force_type == KX_FORCE_TYPE_P_E) {
        kx_log_error("KX_FORCE_TYPE_P_E not support force drag mode\n");
        return false;
    }
    return true;
}

/* The tail every single-force target shares. */
int send_target(const char* fn, kx_robot_handle* h, Request& req, bool follow, int sensor, int mode, int dir,
                float force) {
    req.flag("follow", follow).num("sensor", sensor).num("mode", mode).num("dir", dir).num(
        "force", force_truncated_first(req, force, "force"));
    return send_only(fn, h, req, 0);
}

}  // namespace

extern "C" {

KX_API int kx_set_force_position(kx_robot_handle* handle, int sensor, int mode, int direction, float N) {
    Request req("set_force_position");
    req.num("sensor", sensor).num("mode", mode).num("direction", direction).num("N", force_truncated_first(req, N, "N"));
    return set_command("kx_set_force_position", handle, req, "set_force_position", "set_state");
}

KX_API int kx_set_force_position_new(kx_robot_handle* handle, kx_force_position_t param) {
    int force[6], vel[6];
    Request req("set_force_position");
    encode6(req, param.desired_force, 10.0f, "desired_force", force);
    encode6(req, param.limit_vel, 1000.0f, "limit_vel", vel);
    req.num("mode", param.mode)
        .num("sensor", param.sensor)
        .ints("desired_force", force, 6)
        .ints("control_mode", param.control_mode, 6)
        .ints("limit_vel", vel, 6);
    return set_command("kx_set_force_position_new", handle, req, "set_force_position", "set_state");
}

KX_API int kx_stop_force_position(kx_robot_handle* handle) {
    return set_bare({"kx_stop_force_position", "stop_force_position", "stop_state"}, handle);
}

KX_API int kx_set_force_drag_mode(kx_robot_handle* handle, int mode) {
    if (!has_force_sensor(handle)) return kInvalidConfig;
    return kx_set_data_common(handle, mode, const_cast<char*>("set_force_drag_mode"), const_cast<char*>("mode"));
}

KX_API int kx_get_force_drag_mode(kx_robot_handle* handle, int* mode) {
    if (!has_force_sensor(handle)) return kInvalidConfig;
    return kx_get_data_common(handle, mode, const_cast<char*>("get_force_drag_mode"), const_cast<char*>("mode"));
}

KX_API int kx_start_force_position_move(kx_robot_handle* handle) {
    return set_bare({"kx_start_force_position_move", "Start_Force_Position_Move", "set_state"}, handle);
}

KX_API int kx_stop_force_position_move(kx_robot_handle* handle) {
    return set_bare({"kx_stop_force_position_move", "Stop_Force_Position_Move", "set_state"}, handle);
}

KX_API int kx_force_position_move_joint(kx_robot_handle* handle, const float* joint, int sensor, int mode, int dir,
                                        float force, bool follow) {
    static const char* const fn = "kx_force_position_move_joint";
    int dof = checked_dof(fn, handle);
    if (dof < 0 || joint == nullptr) return kFailed;
    int wire[7];
    Request req(kMove);
    req.joints(joint, dof, wire, "joint");
    req.ints("joint", wire, dof);
    return send_target(fn, handle, req, follow, sensor, mode, dir, force);
}

KX_API int kx_force_position_move_pose(kx_robot_handle* handle, kx_pose_t pose, int sensor, int mode, int dir,
                                       float force, bool follow) {
    Request req(kMove);
    add_pose_or_quat(req, pose);
    return send_target("kx_force_position_move_pose", handle, req, follow, sensor, mode, dir, force);
}

KX_API int kx_force_position_move(kx_robot_handle* handle, kx_force_position_move_t param) {
    static const char* const fn = "kx_force_position_move";
    check_radio(fn, "[%s] kx_force_position_move_t param warn, invaild radio: %d!\n", param.trajectory_mode,
                param.radio);
    int vel[6], unsent[6];
    Request req(kMove);
    encode6(req, param.limit_vel, 1000.0f, "limit_vel", vel);
    encode6(req, param.desired_force, 10.0f, "desired_force", unsent); /* checked, though never sent */
    req.flag("follow", param.follow)
        .num("sensor", param.sensor)
        .num("mode", param.mode)
        .num("trajectory_mode", param.trajectory_mode)
        .num("radio", param.radio)
        .ints("control_mode", param.control_mode, 6);
    /* The target takes the place the desired force was packed into, so the
     * line carries no "desired_force". */
    if (param.flag != 0) {
        add_pose_or_quat(req, param.pose);
    } else {
        int dof = checked_dof(fn, handle);
        if (dof < 0) return kFailed;
        int wire[7];
        for (int i = 0; i < dof; ++i) wire[i] = req.f(param.joint[i], 1000.0f, "joint", i);
        req.ints("joint", wire, dof);
    }
    req.ints("limit_vel", vel, 6);
    return send_only(fn, handle, req, 0);
}

}  // extern "C"
