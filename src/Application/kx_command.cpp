#include "kx_command.h"
#include "kx_result.h"

#include <cjson/cJSON.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <algorithm>

#include "kx_commands_internal.h"
#include "kx_core.h"
#include "kx_reply.h"

namespace kx {

int resolve_timeout(int timeout) {
    if (timeout == kOutTime) return m_nOutTime;
    if (timeout == kOutTimeMax) return m_nOutTime_max;
    return timeout;
}

int trunc_wire(double v) {
    if (std::isnan(v)) return 0; /* arguments never get here non-finite (Args) */
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

void pose_to_wire(const kx_pose_t& pose, int out[6]) {
    Args scratch;
    scratch.pose(pose, out, "pose");
}

/* ---- Args ------------------------------------------------------------------ */

bool Args::check(double v, const char* name, int index) {
    if (std::isfinite(v)) return true;
    if (bad_[0] == '\0') {
        if (index < 0)
            std::snprintf(bad_, sizeof bad_, "%s", name);
        else
            std::snprintf(bad_, sizeof bad_, "%s[%d]", name, index);
    }
    return false;
}

int Args::f(float v, float k, const char* name, int index) { return check(v, name, index) ? wire_f(v, k) : 0; }

int Args::d(float v, double k, const char* name, int index) { return check(v, name, index) ? wire_d(v, k) : 0; }

void Args::pose(const kx_pose_t& pose, int out[6], const char* name) {
    static const char* const kParts[6] = {"position.x", "position.y", "position.z", "euler.rx", "euler.ry", "euler.rz"};
    const float v[6] = {pose.position.x, pose.position.y, pose.position.z, pose.euler.rx, pose.euler.ry, pose.euler.rz};
    for (int i = 0; i < 6; ++i) {
        char part[40];
        std::snprintf(part, sizeof part, "%s.%s", name, kParts[i]);
        out[i] = f(v[i], i < 3 ? 1000000.0f : 1000.0f, part);
    }
}

void Args::joints(const float* joint, int n, int* out, const char* name) {
    for (int i = 0; i < n; ++i) out[i] = d(joint[i], 1000.0, name, i);
}

bool Args::refused(const char* fn) const {
    if (finite()) return false;
    kx_log_error("[%s] %s is not a finite number\n", fn, bad_);
    return true;
}

void pose_from_wire(const int in[6], kx_pose_t* pose) {
    pose->position.x = from_wire(in[0], kMicro);
    pose->position.y = from_wire(in[1], kMicro);
    pose->position.z = from_wire(in[2], kMicro);
    pose->euler.rx = from_wire(in[3], kMilli);
    pose->euler.ry = from_wire(in[4], kMilli);
    pose->euler.rz = from_wire(in[5], kMilli);
    pose->quaternion = kx_algo_euler2quaternion(pose->euler);
}

void copy_str(char* dst, size_t dst_size, const char* src) {
    if (dst == nullptr || dst_size == 0) return;
    size_t n = 0;
    if (src != nullptr) {
        while (n + 1 < dst_size && src[n] != '\0') ++n;
        std::memcpy(dst, src, n);
    }
    std::memset(dst + n, 0, dst_size - n);
}

/* ---- Request ---------------------------------------------------------------- */

Request::Request(const char* command) {
    if (JsonValue* row = add(JSON_STRING, "command")) row->data.str_value = command;
}

Request::~Request() {
    if (handed_over_) return;
    for (size_t i = 0; i < count_; ++i)
        if (rows_[i].type == JSON_OBJECT) cJSON_Delete(rows_[i].data.sub_json);
}

Request& Request::tree(const char* key, cJSON* tree) {
    if (tree == nullptr) {
        ok_ = false;
        return *this;
    }
    if (JsonValue* row = add(JSON_OBJECT, key))
        row->data.sub_json = tree;
    else
        cJSON_Delete(tree);
    return *this;
}

Request& Request::limit(size_t bytes) {
    limit_ = bytes;
    return *this;
}

namespace {
/* Whether the request's line fits its limit (always, without one). Printed
 * from copies of the nested members: the round trip owns the originals. */
bool fits_limit(const Request& req) {
    if (req.line_limit() == 0) return true;
    JsonValue rows[16];
    size_t n = std::min(req.size(), std::size(rows));
    for (size_t i = 0; i < n; ++i) {
        rows[i] = req.rows()[i];
        if (rows[i].type == JSON_OBJECT) rows[i].data.sub_json = cJSON_Duplicate(rows[i].data.sub_json, 1);
    }
    RequestLine line;  /* the encoder consumes the copies */
    return encode_request(rows, n, line) == 0 && line.len + 1 <= req.line_limit();
}

/* A request ready to leave: finite, complete, within its limit. It is then
 * handed over, nested members included. */
bool sendable(const char* fn, const Request& req) {
    if (req.refused(fn) || !req.ok() || !fits_limit(req)) return false;
    req.hand_over();
    return true;
}
}  // namespace

JsonValue* Request::add(JsonValueType type, const char* key) {
    if (count_ >= static_cast<size_t>(kRows)) {
        ok_ = false;
        return nullptr;
    }
    JsonValue* row = &rows_[count_++];
    row->type = type;
    row->key = key;
    return row;
}

Request& Request::str(const char* key, const char* value) {
    if (JsonValue* row = add(JSON_STRING, key)) row->data.str_value = value;
    return *this;
}

Request& Request::num(const char* key, int value) {
    if (JsonValue* row = add(JSON_INT, key)) row->data.int_value = value;
    return *this;
}

Request& Request::flag(const char* key, bool value) {
    if (JsonValue* row = add(JSON_BOOL, key)) row->data.bool_value = value;
    return *this;
}

Request& Request::ints(const char* key, const int* values, int count) {
    if (count < 0 || ints_used_ + count > kInts || (count > 0 && values == nullptr)) {
        ok_ = false;
        return *this;
    }
    JsonValue* row = add(JSON_ARRAY, key);
    if (row == nullptr) return *this;
    int* dst = ints_ + ints_used_;
    if (count > 0) std::memcpy(dst, values, sizeof(int) * static_cast<size_t>(count));
    ints_used_ += count;
    row->array_size = count;
    row->data.array_value = dst;
    return *this;
}

Request& Request::ints(const char* key, std::initializer_list<int> values) {
    return ints(key, values.begin(), static_cast<int>(values.size()));
}

/* ---- reply tables --------------------------------------------------------- */

namespace {
KeyValue kv_row(JsonValueType type, const char* key, int count) {
    KeyValue kv;
    std::memset(&kv, 0, sizeof kv);
    kv.type = type;
    kv.key = key;
    kv.array_size = count;
    return kv;
}
}  // namespace

KeyValue kv_int(const char* key) { return kv_row(JSON_INT, key, 0); }
KeyValue kv_str(const char* key) { return kv_row(JSON_STRING, key, 0); }
KeyValue kv_bool(const char* key) { return kv_row(JSON_BOOL, key, 0); }
KeyValue kv_ints(const char* key, int count) { return kv_row(JSON_ARRAY, key, count); }

int reply_array_len(const char* json, const char* key, int cap) {
    const ReplyView reply(json);
    if (!reply.parsed()) return -1;
    const cJSON* arr = cJSON_GetObjectItem(reply.container(), key);
    int n = cJSON_IsArray(arr) ? cJSON_GetArraySize(arr) : -1;
    return n > cap ? cap : n;
}

/* ---- round trips ---------------------------------------------------------- */

int exchange(const char* fn, kx_robot_handle* h, const Request* req, const char* reply, ReplyBuf& buf, int timeout,
             int buf_len) {
    return exchange_into(fn, h, req, reply, buf.text, buf_len > kReplyBuf ? kReplyBuf : buf_len, timeout);
}

int exchange_into(const char* fn, kx_robot_handle* h, const Request* req, const char* reply, char* buf, int buf_len,
                  int timeout) {
    if (req != nullptr && !sendable(fn, *req)) return kx::kFailed;
    std::memset(buf, 0, static_cast<size_t>(buf_len));
    return guarded(fn, -1, [&] {
        return send_and_wait(fn, h, req ? req->rows() : nullptr, req ? req->size() : 0, reply,
                             reinterpret_cast<uint8_t*>(buf), buf_len, resolve_timeout(timeout), !req || req->reported());
    });
}

int list_page(const char* fn, kx_robot_handle* h, const char* command, int page_num, int page_size,
              const char* vague_search, char* buf, int buf_len, int timeout) {
    Request req(command);
    if (vague_search) req.str("vague_search", vague_search);
    req.num("page_num", page_num).num("page_size", page_size);
    return exchange_into(fn, h, &req, command, buf, buf_len, timeout);
}

void add_pose_or_quat(Request& req, const kx_pose_t& pose) {
    int wire[7];
    const kx_quat_t& q = pose.quaternion;
    float n = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    if (static_cast<double>(n) > 0.99 && static_cast<double>(n) < 1.1) {
        const float v[7] = {pose.position.x, pose.position.y, pose.position.z, q.w, q.x, q.y, q.z};
        for (int i = 0; i < 7; ++i)
            wire[i] = req.f(v[i], 1000000.0f, i < 3 ? "pose.position" : "pose.quaternion", i < 3 ? i : i - 3);
        req.ints("pose_quat", wire, 7);
    } else {
        req.pose(pose, wire, "pose");
        req.ints("pose", wire, 6);
    }
}

void check_radio(const char* fn, const char* format, int trajectory_mode, int radio) {
    bool bad = (trajectory_mode == 0 && radio >= 1) || (trajectory_mode == 1 && radio > 100) ||
               (trajectory_mode == 2 && radio > 1000);
    if (bad) kx_log_warn(format, fn, radio);
}

int set_command(const char* fn, kx_robot_handle* h, const Request& req, const char* reply, const char* key,
                int timeout, int buf_len) {
    ReplyBuf buf;
    int r = exchange(fn, h, &req, reply, buf, timeout, buf_len);
    if (r < 1) return r;
    return parse_kx_set_command(fn, buf.text, key);
}

int query(const char* fn, kx_robot_handle* h, const Request& req, const char* reply, KeyValue* kv, int n,
          int timeout) {
    ReplyBuf buf;
    int r = exchange(fn, h, &req, reply, buf, timeout);
    if (r < 1) return r;
    return common_json_parse(fn, buf.text, kv, n);
}

int set_bare(const SetSpec& s, kx_robot_handle* h) {
    Request req(s.command);
    return set_command(s.fn, h, req, s.reply ? s.reply : s.command, s.key, s.timeout);
}

int set_num(const SetSpec& s, kx_robot_handle* h, const char* field, int value) {
    Request req(s.command);
    req.num(field, value);
    return set_command(s.fn, h, req, s.reply ? s.reply : s.command, s.key, s.timeout);
}

int get_num(const char* fn, kx_robot_handle* h, const char* request, const char* reply, const char* field, int* out) {
    if (out == nullptr) return kx::kFailed;
    Request req(request);
    KeyValue kv = kv_int(field);
    int r = query(fn, h, req, reply, &kv, 1);
    if (r == 0) *out = kv.data.int_value;
    return r;
}

int get_scaled(const char* fn, kx_robot_handle* h, const char* request, const char* reply, const char* field,
               Scale scale, float* out) {
    if (out == nullptr) return kx::kFailed;
    int wire = 0;
    int r = get_num(fn, h, request, reply, field, &wire);
    if (r == 0) *out = from_wire(wire, scale);
    return r;
}

int send_only(const char* fn, kx_robot_handle* h, const Request& req, int pause_ms) {
    if (!sendable(fn, req)) return kx::kFailed;
    uint8_t unused[kMoveBuf] = {};
    int r = kx_pack_lock_set(fn, h, req.rows(), req.size(), nullptr, unused, sizeof unused, pause_ms);
    return r < 0 ? -1 : 0;
}

int checked_dof(const char* fn, kx_robot_handle* h) {
    int dof = 0;
    if (kx_get_arm_dof(h, &dof) != 0 || (dof != 6 && dof != 7)) {
        kx_log_error("[%s] The robotic arm has been disconnected\n", fn);
        return kx::kFailed;
    }
    return dof;
}

int get_joints(const JointQuery& q, kx_robot_handle* h, float* out) {
    if (out == nullptr) return kx::kFailed;
    Request req(q.request);
    return query_joints(q.fn, h, req, q.reply, [&](int dof, const char* text) {
        KeyValue kv = kv_ints(q.field, dof);
        int r = common_json_parse(q.fn, text, &kv, 1);
        if (r != 0) return r;
        if (q.cache == nullptr) {
            for (int i = 0; i < dof; ++i) out[i] = from_wire(kv.data.array_value[i], q.scale);
            return 0;
        }
        return with_record(h, [&](kx_handle_t& rec) {
            int n = rec.arm_dof < 0 ? 0 : (rec.arm_dof > dof ? dof : rec.arm_dof);
            for (int i = 0; i < n; ++i) {
                out[i] = from_wire(kv.data.array_value[i], q.scale);
                (rec.*q.cache)[i] = out[i];
            }
        });
    });
}

/* ---- completion ------------------------------------------------------------ */

bool Completion::next(int timeout) {
    if (held_) {
        held_ = false;
        return true;
    }
    return receive(timeout) > 0;
}

void Completion::pause(int ms) {
    if (held_) {
        sleep_cp(ms);
        return;
    }
    int r = receive(ms);
    if (r > 0)
        held_ = true;
    else if (r == -1)
        sleep_cp(ms); /* the handle is gone; the next probe reports it */
}

int Completion::receive(int timeout) { return exchange(fn_, h_, nullptr, event_, buf_, timeout, buf_len_); }

int await_completion(kx_robot_handle* h, const CompletionRules& r) {
    Completion events(r.fn, h, r.event, r.event_buf);
    int failures = 0;
    int idle = 0;
    bool seen_running = false;
    for (;;) {
        if (r.event_first && events.next(m_nOutTime)) {
            int d = r.on_event(r.ctx, events.text(), true);
            if (d == kKeepWaiting) continue;
            if (d != kProbeFirst) return d;
        }
        Probe state = Probe::Idle;
        int q = r.probe(h, r.ctx, &state);
        if (q != 0) {
            if (++failures > r.max_failures) return q;
            continue;
        }
        if (state == Probe::Running) {
            seen_running = true;
            events.pause(r.running_pause_ms);
            continue;
        }
        if (state == Probe::Other) {
            if (r.other_pause_ms > 0) events.pause(r.other_pause_ms);
            continue;
        }
        if (!seen_running && idle < r.idle_pauses) {
            ++idle;
            events.pause(r.idle_pause_ms);
            continue;
        }
        if (!events.next(r.settle_wait_ms < 0 ? m_nOutTime : r.settle_wait_ms)) {
            if (r.no_event != 0) return r.no_event;
            events.pause(r.running_pause_ms);
            continue;
        }
        int d = r.on_event(r.ctx, events.text(), false);
        if (d != kKeepWaiting) return d;
    }
}

int motion_accepted(const char* fn, const ReplyBuf& buf) { return parse_kx_set_command(fn, buf.text, "receive_state"); }

namespace {

/* A blocking motion: the arm's trajectory type and its completion event. */
struct MotionWait {
    const char* device_fn;
    int watched;
};

int probe_trajectory(kx_robot_handle* h, const void* ctx, Probe* state) {
    const auto& w = *static_cast<const MotionWait*>(ctx);
    kx_arm_current_trajectory_e type = KX_NO_PLANNING_E;
    float data[7] = {};
    int q = kx_get_arm_current_trajectory(h, &type, data);
    if (q != 0) return q;
    *state = type == w.watched ? Probe::Running : type == KX_NO_PLANNING_E ? Probe::Idle : Probe::Other;
    return 0;
}

/* The event seen first keeps the wait going for another device or a joined
 * motion; seen after the arm came to rest it settles the call. */
int on_motion_event(const void* ctx, const char* text, bool first) {
    const auto& w = *static_cast<const MotionWait*>(ctx);
    int device = -1, connect = -1;
    int p = parse_kx_move_command(text, &device, &connect);
    if (p != 1) return p == 0 ? kRefused : p;
    if (connect == 1 || (first && device != 0)) return kKeepWaiting;
    if (device == 0 && connect == 0) return kOk;
    if (first) return kProbeFirst;
    kx_log_error("[%s] current device is: %d \n", w.device_fn, device);
    return kOtherDevice;
}

int wait_completion(const char* device_fn, kx_robot_handle* h, int watched, WaitShape shape) {
    const MotionWait wait{device_fn, watched};
    const bool event_first = shape == WaitShape::EventFirst;
    const CompletionRules rules{device_fn, "current_trajectory_state", kMoveBuf, event_first,
                                /*max_failures*/ 5, /*running*/ 100, /*other*/ 100, /*idle*/ 9, 100,
                                /*settle*/ event_first ? -1 : 1000, /*no_event*/ 0,
                                probe_trajectory, on_motion_event, &wait};
    return await_completion(h, rules);
}

}  // namespace

int finish_blocking(const char* device_fn, kx_robot_handle* h, int accepted, int reply_len, int block,
                    int watched_type, WaitShape shape) {
    if (accepted != 0) return accepted;
    switch (g_mode) {
    case KX_SINGLE_MODE_E:
        return kx_movecmd_singlemode_parse(h, block, 0);
    case KX_DUAL_MODE_E:
    case KX_TRIPLE_MODE_E:
        return wait_completion(device_fn, h, watched_type, shape);
    default:
        return reply_len;
    }
}

}  // namespace kx
