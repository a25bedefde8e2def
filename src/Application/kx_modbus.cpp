/* RS485 port modes and Modbus access through the controller: the controller
 * is the master (RTU on its own or the tool's RS485 port, or over TCP) and
 * relays each read or write to the slave device. */
#include "MIO_JSON.h"
#include "kx_command.h"
#include "kx_result.h"
#include "kx_commands_internal.h"

using namespace kx;

namespace {

/* m_nOutTime_max, and that plus 2 s for the slow coil operations. */
constexpr int kSlowExtra = 2000;
int slow_timeout() { return m_nOutTime_max + kSlowExtra; }

/* ---- port modes ---------------------------------------------------------- */

int set_mode(const char* fn, kx_robot_handle* h, const Request& req) {
    return set_command(fn, h, req, req.command(), "set_state", kOutTimeMax);
}

struct Rs485Query {
    const char* fn;
    const char* command;
    const char* mode_key;
};
constexpr Rs485Query kControllerRs485{"kx_get_controller_RS485_mode", "get_controller_RS485_mode",
                                      "controller_RS485_mode"};
constexpr Rs485Query kToolRs485{"kx_get_tool_RS485_mode", "get_tool_RS485_mode", "tool_RS485_mode"};

int get_rs485(const Rs485Query& q, kx_robot_handle* h, int* mode, int* baudrate, int* timeout) {
    if (!mode || !baudrate || !timeout) return -1;
    Request req(q.command);
    ReplyBuf buf;
    int r = exchange(q.fn, h, &req, q.command, buf);
    if (r < 1) return r;
    KeyValue kv[] = {kv_int(q.mode_key), kv_int("baudrate"), kv_int("modbus_timeout")};
    r = parse_rs485(buf.text, kv, 3);
    if (r != 0) return r;
    *mode = kv[0].data.int_value;
    *baudrate = kv[1].data.int_value;
    *timeout = kv[2].data.int_value;
    return 0;
}

/* ---- reads and writes ---------------------------------------------------- */

/* How a read or write carries its count and data, and how its reply is read. */
enum class Shape {
    ReadOne,        /* "num" sent, int "data" back */
    ReadOneNoNum,   /* no "num", int "data" back */
    WriteOne,       /* int "data" sent */
    WriteRegisters, /* "num", then num x 2 entries */
    WriteCoils,     /* "num", then num / 8 entries */
    ReadCoilBytes,  /* "num"; num / 8 rounded up received, num / 8 delivered */
    ReadRegisters,  /* "num"; num x 2 received and delivered */
};

struct ModbusOp {
    const char* fn;
    const char* command;
    Shape shape;
    bool slow; /* waits 2 s longer */
};

enum OpId {
    kReadCoils,
    kReadInputStatus,
    kReadHolding,
    kReadInput,
    kWriteCoil,
    kWriteRegister,
    kWriteRegisters,
    kWriteCoils,
    kReadMultiCoils,
    kReadMultiHolding,
    kReadMultiInput,
};
constexpr ModbusOp kOps[] = {
    {"kx_read_coils", "read_coils", Shape::ReadOne, false},
    {"kx_read_input_status", "read_input_status", Shape::ReadOne, false},
    {"kx_read_holding_registers", "read_holding_registers", Shape::ReadOneNoNum, false},
    {"kx_read_input_registers", "read_input_registers", Shape::ReadOneNoNum, false},
    {"kx_write_single_coil", "write_single_coil", Shape::WriteOne, true},
    {"kx_write_single_register", "write_single_register", Shape::WriteOne, false},
    {"kx_write_registers", "write_registers", Shape::WriteRegisters, false},
    {"kx_write_coils", "write_coils", Shape::WriteCoils, true},
    {"kx_read_multiple_coils", "read_multiple_coils", Shape::ReadCoilBytes, true},
    {"kx_read_multiple_holding_registers", "read_multiple_holding_registers", Shape::ReadRegisters, false},
    {"kx_read_multiple_input_registers", "read_multiple_input_registers", Shape::ReadRegisters, false},
};

/* Registers travel as two entries each, coils as one per whole byte. */
int register_entries(int num) { return num * 2; }
int coil_bytes_sent(int num) { return num / 8; }
int coil_bytes_received(int num) { return num / 8 + (num % 8 != 0 ? 1 : 0); }

/* "port", "address", ["num"], ["data"], "device", in that order. */
void build(const ModbusOp& op, const kx_peripheral_read_write_params_t& p, const int* data, int value,
           Request& req) {
    req.num("port", p.port).num("address", p.address);
    switch (op.shape) {
    case Shape::ReadOneNoNum: break;
    case Shape::WriteOne: req.num("data", value); break;
    case Shape::WriteRegisters: req.num("num", p.num).ints("data", data, register_entries(p.num)); break;
    case Shape::WriteCoils: req.num("num", p.num).ints("data", data, coil_bytes_sent(p.num)); break;
    default: req.num("num", p.num); break;
    }
    req.num("device", p.device);
}

/* Reads: the value (or values) under "data"; when absent, the reply's
 * "read_state" verdict says why. */
int decode_read(const ModbusOp& op, const kx_peripheral_read_write_params_t& p, const char* text, int* data) {
    KeyValue kv;
    int deliver = 1;
    switch (op.shape) {
    case Shape::ReadCoilBytes:
        kv = kv_ints("data", coil_bytes_received(p.num));
        deliver = coil_bytes_sent(p.num);
        break;
    case Shape::ReadRegisters:
        kv = kv_ints("data", register_entries(p.num));
        deliver = register_entries(p.num);
        break;
    default: kv = kv_int("data"); break;
    }
    if (common_json_parse(op.fn, text, &kv, 1) != 0) return parse_kx_set_command(op.fn, text, "read_state");
    if (kv.type == JSON_INT) {
        *data = kv.data.int_value;
        return 0;
    }
    constexpr int kMaxEntries = static_cast<int>(sizeof kv.data.array_value / sizeof kv.data.array_value[0]);
    for (int i = 0; i < deliver && i < kMaxEntries; ++i) data[i] = kv.data.array_value[i];
    return 0;
}

bool is_write(Shape s) { return s == Shape::WriteOne || s == Shape::WriteRegisters || s == Shape::WriteCoils; }

int modbus(OpId id, kx_robot_handle* h, const kx_peripheral_read_write_params_t& p, int* data, int value = 0) {
    const ModbusOp& op = kOps[id];
    if (data == nullptr && op.shape != Shape::WriteOne) return -1;
    Request req(op.command);
    build(op, p, data, value, req);
    ReplyBuf buf;
    int r = exchange(op.fn, h, &req, op.command, buf, op.slow ? slow_timeout() : kOutTimeMax);
    if (r < 1) return r;
    if (is_write(op.shape)) return parse_kx_set_command(op.fn, buf.text, "write_state");
    return decode_read(op, p, buf.text, data);
}

/* One table row of parse_rs485: logs without the caller's name. */
bool decode_rs485_row(const cJSON* root, KeyValue& row) {
    const cJSON* item = MIO_JSON_GetObjectItem(root, row.key);
    switch (row.type) {
    case JSON_INT:
        if (cJSON_IsNumber(item) && !kx::json_int(item, &row.data.int_value)) {
            kx_log_error("%s parsing error\n", row.key);
            return false;
        }
        if (!cJSON_IsNumber(item)) row.data.int_value = item ? item->valueint : 0;
        kx_log_info("%s parse result: %d\n", row.key, row.data.int_value);
        return true;
    case JSON_STRING:
        if (!cJSON_IsString(item)) {
            kx_log_error("%s is not a string\n", row.key);
            return false;
        }
        copy_str(row.data.str_value, item->valuestring);
        kx_log_info("%s parse result: %s\n", row.key, row.data.str_value);
        return true;
    case JSON_ARRAY: {
        if (!cJSON_IsArray(item)) {
            kx_log_error("%s is not an array\n", row.key);
            return false;
        }
        if (MIO_JSON_GetArraySize(item) != row.array_size) {
            kx_log_error("Array size mismatch for key %s\n", row.key);
            return false;
        }
        kx_log_info("%s parse result:\n", row.key);
        constexpr int kMax = static_cast<int>(sizeof row.data.array_value / sizeof row.data.array_value[0]);
        int i = 0;
        for (const cJSON* el = item->child; el != nullptr && i < kMax; el = el->next, ++i) {
            row.data.array_value[i] = -1; /* a non-number element */
            if (cJSON_IsNumber(el) && !kx::json_int(el, &row.data.array_value[i])) {
                kx_log_error("%s parsing error\n", row.key);
                return false;
            }
            kx_log_info(" %d\n", row.data.array_value[i]);
        }
        return true;
    }
    case JSON_BOOL:
        row.data.bool_value = cJSON_IsTrue(item);
        kx_log_info("%s parse result: %d\n", row.key, row.data.bool_value ? 1 : 0);
        return true;
    default:
        kx_log_error("Unsupported JSON value type for key %s\n", row.key);
        return false;
    }
}

}  // namespace

extern "C" {

KX_API int parse_rs485(const char* msg, KeyValue* key_values, int n) {
    cJSON* root = MIO_JSON_Parse(msg);
    if (root == nullptr) {
        kx_log_error("Error parsing JSON\n");
        return kUndecodable;
    }
    int r = 0;
    for (int i = 0; key_values != nullptr && i < n; ++i) {
        KeyValue& row = key_values[i];
        const char* key = row.key ? row.key : "";
        if (MIO_JSON_GetObjectItem(root, key) == nullptr) {
            if (i == 2) {
                kx_log_warn("it is not in Modbus-RTU mode, and the modbus_timeout field does not exist.\n");
            } else {
                kx_log_error("%s parsing error\n", key);
                r = -3;
            }
            break;
        }
        if (!decode_rs485_row(root, row)) {
            r = -3;
            break;
        }
    }
    MIO_JSON_Delete(root);
    return r;
}

KX_API int kx_set_modbus_mode(kx_robot_handle* handle, int port, int baudrate, int timeout) {
    Request req("set_modbus_mode");
    req.num("port", port).num("baudrate", baudrate).num("timeout", timeout);
    return set_mode("kx_set_modbus_mode", handle, req);
}

KX_API int kx_close_modbus_mode(kx_robot_handle* handle, int port) {
    Request req("close_modbus_mode");
    req.num("port", port);
    return set_mode("kx_close_modbus_mode", handle, req);
}

KX_API int kx_set_modbustcp_mode(kx_robot_handle* handle, const char* ip, int port, int timeout) {
    if (ip == nullptr) return kFailed;
    Request req("set_modbustcp_mode");
    req.str("ip", ip).num("port", port).num("timeout", timeout);
    return set_mode("kx_set_modbustcp_mode", handle, req);
}

KX_API int kx_close_modbustcp_mode(kx_robot_handle* handle) {
    Request req("close_modbustcp_mode");
    return set_mode("kx_close_modbustcp_mode", handle, req);
}

KX_API int kx_get_controller_RS485_mode(kx_robot_handle* handle, int* mode, int* baudrate, int* timeout) {
    return get_rs485(kControllerRs485, handle, mode, baudrate, timeout);
}

KX_API int kx_get_tool_RS485_mode(kx_robot_handle* handle, int* mode, int* baudrate, int* timeout) {
    return get_rs485(kToolRs485, handle, mode, baudrate, timeout);
}

KX_API int kx_read_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kReadCoils, handle, params, data);
}
KX_API int kx_read_input_status(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kReadInputStatus, handle, params, data);
}
KX_API int kx_read_holding_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kReadHolding, handle, params, data);
}
KX_API int kx_read_input_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kReadInput, handle, params, data);
}
KX_API int kx_write_single_coil(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int data) {
    return modbus(kWriteCoil, handle, params, nullptr, data);
}
KX_API int kx_write_single_register(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int data) {
    return modbus(kWriteRegister, handle, params, nullptr, data);
}
KX_API int kx_write_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kWriteRegisters, handle, params, data);
}
KX_API int kx_write_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kWriteCoils, handle, params, data);
}
KX_API int kx_read_multiple_coils(kx_robot_handle* handle, kx_peripheral_read_write_params_t params, int* data) {
    return modbus(kReadMultiCoils, handle, params, data);
}
KX_API int kx_read_multiple_holding_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params,
                                              int* data) {
    return modbus(kReadMultiHolding, handle, params, data);
}
KX_API int kx_read_multiple_input_registers(kx_robot_handle* handle, kx_peripheral_read_write_params_t params,
                                            int* data) {
    return modbus(kReadMultiInput, handle, params, data);
}

}  // extern "C"
