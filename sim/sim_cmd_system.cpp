// The controller as a machine: power, runtime, odometry, errors, network
// interfaces, run mode and software versions.
#include <cmath>

#include <climits>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

const char* const kDefaultNetIp = "192.168.1.18";

void set_power(Ctx& c) {
    int p = -1;
    const bool ok = c.int_in("arm_power", 0, 1, p);
    if (ok) {
        ArmState& a = c.arm;
        a.power = p;
        if (p == 0) a.stop(false, c.now, c.events);
        for (int i = 0; i < a.dof; ++i) a.brake_state[i] = p ? 0 : 1;
    }
    c.verdict("arm_power", ok);
}

void controller_state(Ctx& c) {
    cJSON* r = c.answer("controller_state");
    add_int(r, "voltage", c.arm.power ? 48000 : 0);
    add_int(r, "current", c.arm.power ? 1500 : 0);
    add_int(r, "temperature", 38000);
    add_int(r, "err_flag", c.arm.errors.empty() ? 0 : 1);
}

void system_runtime(Ctx& c) {
    const long s = static_cast<long>(c.now - c.arm.runtime_origin);
    cJSON* r = c.answer();
    add_int(r, "day", static_cast<int>(s / 86400));
    add_int(r, "hour", static_cast<int>(s / 3600 % 24));
    add_int(r, "min", static_cast<int>(s / 60 % 60));
    add_int(r, "sec", static_cast<int>(s % 60));
}

void joint_odom(Ctx& c) {
    WireJoints w{};
    for (int i = 0; i < c.arm.dof; ++i) w[i] = static_cast<int>(std::lround(c.arm.odom[i]));
    add_ints(c.answer(), "odom", w.data(), static_cast<size_t>(c.arm.dof));
}

const struct Clearing {
    const char* cmd;
    void (*act)(Ctx&);
} kClearings[] = {
    {"clear_system_runtime", [](Ctx& c) { c.arm.runtime_origin = c.now; }},
    {"clear_joint_odom", [](Ctx& c) { c.arm.odom = Joints{}; }},
    {"clear_system_err",
     [](Ctx& c) {
         c.arm.errors.clear();
         c.arm.err_flag = WireJoints{};
     }},
};

void clearing(Ctx& c) {
    for (const auto& k : kClearings)
        if (c.cmd == k.cmd) k.act(c);
    c.verdict("clear_state", true);
}

void set_net_ip(Ctx& c) {
    std::string ip;
    const bool ok = c.get_str("ip", ip) && valid_ip(ip);
    if (ok) c.arm.net_ip = ip;
    c.verdict("status", ok);
}

/* Wi-Fi access point or station: a name and a password of 8 or more characters. */
void set_wifi(Ctx& c, const char* name_key, const char* mode) {
    std::string name, password;
    const bool ok = c.get_str(name_key, name) && !name.empty() && name.size() < 32 &&
                    c.get_str("password", password) && password.size() >= 8 && password.size() < 16;
    if (ok) {
        c.arm.wifi_mode = mode;
        c.arm.wifi_ssid = name;
        c.arm.wifi_password = password;
        c.arm.wifi_ip = *mode == 'a' ? "192.168.33.80" : "192.168.10.80";
    }
    c.verdict("set_state", ok);
}

void set_baudrate(Ctx& c, int ArmState::*member) {
    int b = 0;
    const bool ok = c.int_in("baudrate", 1, INT_MAX, b);
    if (ok) c.arm.*member = b;
    c.verdict("set_state", ok);
}

void wired_net(Ctx& c) {
    cJSON* r = c.answer();
    add_str(r, "ip", c.arm.net_ip);
    add_str(r, "mask", c.arm.net_mask);
    add_str(r, "mac", c.arm.net_mac);
}

void wifi_net(Ctx& c) {
    const ArmState& a = c.arm;
    cJSON* r = c.answer();
    add_str(r, "ip", a.wifi_ip);
    add_str(r, "mask", "255.255.255.0");
    add_str(r, "mac", "02:00:00:00:00:02");
    add_str(r, "mode", a.wifi_mode);
    if (a.wifi_mode == "ap") add_int(r, "channel", a.wifi_channel);
    if (a.wifi_mode != "off") {
        add_str(r, "ssid", a.wifi_ssid);
        add_str(r, "password", a.wifi_password);
    }
}

void wifi_off(ArmState& a) {
    a.wifi_mode = "off";
    a.wifi_ssid.clear();
    a.wifi_password.clear();
    a.wifi_ip = "0.0.0.0";
}

void net_default(Ctx& c) {
    c.arm.net_ip = kDefaultNetIp;
    wifi_off(c.arm);
    c.verdict("net_default_state", true);
}

void wifi_close(Ctx& c) {
    wifi_off(c.arm);
    c.verdict("wifi_close_state", true);
}

void joint_software_version(Ctx& c) {
    WireJoints v{};
    for (int i = 0; i < c.arm.dof; ++i) v[i] = 4102;
    add_ints(c.answer("joint_software_version"), "version", v.data(), static_cast<size_t>(c.arm.dof));
}

void software_info(Ctx& c) {
    cJSON* r = c.answer("arm_software_info");
    add_str(r, "Product_version", c.arm.product);
    auto object = [r](const char* key) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddItemToObject(r, key, o);
        return o;
    };
    add_str(object("algorithm_info"), "version", "1.4.2");
    cJSON* ctrl = object("ctrl_info");
    add_str(ctrl, "build_time", "2024-05-10 09:30:00");
    add_str(ctrl, "version", "1.7.0");
    add_str(object("dynamic_info"), "model_version", "1.0");
    cJSON* plan = object("plan_info");
    add_str(plan, "build_time", "2024-05-10 09:30:00");
    add_str(plan, "version", "1.7.0");
}

const IntSetting kSettings[] = {
    {nullptr, nullptr, nullptr, nullptr, "get_arm_power_state", "arm_power_state", "power_state", &ArmState::power,
     0, 1},
    {"set_arm_run_mode", "mode", nullptr, "mode", "get_arm_run_mode", "get_arm_run_mode", "mode",
     &ArmState::run_mode, 0, 2},
    {nullptr, nullptr, nullptr, nullptr, "get_tool_software_version", "tool_software_version", "version",
     &ArmState::tool_version, 0, 0},
};

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["set_arm_power"] = set_power;
    t["get_controller_state"] = controller_state;
    t["get_system_runtime"] = system_runtime;
    t["get_joint_odom"] = joint_odom;
    for (const auto& k : kClearings) t[k.cmd] = clearing;
    t["set_NetIP"] = set_net_ip;
    t["set_wifi_ap"] = [](Ctx& c) { set_wifi(c, "wifi_name", "ap"); };
    t["set_wifi_sta"] = [](Ctx& c) { set_wifi(c, "router_name", "sta"); };
    t["set_usb"] = [](Ctx& c) { set_baudrate(c, &ArmState::usb_baudrate); };
    t["set_RS485"] = [](Ctx& c) { set_baudrate(c, &ArmState::rs485_baudrate); };
    t["get_wired_net"] = wired_net;
    t["get_wifi_net"] = wifi_net;
    t["set_net_default"] = net_default;
    t["set_wifi_close"] = wifi_close;
    t["get_joint_software_version"] = joint_software_version;
    t["get_arm_software_info"] = software_info;
    add_int_settings(t, kSettings, sizeof kSettings / sizeof kSettings[0]);
}

}  // namespace

const Family system_family{"system", commands};

}  // namespace kxsim
