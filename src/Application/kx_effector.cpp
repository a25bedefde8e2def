/* End effectors and auxiliary axes: the two-finger gripper, the dexterous
 * hand, the lift and the expansion axis. Their blocking forms wait for the
 * completion event that carries their own device code. */
#include <algorithm>
#include <climits>

#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"

using namespace kx;

namespace {

constexpr int kGripperDevice = KX_DEVICE_GRIPPER_E;
constexpr int kHandDevice = KX_DEVICE_HAND_E;
constexpr int kLiftDevice = KX_DEVICE_LIFT_E;
constexpr int kExpandDevice = KX_DEVICE_EXPAND_E;

constexpr int kEffectorReply = 1000;  /* gripper and hand acceptance */
constexpr int kNoReplyPause = 1000;   /* gripper sent without reading a reply */
constexpr int kFollowReply = 20;      /* hand streaming echo */
constexpr int kMoveQueryFailures = 5; /* state reads that may fail before the wait gives up */
constexpr int kIdleReads = 10;        /* reads at rest before motion was seen */
constexpr int kIdlePauseMs = 50;
constexpr int kMovingPauseMs = 100;

int seconds_to_ms(int seconds) {
    if (seconds > INT_MAX / 1000) return INT_MAX;
    return seconds * 1000;
}

/* ---- gripper and hand ------------------------------------------------------ */

/* How one effector's blocking wait ends. Gripper and hand report a missing
 * completion and a foreign device with each other's code. */
struct EffectorWait {
    int device;
    int no_event;
    int wrong_device;
    bool log_timeout;
};
constexpr EffectorWait kGripperWait{kGripperDevice, -4, -5, false};
constexpr EffectorWait kGripperPositionWait{kGripperDevice, -4, -5, true};
constexpr EffectorWait kHandWait{kHandDevice, -5, -4, false};

/* A gripper or hand wait probes nothing: it is the settling wait alone. */
int probe_nothing(kx_robot_handle*, const void*, Probe* state) {
    *state = Probe::Idle;
    return 0;
}

struct EffectorEvent {
    const char* fn;
    const EffectorWait* wait;
};

/* The one completion event judged: its device must be the effector's. */
int on_effector_event(const void* ctx, const char* text, bool) {
    const auto& e = *static_cast<const EffectorEvent*>(ctx);
    int device = -1, connect = -1;
    int p = parse_kx_move_command(text, &device, &connect);
    if (p != 1) return p == 0 ? kRefused : p;
    if (device != e.wait->device) {
        kx_log_error("[%s] current device is: %d \n", e.fn, device);
        return e.wait->wrong_device;
    }
    return kOk;
}

/* Waits `timeout_s` seconds for one completion event and judges it. */
int await_effector(const char* fn, kx_robot_handle* h, const EffectorWait& w, int timeout_s) {
    const EffectorEvent event{fn, &w};
    const CompletionRules rules{fn, "current_trajectory_state", kMoveBuf, /*event_first*/ false,
                                /*max_failures*/ 0, /*running*/ 0, /*other*/ 0, /*idle*/ 0, 0,
                                /*settle*/ std::max(0, seconds_to_ms(timeout_s)), w.no_event,
                                probe_nothing, on_effector_event, &event};
    int r = await_completion(h, rules);
    if (r == w.no_event && w.log_timeout) kx_log_error("[%s] timeout error\n", fn);
    return r;
}

/* A gripper motion: unacknowledged when neither blocking nor timed, else
 * acknowledged as "set_gripper"; a blocking one then waits for the gripper. */
int gripper_motion(const char* fn, kx_robot_handle* h, const Request& req, bool block, int timeout,
                   const EffectorWait& w) {
    if (!block && timeout == 0) return send_only(fn, h, req, kNoReplyPause);
    ReplyBuf buf;
    int r = exchange(fn, h, &req, "set_gripper", buf, kEffectorReply);
    if (r < 1) return r;
    int accepted = parse_kx_set_command(fn, buf.text, "state");
    if (!block) return accepted;
    return await_effector(fn, h, w, timeout);
}

/* A hand posture or sequence: always acknowledged under its own name. */
int hand_motion(const char* fn, kx_robot_handle* h, const Request& req, bool block, int timeout) {
    ReplyBuf buf;
    int r = exchange(fn, h, &req, req.command(), buf, kEffectorReply);
    if (r < 1) return r;
    int accepted = parse_kx_set_command(fn, buf.text, "set_state");
    if (!block) return accepted;
    return await_effector(fn, h, kHandWait, timeout);
}

/* Six hand values streamed: a short echo when blocking, none otherwise. */
int hand_follow(const char* fn, const char* command, const char* key, kx_robot_handle* h, const int* values,
                bool block) {
    if (values == nullptr) return -1;
    Request req(command);
    req.ints(key, values, 6);
    if (!block) return send_only(fn, h, req, 0);
    return set_command(fn, h, req, command, "set_state", kFollowReply);
}

/* ---- lift and expansion axis ---------------------------------------------- */

struct Axis {
    const char* move_fn;
    const char* move_command;
    const char* target_key;
    const char* move_verdict;
    int device;
    int (*read_state)(kx_robot_handle*, kx_expand_state_t*);
};
const Axis kLift{"kx_set_lift_height", "set_lift_height", "height", "set_state", kLiftDevice, kx_get_lift_state};
const Axis kExpand{"kx_set_expand_pos", "expand_set_pos", "pos", "set_pos_state", kExpandDevice,
                   kx_get_expand_state};

int probe_axis(kx_robot_handle* h, const void* ctx, Probe* state) {
    const auto& a = *static_cast<const Axis*>(ctx);
    kx_expand_state_t st{};
    int q = a.read_state(h, &st);
    if (q == 0) *state = st.mode != 0 ? Probe::Running : Probe::Idle;
    return q;
}

/* A completion event seen while an axis moves, first or last alike. */
int on_axis_event(const void* ctx, const char* text, bool) {
    const auto& a = *static_cast<const Axis*>(ctx);
    int device = -1, connect = -1;
    int p = parse_kx_move_command(text, &device, &connect);
    if (p != 1) return p == 0 ? kRefused : p;
    if (connect == 1) return kKeepWaiting;
    if (device == a.device && connect == 0) return kOk;
    kx_log_error("[%s] current device is: %d \n", a.move_fn, device);
    return kOtherDevice;
}

/* Waits for the axis's completion event, reading its state when none comes:
 * while it moves, and at rest until motion has been seen or the idle reads
 * run out, then for one more event. */
int await_axis(const Axis& a, kx_robot_handle* h) {
    const CompletionRules rules{a.move_fn, "current_trajectory_state", kMoveBuf, /*event_first*/ true,
                                kMoveQueryFailures, kMovingPauseMs, /*other*/ 0, kIdleReads, kIdlePauseMs,
                                /*settle*/ -1, /*no_event*/ 0, probe_axis, on_axis_event, &a};
    return await_completion(h, rules);
}

int axis_move(const Axis& a, kx_robot_handle* h, int speed, int target, int block) {
    Request req(a.move_command);
    req.num("speed", speed).num(a.target_key, target);
    ReplyBuf buf;
    int r = exchange(a.move_fn, h, &req, a.move_command, buf);
    if (r < 1) return r;
    int accepted = parse_kx_set_command(a.move_fn, buf.text, a.move_verdict);
    /* A refused move never ends: there is nothing to wait for. */
    if (block == 0 || accepted != 0) return accepted;
    switch (g_mode) {
    case KX_SINGLE_MODE_E: return kx_movecmd_singlemode_parse(h, block, a.device);
    case KX_DUAL_MODE_E:
    case KX_TRIPLE_MODE_E: return await_axis(a, h);
    default: return kUndecodable;
    }
}

int get_axis_state(const char* fn, const char* command, const char* reply, const char* pos_key,
                   kx_robot_handle* h, kx_expand_state_t* state) {
    if (state == nullptr) return -1;
    Request req(command);
    KeyValue kv[] = {kv_int(pos_key), kv_int("current"), kv_int("err_flag"), kv_int("mode")};
    int r = query(fn, h, req, reply, kv, 4);
    if (r != 0) return r;
    state->pos = kv[0].data.int_value;
    state->current = kv[1].data.int_value;
    state->err_flag = kv[2].data.int_value;
    state->mode = kv[3].data.int_value;
    return 0;
}

}  // namespace

extern "C" {

/* ---- gripper ------------------------------------------------------------------ */

KX_API int kx_set_gripper_route(kx_robot_handle* handle, int min_limit, int max_limit) {
    Request req("set_gripper_route");
    req.num("min", min_limit).num("max", max_limit);
    return set_command("kx_set_gripper_route", handle, req, "set_gripper_route", "state", kEffectorReply);
}

KX_API int kx_set_gripper_release(kx_robot_handle* handle, int speed, bool block, int timeout) {
    Request req("set_gripper_release");
    req.num("speed", speed).flag("block", block);
    return gripper_motion("kx_set_gripper_release", handle, req, block, timeout, kGripperWait);
}

KX_API int kx_set_gripper_pick(kx_robot_handle* handle, int speed, int force, bool block, int timeout) {
    Request req("set_gripper_pick");
    req.num("speed", speed).num("force", force).flag("block", block);
    return gripper_motion("kx_set_gripper_pick", handle, req, block, timeout, kGripperWait);
}

KX_API int kx_set_gripper_pick_on(kx_robot_handle* handle, int speed, int force, bool block, int timeout) {
    Request req("set_gripper_pick_on");
    req.num("speed", speed).num("force", force).flag("block", block);
    return gripper_motion("kx_set_gripper_pick_on", handle, req, block, timeout, kGripperWait);
}

KX_API int kx_set_gripper_position(kx_robot_handle* handle, int position, bool block, int timeout) {
    Request req("set_gripper_position");
    req.num("position", position).flag("block", block);
    return gripper_motion("kx_set_gripper_position", handle, req, block, timeout, kGripperPositionWait);
}

KX_API int kx_get_gripper_state(kx_robot_handle* handle, kx_gripper_state_t* state) {
    if (state == nullptr) return kFailed;
    Request req("get_gripper_state");
    KeyValue kv[] = {kv_int("enable"),        kv_int("status"),      kv_int("error"), kv_int("mode"),
                     kv_int("current_force"), kv_int("temperature"), kv_int("actpos")};
    int r = query("kx_get_gripper_state", handle, req, "get_gripper_state", kv, 7);
    if (r != 0) return r;
    int* out[] = {&state->enable_state, &state->status,      &state->error, &state->mode,
                  &state->current_force, &state->temperature, &state->actpos};
    for (int i = 0; i < 7; ++i) *out[i] = kv[i].data.int_value;
    return 0;
}

/* ---- hand ---------------------------------------------------------------------- */

KX_API int kx_set_hand_posture(kx_robot_handle* handle, int posture_num, bool block, int timeout) {
    Request req("set_hand_posture");
    req.num("posture_num", posture_num).flag("block", block);
    return hand_motion("kx_set_hand_posture", handle, req, block, timeout);
}

KX_API int kx_set_hand_seq(kx_robot_handle* handle, int seq_num, bool block, int timeout) {
    Request req("set_hand_seq");
    req.num("seq_num", seq_num).flag("block", block);
    return hand_motion("kx_set_hand_seq", handle, req, block, timeout);
}

KX_API int kx_set_hand_angle(kx_robot_handle* handle, const int* hand_angle) {
    if (hand_angle == nullptr) return kFailed;
    Request req("set_hand_angle");
    req.ints("hand_angle", hand_angle, 6);
    return set_command("kx_set_hand_angle", handle, req, "set_hand_angle", "set_state", kEffectorReply);
}

KX_API int kx_set_hand_follow_angle(kx_robot_handle* handle, const int* hand_angle, bool block) {
    return hand_follow("kx_set_hand_follow_angle", "hand_follow_angle", "hand_angle", handle, hand_angle, block);
}

KX_API int kx_set_hand_follow_pos(kx_robot_handle* handle, const int* hand_pos, bool block) {
    kx_log_debug("[%s] block is %d\n", "kx_set_hand_follow_pos", block ? 1 : 0);
    return hand_follow("kx_set_hand_follow_pos", "hand_follow_pos", "hand_pos", handle, hand_pos, block);
}

KX_API int kx_set_hand_speed(kx_robot_handle* handle, int speed) {
    return set_num({"kx_set_hand_speed", "set_hand_speed", "set_state", nullptr, kEffectorReply}, handle, "speed",
                   speed);
}

KX_API int kx_set_hand_force(kx_robot_handle* handle, int hand_force) {
    return set_num({"kx_set_hand_force", "set_hand_force", "set_state", nullptr, kEffectorReply}, handle,
                   "hand_force", hand_force);
}

/* ---- lift and expansion axis -------------------------------------------------- */

KX_API int kx_set_lift_speed(kx_robot_handle* handle, int speed) {
    return set_num({"kx_set_lift_speed", "set_lift_speed", "set_state"}, handle, "speed", speed);
}

KX_API int kx_set_lift_height(kx_robot_handle* handle, int speed, int height, int block) {
    return axis_move(kLift, handle, speed, height, block);
}

KX_API int kx_get_lift_state(kx_robot_handle* handle, kx_expand_state_t* state) {
    return get_axis_state("kx_get_lift_state", "get_lift_state", "lift_state", "height", handle, state);
}

KX_API int kx_get_expand_state(kx_robot_handle* handle, kx_expand_state_t* state) {
    return get_axis_state("kx_get_expand_state", "expand_get_state", "expand_state", "pos", handle, state);
}

KX_API int kx_set_expand_speed(kx_robot_handle* handle, int speed) {
    return set_num({"kx_set_expand_speed", "expand_set_speed", "set_speed_state"}, handle, "speed", speed);
}

KX_API int kx_set_expand_pos(kx_robot_handle* handle, int speed, int pos, int block) {
    return axis_move(kExpand, handle, speed, pos, block);
}

}  // extern "C"
