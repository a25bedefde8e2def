// Planned moves, steps, teaching, stopping, streaming targets and the
// current-trajectory query.
#include <cmath>
#include <cstring>
#include <functional>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

/* v and trajectory_connect of a move; r and loop are accepted as they come. */
bool read_move(Ctx& c, int& v, int& tc) {
    tc = 0;
    if (!c.get_int("v", v)) return false;
    if (cJSON_GetObjectItemCaseSensitive(c.req, "trajectory_connect") && !c.get_int("trajectory_connect", tc))
        return false;
    return c.check(tc == 0 || tc == 1, "\"trajectory_connect\" is neither 0 nor 1");
}

void accept(Ctx& c, bool ok, Segment& seg, int tc, const char* type, const char* status) {
    ok = ok && zones_allow(c, seg);
    if (ok) {
        seg.tc = tc;
        seg.type = type;
        seg.status = status;
        c.arm.enqueue(std::move(seg), c.now, c.events);
    }
    c.verdict("receive_state", ok);
}

/* The planners' verdicts, with their reasons noted. */
bool plan_joint(Ctx& c, const Joints& target, int v, Segment& seg) {
    std::string why;
    return c.arm.plan_joint(target, v, seg, why) || c.fail(why);
}

bool plan_path(Ctx& c, const std::function<Mat4(double)>& path, double length, double angle, int v, Segment& seg) {
    std::string why;
    return c.arm.plan_path(path, length, angle, v, seg, why) || c.fail(why);
}

bool plan_line(Ctx& c, const Mat4& to, int v, Segment& seg) {
    const Mat4 from = c.arm.tool_pose(c.arm.plan_start());
    return plan_path(c, [&](double s) { return interpolate(from, to, s); }, distance(from, to),
                     angle_between(from, to), v, seg);
}

void movej(Ctx& c) {
    Joints target{};
    int v = 0, tc = 0;
    Segment seg;
    const bool ok = read_move(c, v, tc) && c.joints(c.req, "joint", target) && plan_joint(c, target, v, seg);
    accept(c, ok, seg, tc, "movej", "move_J");
}

void movej_p(Ctx& c) {
    Mat4 pose{};
    Joints target{};
    int v = 0, tc = 0;
    Segment seg;
    const Joints start = c.arm.plan_start();
    const bool ok = read_move(c, v, tc) && c.pose(c.req, "pose", pose) &&
                    c.check(c.arm.solve(pose, start, target) || c.arm.track(pose, start, target),
                            "the pose is out of reach") &&
                    plan_joint(c, target, v, seg);
    accept(c, ok, seg, tc, "movej", "move_J");
}

void move_line(Ctx& c, const char* type, const char* status) {
    Mat4 pose{};
    int v = 0, tc = 0;
    Segment seg;
    const bool ok = read_move(c, v, tc) && c.pose(c.req, "pose", pose) && plan_line(c, pose, v, seg);
    accept(c, ok, seg, tc, type, status);
}
void movel(Ctx& c) { move_line(c, "movel", "move_L"); }
void moves(Ctx& c) { move_line(c, "moves", "move_S"); }

struct V3 {
    double x, y, z;
};
V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
V3 operator*(double k, V3 a) { return {k * a.x, k * a.y, k * a.z}; }
double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
V3 origin(const Mat4& m) { return {m[0][3], m[1][3], m[2][3]}; }

/* Arc from the start pose through the via point to the end pose; the
 * orientation turns evenly from start to end. */
void movec(Ctx& c) {
    const cJSON* poses = cJSON_GetObjectItemCaseSensitive(c.req, "pose");
    Mat4 via{}, to{};
    int v = 0, tc = 0;
    Segment seg;
    bool ok = c.check(cJSON_IsObject(poses), "\"pose\" missing or not an object") &&
              c.pose(poses, "pose_via", via) && c.pose(poses, "pose_to", to) && read_move(c, v, tc);
    if (ok) {
        const Mat4 from = c.arm.tool_pose(c.arm.plan_start());
        const V3 a = origin(from), b = origin(via) - a, w = origin(to) - a, n = cross(b, w);
        const double nn = dot(n, n);
        ok = c.check(nn > 1e-12, "start, via and end points are not three distinct points off one line");
        if (ok) {
            const V3 centre = a + (1.0 / (2 * nn)) * cross(dot(b, b) * w - dot(w, w) * b, n);
            const V3 r0 = a - centre;
            const double r = std::sqrt(dot(r0, r0));
            const V3 e1 = (1.0 / r) * r0, nz = (1.0 / std::sqrt(nn)) * n, e2 = cross(nz, e1);
            auto angle_of = [&](V3 p) {
                const double t = std::atan2(dot(p - centre, e2), dot(p - centre, e1));
                return t < 0 ? t + 2 * M_PI : t;
            };
            const double sweep = angle_of(origin(to));
            auto path = [&](double s) {
                Mat4 m = interpolate(from, to, s);
                const double t = s * sweep;
                const V3 p = centre + r * std::cos(t) * e1 + r * std::sin(t) * e2;
                m[0][3] = p.x, m[1][3] = p.y, m[2][3] = p.z;
                return m;
            };
            ok = plan_path(c, path, r * sweep, angle_between(from, to), v, seg);
        }
    }
    accept(c, ok, seg, tc, "movec", "move_C");
}

/* ---- steps and teaching ---- */

int axis_of(const std::string& s, const char* const names[3]) {
    for (int i = 0; i < 3; ++i)
        if (s == names[i]) return i;
    return -1;
}

void joint_step(Ctx& c) {
    int js[2], v = 0;
    Segment seg;
    bool ok = c.get_ints("joint_step", 2, js) && c.get_int("v", v) &&
              c.check(js[0] >= 1 && js[0] <= c.arm.dof, "no such joint");
    if (ok) {
        Joints target = c.arm.plan_start();
        target[js[0] - 1] += js[1] / 1000.0;
        ok = plan_joint(c, target, v, seg);
    }
    accept(c, ok, seg, 0, "movej", "move_J");
}

/* The axis named by request member `key`, one of `names`; -1 (noted) otherwise. */
int axis_named(Ctx& c, const char* key, const char* const names[3]) {
    std::string s;
    if (!c.get_str(key, s)) return -1;
    const int axis = axis_of(s, names);
    if (axis < 0) c.fail(std::string("\"") + key + "\" names no axis: '" + s + "'");
    return axis;
}

void cartesian_step(Ctx& c, Teach::Kind kind, const char* const names[3], double scale) {
    int step = 0, v = 0;
    Segment seg;
    const int axis = axis_named(c, "step_type", names);
    bool ok = axis >= 0 && c.get_int("step", step) && c.get_int("v", v);
    if (ok) {
        const Mat4 to = teach_delta(c.arm.tool_pose(c.arm.plan_start()), kind, axis, step / scale,
                                    c.arm.teach_frame == 1);
        ok = plan_line(c, to, v, seg);
    }
    accept(c, ok, seg, 0, "movel", "move_L");
}
const char* const kPosSteps[3] = {"x_step", "y_step", "z_step"};
const char* const kOrtSteps[3] = {"rx_step", "ry_step", "rz_step"};
void pos_step(Ctx& c) { cartesian_step(c, Teach::kPos, kPosSteps, 1e6); }
void ort_step(Ctx& c) { cartesian_step(c, Teach::kOrt, kOrtSteps, 1e3); }

/* Starts a teaching motion; `limit` is the full-speed rate of the axis. */
void start_teach(Ctx& c, Teach::Kind kind, int axis, double limit, const char* key) {
    int v = 0;
    std::string dir;
    ArmState& a = c.arm;
    const bool ok = axis >= 0 && c.int_in("v", 1, 100, v) && c.get_str("direction", dir) &&
                    c.check(dir == "pos" || dir == "neg", "\"direction\" is neither \"pos\" nor \"neg\"") &&
                    c.check(a.can_move(), "the arm is powered off or a joint is disabled") &&
                    c.check(!a.running(), "a planned motion is running");
    if (ok) {
        a.teach.kind = kind;
        a.teach.axis = axis;
        a.teach.rate = (dir == "pos" ? 1 : -1) * limit * v / 100.0;
        a.teach.pose = a.tool_pose(a.q);
    }
    c.verdict(key, ok);
}

void joint_teach(Ctx& c) {
    int j = 0;
    const bool valid = c.int_in("teach_joint", 1, c.arm.dof, j);
    start_teach(c, Teach::kJoint, valid ? j - 1 : -1, valid ? c.arm.max_speed[j - 1] * 6e-3 : 0, "joint_teach");
}

void pos_teach(Ctx& c) {
    static const char* const names[3] = {"x", "y", "z"};
    start_teach(c, Teach::kPos, axis_named(c, "teach_type", names), c.arm.line_speed * 1e-3, "pos_teach");
}

void ort_teach(Ctx& c) {
    static const char* const names[3] = {"rx", "ry", "rz"};
    start_teach(c, Teach::kOrt, axis_named(c, "teach_type", names), c.arm.angular_speed * 1e-3, "ort_teach");
}

void stop_teach(Ctx& c) {
    c.arm.teach = Teach{};
    c.verdict("stop_teach", true);
}

/* ---- stopping ---- */

const struct StopCommand {
    const char* cmd;
    const char* key;
    void (*act)(Ctx&);
} kStops[] = {
    {"set_arm_stop", "arm_stop", [](Ctx& c) { c.arm.stop(false, c.now, c.events); }},
    {"set_arm_slow_stop", "arm_slow_stop", [](Ctx& c) { c.arm.stop(true, c.now, c.events); }},
    {"set_arm_pause", "arm_pause", [](Ctx& c) { c.arm.paused = c.arm.running() != nullptr; }},
    {"set_arm_continue", "arm_continue", [](Ctx& c) { c.arm.paused = false; }},
    {"set_delete_current_trajectory", "delete_current_trajectory", [](Ctx& c) { c.arm.drop_current(c.events); }},
    {"set_arm_delete_trajectory", "arm_delete_trajectory", [](Ctx& c) { c.arm.stop(false, c.now, c.events); }},
};

void stop_command(Ctx& c) {
    for (const auto& s : kStops)
        if (c.cmd == s.cmd) {
            s.act(c);
            c.verdict(s.key, true);
        }
}

/* ---- query ---- */

void current_trajectory(Ctx& c) {
    cJSON* r = c.answer("arm_current_trajectory");
    if (const Segment* s = c.arm.running()) {
        add_str(r, "type", s->type);
        add_ints(r, "data", s->target);
        return;
    }
    add_str(r, "type", "none");
    add_ints(r, "data", c.arm.wire_joints(c.arm.q).data(), static_cast<size_t>(c.arm.dof));
}

/* ---- streaming targets: no reply ---- */

/* A streamed target is taken only while no planned motion runs. */
bool can_stream(Ctx& c) {
    return c.check(c.arm.can_move(), "the arm is powered off or a joint is disabled") &&
           c.check(!c.arm.moving(), "a planned motion is running");
}

void stream_to(Ctx& c, const Joints& target, const char* status) {
    std::string why;
    if (!c.arm.stream_to(target, status, c.now, why)) c.refuse(why);
}

void stream_joints(Ctx& c) {
    Joints target{};
    if (!c.joints(c.req, "joint", target) || !can_stream(c)) return c.refuse(c.why);
    stream_to(c, target, "move_through_joint");
}

void stream_pose(Ctx& c) {
    Mat4 pose{};
    Joints target{};
    ArmState& a = c.arm;
    if (!c.pose(c.req, "pose", pose) || !can_stream(c)) return c.refuse(c.why);
    if (!a.track(pose, a.q, target) && !a.solve(pose, a.q, target)) return c.refuse("the pose is out of reach");
    stream_to(c, target, "move_through_pose");
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["movej"] = movej;
    t["movej_p"] = movej_p;
    t["movel"] = movel;
    t["moves"] = moves;
    t["movec"] = movec;
    t["set_joint_step"] = joint_step;
    t["set_pos_step"] = pos_step;
    t["set_ort_step"] = ort_step;
    t["set_joint_teach"] = joint_teach;
    t["set_pos_teach"] = pos_teach;
    t["set_ort_teach"] = ort_teach;
    t["set_stop_teach"] = stop_teach;
    for (const auto& s : kStops) t[s.cmd] = stop_command;
    t["get_arm_current_trajectory"] = current_trajectory;
    t["movej_canfd"] = stream_joints;
    t["movej_follow"] = stream_joints;
    t["movep_canfd"] = stream_pose;
    t["movep_follow"] = stream_pose;
    static const IntSetting kTeachFrame[] = {
        {"set_teach_frame", "frame_type", nullptr, "set_state", "get_teach_frame", "get_teach_frame", "frame_type",
         &ArmState::teach_frame, 0, 1},
    };
    add_int_settings(t, kTeachFrame, 1);
}

}  // namespace

const Family motion_family{"motion", commands};

}  // namespace kxsim
