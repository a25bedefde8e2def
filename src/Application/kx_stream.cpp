/* Pass-through and follow targets: one line each, sent without waiting for
 * anything, so that the caller's control loop keeps its own rate. */
#include "kx_command.h"

using namespace kx;

namespace {

/* The controller's accepted radio ranges per trajectory mode; outside them
 * the line is still sent, with a warning. */
void check_radio(const char* fn, const char* warning, int trajectory_mode, int radio) {
    bool bad = (trajectory_mode == 0 && radio >= 1) || (trajectory_mode == 1 && radio > 100) ||
               (trajectory_mode == 2 && radio > 1000);
    if (bad) kx_log_warn(warning, fn, radio);
}

/* A pose whose quaternion is (nearly) unit travels as position + quaternion,
 * otherwise as position + Euler angles. */
void add_pose(Request& req, const kx_pose_t& pose) {
    int wire[7];
    const kx_quat_t& q = pose.quaternion;
    float n = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    if (static_cast<double>(n) > 0.99 && static_cast<double>(n) < 1.1) {
        const float v[7] = {pose.position.x, pose.position.y, pose.position.z, q.w, q.x, q.y, q.z};
        for (int i = 0; i < 7; ++i) wire[i] = req.f(v[i], 1000000.0f, i < 3 ? "pose.position" : "pose.quaternion", i < 3 ? i : i - 3);
        req.ints("pose_quat", wire, 7);
    } else {
        req.pose(pose, wire, "pose");
        req.ints("pose", wire, 6);
    }
}

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
    if (dof < 0) return -1;
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
    add_pose(req, config.pose);
    req.num("trajectory_mode", config.trajectory_mode).num("radio", config.radio);
    return send_only(fn, handle, req, 0);
}

KX_API int kx_movej_follow(kx_robot_handle* handle, float* joint) {
    static const char* const fn = "kx_movej_follow";
    int wire[7];
    Request req("movej_follow");
    int dof = joint_wire(fn, handle, req, joint, wire);
    if (dof < 0) return -1;
    req.ints("joint", wire, dof);
    return send_only(fn, handle, req, 0);
}

KX_API int kx_movep_follow(kx_robot_handle* handle, kx_pose_t pose) {
    Request req("movep_follow");
    add_pose(req, pose);
    return send_only("kx_movep_follow", handle, req, 0);
}

}  // extern "C"
