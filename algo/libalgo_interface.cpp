// The configuration store: one robot description for the whole process.
#include "libalgo_interface.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "algo_arm.h"
#include "tovi_int.h"
#include "tovi_mathfuncs.h"

namespace algo {

void Config::refresh_kin() {
    kin = Kin{};
    kin.type = type;
    kin.dof = dof;
    kin.set_dh(dh.d, dh.a, dh.alpha, dh.offset);
    kin.set_limits(jmin, jmax);
    for (int i = 0; i < 8; ++i) kin.vmax[i] = vmax[i];
    kin.period = period;
    kin.avoid_singularity = avoid_singularity != 0;
}

namespace {

void copy8(float* dst, const float* src) {
    if (dst && src) std::memcpy(dst, src, 8 * sizeof(float));
}

int load_defaults(Config& c, RobotType type, SensorType sensor) {
    ArmModel m;
    // The generic arm is offered with any sensor; the others only with the
    // editions their table lists.
    const bool ok = default_model(type, sensor, &m) || (type == UNIVERSAL && default_model(type, _P, &m));
    if (!ok) return -1;
    c.dof = static_cast<int16_t>(m.dof);
    std::memset(&c.dh, 0, sizeof c.dh);
    copy8(c.dh.d, m.d);
    copy8(c.dh.a, m.a);
    copy8(c.dh.alpha, m.alpha);
    copy8(c.dh.offset, m.offset);
    c.dh_default = c.dh;
    copy8(c.jmax, m.jmax);
    copy8(c.jmin, m.jmin);
    copy8(c.vmax, m.vmax);
    copy8(c.amax, m.amax);
    for (int i = 0; i < m.dof; ++i) {
        c.direction[i] = 1.0f;
        // A rough dynamic model: mass per link from its length.
        c.link_dynamics[i][0] = 1.0f + 8.0f * std::fabs(m.d[i]) + 8.0f * std::fabs(m.a[i]);
    }
    c.gravity[2] = ALGO_GRAVITY;
    c.all_dof = m.dof;
    c.refresh_kin();
    return 0;
}

int reset(Config& c, RobotType type, SensorType sensor) {
    c = Config{};
    c.period = ALGO_DEFAULT_PERIOD;
    c.g = ALGO_GRAVITY;
    c.type = type;
    c.sensor = sensor;
    c.install_m = c.tool_m = c.work_m = matrix_eye();
    c.refresh_kin();
    return load_defaults(c, type, sensor);
}

}  // namespace

Config& store() {
    static Config config = [] {
        Config c;
        reset(c, AVEN, _P);
        return c;
    }();
    return config;
}

}  // namespace algo

using algo::store;

namespace {

using algo::copy8;

// d, a, alpha, offset and the four compensation arrays each lie back to
// back in DH: copy one group of four, starting at byte `first`.
void copy_four(DH& to, const DH& from, size_t first) {
    std::memcpy(reinterpret_cast<char*>(&to) + first, reinterpret_cast<const char*>(&from) + first, 4 * sizeof to.d);
}

// Setters that change what the solvers see keep the derived view current.
void set8(float* dst, const float* src) {
    copy8(dst, src);
    store().refresh_kin();
}

Matrix frame_matrix(const Coord& c) {
    Pose p{};
    p.position = Pos{c.x, c.y, c.z};
    p.euler = Euler{c.rx, c.ry, c.rz};
    return pose_euler_to_transformation_matrix(p);
}

}  // namespace

extern "C" {

KX_API void libalgo_init(void) { libalgo_set_robot_and_sensor_type(AVEN, _P); }

KX_API int libalgo_set_robot_and_sensor_type(RobotType type, SensorType sensor) {
    return algo::reset(store(), type, sensor);
}

KX_API int lib_internal_set_robot_default_config(RobotType type, SensorType sensor) {
    return algo::load_defaults(store(), type, sensor);
}

KX_API RobotType libalgo_get_robot_type(void) { return store().type; }
KX_API SensorType libalgo_get_sensor_type(void) { return store().sensor; }
KX_API int16_t libalgo_get_rbt_dof(void) { return store().dof; }

KX_API void libalgo_set_dh_params(DH dh) {
    copy_four(store().dh, dh, offsetof(DH, d));
    store().refresh_kin();
}
KX_API DH libalgo_get_dh_value(void) { return store().dh; }

KX_API void libalgo_set_dh_compensation_value(DH dh) { copy_four(store().dh, dh, offsetof(DH, err_d)); }
KX_API DH libalgo_get_dh_compensation_value(void) { return store().dh; }
KX_API void libalgo_set_dh_params_default(DH dh) { store().dh_default = dh; }
KX_API DH libalgo_get_dh_params_default(void) { return store().dh_default; }

KX_API int libalgo_check_dh_params_is_default(void) {
    const algo::Config& c = store();
    if (c.dof < 1) return 1;
    const float* cur[4] = {c.dh.d, c.dh.a, c.dh.alpha, c.dh.offset};
    const float* def[4] = {c.dh_default.d, c.dh_default.a, c.dh_default.alpha, c.dh_default.offset};
    for (int i = 0; i < c.dof && i < 8; ++i)
        for (int k = 0; k < 4; ++k)
            if (!(std::fabs(static_cast<double>(cur[k][i]) - def[k][i]) < 1e-10)) return 0;
    return 1;
}

KX_API void libalgo_set_jointlim_max(const float* q) { set8(store().jmax, q); }
KX_API void libalgo_get_jointlim_max(float* q) { copy8(q, store().jmax); }
KX_API void libalgo_set_jointlim_min(const float* q) { set8(store().jmin, q); }
KX_API void libalgo_get_jointlim_min(float* q) { copy8(q, store().jmin); }
KX_API void libalgo_set_joint_vel_maxlim(const float* v) { set8(store().vmax, v); }
KX_API void libalgo_get_joint_vel_maxlim(float* v) { copy8(v, store().vmax); }
KX_API void libalgo_set_joint_acc_maxlim(const float* a) { copy8(store().amax, a); }
KX_API void libalgo_get_joint_acc_maxlim(float* a) { copy8(a, store().amax); }

KX_API void libalgo_get_modeling_jointlim_max(float* q) {
    if (!q) return;
    for (int i = 0; i < 8; ++i) q[i] = store().jmax[i] + store().dh.offset[i];
}
KX_API void libalgo_get_modeling_jointlim_min(float* q) {
    if (!q) return;
    for (int i = 0; i < 8; ++i) q[i] = store().jmin[i] + store().dh.offset[i];
}

KX_API void libalgo_set_joint_direction(const float* dir) {
    if (!dir) return;
    algo::Config& c = store();
    for (int i = 0; i < c.dof && i < 8; ++i) {
        if (dir[i] > 0) c.direction[i] = 1.0f;
        else if (dir[i] < 0) c.direction[i] = -1.0f;
    }
}
KX_API void libalgo_get_joint_direction(float* dir) { copy8(dir, store().direction); }

KX_API void libalgo_set_robot_install_angle(const float* angle) {
    if (!angle) return;
    algo::Config& c = store();
    for (int i = 0; i < 3; ++i) c.install[i] = angle[i];
    Matrix r = euler_to_matrix(angle[0], angle[1], angle[2]);
    r.irow = r.iline = 4;
    r.data[3][3] = 1.0f;
    c.install_m = r;
    // Gravity points down in the world; the base sees it through R^T.
    for (int i = 0; i < 3; ++i) c.gravity[i] = r.data[2][i] * ALGO_GRAVITY;
}
KX_API void libalgo_get_robot_install_angle(float* angle) {
    if (angle)
        for (int i = 0; i < 3; ++i) angle[i] = store().install[i];
}
KX_API Matrix libalgo_get_robot_install_angle_matrix(void) { return store().install_m; }
KX_API void libalgo_get_gravity_vector(float* g) {
    if (g)
        for (int i = 0; i < 3; ++i) g[i] = store().gravity[i];
}

KX_API void libalgo_set_tool_cs_params(Coord tool) {
    store().tool = tool;
    store().tool_m = frame_matrix(tool);
}
KX_API Coord libalgo_get_tool_cs_params(void) { return store().tool; }
KX_API Matrix libalgo_get_tool_cs_matrix(void) { return store().tool_m; }
KX_API void libalgo_set_work_cs_params(Coord work) {
    store().work = work;
    store().work_m = frame_matrix(work);
}
KX_API Coord libalgo_get_work_cs_params(void) { return store().work; }
KX_API Matrix libalgo_get_work_cs_to_base_matrix(void) { return store().work_m; }
KX_API void libalgo_set_payload_params(PayloadCfg payload) { store().payload = payload; }
KX_API PayloadCfg libalgo_get_payload_params(void) { return store().payload; }

KX_API int libalgo_set_safety_level(int16_t level) {
    if (level > 8) return -1;
    store().safety = level;
    return 0;
}
KX_API int16_t libalgo_get_safety_level(void) { return store().safety; }

KX_API int libalgo_set_system_all_dof(int n) {
    if (n < store().dof) return -1;
    store().all_dof = n;
    return 0;
}
KX_API int libalgo_get_system_all_dof(void) { return store().all_dof; }

KX_API void libalgo_set_is_avoid_Singularity(int on) {
    store().avoid_singularity = on;
    store().refresh_kin();
}
KX_API int libalgo_get_is_avoid_Singularity(void) { return store().avoid_singularity; }
KX_API void libalgo_set_dynamics_model_type(int type) { store().dynamics_type = type; }
KX_API int libalgo_get_dynamics_model_type(void) { return store().dynamics_type; }
KX_API void libalgo_set_control_loop_period(float seconds) {
    store().period = seconds;
    store().refresh_kin();
}
KX_API float libalgo_get_control_loop_period(void) { return store().period; }
KX_API void libalgo_set_user_collision_threshold(const float* threshold) { copy8(store().collision, threshold); }
KX_API void libalgo_get_user_collision_threshold(float* threshold) { copy8(threshold, store().collision); }

KX_API void libalgo_set_link_dynamics_params(const float* params) {
    if (params) std::memcpy(store().link_dynamics, params, sizeof store().link_dynamics);
}
KX_API void libalgo_get_link_dynamics_params(float* params) {
    if (params) std::memcpy(params, store().link_dynamics, sizeof store().link_dynamics);
}

KX_API void libalgo_update_feedback_data(const float* q, const float* dq, const float* tau) {
    copy8(store().fb_q, q);
    copy8(store().fb_dq, dq);
    copy8(store().fb_tau, tau);
}
KX_API void libalgo_get_robot_feedback_data(float* q, float* dq, float* tau) {
    copy8(q, store().fb_q);
    copy8(dq, store().fb_dq);
    copy8(tau, store().fb_tau);
}

}  // extern "C"
