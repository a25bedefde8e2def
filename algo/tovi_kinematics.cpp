// Forward kinematics: the general modified-DH chain and the per-model entry
// points over it.
#include "tovi_kinematics.h"

#include "libalgo_interface.h"
#include "tovi_int.h"
#include "tovi_mathfuncs.h"

namespace algo {

Frame operator*(const Frame& A, const Frame& B) {
    Frame C;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            C.R[i][j] = A.R[i][0] * B.R[0][j] + A.R[i][1] * B.R[1][j] + A.R[i][2] * B.R[2][j];
        C.p[i] = A.R[i][0] * B.p[0] + A.R[i][1] * B.p[1] + A.R[i][2] * B.p[2] + A.p[i];
    }
    return C;
}

Frame inverse(const Frame& T) {
    Frame I;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) I.R[i][j] = T.R[j][i];
    for (int i = 0; i < 3; ++i) I.p[i] = -(I.R[i][0] * T.p[0] + I.R[i][1] * T.p[1] + I.R[i][2] * T.p[2]);
    return I;
}

Frame frame_from(const Matrix& m) {
    Frame T;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) T.R[i][j] = m.data[i][j];
        T.p[i] = m.data[i][3];
    }
    return T;
}

Matrix matrix_from(const Frame& T) {
    Matrix m{};
    m.irow = m.iline = 4;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) m.data[i][j] = static_cast<float>(T.R[i][j]);
        m.data[i][3] = static_cast<float>(T.p[i]);
    }
    m.data[3][3] = 1.0f;
    return m;
}

void Kin::set_dh(const float* d_, const float* a_, const float* alpha_, const float* offset_) {
    for (int i = 0; i < 8; ++i) {
        d[i] = d_[i];
        a[i] = a_[i];
        alpha[i] = alpha_[i];
        offset[i] = offset_[i];
        ca[i] = std::cos(alpha[i]);
        sa[i] = std::sin(alpha[i]);
    }
    // |wrist - shoulder|^2 = K + P cos(t4) + Q sin(t4) for the seven-joint
    // chains (joints 3 to 5 with alphas of +-90 degrees): longest at atan2(Q, P).
    const double P = 2 * a[3] * a[4] - 2 * d[2] * sa[3] * sa[4] * d[4];
    const double Q = 2 * a[3] * sa[4] * d[4] + 2 * d[2] * sa[3] * a[4];
    longest_elbow = std::atan2(Q, P);
}

void Kin::set_limits(const float* jmin, const float* jmax) {
    for (int i = 0; i < 8; ++i) {
        lim_min[i] = jmin[i] + offset[i];
        lim_max[i] = jmax[i] + offset[i];
    }
}

namespace {
// T <- T * RotX(alpha)·TransX(a)·RotZ(theta)·TransZ(d), written out:
// the link's rotation columns are (ct, ca st, sa st), (-st, ca ct, sa ct),
// (0, -sa, ca) and its translation (a, -sa d, ca d).
inline void append_link(Frame& T, const Kin& k, int i, double theta) {
    const double ct = std::cos(theta), st = std::sin(theta), ca = k.ca[i], sa = k.sa[i];
    const double c0[3] = {ct, ca * st, sa * st};
    const double c1[3] = {-st, ca * ct, sa * ct};
    const double c2[3] = {0, -sa, ca};
    const double t[3] = {k.a[i], -sa * k.d[i], ca * k.d[i]};
    for (int r = 0; r < 3; ++r) {
        const double r0 = T.R[r][0], r1 = T.R[r][1], r2 = T.R[r][2];
        T.p[r] += r0 * t[0] + r1 * t[1] + r2 * t[2];
        T.R[r][0] = r0 * c0[0] + r1 * c0[1] + r2 * c0[2];
        T.R[r][1] = r0 * c1[0] + r1 * c1[1] + r2 * c1[2];
        T.R[r][2] = r0 * c2[0] + r1 * c2[1] + r2 * c2[2];
    }
}
}  // namespace

Frame chain_partial(const Kin& k, const double* q, int n) {
    Frame T = Frame::identity();
    for (int i = 0; i < n; ++i) append_link(T, k, i, q[i] + k.offset[i]);
    return T;
}

Frame chain_fk(const Kin& k, const double* q) { return chain_partial(k, q, k.dof); }

void chain_frames(const Kin& k, const double* q, Frame* T) {
    Frame cur = Frame::identity();
    for (int i = 0; i < k.dof; ++i) {
        append_link(cur, k, i, q[i] + k.offset[i]);
        T[i] = cur;
    }
    T[k.dof] = cur;
}

}  // namespace algo

namespace algo {
namespace {

// Every model's "closed form" is the general modified-DH chain: the DH
// values come from the controller and may be any table, so nothing may
// assume a model's zeros.
Frame flange(const Config& c, const float* q, const DH* dh = nullptr) {
    double qd[8] = {};
    if (q)
        for (int i = 0; i < c.kin.dof && i < 8; ++i) qd[i] = q[i];
    if (!dh) return chain_fk(c.kin, qd);
    Kin k = c.kin;
    float d[8], a[8], alpha[8], offset[8];
    for (int i = 0; i < 8; ++i) {
        d[i] = dh->d[i] + dh->err_d[i];
        a[i] = dh->a[i] + dh->err_a[i];
        alpha[i] = dh->alpha[i] + dh->err_alpha[i];
        offset[i] = dh->offset[i] + dh->err_theta[i];
    }
    k.set_dh(d, a, alpha, offset);
    return chain_fk(k, qd);
}

enum : unsigned { WITH_INSTALL = 1, WITH_TOOL = 2, WITH_WORK = 4 };

Matrix compose(const Config& c, const float* q, unsigned with) {
    Frame T = flange(c, q);
    if (with & WITH_TOOL) T = T * frame_from(c.tool_m);
    if (with & WITH_INSTALL) T = frame_from(c.install_m) * T;
    if (with & WITH_WORK) T = frame_from(c.work_m) * T;
    return matrix_from(T);
}

Matrix dh_chain(const float* q, const DH* dh, int dof) {
    Kin k;
    k.dof = dof < 0 ? 0 : (dof > 8 ? 8 : dof);
    if (dh) k.set_dh(dh->d, dh->a, dh->alpha, dh->offset);
    double qd[8] = {};
    if (q)
        for (int i = 0; i < k.dof; ++i) qd[i] = q[i];
    return matrix_from(chain_fk(k, qd));
}

}  // namespace
}  // namespace algo

using algo::compose;
using algo::store;

extern "C" {

KX_API Pose forward_kinematics(const float* q) {
    return transformation_matrix_to_pose(compose(store(), q, algo::WITH_INSTALL | algo::WITH_TOOL | algo::WITH_WORK));
}
KX_API Matrix forward_kinematics_for_unity(const float* q) {
    return compose(store(), q, algo::WITH_INSTALL | algo::WITH_TOOL);
}
KX_API Matrix forward_kinematics_e(const float* q) { return compose(store(), q, 0); }
KX_API Matrix forward_kinematics_rotate_flange(const float* q) { return compose(store(), q, algo::WITH_INSTALL); }
KX_API Matrix forward_kinematics_rotate(const float* q) {
    return compose(store(), q, algo::WITH_INSTALL | algo::WITH_TOOL);
}
KX_API Matrix forward_kinematics_world_to_flange(const float* q) {
    return compose(store(), q, algo::WITH_INSTALL | algo::WITH_WORK);
}
KX_API Matrix forward_kinematics_pos(const float* q) { return compose(store(), q, algo::WITH_TOOL); }
KX_API Matrix forward_kinematics_pos_calibration(const float* q) {
    return algo::matrix_from(algo::flange(store(), q, &store().dh));
}

KX_API Matrix forward_kinematics_aven(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }
KX_API Matrix forward_kinematics_briv(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }
KX_API Matrix forward_kinematics_cald_2(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }
KX_API Matrix forward_kinematics_cald_3(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }
KX_API Matrix forward_kinematics_orla(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }
KX_API Matrix forward_kinematics_firu(const float* q, const DH* dh, int dof) { return algo::dh_chain(q, dh, dof); }

}  // extern "C"
