/* Pass-through and follow targets: one line each, sent without waiting for
 * anything, so that the caller's control loop keeps its own rate. */
#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

int joint_wire(const char* fn, kx_robot_handle* h, Request& req, const float* joint, int (&wire)[7]) {
    if (joint == nullptr) return -1;
    int dof = checked_dof(fn, h);
    req.joints(joint, dof, wire, "joint");
    return dof;
}

}  // namespace

extern "C" {

KX_API int kx_movej_canfd(kx_robot_handle* handle, kx_movej_canfd_mode_t config) {
    static const char* const fn = "kx_movej_canfd";
    check_radio(fn, "[%s] kx_movej_canfd_mode_t config warn, invaild radio: %d!\n", config.trajectory_mode,
                config.radio);
    int wire[7];
    Request req("movej_canfd");
    int dof = joint_wire(fn, handle, req, config.joint, wire);
    if (dof < 0) return kFailed;
    req.ints("joint", wire, dof)
        .flag("follow", config.follow)
        .num("expand", req.f(config.expand, 1000.0f, "expand"))
        .num("trajectory_mode", config.trajectory_mode)
        .num("radio", config.radio);
    return send_only(fn, handle, req, 0);
}

KX_API int kx_movep_canfd(kx_robot_handle* handle, kx_movep_canfd_mode_t config) {
    static const char* const fn = "kx_movep_canfd";
    check_radio(fn, "[%s] kx_movep_canfd_mode_t config warn, invaild radio: %d!\n", config.trajectory_mode,
                config.radio);
    Request req("movep_canfd");
    req.flag("follow", config.follow);
    add_pose_or_quat(req, config.pose);
    req.num("trajectory_mode", config.trajectory_mode).num("radio", config.radio);
    return send_only(fn, handle, req, 0);
}

KX_API int kx_movej_follow(kx_robot_handle* handle, float* joint) {
    static const char* const fn = "kx_movej_follow";
    int wire[7];
    Request req("movej_follow");
    int dof = joint_wire(fn, handle, req, joint, wire);
    if (dof < 0) return kFailed;
    req.ints("joint", wire, dof);
    return send_only(fn, handle, req, 0);
}

KX_API int kx_movep_follow(kx_robot_handle* handle, kx_pose_t pose) {
    Request req("movep_follow");
    add_pose_or_quat(req, pose);
    return send_only("kx_movep_follow", handle, req, 0);
}

}  // extern "C"
