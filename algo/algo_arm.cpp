// The thread-safe, store-independent face of the kinematics core.
#include "algo_arm.h"

#include "tovi_int.h"

namespace algo {
namespace {

Kin kin_of(const ArmModel& m) {
    Kin k;
    k.type = m.type;
    k.dof = m.dof;
    k.set_dh(m.d, m.a, m.alpha, m.offset);
    k.set_limits(m.jmin, m.jmax);
    for (int i = 0; i < 8; ++i) k.vmax[i] = m.vmax[i];
    // A self-contained model always searches the whole redundancy.
    k.theta_v = ALGO_THETA_V_WIDE;
    return k;
}

}  // namespace

KX_API bool default_model(int type, int sensor, ArmModel* out) {
    if (!out) return false;
    const ModelTable* t = model_table(type);
    if (!t || sensor < 0 || sensor > 2 || !t->sensor_offered[sensor]) return false;
    *out = ArmModel{};
    out->type = type;
    out->sensor = sensor;
    out->dof = t->dof;
    for (int i = 0; i < t->dof; ++i) {
        out->d[i] = static_cast<float>(t->d[i]);
        out->a[i] = static_cast<float>(t->a[i]);
        out->alpha[i] = static_cast<float>(t->alpha[i] * ALGO_DEG2RAD);
        out->offset[i] = static_cast<float>(t->offset[i] * ALGO_DEG2RAD);
        out->jmin[i] = static_cast<float>(t->jmin[i] * ALGO_DEG2RAD);
        out->jmax[i] = static_cast<float>(t->jmax[i] * ALGO_DEG2RAD);
        out->vmax[i] = static_cast<float>(t->vmax[i] * ALGO_DEG2RAD);
        out->amax[i] = static_cast<float>(t->amax[i] * ALGO_DEG2RAD);
    }
    out->d[t->dof - 1] += static_cast<float>(sensor_thickness(sensor));
    return true;
}

KX_API void arm_fk(const ArmModel& model, const float q[8], float T[4][4]) {
    Kin k = kin_of(model);
    double qd[8] = {};
    for (int i = 0; i < k.dof; ++i) qd[i] = q[i];
    const Matrix m = matrix_from(chain_fk(k, qd));
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) T[r][c] = m.data[r][c];
}

KX_API int arm_ik(const ArmModel& model, const float q_ref[8], const float T[4][4], float q_out[8]) {
    Kin k = kin_of(model);
    double ref[8] = {}, out[8] = {};
    for (int i = 0; i < k.dof; ++i) ref[i] = q_ref[i];
    Matrix m{};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) m.data[r][c] = T[r][c];
    const int rc = solve_ik(k, frame_from(m), ref, out);
    if (rc == 0)
        for (int i = 0; i < k.dof; ++i) q_out[i] = static_cast<float>(out[i]);
    return rc;
}

}  // namespace algo
