/* Drag teaching: start and stop, sensitivity, replay of the recorded path,
 * and saving the recorded path to a file. The controller streams the saved
 * points as un-addressed lines; the receive side writes them into the open
 * save file through the process-wide save state (one save at a time). */
#include <cstdio>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_command.h"
#include "kx_commands_internal.h"
#include "kx_core.h"
#include "kx_receive.h"

using namespace kx;

extern "C" {
KX_API FILE* F_SaveDragTeach = nullptr;
KX_API int drag_teach_count = 0;
KX_API int drag_teach_total_num = 0;
KX_API int drag_teach_save_start = 0;
KX_API int drag_teach_save_state = 0;
KX_API int drag_teach_save_complete = 0;
}

namespace {

constexpr int kSaveBuf = 2048;
constexpr int kFirstPointWait = 2000; /* threaded: the first point must come within this */
constexpr int kFlagPoll = 100;
constexpr int kSingleSliceWait = 1000;
constexpr int kReplayPoll = 50;

const SetSpec kSets[] = {
    {"kx_stop_drag_teach", "stop_drag_teach", "drag_teach"},
    {"kx_pause_drag_trajectory", "pause_drag_trajectory", "pause_state"},
    {"kx_continue_drag_trajectory", "continue_drag_trajectory", "continue_state"},
    {"kx_stop_drag_trajectory", "stop_drag_trajectory", "stop_state"},
};
enum { kStopTeach, kPauseReplay, kContinueReplay, kStopReplay };

void close_save_file(bool reset_count) {
    if (FILE* f = load(F_SaveDragTeach)) {
        store(F_SaveDragTeach, static_cast<FILE*>(nullptr));
        std::fclose(f);
        if (reset_count) store(drag_teach_count, 0);
    }
}

/* The name the controller files the trajectory under: the path's last
 * component without its extension. */
void trajectory_name(const char* path, char (&name)[300]) {
    char work[300] = {};
    std::strncpy(work, path, 298);
    const char* base = std::strrchr(work, '/');
    if (base == nullptr) base = std::strrchr(work, '\\');
    base = base ? base + 1 : work;
    copy_str(name, base);
    if (char* dot = std::strrchr(name, '.')) *dot = '\0';
}

/* Threaded modes: the receive thread writes the points; this only watches
 * the flags it keeps. */
int await_threaded_save() {
    pause_ms(kFirstPointWait);
    if (!load(drag_teach_save_start)) return kSaveInterrupted;
    for (;;) {
        if (load(drag_teach_save_state)) return kSaveInterrupted;
        if (load(drag_teach_save_complete)) break;
        pause_ms(kFlagPoll);
    }
    close_save_file(true);
    return 0;
}

/* Single mode: the points are written by this thread's own waits, and the
 * save ends by silence. */
int await_single_save(const char* fn, kx_robot_handle* h) {
    char buf[kSaveBuf];
    int r = exchange_into(fn, h, nullptr, "point", buf, sizeof buf, m_nOutTime);
    if (load(drag_teach_save_start) && !load(drag_teach_save_state)) {
        while (!load(drag_teach_save_complete)) r = exchange_into(fn, h, nullptr, "point", buf, sizeof buf, kSingleSliceWait);
        close_save_file(false);
        return 0;
    }
    if (load(F_SaveDragTeach) == nullptr) {
        kx_log_error("The file is closed\n");
        return kSaveInterrupted;
    }
    return r;
}

}  // namespace

extern "C" {

KX_API int parse_kx_save_trajectory(const char* caller_function_name, const char* json_str, int* num) {
    const char* fn = caller_function_name ? caller_function_name : "kx_save_trajectory";
    cJSON* root = json_str ? MIO_JSON_Parse(json_str) : nullptr;
    if (root == nullptr) {
        kx_log_error("[%s] Save trajectory parse err\n", fn);
        return kUndecodable;
    }
    int result;
    const cJSON* state = MIO_JSON_GetObjectItem(root, "save_state");
    if (cJSON_IsFalse(state)) {
        kx_log_error("[%s] Save state: false\n", fn);
        result = 1;
    } else if (cJSON_IsTrue(state)) {
        kx_log_debug("[%s] Save state: true\n", fn);
        int total = MIO_JSON_GetObjectItemInt(root, "total_num");
        if (num) *num = total;
        if (total >= 0) {
            kx_log_info("[%s] Trajectory total num: %d\n", fn, total);
            store(drag_teach_total_num, total);
            result = 0;
        } else {
            kx_log_error("[%s] Trajectory total num parse err\n", fn);
            result = -3;
        }
    } else {
        kx_log_error("[%s] Save trajectory err\n", fn);
        result = -3;
    }
    MIO_JSON_Delete(root);
    return result;
}

KX_API int kx_start_drag_teach(kx_robot_handle* handle, int trajectory_record) {
    return set_num({"kx_start_drag_teach", "start_drag_teach", "drag_teach"}, handle, "trajectory_record",
                   trajectory_record);
}

KX_API int kx_stop_drag_teach(kx_robot_handle* handle) { return set_bare(kSets[kStopTeach], handle); }

KX_API int kx_start_multi_drag_teach(kx_robot_handle* handle, int mode, int singular_wall) {
    Request req("start_multi_drag_teach");
    req.num("mode", mode).num("singular_wall", singular_wall);
    return set_command("kx_start_multi_drag_teach", handle, req, "start_multi_drag_teach", "set_state");
}

KX_API int kx_start_multi_drag_teach_new(kx_robot_handle* handle, kx_multi_drag_teach_t teach_state) {
    kx_robot_info_t info{};
    if (kx_get_robot_info(handle, &info) != 0) return kFailed;
    Request req("start_multi_drag_teach");
    req.num("frame", teach_state.frame);
    if (info.force_type == KX_FORCE_TYPE_QS_E)
        req.num("singular_wall", teach_state.singular_wall).ints("free_axes", teach_state.free_axes, 6);
    else
        kx_log_warn("Non-six-dimensional force version, The configuration for singular_wall and the values in "
                    "free_axes array are invalid.\n");
    return set_command("kx_start_multi_drag_teach_new", handle, req, "start_multi_drag_teach", "set_state");
}

KX_API int kx_set_drag_teach_sensitivity(kx_robot_handle* handle, int grade) {
    return kx_set_data_common(handle, grade, const_cast<char*>("set_drag_teach_sensitivity"),
                              const_cast<char*>("grade"));
}

KX_API int kx_get_drag_teach_sensitivity(kx_robot_handle* handle, int* grade) {
    return kx_get_data_common(handle, grade, const_cast<char*>("get_drag_teach_sensitivity"),
                              const_cast<char*>("grade"));
}

KX_API int kx_drag_trajectory_origin(kx_robot_handle* handle, int block) {
    static const char* const fn = "kx_drag_trajectory_origin";
    Request req("drag_trajectory_origin");
    int sent = send_only(fn, handle, req, 10);
    if (block == 0 || sent != 0) return sent;
    return finish_blocking(fn, handle, 0, 0, block, KX_JOINT_SPACE_PLANNING_E, WaitShape::PollFirst);
}

KX_API int kx_run_drag_trajectory(kx_robot_handle* handle, int timeout) {
    static const char* const fn = "kx_run_drag_trajectory";
    static const char* const reply = "run_drag_trajectory";
    Request req("run_drag_trajectory");
    if (timeout != 0 && g_mode == KX_SINGLE_MODE_E)
        return set_command(fn, handle, req, reply, "run_state", timeout * 1000);
    if (timeout == 0) return send_only(fn, handle, req, 0);
    /* The full pause (holding the connection, not the registry lock) is the
     * controller's time to start the replay. */
    if (send_only(fn, handle, req, timeout * 1000) != 0) return kFailed;
    kx_arm_current_trajectory_e type = KX_NO_PLANNING_E;
    float data[7];
    while (kx_get_arm_current_trajectory(handle, &type, data) == 0 && type == KX_TRAJECTORY_REPLAY_PLANNING_E)
        pause_ms(kReplayPoll);
    ReplyBuf buf;
    int r = exchange(fn, handle, nullptr, reply, buf, kOutTimeMax);
    pause_ms(10);
    if (r < 1) return r;
    return parse_kx_set_command(fn, buf.text, "run_state");
}

KX_API int kx_pause_drag_trajectory(kx_robot_handle* handle) { return set_bare(kSets[kPauseReplay], handle); }
KX_API int kx_continue_drag_trajectory(kx_robot_handle* handle) { return set_bare(kSets[kContinueReplay], handle); }
KX_API int kx_stop_drag_trajectory(kx_robot_handle* handle) { return set_bare(kSets[kStopReplay], handle); }

KX_API int kx_save_trajectory(kx_robot_handle* handle, const char* file_name, int* num) {
    static const char* const fn = "kx_save_trajectory";
    store(drag_teach_save_start, 0);
    store(drag_teach_save_state, 0);
    close_save_file(false);
    FILE* file = file_name ? std::fopen(file_name, "wb") : nullptr;
    if (file == nullptr) {
        kx_log_error("[%s] File open error!", fn);
        return kSaveFileUnopened;
    }
    store(F_SaveDragTeach, file);

    char name[300];
    trajectory_name(file_name, name);
    Request req("save_trajectory");
    req.str("trajectory_name", name);
    char buf[kSaveBuf];
    int r = exchange_into(fn, handle, &req, "save_trajectory", buf, sizeof buf, kOutTime);
    if (r < 1) return r;
    int decoded = parse_kx_save_trajectory(fn, buf, num);
    if (decoded != 0) return decoded;
    switch (g_mode) {
    case KX_DUAL_MODE_E:
    case KX_TRIPLE_MODE_E:
        return await_threaded_save();
    case KX_SINGLE_MODE_E:
        return await_single_save(fn, handle);
    default:
        return r;
    }
}

}  // extern "C"

// ---- saving: the points the receive side meets ------------------------------

namespace kx {

namespace {
constexpr int kSingleSaveIdle = 1000;  // single mode: 2 ms polls of silence that end a drag-teach save
constexpr size_t kSingleSaveLine = 2048;
}  // namespace

// Threaded modes: a point of a drag-teach save goes to the save file.
void save_point_frame(const cJSON* root, const uint8_t* str, int len) {
    const cJSON* point = MIO_JSON_GetObjectItem(root, "point");
    if (!point) return;
    if (!cJSON_IsArray(point)) {
        kx_log_error("Error: 'point' is not an array. %.*s\n", len, reinterpret_cast<const char*>(str));
        store(drag_teach_save_state, 1);
        return;
    }
    store(drag_teach_save_start, 1);
    if (FILE* file = load(F_SaveDragTeach)) {
        fwrite(str, 1, static_cast<size_t>(len), file);
        fwrite("\r\n", 1, 2, file);
        fflush(file);
    }
    int count = __atomic_add_fetch(&drag_teach_count, 1, __ATOMIC_ACQ_REL);
    int total = load(drag_teach_total_num);
    kx_log_debug("drag_teach_count:  %d  drag_teach_total_num: %d\n", count, total);
    if (count != 0 && count == total) store(drag_teach_save_complete, 1);
}

// Single mode: a point line is written unchanged, completion comes from silence.
void save_point_line_single(const kx_handle_t* handle, const char* frame, size_t total) {
    store(drag_teach_save_start, 1);
    FILE* file = load(F_SaveDragTeach);
    if (!file) {
        store(drag_teach_save_state, 1);
        return;
    }
    size_t n = std::min(total, kSingleSaveLine);
    store(drag_teach_save_state, 0);
    fwrite(frame, 1, n, file);
    kx_log_debug("drag_save len %d robot_handle: %d drag_save:%.*s\n", static_cast<int>(n), kx::handle_id(handle),
                 static_cast<int>(n), frame);
    fflush(file);
}

void count_idle_poll() {
    if (!load(drag_teach_save_start)) return;
    if (__atomic_add_fetch(&drag_teach_count, 1, __ATOMIC_ACQ_REL) > kSingleSaveIdle)
        store(drag_teach_save_complete, 1);
}
}  // namespace kx
