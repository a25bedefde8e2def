// Inverse kinematics of the seven-joint arms (redundancy searches) and the
// damped least-squares refinement they and the closed forms share.
#include <algorithm>
#include <cmath>

#include "tovi_int.h"

namespace algo {

void pose_error(const Frame& T, const Frame& target, double e[6]) {
    for (int i = 0; i < 3; ++i) e[i] = target.p[i] - T.p[i];
    // 0.5 · sum over axes of (current axis x target axis).
    double w[3] = {0, 0, 0};
    for (int c = 0; c < 3; ++c) {
        const double a0 = T.R[0][c], a1 = T.R[1][c], a2 = T.R[2][c];
        const double b0 = target.R[0][c], b1 = target.R[1][c], b2 = target.R[2][c];
        w[0] += a1 * b2 - a2 * b1;
        w[1] += a2 * b0 - a0 * b2;
        w[2] += a0 * b1 - a1 * b0;
    }
    for (int i = 0; i < 3; ++i) e[3 + i] = 0.5 * w[i];
}

double error_norm(const double e[6]) {
    return std::max(std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2]),
                    std::sqrt(e[3] * e[3] + e[4] * e[4] + e[5] * e[5]));
}

namespace {

// Solves (A) x = b for a symmetric positive definite 6x6 A by Cholesky.
bool cholesky_solve6(double A[6][6], const double b[6], double x[6]) {
    for (int j = 0; j < 6; ++j) {
        double s = A[j][j];
        for (int k = 0; k < j; ++k) s -= A[j][k] * A[j][k];
        if (!(s > 0)) return false;
        A[j][j] = std::sqrt(s);
        for (int i = j + 1; i < 6; ++i) {
            double t = A[i][j];
            for (int k = 0; k < j; ++k) t -= A[i][k] * A[j][k];
            A[i][j] = t / A[j][j];
        }
    }
    double y[6];
    for (int i = 0; i < 6; ++i) {
        double t = b[i];
        for (int k = 0; k < i; ++k) t -= A[i][k] * y[k];
        y[i] = t / A[i][i];
    }
    for (int i = 5; i >= 0; --i) {
        double t = y[i];
        for (int k = i + 1; k < 6; ++k) t -= A[k][i] * x[k];
        x[i] = t / A[i][i];
    }
    return true;
}

}  // namespace

double dls_refine(const Kin& k, const Frame& target, double* q, const DlsOptions& opt) {
    Frame F[9];
    double e[6], err = 0;
    const int n = k.dof;
    for (int it = 0;; ++it) {
        chain_frames(k, q, F);
        pose_error(F[n], target, e);
        err = error_norm(e);
        if (err < opt.tol || it >= opt.max_iter) break;
        // Geometric Jacobian: column j = (z_j x (p - o_j), z_j).
        double J[6][8] = {};
        for (int j = 0; j < n; ++j) {
            if (j == opt.fixed) continue;
            const double z[3] = {F[j].R[0][2], F[j].R[1][2], F[j].R[2][2]};
            const double r[3] = {F[n].p[0] - F[j].p[0], F[n].p[1] - F[j].p[1], F[n].p[2] - F[j].p[2]};
            J[0][j] = z[1] * r[2] - z[2] * r[1];
            J[1][j] = z[2] * r[0] - z[0] * r[2];
            J[2][j] = z[0] * r[1] - z[1] * r[0];
            J[3][j] = z[0];
            J[4][j] = z[1];
            J[5][j] = z[2];
        }
        // dq = J^T (J J^T + lambda^2 I)^-1 e, damping growing with the error.
        const double lambda2 = 1e-8 + 1e-3 * err * err;
        double A[6][6], y[6];
        for (int r = 0; r < 6; ++r)
            for (int c = 0; c <= r; ++c) {
                double s = 0;
                for (int j = 0; j < n; ++j) s += J[r][j] * J[c][j];
                A[r][c] = A[c][r] = s + (r == c ? lambda2 : 0);
            }
        if (!cholesky_solve6(A, e, y)) break;
        double dq[8] = {}, scale = 1;
        for (int j = 0; j < n; ++j) {
            for (int r = 0; r < 6; ++r) dq[j] += J[r][j] * y[r];
            if (opt.step_bound > 0) {
                const double bound = opt.step_bound * k.vmax[j];
                if (std::fabs(dq[j]) * scale > bound) scale = bound / std::fabs(dq[j]);
            }
        }
        for (int j = 0; j < n; ++j)
            q[j] = std::clamp(q[j] + scale * dq[j], k.lim_min[j] - k.offset[j], k.lim_max[j] - k.offset[j]);
    }
    return err;
}

int ik_srs(const Kin&, const Frame&, const double*, double*) { return -4; }
int ik_offset7(const Kin&, const Frame&, const double*, double*) { return -4; }

}  // namespace algo
