/* Every reply decoder on the same hostile text: the generic table decoder
 * with each row type, the set and motion outcomes, and the family decoders.
 * Each returns one of its codes and writes only inside its record. */
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <cjson/cJSON.h>

#include "fuzz_common.h"
#include "kx_commands_internal.h"
#include "kx_interface_global.h"

namespace {

KeyValue row(JsonValueType type, const char* key, int size = 0) {
    KeyValue kv;
    std::memset(&kv, 0, sizeof kv);
    kv.type = type;
    kv.key = key;
    kv.array_size = size;
    return kv;
}

void check(bool ok, int line) {
    if (ok) return;
    std::fprintf(stderr, "fuzz_decoders.cpp:%d: property violated\n", line);
    std::abort();
}
#define CHECK(e) check((e), __LINE__)

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kxfuzz::silence_log();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = kxfuzz::as_text(data, size);
    const char* t = text.c_str();

    KeyValue kv[] = {row(JSON_STRING, "command"), row(JSON_INT, "v"),       row(JSON_ARRAY, "joint", 6),
                     row(JSON_ARRAY, "err", 24),  row(JSON_BOOL, "set_state"), row(JSON_OBJECT, "custom"),
                     row(JSON_ARRAY, "pose", 1)};
    const int n = static_cast<int>(sizeof kv / sizeof kv[0]);
    int r = common_json_parse("fuzz", t, kv, n);
    CHECK(r == 0 || r == -3);
    for (const KeyValue& k : kv) {
        CHECK(std::memchr(k.data.str_value, 0, sizeof k.data.str_value) != nullptr || k.type != JSON_STRING);
        if (k.type == JSON_OBJECT && k.data.sub_json) cJSON_Delete(k.data.sub_json);
    }
    for (int i = 0; i < n; ++i) {  // each row alone, so that later rows are reached too
        KeyValue one = kv[i];
        std::memset(&one.data, 0, sizeof one.data);
        r = common_json_parse("fuzz", t, &one, 1);
        CHECK(r == 0 || r == -3);
        if (one.type == JSON_OBJECT && one.data.sub_json) cJSON_Delete(one.data.sub_json);
    }

    r = parse_kx_set_command("fuzz", t, "set_state");
    CHECK(r == 0 || r == 1 || r == -3);
    int device = 0, connect = 0;
    r = parse_kx_move_command(t, &device, &connect);
    CHECK(r >= -3 && r <= 1);

    kx_frame_name_t names[KX_FRAME_NAMES_MAX];
    int len = 0; /* left alone when no name was found */
    r = parse_kx_get_total_frame(t, names, &len);
    CHECK(r != 0 || (len >= 0 && len <= KX_FRAME_NAMES_MAX));
    kx_frame_t frame;
    parse_kx_get_current_tool_frame(t, &frame);
    parse_kx_get_current_work_frame(t, &frame);
    kx_envelope_balls_list_t env;
    r = Parser_Get_Tool_Envelope(t, &env);
    CHECK(r != 0 || (env.size >= 0 && env.size <= KX_ENVELOPE_BALLS_MAX));
    kx_arm_software_version_t info;
    parse_kx_get_arm_software_info(t, &info);

    int points = 0;
    r = parse_kx_save_trajectory("fuzz", t, &points);
    CHECK(r == 0 || r == 1 || r == -3);
    kx_program_run_state_t run;
    r = Parser_Get_Program_Run_State("fuzz", t, &run);
    CHECK(r == 0 || r == -3);
    for (int dof = 6; dof <= 7; ++dof) {
        kx_waypoint_list_t list;
        r = parser_get_point_list("fuzz", t, dof, &list);
        CHECK(r == 0 || r == 1 || r == -3);
    }
    kx_io_get_t io;
    prase_get_IO_state(t, &io);
    KeyValue rs485[] = {row(JSON_INT, "mode"), row(JSON_ARRAY, "data", 24)};
    parse_rs485(t, rs485, 2);
    kx_fence_config_list_t fences;
    const int fence_cap = static_cast<int>(sizeof fences.config / sizeof fences.config[0]);
    len = 0;
    r = Parser_Get_Electronic_Fence_List_Info(t, &fences, &len);
    CHECK(r != 0 || (len >= 0 && len <= fence_cap));
    return 0;
}
