// Drag teaching: while teaching, the arm follows the operator's hand (a
// scripted joint motion); when recording, the joints are sampled at the
// record cycle. A save streams the samples back as point lines at the same
// rate; a replay goes to the first sample, then runs the path as recorded.
#include <algorithm>
#include <cmath>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

/* The controller's record and stream cycle: the realtime push cycle (ms). */
double cycle_of(const ArmState& a) { return std::max(1, a.push.cycle) / 1000.0; }

std::string point_line(const WireJoints& w, int dof) {
    cJSON* o = cJSON_CreateObject();
    add_ints(o, "point", w.data(), static_cast<size_t>(dof));
    return print_and_delete(o);
}

/* Drag teaching starts on a movable arm at rest that is not being taught. */
bool can_teach(Ctx& c) {
    const std::string blocker = c.arm.motion_blocker();
    return c.check(blocker.empty(), blocker.c_str()) && c.check(!c.arm.running(), "a planned motion is running") &&
           c.check(!c.arm.drag.teaching, "drag teaching is already on");
}

void start_drag(Ctx& c) {
    ArmState& a = c.arm;
    int record = 0;
    const bool ok = c.get_int("trajectory_record", record) && can_teach(c);
    if (ok) {
        a.teach = Teach{};
        a.drag.teaching = true;
        a.drag.recording = record == 1;
        a.drag.step_start = a.q;
        if (a.drag.recording) {
            a.drag.path = {a.wire_joints(a.q)};
            a.drag.next_sample = c.now + cycle_of(a);
        }
    }
    c.verdict("drag_teach", ok);
}

void stop_drag(Ctx& c) {
    ArmState& a = c.arm;
    DragState& d = a.drag;
    /* Teaching stops at the end of the controller's cycle, with its sample:
     * the saved path ends where the arm stopped and keeps its pace to the end. */
    const double left = d.next_sample - c.now;
    if (d.teaching && d.recording && left < cycle_of(a) - 1e-9) {
        for (int i = 0; i < a.dof; ++i)
            a.q[i] = std::clamp(a.q[i] + a.qd[i] * left, a.min_pos[i] / 1000.0, a.max_pos[i] / 1000.0);
        d.path.push_back(a.wire_joints(a.q));
    }
    d.teaching = d.recording = false;
    c.verdict("drag_teach", true);
}

void start_multi(Ctx& c) {
    int frame = 0, mode = 0;
    const bool has_frame = c.get_int("frame", frame);
    bool ok = (has_frame && frame >= 0 && frame <= 1) || (c.int_in("mode", 0, 3, mode));
    /* free axes are a six-axis sensor's */
    if (ok && cJSON_GetObjectItemCaseSensitive(c.req, "free_axes")) {
        int axes[6];
        ok = c.has_sensor(kEditionQS) && c.get_ints("free_axes", 6, axes);
    }
    ok = ok && can_teach(c);
    if (ok) {
        c.arm.drag.teaching = true;
        c.arm.drag.recording = false;
    }
    c.verdict("set_state", ok);
}

Joints joints_of(const ArmState& a, const WireJoints& w) {
    Joints j{};
    for (int i = 0; i < a.dof; ++i) j[i] = w[i] / 1000.0;
    return j;
}

/* Replay of the recorded path at its recorded rate. */
bool plan_replay(const ArmState& a, Segment& seg) {
    if (a.drag.path.size() < 2 || !a.can_move()) return false;
    seg.path.clear();
    for (const WireJoints& w : a.drag.path) seg.path.push_back(joints_of(a, w));
    const double duration = static_cast<double>(a.drag.path.size() - 1) * cycle_of(a);
    a.plan_recorded(seg, duration);
    return true;
}

bool at_origin(const ArmState& a) {
    if (a.drag.path.empty()) return false;
    const Joints o = joints_of(a, a.drag.path.front());
    for (int i = 0; i < a.dof; ++i)
        if (std::fabs(o[i] - a.q[i]) > 1e-2) return false;
    return true;
}

void origin(Ctx& c) {
    ArmState& a = c.arm;
    Segment seg;
    if (a.drag.teaching || a.drag.path.empty() || a.running()) return;
    std::string why;
    if (a.plan_joint(joints_of(a, a.drag.path.front()), 50, seg, why)) a.enqueue(std::move(seg), c.now, c.events);
    else c.refuse(why);
}

void run_replay(Ctx& c) {
    ArmState& a = c.arm;
    Segment seg;
    const bool ok = c.check(!a.drag.teaching, "drag teaching is on") &&
                    c.check(!a.running(), "a planned motion is running") &&
                    c.check(at_origin(a), "the arm is not at the recorded path's start (drag_trajectory_origin)") &&
                    c.check(plan_replay(a, seg), "no recorded path to replay, or the arm cannot move");
    if (ok) a.enqueue(std::move(seg), c.now, c.events);
    c.verdict("run_state", ok);
}

bool replaying(const ArmState& a) {
    const Segment* s = a.running();
    return s != nullptr && std::string(s->type) == "re_trajectory";
}

void save(Ctx& c) {
    ArmState& a = c.arm;
    DragState& d = a.drag;
    std::string name;
    const bool ok = c.get_str("trajectory_name", name) && c.check(!name.empty(), "empty \"trajectory_name\"") &&
                    c.check(!d.teaching, "drag teaching is still on") && c.check(!d.path.empty(), "nothing recorded");
    if (!ok) c.refuse(c.why);
    cJSON* r = c.answer();
    add_bool(r, "save_state", ok);
    if (!ok) return;
    add_int(r, "total_num", static_cast<int>(d.path.size()));
    d.outgoing.clear();
    for (size_t i = 0; i < d.path.size(); ++i) {
        if (d.silence_after >= 0 && static_cast<int>(i) >= d.silence_after) break;
        if (static_cast<int>(i) + 1 == d.malformed_at)
            d.outgoing.push_back("{\"point\":\"malformed\"}");
        else
            d.outgoing.push_back(point_line(d.path[i], a.dof));
    }
    d.silence_after = d.malformed_at = -1;
    d.next_line = c.now + cycle_of(a);
}

}  // namespace

void advance_drag(ArmState& a, double dt, Events& out) {
    DragState& d = a.drag;
    if (d.teaching) {
        if (!a.paused)
            for (int i = 0; i < a.dof && i < static_cast<int>(d.hand_rate.size()); ++i)
                a.q[i] = std::clamp(a.q[i] + d.hand_rate[i] * dt, a.min_pos[i] / 1000.0, a.max_pos[i] / 1000.0);
        /* Each sample holds the joints at its own time: the clock steps
         * coarser than the cycle, and the arm moved evenly across the step. */
        const double step_begin = a.last_t - dt;
        for (; d.recording && d.next_sample <= a.last_t; d.next_sample += cycle_of(a)) {
            const double f = std::clamp((d.next_sample - step_begin) / dt, 0.0, 1.0);
            Joints at{};
            for (int i = 0; i < a.dof; ++i) at[i] = d.step_start[i] + f * (a.q[i] - d.step_start[i]);
            d.path.push_back(a.wire_joints(at));
        }
        d.step_start = a.q;
    }
    for (; !d.outgoing.empty() && d.next_line <= a.last_t; d.next_line += cycle_of(a)) {
        out.push_back({d.outgoing.front(), false});
        d.outgoing.pop_front();
    }
}

namespace {

void commands(CommandTable& t) {
    t["start_drag_teach"] = start_drag;
    t["stop_drag_teach"] = stop_drag;
    t["start_multi_drag_teach"] = start_multi;
    t["drag_trajectory_origin"] = origin;
    t["run_drag_trajectory"] = run_replay;
    t["pause_drag_trajectory"] = [](Ctx& c) {
        const bool ok = c.check(replaying(c.arm), "no replay is running");
        if (ok) c.arm.paused = true;
        c.verdict("pause_state", ok);
    };
    t["continue_drag_trajectory"] = [](Ctx& c) {
        const bool ok = c.check(replaying(c.arm) && c.arm.paused, "no replay is paused");
        if (ok) c.arm.paused = false;
        c.verdict("continue_state", ok);
    };
    t["stop_drag_trajectory"] = [](Ctx& c) {
        const bool ok = c.check(replaying(c.arm), "no replay is running");
        if (ok) c.arm.stop(false, c.now, c.events);
        c.verdict("stop_state", ok);
    };
    t["save_trajectory"] = save;
    t["set_drag_teach_sensitivity"] = [](Ctx& c) {
        int g = 0;
        const bool ok = c.int_in("grade", 1, 100, g);
        if (ok) c.arm.drag.sensitivity = g;
        c.verdict("set_state", ok);
    };
    t["get_drag_teach_sensitivity"] = [](Ctx& c) { add_int(c.answer(), "grade", c.arm.drag.sensitivity); };
}

}  // namespace

const Family drag_family{
    "drag",
    commands,
    advance_drag,
    [](const ArmState& a) { return a.drag.teaching || !a.drag.outgoing.empty(); },
    nullptr,
    {/* The operator's hand while teaching (args: joint rates, deg/s). */
     {"hand_motion",
      [](ArmState& a, const std::vector<double>& v) {
          a.drag.hand_rate = v;
          return true;
      }},
     /* Faults of the next save (args: points before the stream falls silent or -1, the
      * malformed point 1-based or -1). */
     {"save_faults", [](ArmState& a, const std::vector<double>& v) {
          if (v.size() != 2) return false;
          a.drag.silence_after = static_cast<int>(v[0]);
          a.drag.malformed_at = static_cast<int>(v[1]);
          return true;
      }}}};

}  // namespace kxsim
