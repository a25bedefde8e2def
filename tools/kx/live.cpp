// Live state of several arms: realtime push and events into one table.
#include "live.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace kx {

Live* Live::current_ = nullptr;

namespace {

constexpr size_t kEventsKept = 20;
constexpr int kPushCycleMax = 20;  // controller cycle units (ms): 50 states a second or more

double now_epoch_ms() {
    return std::chrono::duration<double, std::milli>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A UDP port nobody on this machine uses right now.
int free_udp_port() {
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    ::close(s);
    return port;
}

// The address of this machine that the controller at `ip` reaches.
std::string local_address_for(const Address& to) {
    std::string out = "127.0.0.1";
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return out;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(to.port));
    inet_pton(AF_INET, to.ip.c_str(), &a.sin_addr);
    socklen_t len = sizeof a;
    char buf[INET_ADDRSTRLEN] = {};
    if (connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&  // a UDP connect sends nothing
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0 && inet_ntop(AF_INET, &a.sin_addr, buf, sizeof buf))
        out = buf;
    ::close(s);
    if (out.rfind("127.", 0) == 0) out = "127.0.0.1";
    return out;
}

const char* device_name(int device) {
    static const char* const kDevices[] = {"arm", "gripper", "hand", "lift", "expansion axis"};
    return device >= 0 && device < 5 ? kDevices[device] : "device";
}

// 4 x 4 homogeneous transforms, row-major.
struct T4 {
    double m[4][4];
    static T4 identity() {
        T4 t{};
        for (int i = 0; i < 4; ++i) t.m[i][i] = 1;
        return t;
    }
    T4 operator*(const T4& b) const {
        T4 r{};
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                for (int k = 0; k < 4; ++k) r.m[i][j] += m[i][k] * b.m[k][j];
        return r;
    }
};

T4 rot_x(double a) {
    T4 t = T4::identity();
    t.m[1][1] = std::cos(a), t.m[1][2] = -std::sin(a), t.m[2][1] = std::sin(a), t.m[2][2] = std::cos(a);
    return t;
}
T4 rot_z(double a) {
    T4 t = T4::identity();
    t.m[0][0] = std::cos(a), t.m[0][1] = -std::sin(a), t.m[1][0] = std::sin(a), t.m[1][1] = std::cos(a);
    return t;
}
T4 trans(double x, double y, double z) {
    T4 t = T4::identity();
    t.m[0][3] = x, t.m[1][3] = y, t.m[2][3] = z;
    return t;
}

void add_origin(const T4& t, std::vector<float>& points) {
    for (int i = 0; i < 3; ++i) points.push_back(static_cast<float>(t.m[i][3]));
}

double rounded(double v) { return std::round(v * 1e5) / 1e5; }

cJSON* numbers_json(const float* v, int n) {
    cJSON* a = cJSON_CreateArray();
    for (int i = 0; i < n; ++i) cJSON_AddItemToArray(a, cJSON_CreateNumber(rounded(v[i])));
    return a;
}

}  // namespace

const char* status_name(int status) {
    static const char* const kNames[] = {"idle",
                                         "move_L",
                                         "move_J",
                                         "move_C",
                                         "move_S",
                                         "move_through_joint",
                                         "move_through_pose",
                                         "move_through_force_pose",
                                         "move_through_current",
                                         "stop",
                                         "slow_stop",
                                         "pause",
                                         "current_drag",
                                         "sensor_drag",
                                         "tech_demonstration"};
    return status >= 0 && status < 15 ? kNames[status] : "unknown";
}

void arm_figure(const kx_dh_t& dh, const float* joints_deg, int dof, std::vector<float>& points, float flange[12]) {
    constexpr double kDeg = M_PI / 180.0;
    T4 t = T4::identity();
    points.clear();
    add_origin(t, points);
    for (int i = 0; i < dof && i < 8; ++i) {
        t = t * rot_x(dh.alpha[i] * kDeg) * trans(dh.a[i], 0, 0);
        add_origin(t, points);  // the corner of a link offset
        t = t * rot_z((joints_deg[i] + dh.offset[i]) * kDeg) * trans(0, 0, dh.d[i]);
        add_origin(t, points);
    }
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) flange[r * 4 + c] = static_cast<float>(t.m[r][c]);
}

kx_robot_handle* LiveArm::handle() {
    std::lock_guard<std::mutex> lock(handle_mutex);
    return arm.handle;
}

Live::~Live() { close(); }

int Live::command(LiveArm& a, const std::function<int(kx_robot_handle*)>& fn) {
    kx_robot_handle* h = a.handle();
    const int rc = fn(h);
    if (rc != -1) return rc;
    {
        std::lock_guard<std::mutex> lock(a.reconnect_mutex);
        if (a.handle() == h) {  // not yet replaced by a command that failed at the same time
            if (h) kx_delete_robot_arm(h);
            kx_robot_handle* fresh = kx_create_robot_arm(a.arm.addr.ip.c_str(), a.arm.addr.port);
            if (fresh && fresh->id < 0) {
                kx_delete_robot_arm(fresh);
                fresh = nullptr;
            }
            {
                std::lock_guard<std::mutex> hl(a.handle_mutex);
                a.arm.handle = fresh;
            }
            std::lock_guard<std::mutex> ml(mutex);
            a.handle_id = fresh ? fresh->id : 0;
        }
    }
    h = a.handle();
    return h ? fn(h) : -1;
}

int Live::open(const std::vector<std::string>& addrs, bool verbose) {
    if (addrs.empty() || addrs.size() > 5) throw UsageError{"give one to five arms (ADDR...)"};
    std::vector<Address> parsed;
    for (const auto& text : addrs) {
        parsed.push_back(parse_address(text));
        for (size_t i = 0; i + 1 < parsed.size(); ++i)
            if (parsed[i].ip == parsed.back().ip)
                throw UsageError{fmt("%s and %s share one IP address; their realtime states could not be told apart",
                                     parsed[i].text.c_str(), text.c_str())};
    }
    const int udp_port = free_udp_port();
    if (udp_port <= 0) {
        fail("no free UDP port on this machine for the realtime state");
        return kFailed;
    }
    current_ = this;
    kx_realtime_arm_state_call_back(&Live::on_realtime);
    kx_get_arm_event_call_back(&Live::on_event);
    start_library(KX_TRIPLE_MODE_E, verbose);
    for (size_t i = 0; i < addrs.size(); ++i) {
        auto a = std::make_unique<LiveArm>();
        a->index = static_cast<int>(i) + 1;
        if (const int rc = connect_arm(addrs[i], a->arm); rc != kOk) return rc;
        kx_robot_handle* h = a->arm.handle;
        a->handle_id = h->id;
        int rc = kx_get_DH_data(h, &a->dh);
        if (rc == 0) rc = kx_get_joint_min_pos(h, a->min_limit);
        if (rc == 0) rc = kx_get_joint_max_pos(h, a->max_limit);
        if (rc == 0) rc = kx_get_current_tool_frame(h, &a->tool);
        if (rc != 0) return report(rc, a->arm, "configuration query");
        LiveArm& ref = *a;
        {
            std::lock_guard<std::mutex> lock(mutex);
            arms.push_back(std::move(a));
        }
        if ((rc = setup_push(ref, udp_port)) != kOk) return rc;
    }
    return kOk;
}

bool Live::wait_for_states(int ms) {
    for (int waited = 0; waited < ms && !g_interrupted; waited += 10) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            bool all = true;
            for (auto& a : arms) all = all && a->have_rt;
            if (all) return true;
        }
        sleep_ms(10);
    }
    return false;
}

int Live::setup_push(LiveArm& a, int udp_port) {
    kx_robot_handle* h = a.arm.handle;
    int rc = kx_get_realtime_push(h, &a.saved_push);
    if (rc != 0) return report(rc, a.arm, "realtime push query");
    kx_realtime_push_config_t cfg = a.saved_push;
    cfg.enable = true;
    cfg.port = udp_port;
    std::snprintf(cfg.ip, sizeof cfg.ip, "%s", local_address_for(a.arm.addr).c_str());
    if (cfg.cycle < 1 || cfg.cycle > kPushCycleMax) cfg.cycle = kPushCycleMax;
    cfg.custom_config = {-1, -1, -1, -1, 1, -1};  // also say what the arm is doing
    if (a.arm.info.force_type == KX_FORCE_TYPE_P_E) cfg.force_coordinate = -1;
    rc = kx_set_realtime_push(h, cfg);
    if (rc != 0) return report(rc, a.arm, "realtime push setup");
    a.our_push = cfg;
    a.push_changed = true;
    a.push_set_at = std::chrono::steady_clock::now();
    return kOk;
}

void Live::renew_stale_push() {
    using namespace std::chrono_literals;
    const auto now = std::chrono::steady_clock::now();
    for (auto& p : arms) {
        LiveArm& a = *p;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if ((a.have_rt && now - a.rt_at < 1s) || now - a.push_set_at < 3s) continue;
        }
        a.push_set_at = now;
        const int rc = command(a, [&](kx_robot_handle* h) { return kx_set_realtime_push(h, a.our_push); });
        // Kept among the arm's events: the silence itself is over within a second.
        std::lock_guard<std::mutex> lock(mutex);
        add_event(a, rc == 0 ? std::string("state silent: push pointed back here")
                             : fmt("state silent: pointing the push back failed (%d)", rc));
    }
}

void Live::close() {
    for (auto& a : arms)
        if (a->push_changed && a->handle()) {
            kx_realtime_push_config_t back = a->saved_push;
            if (a->arm.info.force_type == KX_FORCE_TYPE_P_E) back.force_coordinate = -1;
            kx_set_realtime_push(a->handle(), back);
            a->push_changed = false;
        }
    // Joins the library's threads, so no callback runs past this point.
    stop_library();
    if (current_ == this) {
        std::lock_guard<std::mutex> lock(mutex);
        current_ = nullptr;
    }
}

void Live::on_realtime(kx_realtime_arm_joint_state_t s) {
    Live* live = current_;
    if (!live || s.errCode != 0) return;
    std::lock_guard<std::mutex> lock(live->mutex);
    if (live != current_) return;
    for (auto& a : live->arms)
        if (a->arm.addr.ip == s.arm_ip) {
            a->rt = s;
            a->have_rt = true;
            a->rt_at = std::chrono::steady_clock::now();
            ++a->count;
        }
}

void Live::on_event(kx_event_push_data_t e) {
    Live* live = current_;
    if (!live) return;
    std::string text;
    if (e.event_type == KX_CURRENT_TRAJECTORY_STATE_E)
        text = e.device == 0 ? std::string(e.trajectory_state ? "trajectory finished" : "trajectory failed")
                             : fmt("%s motion %s", device_name(e.device), e.trajectory_state ? "finished" : "failed");
    else if (e.event_type == KX_PROGRAM_RUN_FINISH_E)
        text = fmt("program %d finished", e.program_id);
    else
        return;
    std::lock_guard<std::mutex> lock(live->mutex);
    if (live != current_) return;
    for (auto& a : live->arms)
        if (a->handle_id == e.handle_id) add_event(*a, text);
}

void Live::add_event(LiveArm& a, const std::string& text) {
    a.events.push_back({now_epoch_ms(), text});
    while (a.events.size() > kEventsKept) a.events.pop_front();
}

cJSON* Live::snapshot() {
    std::lock_guard<std::mutex> lock(mutex);
    cJSON* root = cJSON_CreateObject();
    cJSON_AddNumberToObject(root, "time", std::round(now_epoch_ms()));
    cJSON* list = cJSON_AddArrayToObject(root, "arms");
    const auto now = std::chrono::steady_clock::now();
    for (auto& p : arms) {
        LiveArm& a = *p;
        const int dof = a.arm.info.arm_dof;
        cJSON* o = cJSON_CreateObject();
        cJSON_AddNumberToObject(o, "id", a.index);
        cJSON_AddStringToObject(o, "address", a.arm.addr.text.c_str());
        cJSON_AddStringToObject(o, "model", model_name(a.arm.info.arm_model));
        cJSON_AddStringToObject(o, "edition", edition_name(a.arm.info.force_type));
        cJSON_AddNumberToObject(o, "dof", dof);
        const double age = a.have_rt ? std::chrono::duration<double, std::milli>(now - a.rt_at).count() : -1;
        cJSON_AddBoolToObject(o, "online", a.have_rt && age < 1000);
        cJSON_AddNumberToObject(o, "age_ms", std::round(age));
        cJSON_AddNumberToObject(o, "samples", static_cast<double>(a.count));
        const kx_realtime_arm_joint_state_t& s = a.rt;
        cJSON_AddStringToObject(o, "status", a.have_rt ? status_name(s.arm_current_status) : "unknown");
        cJSON_AddItemToObject(o, "joints", numbers_json(s.joint_status.joint_position, dof));
        cJSON* limits = cJSON_AddObjectToObject(o, "limits");
        cJSON_AddItemToObject(limits, "min", numbers_json(a.min_limit, dof));
        cJSON_AddItemToObject(limits, "max", numbers_json(a.max_limit, dof));
        cJSON_AddItemToObject(o, "pose", json_pose(s.waypoint));
        cJSON* errors = cJSON_AddArrayToObject(o, "errors");
        for (int i = 0; i < std::min<int>(s.err.err_len, 24); ++i)
            if (s.err.err[i] != 0) cJSON_AddItemToArray(errors, cJSON_CreateNumber(s.err.err[i]));
        for (int i = 0; i < dof; ++i)
            if (s.joint_status.joint_err_code[i] != 0)
                cJSON_AddItemToArray(errors, cJSON_CreateNumber(s.joint_status.joint_err_code[i]));
        if (a.arm.info.force_type == KX_FORCE_TYPE_P_E) cJSON_AddNullToObject(o, "force");
        else cJSON_AddItemToObject(o, "force", numbers_json(s.force_sensor.force, 6));
        std::vector<float> points;
        float flange[12];
        arm_figure(a.dh, s.joint_status.joint_position, dof, points, flange);
        cJSON_AddItemToObject(o, "figure", numbers_json(points.data(), static_cast<int>(points.size())));
        cJSON_AddItemToObject(o, "flange", numbers_json(flange, 12));
        const float tool[6] = {a.tool.pose.position.x, a.tool.pose.position.y, a.tool.pose.position.z,
                               a.tool.pose.euler.rx,   a.tool.pose.euler.ry,   a.tool.pose.euler.rz};
        cJSON_AddItemToObject(o, "tool_frame", numbers_json(tool, 6));
        cJSON* events = cJSON_AddArrayToObject(o, "events");
        for (const auto& e : a.events) {
            cJSON* ev = cJSON_CreateObject();
            cJSON_AddNumberToObject(ev, "time", std::round(e.epoch_ms));
            cJSON_AddStringToObject(ev, "text", e.text.c_str());
            cJSON_AddItemToArray(events, ev);
        }
        cJSON_AddItemToArray(list, o);
    }
    return root;
}

}  // namespace kx
