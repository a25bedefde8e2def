// The command envelope: table-driven request encoding, send-and-wait under
// the registry's read lock, and table-driven reply decoding.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_core.h"
#include "kx_reply.h"
#include "kx_interface.h"
#include "log.h"
#include "socket.h"

namespace {

constexpr int kReplyBuffer = 1024;
constexpr size_t kStringValue = sizeof(KeyValue{}.data.str_value);
constexpr int kArrayValue = static_cast<int>(sizeof(KeyValue{}.data.array_value) / sizeof(int));

// A table row's type as a plain int: a caller's out-of-range value is
// skipped or refused, never loaded as an invalid enumerator.
template <class Row>
int row_type(const Row& row) {
    int type;
    static_assert(sizeof type == sizeof row.type);
    memcpy(&type, &row.type, sizeof type);
    return type;
}

const char* request_name(const JsonValue* values) {
    return values && row_type(values[0]) == JSON_STRING && values[0].data.str_value ? values[0].data.str_value : "";
}

void add_row(cJSON* object, const JsonValue& row) {
    if (!row.key) {
        if (row_type(row) == JSON_OBJECT) MIO_JSON_Delete(row.data.sub_json);  // ownership was ours
        return;
    }
    switch (row_type(row)) {
        case JSON_STRING:
            if (row.data.str_value) MIO_JSON_AddItemToObject(object, row.key, MIO_JSON_CreateString(row.data.str_value));
            break;
        case JSON_INT:
            MIO_JSON_AddItemToObject(object, row.key, MIO_JSON_CreateNumber(row.data.int_value));
            break;
        case JSON_ARRAY: {
            cJSON* array = MIO_JSON_CreateArray();
            for (int i = 0; row.data.array_value && i < row.array_size; ++i)
                MIO_JSON_AddItemToArray(array, MIO_JSON_CreateNumber(row.data.array_value[i]));
            MIO_JSON_AddItemToObject(object, row.key, array);
            break;
        }
        case JSON_BOOL:
            cJSON_AddBoolToObject(object, row.key, row.data.bool_value);
            break;
        case JSON_OBJECT:
            MIO_JSON_AddItemToObject(object, row.key, row.data.sub_json);
            break;
        default:
            break;
    }
}

// Decodes one table row from the container; false after logging the failure.
bool decode_row(const char* caller, const cJSON* container, KeyValue& row) {
    const char* key = row.key ? row.key : "";
    const cJSON* item = MIO_JSON_GetObjectItem(container, key);
    if (!item) {
        kx_log_error("[%s] %s parsing error\n", caller, key);
        return false;
    }
    switch (row_type(row)) {
        case JSON_STRING:
            if (!cJSON_IsString(item)) {
                kx_log_error("[%s] %s is not a string\n", caller, key);
                return false;
            }
            strncpy(row.data.str_value, item->valuestring, kStringValue - 1);
            kx_log_info("[%s] %s parse result: %s\n", caller, key, row.data.str_value);
            return true;
        case JSON_INT:
            /* A non-number reads 0; a number no int can hold fails. */
            if (cJSON_IsNumber(item) && !kx::json_int(item, &row.data.int_value)) {
                kx_log_error("[%s] %s parsing error\n", caller, key);
                return false;
            }
            if (!cJSON_IsNumber(item)) row.data.int_value = item->valueint;
            kx_log_info("[%s] %s parse result: %d\n", caller, key, row.data.int_value);
            return true;
        case JSON_ARRAY: {
            if (!cJSON_IsArray(item)) {
                kx_log_error("[%s] %s is not an array\n", caller, key);
                return false;
            }
            int size = MIO_JSON_GetArraySize(item);
            if (size != row.array_size) {
                kx_log_error("[%s] Array size mismatch for key %s\n", caller, key);
                return false;
            }
            kx_log_info("[%s] %s parse result:\n", caller, key);
            int i = 0;
            for (const cJSON* element = item->child; element && i < std::min(size, kArrayValue);
                 element = element->next, ++i) {
                int& value = row.data.array_value[i];
                value = -1; /* a non-number element */
                if (cJSON_IsNumber(element) && !kx::json_int(element, &value)) {
                    kx_log_error("[%s] %s parsing error\n", caller, key);
                    return false;
                }
                kx_log_info(" %d\n", row.data.array_value[i]);
            }
            return true;
        }
        case JSON_BOOL:
            if (cJSON_IsTrue(item)) row.data.bool_value = true;
            if (cJSON_IsFalse(item)) row.data.bool_value = false;
            kx_log_info("[%s] %s parse result: %d\n", caller, key, row.data.bool_value ? 1 : 0);
            return true;
        case JSON_OBJECT:
            row.data.sub_json = cJSON_Duplicate(item, 1);
            return true;
        default:
            kx_log_error("[%s] Unsupported JSON value type for key %s\n", caller, key);
            return false;
    }
}

}  // namespace

namespace kx {

int encode_request(const JsonValue* values, size_t count, RequestLine& line) {
    if (!values || count == 0) return -1;
    cJSON* object = MIO_JSON_CreateObject();
    for (size_t i = 0; i < count; ++i) add_row(object, values[i]);
    char* text = MIO_JSON_PrintUnformatted(object);
    MIO_JSON_Delete(object);
    if (!text) return -1;
    size_t len = strlen(text);
    auto* grown = static_cast<char*>(realloc(text, len + 3));
    if (!grown) {
        free(text);
        return -1;
    }
    memcpy(grown + len, "\r\n", 3);
    free(line.text);
    line.text = grown;
    line.len = len + 2;
    kx_log_debug("send is: %s\n", grown);
    return 0;
}

void release_trees(const JsonValue* values, size_t count) {
    for (size_t i = 0; values && i < count; ++i)
        if (row_type(values[i]) == JSON_OBJECT) MIO_JSON_Delete(values[i].data.sub_json);
}

int send_and_wait(const char* caller_function_name, kx_robot_handle* handle, const JsonValue* json_values,
                  size_t num_values, const char* command, uint8_t* buf, int buf_len, int timeout, bool report) {
    const char* caller = caller_function_name ? caller_function_name : "";
    forget_taken_reply();  // a reply taken before this round trip is no longer the one
    // The table lock is held only for the lookup: the send and the wait run without it.
    int result = round_trip(caller, handle, json_values, num_values, command, buf, buf_len, timeout);
    if (result == kSendFailed) {
        if (report) kx_log_error("[%s] %s send error\n", caller, request_name(json_values));
        return kx::kFailed;
    }
    if (result == -1 || !command || result > 0) return result;
    if (json_values && report)
        kx_log_error("[%s] %s revice error\n", caller, request_name(json_values));
    else if (!json_values && strcmp(command, "point") == 0)
        kx_log_info("[%s] %s save_trajectory complete\n", caller, command);
    return kNoReply;
}

int send_request(Conn& conn, const uint8_t* bytes, size_t len) {
    std::lock_guard lock(conn.writer);
    return write_request(conn, bytes, len);
}

int write_request(Conn& conn, const uint8_t* bytes, size_t len) {
    kx_socket_handle* sock = conn.record->socket_handle;
    if (!sock || !bytes || len == 0) return -1;
    size_t sent = 0;
    if (conn.cut) {
        // The remains of a cut request end here, as a line of their own that
        // no controller can take for a request, before this one begins.
        static const uint8_t kEnd[] = {'\r', '\n'};
        if (send_counted(sock, kEnd, sizeof kEnd, &sent) != 0) return -2;
        conn.cut = false;
    }
    int result = send_counted(sock, bytes, len, &sent);
    if (result != 0 && sent > 0) {
        conn.cut = true;
        kx_log_error("request cut short after %d of %d bytes\n", static_cast<int>(sent), static_cast<int>(len));
    }
    return result;
}

}  // namespace kx

extern "C" {

KX_API int common_json_pack_set(const char* caller_function_name, kx_handle_t* handle, const JsonValue* json_values,
                                size_t num_values) {
    (void)caller_function_name;
    kx::RequestLine line;
    if (kx::encode_request(json_values, num_values, line) != 0) return -1;
    if (!handle || !handle->socket_handle) return -1;
    if (auto conn = kx::conn_of(handle)) return kx::send_request(*conn, line.bytes(), line.len);
    return handle->socket_handle->block_send(handle->socket_handle, reinterpret_cast<uint8_t*>(line.text),
                                             static_cast<int>(line.len));
}

KX_API int common_json_parse(const char* caller_function_name, const char* json_str, KeyValue* key_values,
                             int num_keys) {
    const char* caller = caller_function_name ? caller_function_name : "";
    const kx::ReplyView reply(json_str);
    if (!reply.parsed()) {
        kx_log_error("Error parsing JSON\n");
        return kx::kUndecodable;
    }
    const cJSON* container = reply.container();
    int result = 0;
    for (int i = 0; key_values && i < num_keys; ++i) {
        if (!decode_row(caller, container, key_values[i])) {
            result = kx::kUndecodable;
            break;
        }
    }
    return result;
}

KX_API int kx_pack_lock_set(const char* caller_function_name, kx_robot_handle* handle, const JsonValue* json_values,
                            size_t num_values, const char* command, uint8_t* buf, int buf_len, int timeout) {
    return kx::guarded("kx_pack_lock_set", -1, [&] {
        return kx::send_and_wait(caller_function_name, handle, json_values, num_values, command, buf, buf_len, timeout,
                                 true);
    });
}

KX_API int parse_kx_set_command(const char* caller_function_name, const char* json_str, const char* key) {
    const char* caller = caller_function_name ? caller_function_name : "";
    const char* name = key ? key : "";
    const kx::ReplyView reply(json_str);
    const cJSON* root = reply.root();
    if (!root) {
        // Compares the reply text, not the key: the interface's own test, kept on purpose.
        if (!json_str || strcmp(json_str, "given_state") != 0)
            kx_log_error("[%s] %s parse err\n", caller, json_str ? json_str : "");
        return kx::kUndecodable;
    }
    int outcome = MIO_JSON_GetObjectItemBool(root, name);
    if (outcome == 0) {
        kx_log_error("[%s] %s: false\n", caller, name);
        return kx::kRefused;
    }
    if (outcome == 1) {
        kx_log_debug("[%s] %s: true\n", caller, name);
        return kx::kOk;
    }
    if (strcmp(name, "given_state") != 0) kx_log_error("[%s] %s command parse err\n", caller, name);
    return kx::kUndecodable;
}

KX_API int common_json_pack_get(const char* caller_function_name, kx_handle_t* handle, const char* command,
                                char* out, int out_len) {
    cJSON* object = MIO_JSON_CreateObject();
    MIO_JSON_AddItemToObject(object, "command", MIO_JSON_CreateString(command));
    char* text = MIO_JSON_PrintUnformatted(object);
    MIO_JSON_Delete(object);
    if (!text) return -1;
    int len = static_cast<int>(strlen(text));
    if (!out || len >= out_len - 2) {
        free(text);
        return -1;
    }
    memcpy(out, text, static_cast<size_t>(std::min(len, 8)));
    memcpy(out + len, "\r\n", 2);
    // The wire gets the printed text with its terminator and one more zero byte.
    auto* wire = static_cast<uint8_t*>(calloc(static_cast<size_t>(len) + 2, 1));
    if (wire) memcpy(wire, text, static_cast<size_t>(len));
    free(text);
    int result = -1;
    if (wire && handle && handle->socket_handle) result = handle->socket_handle->send(handle->socket_handle, wire, len + 2);
    free(wire);
    return result;
}

KX_API int kx_get_data_common(kx_robot_handle* handle, int* data, char* cmd_str, char* valua_str) {
    if (!cmd_str || !valua_str) return kx::kFailed;
    JsonValue request[] = {{JSON_STRING, "command", 0, {.str_value = cmd_str}}};
    uint8_t buf[kReplyBuffer] = {};
    int result = kx_pack_lock_set("kx_get_data_common", handle, request, 1, cmd_str, buf, sizeof buf, m_nOutTime);
    if (result < 1) return result;
    KeyValue reply[1] = {};
    reply[0].type = JSON_INT;
    reply[0].key = valua_str;
    result = common_json_parse("kx_get_data_common", reinterpret_cast<char*>(buf), reply, 1);
    if (result == 0 && data) *data = reply[0].data.int_value;
    return result;
}

KX_API int kx_set_data_common(kx_robot_handle* handle, int data, char* cmd_str, char* valua_str) {
    if (!cmd_str || !valua_str) return kx::kFailed;
    JsonValue request[] = {{JSON_STRING, "command", 0, {.str_value = cmd_str}},
                           {JSON_INT, valua_str, 0, {.int_value = data}}};
    uint8_t buf[kReplyBuffer] = {};
    int result = kx_pack_lock_set("kx_set_data_common", handle, request, 2, cmd_str, buf, sizeof buf, m_nOutTime_max);
    if (result < 1) return result;
    return parse_kx_set_command("kx_set_data_common", reinterpret_cast<char*>(buf), "set_state");
}

}  // extern "C"
