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

Frame chain_fk(const Kin& k, const double* q) {
    Frame T = Frame::identity();
    for (int i = 0; i < k.dof; ++i) append_link(T, k, i, q[i] + k.offset[i]);
    return T;
}

void chain_frames(const Kin& k, const double* q, Frame* T) {
    Frame cur = Frame::identity();
    for (int i = 0; i < k.dof; ++i) {
        append_link(cur, k, i, q[i] + k.offset[i]);
        T[i] = cur;
    }
    T[k.dof] = cur;
}

}  // namespace algo
