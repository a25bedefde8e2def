// Arm state on request: joints, tool pose, errors and joint telemetry.
#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

void add_dof(cJSON* r, const ArmState& a, const char* key, const WireJoints& v) {
    add_ints(r, key, v.data(), static_cast<size_t>(a.dof));
}

void current_arm_state(Ctx& c) {
    const ArmState& a = c.arm;
    cJSON* s = cJSON_CreateObject();
    add_dof(s, a, "joint", a.wire_joints(a.q));
    int pose[6];
    mat_to_wire(a.tool_pose(a.q), pose);
    add_ints(s, "pose", pose, 6);
    add_ints(s, "err", a.error_list());
    cJSON_AddItemToObject(c.answer("current_arm_state"), "arm_state", s);
}

void arm_all_state(Ctx& c) {
    const ArmState& a = c.arm;
    cJSON* s = cJSON_CreateObject();
    add_dof(s, a, "temperature", a.telemetry(ArmState::kTemperature));
    add_dof(s, a, "current", a.telemetry(ArmState::kCurrent));
    add_dof(s, a, "voltage", a.telemetry(ArmState::kVoltage));
    add_dof(s, a, "err_flag", a.err_flag);
    add_dof(s, a, "en_flag", a.en_state);
    add_ints(s, "err", a.error_list());
    cJSON_AddItemToObject(c.answer("arm_all_state"), "all_state", s);
}

const struct JointReading {
    const char* cmd;
    const char* reply;
    const char* key;
    WireJoints (*read)(const ArmState&);
} kReadings[] = {
    {"get_current_joint_temperature", "current_joint_temperature", "joint_temperature",
     [](const ArmState& a) { return a.telemetry(ArmState::kTemperature); }},
    {"get_current_joint_current", "current_joint_current", "joint_current",
     [](const ArmState& a) { return a.telemetry(ArmState::kCurrent); }},
    {"get_current_joint_voltage", "current_joint_voltage", "joint_voltage",
     [](const ArmState& a) { return a.telemetry(ArmState::kVoltage); }},
    {"get_joint_degree", "joint_degree", "joint", [](const ArmState& a) { return a.wire_joints(a.q); }},
};

void joint_reading(Ctx& c) {
    for (const auto& r : kReadings)
        if (c.cmd == r.cmd) add_dof(c.answer(r.reply), c.arm, r.key, r.read(c.arm));
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["get_current_arm_state"] = current_arm_state;
    t["get_arm_all_state"] = arm_all_state;
    for (const auto& r : kReadings) t[r.cmd] = joint_reading;
}

}  // namespace

const Family state_family{"state", commands};

}  // namespace kxsim
