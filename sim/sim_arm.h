/*
 * The controller state of one simulated arm, its motion in simulated time and
 * the command table that reads and changes it. Everything here is used under
 * the owning arm's mutex; nothing in this header does I/O.
 */
#ifndef KX_SIM_ARM_H
#define KX_SIM_ARM_H

#include <cjson/cJSON.h>

#include <array>
#include <cmath>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "algo_arm.h"
#include "sim_math.h"

namespace kxsim {

constexpr int kMaxJoints = 7;
constexpr double kNoBound = std::numeric_limits<double>::infinity();
using Joints = std::array<double, kMaxJoints>; /* degrees */
using WireJoints = std::array<int, kMaxJoints>;

/* Frames are kept in wire units so that what was set reads back exactly. */
struct Ball {
    std::string name;
    int radius = 0, x = 0, y = 0, z = 0; /* metres x 1000 */
};
struct ToolFrame {
    std::string name;
    int pose[6] = {};  /* metres x 1e6, radians x 1000 */
    int payload = 0;   /* kg x 1000 */
    int com[3] = {};   /* metres x 1e6 */
    std::vector<Ball> envelope;
};
struct WorkFrame {
    std::string name;
    int pose[6] = {};
};

/* Optional members of the realtime datagram, in the order of the "custom" object. */
enum Custom { kJointSpeed, kLiftState, kExpandState, kArmStatus, kAloha, kHand, kCustomCount };
extern const char* const kCustomKeys[kCustomCount];

struct PushConfig {
    bool enable = true;
    int cycle = 10; /* ms of simulated time */
    int port = 8089;
    std::string ip = "127.0.0.1";
    int force_coordinate = 0;
    bool custom[kCustomCount] = {};
};

/* One planned motion: joint samples uniform in a path parameter s in [0, 1],
 * run with a trapezoidal profile in s. */
struct Segment {
    const char* type = "movej";    /* what the trajectory query reports */
    const char* status = "move_J"; /* what the realtime push reports */
    std::vector<Joints> path;
    std::vector<int> target; /* the query's "data" */
    int tc = 0;              /* trajectory_connect, echoed in the end event */
    double vs = 0, as = 0;   /* limits of ds/dt and d2s/dt2 */
    double duration = 0;
    double t = 0; /* elapsed simulated time */
    bool braking = false;
    double brake_t = 0, brake_s = 0, brake_v = 0;
};

/* Streamed targets (pass-through, follow, force-position): each is checked
 * against the joints' speed over the stream's period, measured as the mean
 * gap over the last targets (a new stream starts from the default period),
 * so that targets held up on their way and arriving together are judged by
 * the sender's rate. */
struct StreamState {
    static constexpr size_t kWindow = 8;
    std::deque<double> times; /* simulated arrival times of the last accepted targets */
    /* The period to judge a target arriving at `now` by. */
    double period(double now) const;
    void accepted(double now);
};

/* Continuous teaching motion, until stopped. */
struct Teach {
    enum Kind { kNone, kJoint, kPos, kOrt } kind = kNone;
    int axis = 0;
    double rate = 0; /* deg/s, m/s or rad/s, signed */
    Mat4 pose{};     /* Cartesian kinds: the commanded tool pose */
};

/* A line produced while the state changes: for the command connection, or
 * (note) for the simulator's log, where a developer reads why it refused. */
struct Event {
    std::string text;
    bool motion_end = false;
    bool note = false;
};
using Events = std::vector<Event>;

/* ---- force sensing, drag teaching, programs, waypoints ---- */

enum Edition { kEditionP = 0, kEditionQA = 1, kEditionQS = 2 };

/* The force sensor and force-position control. Wrenches are
 * [Fx, Fy, Fz (N), Mx, My, Mz (N m)]. */
struct ForceState {
    std::array<double, 6> push{};   /* scripted external wrench on the tool, base frame */
    std::array<double, 6> offset{}; /* subtracted from the raw reading by zeroing */
    double surface_z = NAN;         /* stiff surface height in the base frame (m); NaN: right at the tool */
    bool holding = false;           /* force-position control holds `target` */
    int frame = 1;                  /* axes of target and contact: 0 the base's, 1 the tool's */
    std::array<double, 6> target{}; /* commanded contact wrench */
    std::array<double, 6> contact{};/* contact wrench reached so far */
    bool streaming = false;         /* Start_Force_Position_Move .. Stop */
    int drag_mode = 0;
    int manual_poses = 0;           /* manual calibration poses received */
};

/* Drag teaching: the operator's hand moves the arm while the controller
 * records its joints at the record cycle; a save streams them back. */
struct DragState {
    bool teaching = false;
    bool recording = false;
    double next_sample = 0;          /* simulated seconds */
    Joints step_start{};             /* the joints at the start of the current clock step */
    std::vector<WireJoints> path;    /* the recorded path, wire units */
    std::vector<double> hand_rate;   /* the hand's joint rates while teaching, deg/s */
    int sensitivity = 50;
    std::deque<std::string> outgoing;/* point lines of a save still to send */
    double next_line = 0;
    int silence_after = -1;          /* next save: stop streaming after this many points */
    int malformed_at = -1;           /* next save: this point (1-based) is malformed */
};

/* A stored or uploaded program: its lines after the header. */
struct Program {
    std::string name;
    std::vector<std::string> lines;
    int speed = 100;
    int size = 0; /* bytes uploaded */
};

struct ProgramState {
    /* an announced upload in progress */
    long upload_left = -1; /* bytes still expected; -1 none */
    std::string upload;
    std::string upload_name;
    int upload_speed = 100, upload_step = 0, upload_only_save = 0, upload_id = 0;
    /* an unannounced (in-memory) upload: lines until the folder's count is reached */
    bool loose = false;
    int loose_left = -1;
    std::string last_upload; /* raw bytes of the last upload, for tests */
    std::map<int, Program> library;
    int default_id = 0;
    /* the run */
    int run_state = 0; /* 0 idle, 1 running, 2 paused */
    int run_id = 0;
    Program run;
    size_t next = 0;   /* index of the next line */
    bool step_mode = false;
    bool line_busy = false;
    int plan_speed = 100;
    int fail_at = -1;  /* injected: the next run fails at this program line (1-based, header included) */
};

struct Waypoint {
    std::string name, work, tool, time;
    std::vector<int> joint; /* wire units */
    int pose[6] = {};
};

/* ---- peripherals (one state struct per family) ---- */

/* One device moving a single coordinate toward a target at a rate, in
 * simulated time. */
struct Drive {
    double pos = 0, target = 0, rate = 0; /* units, units per second */
    bool moving = false;
    bool velocity = false; /* runs at `rate` until a limit or a stop */
    bool report = true;    /* ends with a completion event (positioning moves; not runs at a speed) */
    /* Advances by dt within [lo, hi]; true when a positioning move just ended. */
    bool step(double dt, double lo, double hi);
};

/* Gripper, hand, lift and expansion axis. */
struct EffectorState {
    /* gripper: positions 1..1000 */
    int route_min = 1, route_max = 1000;
    Drive gripper{1000, 1000};
    int grip_force = 0, grip_status = 0; /* status: 0 idle/arrived, 1 moving, 2 holding an object, 3 closed empty */
    int grip_mode = 0;                   /* 0 idle, 1 opening, 2 closing, 3 positioning */
    int object_width = 0;                /* 0: nothing between the fingers */
    bool grip_hold = false;              /* pick_on keeps the force */
    /* hand: postures and sequences 1..40, six fingers; a finger's position
     * runs 0 (open) .. 1000 (closed), its angle is the position x kHandDegrees
     * in 0.01 degree */
    static constexpr double kHandDegrees = 17.8;
    int hand_speed = 500, hand_force = 500;
    int hand_angle[6] = {}, hand_pos[6] = {};
    int hand_from[6] = {}, hand_to[6] = {}; /* a posture's start and goal positions */
    Drive hand;          /* runs 0..1 over a posture or sequence */
    /* The hand as the realtime push reports it. */
    void hand_state(int pos[6], int angle[6], int force[6], int state[6]) const;
    /* lift (mm, 0..1000) and expansion axis (0.001 deg, -180000..180000) */
    Drive lift, expand;

    bool busy() const { return gripper.moving || hand.moving || lift.moving || expand.moving; }
    void advance(double dt, Events& out);
};

/* Electronic fences, the active fence, the virtual wall and self-collision,
 * in wire units (thousandths of a metre) so that they read back exactly. */
struct Zone {
    int form = 0; /* 0 none, 1 cube, 2 plane, 3 sphere */
    std::string name;
    std::vector<int> geo; /* cube x_min..z_max, plane x1..z3, sphere x, y, z, radius */
};
struct ZoneSwitch {
    bool enable = false;
    int in_out_side = 0; /* 0 the tool stays inside, 1 outside */
    int region = 0;
};
/* Arm errors, read with the arm state and cleared by clear_system_err. */
enum ArmError {
    kProgramError = 0x5001,       /* a program line failed */
    kFenceError = 0x5008,         /* the tool point would leave the electronic fence's allowed side */
    kWallError = 0x5009,          /* the tool point would cross the virtual wall */
    kStreamSpeedError = 0x500A,   /* a streamed target farther than a joint can go in one period */
    kSelfCollisionError = 0x500B, /* two links of the arm would come too close */
};

struct ZoneState {
    static constexpr int kMaxFences = 10;
    std::vector<Zone> fences;
    Zone fence, wall;
    ZoneSwitch fence_on, wall_on;
    bool self_collision = false;
    /* The error of the first zone the tool point p (metres, base frame) violates, or 0. */
    int violation(const double p[3]) const;
};

struct ArmState {
    /* ---- identity and kinematics ---- */
    std::string product;
    algo::ArmModel model{};   /* current: DH and limits follow the commands */
    algo::ArmModel factory{}; /* defaults of the product */
    /* DH as last set, in wire units, so that it reads back exactly:
     * per joint alpha deg x 1000, a m x 1e6, d m x 1e6, offset deg x 1000 */
    std::array<std::array<int, 4>, kMaxJoints> dh{};
    int dof = 6;
    int edition = 0; /* 0 P (no sensor), 1 QA (one-axis Fz sensor), 2 QS (six-axis sensor) */

    /* ---- joints and limits (wire units) ---- */
    Joints q{}, qd{}; /* degrees, degrees per second */
    WireJoints min_pos{}, max_pos{}, max_speed{}, max_acc{};
    WireJoints drive_min_pos{}, drive_max_pos{}, drive_max_speed{}, drive_max_acc{};
    WireJoints en_state{}, err_flag{}, brake_state{}, init_pose{};
    int line_speed = 250, line_acc = 1000, angular_speed = 1000, angular_acc = 3000;
    int collision_stage = 0, teach_frame = 0, run_mode = 0, power = 1, tool_version = 258;
    int install[3] = {};

    /* ---- frames ---- */
    std::vector<ToolFrame> tools;
    std::vector<WorkFrame> works;
    std::string tool_current, work_current;
    std::map<int, Mat4> tool_points, work_points; /* taught flange poses */

    /* ---- controller ---- */
    double runtime_origin = 0; /* simulated seconds */
    Joints odom{};             /* degrees travelled */
    std::vector<int> errors;
    std::string net_ip = "127.0.0.1", net_mask = "255.255.255.0", net_mac = "02:00:00:00:00:01";
    std::string wifi_mode = "off", wifi_ssid, wifi_password, wifi_ip = "0.0.0.0";
    int wifi_channel = 6, usb_baudrate = 115200, rs485_baudrate = 115200;
    PushConfig push;

    /* ---- peripherals and safety zones ---- */
    EffectorState effectors;
    ZoneState zones;

    /* ---- motion ---- */
    std::deque<Segment> queue; /* front is running once released */
    Teach teach;
    bool paused = false;
    bool slow_stopping = false;
    double last_t = 0;
    double stream_until = -1;
    const char* stream_status = "idle";
    StreamState stream;
    double last_end_sim = -1;

    /* ---- force, drag teaching, programs, waypoints ---- */
    ForceState force;
    DragState drag;
    ProgramState program;
    std::vector<Waypoint> waypoints;

    /* Loads the product's model (name substring and "-P"/"-QA"/"-QS"
     * edition); an unknown model keeps the current kinematics. */
    void set_product(const std::string& product_version);
    /* Restores the factory limits, DH, frames and settings. */
    void reset();
    void sync_model_limits();
    void reset_dh();  /* factory DH */
    void apply_dh();  /* dh into the kinematic model */

    /* Kinematics in the current tool and work frames. */
    Mat4 flange(const Joints& j) const;
    Mat4 tool_in_base() const;
    Mat4 work_in_base() const;
    Mat4 tool_pose(const Joints& j) const; /* tool in work frame */
    /* Joints reaching the tool pose: `solve` takes the kinematics library's
     * solution nearest to ref, `track` follows from ref by small steps (for
     * paths and streams, where continuity matters more than reach). */
    bool solve(const Mat4& tool_target, const Joints& ref, Joints& out) const;
    bool track(const Mat4& tool_target, const Joints& ref, Joints& out) const;
    bool within_limits(const Joints& j) const;
    WireJoints wire_joints(const Joints& j) const;

    /* Joint telemetry in wire units (x 1000): a plausible function of motion. */
    enum Telemetry { kTemperature, kCurrent, kVoltage };
    WireJoints telemetry(Telemetry kind) const;
    std::vector<int> error_list() const; /* [0] when there is no error */
    void raise(ArmError e);              /* once: an error already held is not repeated */
    bool holds(ArmError e) const;

    /* Motion. */
    bool can_move() const;
    bool moving() const { return running() != nullptr || teach.kind != Teach::kNone; }
    const Segment* running() const;
    Joints plan_start() const; /* where the next queued motion starts */
    /* Plans a motion; false with the reason when it cannot run. */
    bool plan_joint(const Joints& target, int v, Segment& seg, std::string& why) const;
    /* Cartesian path through tool poses path(s), s in [0, 1]. */
    bool plan_path(const std::function<Mat4(double)>& path, double length, double angle, int v, Segment& seg,
                   std::string& why) const;
    /* Runs seg along its path at most at rate vs and acceleration as of the
     * path parameter (kNoBound: none of their own), within every joint's
     * speed (times f) and acceleration. A joint's second differences up to
     * `noise` (deg) are the samples' rounding, not a bend of the path. */
    void bound_profile(Segment& seg, double f, double vs, double as, double noise = 0) const;
    /* Runs seg along recorded samples (wire joints, one per cycle) in
     * `duration` seconds, within every joint's speed and acceleration. */
    void plan_recorded(Segment& seg, double duration) const;
    /* Why the arm cannot move now ("" when it can). */
    std::string motion_blocker() const;
    /* Why joints j are not within the limits ("" when they are). */
    std::string beyond_limits(const Joints& j) const;
    void enqueue(Segment seg, double now, Events& out);
    void advance(double now, Events& out);
    void stop(bool slow, double now, Events& out);
    void drop_current(Events& out);
    /* Moves straight to a streamed target, unless it is beyond a joint's
     * limit, farther than a joint can go in the stream's period (that raises
     * kStreamSpeedError) or folds the arm onto itself while self-collision
     * detection is on (kSelfCollisionError); after either error targets are
     * refused until it is cleared. False with the reason when refused. */
    bool stream_to(const Joints& target, const char* status, double now, std::string& why);
    /* The queued planned motion sampled every dt of simulated time, from its
     * start, without running it. */
    std::vector<Joints> preview(double dt) const;
    const char* status() const;

    const ToolFrame* current_tool() const;
    const WorkFrame* current_work() const;

    /* The state a family keeps in its own file: one T per arm, made on first use. */
    template <class T>
    T& family_state() {
        return state_slot<T>();
    }
    template <class T>
    const T& family_state() const {
        return state_slot<T>();
    }

private:
    template <class T>
    T& state_slot() const {
        std::shared_ptr<void>& slot = family_states_[std::type_index(typeid(T))];
        if (!slot) slot = std::make_shared<T>();
        return *static_cast<T*>(slot.get());
    }
    mutable std::unordered_map<std::type_index, std::shared_ptr<void>> family_states_; /* made on first use */
    Mat4 flange_target(const Mat4& tool_target) const;
    bool reaches(const Joints& j, const Mat4& flange_target) const;
    bool finish_plan(Segment& seg, int v, double length, double angle, std::string& why) const;
    void end_segment(bool reached, Events& out);
    void step_teach(double dt);
};

/* The frame of that name in a list of tool or work frames, or null. */
template <class Frames>
auto find_by_name(Frames& frames, const std::string& name) -> decltype(&frames[0]) {
    for (auto& f : frames)
        if (f.name == name) return &f;
    return nullptr;
}

/* The pose moved by `amount` along (kPos) or about (kOrt) one axis of the
 * work frame, or of the tool itself when tool_frame is set. */
Mat4 teach_delta(const Mat4& pose, Teach::Kind kind, int axis, double amount, bool tool_frame);

/* Pose wire array (x, y, z metres x 1e6, rx, ry, rz radians x 1000) <-> transform. */
Mat4 wire_to_mat(const int w[6]);
void mat_to_wire(const Mat4& m, int w[6]);

std::string trajectory_event(bool reached, int trajectory_connect);

/* ---- commands ---- */

struct Ctx {
    ArmState& arm;
    const cJSON* req;
    const std::string& cmd;
    double now; /* simulated seconds */
    Events& events;
    cJSON* reply = nullptr;
    bool refused = false;
    std::string why; /* the reason of a refusal: the last one given */

    /* Starts the reply {"command": name}; name defaults to the request's. */
    cJSON* answer(const char* name = nullptr);
    /* A reply whose only member is the outcome boolean; false is a refusal,
     * logged with its reason. */
    void verdict(const char* key, bool ok, const char* name = nullptr);
    /* A refusal without a reply (streamed targets). */
    void refuse(const std::string& reason);
    /* Notes the reason of a failing condition; returns false. */
    bool fail(std::string reason);
    bool check(bool ok, const char* reason) { return ok || fail(reason); }
    /* Request readers that note which member failed. */
    bool get_int(const char* key, int& out);
    bool int_in(const char* key, int lo, int hi, int& out);
    bool get_bool(const char* key, bool& out);
    bool get_str(const char* key, std::string& out);
    bool get_ints(const char* key, size_t n, int* out);
    /* A joint target of the arm's joint count (wire units: degrees x 1000) in
     * obj[key]; a pose (6 integers, or 7 as "pose_quat") in obj[key]. */
    bool joints(const cJSON* obj, const char* key, Joints& out);
    /* Whether the arm carries the force sensor of edition `need` (kEditionP:
     * any sensor); notes what is missing. */
    bool has_sensor(Edition need = kEditionP);
    bool pose(const cJSON* obj, const char* key, Mat4& out);
};

using Handler = void (*)(Ctx&);
using CommandTable = std::unordered_map<std::string, Handler>;

/* A scalar setting with its set and query commands. */
struct IntSetting {
    const char* set_cmd;   /* null: read-only */
    const char* field;     /* request member of the set command */
    const char* set_reply; /* null: the request's own name */
    const char* set_key;   /* the reply's outcome boolean */
    const char* get_cmd;   /* null: write-only */
    const char* get_reply;
    const char* get_key;
    int ArmState::*member;
    int lo, hi; /* accepted values */
};
void add_int_settings(CommandTable& t, const IntSetting* rows, size_t n);

/* ---- the families (sim_family.h, sim_registry.cpp) ---- */

/* Every family's commands. */
const CommandTable& command_table();
/* Every family's step in simulated time, at the end of every advance. */
void advance_families(ArmState& arm, double dt, Events& out);
/* Whether a family needs the clock to tick although no motion runs. */
bool families_busy(const ArmState& arm);
/* A stop command ends what the families run (a program). */
void stop_families(ArmState& arm, Events& out);
/* Applies the test hook of that name: 1 done, 0 its arguments refused, -1 no such hook. */
int apply_hook(ArmState& arm, const std::string& name, const std::vector<double>& args);

/* Whether a planned motion keeps the tool point clear of every enabled
 * zone, and (when enabled) the links clear of each other; otherwise the
 * error is raised and the refusal noted. */
bool zones_allow(Ctx& c, const Segment& seg);
/* Why joints j bring two links of the arm too close ("" when they do not). */
std::string self_collision(const ArmState& arm, const Joints& j);

/* Raw bytes of an announced program upload: consumes what belongs to it and
 * sets `reply` ("download_project") when it is complete. */
size_t take_upload(ArmState& arm, const char* data, size_t n, double now, std::string& reply, Events& out);
/* A line of an unannounced upload (one begins with a {"file":...} line):
 * true when consumed; `reply` is set when the upload is complete. */
bool loose_line(ArmState& arm, const std::string& line, double now, std::string& reply, Events& out);
/* Raw and zeroed sensor wrench, sensor frame (N, N m). */
void sensor_wrench(const ArmState& arm, double raw[6], double zeroed[6]);

/* Answers one request object; returns the reply text (empty: no reply).
 * Events raised meanwhile are appended to `events`. */
std::string handle_request(ArmState& arm, const cJSON* req, double now, Events& events);

/* The realtime datagram of the arm's present state. */
std::string realtime_datagram(const ArmState& arm);

}  // namespace kxsim

#endif
