/* Planned moves: joint, linear, spline, arc and pose-to-joint, each
 * non-blocking (returns once the controller accepted) or blocking (then
 * waits until the arm reports the motion finished). */
#include <cjson/cJSON.h>

#include <cstring>

#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"
#include "kx_core.h"

using namespace kx;

namespace {

/* The trajectory type each blocking move watches for. */
constexpr int kJointType = KX_JOINT_SPACE_PLANNING_E;
constexpr int kLineType = KX_CARTESIAN_LINEAR_PLANNING_E;
constexpr int kArcType = KX_CARTESIAN_ARC_PLANNING_E;
constexpr int kSplineType = KX_SPLINE_CURVE_MOTION_PLANNING_E;

/* Sends {"command", "v", "joint", "trajectory_connect", "r"}; the reply
 * length or the failure code. */
int send_joint_move(kx_robot_handle* h, const float* joint, int v, int r, int tc, ReplyBuf& buf) {
    static const char* const fn = "kx_movej";
    if (joint == nullptr) return -1;
    int dof = checked_dof(fn, h);
    if (dof < 0) return -1;
    int wire[7];
    Request req("movej");
    req.joints(joint, dof, wire, "joint");
    req.num("v", v).ints("joint", wire, dof).num("trajectory_connect", tc).num("r", r);
    return exchange(fn, h, &req, "movej", buf, kOutTime, kMoveBuf);
}

/* Sends {"command", "v", "pose", "trajectory_connect", "r"} for movel, moves
 * and movej_p. */
int send_pose_move(const char* fn, const char* command, kx_robot_handle* h, const kx_pose_t& pose, int v, int r,
                   int tc, ReplyBuf& buf) {
    int wire[6];
    Request req(command);
    req.pose(pose, wire, "pose");
    req.num("v", v).ints("pose", wire, 6).num("trajectory_connect", tc).num("r", r);
    return exchange(fn, h, &req, command, buf, kOutTime, kMoveBuf);
}

/* The arc nests its two poses in one object, within a 256-byte line; its
 * send and wait failures are not logged (its reply is awaited as a bare receive). */
int send_arc_move(kx_robot_handle* h, const kx_pose_t& via, const kx_pose_t& to, int v, int r, int loop, int tc,
                  ReplyBuf& buf) {
    int wire_via[6], wire_to[6];
    Request req("movec");
    req.pose(via, wire_via, "pose_via");
    req.pose(to, wire_to, "pose_to");
    cJSON* poses = cJSON_CreateObject();
    cJSON_AddItemToObject(poses, "pose_via", cJSON_CreateIntArray(wire_via, 6));
    cJSON_AddItemToObject(poses, "pose_to", cJSON_CreateIntArray(wire_to, 6));
    req.tree("pose", poses)
        .num("v", v)
        .num("r", trunc_wire(static_cast<double>(r) * 1000.0))
        .num("loop", loop)
        .num("trajectory_connect", tc)
        .limit(kMoveBuf)
        .unreported();
    return exchange("kx_movec", h, &req, "movec", buf, kOutTime, kMoveBuf);
}

/* A non-blocking move the controller accepted marks its own future
 * completion event as not to be taken by a later wait. */
int accept_nonblocking(const char* fn, kx_robot_handle* h, int len, const ReplyBuf& buf) {
    if (len < 1) return len;
    int ret = motion_accepted(fn, buf);
    if (ret == 0) kx::mark_discard(h);
    return ret;
}

/* The three moves to one pose differ only in names and watched type. The
 * blocking spline reports its send/wait failures and foreign-device endings
 * under the linear move's name. */
struct PoseMove {
    const char* fn;
    const char* command;
    const char* block_send_fn;
    const char* device_fn;
    int watched;
    WaitShape shape;
};
constexpr PoseMove kMoveL{"kx_movel", "movel", "kx_movel", "kx_movel", kLineType, WaitShape::EventFirst};
constexpr PoseMove kMoveS{"kx_moves", "moves", "kx_movel", "kx_movel", kSplineType, WaitShape::EventFirst};
constexpr PoseMove kMoveJP{"kx_movej_p", "movej_p", "kx_movej_p", "kx_movej_p", kJointType, WaitShape::PollFirst};

/* A joined motion (trajectory_connect 1) is not waited for. */
int accept_blocking(const char* fn, const char* device_fn, kx_robot_handle* h, int len, const ReplyBuf& buf, int tc,
                    int block, int watched, WaitShape shape) {
    if (len < 1) return len;
    int ret = motion_accepted(fn, buf);
    if (tc == 1) return ret;
    return finish_blocking(device_fn, h, ret, len, block, watched, shape);
}

int pose_nblock(const PoseMove& m, kx_robot_handle* h, const kx_pose_t& pose, int v, int r, int tc) {
    ReplyBuf buf;
    int len = send_pose_move(m.fn, m.command, h, pose, v, r, tc, buf);
    return accept_nonblocking(m.fn, h, len, buf);
}

int pose_block(const PoseMove& m, kx_robot_handle* h, const kx_pose_t& pose, int v, int r, int tc, int block) {
    ReplyBuf buf;
    int len = send_pose_move(m.block_send_fn, m.command, h, pose, v, r, tc, buf);
    return accept_blocking(m.fn, m.device_fn, h, len, buf, tc, block, m.watched, m.shape);
}

}  // namespace

extern "C" {

KX_API int kx_movecmd_singlemode_parse(kx_robot_handle* handle, int block, int tar_device) {
    (void)handle;
    /* No receive thread reads the socket in this mode, so the completion
     * event is never in hand and the decode fails. */
    while (block != 0) {
        --block;
        char buf[kMoveBuf] = {};
        int device = -1, connect = -1;
        int p = parse_kx_move_command(buf, &device, &connect);
        if (p != 1) return p == 0 ? 1 : p;
        if (connect == 1) continue;
        if (device == tar_device && connect == 0) return 0;
    }
    return kSingleNoBlock;
}

/* ---- movej ---------------------------------------------------------------- */

KX_API int kx_movej_nblock(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect) {
    ReplyBuf buf;
    int len = send_joint_move(handle, joint, v, r, trajectory_connect, buf);
    return accept_nonblocking("kx_movej", handle, len, buf);
}

KX_API int kx_movej_block(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect,
                          int block) {
    ReplyBuf buf;
    int len = send_joint_move(handle, joint, v, r, trajectory_connect, buf);
    return accept_blocking("kx_movej", "kx_movej", handle, len, buf, trajectory_connect, block, kJointType,
                           WaitShape::EventFirst);
}

KX_API int kx_movej(kx_robot_handle* handle, const float* joint, int v, int r, int trajectory_connect, int block) {
    return block ? kx_movej_block(handle, joint, v, r, trajectory_connect, block)
                 : kx_movej_nblock(handle, joint, v, r, trajectory_connect);
}

/* ---- movel, moves, movej_p ---------------------------------------------- */

KX_API int kx_movel_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect) {
    return pose_nblock(kMoveL, handle, pose, v, r, trajectory_connect);
}
KX_API int kx_movel_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block) {
    return pose_block(kMoveL, handle, pose, v, r, trajectory_connect, block);
}
KX_API int kx_movel(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block) {
    return block ? kx_movel_block(handle, pose, v, r, trajectory_connect, block)
                 : kx_movel_nblock(handle, pose, v, r, trajectory_connect);
}

KX_API int kx_moves_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect) {
    return pose_nblock(kMoveS, handle, pose, v, r, trajectory_connect);
}
KX_API int kx_moves_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block) {
    return pose_block(kMoveS, handle, pose, v, r, trajectory_connect, block);
}
KX_API int kx_moves(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block) {
    return block ? kx_moves_block(handle, pose, v, r, trajectory_connect, block)
                 : kx_moves_nblock(handle, pose, v, r, trajectory_connect);
}

KX_API int kx_movej_p_nblock(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect) {
    return pose_nblock(kMoveJP, handle, pose, v, r, trajectory_connect);
}
KX_API int kx_movej_p_block(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect,
                            int block) {
    return pose_block(kMoveJP, handle, pose, v, r, trajectory_connect, block);
}
KX_API int kx_movej_p(kx_robot_handle* handle, kx_pose_t pose, int v, int r, int trajectory_connect, int block) {
    return block ? kx_movej_p_block(handle, pose, v, r, trajectory_connect, block)
                 : kx_movej_p_nblock(handle, pose, v, r, trajectory_connect);
}

/* ---- movec ---------------------------------------------------------------- */

KX_API int kx_movec_nblock(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                           int trajectory_connect) {
    ReplyBuf buf;
    int len = send_arc_move(handle, pose_via, pose_to, v, r, loop, trajectory_connect, buf);
    return accept_nonblocking("kx_movec", handle, len, buf);
}

KX_API int kx_movec_block(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                          int trajectory_connect, int block) {
    ReplyBuf buf;
    int len = send_arc_move(handle, pose_via, pose_to, v, r, loop, trajectory_connect, buf);
    return accept_blocking("kx_movec", "kx_movec", handle, len, buf, trajectory_connect, block, kArcType,
                           WaitShape::EventFirst);
}

KX_API int kx_movec(kx_robot_handle* handle, kx_pose_t pose_via, kx_pose_t pose_to, int v, int r, int loop,
                    int trajectory_connect, int block) {
    if (trajectory_connect != 0 && trajectory_connect != 1) {
        kx_log_error("[%s] trajectory_connect check err! \n", "kx_movec");
        return kBadTrajectoryConnect;
    }
    return block ? kx_movec_block(handle, pose_via, pose_to, v, r, loop, trajectory_connect, block)
                 : kx_movec_nblock(handle, pose_via, pose_to, v, r, loop, trajectory_connect);
}

}  // extern "C"
