// Realtime push: its configuration commands and the datagram itself.
#include <algorithm>
#include <cmath>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr size_t kMaxDatagram = 1024;

/* Every member is optional; all present members are checked before any applies. */
void set_push(Ctx& c) {
    PushConfig p = c.arm.push;
    const cJSON* r = c.req;
    auto has = [r](const char* k) { return cJSON_GetObjectItemCaseSensitive(r, k) != nullptr; };
    bool ok = (!has("enable") || get_bool(r, "enable", p.enable)) &&
              (!has("cycle") || (get_int(r, "cycle", p.cycle) && p.cycle >= 1 && p.cycle <= 10000)) &&
              (!has("port") || (get_int(r, "port", p.port) && p.port >= 1 && p.port <= 65535)) &&
              (!has("ip") || (get_str(r, "ip", p.ip) && valid_ip(p.ip))) &&
              (!has("force_cordinate") ||
               (c.arm.edition != 0 && get_int(r, "force_cordinate", p.force_coordinate) &&
                p.force_coordinate >= 0 && p.force_coordinate <= 2));
    const cJSON* custom = cJSON_GetObjectItemCaseSensitive(r, "custom");
    if (custom && !cJSON_IsObject(custom)) ok = false;
    for (int i = 0; ok && custom && i < kCustomCount; ++i)
        if (cJSON_GetObjectItemCaseSensitive(custom, kCustomKeys[i])) ok = get_bool(custom, kCustomKeys[i], p.custom[i]);
    if (ok) c.arm.push = p;
    c.verdict("state", ok);
}

void get_push(Ctx& c) {
    const PushConfig& p = c.arm.push;
    cJSON* r = c.answer();
    add_int(r, "cycle", p.cycle);
    add_int(r, "port", p.port);
    add_str(r, "ip", p.ip);
    add_bool(r, "enable", p.enable);
    cJSON* custom = cJSON_CreateObject();
    for (int i = 0; i < kCustomCount; ++i) add_bool(custom, kCustomKeys[i], p.custom[i]);
    cJSON_AddItemToObject(r, "custom", custom);
    if (c.arm.edition != 0) add_int(r, "force_coordinate", p.force_coordinate);
}

cJSON* add_object(cJSON* parent, const char* key) {
    cJSON* o = cJSON_CreateObject();
    cJSON_AddItemToObject(parent, key, o);
    return o;
}

/* Named integer members, all zero: attached devices that are idle. */
void add_zeros(cJSON* parent, const char* key, std::initializer_list<const char*> members) {
    cJSON* o = add_object(parent, key);
    for (const char* m : members) add_int(o, m, 0);
}

/* The lift (height in mm, "pos" in thousandths of a mm) or the expansion
 * axis ("pos" in thousandths of a degree) as it moves. */
void add_axis_state(cJSON* parent, const char* key, const Drive& d, bool lift) {
    cJSON* o = add_object(parent, key);
    const int pos = static_cast<int>(std::lround(d.pos));
    if (lift) {
        add_int(o, "pos", pos * 1000);
        add_int(o, "height", pos);
    } else {
        add_int(o, "joint_id", 1);
        add_int(o, "mode", d.moving ? (d.velocity ? 2 : 1) : 0);
        add_int(o, "pos", pos);
    }
    add_int(o, "current", d.moving ? 1200 : 100);
    add_int(o, "err_flag", 0);
    add_int(o, "en_flag", 1);
}

}  // namespace

namespace {
std::string build_datagram(const ArmState& a, const bool* custom) {
    const size_t n = static_cast<size_t>(a.dof);
    cJSON* root = cJSON_CreateObject();

    cJSON* js = add_object(root, "joint_status");
    add_ints(js, "joint_current", a.telemetry(ArmState::kCurrent).data(), n);
    add_ints(js, "joint_en_flag", a.en_state.data(), n);
    add_ints(js, "joint_err_code", a.err_flag.data(), n);
    add_ints(js, "joint_position", a.wire_joints(a.q).data(), n);
    add_ints(js, "joint_temperature", a.telemetry(ArmState::kTemperature).data(), n);
    add_ints(js, "joint_voltage", a.telemetry(ArmState::kVoltage).data(), n);
    if (custom[kJointSpeed]) {
        WireJoints v{};
        for (size_t i = 0; i < n; ++i) v[i] = to_wire(a.qd[i] / 6, 1000);
        add_ints(js, "joint_speed", v.data(), n);
    }

    const Mat4 pose = a.tool_pose(a.q);
    int w[6], qw[4];
    double qt[4];
    mat_to_wire(pose, w);
    to_quat(pose, qt);
    for (int i = 0; i < 4; ++i) qw[i] = to_wire(qt[i], 1e6);
    cJSON* wp = add_object(root, "waypoint");
    add_ints(wp, "euler", w + 3, 3);
    add_ints(wp, "position", w, 3);
    add_ints(wp, "quat", qw, 4);

    add_ints(root, "err", a.error_list());

    if (a.edition != kEditionP) {
        // A QS arm carries a six-axis sensor, a QA arm a one-axis (Fz) sensor.
        const bool six = a.edition == kEditionQS;
        const size_t axes = six ? 6 : 1;
        double raw[6], zeroed[6];
        sensor_wrench(a, raw, zeroed);
        int force[6] = {}, zero[6] = {};
        for (size_t i = 0; i < axes; ++i) {
            force[i] = to_wire(raw[six ? i : 2], 1000);
            zero[i] = to_wire(zeroed[six ? i : 2], 1000);
        }
        cJSON* fs = add_object(root, six ? "six_force_sensor" : "one_force_sensor");
        add_ints(fs, "force", force, axes);
        add_ints(fs, "zero_force", zero, axes);
        add_int(fs, "coordinate", a.push.force_coordinate);
    }

    if (custom[kLiftState]) add_axis_state(root, "lift_state", a.effectors.lift, true);
    if (custom[kExpandState]) add_axis_state(root, "expand_state", a.effectors.expand, false);
    if (custom[kHand]) {
        int values[4][6];
        a.effectors.hand_state(values[0], values[1], values[2], values[3]);
        cJSON* h = add_object(root, "hand");
        const char* const keys[4] = {"hand_pos", "hand_angle", "hand_force", "hand_state"};
        for (int k = 0; k < 4; ++k) add_ints(h, keys[k], values[k], 6);
        add_int(h, "hand_err", 0);
    }
    if (custom[kArmStatus]) add_str(root, "arm_current_status", a.status());
    if (custom[kAloha]) add_zeros(root, "aloha_state", {"io1_state", "io2_state"});
    return print_and_delete(root);
}
}  // namespace

std::string realtime_datagram(const ArmState& a) {
    // A datagram never exceeds 1024 bytes: the bulkiest optional members give
    // way first when a seven-joint arm in full motion would not fit.
    bool custom[kCustomCount];
    std::copy(a.push.custom, a.push.custom + kCustomCount, custom);
    std::string d = build_datagram(a, custom);
    for (Custom c : {kHand, kExpandState, kLiftState, kAloha, kJointSpeed}) {
        if (d.size() <= kMaxDatagram) break;
        custom[c] = false;
        d = build_datagram(a, custom);
    }
    return d;
}

namespace {

void commands(CommandTable& t) {
    t["set_realtime_push"] = set_push;
    t["get_realtime_push"] = get_push;
}

}  // namespace

const Family push_family{"push", commands};

}  // namespace kxsim
