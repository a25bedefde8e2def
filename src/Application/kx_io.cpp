/* Controller and tool I/O: channel modes, digital outputs, inputs and the
 * supply voltages. Several queries are answered under another name than
 * the one they were sent with. */
#include <cjson/cJSON.h>

#include "MIO_JSON.h"
#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"

using namespace kx;

namespace {

constexpr int kRealtimeSpeedMode = 14;
constexpr int kMaxIoNum = 4;

bool io_num_ok(int io_num) { return io_num >= 0 && io_num <= kMaxIoNum; }

int reject_param() {
    kx_log_error("input param error...");
    return 1;
}

/* {"command", "IO_Num", <field>} answered by the command's own name. */
struct ChannelSet {
    const char* fn;
    const char* command;
    const char* field;
};
constexpr ChannelSet kDoState{"kx_set_DO_state", "set_DO_state", "state"};
constexpr ChannelSet kToolDoState{"kx_set_tool_DO_state", "set_tool_DO_state", "state"};
constexpr ChannelSet kToolIoMode{"kx_set_tool_IO_mode", "set_tool_IO_mode", "state"};

int set_channel(const ChannelSet& s, kx_robot_handle* h, int io_num, int value) {
    Request req(s.command);
    req.num("IO_Num", io_num).num(s.field, value);
    return set_command(s.fn, h, req, s.command, "set_state");
}

/* Integer arrays of a query reply, each copied out only when all decoded. */
struct ArrayOut {
    const char* key;
    int count;
    int* out;
};
int get_arrays(const char* fn, kx_robot_handle* h, const char* command, const char* reply,
               std::initializer_list<ArrayOut> arrays) {
    KeyValue kv[2];
    int n = 0;
    for (const ArrayOut& a : arrays) {
        if (a.out == nullptr) return -1;
        kv[n++] = kv_ints(a.key, a.count);
    }
    Request req(command);
    int r = query(fn, h, req, reply, kv, n);
    if (r != 0) return r;
    n = 0;
    for (const ArrayOut& a : arrays) {
        for (int i = 0; i < a.count; ++i) a.out[i] = kv[n].data.array_value[i];
        ++n;
    }
    return 0;
}


/* An integer member that must be present and not negative. */
bool non_negative(const cJSON* obj, const char* key, int* out) {
    int v = MIO_JSON_GetObjectItemInt(obj, key);
    if (v < 0) return false;
    *out = v;
    return true;
}

}  // namespace

extern "C" {

KX_API int prase_get_IO_state(const char* msg, kx_io_get_t* config) {
    if (msg == nullptr || config == nullptr) return kUndecodable;
    cJSON* root = MIO_JSON_Parse(msg);
    if (root == nullptr) {
        kx_log_error("Error parsing JSON\n");
        return kUndecodable;
    }
    int r = -3;
    kx_io_config_t& io = config->io_config;
    if (non_negative(root, "IO_state", &config->io_state) && non_negative(root, "IO_Mode", &io.io_mode)) {
        if (io.io_mode < kRealtimeSpeedMode) {
            io.io_real_time_config_t.speed = -1;
            io.io_real_time_config_t.mode = -1;
            r = 0;
        } else if (io.io_mode == kRealtimeSpeedMode) {
            const cJSON* rt = MIO_JSON_GetObjectItem(root, "realtime_speed");
            if (non_negative(rt, "speed", &io.io_real_time_config_t.speed) &&
                non_negative(rt, "mode", &io.io_real_time_config_t.mode))
                r = 0;
        } else {
            r = 0;
        }
    }
    MIO_JSON_Delete(root);
    return r;
}

KX_API int kx_set_IO_mode(kx_robot_handle* handle, int io_num, kx_io_config_t config) {
    if (config.io_mode < 0 || config.io_mode > kRealtimeSpeedMode || !io_num_ok(io_num)) return reject_param();
    Request req("set_IO_mode");
    req.num("IO_Num", io_num).num("IO_mode", config.io_mode).limit(kReplyBuf);
    if (config.io_mode == kRealtimeSpeedMode) {
        cJSON* rt = cJSON_CreateObject();
        cJSON_AddNumberToObject(rt, "speed", config.io_real_time_config_t.speed);
        cJSON_AddNumberToObject(rt, "mode", config.io_real_time_config_t.mode);
        req.tree("realtime_speed", rt);
    }
    return set_command("kx_set_IO_mode", handle, req, "set_IO_mode", "set_state");
}

KX_API int kx_set_DO_state(kx_robot_handle* handle, int io_num, int state) {
    return set_channel(kDoState, handle, io_num, state);
}

KX_API int kx_get_IO_state(kx_robot_handle* handle, int io_num, kx_io_get_t* config) {
    static const char* const fn = "kx_get_IO_state";
    if (!io_num_ok(io_num)) return reject_param();
    if (config == nullptr) return kFailed;
    Request req("get_IO_state");
    req.num("IO_Num", io_num);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "IO_state", buf);
    if (r < 1) return r;
    return prase_get_IO_state(buf.text, config);
}

KX_API int kx_get_IO_input(kx_robot_handle* handle, int* DI_state) {
    return get_arrays("kx_get_IO_input", handle, "get_IO_input", "IO_input_state", {{"DI", 4, DI_state}});
}

KX_API int kx_get_IO_output(kx_robot_handle* handle, int* DO_state) {
    return get_arrays("kx_get_IO_output", handle, "get_IO_output", "IO_output_state", {{"DO", 4, DO_state}});
}

KX_API int kx_set_voltage(kx_robot_handle* handle, int voltage_type) {
    return set_num({"kx_set_voltage", "set_voltage", "state"}, handle, "voltage_type", voltage_type);
}

KX_API int kx_get_voltage(kx_robot_handle* handle, int* voltage_type) {
    return get_num("kx_get_voltage", handle, "get_voltage", "voltage_state", "voltage_type", voltage_type);
}

KX_API int kx_set_tool_DO_state(kx_robot_handle* handle, int io_num, int state) {
    return set_channel(kToolDoState, handle, io_num, state);
}

KX_API int kx_set_tool_IO_mode(kx_robot_handle* handle, int io_num, int io_mode) {
    return set_channel(kToolIoMode, handle, io_num, io_mode);
}

KX_API int kx_get_tool_IO_state(kx_robot_handle* handle, int* mode, int* state) {
    return get_arrays("kx_get_tool_IO_state", handle, "get_tool_IO_state", "tool_IO_state",
                      {{"IO_Mode", 2, mode}, {"IO_state", 2, state}});
}

KX_API int kx_set_tool_voltage(kx_robot_handle* handle, int voltage_type) {
    return set_num({"kx_set_tool_voltage", "set_tool_voltage", "state"}, handle, "voltage_type", voltage_type);
}

KX_API int kx_get_tool_voltage(kx_robot_handle* handle, int* voltage_type) {
    return get_num("kx_get_tool_voltage", handle, "get_tool_voltage", "tool_voltage_state", "voltage_type",
                   voltage_type);
}

}  // extern "C"
