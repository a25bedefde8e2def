// RS485 port modes and the emulated Modbus slave: device address 1 answers
// behind every port opened as a master; any other address times out, which
// the controller reports as a failed read or write.
#include <climits>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

/* RS485 ports and the emulated Modbus slave at device address 1 behind
 * every master port (0 controller RS485, 1 tool RS485, 2 the TCP link). */
struct ModbusState {
    static constexpr int kSlave = 1, kTable = 1000;
    static constexpr int kTcpPort = 2;
    struct Rtu {
        bool master = false;
        int baudrate = 115200, timeout = 0;
    } rtu[2];
    bool tcp = false;
    std::string tcp_ip;
    int tcp_port = 0, tcp_timeout = 0;
    std::vector<int> coils = std::vector<int>(kTable), inputs = std::vector<int>(kTable);
    std::vector<int> holding = std::vector<int>(kTable), input_regs = std::vector<int>(kTable);
};

ModbusState& modbus_of(ArmState& a) { return a.family_state<ModbusState>(); }


using Table = std::vector<int> ModbusState::*;

bool rtu_port(const cJSON* req, int& port) { return get_int(req, "port", port) && (port == 0 || port == 1); }

void set_modbus_mode(Ctx& c) {
    int port = -1, baud = 0, timeout = 0;
    const bool ok = rtu_port(c.req, port) && c.int_in("baudrate", 1, INT_MAX, baud) &&
                    c.int_in("timeout", 0, INT_MAX, timeout);
    if (ok) modbus_of(c.arm).rtu[port] = {true, baud, timeout};
    c.verdict("set_state", ok);
}

void close_modbus_mode(Ctx& c) {
    int port = -1;
    const bool ok = rtu_port(c.req, port);
    if (ok) modbus_of(c.arm).rtu[port].master = false;
    c.verdict("set_state", ok);
}

void set_modbustcp_mode(Ctx& c) {
    ModbusState& m = modbus_of(c.arm);
    std::string ip;
    int port = 0, timeout = 0;
    const bool ok = c.get_str("ip", ip) && c.check(valid_ip(ip), "\"ip\" is not a dotted-quad address") &&
                    c.int_in("port", 1, 65535, port) && c.int_in("timeout", 0, INT_MAX, timeout);
    if (ok) {
        m.tcp = true;
        m.tcp_ip = ip;
        m.tcp_port = port;
        m.tcp_timeout = timeout;
    }
    c.verdict("set_state", ok);
}

void close_modbustcp_mode(Ctx& c) {
    modbus_of(c.arm).tcp = false;
    c.verdict("set_state", true);
}

/* Mode 1 is a Modbus RTU master, 0 a plain RS485 port (no Modbus timeout). */
void rs485_mode(Ctx& c, int port, const char* mode_key) {
    const ModbusState::Rtu& p = modbus_of(c.arm).rtu[port];
    cJSON* r = c.answer();
    add_int(r, mode_key, p.master ? 1 : 0);
    add_int(r, "baudrate", p.master ? p.baudrate : c.arm.rs485_baudrate);
    if (p.master) add_int(r, "modbus_timeout", p.timeout);
}
void controller_rs485(Ctx& c) { rs485_mode(c, 0, "controller_RS485_mode"); }
void tool_rs485(Ctx& c) { rs485_mode(c, 1, "tool_RS485_mode"); }

/* ---- the slave ---- */

/* One access: which table, how many items, how data travels. */
struct Access {
    const char* cmd;
    Table table;
    bool coil;     /* one bit per item, else 16-bit registers */
    bool write;
    bool has_num;  /* "num" in the request, else one item */
    bool array;    /* data as an array (bytes), else one integer */
    const char* verdict;
};

const Access kAccesses[] = {
    {"read_coils", &ModbusState::coils, true, false, true, false, "read_state"},
    {"read_input_status", &ModbusState::inputs, true, false, true, false, "read_state"},
    {"read_holding_registers", &ModbusState::holding, false, false, false, false, "read_state"},
    {"read_input_registers", &ModbusState::input_regs, false, false, false, false, "read_state"},
    {"read_multiple_coils", &ModbusState::coils, true, false, true, true, "read_state"},
    {"read_multiple_holding_registers", &ModbusState::holding, false, false, true, true, "read_state"},
    {"read_multiple_input_registers", &ModbusState::input_regs, false, false, true, true, "read_state"},
    {"write_single_coil", &ModbusState::coils, true, true, false, false, "write_state"},
    {"write_single_register", &ModbusState::holding, false, true, false, false, "write_state"},
    {"write_coils", &ModbusState::coils, true, true, true, true, "write_state"},
    {"write_registers", &ModbusState::holding, false, true, true, true, "write_state"},
};

/* Whether the port is an open master link and the slave answers there. */
/* Whether `device` answers behind `port`; notes why not. */
bool reachable(Ctx& c, const ModbusState& m, int port, int device) {
    const bool open = (port == 0 || port == 1) ? m.rtu[port].master : (port == ModbusState::kTcpPort && m.tcp);
    return c.check(open, "the port is not open as a Modbus master") &&
           c.check(device == ModbusState::kSlave, "no device answers at that address (the emulated slave is at 1)");
}

/* Coils pack into bytes, first coil in the lowest bit; registers into
 * two bytes each, high byte first. */
std::vector<int> pack(const std::vector<int>& t, int addr, int num, bool coil) {
    std::vector<int> out;
    if (coil) {
        out.assign(static_cast<size_t>((num + 7) / 8), 0);
        for (int i = 0; i < num; ++i)
            if (t[static_cast<size_t>(addr + i)]) out[static_cast<size_t>(i / 8)] |= 1 << (i % 8);
        return out;
    }
    for (int i = 0; i < num; ++i) {
        const int v = t[static_cast<size_t>(addr + i)];
        out.push_back((v >> 8) & 0xff);
        out.push_back(v & 0xff);
    }
    return out;
}

bool unpack(std::vector<int>& t, int addr, int num, bool coil, const std::vector<int>& bytes) {
    for (int b : bytes)
        if (b < 0 || b > 0xff) return false;
    if (coil) {
        // Coils past the bytes sent (a partial last byte) are written as 0.
        for (int i = 0; i < num; ++i) {
            const size_t k = static_cast<size_t>(i / 8);
            t[static_cast<size_t>(addr + i)] = k < bytes.size() ? (bytes[k] >> (i % 8)) & 1 : 0;
        }
        return true;
    }
    if (bytes.size() != static_cast<size_t>(num) * 2) return false;
    for (int i = 0; i < num; ++i)
        t[static_cast<size_t>(addr + i)] = bytes[2 * static_cast<size_t>(i)] << 8 | bytes[2 * static_cast<size_t>(i) + 1];
    return true;
}

void modbus_access(Ctx& c) {
    const Access* a = nullptr;
    for (const Access& x : kAccesses)
        if (c.cmd == x.cmd) a = &x;
    ModbusState& m = modbus_of(c.arm);
    int port = -1, addr = -1, device = -1, num = 1;
    bool ok = c.get_int("port", port) && c.get_int("address", addr) && c.get_int("device", device) &&
              (!a->has_num || c.get_int("num", num)) && reachable(c, m, port, device) &&
              c.check(addr >= 0 && num >= 1 && num <= ModbusState::kTable - addr, "the addresses lie outside the table");
    std::vector<int>& table = m.*(a->table);
    if (ok && a->write) {
        std::vector<int> bytes;
        int v = 0;
        if (a->array) {
            ok = get_int_list(c.req, "data", 256, bytes) &&
                 (!a->coil || (bytes.size() >= static_cast<size_t>(num / 8) &&
                               bytes.size() <= static_cast<size_t>((num + 7) / 8))) &&
                 unpack(table, addr, num, a->coil, bytes);
        } else if ((ok = c.get_int("data", v) && (a->coil ? (v == 0 || v == 1) : (v >= 0 && v <= 0xffff)))) {
            table[static_cast<size_t>(addr)] = v;
        }
    }
    if (!ok || a->write) return c.verdict(a->verdict, ok);
    const std::vector<int> bytes = pack(table, addr, num, a->coil);
    if (a->array) return add_ints(c.answer(), "data", bytes);
    // A single value: the coils' bits as one integer, or the register.
    int v = 0;
    for (size_t i = 0; i < bytes.size() && i < 4; ++i) v |= a->coil ? bytes[i] << (8 * i) : 0;
    add_int(c.answer(), "data", a->coil ? v : table[static_cast<size_t>(addr)]);
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["set_modbus_mode"] = set_modbus_mode;
    t["close_modbus_mode"] = close_modbus_mode;
    t["set_modbustcp_mode"] = set_modbustcp_mode;
    t["close_modbustcp_mode"] = close_modbustcp_mode;
    t["get_controller_RS485_mode"] = controller_rs485;
    t["get_tool_RS485_mode"] = tool_rs485;
    for (const Access& a : kAccesses) t[a.cmd] = modbus_access;
}

}  // namespace

const Family modbus_family{"modbus", commands};

}  // namespace kxsim
