// The kx_algo_ facade: loads a connection's cached description into the
// kinematics library and converts between the API's records and units and
// the library's. No network traffic.
#include <cstddef>
#include <cstring>

#include "algo_api.h"
#include "kx_command.h"
#include "kx_interface.h"
#include "kx_interface_global.h"
#include "kx_invoke_algo.h"
#include "libalgo_interface.h"
#include "log.h"
#include "tovi_inv_kinematics.h"
#include "tovi_mathfuncs.h"

namespace {


// kx_matrix_t and Matrix are the same record.
static_assert(sizeof(kx_matrix_t) == sizeof(Matrix) && offsetof(kx_matrix_t, data) == offsetof(Matrix, data));

Matrix to_lib(const kx_matrix_t& m) {
    Matrix out;
    std::memcpy(&out, &m, sizeof out);
    return out;
}

kx_matrix_t to_api(const Matrix& m) {
    kx_matrix_t out;
    std::memcpy(&out, &m, sizeof out);
    return out;
}

Pose to_lib(const kx_pose_t& p) {
    return Pose{{p.position.x, p.position.y, p.position.z},
                {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z},
                {p.euler.rx, p.euler.ry, p.euler.rz}};
}

kx_pose_t to_api(const Pose& p) {
    return kx_pose_t{{p.position.x, p.position.y, p.position.z},
                     {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z},
                     {p.euler.rx, p.euler.ry, p.euler.rz}};
}

Coord coord_of(const kx_frame_t& f) {
    return Coord{f.pose.position.x, f.pose.position.y, f.pose.position.z,
                 f.pose.euler.rx,   f.pose.euler.ry,   f.pose.euler.rz};
}

void put_coord(kx_frame_t& f, const Coord& c) {
    f.pose.position = kx_position_t{c.x, c.y, c.z};
    f.pose.euler = kx_euler_t{c.rx, c.ry, c.rz};
}

RobotType library_type(kx_robot_arm_model_e mode) {
    switch (mode) {
        case KX_MODEL_BRIV_E: return BRIV;
        case KX_MODEL_CALD_I_E: return CALDI;
        case KX_MODEL_CALD_II_E: return CALDII;
        case KX_MODEL_CALD_IV_E: return CALDIV;
        case KX_MODEL_DUMO_E: return DUMO;
        case KX_MODEL_ESKA_E: return ESKA;
        case KX_MODEL_FIRU_E: return FIRU;
        case KX_MODEL_GOLT_E: return GOLT;
        // KX_MODEL_CALD_III_E has no branch of its own and is configured as AVEN.
        default: return AVEN;
    }
}

SensorType library_sensor(kx_force_type_e type) {
    switch (type) {
        case KX_FORCE_TYPE_QA_E: return _QA;
        case KX_FORCE_TYPE_QS_E: return _QS;
        default: return _P;
    }
}

// A NaN or infinite input would come out as a plausible-looking result (or
// slip through the limit comparisons), so it is refused and logged instead.
bool finite_joints(const char* fn, const char* name, const float* joint) {
    kx::Args args;
    const int dof = libalgo_get_rbt_dof();
    for (int i = 0; i < dof && i < 8; ++i) args.check(joint[i], name, i);
    return !args.refused(fn);
}

bool finite_values(const char* fn, const char* name, const float* v, int n) {
    kx::Args args;
    for (int i = 0; i < n; ++i) args.check(v[i], name, i);
    return !args.refused(fn);
}

// Position and the orientation that is used: the Euler angles, or the
// quaternion when `by_quaternion`.
bool finite_pose(const char* fn, const char* name, const kx_pose_t& p, bool by_quaternion = false) {
    const float v[7] = {p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz, 0.0f};
    const float q[7] = {p.position.x, p.position.y, p.position.z, p.quaternion.w,
                        p.quaternion.x, p.quaternion.y, p.quaternion.z};
    return by_quaternion ? finite_values(fn, name, q, 7) : finite_values(fn, name, v, 6);
}

// One library call under the configuration lock.
template <class F, class... Args>
auto locked(F f, Args... args) {
    const kx::AlgoLock lock;
    return f(args...);
}

// A joint-array setter: a non-finite value leaves the store as it was.
void set_joints(const char* fn, void (*setter)(const float*), const float* values) {
    const kx::AlgoLock lock;
    if (values && !finite_joints(fn, "joint", values)) return;
    setter(values);
}

void widen_redundancy_search() {
    ikine_set_solution_range_briv(3.14f);
    ikine_set_7dof_solver_search_strategy(0);
}

}  // namespace

namespace kx {
std::recursive_mutex& algo_mutex() {
    static std::recursive_mutex m;
    return m;
}
}  // namespace kx

extern "C" {

KX_API char* kx_algo_version(void) {
    static char version[] = "1.5.1-4decf769";
    return version;
}

KX_API void kx_algo_init_sys_data(kx_robot_arm_model_e Mode, kx_force_type_e Type) {
    const kx::AlgoLock lock;
    invoke_libalgo_init();
    (void)invoke_libalgo_set_robot_type(library_type(Mode), library_sensor(Type));
}

KX_API void kx_algo_set_angle(float x, float y, float z) {
    const float deg[3] = {x, y, z};
    if (!finite_values("kx_algo_set_angle", "angle", deg, 3)) return;
    const kx::AlgoLock lock;
    angleU = static_cast<float>(x * 3.141592653589793 / 180);
    angleV = static_cast<float>(y * 3.141592653589793 / 180);
    angleH = static_cast<float>(z * 3.141592653589793 / 180);
    invoke_libalgo_set_robot_install_angle(deg);
}

KX_API void kx_algo_get_angle(float* x, float* y, float* z) {
    const kx::AlgoLock lock;
    if (!x || !y || !z) return;
    float deg[3];
    invoke_libalgo_get_robot_install_angle(deg);
    *x = deg[0];
    *y = deg[1];
    *z = deg[2];
}

KX_API void kx_algo_set_redundant_parameter_traversal_mode(bool mode) {
    const kx::AlgoLock lock;
    // The mode setter configures the library directly and disarms the
    // per-call override.
    defaut_traversal_mode = false;
    if (mode) {
        widen_redundancy_search();
    } else {
        ikine_set_solution_range_briv(0.013f);
        ikine_set_7dof_solver_search_strategy(1);
    }
}

KX_API void kx_algo_set_workframe(const kx_frame_t* const coord_work) {
    if (!coord_work || !finite_pose("kx_algo_set_workframe", "coord_work.pose", coord_work->pose)) return;
    const kx::AlgoLock lock;
    invoke_libalgo_set_work_cs_params(coord_of(*coord_work));
}

KX_API void kx_algo_get_curr_workframe(kx_frame_t* coord_work) {
    const kx::AlgoLock lock;
    if (coord_work) put_coord(*coord_work, invoke_libalgo_get_work_cs_params());
}

KX_API void kx_algo_set_toolframe(const kx_frame_t* const coord_tool) {
    static const char* const fn = "kx_algo_set_toolframe";
    if (!coord_tool || !finite_pose(fn, "coord_tool.pose", coord_tool->pose)) return;
    const float payload_values[4] = {coord_tool->payload, coord_tool->x, coord_tool->y, coord_tool->z};
    if (!finite_values(fn, "coord_tool.payload", payload_values, 4)) return;
    const kx::AlgoLock lock;
    invoke_libalgo_set_tool_cs_params(coord_of(*coord_tool));
    PayloadCfg payload{};
    payload.mass = coord_tool->payload;
    payload.com[0] = coord_tool->x;
    payload.com[1] = coord_tool->y;
    payload.com[2] = coord_tool->z;
    libalgo_set_payload_params(payload);
}

KX_API void kx_algo_get_curr_toolframe(kx_frame_t* coord_tool) {
    const kx::AlgoLock lock;
    if (!coord_tool) return;
    put_coord(*coord_tool, invoke_libalgo_get_tool_cs_params());
    const PayloadCfg payload = libalgo_get_payload_params();
    coord_tool->payload = payload.mass;
    coord_tool->x = payload.com[0];
    coord_tool->y = payload.com[1];
    coord_tool->z = payload.com[2];
}

KX_API void kx_algo_set_joint_max_limit(const float* joint_limit) { set_joints("kx_algo_set_joint_max_limit", invoke_libalgo_set_jointlim_max, joint_limit); }
KX_API void kx_algo_get_joint_max_limit(float* joint_limit) { locked(invoke_libalgo_get_jointlim_max, joint_limit); }
KX_API void kx_algo_set_joint_min_limit(const float* joint_limit) { set_joints("kx_algo_set_joint_min_limit", invoke_libalgo_set_jointlim_min, joint_limit); }
KX_API void kx_algo_get_joint_min_limit(float* joint_limit) { locked(invoke_libalgo_get_jointlim_min, joint_limit); }
KX_API void kx_algo_set_joint_max_speed(const float* v) { set_joints("kx_algo_set_joint_max_speed", invoke_libalgo_set_joint_vel_maxlim, v); }
KX_API void kx_algo_get_joint_max_speed(float* v) { locked(invoke_libalgo_get_joint_vel_maxlim, v); }
KX_API void kx_algo_set_joint_max_acc(const float* a) { set_joints("kx_algo_set_joint_max_acc", invoke_libalgo_set_joint_acc_maxlim, a); }
KX_API void kx_algo_get_joint_max_acc(float* a) { locked(invoke_libalgo_get_joint_acc_maxlim, a); }

KX_API int kx_algo_judgment_overpos(float* joint) {
    const kx::AlgoLock lock;
    if (!joint) return -1;
    float lo[8] = {}, hi[8] = {};
    kx_algo_get_joint_min_limit(lo);
    kx_algo_get_joint_max_limit(hi);
    if (!finite_joints("kx_algo_judgment_overpos", "joint", joint)) return -1;
    for (int i = 0; i < libalgo_get_rbt_dof() && i < 8; ++i)
        if (joint[i] < lo[i] || joint[i] > hi[i]) return -1;
    return 0;
}

KX_API kx_quat_t kx_algo_euler2quaternion(kx_euler_t eu) {
    const Quat q = euler_to_quat(eu.rx, eu.ry, eu.rz);
    return kx_quat_t{q.w, q.x, q.y, q.z};
}

KX_API kx_euler_t kx_algo_quaternion2euler(kx_quat_t qua) {
    const Euler e = quat_to_euler(Quat{qua.w, qua.x, qua.y, qua.z});
    return kx_euler_t{e.rx, e.ry, e.rz};
}

KX_API kx_matrix_t kx_algo_euler2matrix(kx_euler_t state) {
    return to_api(algo_euler_to_matrix(Euler{state.rx, state.ry, state.rz}));
}

KX_API int kx_algo_inverse_kinematics(kx_robot_handle* handle, kx_inverse_kinematics_params_t params, float* q_out) {
    const kx::AlgoLock lock;
    if (params.flag == 0) {
        // Exact single-precision comparison, deliberately without tolerance.
        const kx_quat_t& q = params.q_pose.quaternion;
        const float ww = q.w * q.w, xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
        const float norm = ((ww + xx) + yy) + zz;
        if (norm != 1.0f) return -2;
    }
    if (!finite_pose("kx_algo_inverse_kinematics", "q_pose", params.q_pose, params.flag == 0)) return -1;
    kx_algo_arm_state_set(handle);
    if (kx_algo_judgment_overpos(params.q_in) == -1) return -1;
    if (defaut_traversal_mode) widen_redundancy_search();
    return invoke_inverse_kinematics(params.q_in, params.q_pose, q_out, params.flag) == 0 ? 0 : 1;
}

KX_API kx_pose_t kx_algo_forward_kinematics(kx_robot_handle* handle, const float* const joint) {
    const kx::AlgoLock lock;
    kx_algo_arm_state_set(handle);
    if (!joint || !finite_joints("kx_algo_forward_kinematics", "joint", joint)) return kx_pose_t{};
    return to_api(invoke_forward_kinematics(joint));
}

KX_API kx_matrix_t kx_algo_pos2matrix(kx_pose_t state) { return to_api(algo_pose_to_matrix(to_lib(state))); }
KX_API kx_pose_t kx_algo_matrix2pos(kx_matrix_t matrix) { return to_api(algo_matrix_to_pose(to_lib(matrix))); }
KX_API kx_pose_t kx_algo_base2workframe(kx_matrix_t matrix, kx_pose_t state) {
    return to_api(algo_base_to_workframe(to_lib(matrix), to_lib(state)));
}
KX_API kx_pose_t kx_algo_workframe2base(kx_matrix_t matrix, kx_pose_t state) {
    return to_api(algo_workframe_to_base(to_lib(matrix), to_lib(state)));
}

KX_API kx_pose_t kx_algo_end2tool(kx_robot_handle* handle, kx_pose_t eu_end) {
    const kx::AlgoLock lock;
    kx_algo_arm_state_set(handle);
    kx_frame_t tool{}, work{};
    kx_algo_get_curr_toolframe(&tool);
    kx_algo_get_curr_workframe(&work);
    const kx_matrix_t T_end = kx_algo_pos2matrix(eu_end);
    const kx_matrix_t T_tool = kx_algo_pos2matrix(tool.pose);
    const kx_matrix_t T_work = kx_algo_pos2matrix(work.pose);
    const kx_pose_t pose = kx_algo_matrix2pos(to_api(matrix_m(to_lib(T_end), to_lib(T_tool))));
    return kx_algo_base2workframe(T_work, pose);
}

KX_API void kx_algo_arm_state_set(kx_robot_handle* handle) {
    const kx::AlgoLock lock;
    if (!handle) return;
    kx_rdlock_lock();
    const kx_handle_t* h = kx_get_kx_handle_by_robot_handle(handle);
    if (h) {
        kx_algo_init_sys_data(h->arm_model, h->force_type);
        kx_algo_set_angle(h->install_angle[0], h->install_angle[1], h->install_angle[2]);
        kx_algo_set_toolframe(&h->tool_frame);
        kx_algo_set_workframe(&h->work_frame);
        kx_algo_set_joint_max_limit(h->joint_max_limit);
        kx_algo_set_joint_min_limit(h->joint_min_limit);
        kx_algo_set_joint_max_acc(h->joint_max_acc);
        kx_algo_set_joint_max_speed(h->joint_max_speed);
        kx_algo_set_dh(h->dh);
    } else {
        kx_log_warn("The robotic arm is not connected!");
    }
    kx_rdlock_unlock();
}

KX_API kx_pose_t kx_algo_tool2end(kx_robot_handle* handle, kx_pose_t eu_tool) {
    kx_frame_t tool{}, work{};
    kx_rdlock_lock();
    const kx_handle_t* h = kx_get_kx_handle_by_robot_handle(handle);
    if (h) {
        tool = h->tool_frame;
        work = h->work_frame;
    }
    kx_rdlock_unlock();
    const kx_pose_t base = kx_algo_workframe2base(kx_algo_pos2matrix(work.pose), eu_tool);
    const Matrix T_tool_inv = matrix_inv(to_lib(kx_algo_pos2matrix(tool.pose)));
    return kx_algo_matrix2pos(to_api(matrix_m(to_lib(kx_algo_pos2matrix(base)), T_tool_inv)));
}

KX_API Matrix Forward_Kinematics_e(const float* joint) {
    const kx::AlgoLock lock;
    return to_lib(kx_algo_pos2matrix(kx_algo_forward_kinematics(nullptr, joint)));
}

KX_API kx_pose_t kx_algo_cartesian_tool(kx_robot_handle* handle, const float* curr_joint, float move_lengthx,
                                        float move_lengthy, float move_lengthz) {
    const kx::AlgoLock lock;
    static const char* const fn = "kx_algo_cartesian_tool";
    kx_algo_arm_state_set(handle);
    const float lengths[3] = {move_lengthx, move_lengthy, move_lengthz};
    if (!curr_joint || !finite_joints(fn, "curr_joint", curr_joint) || !finite_values(fn, "move_length", lengths, 3))
        return kx_pose_t{};
    return to_api(algo_cartesian_tool(curr_joint, move_lengthx, move_lengthy, move_lengthz));
}

KX_API kx_pose_t kx_algo_rotate_move(kx_robot_handle* handle, const float* const curr_joint, int rotate_axis,
                                     float rotate_angle, kx_pose_t choose_axis) {
    const kx::AlgoLock lock;
    static const char* const fn = "kx_algo_rotate_move";
    kx_algo_arm_state_set(handle);
    if (!curr_joint || !finite_joints(fn, "curr_joint", curr_joint) ||
        !finite_values(fn, "rotate_angle", &rotate_angle, 1) || !finite_pose(fn, "choose_axis", choose_axis))
        return kx_pose_t{};
    return to_api(algo_rotate_move(curr_joint, rotate_axis, to_lib(choose_axis), rotate_angle));
}

KX_API kx_pose_t kx_algo_pose_move(kx_robot_handle* handle, kx_pose_t poseCurrent, const float* deltaPosAndRot,
                                   int frameMode) {
    const kx::AlgoLock lock;
    static const char* const fn = "kx_algo_pose_move";
    kx_algo_arm_state_set(handle);
    if (!deltaPosAndRot || !finite_pose(fn, "poseCurrent", poseCurrent) ||
        !finite_values(fn, "deltaPosAndRot", deltaPosAndRot, 6))
        return kx_pose_t{};
    return to_api(algo_pose_move(to_lib(poseCurrent), deltaPosAndRot, frameMode));
}

KX_API kx_dh_t kx_algo_get_dh(void) {
    const kx::AlgoLock lock;
    const DH dh = libalgo_get_dh_value();
    kx_dh_t out{};
    for (int i = 0; i < 7; ++i) {
        out.d[i] = dh.d[i];
        out.a[i] = dh.a[i];
        out.alpha[i] = static_cast<float>(dh.alpha[i] * 57.2957795130823);
        out.offset[i] = static_cast<float>(dh.offset[i] * 57.2957795130823);
    }
    return out;
}

KX_API void kx_algo_set_dh(kx_dh_t dh) {
    static const char* const fn = "kx_algo_set_dh";
    if (!finite_values(fn, "dh.d", dh.d, 7) || !finite_values(fn, "dh.a", dh.a, 7) ||
        !finite_values(fn, "dh.alpha", dh.alpha, 7) || !finite_values(fn, "dh.offset", dh.offset, 7))
        return;
    const kx::AlgoLock lock;
    DH lib{};
    for (int i = 0; i < 7; ++i) {
        lib.d[i] = dh.d[i];
        lib.a[i] = dh.a[i];
        lib.alpha[i] = dh.alpha[i];
        lib.offset[i] = dh.offset[i];
    }
    invoke_libalgo_set_dh_params(lib);
}

}  // extern "C"
