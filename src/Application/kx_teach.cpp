/* Manual motion: single steps, continuous teaching, the teaching frame, and
 * the commands that halt, resume or clear motion. */
#include "kx_command.h"

using namespace kx;

namespace {

constexpr const char* kPosAxes[3] = {"x", "y", "z"};
constexpr const char* kOrtAxes[3] = {"rx", "ry", "rz"};
constexpr const char* kPosSteps[3] = {"x_step", "y_step", "z_step"};
constexpr const char* kOrtSteps[3] = {"rx_step", "ry_step", "rz_step"};

/* Axis names by type; an out-of-range type adds no axis field. */
const char* axis(const char* const (&names)[3], int type) { return (type >= 0 && type < 3) ? names[type] : nullptr; }

const char* direction(int d) { return d != 0 ? "pos" : "neg"; }

/* One step kind: its command, the reply buffer its blocking form uses and
 * the trajectory type that marks it as running. */
struct StepKind {
    const char* fn;
    const char* command;
    int reply_buf;
    int watched;
};
constexpr StepKind kJointStep{"kx_set_joint_step", "set_joint_step", kReplyBuf, KX_JOINT_SPACE_PLANNING_E};
constexpr StepKind kPosStep{"kx_set_pos_step", "set_pos_step", kMoveBuf, KX_CARTESIAN_LINEAR_PLANNING_E};
constexpr StepKind kOrtStep{"kx_set_ort_step", "set_ort_step", kMoveBuf, KX_CARTESIAN_LINEAR_PLANNING_E};

/* The non-blocking step reads no reply: it pauses the usual reply time. */
int step_nblock(const StepKind& k, kx_robot_handle* h, const Request& req) {
    return send_only(k.fn, h, req, m_nOutTime);
}

int step_block(const StepKind& k, kx_robot_handle* h, const Request& req, int block) {
    ReplyBuf buf;
    int len = exchange(k.fn, h, &req, k.command, buf, kOutTime, k.reply_buf);
    if (len < 1) return len;
    return finish_blocking(k.fn, h, motion_accepted(k.fn, buf), len, block, k.watched, WaitShape::PollFirst);
}

/* {"command", "joint_step": [joint, step * 1000], "v"} */
struct JointStep {
    Request req{kJointStep.command};
    JointStep(int joint_num, float step, int v) { req.ints("joint_step", {joint_num, req.f(step, 1000.0f, "step")}).num("v", v); }
};

/* {"command", "v", "step", "step_type"}: metres * 1e6 or radians * 1000. */
struct CartesianStep {
    Request req;
    CartesianStep(const StepKind& k, const char* step_type, float step, float scale, int v) : req(k.command) {
        req.num("v", v).num("step", req.f(step, scale, "step"));
        if (step_type != nullptr) req.str("step_type", step_type);
    }
};

struct PosStep : CartesianStep {
    PosStep(kx_pos_teach_type_e type, float step, int v)
        : CartesianStep(kPosStep, axis(kPosSteps, type), step, 1000000.0f, v) {}
};
struct OrtStep : CartesianStep {
    OrtStep(kx_ort_teach_type_e type, float step, int v)
        : CartesianStep(kOrtStep, axis(kOrtSteps, type), step, 1000.0f, v) {}
};

/* {"command", "teach_type", "direction", "v"} */
int cartesian_teach(const char* fn, const char* command, const char* key, const char* teach_type, int dir, int v,
                    kx_robot_handle* h) {
    Request req(command);
    if (teach_type != nullptr) req.str("teach_type", teach_type);
    req.str("direction", direction(dir)).num("v", v);
    return set_command(fn, h, req, command, key);
}

}  // namespace

extern "C" {

/* ---- steps ------------------------------------------------------------------ */

KX_API int kx_set_joint_step_nblock(kx_robot_handle* handle, int joint_num, float step, int v) {
    return step_nblock(kJointStep, handle, JointStep(joint_num, step, v).req);
}
KX_API int kx_set_joint_step_block(kx_robot_handle* handle, int joint_num, float step, int v, int block) {
    return step_block(kJointStep, handle, JointStep(joint_num, step, v).req, block);
}
KX_API int kx_set_joint_step(kx_robot_handle* handle, int joint_num, float step, int v, int block) {
    return block ? kx_set_joint_step_block(handle, joint_num, step, v, block)
                 : kx_set_joint_step_nblock(handle, joint_num, step, v);
}

KX_API int kx_set_pos_step_nblock(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v) {
    return step_nblock(kPosStep, handle, PosStep(type, step, v).req);
}
KX_API int kx_set_pos_step_block(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block) {
    return step_block(kPosStep, handle, PosStep(type, step, v).req, block);
}
KX_API int kx_set_pos_step(kx_robot_handle* handle, kx_pos_teach_type_e type, float step, int v, int block) {
    return block ? kx_set_pos_step_block(handle, type, step, v, block) : kx_set_pos_step_nblock(handle, type, step, v);
}

KX_API int kx_set_ort_step_nblock(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v) {
    return step_nblock(kOrtStep, handle, OrtStep(type, step, v).req);
}
KX_API int kx_set_ort_step_block(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block) {
    return step_block(kOrtStep, handle, OrtStep(type, step, v).req, block);
}
KX_API int kx_set_ort_step(kx_robot_handle* handle, kx_ort_teach_type_e type, float step, int v, int block) {
    return block ? kx_set_ort_step_block(handle, type, step, v, block) : kx_set_ort_step_nblock(handle, type, step, v);
}

/* ---- continuous teaching ---------------------------------------------------- */

KX_API int kx_set_joint_teach(kx_robot_handle* handle, int joint_num, int dir, int v) {
    Request req("set_joint_teach");
    req.num("teach_joint", joint_num).num("v", v).str("direction", direction(dir));
    return set_command("kx_set_joint_teach", handle, req, "set_joint_teach", "joint_teach");
}

KX_API int kx_set_pos_teach(kx_robot_handle* handle, kx_pos_teach_type_e type, int dir, int v) {
    return cartesian_teach("kx_set_pos_teach", "set_pos_teach", "pos_teach", axis(kPosAxes, type), dir, v, handle);
}

KX_API int kx_set_ort_teach(kx_robot_handle* handle, kx_ort_teach_type_e type, int dir, int v) {
    return cartesian_teach("kx_set_ort_teach", "set_ort_teach", "ort_teach", axis(kOrtAxes, type), dir, v, handle);
}

KX_API int kx_set_stop_teach(kx_robot_handle* handle) {
    return set_bare({"kx_set_stop_teach", "set_stop_teach", "stop_teach"}, handle);
}

KX_API int kx_set_teach_frame(kx_robot_handle* handle, int frame_type) {
    return set_num({"kx_set_teach_frame", "set_teach_frame", "set_state"}, handle, "frame_type", frame_type);
}

KX_API int kx_get_teach_frame(kx_robot_handle* handle, int* frame_type) {
    return get_num("kx_get_teach_frame", handle, "get_teach_frame", "get_teach_frame", "frame_type", frame_type);
}

/* ---- stopping and trajectory control ---------------------------------------- */

KX_API int kx_set_arm_slow_stop(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_slow_stop", "set_arm_slow_stop", "arm_slow_stop"}, handle);
}
KX_API int kx_set_arm_stop(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_stop", "set_arm_stop", "arm_stop"}, handle);
}
KX_API int kx_set_arm_pause(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_pause", "set_arm_pause", "arm_pause"}, handle);
}
KX_API int kx_set_arm_continue(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_continue", "set_arm_continue", "arm_continue"}, handle);
}
KX_API int kx_set_delete_current_trajectory(kx_robot_handle* handle) {
    return set_bare({"kx_set_delete_current_trajectory", "set_delete_current_trajectory", "delete_current_trajectory"},
                    handle);
}
KX_API int kx_set_arm_delete_trajectory(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_delete_trajectory", "set_arm_delete_trajectory", "arm_delete_trajectory"}, handle);
}

}  // extern "C"
