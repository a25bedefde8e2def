/* The arm's present state read on request: joints, tool pose, errors and
 * per-joint telemetry. */
#include <cstring>

#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

constexpr int kMaxErrors = 24;

/* The controller's error list has a variable length: the decoding row is
 * sized from the reply itself (an over-long list fails the size check). */
KeyValue kv_errors(const char* text) {
    int n = reply_array_len(text, "err", kMaxErrors);
    return kv_ints("err", n < 0 ? 0 : n);
}

void copy_errors(const KeyValue& kv, kx_err_t* err) {
    err->err_len = static_cast<uint8_t>(kv.array_size);
    for (int i = 0; i < kv.array_size && i < kMaxErrors; ++i) err->err[i] = kv.data.array_value[i];
}

/* {"command": request} answered by `reply` with one milli-scaled array. */
int get_milli_joints(const char* fn, const char* request, const char* reply, const char* field,
                     kx_robot_handle* h, float* out) {
    const JointQuery q{fn, request, reply, field, kMilli, nullptr};
    return get_joints(q, h, out);
}

}  // namespace

extern "C" {

KX_API int kx_get_current_arm_state(kx_robot_handle* handle, kx_current_arm_state_t* state) {
    static const char* const fn = "kx_get_current_arm_state";
    if (state == nullptr) return kFailed;
    Request req("get_current_arm_state");
    return query_joints(fn, handle, req, "current_arm_state", [&](int dof, const char* text) {
        KeyValue kv[] = {kv_errors(text), kv_ints("joint", dof), kv_ints("pose", 6)};
        int r = common_json_parse(fn, text, kv, 3);
        if (r != 0) return r;
        copy_errors(kv[0], &state->err);
        for (int i = 0; i < dof; ++i) state->joint[i] = from_wire(kv[1].data.array_value[i], kMilli);
        pose_from_wire(kv[2].data.array_value, &state->pose);
        return 0;
    });
}

KX_API int kx_get_current_joint_temperature(kx_robot_handle* handle, float* temperature) {
    return get_milli_joints("kx_get_current_joint_temperature", "get_current_joint_temperature",
                            "current_joint_temperature", "joint_temperature", handle, temperature);
}

KX_API int kx_get_current_joint_current(kx_robot_handle* handle, float* current) {
    return get_milli_joints("kx_get_current_joint_current", "get_current_joint_current", "current_joint_current",
                            "joint_current", handle, current);
}

KX_API int kx_get_current_joint_voltage(kx_robot_handle* handle, float* voltage) {
    return get_milli_joints("kx_get_current_joint_voltage", "get_current_joint_voltage", "current_joint_voltage",
                            "joint_voltage", handle, voltage);
}

KX_API int kx_get_joint_degree(kx_robot_handle* handle, float* joint) {
    return get_milli_joints("kx_get_joint_degree", "get_joint_degree", "joint_degree", "joint", handle, joint);
}

KX_API int kx_get_arm_all_state(kx_robot_handle* handle, kx_arm_all_state_t* state) {
    static const char* const fn = "kx_get_arm_all_state";
    if (state == nullptr) return kFailed;
    Request req("get_arm_all_state");
    return query_joints(fn, handle, req, "arm_all_state", [&](int dof, const char* text) {
        KeyValue kv[] = {kv_ints("temperature", dof), kv_ints("current", dof), kv_ints("voltage", dof),
                         kv_ints("err_flag", dof),    kv_ints("en_flag", dof), kv_errors(text)};
        int r = common_json_parse(fn, text, kv, 6);
        if (r != 0) return r;
        for (int i = 0; i < dof; ++i) {
            state->joint_temperature[i] = from_wire(kv[0].data.array_value[i], kMilli);
            state->joint_current[i] = from_wire(kv[1].data.array_value[i], kMilli);
            state->joint_voltage[i] = from_wire(kv[2].data.array_value[i], kMilli);
            /* Through a float, as the controller's own tools read it; the
             * largest codes round up past what an int holds. */
            const float code = static_cast<float>(kv[3].data.array_value[i]);
            if (!(code < 2147483648.0f)) {
                kx_log_error("[%s] %s parsing error\n", fn, "err_flag");
                return kUndecodable;
            }
            state->joint_err_code[i] = static_cast<int>(code);
            state->joint_en_flag[i] = kv[4].data.array_value[i];
        }
        copy_errors(kv[5], &state->err);
        return 0;
    });
}

}  // extern "C"
