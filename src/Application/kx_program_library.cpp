/* The controller's program library: listing, run state, editing, the
 * default program, and starting a stored program by id with an optional
 * wait for its "program_run_finish". */
#include <algorithm>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_command.h"
#include "kx_reply.h"
#include "kx_commands_internal.h"
#include "kx_core.h"

using namespace kx;

namespace {

constexpr const char* kFinish = "program_run_finish";
constexpr int kMaxEntries = 100;
constexpr int kRunningPause = 1000;
constexpr int kIdlePause = 100;
constexpr int kIdleQueries = 10;
constexpr int kMaxQueryFailures = 5;

/* Copies up to `cap` integers of the array `key`; false when `key` is
 * present but not an array, or holds a number no int can hold. */
bool copy_ints(const cJSON* root, const char* key, int* out, int cap, int* size) {
    return read_ints_upto(root, key, cap, out, size) != Read::Invalid;
}

/* Takes the integer `key` when it is a number; false when it does not fit. */
bool take_int(const cJSON* obj, const char* key, int* out) {
    const cJSON* item = MIO_JSON_GetObjectItem(obj, key);
    return !cJSON_IsNumber(item) || json_int(item, out);
}

int parse_list(const char* fn, const char* text, kx_trajectory_data_t* list) {
    cJSON* root = MIO_JSON_Parse(text);
    const cJSON* arr = MIO_JSON_GetObjectItem(root, "list");
    if (!cJSON_IsArray(arr)) {
        kx_log_error("[%s] get program trajectory list parser error!\n", fn);
        MIO_JSON_Delete(root);
        return kUndecodable;
    }
    int n = std::min(cJSON_GetArraySize(arr), kMaxEntries);
    for (int i = 0; i < n; ++i) {
        const cJSON* item = cJSON_GetArrayItem(arr, i);
        kx_trajectory_data_t& e = list[i];
        bool fits = take_int(item, "id", &e.id);
        if (const char* name = MIO_JSON_GetObjectItemStr(item, "trajectory_name")) copy_str(e.trajectory_name, name);
        fits = take_int(item, "size", &e.size) && fits;
        fits = take_int(item, "speed", &e.speed) && fits;
        if (!fits) {
            kx_log_error("[%s] get program trajectory list parser error!\n", fn);
            MIO_JSON_Delete(root);
            return kUndecodable;
        }
    }
    MIO_JSON_Delete(root);
    return 0;
}

/* The finish message that settles a wait: 1 it names `id`, 0 another
 * program, -1 undecodable. */
int finish_names(const char* text, int id) {
    cJSON* root = MIO_JSON_Parse(text);
    const cJSON* item = MIO_JSON_GetObjectItem(root, "finish_id");
    int value = 0;
    int r = json_int(item, &value) ? (value == id ? 1 : 0) : -1;
    MIO_JSON_Delete(root);
    return r;
}

int probe_run_state(kx_robot_handle* h, const void*, Probe* state) {
    kx_program_run_state_t st{};
    int q = kx_get_program_run_state(h, &st);
    if (q == 0) *state = st.run_state == 1 ? Probe::Running : st.run_state == 0 ? Probe::Idle : Probe::Other;
    return q;
}

/* A finish message settles the wait when it names the program; another
 * program's keeps it going; an undecodable one fails it. */
int on_finish(const void* ctx, const char* text, bool) {
    int named = finish_names(text, *static_cast<const int*>(ctx));
    return named < 0 ? kNoFinish : named == 1 ? kOk : kKeepWaiting;
}

/* Threaded modes: follow the run state until the program's finish message. */
int await_program(kx_robot_handle* h, int id) {
    const CompletionRules rules{"kx_set_program_id_run", kFinish, kReplyBuf, /*event_first*/ false,
                                kMaxQueryFailures, kRunningPause, /*other*/ 0, kIdleQueries - 1, kIdlePause,
                                /*settle*/ -1, /*no_event*/ kNoFinish, probe_run_state, on_finish, &id};
    return await_completion(h, rules);
}

}  // namespace

extern "C" {

KX_API int Parser_Get_Program_Run_State(const char* caller_function_name, const char* json_str,
                                        kx_program_run_state_t* run_state) {
    const char* fn = caller_function_name ? caller_function_name : "kx_get_program_run_state";
    cJSON* root = json_str ? MIO_JSON_Parse(json_str) : nullptr;
    bool ok = root != nullptr && run_state != nullptr && MIO_JSON_GetObjectItem(root, "run_state") != nullptr;
    if (ok) {
        /* A run state that is not a number reads as the getter's -3. */
        run_state->run_state = MIO_JSON_GetObjectItemInt(root, "run_state");
        ok = take_int(root, "run_state", &run_state->run_state) && take_int(root, "edit_id", &run_state->edit_id) &&
             take_int(root, "step_mode", &run_state->step_mode) &&
             take_int(root, "plan_speed", &run_state->plan_speed) && take_int(root, "id", &run_state->id) &&
             take_int(root, "plan_num", &run_state->plan_num) &&
             copy_ints(root, "loop_num", run_state->loop_num, kMaxEntries, &run_state->total_loop) &&
             copy_ints(root, "loop_cont", run_state->loop_cont, kMaxEntries, nullptr);
    }
    MIO_JSON_Delete(root);
    if (!ok) kx_log_error("[%s] get program run state parser error!\n", fn);
    return ok ? 0 : -3;
}

KX_API int kx_set_plan_speed(kx_robot_handle* handle, int speed) {
    return set_num({"kx_set_plan_speed", "plan_speed", "plan_state"}, handle, "speed", speed);
}

KX_API int kx_get_program_trajectory_list(kx_robot_handle* handle, int page_num, int page_size,
                                          const char* vague_search, kx_program_trajectorys_t* trajectorys) {
    static const char* const fn = "kx_get_program_trajectory_list";
    if (trajectorys == nullptr) return kFailed;
    static thread_local char buf[kListBuf];
    int r = list_page(fn, handle, "get_program_trajectory_list", page_num, page_size, vague_search, buf, sizeof buf,
                      kOutTime);
    if (r < 1) return r;
    KeyValue kv[4] = {kv_int("page_num"), kv_int("page_size"), kv_int("total_size"), kv_str("vague_search")};
    if (common_json_parse(fn, buf, kv, 4) != 0) {
        kx_log_error("[%s] get program trajectory list parser error!\n", fn);
        return kUndecodable;
    }
    trajectorys->page_num = kv[0].data.int_value;
    trajectorys->page_size = kv[1].data.int_value;
    trajectorys->list_size = kv[2].data.int_value;
    if (vague_search) copy_str(trajectorys->vague_search, 29, kv[3].data.str_value);
    return parse_list(fn, buf, trajectorys->trajectory_list);
}

KX_API int kx_get_program_run_state(kx_robot_handle* handle, kx_program_run_state_t* run_state) {
    static const char* const fn = "kx_get_program_run_state";
    if (run_state == nullptr) return kFailed;
    Request req("get_program_run_state");
    static thread_local char buf[kListBuf];
    int r = exchange_into(fn, handle, &req, "get_program_run_state", buf, sizeof buf, kOutTime);
    if (r < 1) return r;
    return Parser_Get_Program_Run_State(fn, buf, run_state);
}

KX_API int kx_delete_program_trajectory(kx_robot_handle* handle, int id) {
    return set_num({"kx_delete_program_trajectory", "delete_program_trajectory", "delete_state"}, handle, "id", id);
}

KX_API int kx_update_program_trajectory(kx_robot_handle* handle, int id, int speed, const char* name) {
    Request req("update_program_trajectory");
    req.num("id", id).num("plan_speed", speed).str("project_name", name);
    return set_command("kx_update_program_trajectory", handle, req, "update_program_trajectory", "update_state");
}

KX_API int kx_set_default_run_program(kx_robot_handle* handle, int id) {
    return set_num({"kx_set_default_run_program", "set_default_run_program", "set_state"}, handle, "id", id);
}

KX_API int kx_get_default_run_program(kx_robot_handle* handle, int* id) {
    return get_num("kx_get_default_run_program", handle, "get_default_run_program", "get_default_run_program", "id",
                   id);
}

KX_API int kx_set_program_id_run(kx_robot_handle* handle, int id, int speed, int block) {
    static const char* const fn = "kx_set_program_id_run";
    Request req("set_program_id_start");
    req.num("id", id);
    if (speed != 0) req.num("speed", speed);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "set_program_id_start", buf);
    if (r < 1) return r;
    int verdict = parse_kx_set_command(fn, buf.text, "start_state");
    if (block == 0 || verdict != 0) return verdict;
    switch (g_mode) {
    case KX_SINGLE_MODE_E:
        if (exchange(fn, handle, nullptr, kFinish, buf, block * 1000) < 1) return kNoFinish;
        return finish_names(buf.text, id) == 1 ? 0 : -4;
    case KX_DUAL_MODE_E:
    case KX_TRIPLE_MODE_E:
        return await_program(handle, id);
    default:
        return r;
    }
}

}  // extern "C"
