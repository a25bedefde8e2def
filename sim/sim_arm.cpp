#include "sim_arm.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "sim_json.h"

namespace kxsim {

namespace {
constexpr double kDeg = 180.0 / M_PI;
constexpr double kInf = std::numeric_limits<double>::infinity();
/* A Cartesian path whose IK jumps this far between samples changes branch. */
constexpr double kMaxSampleJump = 30.0;
/* Streamed targets: the period assumed for the first target of a stream
 * (one that follows no other within kStreamRestart), the bounds of a
 * measured period, and the tolerance of the speed check. */
constexpr double kDefaultStreamPeriod = 0.020, kStreamRestart = 0.5; /* s */
constexpr double kMinStreamPeriod = 0.001, kMaxStreamPeriod = 0.100; /* s */
constexpr double kStreamMargin = 0.1, kStreamSlack = 0.002;          /* fraction, deg */

const ToolFrame kDefaultTool{"Arm_Tip", {}, 0, {}, {}};
const WorkFrame kDefaultWork{"World", {}};

/* The joints at s along the samples: a cubic through them (Catmull-Rom),
 * so that joint speed has no jumps at the samples. */
Joints eval_path(const std::vector<Joints>& path, double s) {
    const size_t last = path.size() - 1;
    const double x = std::clamp(s, 0.0, 1.0) * static_cast<double>(last);
    const size_t i = std::min(static_cast<size_t>(x), last - 1);
    const double t = x - static_cast<double>(i), t2 = t * t, t3 = t2 * t;
    const Joints& p0 = path[i > 0 ? i - 1 : i];
    const Joints& p1 = path[i];
    const Joints& p2 = path[i + 1];
    const Joints& p3 = path[i + 2 <= last ? i + 2 : i + 1];
    // One-sided tangents at the ends, central ones inside.
    const double w0 = i > 0 ? 0.5 : 1.0, w1 = i + 2 <= last ? 0.5 : 1.0;
    Joints j{};
    for (int k = 0; k < kMaxJoints; ++k) {
        const double m1 = w0 * (p2[k] - p0[k]), m2 = w1 * (p3[k] - p1[k]);
        j[k] = (2 * t3 - 3 * t2 + 1) * p1[k] + (t3 - 2 * t2 + t) * m1 + (-2 * t3 + 3 * t2) * p2[k] + (t3 - t2) * m2;
    }
    return j;
}

/* Trapezoidal profile in s: position and velocity at time t. */
double profile(const Segment& seg, double t, double& vel) {
    vel = 0;
    if (seg.duration <= 0 || t >= seg.duration) return 1.0;
    if (t <= 0) return 0.0;
    const double as = seg.as, T = seg.duration;
    const double ta = (seg.vs * seg.vs / as >= 1.0) ? T / 2 : seg.vs / as;
    if (t < ta) {
        vel = as * t;
        return 0.5 * as * t * t;
    }
    if (t > T - ta) {
        const double r = T - t;
        vel = as * r;
        return 1.0 - 0.5 * as * r * r;
    }
    vel = as * ta;
    return 0.5 * as * ta * ta + vel * (t - ta);
}
}  // namespace

const char* const kCustomKeys[kCustomCount] = {"joint_speed", "lift_state",         "expand_state",
                                               "arm_current_status", "aloha_state", "hand"};

Mat4 wire_to_mat(const int w[6]) {
    const double v[6] = {w[0] / 1e6, w[1] / 1e6, w[2] / 1e6, w[3] / 1e3, w[4] / 1e3, w[5] / 1e3};
    return from_pose6(v);
}

void mat_to_wire(const Mat4& m, int w[6]) {
    double v[6];
    to_pose6(m, v);
    for (int i = 0; i < 6; ++i) w[i] = to_wire(v[i], i < 3 ? 1e6 : 1e3);
}

std::string trajectory_event(bool reached, int trajectory_connect) {
    cJSON* o = cJSON_CreateObject();
    add_str(o, "command", "current_trajectory_state");
    add_bool(o, "trajectory_state", reached);
    add_int(o, "device", 0);
    add_int(o, "trajectory_connect", trajectory_connect);
    return print_and_delete(o);
}

Mat4 teach_delta(const Mat4& pose, Teach::Kind kind, int axis, double amount, bool tool_frame) {
    Mat4 delta = identity();
    if (kind == Teach::kPos) {
        delta[axis][3] = amount;
    } else {
        double ax[3] = {0, 0, 0};
        ax[axis] = 1.0;
        delta = rotation(ax, amount);
    }
    if (tool_frame) return mul(pose, delta);
    Mat4 r = mul(delta, pose);
    for (int i = 0; i < 3; ++i) r[i][3] = pose[i][3] + delta[i][3];  // rotate in place
    return r;
}

/* ---------------------------------------------------------------- model -- */

namespace {

/* The kinematics' robot type and sensor edition named by a product string;
 * false when it names no known model. */
bool product_type(const std::string& product_version, int& type, int& ed) {
    static const struct {
        const char* name;
        int type;
    } kModels[] = {{"AVEN", 0}, {"BRIV", 1}, {"CALD", 3}, {"DUMO", 5}, {"ESKA", 6}, {"FIRU", 7}, {"GOLT", 8}};
    type = -1;
    for (const auto& m : kModels)
        if (product_version.find(m.name) != std::string::npos) {
            type = m.type;
            break;
        }
    ed = 0;
    if (product_version.find("-P") != std::string::npos) ed = 0;
    else if (product_version.find("-QA") != std::string::npos) ed = 1;
    else if (product_version.find("-QS") != std::string::npos) ed = 2;
    return type >= 0;
}

}  // namespace

bool product_offered(const std::string& product_version) {
    int type = 0, ed = 0;
    algo::ArmModel m{};
    return product_type(product_version, type, ed) && algo::default_model(type, ed, &m);
}

void ArmState::set_product(const std::string& product_version) {
    product = product_version;
    int type = -1, ed = 0;
    if (!product_type(product_version, type, ed)) return;
    algo::ArmModel m{};
    // Editions a model does not offer fall back to its plain geometry.
    if (!algo::default_model(type, ed, &m) && !algo::default_model(type, 0, &m)) return;
    edition = ed;
    factory = m;
    reset();
}

void ArmState::reset() {
    model = factory;
    dof = std::clamp(factory.dof, 6, 7);
    for (int i = 0; i < kMaxJoints; ++i) {
        const bool used = i < dof;
        const double vmax = factory.vmax[i] > 0 ? factory.vmax[i] * kDeg : 180.0;
        const double amax = factory.amax[i] > 0 ? factory.amax[i] * kDeg : 600.0;
        min_pos[i] = used ? static_cast<int>(std::lround(factory.jmin[i] * kDeg * 1000)) : 0;
        max_pos[i] = used ? static_cast<int>(std::lround(factory.jmax[i] * kDeg * 1000)) : 0;
        if (used && min_pos[i] >= max_pos[i]) min_pos[i] = -170000, max_pos[i] = 170000;
        max_speed[i] = used ? static_cast<int>(std::lround(vmax / 6 * 1000)) : 0;
        max_acc[i] = used ? static_cast<int>(std::lround(amax / 6 * 1000)) : 0;
        drive_min_pos[i] = min_pos[i];
        drive_max_pos[i] = max_pos[i];
        drive_max_speed[i] = max_speed[i];
        drive_max_acc[i] = max_acc[i];
        en_state[i] = used ? 1 : 0;
        err_flag[i] = brake_state[i] = init_pose[i] = 0;
        q[i] = used ? std::clamp(0.0, min_pos[i] / 1000.0, max_pos[i] / 1000.0) : 0.0;
        qd[i] = 0;
    }
    sync_model_limits();
    reset_dh();
    tools = {kDefaultTool};
    works = {kDefaultWork};
    tool_current = kDefaultTool.name;
    work_current = kDefaultWork.name;
    tool_points.clear();
    work_points.clear();
    queue.clear();
    teach = Teach{};
    paused = slow_stopping = false;
}

void ArmState::reset_dh() {
    // Factory values are rounded: they are what the model means, not a float's last bit.
    for (int i = 0; i < kMaxJoints; ++i)
        dh[i] = {static_cast<int>(std::lround(factory.alpha[i] * kDeg * 1e3)),
                 static_cast<int>(std::lround(factory.a[i] * 1e6)), static_cast<int>(std::lround(factory.d[i] * 1e6)),
                 static_cast<int>(std::lround(factory.offset[i] * kDeg * 1e3))};
    apply_dh();
}

void ArmState::apply_dh() {
    for (int i = 0; i < kMaxJoints; ++i) {
        model.alpha[i] = static_cast<float>(dh[i][0] / 1e3 / kDeg);
        model.a[i] = static_cast<float>(dh[i][1] / 1e6);
        model.d[i] = static_cast<float>(dh[i][2] / 1e6);
        model.offset[i] = static_cast<float>(dh[i][3] / 1e3 / kDeg);
    }
}

void ArmState::sync_model_limits() {
    for (int i = 0; i < dof; ++i) {
        model.jmin[i] = static_cast<float>(min_pos[i] / 1000.0 / kDeg);
        model.jmax[i] = static_cast<float>(max_pos[i] / 1000.0 / kDeg);
    }
}

/* ----------------------------------------------------------- kinematics -- */

Mat4 ArmState::flange(const Joints& j) const {
    float qr[8] = {}, T[4][4];
    for (int i = 0; i < dof; ++i) qr[i] = static_cast<float>(j[i] / kDeg);
    algo::arm_fk(model, qr, T);
    Mat4 m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) m[r][c] = T[r][c];
    return m;
}

const ToolFrame* ArmState::current_tool() const {
    const ToolFrame* t = find_by_name(tools, tool_current);
    return t ? t : &kDefaultTool;
}

const WorkFrame* ArmState::current_work() const {
    const WorkFrame* w = find_by_name(works, work_current);
    return w ? w : &kDefaultWork;
}

Mat4 ArmState::tool_in_base() const { return wire_to_mat(current_tool()->pose); }
Mat4 ArmState::work_in_base() const { return wire_to_mat(current_work()->pose); }

Mat4 ArmState::tool_pose(const Joints& j) const {
    return mul(inverse(work_in_base()), mul(flange(j), tool_in_base()));
}

Mat4 ArmState::flange_target(const Mat4& tool_target) const {
    return mul(work_in_base(), mul(tool_target, inverse(tool_in_base())));
}

bool ArmState::reaches(const Joints& j, const Mat4& F) const {
    if (!within_limits(j)) return false;
    const Mat4 got = flange(j);
    return distance(got, F) < 1e-4 && angle_between(got, F) < 1e-3;
}

bool ArmState::solve(const Mat4& tool_target, const Joints& ref, Joints& out) const {
    const Mat4 F = flange_target(tool_target);
    float T[4][4], qref[8] = {}, qo[8] = {};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) T[r][c] = static_cast<float>(F[r][c]);
    for (int i = 0; i < dof; ++i) qref[i] = static_cast<float>(ref[i] / kDeg);
    if (algo::arm_ik(model, qref, T, qo) != 0) return false;
    out = Joints{};
    for (int i = 0; i < dof; ++i) out[i] = qo[i] * kDeg;
    return reaches(out, F);  // trust but verify
}

/* Levenberg-Marquardt on a numeric Jacobian, starting at ref: the damping
 * grows whenever a step does not reduce the error (near singularities). */
bool ArmState::track(const Mat4& tool_target, const Joints& ref, Joints& out) const {
    constexpr double kStep = 1e-3 * kDeg, kMaxMove = 10.0; /* degrees */
    const Mat4 F = flange_target(tool_target);
    auto error = [&](const Joints& q, double e[6]) {
        const Mat4 now = flange(q);
        const std::array<double, 3> w = rotation_vector(mul(F, inverse(now)));
        double sum = 0;
        for (int r = 0; r < 3; ++r) {
            e[r] = F[r][3] - now[r][3];
            e[3 + r] = w[r];
            sum += e[r] * e[r] + w[r] * w[r];
        }
        return sum;
    };
    Joints q = ref;
    double e[6], err = error(q, e), damping = 1e-10;
    for (int iter = 0; iter < 60 && err > 1e-13; ++iter) {
        const Mat4 now = flange(q);
        double J[6][kMaxJoints] = {};
        for (int j = 0; j < dof; ++j) {
            Joints qj = q;
            qj[j] += kStep;
            const Mat4 m = flange(qj);
            const std::array<double, 3> dw = rotation_vector(mul(m, inverse(now)));
            for (int r = 0; r < 3; ++r) {
                J[r][j] = (m[r][3] - now[r][3]) / kStep;
                J[3 + r][j] = dw[r] / kStep;
            }
        }
        for (; iter < 60; ++iter) {  // raise the damping until a step helps
            std::vector<std::vector<double>> A(6, std::vector<double>(6, 0));
            std::vector<double> y;
            for (int r = 0; r < 6; ++r) {
                for (int c = 0; c < 6; ++c)
                    for (int j = 0; j < dof; ++j) A[r][c] += J[r][j] * J[c][j];
                A[r][r] += damping;
            }
            if (!solve_linear(A, std::vector<double>(e, e + 6), y)) return false;
            Joints dq{};
            double move = 0;
            for (int j = 0; j < dof; ++j) {
                for (int r = 0; r < 6; ++r) dq[j] += J[r][j] * y[r];
                move = std::max(move, std::fabs(dq[j]));
            }
            Joints next = q;
            for (int j = 0; j < dof; ++j) next[j] += dq[j] * (move > kMaxMove ? kMaxMove / move : 1.0);
            double ne[6];
            const double nerr = error(next, ne);
            if (nerr < err) {
                q = next;
                err = nerr;
                std::copy(ne, ne + 6, e);
                damping = std::max(damping / 10, 1e-12);
                break;
            }
            damping *= 10;
        }
    }
    out = q;
    return reaches(out, F);
}

bool ArmState::within_limits(const Joints& j) const { return beyond_limits(j).empty(); }

WireJoints ArmState::wire_joints(const Joints& j) const {
    WireJoints w{};
    for (int i = 0; i < dof; ++i) w[i] = to_wire(j[i], 1000);
    return w;
}

WireJoints ArmState::telemetry(Telemetry kind) const {
    WireJoints w{};
    for (int i = 0; i < dof; ++i) {
        switch (kind) {
        case kTemperature: w[i] = 35000 + 500 * i; break;
        case kCurrent: w[i] = to_wire(0.3 + std::fabs(qd[i]) * 0.01, 1000); break;
        case kVoltage: w[i] = power ? 48000 : 0; break;
        }
    }
    return w;
}

std::vector<int> ArmState::error_list() const { return errors.empty() ? std::vector<int>{0} : errors; }

void ArmState::raise(ArmError e) {
    if (!holds(e)) errors.push_back(e);
}

bool ArmState::holds(ArmError e) const { return std::find(errors.begin(), errors.end(), e) != errors.end(); }

/* --------------------------------------------------------------- motion -- */

bool ArmState::can_move() const { return motion_blocker().empty(); }

const Segment* ArmState::running() const {
    // A joined chain (trajectory_connect 1) waits for the move that closes it.
    for (const auto& s : queue)
        if (s.tc == 0) return &queue.front();
    return nullptr;
}

Joints ArmState::plan_start() const { return queue.empty() ? q : queue.back().path.back(); }

std::string ArmState::beyond_limits(const Joints& j) const {
    for (int i = 0; i < dof; ++i)
        if (!(j[i] >= min_pos[i] / 1000.0 - 1e-3 && j[i] <= max_pos[i] / 1000.0 + 1e-3)) {
            char text[120];
            std::snprintf(text, sizeof text, "joint %d target %.3f deg beyond its limits [%.3f, %.3f]", i + 1, j[i],
                          min_pos[i] / 1000.0, max_pos[i] / 1000.0);
            return text;
        }
    return {};
}

std::string ArmState::motion_blocker() const {
    if (power != 1) return "the arm is powered off";
    for (int i = 0; i < dof; ++i)
        if (en_state[i] != 1) return "joint " + std::to_string(i + 1) + " is disabled";
    return {};
}

bool ArmState::plan_joint(const Joints& target, int v, Segment& seg, std::string& why) const {
    why = beyond_limits(target);
    if (!why.empty()) return false;
    seg.path = {plan_start(), target};
    const WireJoints w = wire_joints(target);
    seg.target.assign(w.begin(), w.begin() + dof);
    return finish_plan(seg, v, 0, 0, why);
}

bool ArmState::plan_path(const std::function<Mat4(double)>& path, double length, double angle, int v, Segment& seg,
                         std::string& why) const {
    const int n = std::clamp(static_cast<int>(std::ceil(length / 0.005 + angle / 0.05)), 4, 200);
    Joints ref = plan_start(), out{};
    seg.path = {ref};
    for (int k = 1; k <= n; ++k) {
        const Mat4 target = path(static_cast<double>(k) / n);
        if (!track(target, ref, out) && !solve(target, ref, out)) {
            why = "the path leaves the reachable space " + std::to_string(100 * k / n) + "% of the way";
            return false;
        }
        for (int i = 0; i < dof; ++i)
            if (std::fabs(out[i] - ref[i]) > kMaxSampleJump) {
                why = "joint " + std::to_string(i + 1) + " would flip branch " + std::to_string(100 * k / n) +
                      "% of the way (a singularity on the path)";
                return false;
            }
        seg.path.push_back(out);
        ref = out;
    }
    int w[6];
    mat_to_wire(path(1.0), w);
    seg.target.assign(w, w + 6);
    return finish_plan(seg, v, length, angle, why);
}

bool ArmState::finish_plan(Segment& seg, int v, double length, double angle, std::string& why) const {
    if (v < 1 || v > 100) {
        why = "speed v " + std::to_string(v) + " outside 1..100";
        return false;
    }
    why = motion_blocker();
    if (!why.empty()) return false;
    const double f = v / 100.0;
    double vs = kInf, as = kInf;
    if (length > 1e-9) {
        vs = std::min(vs, line_speed * 1e-3 * f / length);
        as = std::min(as, line_acc * 1e-3 / length);
    }
    if (angle > 1e-9) {
        vs = std::min(vs, angular_speed * 1e-3 * f / angle);
        as = std::min(as, angular_acc * 1e-3 / angle);
    }
    bound_profile(seg, f, vs, as);
    return true;
}

/* The path is sampled evenly in s: per joint, d1 bounds |dq/ds| and d2
 * |d2q/ds2| (the cubic through the samples bends up to three times their
 * second difference), and since q'' = d2 s'^2 + d1 s'', half the
 * acceleration goes to each term. */
void ArmState::bound_profile(Segment& seg, double f, double vs, double as, double noise) const {
    const double m = static_cast<double>(seg.path.size() - 1);
    for (int i = 0; i < dof; ++i) {
        double d1 = 0, d2 = 0;
        for (size_t k = 1; k < seg.path.size(); ++k) {
            d1 = std::max(d1, std::fabs(seg.path[k][i] - seg.path[k - 1][i]) * m);
            if (k >= 2) {
                const double bend = std::fabs(seg.path[k][i] - 2 * seg.path[k - 1][i] + seg.path[k - 2][i]);
                d2 = std::max(d2, 3 * std::max(0.0, bend - noise) * m * m);
            }
        }
        if (d1 < 1e-9) continue;
        const double vmax = max_speed[i] * 6e-3, amax = max_acc[i] * 6e-3; /* deg/s, deg/s^2 */
        vs = std::min(vs, vmax * f / d1);
        if (d2 < 1e-9) {
            as = std::min(as, amax / d1);
        } else {
            as = std::min(as, amax / (2 * d1));
            vs = std::min(vs, std::sqrt(amax / (2 * d2)));
        }
    }
    if (vs == kInf || !(vs > 0)) {  // nothing moves
        seg.vs = seg.as = 1;
        seg.duration = 0;
        return;
    }
    if (as == kInf) as = vs * 1e4; /* no joint moves: the rate is reached at once */
    seg.vs = vs;
    seg.as = as;
    seg.duration = (vs * vs / as >= 1.0) ? 2 * std::sqrt(1.0 / as) : vs / as + 1.0 / vs;
}

void ArmState::plan_recorded(Segment& seg, double duration) const {
    /* Each sample is rounded to 0.001 deg, so a second difference is off by
     * up to 0.002 deg: at a 1 ms cycle that jitter alone would read as
     * 2000 deg/s^2 and crawl along a straight path. */
    bound_profile(seg, 1.0, 1.0 / duration, kNoBound, 0.002);
    seg.type = "re_trajectory";
    seg.status = "move_J";
    const WireJoints end = wire_joints(seg.path.back());
    seg.target.assign(end.begin(), end.begin() + dof);
}

void ArmState::enqueue(Segment seg, double now, Events& out) {
    advance(now, out);
    teach = Teach{};
    queue.push_back(std::move(seg));
}

void ArmState::end_segment(bool reached, Events& out) {
    const int tc = queue.front().tc;
    const bool braked = queue.front().braking;
    queue.pop_front();
    if (braked) {
        queue.clear();
        slow_stopping = false;
    }
    last_end_sim = last_t;
    out.push_back({trajectory_event(reached, tc), true});
}

void ArmState::advance(double now, Events& out) {
    const double dt = now - last_t;
    if (dt <= 0) return;
    last_t = now;
    const Joints before = q;
    if (!paused) {
        if (teach.kind != Teach::kNone) step_teach(dt);
        double left = dt;
        while (left > 0) {
            if (!running()) break;
            Segment& seg = queue.front();
            seg.t += left;
            left = 0;
            double s = 1, vel = 0;
            bool done = false;
            if (seg.braking) {
                const double tb = seg.t - seg.brake_t, tstop = seg.brake_v / seg.as;
                const double tt = std::min(tb, tstop);
                s = std::min(1.0, seg.brake_s + seg.brake_v * tt - 0.5 * seg.as * tt * tt);
                done = tb >= tstop;
            } else {
                s = profile(seg, seg.t, vel);
                done = seg.t >= seg.duration;
                if (done) left = seg.t - seg.duration;
            }
            q = eval_path(seg.path, s);
            if (done) end_segment(!seg.braking && s >= 1.0, out);
        }
    }
    advance_families(*this, dt, out);
    for (int i = 0; i < dof; ++i) {
        odom[i] += std::fabs(q[i] - before[i]);
        qd[i] = (q[i] - before[i]) / dt;
    }
}

void ArmState::step_teach(double dt) {
    if (teach.kind == Teach::kJoint) {
        const int i = teach.axis;
        const double lo = min_pos[i] / 1000.0, hi = max_pos[i] / 1000.0;
        const double nq = q[i] + teach.rate * dt;
        q[i] = std::clamp(nq, lo, hi);
        if (nq != q[i]) teach = Teach{};  // ran into the limit
        return;
    }
    const Mat4 next = teach_delta(teach.pose, teach.kind, teach.axis, teach.rate * dt, teach_frame == 1);
    Joints out{};
    if (!track(next, q, out)) {
        teach = Teach{};  // left the workspace: hold where we are
        return;
    }
    q = out;
    teach.pose = next;
}

void ArmState::stop(bool slow, double now, Events& out) {
    advance(now, out);
    teach = Teach{};
    stop_families(*this, out);
    if (!running()) {
        queue.clear();
        paused = false;
        return;
    }
    Segment& seg = queue.front();
    if (slow && seg.braking) return;  // already braking
    if (slow && !paused) {
        queue.resize(1);
        double vel = 0;
        seg.brake_s = profile(seg, seg.t, vel);
        seg.brake_v = vel;
        seg.brake_t = seg.t;
        seg.braking = true;
        slow_stopping = true;
        return;
    }
    end_segment(false, out);
    queue.clear();
    slow_stopping = false;
    paused = false;
}

void ArmState::drop_current(Events& out) {
    if (running()) end_segment(false, out);
}

double StreamState::period(double now) const {
    if (times.empty() || now - times.back() > kStreamRestart) return kDefaultStreamPeriod;
    const double mean = (now - times.front()) / static_cast<double>(times.size());
    return std::clamp(std::max(mean, now - times.back()), kMinStreamPeriod, kMaxStreamPeriod);
}

void StreamState::accepted(double now) {
    // A stream starts as if a window of targets had come at the default
    // period before it: a first few targets held up on their way and
    // arriving together are not taken for a sender racing ahead.
    if (times.empty() || now - times.back() > kStreamRestart) {
        times.clear();
        for (size_t k = kWindow - 1; k > 0; --k) times.push_back(now - static_cast<double>(k) * kDefaultStreamPeriod);
    }
    times.push_back(now);
    if (times.size() > kWindow) times.pop_front();
}

bool ArmState::stream_to(const Joints& target, const char* st, double now, std::string& why) {
    char text[200];
    for (const ArmError e : {kStreamSpeedError, kSelfCollisionError})
        if (holds(e)) {
            std::snprintf(text, sizeof text, "the arm stopped on error 0x%X; clear_system_err resumes", e);
            why = text;
            return false;
        }
    why = beyond_limits(target);
    if (!why.empty()) return false;
    if (zones.self_collision && self_collision(*this, q).empty()) {
        why = self_collision(*this, target);
        if (!why.empty()) {
            raise(kSelfCollisionError);
            return false;
        }
    }
    const double period = stream.period(now);
    for (int i = 0; i < dof; ++i) {
        const double vmax = max_speed[i] * 6e-3, step = std::fabs(target[i] - q[i]);
        const double reach = vmax * period * (1 + kStreamMargin) + kStreamSlack;
        if (step > reach) {
            std::snprintf(text, sizeof text,
                          "joint %d would move %.3f deg in one period of %.1f ms; its limit is %.3f deg (%.1f deg/s)",
                          i + 1, step, period * 1e3, reach, vmax);
            why = text;
            raise(kStreamSpeedError);
            stream = StreamState{};
            qd = Joints{};
            return false;
        }
    }
    stream.accepted(now);
    const double dt = now - last_t;
    for (int i = 0; i < dof; ++i) {
        odom[i] += std::fabs(target[i] - q[i]);
        qd[i] = dt > 0 ? (target[i] - q[i]) / dt : 0;
    }
    q = target;
    stream_until = now + 0.1;
    stream_status = st;
    return true;
}

std::vector<Joints> ArmState::preview(double dt) const {
    std::vector<Joints> out;
    for (const Segment& seg : queue) {
        const int n = static_cast<int>(std::ceil(seg.duration / dt));
        for (int k = 0; k <= n; ++k) {
            double vel = 0;
            out.push_back(eval_path(seg.path, profile(seg, std::min(k * dt, seg.duration), vel)));
        }
    }
    return out;
}

const char* ArmState::status() const {
    if (const Segment* s = running()) {
        if (paused) return "pause";
        return s->braking ? "slow_stop" : s->status;
    }
    if (teach.kind == Teach::kJoint) return "move_J";
    if (teach.kind != Teach::kNone) return "move_L";
    if (last_t < stream_until) return stream_status;
    return "idle";
}

/* ------------------------------------------------------------- commands -- */

cJSON* Ctx::answer(const char* name) {
    if (!reply) {
        reply = cJSON_CreateObject();
        add_str(reply, "command", name ? name : cmd);
    }
    return reply;
}

void Ctx::verdict(const char* key, bool ok, const char* name) {
    add_bool(answer(name), key, ok);
    refused = refused || !ok;
}

void Ctx::refuse(const std::string& reason) {
    why = reason;
    refused = true;
}

bool Ctx::fail(std::string reason) {
    why = std::move(reason);
    return false;
}

bool Ctx::get_int(const char* key, int& out) {
    return kxsim::get_int(req, key, out) || fail(std::string("\"") + key + "\" missing or not an integer");
}

bool Ctx::int_in(const char* key, int lo, int hi, int& out) {
    if (!get_int(key, out)) return false;
    return (out >= lo && out <= hi) ||
           fail(std::string("\"") + key + "\" " + std::to_string(out) + " outside " + std::to_string(lo) + ".." +
                std::to_string(hi));
}

bool Ctx::get_bool(const char* key, bool& out) {
    return kxsim::get_bool(req, key, out) || fail(std::string("\"") + key + "\" missing or not a boolean");
}

bool Ctx::get_str(const char* key, std::string& out) {
    return kxsim::get_str(req, key, out) || fail(std::string("\"") + key + "\" missing or not a string");
}

bool Ctx::joints(const cJSON* obj, const char* key, Joints& out) {
    int w[kMaxJoints];
    if (!kxsim::get_ints(obj, key, static_cast<size_t>(arm.dof), w))
        return fail(std::string("\"") + key + "\" missing or not " + std::to_string(arm.dof) + " integers");
    out = Joints{};
    for (int i = 0; i < arm.dof; ++i) out[i] = w[i] / 1000.0;
    return true;
}

bool Ctx::has_sensor(Edition need) {
    static const char* const kSensors[] = {"no force sensor (edition P)", "a one-axis Fz sensor (edition QA)",
                                           "a six-axis force sensor (edition QS)"};
    if (need == kEditionP ? arm.edition != kEditionP : arm.edition == need) return true;
    return fail(std::string("needs ") + (need == kEditionP ? "a force sensor" : kSensors[need]) + "; this arm has " +
                kSensors[arm.edition]);
}

bool Ctx::pose(const cJSON* obj, const char* key, Mat4& out) {
    int w[7];
    if (kxsim::get_ints(obj, key, 6, w)) {
        out = wire_to_mat(w);
        return true;
    }
    if (!kxsim::get_ints(obj, "pose_quat", 7, w))
        return fail(std::string("\"") + key + "\" (6 integers) or \"pose_quat\" (7) missing");
    const double p[3] = {w[0] / 1e6, w[1] / 1e6, w[2] / 1e6};
    const double qt[4] = {w[3] / 1e6, w[4] / 1e6, w[5] / 1e6, w[6] / 1e6};
    out = from_quat(p, qt);
    return true;
}

bool Ctx::get_ints(const char* key, size_t n, int* out) {
    return kxsim::get_ints(req, key, n, out) ||
           fail(std::string("\"") + key + "\" missing or not " + std::to_string(n) + " integers");
}

namespace {
/* Filled while the command table is built, read-only afterwards. */
std::unordered_map<std::string, const IntSetting*>& settings_by_command() {
    static std::unordered_map<std::string, const IntSetting*> m;
    return m;
}

void set_int_setting(Ctx& c) {
    const IntSetting& s = *settings_by_command().at(c.cmd);
    int v = 0;
    const bool ok = c.int_in(s.field, s.lo, s.hi, v);
    if (ok) c.arm.*s.member = v;
    c.verdict(s.set_key, ok, s.set_reply);
}

void get_int_setting(Ctx& c) {
    const IntSetting& s = *settings_by_command().at(c.cmd);
    add_int(c.answer(s.get_reply), s.get_key, c.arm.*s.member);
}
}  // namespace

void add_int_settings(CommandTable& t, const IntSetting* rows, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (rows[i].set_cmd) {
            settings_by_command()[rows[i].set_cmd] = &rows[i];
            t[rows[i].set_cmd] = set_int_setting;
        }
        if (rows[i].get_cmd) {
            settings_by_command()[rows[i].get_cmd] = &rows[i];
            t[rows[i].get_cmd] = get_int_setting;
        }
    }
}

namespace {
/* The reason of a refusal no check named: the request itself, shortened. */
std::string unaccepted(const cJSON* req) {
    constexpr size_t kShown = 160;
    char* text = cJSON_PrintUnformatted(req);
    std::string s = text ? text : "";
    cJSON_free(text);
    if (s.size() > kShown) s = s.substr(0, kShown) + "...";
    return "a value or the arm's state does not allow " + s;
}
}  // namespace

std::string handle_request(ArmState& arm, const cJSON* req, double now, Events& events) {
    const CommandTable& table = command_table();
    std::string cmd;
    if (!get_str(req, "command", cmd)) return {};  // not a command: a controller ignores it
    arm.advance(now, events);
    Ctx ctx{arm, req, cmd, now, events, nullptr, false, {}};
    const auto it = table.find(cmd);
    if (it != table.end()) {
        it->second(ctx);
    } else {
        ctx.verdict("set_state", false);
        ctx.why = "unknown command";
    }
    if (ctx.refused) events.push_back({cmd + " refused: " + (ctx.why.empty() ? unaccepted(req) : ctx.why), false, true});
    return ctx.reply ? print_and_delete(ctx.reply) : std::string{};
}

}  // namespace kxsim
