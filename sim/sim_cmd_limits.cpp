// Joint limits (working and drive), joint flags, Cartesian limits, collision
// stage, initial and installation pose.
#include <climits>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

enum class Check { kPositive, kBelowPair, kAbovePair, kFlag };

/* A per-joint array set one joint at a time with [joint, value] and read whole. */
struct JointArray {
    const char* set_cmd;
    const char* field; /* request member and reply outcome key */
    const char* get_cmd;
    const char* get_reply;
    const char* get_key;
    WireJoints ArmState::*member;
    Check check;
    WireJoints ArmState::*pair; /* the other end of a position range */
};

const JointArray kJointArrays[] = {
    {"set_joint_max_speed", "joint_max_speed", "get_joint_max_speed", "joint_max_speed", "joint_speed",
     &ArmState::max_speed, Check::kPositive, nullptr},
    {"set_joint_max_acc", "joint_max_acc", "get_joint_max_acc", "joint_max_acc", "joint_acc", &ArmState::max_acc,
     Check::kPositive, nullptr},
    {"set_joint_min_pos", "joint_min_pos", "get_joint_min_pos", "joint_min_pos", "min_pos", &ArmState::min_pos,
     Check::kBelowPair, &ArmState::max_pos},
    {"set_joint_max_pos", "joint_max_pos", "get_joint_max_pos", "joint_max_pos", "max_pos", &ArmState::max_pos,
     Check::kAbovePair, &ArmState::min_pos},
    {"set_joint_drive_max_speed", "joint_max_speed", "get_joint_drive_max_speed", "get_joint_drive_max_speed",
     "joint_speed", &ArmState::drive_max_speed, Check::kPositive, nullptr},
    {"set_joint_drive_max_acc", "joint_max_acc", "get_joint_drive_max_acc", "get_joint_drive_max_acc", "joint_acc",
     &ArmState::drive_max_acc, Check::kPositive, nullptr},
    {"set_joint_drive_min_pos", "joint_min_pos", "get_joint_drive_min_pos", "get_joint_drive_min_pos", "min_pos",
     &ArmState::drive_min_pos, Check::kBelowPair, &ArmState::drive_max_pos},
    {"set_joint_drive_max_pos", "joint_max_pos", "get_joint_drive_max_pos", "get_joint_drive_max_pos", "max_pos",
     &ArmState::drive_max_pos, Check::kAbovePair, &ArmState::drive_min_pos},
    {"set_joint_en_state", "joint_en_state", "get_joint_en_state", "joint_en_state", "en_state",
     &ArmState::en_state, Check::kFlag, nullptr},
};

const JointArray& row_of(const std::string& cmd) {
    for (const auto& r : kJointArrays)
        if (cmd == r.set_cmd || cmd == r.get_cmd) return r;
    return kJointArrays[0];  // unreachable: only registered names get here
}

bool valid(const ArmState& a, const JointArray& r, int j, int v) {
    switch (r.check) {
    case Check::kPositive: return v > 0;
    case Check::kBelowPair: return v < (a.*r.pair)[j];
    case Check::kAbovePair: return v > (a.*r.pair)[j];
    case Check::kFlag: return v == 0 || v == 1;
    }
    return false;
}

void set_joint_value(Ctx& c) {
    const JointArray& r = row_of(c.cmd);
    ArmState& a = c.arm;
    int jv[2];
    const bool ok = c.get_ints(r.field, 2, jv) && jv[0] >= 1 && jv[0] <= a.dof && valid(a, r, jv[0] - 1, jv[1]);
    if (ok) {
        (a.*r.member)[jv[0] - 1] = jv[1];
        a.sync_model_limits();
        if (r.member == &ArmState::en_state && jv[1] == 0) a.stop(false, c.now, c.events);
    }
    c.verdict(r.field, ok);
}

void add_joint_array(Ctx& c, const char* key, const WireJoints& v) {
    add_ints(c.answer(), key, v.data(), static_cast<size_t>(c.arm.dof));
}

void get_joint_values(Ctx& c) {
    const JointArray& r = row_of(c.cmd);
    add_ints(c.answer(r.get_reply), r.get_key, (c.arm.*r.member).data(), static_cast<size_t>(c.arm.dof));
}

/* {"<cmd field>": joint} acting on one joint while the arm is still. */
bool joint_arg(Ctx& c, const char* key, int& j) {
    return c.int_in(key, 1, c.arm.dof, j) && c.check(!c.arm.moving(), "the arm is moving");
}

void joint_zero_pos(Ctx& c) {
    int j = 0;
    const bool ok = joint_arg(c, "joint_zero_pos", j);
    if (ok) c.arm.q[j - 1] = 0;  // the present position becomes the joint's zero
    c.verdict("joint_zero_pos", ok);
}

void joint_clear_err(Ctx& c) {
    int j = 0;
    const bool ok = c.int_in("joint_clear_err", 1, c.arm.dof, j);
    if (ok) c.arm.err_flag[j - 1] = 0;
    c.verdict("joint_clear_err", ok);
}

void joint_err_flag(Ctx& c) {
    c.answer("joint_err_flag");
    add_joint_array(c, "err_flag", c.arm.err_flag);
    add_joint_array(c, "brake_state", c.arm.brake_state);
}

/* Mode 1 restores the factory position limits; mode 0 keeps the present ones. */
void auto_joint_limit(Ctx& c) {
    int mode = -1;
    const bool ok = c.int_in("limit_mode", 0, 1, mode);
    if (ok && mode == 1) {
        ArmState& a = c.arm;
        ArmState fresh;
        fresh.factory = a.factory;
        fresh.reset();
        a.min_pos = fresh.min_pos;
        a.max_pos = fresh.max_pos;
        a.sync_model_limits();
    }
    c.verdict("limit_mode", ok, "auto_set_joint_limit ");
}

void arm_init(Ctx& c) { c.verdict("arm_init", true); }

void set_init_pose(Ctx& c) {
    ArmState& a = c.arm;
    int w[kMaxJoints];
    bool ok = c.get_ints("init_pose", static_cast<size_t>(a.dof), w);
    Joints j{};
    for (int i = 0; ok && i < a.dof; ++i) j[i] = w[i] / 1000.0;
    ok = ok && a.within_limits(j);
    if (ok) a.init_pose = a.wire_joints(j);
    c.verdict("init_pose", ok);
}

void get_init_pose(Ctx& c) {
    c.answer("arm_init_pose");
    add_joint_array(c, "init_pose", c.arm.init_pose);
}

void set_install_pose(Ctx& c) {
    int p[3];
    bool ok = c.get_ints("pose", 3, p);
    for (int i = 0; ok && i < 3; ++i) ok = p[i] >= -360 && p[i] <= 360;
    if (ok)
        for (int i = 0; i < 3; ++i) c.arm.install[i] = p[i];
    c.verdict("set_state", ok);
}

void get_install_pose(Ctx& c) { add_ints(c.answer("install_pose"), "pose", c.arm.install, 3); }

const IntSetting kSettings[] = {
    {"set_arm_max_line_speed", "arm_line_speed", nullptr, "arm_line_speed", "get_arm_max_line_speed",
     "arm_max_line_speed", "arm_line_speed", &ArmState::line_speed, 1, INT_MAX},
    {"set_arm_max_line_acc", "arm_line_acc", nullptr, "arm_line_acc", "get_arm_max_line_acc", "arm_max_line_acc",
     "arm_line_acc", &ArmState::line_acc, 1, INT_MAX},
    {"set_arm_max_angular_speed", "arm_angular_speed", nullptr, "arm_angular_speed", "get_arm_max_angular_speed",
     "arm_max_angular_speed", "arm_angular_speed", &ArmState::angular_speed, 1, INT_MAX},
    {"set_arm_max_angular_acc", "arm_angular_acc", nullptr, "arm_angular_acc", "get_arm_max_angular_acc",
     "arm_max_angular_acc", "arm_angular_acc", &ArmState::angular_acc, 1, INT_MAX},
    {"set_collision_stage", "collision_stage", "set_collision_state", "collision_state", "get_collision_stage",
     "get_collision_stage", "collision_stage", &ArmState::collision_stage, 0, 8},
};

}  // namespace

namespace {

void commands(CommandTable& t) {
    for (const auto& r : kJointArrays) {
        t[r.set_cmd] = set_joint_value;
        t[r.get_cmd] = get_joint_values;
    }
    t["set_joint_zero_pos"] = joint_zero_pos;
    t["set_joint_clear_err"] = joint_clear_err;
    t["get_joint_err_flag"] = joint_err_flag;
    t["auto_set_joint_limit"] = auto_joint_limit;
    t["set_arm_init"] = arm_init;
    t["set_init_pose"] = set_init_pose;
    t["get_init_pose"] = get_init_pose;
    t["set_install_pose"] = set_install_pose;
    t["get_install_pose"] = get_install_pose;
    add_int_settings(t, kSettings, sizeof kSettings / sizeof kSettings[0]);
}

}  // namespace

const Family limits_family{"limits", commands};

}  // namespace kxsim
