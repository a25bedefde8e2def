/* Controller system, network and versions; the software-information query
 * also decides which arm model and force edition the connection talks to. */
#include <cjson/cJSON.h>

#include <cstddef>
#include <cstring>

#include "kx_command.h"
#include "kx_result.h"
#include "kx_reply.h"
#include "kx_commands_internal.h"

using namespace kx;

namespace {

/* Substring tests on the product string, first hit wins. Every CALD
 * variant reports as the second CALD model. */
struct ModelRule {
    const char* tag;
    kx_robot_arm_model_e model;
    int dof;
};
/* "CALD" maps to the second CALD enumerator, not the first: the interface's
 * own mapping, kept on purpose. */
constexpr ModelRule kModels[] = {
    {"AVEN", KX_MODEL_AVEN_E, 6}, {"BRIV", KX_MODEL_BRIV_E, 7},   {"CALD", KX_MODEL_CALD_II_E, 6},
    {"DUMO", KX_MODEL_DUMO_E, 6}, {"ESKA", KX_MODEL_ESKA_E, 6},   {"FIRU", KX_MODEL_FIRU_E, 7},
    {"GOLT", KX_MODEL_GOLT_E, 6},
};

struct EditionRule {
    const char* tag;
    kx_force_type_e type;
};
constexpr EditionRule kEditions[] = {
    {"-P", KX_FORCE_TYPE_P_E}, {"-QA", KX_FORCE_TYPE_QA_E}, {"-QS", KX_FORCE_TYPE_QS_E}};

/* The first rule whose tag occurs in the product string: the order of a
 * table is its priority. */
template <class Rule, size_t N>
const Rule* first_tagged(const Rule (&rules)[N], const char* product) {
    for (const Rule& rule : rules)
        if (std::strstr(product, rule.tag) != nullptr) return &rule;
    return nullptr;
}

/* The software-information members: where each is, where it goes, and its
 * two log lines. */
struct VersionField {
    const char* object; /* enclosing member, or null for the top level */
    const char* key;
    size_t offset;
    size_t size;
    const char* found;
    const char* missing;
};
#define KX_VERSION_FIELD(obj, key, member, label)                                                             \
    {obj,                                                                                                     \
     key,                                                                                                     \
     offsetof(kx_arm_software_version_t, member),                                                             \
     sizeof(kx_arm_software_version_t::member),                                                               \
     "[kx_get_arm_software_info] " label ": %s\n",                                                            \
     "[kx_get_arm_software_info] " label " parse err\n"}
const VersionField kVersionFields[] = {
    KX_VERSION_FIELD(nullptr, "Product_version", product_version, "Product version"),
    KX_VERSION_FIELD("algorithm_info", "version", algorithm_info.version, "Algorithm version"),
    KX_VERSION_FIELD("ctrl_info", "version", ctrl_info.version, "Ctrl version"),
    KX_VERSION_FIELD("ctrl_info", "build_time", ctrl_info.build_time, "Ctrl build Time"),
    KX_VERSION_FIELD("dynamic_info", "model_version", dynamic_info.model_version, "Dynamic model version"),
    KX_VERSION_FIELD("plan_info", "version", plan_info.version, "Plan version"),
    KX_VERSION_FIELD("plan_info", "build_time", plan_info.build_time, "Plan build Time"),
};
#undef KX_VERSION_FIELD

const SetSpec kPower{"kx_set_arm_power", "set_arm_power", "arm_power"};
const SetSpec kClearRuntime{"kx_clear_system_runtime", "clear_system_runtime", "clear_state"};
const SetSpec kClearOdom{"kx_clear_joint_odom", "clear_joint_odom", "clear_state"};
const SetSpec kClearErr{"kx_clear_system_err", "clear_system_err", "clear_state"};
const SetSpec kNetDefault{"kx_set_net_default", "set_net_default", "net_default_state", nullptr, 4000};
const SetSpec kWifiClose{"kx_set_wifi_close", "set_wifi_close", "wifi_close_state", nullptr, 2000};
const SetSpec kRunMode{"kx_set_arm_run_mode", "set_arm_run_mode", "mode"};

/* Interface settings the controller applies without answering. */
constexpr int kNoReplyPause = 800;

int send_pair(const char* fn, kx_robot_handle* h, const char* command, const char* k1, const char* v1,
              const char* k2, const char* v2) {
    Request req(command);
    req.str(k1, v1).str(k2, v2);
    return send_only(fn, h, req, kNoReplyPause);
}

int send_baudrate(const char* fn, kx_robot_handle* h, const char* command, int baudrate) {
    Request req(command);
    req.num("baudrate", baudrate);
    return send_only(fn, h, req, kNoReplyPause);
}

/* Decodes string members of a wireless reply into bounded fields. */
struct StrField {
    const char* key;
    char* dst;
    size_t size;
};
int decode_strings(const char* fn, const char* text, const StrField* fields, int n) {
    KeyValue kv[4];
    for (int i = 0; i < n; ++i) kv[i] = kv_str(fields[i].key);
    int r = common_json_parse(fn, text, kv, n);
    if (r == 0)
        for (int i = 0; i < n; ++i) copy_str(fields[i].dst, fields[i].size, kv[i].data.str_value);
    return r;
}

}  // namespace

extern "C" {

KX_API int parse_kx_get_arm_software_info(const char* msg, kx_arm_software_version_t* info) {
    if (msg == nullptr || info == nullptr) return -1;
    const kx::ReplyView reply(msg);
    const cJSON* root = reply.root();
    if (root == nullptr) {
        kx_log_error("[kx_get_arm_software_info] Arm software info parse err\n");
        return kUndecodable;
    }
    kx_arm_software_version_t v;
    std::memset(&v, 0, sizeof v);
    for (const VersionField& f : kVersionFields) {
        const cJSON* obj = f.object ? cJSON_GetObjectItem(root, f.object) : root;
        const cJSON* item = cJSON_GetObjectItem(obj, f.key);
        char* dst = reinterpret_cast<char*>(&v) + f.offset;
        if (cJSON_IsString(item) && item->valuestring != nullptr) {
            copy_str(dst, f.size, item->valuestring);
            kx_log_info(f.found, dst);
        } else {
            kx_log_error("%s", f.missing);
        }
    }
    *info = v;
    return 0;
}

KX_API int kx_get_arm_software_info(kx_robot_handle* handle, kx_arm_software_version_t* software_info) {
    static const char* const fn = "kx_get_arm_software_info";
    if (software_info == nullptr) return kFailed;
    Request req("get_arm_software_info");
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "arm_software_info", buf);
    if (r < 1) return r;
    r = parse_kx_get_arm_software_info(buf.text, software_info);
    if (r != 0) return r;

    int result = 0;
    if (with_record(handle, [&](kx_handle_t& rec) {
            const char* product = software_info->product_version;
            const ModelRule* model = first_tagged(kModels, product);
            if (model == nullptr) {
                kx_log_error("Unknown arm model: %s\n", product);
                result = -1;
                return;
            }
            const EditionRule* edition = first_tagged(kEditions, product);
            if (edition == nullptr) {
                kx_log_error("Unknown force type: %s\n", product);
                result = -1;
                return;
            }
            rec.arm_model = model->model;
            rec.arm_dof = model->dof;
            rec.force_type = edition->type;
        }) != 0)
        return kFailed;
    return result;
}

KX_API int kx_get_controller_state(kx_robot_handle* handle, float* voltage, float* current, float* temperature,
                                   int* err_flag) {
    if (!voltage || !current || !temperature || !err_flag) return kFailed;
    Request req("get_controller_state");
    KeyValue kv[] = {kv_int("voltage"), kv_int("current"), kv_int("temperature"), kv_int("err_flag")};
    int r = query("kx_get_controller_state", handle, req, "controller_state", kv, 4);
    if (r != 0) return r;
    *voltage = from_wire(kv[0].data.int_value, kMilli);
    *current = from_wire(kv[1].data.int_value, kMilli);
    *temperature = from_wire(kv[2].data.int_value, kMilli);
    *err_flag = kv[3].data.int_value;
    return 0;
}

KX_API int kx_set_arm_power(kx_robot_handle* handle, int arm_power) {
    return set_num(kPower, handle, "arm_power", arm_power);
}

KX_API int kx_get_arm_power_state(kx_robot_handle* handle, int* power_state) {
    return get_num("kx_get_arm_power_state", handle, "get_arm_power_state", "arm_power_state", "power_state",
                   power_state);
}

KX_API int kx_get_system_runtime(kx_robot_handle* handle, int* day, int* hour, int* min, int* sec) {
    if (!day || !hour || !min || !sec) return kFailed;
    Request req("get_system_runtime");
    KeyValue kv[] = {kv_int("day"), kv_int("hour"), kv_int("min"), kv_int("sec")};
    int r = query("kx_get_system_runtime", handle, req, "get_system_runtime", kv, 4);
    if (r != 0) return r;
    *day = kv[0].data.int_value;
    *hour = kv[1].data.int_value;
    *min = kv[2].data.int_value;
    *sec = kv[3].data.int_value;
    return 0;
}

KX_API int kx_clear_system_runtime(kx_robot_handle* handle) { return set_bare(kClearRuntime, handle); }

KX_API int kx_get_joint_odom(kx_robot_handle* handle, float* joint_odom) {
    static const JointQuery q{"kx_get_joint_odom", "get_joint_odom", "get_joint_odom", "odom", kUnscaled, nullptr};
    return get_joints(q, handle, joint_odom);
}

KX_API int kx_clear_joint_odom(kx_robot_handle* handle) { return set_bare(kClearOdom, handle); }

KX_API int kx_clear_system_err(kx_robot_handle* handle) { return set_bare(kClearErr, handle); }

KX_API int kx_set_NetIP(kx_robot_handle* handle, const char* ip) {
    if (ip == nullptr) return kFailed;
    Request req("set_NetIP");
    req.str("ip", ip);
    return set_command("kx_set_NetIP", handle, req, "set_NetIP", "status", 2000);
}

KX_API int kx_set_wifi_ap(kx_robot_handle* handle, const char* wifi_name, const char* password) {
    if (!wifi_name || !password) return kFailed;
    return send_pair("kx_set_wifi_ap", handle, "set_wifi_ap", "wifi_name", wifi_name, "password", password);
}

KX_API int kx_set_wifi_sta(kx_robot_handle* handle, const char* router_name, const char* password) {
    if (!router_name || !password) return kFailed;
    return send_pair("kx_set_wifi_sta", handle, "set_wifi_sta", "router_name", router_name, "password", password);
}

KX_API int kx_set_usb(kx_robot_handle* handle, int baudrate) {
    return send_baudrate("kx_set_usb", handle, "set_usb", baudrate);
}

KX_API int kx_set_RS485(kx_robot_handle* handle, int baudrate) {
    return send_baudrate("kx_set_RS485", handle, "set_RS485", baudrate);
}

/* ip and mask hold 16 bytes, mac 18, as in kx_wifi_net_t. */
KX_API int kx_get_wired_net(kx_robot_handle* handle, char* ip, char* mask, char* mac) {
    static const char* const fn = "kx_get_wired_net";
    if (!ip || !mask || !mac) return kFailed;
    Request req("get_wired_net");
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "get_wired_net", buf);
    if (r < 1) return r;
    const StrField fields[] = {{"ip", ip, 16}, {"mask", mask, 16}, {"mac", mac, 18}};
    return decode_strings(fn, buf.text, fields, 3);
}

KX_API int kx_get_wifi_net(kx_robot_handle* handle, kx_wifi_net_t* wifi_net) {
    static const char* const fn = "kx_get_wifi_net";
    if (wifi_net == nullptr) return kFailed;
    Request req("get_wifi_net");
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "get_wifi_net", buf);
    if (r < 1) return r;
    const StrField base[] = {{"mask", wifi_net->mask, sizeof wifi_net->mask},
                             {"ip", wifi_net->ip, sizeof wifi_net->ip},
                             {"mac", wifi_net->mac, sizeof wifi_net->mac},
                             {"mode", wifi_net->mode, sizeof wifi_net->mode}};
    r = decode_strings(fn, buf.text, base, 4);
    if (r != 0) return r;
    if (std::strcmp(wifi_net->mode, "ap") == 0) {
        KeyValue channel = kv_int("channel");
        r = common_json_parse(fn, buf.text, &channel, 1);
        if (r == 0) wifi_net->channel = channel.data.int_value;
    }
    if (std::strcmp(wifi_net->mode, "off") != 0) {
        const StrField station[] = {{"ssid", wifi_net->ssid, sizeof wifi_net->ssid},
                                    {"password", wifi_net->password, sizeof wifi_net->password}};
        r = decode_strings(fn, buf.text, station, 2);
    }
    return r;
}

KX_API int kx_set_net_default(kx_robot_handle* handle) { return set_bare(kNetDefault, handle); }

KX_API int kx_set_wifi_close(kx_robot_handle* handle) { return set_bare(kWifiClose, handle); }

KX_API int kx_get_joint_software_version(kx_robot_handle* handle, int* version) {
    static const char* const fn = "kx_get_joint_software_version";
    if (version == nullptr) return kFailed;
    Request req("get_joint_software_version");
    return query_joints(fn, handle, req, "joint_software_version", [&](int dof, const char* text) {
        KeyValue kv = kv_ints("version", dof);
        int r = common_json_parse(fn, text, &kv, 1);
        if (r == 0)
            for (int i = 0; i < dof; ++i) version[i] = kv.data.array_value[i];
        return r;
    });
}

KX_API int kx_get_tool_software_version(kx_robot_handle* handle, int* version) {
    return get_num("kx_get_tool_software_version", handle, "get_tool_software_version", "tool_software_version",
                   "version", version);
}

KX_API int kx_set_arm_run_mode(kx_robot_handle* handle, int mode) { return set_num(kRunMode, handle, "mode", mode); }

KX_API int kx_get_arm_run_mode(kx_robot_handle* handle, int* mode) {
    return get_num("kx_get_arm_run_mode", handle, "get_arm_run_mode", "get_arm_run_mode", "mode", mode);
}

}  // extern "C"
