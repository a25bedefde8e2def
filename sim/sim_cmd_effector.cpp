// Gripper, dexterous hand, lift and expansion axis. Each moves in simulated
// time at its speed; a positioning move ends with the completion event
// carrying the device's code (1 gripper, 2 hand, 3 lift, 4 expansion axis).
#include <algorithm>
#include <cmath>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

enum Device { kGripperDevice = 1, kHandDevice = 2, kLiftDevice = 3, kExpandDevice = 4 };

constexpr int kRouteLo = 1, kRouteHi = 1000;
constexpr int kHandItems = 40;
constexpr double kLiftLo = 0, kLiftHi = 1000;           /* mm */
constexpr double kExpandLo = -180000, kExpandHi = 180000; /* 0.001 degree */
constexpr double kLiftRate = 10.0;                      /* mm/s per percent of speed */
constexpr double kExpandRate = 1800.0;                  /* units/s per percent of speed */
constexpr double kHandItemSeconds = 1.0;                /* a posture at speed 1000 */

std::string completion_event(int device) {
    cJSON* o = cJSON_CreateObject();
    add_str(o, "command", "current_trajectory_state");
    add_bool(o, "trajectory_state", true);
    add_int(o, "device", device);
    add_int(o, "trajectory_connect", 0);
    return print_and_delete(o);
}

/* A positioning move of `d` to `target` at `rate`; its end is announced
 * whether or not the caller waits for it. */
void start(Drive& d, double target, double rate) {
    d.target = target;
    d.rate = std::fabs(rate);
    d.velocity = false;
    d.report = true;
    d.moving = true;
}

/* ---- gripper ---- */

void gripper_route(Ctx& c) {
    EffectorState& e = c.arm.effectors;
    int lo = 0, hi = 0;
    const bool ok = c.int_in("min", kRouteLo, kRouteHi, lo) && c.int_in("max", kRouteLo, kRouteHi, hi) &&
                    lo < hi;
    if (ok) {
        e.route_min = lo;
        e.route_max = hi;
    }
    c.verdict("state", ok);
}

/* The gripper acknowledges every motion as "set_gripper"; "block" only
 * tells whether the caller waits. */
void gripper_motion(Ctx& c, int mode) {
    EffectorState& e = c.arm.effectors;
    int speed = 0, force = 0, position = 0;
    bool block = false;
    bool ok = c.get_bool("block", block);
    if (mode == 3) ok = ok && c.int_in("position", e.route_min, e.route_max, position);
    else ok = ok && c.int_in("speed", 1, 1000, speed);
    if (mode == 2) ok = ok && c.int_in("force", 1, 1000, force);
    if (ok) {
        e.grip_mode = mode;
        e.grip_status = 1;
        e.grip_force = force;
        e.grip_hold = c.cmd == "set_gripper_pick_on";
        const double target = mode == 1 ? e.route_max : mode == 2 ? e.route_min : position;
        start(e.gripper, target, mode == 3 ? 500 : speed);
    }
    c.verdict("state", ok, "set_gripper");
}
void gripper_release(Ctx& c) { gripper_motion(c, 1); }
void gripper_pick(Ctx& c) { gripper_motion(c, 2); }
void gripper_position(Ctx& c) { gripper_motion(c, 3); }

void gripper_state(Ctx& c) {
    const EffectorState& e = c.arm.effectors;
    cJSON* r = c.answer();
    add_int(r, "enable", 1);
    add_int(r, "status", e.grip_status);
    add_int(r, "error", 0);
    add_int(r, "mode", e.gripper.moving ? e.grip_mode : 0);
    add_int(r, "current_force", e.grip_status == 2 ? e.grip_force : 0);
    add_int(r, "temperature", 32);
    add_int(r, "actpos", static_cast<int>(std::lround(e.gripper.pos)));
}

/* ---- hand ---- */

/* Posture or sequence n closes each finger to a stored position; a
 * sequence's offset keeps it apart from the posture of the same number. */
void hand_item(Ctx& c, const char* key, int offset) {
    EffectorState& e = c.arm.effectors;
    int n = 0;
    bool block = false;
    const bool ok = c.int_in(key, 1, kHandItems, n) && c.get_bool("block", block);
    if (ok) {
        for (int k = 0; k < 6; ++k) {
            e.hand_from[k] = e.hand_pos[k];
            e.hand_to[k] = ((n + offset) * 97 + k * 151) % 11 * 100;
        }
        e.hand.pos = 0;
        start(e.hand, 1.0, e.hand_speed / 1000.0 / kHandItemSeconds);
    }
    c.verdict("set_state", ok);
}
void hand_posture(Ctx& c) { hand_item(c, "posture_num", 0); }
void hand_seq(Ctx& c) { hand_item(c, "seq_num", 5); }

bool hand_values(const cJSON* req, const char* key, int (&out)[6]) {
    int v[6];
    if (!get_ints(req, key, 6, v)) return false;
    for (int x : v)
        if (x < -32768 || x > 32767) return false;
    std::copy(v, v + 6, out);
    return true;
}

/* Fingers set straight to angles or positions (the follow forms are
 * streaming targets, echoed for a caller that waits for it). */
void hand_set(Ctx& c, const char* key, bool angles) {
    EffectorState& e = c.arm.effectors;
    int v[6];
    const bool ok = c.check(hand_values(c.req, key, v), "needs six integers of 16 bits");
    if (ok) {
        e.hand.moving = false;
        for (int k = 0; k < 6; ++k) {
            e.hand_angle[k] = angles ? v[k] : static_cast<int>(std::lround(v[k] * EffectorState::kHandDegrees));
            e.hand_pos[k] = angles ? static_cast<int>(std::lround(v[k] / EffectorState::kHandDegrees)) : v[k];
        }
    }
    c.verdict("set_state", ok);
}
void hand_angle(Ctx& c) { hand_set(c, "hand_angle", true); }
void hand_follow_angle(Ctx& c) { hand_set(c, "hand_angle", true); }
void hand_follow_pos(Ctx& c) { hand_set(c, "hand_pos", false); }

void hand_setting(Ctx& c, const char* key, int EffectorState::*member) {
    int v = 0;
    const bool ok = c.int_in(key, 1, 1000, v);
    if (ok) c.arm.effectors.*member = v;
    c.verdict("set_state", ok);
}
void hand_speed(Ctx& c) { hand_setting(c, "speed", &EffectorState::hand_speed); }
void hand_force(Ctx& c) { hand_setting(c, "hand_force", &EffectorState::hand_force); }

/* ---- lift and expansion axis ---- */

struct AxisSpec {
    Drive EffectorState::*drive;
    const char* target_key;
    double lo, hi, rate;
};
const AxisSpec kLiftSpec{&EffectorState::lift, "height", kLiftLo, kLiftHi, kLiftRate};
const AxisSpec kExpandSpec{&EffectorState::expand, "pos", kExpandLo, kExpandHi, kExpandRate};

/* Positioning: speed 1..100 percent, target within the axis's travel. */
void axis_move(Ctx& c, const AxisSpec& a, const char* verdict) {
    int speed = 0, target = 0;
    const bool ok = c.int_in("speed", 1, 100, speed) &&
                    c.int_in(a.target_key, static_cast<int>(a.lo), static_cast<int>(a.hi), target);
    if (ok) start(c.arm.effectors.*a.drive, target, speed * a.rate);
    c.verdict(verdict, ok);
}
void lift_height(Ctx& c) { axis_move(c, kLiftSpec, "set_state"); }
void expand_pos(Ctx& c) { axis_move(c, kExpandSpec, "set_pos_state"); }

/* Velocity: -100..100 percent, 0 stops; runs until the end of travel. */
void axis_speed(Ctx& c, const AxisSpec& a, const char* verdict) {
    int speed = 0;
    const bool ok = c.int_in("speed", -100, 100, speed);
    if (ok) {
        Drive& d = c.arm.effectors.*a.drive;
        d.velocity = speed != 0;
        d.moving = speed != 0;
        d.rate = speed * a.rate;
        d.report = false;
    }
    c.verdict(verdict, ok);
}
void lift_speed(Ctx& c) { axis_speed(c, kLiftSpec, "set_state"); }
void expand_speed(Ctx& c) { axis_speed(c, kExpandSpec, "set_speed_state"); }

/* mode: 0 at rest, 1 positioning, 2 running at a speed. */
void axis_state(Ctx& c, const Drive& d, const char* reply, const char* pos_key) {
    cJSON* r = c.answer(reply);
    add_int(r, pos_key, static_cast<int>(std::lround(d.pos)));
    add_int(r, "current", d.moving ? 1200 : 100);
    add_int(r, "err_flag", 0);
    add_int(r, "mode", d.moving ? (d.velocity ? 2 : 1) : 0);
}
void lift_state(Ctx& c) { axis_state(c, c.arm.effectors.lift, "lift_state", "height"); }
void expand_state(Ctx& c) { axis_state(c, c.arm.effectors.expand, "expand_state", "pos"); }

}  // namespace

bool Drive::step(double dt, double lo, double hi) {
    if (!moving) return false;
    if (velocity) {
        pos = std::clamp(pos + rate * dt, lo, hi);
        if (pos == lo || pos == hi) moving = velocity = false;
        return false;
    }
    const double left = target - pos, reach = rate * dt;
    if (std::fabs(left) > reach) {
        pos += left > 0 ? reach : -reach;
        return false;
    }
    pos = target;
    moving = false;
    return true;
}

void EffectorState::advance(double dt, Events& out) {
    // A pick stops where the fingers meet the object, if there is one.
    const bool closing = gripper.moving && grip_mode == 2;
    const double stop_at = closing && object_width > 0 && object_width < gripper.pos ? object_width : -1;
    if (stop_at > 0) gripper.target = std::max(gripper.target, stop_at);
    if (gripper.step(dt, route_min, route_max)) {
        grip_status = closing ? (stop_at > 0 && gripper.pos == stop_at ? 2 : 3) : 0;
        if (gripper.report) out.push_back({completion_event(kGripperDevice), true});
    }
    if (hand.moving) {
        const bool done = hand.step(dt, 0, 1);
        for (int k = 0; k < 6; ++k) {
            hand_pos[k] = static_cast<int>(std::lround(hand_from[k] + (hand_to[k] - hand_from[k]) * hand.pos));
            hand_angle[k] = static_cast<int>(std::lround(hand_pos[k] * kHandDegrees));
        }
        if (done && hand.report) out.push_back({completion_event(kHandDevice), true});
    }
    if (lift.step(dt, kLiftLo, kLiftHi) && lift.report) out.push_back({completion_event(kLiftDevice), true});
    if (expand.step(dt, kExpandLo, kExpandHi) && expand.report) out.push_back({completion_event(kExpandDevice), true});
}

void EffectorState::hand_state(int pos[6], int angle[6], int force[6], int state[6]) const {
    for (int k = 0; k < 6; ++k) {
        pos[k] = hand_pos[k];
        angle[k] = hand_angle[k];
        // A finger closed past half way presses with up to the set force.
        force[k] = hand_force * std::clamp(hand_pos[k] - 500, 0, 500) / 500;
        state[k] = hand.moving ? 1 : 0;
    }
}

namespace {

void commands(CommandTable& t) {
    t["set_gripper_route"] = gripper_route;
    t["set_gripper_release"] = gripper_release;
    t["set_gripper_pick"] = gripper_pick;
    t["set_gripper_pick_on"] = gripper_pick;
    t["set_gripper_position"] = gripper_position;
    t["get_gripper_state"] = gripper_state;
    t["set_hand_posture"] = hand_posture;
    t["set_hand_seq"] = hand_seq;
    t["set_hand_angle"] = hand_angle;
    t["hand_follow_angle"] = hand_follow_angle;
    t["hand_follow_pos"] = hand_follow_pos;
    t["set_hand_speed"] = hand_speed;
    t["set_hand_force"] = hand_force;
    t["set_lift_speed"] = lift_speed;
    t["set_lift_height"] = lift_height;
    t["get_lift_state"] = lift_state;
    t["expand_get_state"] = expand_state;
    t["expand_set_speed"] = expand_speed;
    t["expand_set_pos"] = expand_pos;
}

}  // namespace

const Family effector_family{
    "effector",
    commands,
    [](ArmState& a, double dt, Events& out) { a.effectors.advance(dt, out); },
    [](const ArmState& a) { return a.effectors.busy(); },
    nullptr,
    /* An object between the gripper's fingers (args: width 1..1000, 0 nothing). */
    {{"gripper_object", [](ArmState& a, const std::vector<double>& v) {
          if (v.size() != 1) return false;
          a.effectors.object_width = std::clamp(static_cast<int>(v[0]), 0, 1000);
          return true;
      }}}};

}  // namespace kxsim
