/* Joint and arm motion limits, joint housekeeping, home and install pose.
 * The working-limit getters keep the connection record's copy current, which
 * is what the local kinematics are configured from. */
#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

enum Limit { kMaxSpeed, kMaxAcc, kMinPos, kMaxPos, kDriveMaxSpeed, kDriveMaxAcc, kDriveMinPos, kDriveMaxPos };

const JointQuery kGetters[] = {
    {"kx_get_joint_max_speed", "get_joint_max_speed", "joint_max_speed", "joint_speed", kJointRate,
     &kx_handle_t::joint_max_speed},
    {"kx_get_joint_max_acc", "get_joint_max_acc", "joint_max_acc", "joint_acc", kJointRate,
     &kx_handle_t::joint_max_acc},
    {"kx_get_joint_min_pos", "get_joint_min_pos", "joint_min_pos", "min_pos", kMilli, &kx_handle_t::joint_min_limit},
    {"kx_get_joint_max_pos", "get_joint_max_pos", "joint_max_pos", "max_pos", kMilli, &kx_handle_t::joint_max_limit},
    {"kx_get_joint_drive_max_speed", "get_joint_drive_max_speed", "get_joint_drive_max_speed", "joint_speed",
     kJointRate, nullptr},
    {"kx_get_joint_drive_max_acc", "get_joint_drive_max_acc", "get_joint_drive_max_acc", "joint_acc", kJointRate,
     nullptr},
    {"kx_get_joint_drive_min_pos", "get_joint_drive_min_pos", "get_joint_drive_min_pos", "min_pos", kMilli, nullptr},
    {"kx_get_joint_drive_max_pos", "get_joint_drive_max_pos", "get_joint_drive_max_pos", "max_pos", kMilli, nullptr},
};

/* How a per-joint limit travels: rates as value / 6 * 1000, positions (and,
 * unlike its getter, the drive acceleration) as value * 1000. */
enum class Encoding { Rate, Milli };

struct JointSetter {
    const char* fn;
    const char* command;
    const char* field; /* also the reply's boolean */
    Encoding encoding;
    int reread; /* index into kGetters, or -1 */
};

const JointSetter kSetters[] = {
    {"kx_set_joint_max_speed", "set_joint_max_speed", "joint_max_speed", Encoding::Rate, kMaxSpeed},
    {"kx_set_joint_max_acc", "set_joint_max_acc", "joint_max_acc", Encoding::Rate, kMaxAcc},
    {"kx_set_joint_min_pos", "set_joint_min_pos", "joint_min_pos", Encoding::Milli, kMinPos},
    {"kx_set_joint_max_pos", "set_joint_max_pos", "joint_max_pos", Encoding::Milli, kMaxPos},
    {"kx_set_joint_drive_max_speed", "set_joint_drive_max_speed", "joint_max_speed", Encoding::Rate, -1},
    {"kx_set_joint_drive_max_acc", "set_joint_drive_max_acc", "joint_max_acc", Encoding::Milli, -1},
    {"kx_set_joint_drive_min_pos", "set_joint_drive_min_pos", "joint_min_pos", Encoding::Milli, -1},
    {"kx_set_joint_drive_max_pos", "set_joint_drive_max_pos", "joint_max_pos", Encoding::Milli, -1},
};

int get_limit(Limit which, kx_robot_handle* h, float* out) { return get_joints(kGetters[which], h, out); }

int set_limit(Limit which, kx_robot_handle* h, int joint_num, float value) {
    const JointSetter& s = kSetters[which];
    Request req(s.command);
    int wire = req.f(s.encoding == Encoding::Rate ? value / 6.0f : value, 1000.0f, "value");
    req.ints(s.field, {joint_num, wire});
    int r = set_command(s.fn, h, req, s.command, s.field);
    if (r != 0 || s.reread < 0) return r;
    float scratch[7];
    return get_joints(kGetters[s.reread], h, scratch);
}

/* Cartesian limits: value * 1000 on the wire, read back / 1000. */
struct ArmLimit {
    const char* set_fn;
    const char* set_command;
    const char* field; /* request field, the set reply's boolean and the get reply's integer */
    const char* get_fn;
    const char* get_command;
    const char* get_reply;
};
enum ArmLimitId { kLineSpeed, kLineAcc, kAngularSpeed, kAngularAcc };
const ArmLimit kArmLimits[] = {
    {"kx_set_arm_max_line_speed", "set_arm_max_line_speed", "arm_line_speed", "kx_get_arm_max_line_speed",
     "get_arm_max_line_speed", "arm_max_line_speed"},
    {"kx_set_arm_max_line_acc", "set_arm_max_line_acc", "arm_line_acc", "kx_get_arm_max_line_acc",
     "get_arm_max_line_acc", "arm_max_line_acc"},
    {"kx_set_arm_max_angular_speed", "set_arm_max_angular_speed", "arm_angular_speed",
     "kx_get_arm_max_angular_speed", "get_arm_max_angular_speed", "arm_max_angular_speed"},
    {"kx_set_arm_max_angular_acc", "set_arm_max_angular_acc", "arm_angular_acc", "kx_get_arm_max_angular_acc",
     "get_arm_max_angular_acc", "arm_max_angular_acc"},
};

int set_arm_limit(ArmLimitId id, kx_robot_handle* h, float value) {
    const ArmLimit& l = kArmLimits[id];
    Request req(l.set_command);
    req.num(l.field, req.f(value, 1000.0f, "value"));
    return set_command(l.set_fn, h, req, l.set_command, l.field);
}

int get_arm_limit(ArmLimitId id, kx_robot_handle* h, float* out) {
    const ArmLimit& l = kArmLimits[id];
    return get_scaled(l.get_fn, h, l.get_command, l.get_reply, l.field, kMilli, out);
}

}  // namespace

extern "C" {

KX_API int kx_get_joint_max_speed(kx_robot_handle* handle, float* v) { return get_limit(kMaxSpeed, handle, v); }
KX_API int kx_get_joint_max_acc(kx_robot_handle* handle, float* v) { return get_limit(kMaxAcc, handle, v); }
KX_API int kx_get_joint_min_pos(kx_robot_handle* handle, float* v) { return get_limit(kMinPos, handle, v); }
KX_API int kx_get_joint_max_pos(kx_robot_handle* handle, float* v) { return get_limit(kMaxPos, handle, v); }
KX_API int kx_get_joint_drive_max_speed(kx_robot_handle* handle, float* v) {
    return get_limit(kDriveMaxSpeed, handle, v);
}
KX_API int kx_get_joint_drive_max_acc(kx_robot_handle* handle, float* v) { return get_limit(kDriveMaxAcc, handle, v); }
KX_API int kx_get_joint_drive_min_pos(kx_robot_handle* handle, float* v) { return get_limit(kDriveMinPos, handle, v); }
KX_API int kx_get_joint_drive_max_pos(kx_robot_handle* handle, float* v) { return get_limit(kDriveMaxPos, handle, v); }

KX_API int kx_set_joint_max_speed(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kMaxSpeed, handle, joint_num, v);
}
KX_API int kx_set_joint_max_acc(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kMaxAcc, handle, joint_num, v);
}
KX_API int kx_set_joint_min_pos(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kMinPos, handle, joint_num, v);
}
KX_API int kx_set_joint_max_pos(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kMaxPos, handle, joint_num, v);
}
KX_API int kx_set_joint_drive_max_speed(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kDriveMaxSpeed, handle, joint_num, v);
}
KX_API int kx_set_joint_drive_max_acc(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kDriveMaxAcc, handle, joint_num, v);
}
KX_API int kx_set_joint_drive_min_pos(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kDriveMinPos, handle, joint_num, v);
}
KX_API int kx_set_joint_drive_max_pos(kx_robot_handle* handle, int joint_num, float v) {
    return set_limit(kDriveMaxPos, handle, joint_num, v);
}

KX_API int kx_set_joint_en_state(kx_robot_handle* handle, int joint_num, int en_state) {
    Request req("set_joint_en_state");
    req.ints("joint_en_state", {joint_num, en_state});
    return set_command("kx_set_joint_en_state", handle, req, "set_joint_en_state", "joint_en_state");
}

KX_API int kx_set_joint_zero_pos(kx_robot_handle* handle, int joint_num) {
    return set_num({"kx_set_joint_zero_pos", "set_joint_zero_pos", "joint_zero_pos"}, handle, "joint_zero_pos",
                   joint_num);
}

KX_API int kx_set_joint_clear_err(kx_robot_handle* handle, int joint_num) {
    return set_num({"kx_set_joint_clear_err", "set_joint_clear_err", "joint_clear_err"}, handle, "joint_clear_err",
                   joint_num);
}

KX_API int kx_auto_set_joint_limit(kx_robot_handle* handle, int limit_mode) {
    /* The controller's reply name carries a trailing blank. */
    int r = set_num({"kx_auto_set_joint_limit", "auto_set_joint_limit", "limit_mode", "auto_set_joint_limit "},
                    handle, "limit_mode", limit_mode);
    if (r != 0) return r;
    float scratch[7];
    (void)get_limit(kMinPos, handle, scratch);
    return get_limit(kMaxPos, handle, scratch);
}

KX_API int kx_set_arm_max_line_speed(kx_robot_handle* handle, float v) { return set_arm_limit(kLineSpeed, handle, v); }
KX_API int kx_set_arm_max_line_acc(kx_robot_handle* handle, float v) { return set_arm_limit(kLineAcc, handle, v); }
KX_API int kx_set_arm_max_angular_speed(kx_robot_handle* handle, float v) {
    return set_arm_limit(kAngularSpeed, handle, v);
}
KX_API int kx_set_arm_max_angular_acc(kx_robot_handle* handle, float v) {
    return set_arm_limit(kAngularAcc, handle, v);
}
KX_API int kx_get_arm_max_line_speed(kx_robot_handle* handle, float* v) { return get_arm_limit(kLineSpeed, handle, v); }
KX_API int kx_get_arm_max_line_acc(kx_robot_handle* handle, float* v) { return get_arm_limit(kLineAcc, handle, v); }
KX_API int kx_get_arm_max_angular_speed(kx_robot_handle* handle, float* v) {
    return get_arm_limit(kAngularSpeed, handle, v);
}
KX_API int kx_get_arm_max_angular_acc(kx_robot_handle* handle, float* v) {
    return get_arm_limit(kAngularAcc, handle, v);
}

KX_API int kx_set_arm_tcp_init(kx_robot_handle* handle) {
    return set_bare({"kx_set_arm_tcp_init", "set_arm_init", "arm_init"}, handle);
}

KX_API int kx_set_collision_state(kx_robot_handle* handle, int stage) {
    /* Sent as "stage", answered as "state". */
    return set_num({"kx_set_collision_state", "set_collision_stage", "collision_state", "set_collision_state"},
                   handle, "collision_stage", stage);
}

KX_API int kx_get_collision_stage(kx_robot_handle* handle, int* stage) {
    return get_num("kx_get_collision_stage", handle, "get_collision_stage", "get_collision_stage", "collision_stage",
                   stage);
}

KX_API int kx_get_joint_en_state(kx_robot_handle* handle, uint8_t* en_state) {
    static const char* const fn = "kx_get_joint_en_state";
    if (en_state == nullptr) return kFailed;
    Request req("get_joint_en_state");
    return query_joints(fn, handle, req, "joint_en_state", [&](int dof, const char* text) {
        KeyValue kv = kv_ints("en_state", dof);
        int r = common_json_parse(fn, text, &kv, 1);
        if (r == 0)
            for (int i = 0; i < dof; ++i) en_state[i] = static_cast<uint8_t>(kv.data.array_value[i]);
        return r;
    });
}

KX_API int kx_get_joint_err_flag(kx_robot_handle* handle, uint16_t* err_flag, uint16_t* brake_state) {
    static const char* const fn = "kx_get_joint_err_flag";
    if (err_flag == nullptr || brake_state == nullptr) return kFailed;
    Request req("get_joint_err_flag");
    return query_joints(fn, handle, req, "joint_err_flag", [&](int dof, const char* text) {
        KeyValue kv[] = {kv_ints("err_flag", dof), kv_ints("brake_state", dof)};
        int r = common_json_parse(fn, text, kv, 2);
        if (r != 0) return r;
        for (int i = 0; i < dof; ++i) {
            err_flag[i] = static_cast<uint16_t>(kv[0].data.array_value[i]);
            brake_state[i] = static_cast<uint16_t>(kv[1].data.array_value[i]);
        }
        return 0;
    });
}

KX_API int kx_set_init_pose(kx_robot_handle* handle, const float* joint) {
    static const char* const fn = "kx_set_init_pose";
    if (joint == nullptr) return kFailed;
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    int wire[7];
    Request req("set_init_pose");
    req.joints(joint, dof, wire, "joint");
    req.ints("init_pose", wire, dof);
    return set_command(fn, handle, req, "set_init_pose", "init_pose");
}

KX_API int kx_get_init_pose(kx_robot_handle* handle, float* joint) {
    static const JointQuery q{"kx_get_init_pose", "get_init_pose", "arm_init_pose", "init_pose", kMilli, nullptr};
    return get_joints(q, handle, joint);
}

KX_API int kx_set_install_pose(kx_robot_handle* handle, float x, float y, float z) {
    Request req("set_install_pose");
    req.ints("pose", {req.d(x, 1.0, "x"), req.d(y, 1.0, "y"), req.d(z, 1.0, "z")});
    int r = set_command("kx_set_install_pose", handle, req, "set_install_pose", "set_state", m_nOutTime + 100);
    if (r != 0) return r;
    float sx, sy, sz;
    return kx_get_install_pose(handle, &sx, &sy, &sz);
}

KX_API int kx_get_install_pose(kx_robot_handle* handle, float* x, float* y, float* z) {
    if (!x || !y || !z) return kFailed;
    Request req("get_install_pose");
    KeyValue kv = kv_ints("pose", 3);
    int r = query("kx_get_install_pose", handle, req, "install_pose", &kv, 1);
    if (r != 0) return r;
    return with_record(handle, [&](kx_handle_t& rec) {
        float* out[3] = {x, y, z};
        for (int i = 0; i < 3; ++i) {
            *out[i] = static_cast<float>(kv.data.array_value[i]);
            rec.install_angle[i] = *out[i];
        }
    });
}

}  // extern "C"
