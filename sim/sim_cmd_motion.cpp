// Planned moves, steps, teaching, stopping, streaming targets and the
// current-trajectory query.
#include <cmath>
#include <cstring>

#include "sim_arm.h"
#include "sim_json.h"

namespace kxsim {
namespace {

bool read_joints(const ArmState& a, const cJSON* req, const char* key, Joints& out) {
    int w[kMaxJoints];
    if (!get_ints(req, key, static_cast<size_t>(a.dof), w)) return false;
    out = Joints{};
    for (int i = 0; i < a.dof; ++i) out[i] = w[i] / 1000.0;
    return true;
}

/* "pose" (6) or "pose_quat" (x, y, z, qw, qx, qy, qz, all x 1e6). */
bool read_pose(const cJSON* req, const char* key, Mat4& out) {
    int w[7];
    if (get_ints(req, key, 6, w)) {
        out = wire_to_mat(w);
        return true;
    }
    if (!get_ints(req, "pose_quat", 7, w)) return false;
    const double p[3] = {w[0] / 1e6, w[1] / 1e6, w[2] / 1e6};
    const double qt[4] = {w[3] / 1e6, w[4] / 1e6, w[5] / 1e6, w[6] / 1e6};
    out = from_quat(p, qt);
    return true;
}

/* v and trajectory_connect of a move; r and loop are accepted as they come. */
bool read_move(const cJSON* req, int& v, int& tc) {
    tc = 0;
    if (!get_int(req, "v", v)) return false;
    if (cJSON_GetObjectItemCaseSensitive(req, "trajectory_connect") && !get_int(req, "trajectory_connect", tc))
        return false;
    return tc == 0 || tc == 1;
}

void accept(Ctx& c, bool ok, Segment& seg, int tc, const char* type, const char* status) {
    ok = ok && zones_allow(c.arm, seg);
    if (ok) {
        seg.tc = tc;
        seg.type = type;
        seg.status = status;
        c.arm.enqueue(std::move(seg), c.now, c.events);
    }
    c.verdict("receive_state", ok);
}

bool plan_line(const ArmState& a, const Mat4& to, int v, Segment& seg) {
    const Mat4 from = a.tool_pose(a.plan_start());
    return a.plan_path([&](double s) { return interpolate(from, to, s); }, distance(from, to),
                       angle_between(from, to), v, seg);
}

void movej(Ctx& c) {
    Joints target{};
    int v = 0, tc = 0;
    Segment seg;
    const bool ok = read_move(c.req, v, tc) && read_joints(c.arm, c.req, "joint", target) &&
                    c.arm.plan_joint(target, v, seg);
    accept(c, ok, seg, tc, "movej", "move_J");
}

void movej_p(Ctx& c) {
    Mat4 pose{};
    Joints target{};
    int v = 0, tc = 0;
    Segment seg;
    const Joints start = c.arm.plan_start();
    const bool ok = read_move(c.req, v, tc) && read_pose(c.req, "pose", pose) &&
                    (c.arm.solve(pose, start, target) || c.arm.track(pose, start, target)) &&
                    c.arm.plan_joint(target, v, seg);
    accept(c, ok, seg, tc, "movej", "move_J");
}

void move_line(Ctx& c, const char* type, const char* status) {
    Mat4 pose{};
    int v = 0, tc = 0;
    Segment seg;
    const bool ok = read_move(c.req, v, tc) && read_pose(c.req, "pose", pose) && plan_line(c.arm, pose, v, seg);
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
    bool ok = cJSON_IsObject(poses) && read_pose(poses, "pose_via", via) && read_pose(poses, "pose_to", to) &&
              read_move(c.req, v, tc);
    if (ok) {
        const Mat4 from = c.arm.tool_pose(c.arm.plan_start());
        const V3 a = origin(from), b = origin(via) - a, w = origin(to) - a, n = cross(b, w);
        const double nn = dot(n, n);
        ok = nn > 1e-12;  // three distinct, non-collinear points
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
            ok = c.arm.plan_path(path, r * sweep, angle_between(from, to), v, seg);
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
    bool ok = get_ints(c.req, "joint_step", 2, js) && get_int(c.req, "v", v) && js[0] >= 1 && js[0] <= c.arm.dof;
    if (ok) {
        Joints target = c.arm.plan_start();
        target[js[0] - 1] += js[1] / 1000.0;
        ok = c.arm.plan_joint(target, v, seg);
    }
    accept(c, ok, seg, 0, "movej", "move_J");
}

void cartesian_step(Ctx& c, Teach::Kind kind, const char* const names[3], double scale) {
    int step = 0, v = 0;
    std::string type;
    Segment seg;
    const int axis = get_str(c.req, "step_type", type) ? axis_of(type, names) : -1;
    bool ok = axis >= 0 && get_int(c.req, "step", step) && get_int(c.req, "v", v);
    if (ok) {
        const Mat4 to = teach_delta(c.arm.tool_pose(c.arm.plan_start()), kind, axis, step / scale,
                                    c.arm.teach_frame == 1);
        ok = plan_line(c.arm, to, v, seg);
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
    const bool ok = axis >= 0 && get_int(c.req, "v", v) && v >= 1 && v <= 100 && get_str(c.req, "direction", dir) &&
                    (dir == "pos" || dir == "neg") && a.can_move() && !a.running();
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
    const bool valid = get_int(c.req, "teach_joint", j) && j >= 1 && j <= c.arm.dof;
    start_teach(c, Teach::kJoint, valid ? j - 1 : -1, valid ? c.arm.max_speed[j - 1] * 6e-3 : 0, "joint_teach");
}

void pos_teach(Ctx& c) {
    static const char* const names[3] = {"x", "y", "z"};
    std::string t;
    start_teach(c, Teach::kPos, get_str(c.req, "teach_type", t) ? axis_of(t, names) : -1,
                c.arm.line_speed * 1e-3, "pos_teach");
}

void ort_teach(Ctx& c) {
    static const char* const names[3] = {"rx", "ry", "rz"};
    std::string t;
    start_teach(c, Teach::kOrt, get_str(c.req, "teach_type", t) ? axis_of(t, names) : -1,
                c.arm.angular_speed * 1e-3, "ort_teach");
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

void stream_joints(Ctx& c) {
    Joints target{};
    ArmState& a = c.arm;
    if (read_joints(a, c.req, "joint", target) && a.within_limits(target) && a.can_move() && !a.moving())
        a.stream_to(target, "move_through_joint", c.now);
}

void stream_pose(Ctx& c) {
    Mat4 pose{};
    Joints target{};
    ArmState& a = c.arm;
    if (read_pose(c.req, "pose", pose) && a.can_move() && !a.moving() &&
        (a.track(pose, a.q, target) || a.solve(pose, a.q, target)))
        a.stream_to(target, "move_through_pose", c.now);
}

}  // namespace

void add_motion_commands(CommandTable& t) {
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

}  // namespace kxsim
