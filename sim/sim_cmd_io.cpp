// Controller and tool I/O: channel modes, outputs, inputs, supply voltages.
// Channels are numbered 1..4 (tool: 1..2), as on the controller's panel.
#include <cmath>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

/* Controller I/O: four channels, the tool's two, and the supply voltages.
 * Mode 0 is a digital input, 1 a digital output; the others are the
 * controller's special modes (14: realtime speed, with its speed and mode). */
struct IoState {
    static constexpr int kChannels = 4, kToolChannels = 2;
    int mode[kChannels] = {1, 1, 0, 0};
    int out[kChannels] = {};
    int in[kChannels] = {}; /* driven from outside */
    int rt_speed[kChannels] = {}, rt_mode[kChannels] = {};
    int voltage = 2; /* 0 0 V, 1 5 V (not offered), 2 12 V, 3 24 V */
    int tool_mode[kToolChannels] = {};
    int tool_out[kToolChannels] = {}, tool_in[kToolChannels] = {};
    int tool_voltage = 0;
};


constexpr int kRealtimeSpeedMode = 14;
constexpr int kOutputMode = 1; /* 0 input, 1 output, 2..14 special */

IoState& io_of(ArmState& a) { return a.family_state<IoState>(); }

/* The 0-based index of channel "IO_Num" (1..n), or -1 (noted). */
int channel(Ctx& c, int n) {
    int k = 0;
    return c.int_in("IO_Num", 1, n, k) ? k - 1 : -1;
}

bool binary(const cJSON* req, const char* key, int& out) { return get_int(req, key, out) && (out == 0 || out == 1); }

void set_io_mode(Ctx& c) {
    IoState& io = io_of(c.arm);
    const int k = channel(c, IoState::kChannels);
    int mode = -1, speed = 0, rt_mode = 0;
    bool ok = k >= 0 && c.int_in("IO_mode", 0, kRealtimeSpeedMode, mode);
    if (ok && mode == kRealtimeSpeedMode) {
        const cJSON* rt = cJSON_GetObjectItemCaseSensitive(c.req, "realtime_speed");
        ok = get_int(rt, "speed", speed) && get_int(rt, "mode", rt_mode) && speed >= 0 && rt_mode >= 0;
    }
    if (ok) {
        io.mode[k] = mode;
        io.rt_speed[k] = speed;
        io.rt_mode[k] = rt_mode;
    }
    c.verdict("set_state", ok);
}

/* An output is driven only on a channel in output mode. */
void set_do_state(Ctx& c) {
    IoState& io = io_of(c.arm);
    const int k = channel(c, IoState::kChannels);
    int v = 0;
    const bool ok = k >= 0 && io.mode[k] == kOutputMode && binary(c.req, "state", v);
    if (ok) io.out[k] = v;
    c.verdict("set_state", ok);
}

/* An input channel reports its input, every other mode its output. */
void get_io_state(Ctx& c) {
    const IoState& io = io_of(c.arm);
    const int k = channel(c, IoState::kChannels);
    if (k < 0) return c.verdict("set_state", false, "IO_state");
    cJSON* r = c.answer("IO_state");
    add_int(r, "IO_state", io.mode[k] == 0 ? io.in[k] : io.out[k]);
    add_int(r, "IO_Mode", io.mode[k]);
    if (io.mode[k] == kRealtimeSpeedMode) {
        cJSON* rt = cJSON_CreateObject();
        add_int(rt, "speed", io.rt_speed[k]);
        add_int(rt, "mode", io.rt_mode[k]);
        cJSON_AddItemToObject(r, "realtime_speed", rt);
    }
}

void get_io_input(Ctx& c) { add_ints(c.answer("IO_input_state"), "DI", io_of(c.arm).in, IoState::kChannels); }
void get_io_output(Ctx& c) { add_ints(c.answer("IO_output_state"), "DO", io_of(c.arm).out, IoState::kChannels); }

/* Supply voltages: the controller offers 0, 12 and 24 V (types 0, 2, 3),
 * the tool 0, 5, 12 and 24 V (0..3). */
void set_voltage(Ctx& c, int IoState::*member, bool tool) {
    int v = -1;
    const bool ok = c.int_in("voltage_type", 0, 3, v) && c.check(tool || v != 1, "5 V is offered on the tool only");
    if (ok) io_of(c.arm).*member = v;
    c.verdict("state", ok);
}
void set_controller_voltage(Ctx& c) { set_voltage(c, &IoState::voltage, false); }
void set_tool_voltage(Ctx& c) { set_voltage(c, &IoState::tool_voltage, true); }
void get_voltage(Ctx& c) { add_int(c.answer("voltage_state"), "voltage_type", io_of(c.arm).voltage); }
void get_tool_voltage(Ctx& c) { add_int(c.answer("tool_voltage_state"), "voltage_type", io_of(c.arm).tool_voltage); }

/* Tool channels: mode 0 input, 1 output. */
void set_tool_do(Ctx& c) {
    IoState& io = io_of(c.arm);
    const int k = channel(c, IoState::kToolChannels);
    int v = 0;
    const bool ok = k >= 0 && io.tool_mode[k] == kOutputMode && binary(c.req, "state", v);
    if (ok) io.tool_out[k] = v;
    c.verdict("set_state", ok);
}

void set_tool_mode(Ctx& c) {
    IoState& io = io_of(c.arm);
    const int k = channel(c, IoState::kToolChannels);
    int v = 0;
    const bool ok = k >= 0 && binary(c.req, "state", v);
    if (ok) io.tool_mode[k] = v;
    c.verdict("set_state", ok);
}

void get_tool_io(Ctx& c) {
    const IoState& io = io_of(c.arm);
    int state[IoState::kToolChannels];
    for (int k = 0; k < IoState::kToolChannels; ++k)
        state[k] = io.tool_mode[k] == kOutputMode ? io.tool_out[k] : io.tool_in[k];
    cJSON* r = c.answer("tool_IO_state");
    add_ints(r, "IO_Mode", io.tool_mode, IoState::kToolChannels);
    add_ints(r, "IO_state", state, IoState::kToolChannels);
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["set_IO_mode"] = set_io_mode;
    t["set_DO_state"] = set_do_state;
    t["get_IO_state"] = get_io_state;
    t["get_IO_input"] = get_io_input;
    t["get_IO_output"] = get_io_output;
    t["set_voltage"] = set_controller_voltage;
    t["get_voltage"] = get_voltage;
    t["set_tool_DO_state"] = set_tool_do;
    t["set_tool_IO_mode"] = set_tool_mode;
    t["get_tool_IO_state"] = get_tool_io;
    t["set_tool_voltage"] = set_tool_voltage;
    t["get_tool_voltage"] = get_tool_voltage;
}

/* Drives input (args: channel 1..n, value 0 or 1) from outside. */
bool drive_input(int* inputs, int n, const std::vector<double>& args) {
    if (args.size() != 2) return false;
    const double channel = args[0], value = args[1];
    if (!(channel >= 1 && channel <= n && channel == std::floor(channel)) || (value != 0 && value != 1)) return false;
    inputs[static_cast<int>(channel) - 1] = static_cast<int>(value);
    return true;
}

}  // namespace

const Family io_family{
    "io", commands, nullptr, nullptr, nullptr,
    {{"digital_input",
      [](ArmState& a, const std::vector<double>& v) { return drive_input(io_of(a).in, IoState::kChannels, v); }},
     {"tool_digital_input", [](ArmState& a, const std::vector<double>& v) {
          return drive_input(io_of(a).tool_in, IoState::kToolChannels, v);
      }}}};

}  // namespace kxsim
