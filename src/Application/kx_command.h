/*
 * The helper layer every command family is written with.
 *
 * A command is a request (a short table of typed rows), a reply name and a
 * way to read the reply. The helpers below perform each recurring shape once:
 * a set command whose reply carries one boolean, a query decoded through a
 * KeyValue table, a per-joint query with its degree-of-freedom check, scaling
 * and optional cache in the connection record, a send that expects no reply,
 * and the completion wait of the blocking motions.
 *
 * Nothing here throws and nothing allocates: every table lives on the stack
 * with a fixed capacity.
 */
#ifndef KX_COMMAND_H
#define KX_COMMAND_H

#include <cstddef>
#include <cstdint>
#include <climits>
#include <initializer_list>

#include "kx_interface.h"
#include "kx_interface_global.h"
#include "log.h"

namespace kx {

inline constexpr int kReplyBuf = 1024; /* ordinary replies */
inline constexpr int kMoveBuf = 256;   /* motion replies and events */

/* Timeout markers resolved when the call is made, so that a change of the
 * process-wide timeouts applies to the next call. */
inline constexpr int kOutTime = -1;    /* m_nOutTime */
inline constexpr int kOutTimeMax = -2; /* m_nOutTime_max */
int resolve_timeout(int timeout);

/* ---- wire conversions ----------------------------------------------------
 * Physical values travel as integers truncated toward zero. Out-of-range
 * values saturate rather than overflow the conversion. A caller's argument is
 * never converted with these directly: it goes through Args below, which
 * refuses the non-finite ones. */
int trunc_wire(double v);
/* v * k computed in single precision, then truncated. */
inline int wire_f(float v, float k) { return trunc_wire(static_cast<double>(v * k)); }
/* v * k computed in double precision, then truncated. */
inline int wire_d(float v, double k) { return trunc_wire(static_cast<double>(v) * k); }

/* The caller's float arguments of one call on their way to the wire. Each
 * conversion names its argument; the first one that is NaN or infinite is
 * remembered (it converts to 0, which is never sent) and refused() then logs
 * "[fn] name[i] is not a finite number" and answers true.
 * A new family: convert every float through its Request (req.f / req.d /
 * req.pose / req.joints); exchange, set_command and send_only then refuse with -1. */
class Args {
public:
    int f(float v, float k, const char* name, int index = -1);   /* as wire_f */
    int d(float v, double k, const char* name, int index = -1);  /* as wire_d */
    /* [x, y, z in micrometres, rx, ry, rz in milliradians] */
    void pose(const kx_pose_t& pose, int out[6], const char* name);
    /* n joints in degrees to millidegrees (double precision). */
    void joints(const float* joint, int n, int* out, const char* name);
    /* Checks a value that is not converted here. */
    bool check(double v, const char* name, int index = -1);
    bool finite() const { return bad_[0] == '\0'; }
    /* Logs the first non-finite argument under `fn`; true when there is one. */
    bool refused(const char* fn) const;

private:
    char bad_[48]{};
};

/* Reading back: (float)wire * mul / div, computed in double precision. */
struct Scale {
    double mul;
    double div;
};
inline constexpr Scale kUnscaled{1.0, 1.0};
inline constexpr Scale kMilli{1.0, 1000.0};      /* degrees, radians, mm-based limits */
inline constexpr Scale kMicro{1.0, 1000000.0};   /* metres */
inline constexpr Scale kJointRate{6.0, 1000.0};  /* joint speeds and accelerations */
inline float from_wire(int w, Scale s) {
    return static_cast<float>(static_cast<double>(static_cast<float>(w)) * s.mul / s.div);
}

/* Pose on the wire: [x, y, z in micrometres, rx, ry, rz in milliradians],
 * single precision. For poses read back, not for arguments (Args::pose). */
void pose_to_wire(const kx_pose_t& pose, int out[6]);
/* The reverse; the quaternion is derived from the Euler angles. */
void pose_from_wire(const int in[6], kx_pose_t* pose);

/* Bounded string copy that always terminates (dst_size > 0). */
void copy_str(char* dst, size_t dst_size, const char* src);
template <size_t N>
inline void copy_str(char (&dst)[N], const char* src) {
    copy_str(dst, N, src);
}

/* ---- requests ------------------------------------------------------------ */

/* A request table beginning with {"command": name}: the one way a request is
 * built. Integer arrays are stored inside the object, so it is neither copied
 * nor moved. A table that ran out of room, or that was given a non-finite
 * argument, is refused as a whole when sent (-1). */
class Request : public Args {
public:
    explicit Request(const char* command);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    Request& str(const char* key, const char* value);
    Request& num(const char* key, int value);
    Request& flag(const char* key, bool value);
    Request& ints(const char* key, const int* values, int count);
    Request& ints(const char* key, std::initializer_list<int> values);
    /* A nested object or array member; the request owns `tree` until it is
     * handed to the round trip, which consumes it. */
    Request& tree(const char* key, ::cJSON* tree);
    /* Refuses (-1) a request whose line, "\r\n" and terminator included,
     * would not fit `bytes`: the controller's buffer for this command. */
    Request& limit(size_t bytes);
    size_t line_limit() const { return limit_; }
    /* Send and wait failures are reported by the caller, or not at all. */
    Request& unreported() {
        reported_ = false;
        return *this;
    }
    bool reported() const { return reported_; }
    /* The round trip now owns the nested members. */
    void hand_over() const { handed_over_ = true; }

    const JsonValue* rows() const { return rows_; }
    size_t size() const { return count_; }
    bool ok() const { return ok_; }
    const char* command() const { return rows_[0].data.str_value; }

private:
    JsonValue* add(JsonValueType type, const char* key);
    static constexpr int kRows = 12;
    static constexpr int kInts = 64;
    JsonValue rows_[kRows]{};
    size_t count_ = 0;
    int ints_[kInts]{};
    int ints_used_ = 0;
    bool ok_ = true;
    size_t limit_ = 0;
    bool reported_ = true;
    mutable bool handed_over_ = false;
};

/* A Cartesian target: "pose_quat" [x, y, z, qw, qx, qy, qz] (all x 1e6) when
 * the quaternion is (nearly) unit, else "pose" with Euler angles. */
void add_pose_or_quat(Request& req, const kx_pose_t& pose);

/* The controller's accepted radio ranges per trajectory mode; outside them a
 * streamed line is still sent, with the warning `format` ("[%s] ... %d"). */
void check_radio(const char* fn, const char* format, int trajectory_mode, int radio);

/* ---- reply tables --------------------------------------------------------- */

KeyValue kv_int(const char* key);
KeyValue kv_str(const char* key);
KeyValue kv_bool(const char* key);
KeyValue kv_ints(const char* key, int count);

/* Number of elements of the integer array `key` in the reply's decoding
 * container ("arm_state", else "all_state", else the reply itself), capped at
 * `cap`: an over-long array then fails the decoder's exact-size check without
 * any row ever exceeding its storage. -1 when absent or not an array. Used for the variable-length error lists. */
int reply_array_len(const char* json, const char* key, int cap);

/* ---- round trips ---------------------------------------------------------- */

/* A zero-filled reply buffer. */
struct ReplyBuf {
    char text[kReplyBuf]{};
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(text); }
};

/* Sends `req` (when given) and waits up to `timeout` for the reply named
 * `reply` into buf (`buf_len` bytes). Returns the reply length (> 0), or -1
 * (unknown handle, request not built or not sent) or -2 (no reply). */
int exchange(const char* fn, kx_robot_handle* h, const Request* req, const char* reply, ReplyBuf& buf,
             int timeout = kOutTime, int buf_len = kReplyBuf);

/* The same into a caller's zero-filled buffer, for replies longer than a
 * ReplyBuf (lists, saved trajectories). */
inline constexpr int kListBuf = 10240;
int exchange_into(const char* fn, kx_robot_handle* h, const Request* req, const char* reply, char* buf, int buf_len,
                  int timeout);

/* One page of a controller-side list: {"command", "vague_search" (left out
 * when null), "page_num", "page_size"}, answered under the same name into
 * `buf`. The reply length or the failure code. */
int list_page(const char* fn, kx_robot_handle* h, const char* command, int page_num, int page_size,
              const char* vague_search, char* buf, int buf_len, int timeout);

/* A set command: the reply's boolean `key` decides 0 (true), 1 (false) or -3. */
int set_command(const char* fn, kx_robot_handle* h, const Request& req, const char* reply, const char* key,
                int timeout = kOutTime, int buf_len = kReplyBuf);

/* One set command described as a table row. The reply is named like the
 * command unless `reply` says otherwise. */
struct SetSpec {
    const char* fn;
    const char* command;
    const char* key; /* the reply's boolean */
    const char* reply = nullptr;
    int timeout = kOutTime;
};
/* {"command": name} alone. */
int set_bare(const SetSpec& s, kx_robot_handle* h);
/* {"command": name, field: value}. */
int set_num(const SetSpec& s, kx_robot_handle* h, const char* field, int value);

/* A query decoded into `kv` (n rows): 0, or the round-trip or decode failure. */
int query(const char* fn, kx_robot_handle* h, const Request& req, const char* reply, KeyValue* kv, int n,
          int timeout = kOutTime);

/* {"command": request} answered by `reply` carrying the integer `field`. */
int get_num(const char* fn, kx_robot_handle* h, const char* request, const char* reply, const char* field, int* out);
/* The same, read back as a float through `scale`. */
int get_scaled(const char* fn, kx_robot_handle* h, const char* request, const char* reply, const char* field,
               Scale scale, float* out);

/* A request that expects no reply: sends, then pauses `pause_ms` (without
 * the registry lock). 0, or -1 when it could not be sent. */
int send_only(const char* fn, kx_robot_handle* h, const Request& req, int pause_ms);

/* The arm's degrees of freedom (6 or 7), or -1 after logging
 * "[fn] The robotic arm has been disconnected". */
int checked_dof(const char* fn, kx_robot_handle* h);

/* Runs f(record) with the registry read lock held; -1 when the handle is
 * no longer registered. */
template <class F>
int with_record(kx_robot_handle* h, F&& f) {
    kx_rdlock_lock();
    kx_handle_t* rec = kx_get_kx_handle_by_robot_handle(h);
    if (rec == nullptr) {
        kx_rdlock_unlock();
        return -1;
    }
    f(*rec);
    kx_rdlock_unlock();
    return 0;
}

/* A query whose reply holds per-joint arrays: after the reply has arrived
 * the degrees of freedom are checked, then decode(dof, reply_text) runs. */
template <class Decode>
int query_joints(const char* fn, kx_robot_handle* h, const Request& req, const char* reply, Decode&& decode,
                 int timeout = kOutTime) {
    ReplyBuf buf;
    int r = exchange(fn, h, &req, reply, buf, timeout);
    if (r < 1) return r;
    int dof = checked_dof(fn, h);
    if (dof < 0) return -1;
    return decode(dof, static_cast<const char*>(buf.text));
}

/* One per-joint getter: {"command": request} answered by `reply`, whose
 * integer array `field` has one entry per joint. */
struct JointQuery {
    const char* fn;
    const char* request;
    const char* reply;
    const char* field;
    Scale scale;
    float (kx_handle_t::*cache)[7]; /* refreshed copy in the connection record, or null */
};
int get_joints(const JointQuery& q, kx_robot_handle* h, float* out);

/* ---- completion: the one engine of every blocking wait -------------------
 * Moves and steps, grippers and hands, lift and expansion axes, and programs
 * all wait the same way: for an event that settles the call, probing the
 * controller's state meanwhile, pausing while it runs (a gripper or hand
 * probes nothing: its wait is the settling wait alone). The rules say what
 * differs. */

/* The settling events of one connection as a wait sees them. A pause is
 * spent waiting for the next event rather than sleeping blind: an event that
 * arrives meanwhile is held and is the first one the next wait sees, exactly
 * as if it had stayed queued, but the loop resumes at once. */
class Completion {
public:
    Completion(const char* fn, kx_robot_handle* h, const char* event = "current_trajectory_state",
               int buf_len = kMoveBuf)
        : fn_(fn), h_(h), event_(event), buf_len_(buf_len) {}
    /* True when an event is in hand within `timeout` ms. */
    bool next(int timeout);
    void pause(int ms);
    const char* text() const { return buf_.text; }

private:
    int receive(int timeout);
    const char* fn_;
    kx_robot_handle* h_;
    const char* event_;
    int buf_len_;
    ReplyBuf buf_;
    bool held_ = false;
};

/* What a probe of the controller says about the awaited operation. */
enum class Probe { Running, Idle, Other };
inline constexpr int kKeepWaiting = INT_MIN;     /* an event that does not settle the wait */
inline constexpr int kProbeFirst = INT_MIN + 1;  /* an event seen first that leaves it to the probe */

struct CompletionRules {
    const char* fn;          /* names the waits */
    const char* event;       /* the settling event's name */
    int event_buf;           /* its buffer, bytes */
    bool event_first;        /* wait up to m_nOutTime for an event before each probe */
    int max_failures;        /* probe failures tolerated; one more ends the wait with its code */
    int running_pause_ms;    /* while running, and after a settling wait that saw nothing */
    int other_pause_ms;      /* neither running nor at rest; 0 probes again at once */
    int idle_pauses;         /* pauses at rest before running was seen ... */
    int idle_pause_ms;       /* ... of this length, before the settling wait */
    int settle_wait_ms;      /* the settling wait; -1: m_nOutTime */
    int no_event;            /* the result when the settling wait sees nothing; 0: pause and go on */
    /* 0 with *state, or the failing query's code. */
    int (*probe)(kx_robot_handle* h, const void* ctx, Probe* state);
    /* The result an event settles, kKeepWaiting, or (first only) kProbeFirst. */
    int (*on_event)(const void* ctx, const char* text, bool first);
    const void* ctx;
};
/* Waits until an event settles the call under `rules`. No overall time
 * limit: a settling event, the probe's failures or a decode error ends it. */
int await_completion(kx_robot_handle* h, const CompletionRules& rules);

/* The two shapes of the blocking wait: event-first (movej, movel, moves,
 * movec) waits for the completion event and falls back to the trajectory
 * query; poll-first (movej_p, blocking steps) queries first. */
enum class WaitShape { EventFirst, PollFirst };

/* The part of a blocking motion after the controller accepted it
 * (`accepted` is the "receive_state" result, `reply_len` the reply's
 * length): refusals pass through, single mode takes the single-mode step,
 * the threaded modes wait for completion. `device_fn` names the call in the
 * "current device" message. */
int finish_blocking(const char* device_fn, kx_robot_handle* h, int accepted, int reply_len, int block,
                    int watched_type, WaitShape shape);

/* Decodes a motion reply's "receive_state": 0, 1 or -3. */
int motion_accepted(const char* fn, const ReplyBuf& buf);

}  // namespace kx

#endif /* KX_COMMAND_H */
