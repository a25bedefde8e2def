// Glue to the kinematics library: unit conversions and one call each.
#include "kx_invoke_algo.h"

#include <cstring>

#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"

extern "C" {
KX_API float angleU = 0;
KX_API float angleV = 0;
KX_API float angleH = 0;
KX_API bool defaut_traversal_mode = false;
KX_API Matrix Tool_Matrix = {};
KX_API Matrix Frame_Matrix = {};
KX_API double invoke_inverse_time_total_max = 0;
KX_API double invoke_inverse_time_total_min = 10000.0;
}

namespace {

constexpr double DEG2RAD = 0.017453292519943295;
constexpr double RAD2DEG = 57.29577951308232;

// The first dof values scaled into a zeroed 8-slot array.
void to_library(const float* in, double factor, float out[8]) {
    std::memset(out, 0, 8 * sizeof(float));
    if (!in) return;
    for (int i = 0; i < libalgo_get_rbt_dof() && i < 8; ++i) out[i] = static_cast<float>(in[i] * factor);
}

// The library's 8-slot array, first dof values converted back.
void from_library(const float lib[8], double divisor, float* out) {
    if (!out) return;
    for (int i = 0; i < libalgo_get_rbt_dof() && i < 8; ++i) out[i] = static_cast<float>(lib[i] / divisor);
}

void set_converted(void (*setter)(const float*), const float* deg) {
    float rad[8];
    to_library(deg, DEG2RAD, rad);
    setter(rad);
}

void get_converted(void (*getter)(float*), float* deg) {
    if (!deg) return;
    float rad[8];
    getter(rad);
    from_library(rad, DEG2RAD, deg);
}

Pose library_pose(const kx_pose_t& p) {
    Pose out;
    out.position = Pos{p.position.x, p.position.y, p.position.z};
    out.quaternion = Quat{p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z};
    out.euler = Euler{p.euler.rx, p.euler.ry, p.euler.rz};
    return out;
}

double elapsed_ms(const timeval& a, const timeval& b) {
    return ((b.tv_sec - a.tv_sec) + (b.tv_usec - a.tv_usec) / 1000000.0) * 1000.0;
}

// The library's solve, timed; returns its code and the elapsed ms.
int timed_solve(const float* q_in_deg, const kx_pose_t& q_pose, float* q_out, uint8_t flag, double* ms) {
    float q[8];
    to_library(q_in_deg, DEG2RAD, q);
    const Pose target = library_pose(q_pose);
    timeval t0, t1;
    get_time_of_day(&t0);
    const int rc = inverse_kinematics(q, &target, q_out, flag);
    get_time_of_day(&t1);
    *ms = elapsed_ms(t0, t1);
    if (rc == 0)
        for (int i = 0; i < libalgo_get_rbt_dof() && i < 8; ++i) q_out[i] = static_cast<float>(q_out[i] * RAD2DEG);
    return rc;
}

}  // namespace

extern "C" {

KX_API void get_time_of_day(struct timeval* tv) { gettimeofday(tv, nullptr); }

KX_API void invoke_libalgo_init(void) { libalgo_init(); }
KX_API int16_t invoke_libalgo_set_robot_type(RobotType type, SensorType sensor) {
    return static_cast<int16_t>(libalgo_set_robot_and_sensor_type(type, sensor));
}
KX_API void invoke_libalgo_set_tool_cs_params(Coord tool) { libalgo_set_tool_cs_params(tool); }
KX_API Coord invoke_libalgo_get_tool_cs_params(void) { return libalgo_get_tool_cs_params(); }
KX_API void invoke_libalgo_set_work_cs_params(Coord work) { libalgo_set_work_cs_params(work); }
KX_API Coord invoke_libalgo_get_work_cs_params(void) { return libalgo_get_work_cs_params(); }

KX_API void invoke_libalgo_set_robot_install_angle(const float* angle) {
    if (!angle) return;
    float rad[3];
    for (int i = 0; i < 3; ++i) rad[i] = static_cast<float>(angle[i] * DEG2RAD);
    libalgo_set_robot_install_angle(rad);
}
KX_API void invoke_libalgo_get_robot_install_angle(float* angle) {
    if (!angle) return;
    float rad[3];
    libalgo_get_robot_install_angle(rad);
    for (int i = 0; i < 3; ++i) angle[i] = static_cast<float>(rad[i] / DEG2RAD);
}

KX_API void invoke_libalgo_set_jointlim_max(const float* q) { set_converted(libalgo_set_jointlim_max, q); }
KX_API void invoke_libalgo_get_jointlim_max(float* q) { get_converted(libalgo_get_jointlim_max, q); }
KX_API void invoke_libalgo_set_jointlim_min(const float* q) { set_converted(libalgo_set_jointlim_min, q); }
KX_API void invoke_libalgo_get_jointlim_min(float* q) { get_converted(libalgo_get_jointlim_min, q); }
KX_API void invoke_libalgo_set_joint_vel_maxlim(const float* v) { set_converted(libalgo_set_joint_vel_maxlim, v); }
KX_API void invoke_libalgo_get_joint_vel_maxlim(float* v) { get_converted(libalgo_get_joint_vel_maxlim, v); }
KX_API void invoke_libalgo_set_joint_acc_maxlim(const float* a) { set_converted(libalgo_set_joint_acc_maxlim, a); }
KX_API void invoke_libalgo_get_joint_acc_maxlim(float* a) { get_converted(libalgo_get_joint_acc_maxlim, a); }

KX_API Pose invoke_forward_kinematics(const float* joint) {
    float q[8];
    to_library(joint, DEG2RAD, q);
    return forward_kinematics(q);
}

KX_API Matrix invoke_forward_kinematics_e(const float* joint) {
    float q[8];
    to_library(joint, DEG2RAD, q);
    return forward_kinematics_e(q);
}

KX_API int invoke_inverse_kinematics(const float* q_in, kx_pose_t q_pose, float* q_out, uint8_t flag) {
    // The library's code 2 is "orientation from the quaternion".
    double ms = 0;
    return timed_solve(q_in, q_pose, q_out, flag == 0 ? 2 : flag, &ms);
}

KX_API int invoke_inverse_kinematics_with_judgment_overspeed(const float* q_in, kx_pose_t q_pose, float* q_out,
                                                             uint8_t flag) {
    if (libalgo_get_robot_type() == BRIV) ikine_set_solution_range_briv(0.013f);
    double ms = 0;
    const int rc = timed_solve(q_in, q_pose, q_out, flag, &ms);
    if (ms < invoke_inverse_time_total_min) invoke_inverse_time_total_min = ms;
    else if (ms > invoke_inverse_time_total_max) invoke_inverse_time_total_max = ms;
    if (rc != 0) return rc;
    const int over = invoke_joint_overspeed_judgment(q_in, q_out, 1.0f);
    if (over != 0) {
        float lim[8];
        libalgo_get_jointlim_max(lim);
        libalgo_get_jointlim_min(lim);
    }
    return over;
}

KX_API int invoke_joint_overspeed_judgment(const float* q_current, const float* q_solve, float vel_factor) {
    float a[8], b[8];
    to_library(q_current, DEG2RAD, a);
    to_library(q_solve, DEG2RAD, b);
    return joint_overspeed_judgment(a, b, vel_factor);
}

KX_API void invoke_libalgo_set_control_loop_period(float seconds) { libalgo_set_control_loop_period(seconds); }

KX_API int invoke_libalgo_set_dh_params(DH dh) {
    for (int i = 0; i < 8; ++i) {
        dh.alpha[i] = static_cast<float>(dh.alpha[i] * 0.0174532925199433);
        dh.offset[i] = static_cast<float>(dh.offset[i] * 0.0174532925199433);
    }
    libalgo_set_dh_params(dh);
    return 0;
}

}  // extern "C"
