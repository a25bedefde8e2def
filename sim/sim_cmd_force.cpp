// The force sensor (six-axis on QS arms, one-axis Fz on QA arms, none on P
// arms) and force-position control. The sensor feels the payload's weight,
// a scripted external push and the contact force that force-position
// control holds against a stiff surface.
#include <algorithm>
#include <cmath>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr double kGravity = 9.81;
constexpr double kSettle = 0.02;            /* s: time constant of the contact force */
constexpr double kContactReach = 1e-3;      /* m: the tool touches the surface within this */
const double kBias[6] = {0.8, -0.5, 1.2, 0.02, -0.01, 0.015}; /* the sensor's own offset */

using Vec3 = std::array<double, 3>;

/* R^T v for the rotation part of m. */
Vec3 rotate_back(const Mat4& m, const Vec3& v) {
    Vec3 r{};
    for (int i = 0; i < 3; ++i) r[i] = m[0][i] * v[0] + m[1][i] * v[1] + m[2][i] * v[2];
    return r;
}
Vec3 rotate(const Mat4& m, const Vec3& v) {
    Vec3 r{};
    for (int i = 0; i < 3; ++i) r[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return r;
}
Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/* A wrench in frame B given in frame A, where m is A -> B's rotation (B = m^T A). */
void wrench_back(const Mat4& m, const double in[6], double out[6]) {
    const Vec3 f = rotate_back(m, {in[0], in[1], in[2]}), t = rotate_back(m, {in[3], in[4], in[5]});
    for (int i = 0; i < 3; ++i) out[i] = f[i], out[3 + i] = t[i];
}
void wrench_fwd(const Mat4& m, const double in[6], double out[6]) {
    const Vec3 f = rotate(m, {in[0], in[1], in[2]}), t = rotate(m, {in[3], in[4], in[5]});
    for (int i = 0; i < 3; ++i) out[i] = f[i], out[3 + i] = t[i];
}

bool in_contact(const ArmState& a) {
    if (std::isnan(a.force.surface_z)) return true;
    const Mat4 tool = mul(a.flange(a.q), a.tool_in_base());
    return tool[2][3] <= a.force.surface_z + kContactReach;
}

/* One reading of the sensor: raw and zeroed in the sensor frame, zeroed in
 * the work and tool frames. */
struct Reading {
    double raw[6], zeroed[6], work[6], tool[6];
    explicit Reading(const ArmState& a) {
        sensor_wrench(a, raw, zeroed);
        double base[6];
        wrench_fwd(a.flange(a.q), zeroed, base);
        wrench_back(a.work_in_base(), base, work);
        wrench_back(a.tool_in_base(), zeroed, tool);
    }
};

void add_scaled(cJSON* r, const char* key, const double* v, size_t n) {
    int w[6];
    for (size_t i = 0; i < n; ++i) w[i] = to_wire(v[i], 1000);
    add_ints(r, key, w, n);
}

/* Sensor commands are refused by an arm without that sensor. */
bool has(Ctx& c, Edition e, const char* key) {
    if (c.has_sensor(e)) return true;
    c.verdict(key, false);
    return false;
}

void get_force_data(Ctx& c) {
    if (!has(c, kEditionQS, "set_state")) return;
    const Reading f(c.arm);
    cJSON* r = c.answer();
    add_scaled(r, "force_data", f.raw, 6);
    add_scaled(r, "zero_force_data", f.zeroed, 6);
    add_scaled(r, "work_zero_force_data", f.work, 6);
    add_scaled(r, "tool_zero_force_data", f.tool, 6);
}

void get_fz(Ctx& c) {
    if (!has(c, kEditionQA, "set_state")) return;
    const Reading f(c.arm);
    cJSON* r = c.answer();
    add_int(r, "Fz", to_wire(f.raw[2], 1000));
    add_int(r, "zero_Fz", to_wire(f.zeroed[2], 1000));
    add_int(r, "work_zero_Fz", to_wire(f.work[2], 1000));
    add_int(r, "tool_zero_Fz", to_wire(f.tool[2], 1000));
}

/* Zeroing takes the present reading as the new offset. */
void zero_sensor(ArmState& a) {
    double raw[6], zeroed[6];
    ForceState saved = a.force;
    a.force.offset = {};
    sensor_wrench(a, raw, zeroed);
    a.force = saved;
    for (int i = 0; i < 6; ++i) a.force.offset[i] = raw[i];
}

void clear_sensor(Ctx& c, Edition e, const char* key) {
    if (!has(c, e, key)) return;
    zero_sensor(c.arm);
    c.verdict(key, true);
}

/* Calibration outcomes all come back as "set_force_sensor". */
void calibrated(Ctx& c, Edition e) {
    if (!c.has_sensor(e)) return c.verdict("set_state", false, "set_force_sensor");
    zero_sensor(c.arm);
    c.arm.force.manual_poses = 0;
    c.verdict("set_state", true, "set_force_sensor");
}

void manual_pose(Ctx& c) {
    const int pose = c.cmd.back() - '0';
    int w[kMaxJoints];
    const bool ok = c.has_sensor(kEditionQS) && c.get_ints("joint", static_cast<size_t>(c.arm.dof), w) &&
                    pose == c.arm.force.manual_poses + 1;
    if (!ok) {
        c.arm.force.manual_poses = 0;
        return c.verdict("set_state", false, pose == 4 ? "set_force_sensor" : nullptr);
    }
    c.arm.force.manual_poses = pose;
    if (pose == 4) return calibrated(c, kEditionQS);
    c.verdict("set_state", true);
}

void manual_fz(Ctx& c) {
    int a[kMaxJoints], b[kMaxJoints];
    const size_t n = static_cast<size_t>(c.arm.dof);
    if (!c.get_ints("pose1", n, a) || !c.get_ints("pose2", n, b))
        return c.verdict("set_state", false, "set_force_sensor");
    calibrated(c, kEditionQA);
}

/* ---- force-position control ---- */

/* Holds `force` along (or about) `axis` of the base (mode 0) or tool (mode 1) axes. */
void hold(ArmState& a, int mode, int axis, double force) {
    ForceState& f = a.force;
    if (mode != f.frame) f.contact = {}; /* the contact so far was along other axes */
    f.frame = mode;
    f.target = {};
    if (axis >= 0 && axis < 6) f.target[axis] = force;
    f.holding = true;
}

bool read_mode(Ctx& c, int& mode) { return c.int_in("mode", 0, 1, mode); }

void set_force_position(Ctx& c) {
    ForceState& f = c.arm.force;
    int sensor = 0, mode = 0, dir = 0, n = 0;
    int desired[6], control[6], vel[6];
    bool ok = c.has_sensor() && c.get_int("sensor", sensor) && read_mode(c, mode);
    if (ok && c.get_int("direction", dir)) {
        ok = c.get_int("N", n) && c.check(dir >= 0 && dir < 6, "\"direction\" outside 0..5");
        if (ok) hold(c.arm, mode, dir, n / 10.0);
    } else if (ok) {
        ok = c.get_ints("desired_force", 6, desired) && c.get_ints("control_mode", 6, control) &&
             c.get_ints("limit_vel", 6, vel);
        if (ok) {
            hold(c.arm, mode, -1, 0);
            for (int i = 0; i < 6; ++i) f.target[i] = control[i] ? desired[i] / 10.0 : 0.0;
        }
    }
    c.verdict("set_state", ok);
}

void stop_force_position(Ctx& c) {
    c.arm.force.holding = false;
    c.arm.force.target = {};
    c.verdict("stop_state", true);
}

void force_move_mode(Ctx& c) {
    const bool start = c.cmd == "Start_Force_Position_Move";
    const bool ok = c.has_sensor();
    if (ok) c.arm.force.streaming = start;
    if (ok && !start) c.arm.force.holding = false;
    c.verdict("set_state", ok);
}

/* A stiff surface stops the tool: a target below it is met on it, so that
 * the commanded force, not the target, decides how hard the tool presses. */
bool stays_on_surface(const ArmState& a, Joints& target) {
    if (std::isnan(a.force.surface_z)) return true;
    Mat4 tool = mul(a.flange(target), a.tool_in_base());
    if (tool[2][3] >= a.force.surface_z) return true;
    tool[2][3] = a.force.surface_z;
    return a.track(mul(inverse(a.work_in_base()), tool), a.q, target);
}

/* A streamed target: no reply. The arm goes there and holds the force. */
void force_position_move(Ctx& c) {
    ArmState& a = c.arm;
    Joints target{};
    Mat4 pose{};
    int dir = 0, force = 0, mode = 0;
    if (!c.check(a.force.streaming, "force-position streaming is not started") ||
        !c.check(!a.moving(), "a planned motion is running"))
        return c.refuse(c.why);
    const bool by_joints = cJSON_GetObjectItemCaseSensitive(c.req, "joint") != nullptr;
    if (by_joints ? !c.joints(c.req, "joint", target) : !c.pose(c.req, "pose", pose)) return c.refuse(c.why);
    if (!by_joints && !a.track(pose, a.q, target)) return c.refuse("the pose is out of reach");
    if (!read_mode(c, mode)) return c.refuse(c.why);
    if (!stays_on_surface(a, target)) return c.refuse("the pose is out of reach on the surface");
    std::string why;
    if (!a.stream_to(target, "move_through_force_pose", c.now, why)) return c.refuse(why);
    if (get_int(c.req, "dir", dir) && get_int(c.req, "force", force)) hold(a, mode, dir, force / 10.0);
}

}  // namespace

void sensor_wrench(const ArmState& a, double raw[6], double zeroed[6]) {
    const Mat4 flange = a.flange(a.q);
    const ToolFrame* tool = a.current_tool();
    const double mass = tool->payload / 1000.0;
    const Vec3 com = {tool->com[0] / 1e6, tool->com[1] / 1e6, tool->com[2] / 1e6};
    /* weight and push, from the base frame into the sensor (flange) frame */
    const Vec3 weight = rotate_back(flange, {0, 0, -mass * kGravity});
    double push[6];
    wrench_back(flange, a.force.push.data(), push);
    /* contact, from its frame (the base or the tool) into the sensor frame */
    double contact[6];
    if (a.force.frame == 0) wrench_back(flange, a.force.contact.data(), contact);
    else wrench_fwd(a.tool_in_base(), a.force.contact.data(), contact);
    const Vec3 moment = cross(com, weight);
    for (int i = 0; i < 3; ++i) {
        raw[i] = kBias[i] + weight[i] + push[i] + contact[i];
        raw[3 + i] = kBias[3 + i] + moment[i] + push[3 + i] + contact[3 + i];
    }
    for (int i = 0; i < 6; ++i) zeroed[i] = raw[i] - a.force.offset[i];
}

void advance_force(ArmState& a, double dt) {
    ForceState& f = a.force;
    const bool touching = f.holding && in_contact(a);
    const double k = 1.0 - std::exp(-dt / kSettle);
    for (int i = 0; i < 6; ++i) f.contact[i] += ((touching ? f.target[i] : 0.0) - f.contact[i]) * k;
}

namespace {

void commands(CommandTable& t) {
    t["get_force_data"] = get_force_data;
    t["clear_force_data"] = [](Ctx& c) { clear_sensor(c, kEditionQS, "clear_state"); };
    t["set_force_sensor"] = [](Ctx& c) { calibrated(c, kEditionQS); };
    for (const char* p : {"manual_set_force_pose1", "manual_set_force_pose2", "manual_set_force_pose3",
                          "manual_set_force_pose4"})
        t[p] = manual_pose;
    t["stop_set_force_sensor"] = [](Ctx& c) {
        c.arm.force.manual_poses = 0;
        c.verdict("stop_state", c.has_sensor());
    };
    t["get_Fz"] = get_fz;
    t["clear_Fz"] = [](Ctx& c) { clear_sensor(c, kEditionQA, "set_state"); };
    t["auto_set_Fz"] = [](Ctx& c) { calibrated(c, kEditionQA); };
    t["manual_set_Fz"] = manual_fz;
    t["set_force_position"] = set_force_position;
    t["stop_force_position"] = stop_force_position;
    t["Start_Force_Position_Move"] = force_move_mode;
    t["Stop_Force_Position_Move"] = force_move_mode;
    t["Force_Position_Move"] = force_position_move;
    t["set_force_drag_mode"] = [](Ctx& c) {
        int mode = 0;
        const bool ok = c.has_sensor() && c.int_in("mode", 0, 1, mode);
        if (ok) c.arm.force.drag_mode = mode;
        c.verdict("set_state", ok);
    };
    t["get_force_drag_mode"] = [](Ctx& c) {
        if (!c.has_sensor()) return c.verdict("set_state", false);
        add_int(c.answer(), "mode", c.arm.force.drag_mode);
    };
}

}  // namespace

const Family force_family{
    "force",
    commands,
    [](ArmState& a, double dt, Events&) { advance_force(a, dt); },
    [](const ArmState& a) {
        return a.force.holding ||
               std::any_of(a.force.contact.begin(), a.force.contact.end(), [](double f) { return f != 0.0; });
    },
    nullptr,
    {/* The external wrench on the tool, base frame (args: Fx, Fy, Fz [N], Mx, My, Mz [N m], up to six). */
     {"external_force",
      [](ArmState& a, const std::vector<double>& v) {
          if (v.size() > 6) return false;
          a.force.push = {};
          std::copy(v.begin(), v.end(), a.force.push.begin());
          return true;
      }},
     /* Height of the stiff surface in the base frame (args: z [m]; NaN: at the tool). */
     {"surface_height", [](ArmState& a, const std::vector<double>& v) {
          if (v.size() != 1) return false;
          a.force.surface_z = v[0];
          return true;
      }}}};

}  // namespace kxsim
