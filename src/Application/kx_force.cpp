/* Force sensor readings, zeroing and calibration. Six-axis arms read
 * kx_force_data_t, one-axis arms kx_fz_data_t; a calibration is either a
 * fire-and-forget start or a wait of up to 30 s for its outcome. */
#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

/* Every calibration outcome comes back under this name, whatever the command. */
constexpr const char* kCalibrationReply = "set_force_sensor";
constexpr int kCalibrationTimeout = 30000;
constexpr int kUnblockedPause = 10;

int calibrate(const char* fn, kx_robot_handle* h, const Request& req, bool block) {
    if (!block) return send_only(fn, h, req, kUnblockedPause);
    return set_command(fn, h, req, kCalibrationReply, "set_state", kCalibrationTimeout);
}

/* Adds `dof` joint angles (x 1000, double precision) as `key`. */
bool add_joints(Request& req, const char* key, const float* joint, int dof) {
    if (joint == nullptr) return false;
    int wire[7];
    req.joints(joint, dof, wire, key);
    req.ints(key, wire, dof);
    return true;
}

const char* const kManualPoses[4] = {"manual_set_force_pose1", "manual_set_force_pose2", "manual_set_force_pose3",
                                     "manual_set_force_pose4"};

}  // namespace

extern "C" {

KX_API int kx_get_force_data(kx_robot_handle* handle, kx_force_data_t* data) {
    if (data == nullptr) return kFailed;
    Request req("get_force_data");
    KeyValue kv[4] = {kv_ints("force_data", 6), kv_ints("zero_force_data", 6), kv_ints("work_zero_force_data", 6),
                      kv_ints("tool_zero_force_data", 6)};
    int r = query("kx_get_force_data", handle, req, "get_force_data", kv, 4);
    if (r != 0) return r;
    float* out[4] = {data->force_data, data->zero_force_data, data->work_zero_force_data,
                     data->tool_zero_force_data};
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 6; ++i) out[k][i] = from_wire(kv[k].data.array_value[i], kMilli);
    return 0;
}

KX_API int kx_clear_force_data(kx_robot_handle* handle) {
    return set_bare({"kx_clear_force_data", "clear_force_data", "clear_state"}, handle);
}

KX_API int kx_set_force_sensor(kx_robot_handle* handle, bool block) {
    Request req("set_force_sensor");
    return calibrate("kx_set_force_sensor", handle, req, block);
}

KX_API int kx_manual_set_force(kx_robot_handle* handle, int count, float* joint, bool block) {
    static const char* const fn = "kx_manual_set_force";
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    if (count < 1 || count > 4) return kInvalidConfig;
    Request req(kManualPoses[count - 1]);
    if (!add_joints(req, "joint", joint, dof)) return kFailed;
    return calibrate(fn, handle, req, block && count == 4);
}

KX_API int kx_stop_set_force_sensor(kx_robot_handle* handle) {
    return set_bare({"kx_stop_set_force_sensor", "stop_set_force_sensor", "stop_state"}, handle);
}

KX_API int kx_get_Fz(kx_robot_handle* handle, kx_fz_data_t* data) {
    kx_robot_info_t info{};
    if (data == nullptr || kx_get_robot_info(handle, &info) != 0) return kFailed;
    if (info.force_type != KX_FORCE_TYPE_QA_E) {
        kx_log_error("arm force type check err!");
        return kWrongForceType;
    }
    Request req("get_Fz");
    KeyValue kv[4] = {kv_int("Fz"), kv_int("zero_Fz"), kv_int("work_zero_Fz"), kv_int("tool_zero_Fz")};
    int r = query("kx_get_Fz", handle, req, "get_Fz", kv, 4);
    if (r != 0) return r;
    data->Fz = from_wire(kv[0].data.int_value, kMilli);
    data->zero_Fz = from_wire(kv[1].data.int_value, kMilli);
    data->work_zero_Fz = from_wire(kv[2].data.int_value, kMilli);
    data->tool_zero_Fz = from_wire(kv[3].data.int_value, kMilli);
    return 0;
}

KX_API int kx_clear_Fz(kx_robot_handle* handle) { return set_bare({"kx_clear_Fz", "clear_Fz", "set_state"}, handle); }

KX_API int kx_auto_set_Fz(kx_robot_handle* handle, bool block) {
    Request req("auto_set_Fz");
    return calibrate("kx_auto_set_Fz", handle, req, block);
}

KX_API int kx_manual_set_Fz(kx_robot_handle* handle, float* joint1, float* joint2, bool block) {
    static const char* const fn = "kx_manual_set_Fz";
    int dof = checked_dof(fn, handle);
    Request req("manual_set_Fz");
    if (dof < 0 || !add_joints(req, "pose1", joint1, dof) || !add_joints(req, "pose2", joint2, dof)) return kFailed;
    return calibrate(fn, handle, req, block);
}

}  // extern "C"
