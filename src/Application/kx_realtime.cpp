// Realtime state push: the push configuration commands, the UDP receive
// thread and the decoder of pushed state datagrams.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_core.h"
#include "kx_interface.h"
#include "log.h"
#include "udp.h"

extern "C" {
KX_API kx_realtime_arm_state_callback_ptr kx_arm_state_callback = nullptr;
}

namespace {

constexpr int kDatagram = 1024;
constexpr int kReplyBuffer = 1024;

// ---- datagram decoding -----------------------------------------------------

bool is_force_edition(kx_force_type_e type) { return type == KX_FORCE_TYPE_QA_E || type == KX_FORCE_TYPE_QS_E; }

// A required integer member; false when missing, not a number or beyond an int.
bool read_int(const cJSON* object, const char* key, int* out) {
    return kx::json_int(MIO_JSON_GetObjectItem(object, key), out);
}

bool read_scaled(const cJSON* object, const char* key, float* out, double scale) {
    int value;
    if (!read_int(object, key, &value)) return false;
    *out = static_cast<float>(value / scale);
    return true;
}

// Copies as many elements as both the wire array and the record hold; a
// non-number element reads 0, a number beyond an int fails the datagram.
template <class T, class Convert>
bool read_array(const cJSON* array, T* out, int capacity, Convert convert) {
    int i = 0;
    for (const cJSON* element = array ? array->child : nullptr; element && i < capacity;
         element = element->next, ++i) {
        int value = 0;
        if (cJSON_IsNumber(element) && !kx::json_int(element, &value)) return false;
        out[i] = convert(value);
    }
    return true;
}

const cJSON* optional_array(const cJSON* object, const char* key) {
    const cJSON* item = MIO_JSON_GetObjectItem(object, key);
    return cJSON_IsArray(item) ? item : nullptr;
}

const cJSON* optional_object(const cJSON* object, const char* key) {
    const cJSON* item = MIO_JSON_GetObjectItem(object, key);
    return cJSON_IsObject(item) ? item : nullptr;
}

// An array that must be present with exactly `size` elements.
const cJSON* exact_array(const cJSON* object, const char* key, int size) {
    const cJSON* item = MIO_JSON_GetObjectItem(object, key);
    return cJSON_IsArray(item) && MIO_JSON_GetArraySize(item) == size ? item : nullptr;
}

auto scaled(double scale) {
    return [scale](int v) { return static_cast<float>(v / scale); };
}
auto as_int = [](int v) { return v; };

bool decode_hand(const cJSON* hand, kx_udp_hand_state_t& out) {
    struct Field {
        const char* key;
        int* target;
    } fields[] = {{"hand_pos", out.hand_pos}, {"hand_angle", out.hand_angle},
                  {"hand_force", out.hand_force}, {"hand_state", out.hand_state}};
    for (const Field& field : fields) {
        const cJSON* array = MIO_JSON_GetObjectItem(hand, field.key);
        if (!cJSON_IsArray(array) || !read_array(array, field.target, 6, as_int)) return false;
    }
    return read_int(hand, "hand_err", &out.hand_err);
}

bool decode_lift(const cJSON* lift, kx_udp_lift_state_t& out) {
    return read_scaled(lift, "pos", &out.pos, 1000.0) && read_int(lift, "height", &out.height) &&
           read_int(lift, "current", &out.current) && read_int(lift, "err_flag", &out.err_flag) &&
           read_int(lift, "en_flag", &out.en_flag);
}

bool decode_expand(const cJSON* expand, kx_udp_expand_state_t& out) {
    return read_int(expand, "joint_id", &out.joint_id) && read_int(expand, "mode", &out.mode) &&
           read_scaled(expand, "pos", &out.pos, 1000.0) && read_int(expand, "current", &out.current) &&
           read_int(expand, "err_flag", &out.err_flag) && read_int(expand, "en_flag", &out.en_flag);
}

bool decode_joints(const cJSON* joints, kx_joint_status_t& out) {
    return read_array(optional_array(joints, "joint_position"), out.joint_position, 7, scaled(1000.0)) &&
           read_array(optional_array(joints, "joint_current"), out.joint_current, 7, scaled(1000.0)) &&
           read_array(optional_array(joints, "joint_en_flag"), out.joint_en_flag, 7, [](int v) { return v != 0; }) &&
           read_array(optional_array(joints, "joint_err_code"), out.joint_err_code, 7,
                      [](int v) { return static_cast<uint16_t>(v); }) &&
           read_array(optional_array(joints, "joint_temperature"), out.joint_temperature, 7, scaled(1000.0)) &&
           read_array(optional_array(joints, "joint_voltage"), out.joint_voltage, 7, scaled(1000.0)) &&
           read_array(optional_array(joints, "joint_speed"), out.joint_speed, 7,
                      [](int v) { return static_cast<float>(v * 6.0 / 1000.0); });
}

// The sensor's members are optional; one that is present must fit.
bool decode_force(const cJSON* sensor, kx_force_sensor_t& out) {
    if (!sensor) return true;
    if (!read_array(optional_array(sensor, "force"), out.force, 6, scaled(1000.0)) ||
        !read_array(optional_array(sensor, "zero_force"), out.zero_force, 6, scaled(1000.0)))
        return false;
    const cJSON* coordinate = MIO_JSON_GetObjectItem(sensor, "coordinate");
    return !cJSON_IsNumber(coordinate) || kx::json_int(coordinate, &out.coordinate);
}

bool decode_waypoint(const cJSON* waypoint, kx_pose_t& out) {
    const cJSON* quat = exact_array(waypoint, "quat", 4);
    if (!quat) return false;
    float q[4];
    if (!read_array(quat, q, 4, scaled(1000000.0))) return false;
    out.quaternion = {q[0], q[1], q[2], q[3]};
    const cJSON* euler = exact_array(waypoint, "euler", 3);
    if (!euler) return false;
    float e[3];
    if (!read_array(euler, e, 3, scaled(1000.0))) return false;
    out.euler = {e[0], e[1], e[2]};
    const cJSON* position = exact_array(waypoint, "position", 3);
    if (!position) return false;
    float p[3];
    if (!read_array(position, p, 3, scaled(1000000.0))) return false;
    out.position = {p[0], p[1], p[2]};
    return true;
}

int decode_state(const cJSON* root, kx_realtime_arm_joint_state_t* state) {
    if (const cJSON* aloha = optional_object(root, "aloha_state")) {
        if (!read_int(aloha, "io1_state", &state->aloha_state.io1_state) ||
            !read_int(aloha, "io2_state", &state->aloha_state.io2_state))
            return kx::kUndecodable;
    }
    if (const cJSON* status = MIO_JSON_GetObjectItem(root, "arm_current_status")) {
        if (!cJSON_IsString(status)) return kx::kUndecodable;
        state->arm_current_status = get_arm_status_from_string(status->valuestring);
    }
    if (const cJSON* hand = optional_object(root, "hand"); hand && !decode_hand(hand, state->handState)) return kx::kUndecodable;
    if (const cJSON* lift = optional_object(root, "lift_state"); lift && !decode_lift(lift, state->liftState))
        return kx::kUndecodable;
    if (const cJSON* expand = optional_object(root, "expand_state");
        expand && !decode_expand(expand, state->expandState))
        return kx::kUndecodable;
    const cJSON* joints = optional_object(root, "joint_status");
    if (!joints) return kx::kUndecodable;
    if (!decode_joints(joints, state->joint_status) ||
        !decode_force(optional_object(root, "six_force_sensor"), state->force_sensor) ||
        !decode_force(optional_object(root, "one_force_sensor"), state->force_sensor))
        return kx::kUndecodable;
    const cJSON* waypoint = optional_object(root, "waypoint");
    if (!waypoint || !decode_waypoint(waypoint, state->waypoint)) return kx::kUndecodable;
    const cJSON* err = optional_array(root, "err");
    int size = MIO_JSON_GetArraySize(err);
    if (size < 1) return kx::kUndecodable;
    int len = std::min(size, static_cast<int>(sizeof state->err.err / sizeof(int)));
    state->err.err_len = static_cast<uint8_t>(len);
    return read_array(err, state->err.err, len, as_int) ? 0 : -3;
}

// ---- UDP receive thread ----------------------------------------------------

bool registered(int fd) {
    if (!gUdpHandle) return false;
    for (const auto& entry : gUdpHandle->udp_list)
        if (entry.user_num != 0 && entry.udp_id == fd) return true;
    return false;
}

// Decodes and delivers every datagram waiting on one port.
void drain_port(int fd, kx_realtime_arm_joint_state_t& state, char* buf) {
    while (registered(fd)) {
        struct sockaddr_in from = {};
        socklen_t from_len = sizeof from;
        memset(buf, 0, kDatagram + 1);
        ssize_t n = recvfrom(fd, buf, kDatagram, MSG_DONTWAIT, reinterpret_cast<struct sockaddr*>(&from), &from_len);
        if (n < 0 && errno == EINTR) continue;
        if (n < 1) return;
        state.errCode = parse_kx_realtime_arm_joint_state(buf, &state);
        inet_ntop(AF_INET, &from.sin_addr, state.arm_ip, sizeof state.arm_ip);
        kx::dispatch_state(state);
    }
}

void run_udp_receiver() {
    kx_realtime_arm_joint_state_t state = {};
    std::vector<char> buf(kDatagram + 1);
    struct epoll_event events[8];
    while (!kx::stopping()) {
        int n = epoll_wait(kx::udp::epoll_fd(), events, 8, -1);
        if (n < 0) {
            if (errno != EINTR) sleep_cp(1);  // never spin on a persistent error
            continue;
        }
        // Held while reading, so no port is closed (and its number reused) mid-read.
        std::lock_guard lock(kx::udp::registry_mutex());
        for (int i = 0; i < n; ++i) {
            if (events[i].data.fd == kx::udp::wake_fd())
                kx::udp::drain_wake();
            else
                drain_port(events[i].data.fd, state, buf.data());
        }
    }
    // The ports are released with their connections (delete or shutdown).
}

int read_push(kx_robot_handle* handle, kx_realtime_push_config_t* config, bool* bound);

// Boolean member of the "custom" object as 1 / 0, or -1 when missing.
int custom_flag(const cJSON* custom, const char* key) { return MIO_JSON_GetObjectItemBool(custom, key); }

}  // namespace

extern "C" {

KX_API void kx_realtime_arm_state_call_back(kx_realtime_arm_state_callback_ptr realtime_callback) {
    if (realtime_callback) __atomic_store_n(&kx_arm_state_callback, realtime_callback, __ATOMIC_RELEASE);
}

KX_API void* thread_udp_receive(void*) { return kx::run_thread("thread_udp_receive", run_udp_receiver); }

KX_API kx_udp_arm_current_status_e get_arm_status_from_string(const char* status) {
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
    for (size_t i = 0; status && i < sizeof kNames / sizeof kNames[0]; ++i)
        if (strcmp(status, kNames[i]) == 0) return static_cast<kx_udp_arm_current_status_e>(i);
    return KX_IDLE_E;
}

KX_API int parse_kx_realtime_arm_joint_state(const char* json_str, kx_realtime_arm_joint_state_t* robotstate) {
    if (!robotstate) return kx::kUndecodable;
    memset(robotstate, 0, sizeof *robotstate);
    cJSON* root = MIO_JSON_Parse(json_str);
    if (!root) {
        kx_log_error("[kx_realtime_arm_joint_state] parse err\n");
        return kx::kUndecodable;
    }
    int result = decode_state(root, robotstate);
    MIO_JSON_Delete(root);
    return result;
}

KX_API int kx_set_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t config) {
    static const char* const kCaller = "kx_set_realtime_push";
    kx_robot_info_t info = {};
    kx_get_robot_info(handle, &info);
    if (config.cycle < 1) {
        kx_log_error("[%s] set realtime push config error, invaild cycle: %d!\n", kCaller, config.cycle);
        return kx::kInvalidConfig;
    }
    if (config.port < 1) {
        kx_log_error("[%s] set realtime push config error, invaild port:%d !\n", kCaller, config.port);
        return kx::kInvalidConfig;
    }
    size_t ip_len = strnlen(config.ip, sizeof config.ip);
    if (ip_len < 7 || ip_len > 15) {
        kx_log_error("[%s] set realtime push config error, invaild ip: %.*s!\n", kCaller,
                     kx::field_len(config.ip, sizeof config.ip), config.ip);
        return kx::kInvalidConfig;
    }
    char ip[sizeof config.ip + 1] = {};
    memcpy(ip, config.ip, ip_len);

    JsonValue rows[7] = {};
    size_t count = 0;
    rows[count++] = {JSON_STRING, "command", 0, {.str_value = "set_realtime_push"}};
    rows[count++] = {JSON_BOOL, "enable", 0, {.bool_value = config.enable}};
    rows[count++] = {JSON_INT, "cycle", 0, {.int_value = config.cycle}};
    rows[count++] = {JSON_INT, "port", 0, {.int_value = config.port}};
    rows[count++] = {JSON_STRING, "ip", 0, {.str_value = ip}};
    bool force_sent = is_force_edition(info.force_type) && config.force_coordinate >= 0;
    if (force_sent) rows[count++] = {JSON_INT, "force_cordinate", 0, {.int_value = config.force_coordinate}};
    if (config.force_coordinate != -1 && !force_sent) kx_log_info("[%s]Force sensors are not supported! \n", kCaller);

    const kx_udp_custom_config_t& custom = config.custom_config;
    const struct {
        const char* key;
        int value;
    } members[] = {{"joint_speed", custom.joint_speed},     {"lift_state", custom.lift_state},
                   {"expand_state", custom.expand_state},   {"arm_current_status", custom.arm_current_status},
                   {"aloha_state", custom.aloha_state},     {"hand", custom.hand_state}};
    cJSON* object = MIO_JSON_CreateObject();
    for (const auto& member : members)
        if (member.value >= 0) cJSON_AddBoolToObject(object, member.key, member.value != 0);
    if (MIO_JSON_GetArraySize(object) > 0) {
        rows[count++] = {JSON_OBJECT, "custom", 0, {.sub_json = object}};
    } else {
        MIO_JSON_Delete(object);
    }

    uint8_t buf[kReplyBuffer] = {};
    int result = kx_pack_lock_set(kCaller, handle, rows, count, "set_realtime_push", buf, sizeof buf, m_nOutTime);
    if (result < 1) return result;
    result = parse_kx_set_command(kCaller, reinterpret_cast<char*>(buf), "state");
    if (result != 0) return result;
    kx_realtime_push_config_t current = {};
    bool bound = true;
    result = read_push(handle, &current, &bound);
    if (result == 0 && !bound) {
        kx_log_error("[%s] udp port %d cannot be bound\n", kCaller, current.port);
        return kx::kFailed;
    }
    return result;
}

KX_API int kx_get_realtime_push(kx_robot_handle* handle, kx_realtime_push_config_t* config) {
    bool bound = true;
    int result = read_push(handle, config, &bound);
    if (result == 0 && !bound) kx_log_error("[%s] udp port %d cannot be bound\n", "kx_get_realtime_push", config->port);
    return result;
}

}  // extern "C"

namespace {

// Reads the push configuration, and in triple mode listens on its port;
// `bound` tells whether that port could be bound.
int read_push(kx_robot_handle* handle, kx_realtime_push_config_t* config, bool* bound) {
    static const char* const kCaller = "kx_get_realtime_push";
    if (!config) return -1;
    kx_robot_info_t info = {};
    kx_get_robot_info(handle, &info);
    bool force = is_force_edition(info.force_type);

    JsonValue request[] = {{JSON_STRING, "command", 0, {.str_value = "get_realtime_push"}}};
    uint8_t buf[kReplyBuffer] = {};
    int result = kx_pack_lock_set(kCaller, handle, request, 1, "get_realtime_push", buf, sizeof buf, m_nOutTime);
    if (result < 1) return result;

    enum { kCycle, kPort, kIp, kEnable, kCustom, kForce };
    KeyValue reply[6] = {};
    const struct {
        JsonValueType type;
        const char* key;
    } rows[] = {{JSON_INT, "cycle"},   {JSON_INT, "port"},     {JSON_STRING, "ip"},
                {JSON_BOOL, "enable"}, {JSON_OBJECT, "custom"}, {JSON_INT, "force_coordinate"}};
    for (int i = 0; i < 6; ++i) {
        reply[i].type = rows[i].type;
        reply[i].key = rows[i].key;
    }
    result = common_json_parse(kCaller, reinterpret_cast<char*>(buf), reply, force ? 6 : 5);
    cJSON* custom = reply[kCustom].data.sub_json;
    if (result != 0) {
        MIO_JSON_Delete(custom);
        return result;
    }
    const int port = reply[kPort].data.int_value;
    kx_rdlock_lock();
    kx_handle_t* record = kx_get_kx_handle_by_robot_handle(handle);
    if (record) __atomic_store_n(&record->udp_port, port, __ATOMIC_RELEASE);
    kx_rdlock_unlock();
    if (!record) {
        kx_log_error("[%s] handle is NULL!\n", kCaller);
        MIO_JSON_Delete(custom);
        return -1;
    }
    kx_udp_custom_config_t& out = config->custom_config;
    out.expand_state = custom_flag(custom, "expand_state");
    out.lift_state = custom_flag(custom, "lift_state");
    out.joint_speed = custom_flag(custom, "joint_speed");
    out.arm_current_status = custom_flag(custom, "arm_current_status");
    out.aloha_state = custom_flag(custom, "aloha_state");
    out.hand_state = custom_flag(custom, "hand");
    MIO_JSON_Delete(custom);

    config->cycle = reply[kCycle].data.int_value;
    config->port = port;
    memcpy(config->ip, reply[kIp].data.str_value, sizeof config->ip);
    config->enable = reply[kEnable].data.bool_value;
    config->force_coordinate = force ? reply[kForce].data.int_value : -1;
    kx_log_info("current thread mode %d realtime push config.enable: %d\n", static_cast<int>(g_mode),
                config->enable ? 1 : 0);
    if (config->enable && g_mode == KX_TRIPLE_MODE_E && gUdpHandle) {
        int added = gUdpHandle->udp_add_port(gUdpHandle, port);
        kx_log_info("udp add port %d result: %d\n", port, added);
        if (added == 0 || added == 1) kx::note_udp_port(handle, port);
        *bound = added != -1;
    }
    return 0;
}

}  // namespace
