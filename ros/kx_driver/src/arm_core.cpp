#include "kx_driver/arm_core.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <map>

#include "kx_driver/pose_math.h"
#include "kx_interface.h"

namespace kx_driver {
namespace {

constexpr double kDeg = M_PI / 180.0;

// The library has one realtime callback per process and tells arms apart by
// the datagram's source address: route each datagram to its arm's core.
std::mutex& routes_mutex() {
    static std::mutex m;
    return m;
}
std::map<std::string, ArmCore*>& routes() {
    static std::map<std::string, ArmCore*> r;
    return r;
}

void route_datagram(kx_realtime_arm_joint_state_t state) {
    state.arm_ip[sizeof state.arm_ip - 1] = '\0';
    std::lock_guard lock(routes_mutex());
    const auto it = routes().find(state.arm_ip);
    if (it != routes().end()) it->second->on_datagram(state);
}

void start_library() {
    static std::once_flag once;
    std::call_once(once, [] {
        kx_init(KX_TRIPLE_MODE_E);
        kx_realtime_arm_state_call_back(route_datagram);
    });
}

// A UDP port nobody uses now.
int free_udp_port() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return 0;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

// The address of this machine that the controller reaches (the route's source address).
std::string local_address_towards(const std::string& ip, int port) {
    std::string out = "127.0.0.1";
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return out;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    socklen_t len = sizeof a;
    char buf[INET_ADDRSTRLEN] = {};
    if (inet_pton(AF_INET, ip.c_str(), &a.sin_addr) == 1 && connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0 && inet_ntop(AF_INET, &a.sin_addr, buf, sizeof buf))
        out = buf;
    close(fd);
    return out;
}

// The library takes dotted quads, and datagrams are told apart by theirs:
// a host name is resolved once, here.
ArmConfig with_dotted_address(ArmConfig c) {
    in_addr a{};
    if (inet_pton(AF_INET, c.ip.c_str(), &a) == 1) return c;
    addrinfo hints{}, *found = nullptr;
    hints.ai_family = AF_INET;
    if (getaddrinfo(c.ip.c_str(), nullptr, &hints, &found) == 0 && found) {
        char buf[INET_ADDRSTRLEN] = {};
        if (inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, buf, sizeof buf))
            c.ip = buf;
        freeaddrinfo(found);
    }
    return c;
}

Pose7 to_pose7(const kx_pose_t& p) {
    const kx_quat_t& q = p.quaternion;
    if (q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z < 0.5) {  // only Euler angles given
        const auto r = quat_from_rpy(p.euler.rx, p.euler.ry, p.euler.rz);
        return {p.position.x, p.position.y, p.position.z, r[0], r[1], r[2], r[3]};
    }
    return normalized({p.position.x, p.position.y, p.position.z, q.x, q.y, q.z, q.w});
}

kx_pose_t to_kx_pose(const Pose7& p) {
    kx_pose_t o{};
    o.position = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    o.quaternion = {static_cast<float>(p[6]), static_cast<float>(p[3]), static_cast<float>(p[4]),
                    static_cast<float>(p[5])};
    const auto e = rpy_from_quat(rot(p));
    o.euler = {static_cast<float>(e[0]), static_cast<float>(e[1]), static_cast<float>(e[2])};
    return o;
}

std::array<float, 7> to_degrees(const std::vector<double>& q) {
    std::array<float, 7> d{};
    for (size_t i = 0; i < q.size() && i < 7; ++i) d[i] = static_cast<float>(q[i] / kDeg);
    return d;
}

double seconds(Clock::time_point t) { return std::chrono::duration<double>(t.time_since_epoch()).count(); }

int send_movej(kx_robot_handle* h, const std::vector<double>& q) {
    auto deg = to_degrees(q);
    kx_movej_canfd_mode_t m{};
    m.joint = deg.data();
    return kx_movej_canfd(h, m);
}

bool valid_pose(const Pose7& p) {
    for (double v : p)
        if (!std::isfinite(v)) return false;
    return p[3] * p[3] + p[4] * p[4] + p[5] * p[5] + p[6] * p[6] > 1e-6;
}

}  // namespace

std::string describe(int code) {
    switch (code) {
    case 0: return "done";
    case 1: return "refused by the controller";
    case -1: return "invalid request, or the controller is not reachable";
    case -2: return "no reply from the controller in time";
    case -3: return "the controller's reply could not be decoded";
    case -4: return "ended by another device's motion, or not finished in time";
    case -5: return "not finished in time";
    default: return "failed with code " + std::to_string(code);
    }
}

const char* trajectory_state_name(int state) {
    static const char* const kNames[] = {"idle",       "move_l",        "move_j",           "move_c",
                                         "move_s",     "move_through_joint", "move_through_pose",
                                         "move_through_force_pose", "move_through_current", "stop",
                                         "slow_stop",  "pause",         "current_drag",     "sensor_drag",
                                         "tech_demonstration"};
    return state >= 0 && state < 15 ? kNames[state] : "unknown";
}

ArmSample convert_state(const kx_realtime_arm_joint_state_t& s, int dof, kx_force_type_e force_type,
                        const std::array<double, 7>& work) {
    ArmSample o;
    o.dof = dof;
    for (int i = 0; i < dof && i < 7; ++i) {
        o.position[i] = s.joint_status.joint_position[i] * kDeg;
        o.velocity[i] = s.joint_status.joint_speed[i] * kDeg;
        o.joint_errors[i] = s.joint_status.joint_err_code[i];
        o.joint_enabled[i] = s.joint_status.joint_en_flag[i];
        if (s.joint_status.joint_speed[i] != 0) o.has_velocity = true;
    }
    // The controller reports the tool in its work frame.
    o.tool = compose(work, to_pose7(s.waypoint));
    if (force_type == KX_FORCE_TYPE_QS_E) {
        o.has_wrench = true;
        for (int i = 0; i < 6; ++i) o.wrench[i] = s.force_sensor.zero_force[i];
    } else if (force_type == KX_FORCE_TYPE_QA_E) {
        o.has_wrench = true;
        o.wrench[2] = s.force_sensor.zero_force[0];  // the one-axis sensor measures Fz only
    }
    const int n = std::min<int>(s.err.err_len, 24);
    for (int i = 0; i < n; ++i)
        if (s.err.err[i] != 0) o.errors.push_back(s.err.err[i]);
    o.trajectory_state = static_cast<int>(s.arm_current_status);
    return o;
}

ArmCore::ArmCore(ArmConfig config, Listener& listener)
    : config_(with_dotted_address(std::move(config))), listener_(listener) {
    udp_port_ = config_.udp_port > 0 ? config_.udp_port : free_udp_port();
}

ArmCore::~ArmCore() { stop(); }

void ArmCore::start() {
    if (running_.exchange(true)) return;
    start_library();
    {
        std::lock_guard lock(routes_mutex());
        routes()[config_.ip] = this;
    }
    supervisor_ = std::thread([this] { supervise(); });
}

void ArmCore::stop() {
    if (!running_.exchange(false)) return;
    {
        std::lock_guard lock(wake_mutex_);
        wake_cv_.notify_all();
    }
    if (supervisor_.joinable()) supervisor_.join();
    {
        std::lock_guard lock(routes_mutex());
        routes().erase(config_.ip);
    }
    disconnect("driver stopped");
}

ArmModel ArmCore::model() const {
    std::lock_guard lock(state_mutex_);
    return model_;
}

bool ArmCore::latest(ArmSample& out) const {
    std::lock_guard lock(state_mutex_);
    if (!have_sample_) return false;
    out = latest_;
    return true;
}

bool ArmCore::wait_sample(Clock::time_point after, std::chrono::milliseconds timeout, ArmSample& out) const {
    std::unique_lock lock(state_mutex_);
    const bool got = state_cv_.wait_for(lock, timeout, [&] {
        return !up_.load() || (have_sample_ && latest_.received > after);
    });
    if (!got || !up_.load()) return false;
    out = latest_;
    return true;
}

std::string ArmCore::last_failure() const {
    std::lock_guard lock(state_mutex_);
    return last_failure_;
}

JointLimits ArmCore::limits(const std::string& prefix) const {
    const ArmModel m = model();
    JointLimits l;
    for (int i = 0; i < m.dof; ++i) {
        l.names.push_back(prefix + "joint_" + std::to_string(i + 1));
        l.min_pos.push_back(m.min_pos[i]);
        l.max_pos.push_back(m.max_pos[i]);
        l.max_speed.push_back(m.max_speed[i]);
    }
    return l;
}

void ArmCore::on_datagram(const kx_realtime_arm_joint_state_t& state) {
    if (!accept_.load() || state.errCode != 0) return;
    ArmSample s;
    {
        std::lock_guard lock(state_mutex_);
        s = convert_state(state, model_.dof, model_.force_type, model_.work);
        s.received = Clock::now();
        latest_ = s;
        have_sample_ = true;
    }
    samples_.fetch_add(1);
    state_cv_.notify_all();
    listener_.on_sample(s);
}

// ---- connection ------------------------------------------------------------

bool ArmCore::connect_once(std::string& why) {
    const std::string where = config_.ip + ":" + std::to_string(config_.port);
    auto create = [&]() -> kx_robot_handle* {
        kx_robot_handle* h = kx_create_robot_arm(config_.ip.c_str(), config_.port);
        if (!h) {
            why = "no free connection slot in this process";
            return nullptr;
        }
        if (h->id < 0) {
            kx_delete_robot_arm(h);
            why = "cannot connect to the controller at " + where;
            return nullptr;
        }
        return h;
    };
    kx_robot_handle* h = create();
    if (!h) return false;
    auto fail = [&](const char* what, int code) {
        why = std::string(what) + ": " + describe(code);
        kx_delete_robot_arm(h);
        return false;
    };

    // Realtime push to this process, with joint speeds and the arm's activity.
    // The library listens on the port the controller pushes to, so the
    // controller is first pointed at ours.
    const std::string push_ip = local_address_towards(config_.ip, config_.port);
    kx_realtime_push_config_t cur{};
    auto pushes_to = [&](int port) {
        cur = kx_realtime_push_config_t{};
        if (kx_get_realtime_push(h, &cur) != 0) return false;
        cur.ip[sizeof cur.ip - 1] = '\0';
        return cur.enable && cur.port == port && cur.cycle == config_.push_cycle_ms && push_ip == cur.ip &&
               cur.custom_config.joint_speed == 1 && cur.custom_config.arm_current_status == 1;
    };
    auto push_to = [&](int port) {
        kx_realtime_push_config_t want{};
        want.cycle = config_.push_cycle_ms;
        want.enable = true;
        want.port = port;
        want.force_coordinate = -1;
        std::snprintf(want.ip, sizeof want.ip, "%s", push_ip.c_str());
        want.custom_config = {1, -1, -1, -1, 1, -1};
        return kx_set_realtime_push(h, want);
    };
    if (!pushes_to(udp_port_)) {
        const bool listened_elsewhere = cur.enable && cur.port != udp_port_;
        const int rc = push_to(udp_port_);
        if (rc != 0) return fail("configuring the realtime push", rc);
        // The connection still listens on the controller's former push port;
        // a fresh one listens on ours only, so no other arm's state reaches us.
        if (listened_elsewhere) {
            kx_delete_robot_arm(h);
            if (!(h = create())) return false;
        }
    }
    // Behind a relay the controller pushes to the relay, which forwards to us.
    // (The library also tries to listen on the relay's port, which may be
    // taken here: what counts is that the controller took the setting.)
    if (config_.push_port > 0 && config_.push_port != udp_port_ && !pushes_to(config_.push_port)) {
        push_to(config_.push_port);
        if (!pushes_to(config_.push_port)) return fail("configuring the realtime push to the relay", -1);
    }

    ArmModel m;
    kx_robot_info_t info{};
    float lo[7] = {}, hi[7] = {}, speed[7] = {};
    kx_frame_t tool{}, work{};
    int rc;
    if ((rc = kx_get_robot_info(h, &info)) != 0) return fail("reading the arm model", rc);
    if ((rc = kx_get_joint_min_pos(h, lo)) != 0) return fail("reading the joint limits", rc);
    if ((rc = kx_get_joint_max_pos(h, hi)) != 0) return fail("reading the joint limits", rc);
    if ((rc = kx_get_joint_max_speed(h, speed)) != 0) return fail("reading the joint speeds", rc);
    if ((rc = kx_get_DH_data(h, &m.dh)) != 0) return fail("reading the DH parameters", rc);
    if ((rc = kx_get_current_tool_frame(h, &tool)) != 0) return fail("reading the tool frame", rc);
    if ((rc = kx_get_current_work_frame(h, &work)) != 0) return fail("reading the work frame", rc);
    m.dof = info.arm_dof;
    m.model = info.arm_model;
    m.force_type = info.force_type;
    for (int i = 0; i < 7; ++i) {
        m.min_pos[i] = lo[i] * kDeg;
        m.max_pos[i] = hi[i] * kDeg;
        m.max_speed[i] = speed[i] * kDeg;
    }
    m.tool = to_pose7(tool.pose);
    m.work = to_pose7(work.pose);
    {
        std::unique_lock lock(handle_mutex_);
        handle_ = h;
    }
    {
        std::lock_guard lock(state_mutex_);
        model_ = m;
        have_sample_ = false;
        connected_at_ = Clock::now();
    }
    {
        std::lock_guard lock(motion_mutex_);  // a controller connected afresh knows no stream of ours
        stream_clock_.reset();
        end_stream();
    }
    up_ = true;
    accept_ = true;
    listener_.on_connected(m);
    listener_.on_link(Link::kUp, "connected to " + where);
    return true;
}

void ArmCore::disconnect(const std::string& why) {
    const bool was_up = up_.exchange(false);
    accept_ = false;
    {
        std::lock_guard lock(state_mutex_);
        last_failure_ = why;
    }
    state_cv_.notify_all();
    kx_robot_handle* h = nullptr;
    {
        std::unique_lock lock(handle_mutex_);  // waits for the calls in flight, which fail fast now
        std::swap(h, handle_);
    }
    if (h) kx_delete_robot_arm(h);
    if (was_up) listener_.on_link(Link::kDown, why);
}

bool ArmCore::healthy() {
    const auto silence = std::chrono::milliseconds(std::max(300, 40 * config_.push_cycle_ms));
    auto quiet = [&] {  // since the last state, or since the connection when none came yet
        return Clock::now() - (have_sample_ ? std::max(latest_.received, connected_at_) : connected_at_);
    };
    {
        std::lock_guard lock(state_mutex_);
        if (quiet() < silence) return true;
    }
    // No realtime state lately: ask the controller directly.
    float q[7];
    int rc;
    {
        std::shared_lock lock(handle_mutex_);
        rc = handle_ ? kx_get_joint_degree(handle_, q) : -1;
    }
    if (rc != 0) {
        std::lock_guard lock(state_mutex_);
        last_failure_ = "controller not answering (" + describe(rc) + ")";
        return false;
    }
    std::lock_guard lock(state_mutex_);
    if (quiet() > std::max<Clock::duration>(std::chrono::seconds(2), 2 * silence)) {
        // It answers, but its push went elsewhere: connect and configure again.
        last_failure_ = "no realtime state from the controller";
        return false;
    }
    return true;
}

void ArmCore::supervise() {
    int backoff_ms = 100;
    bool first = true;
    while (running_.load()) {
        int wait_ms = 200;
        if (!up_.load()) {
            std::string why;
            if (connect_once(why)) {
                if (!first) reconnects_.fetch_add(1);
                first = false;
                backoff_ms = 100;
            } else {
                {
                    std::lock_guard lock(state_mutex_);
                    last_failure_ = why;
                }
                wait_ms = backoff_ms;
                backoff_ms = std::min(backoff_ms * 2, config_.max_backoff_ms);
            }
        } else if (!healthy()) {
            disconnect(last_failure());
            wait_ms = 50;
        }
        std::unique_lock lock(wake_mutex_);
        wake_cv_.wait_for(lock, std::chrono::milliseconds(wait_ms), [this] { return !running_.load(); });
    }
}

// ---- commands ----------------------------------------------------------------

template <class F>
Result ArmCore::call(const char* what, F&& f) {
    std::shared_lock lock(handle_mutex_);
    if (!handle_ || !up_.load()) return {-1, std::string(what) + ": not connected to the controller"};
    const int code = f(handle_);
    return {code, std::string(what) + ": " + describe(code)};
}

Result ArmCore::stop_arm() {
    std::lock_guard lock(motion_mutex_);
    ++stops_;
    end_stream();
    return call("stop", [](kx_robot_handle* h) { return kx_set_arm_stop(h); });
}
Result ArmCore::pause() { return call("pause", [](kx_robot_handle* h) { return kx_set_arm_pause(h); }); }
Result ArmCore::resume() { return call("resume", [](kx_robot_handle* h) { return kx_set_arm_continue(h); }); }
Result ArmCore::clear_errors() {
    std::lock_guard lock(motion_mutex_);
    // A controller that refused a target has forgotten its stream: the next one starts afresh.
    stream_clock_.reset();
    end_stream();
    return call("clear errors", [](kx_robot_handle* h) { return kx_clear_system_err(h); });
}

Result ArmCore::move_joint(const std::vector<double>& q, int speed, bool wait) {
    std::string why;
    if (!within_limits(limits(""), {}, q, 0, &why)) return {-1, "move_joint: " + why};
    if (speed < 1 || speed > 100) return {-1, "move_joint: speed must be 1..100 %"};
    {
        std::lock_guard lock(motion_mutex_);
        end_stream();
    }
    const auto deg = to_degrees(q);
    return call("move_joint", [&](kx_robot_handle* h) { return kx_movej(h, deg.data(), speed, 0, 0, wait ? 1 : 0); });
}

Result ArmCore::move_line(const std::array<double, 7>& pose, int speed, bool wait) {
    if (!valid_pose(pose)) return {-1, "move_line: the pose needs finite values and a non-zero quaternion"};
    if (speed < 1 || speed > 100) return {-1, "move_line: speed must be 1..100 %"};
    {
        std::lock_guard lock(motion_mutex_);
        end_stream();
    }
    const kx_pose_t target = to_kx_pose(compose(inverse(model().work), normalized(pose)));
    return call("move_line", [&](kx_robot_handle* h) { return kx_movel(h, target, speed, 0, 0, wait ? 1 : 0); });
}

Result ArmCore::set_digital_output(int channel, bool value) {
    return call("set_digital_output",
                [&](kx_robot_handle* h) { return kx_set_DO_state(h, channel, value ? 1 : 0); });
}

Result ArmCore::gripper(int position, int force, bool wait) {
    constexpr int kTimeoutS = 30, kSpeed = 500;
    if (force < 0 || force > 1000) return {-1, "gripper: force must be 0..1000"};
    if (force == 0 && (position < 1 || position > 1000)) return {-1, "gripper: position must be 1..1000"};
    // Without waiting, the acceptance is still awaited (timeout 1 s), so a refusal is reported.
    const int timeout = wait ? kTimeoutS : 1;
    if (force > 0)
        return call("gripper", [&](kx_robot_handle* h) { return kx_set_gripper_pick(h, kSpeed, force, wait, timeout); });
    return call("gripper", [&](kx_robot_handle* h) { return kx_set_gripper_position(h, position, wait, timeout); });
}

int ArmCore::streaming_error(const ArmSample& s) {
    for (int e : s.errors)
        if (e == 0x500A || e == 0x500B) return e;
    return 0;
}

Result ArmCore::refuse(std::string why) {
    refused_.fetch_add(1);
    return {-1, "stream refused: " + why, true};
}

void ArmCore::end_stream() { stream_last_.clear(); }

Result ArmCore::send_streamed(const std::vector<double>& q, Hold hold,
                              const std::function<int(kx_robot_handle*)>& send) {
    ArmSample arm;
    if (!latest(arm)) return refuse("no realtime state yet");
    if (const int e = streaming_error(arm)) {
        char text[120];
        std::snprintf(text, sizeof text, "the controller holds error 0x%X and refuses streamed targets until clear_errors", e);
        return refuse(text);
    }
    const JointLimits lim = limits("");
    std::string why;
    if (!within_limits(lim, {}, q, 0, &why)) return refuse(why);
    const double now = seconds(Clock::now());
    if (!stream_clock_.active(now)) end_stream();
    const std::vector<double> from =
        stream_last_.empty() ? std::vector<double>(arm.position.begin(), arm.position.begin() + arm.dof) : stream_last_;
    // The controller times a target by its arrival, which a loaded machine
    // delays: the driver uses only kShare of the period it measures.
    constexpr double kShare = 0.8;
    const double wait = stream_clock_.wait_for(now, travel_time(lim, from, q) / kShare);
    if (wait < 0 || wait > (hold == Hold::kYes ? kHold : 0)) {
        const double period = stream_clock_.period(now);
        within_limits(lim, from, q, period * kShare, &why);
        return refuse(why + " (stream period " + std::to_string(period * 1e3).substr(0, 5) + " ms)");
    }
    if (wait > 0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
    Result r = call("stream", send);
    if (r.ok()) {
        // Timed when the call returns, by then the target is on its way: a
        // call held up in the library shortens no gap the controller sees.
        stream_clock_.sent(seconds(Clock::now()));
        stream_last_ = q;
    }
    return r;
}

Result ArmCore::stream_joints(const std::vector<double>& q) {
    std::lock_guard lock(motion_mutex_);
    if (executing_) return refuse("a trajectory is being executed");
    return send_streamed(q, Hold::kYes, [&](kx_robot_handle* h) { return send_movej(h, q); });
}

Result ArmCore::stream_pose(const std::array<double, 7>& pose) {
    if (!valid_pose(pose)) return refuse("the pose needs finite values and a non-zero quaternion");
    ArmSample now;
    if (!latest(now)) return refuse("no realtime state yet");
    const kx_pose_t target = to_kx_pose(compose(inverse(model().work), normalized(pose)));
    std::vector<double> from(now.position.begin(), now.position.begin() + now.dof);
    const auto ref = to_degrees(from);
    float out[7] = {};
    Result r = call("stream", [&](kx_robot_handle* h) {
        kx_inverse_kinematics_params_t p{};
        std::memcpy(p.q_in, ref.data(), sizeof p.q_in);
        p.q_pose = target;
        p.flag = 1;
        return kx_algo_inverse_kinematics(h, p, out);
    });
    if (!r.ok()) return refuse("no joint solution for the pose");
    std::vector<double> q(static_cast<size_t>(now.dof));
    for (int i = 0; i < now.dof; ++i) q[i] = out[i] * kDeg;
    std::lock_guard lock(motion_mutex_);
    if (executing_) return refuse("a trajectory is being executed");
    return send_streamed(q, Hold::kYes, [&](kx_robot_handle* h) {
        kx_movep_canfd_mode_t m{};
        m.pose = target;
        return kx_movep_canfd(h, m);
    });
}

// ---- trajectories --------------------------------------------------------------

Execution ArmCore::execute(const Trajectory& trajectory, const Tolerances& tolerances,
                           const std::function<bool()>& cancelled,
                           const std::function<void(const Progress&)>& progress) {
    const double period = config_.push_cycle_ms / 1000.0;
    const auto step = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(period));
    const int report_every = std::max(1, static_cast<int>(0.05 / period));
    const Execution lost{Outcome::kConnectionLost, "aborted: the connection to the controller was lost"};
    const Execution cancel{Outcome::kCancelled, "cancelled: the arm was stopped"};
    const Execution stopped{Outcome::kStopped, "aborted: a stop request halted the arm"};
    uint64_t stops_at_start;
    {
        std::lock_guard lock(motion_mutex_);
        stops_at_start = stops_;
        executing_ = true;
    }
    struct Done {  // streamed targets from topics are refused until the execution ends
        ArmCore& core;
        ~Done() {
            std::lock_guard lock(core.motion_mutex_);
            core.executing_ = false;
        }
    } done{*this};
    Progress p;
    ArmSample first;
    const size_t errors_at_start = latest(first) ? first.errors.size() : 0;
    std::vector<double> before = trajectory.points.front().position;  // the target sent one step earlier
    auto next = Clock::now();
    // Time advances one period per step even when a step is late, so no
    // target is ever farther from the last than the checked speed allows.
    for (int k = 1;; ++k) {
        const double t = std::min(k * period, trajectory.duration());
        if (cancelled()) {
            stop_arm();
            return cancel;
        }
        if (!up_.load()) return lost;
        trajectory.sample(t, p.desired_position, p.desired_velocity);
        {
            std::lock_guard lock(motion_mutex_);
            if (stops_ != stops_at_start) return stopped;
            // A streamed target has no reply: a failed send means the connection is gone.
            const Result r = send_streamed(p.desired_position, Hold::kYes,
                                           [&](kx_robot_handle* h) { return send_movej(h, p.desired_position); });
            if (!r.ok()) return r.refused ? Execution{Outcome::kRefused, "aborted: " + r.message} : lost;
        }
        if (k % report_every == 0 || t >= trajectory.duration()) {
            p.time = t;
            if (latest(p.actual)) {
                // The controller refuses a target by raising an arm error.
                if (p.actual.errors.size() > errors_at_start)
                    return {Outcome::kRefused, "aborted: the controller reports error " +
                                                   std::to_string(p.actual.errors.back())};
                // The arm may not have applied the newest target yet: the nearer of the last two counts.
                for (size_t j = 0; j < p.desired_position.size() && j < tolerances.path.size(); ++j) {
                    const double off = std::min(std::fabs(p.actual.position[j] - p.desired_position[j]),
                                                std::fabs(p.actual.position[j] - before[j]));
                    if (tolerances.path[j] > 0 && off > tolerances.path[j]) {
                        stop_arm();
                        return {Outcome::kPathTolerance, "path tolerance violated: joint " + std::to_string(j + 1) +
                                                             " is " + std::to_string(off) +
                                                             " rad off its path; the arm was stopped"};
                    }
                }
                progress(p);
            }
        }
        before = p.desired_position;
        if (t >= trajectory.duration()) break;
        next += step;
        std::this_thread::sleep_until(next);
    }
    // The last target is streamed; the arm has it once a datagram says so.
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(std::max(tolerances.settle, 0.1)));
    const std::vector<double>& goal = trajectory.points.back().position;
    std::string worst;
    for (auto since = Clock::now(); Clock::now() < deadline; since = Clock::now()) {
        if (cancelled()) {
            stop_arm();
            return cancel;
        }
        ArmSample s;
        if (!wait_sample(since, std::chrono::milliseconds(200), s)) {
            if (!up_.load()) return lost;
            continue;
        }
        worst.clear();
        for (size_t j = 0; j < goal.size(); ++j) {
            const double tol = j < tolerances.goal.size() && tolerances.goal[j] > 0 ? tolerances.goal[j] : 0.01;
            if (std::fabs(s.position[j] - goal[j]) > tol)
                worst = "joint " + std::to_string(j + 1) + " is " + std::to_string(s.position[j] - goal[j]) +
                        " rad from its goal";
        }
        p.time = trajectory.duration();
        p.actual = s;
        progress(p);
        if (worst.empty()) return {Outcome::kSucceeded, "trajectory executed"};
    }
    return {Outcome::kGoalTolerance, "goal tolerance violated: " + worst};
}

}  // namespace kx_driver
