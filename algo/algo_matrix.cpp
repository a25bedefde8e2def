// The dense matrix library: every algorithm written once over the scalar
// type, exported in single and double precision.
#include "algo_matrix.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "tovi_int.h"

namespace {

template <class M>
using Scalar = std::remove_cv_t<std::remove_reference_t<decltype(M{}.data[0][0])>>;

constexpr int N = ALGO_MAT_DIM;

template <class M>
bool fits(const M& a) {
    return a.row >= 1 && a.col >= 1 && a.row <= N && a.col <= N;
}

// Plane rotation of columns p and q (rows 0..n-1): x' = c x - s y, y' = s x + c y.
template <class M, class S>
void rotate_columns(M& m, int n, int p, int q, S c, S s) {
    for (int i = 0; i < n; ++i) {
        const S x = m.data[i][p], y = m.data[i][q];
        m.data[i][p] = c * x - s * y;
        m.data[i][q] = s * x + c * y;
    }
}

// The same on rows p and q (columns 0..n-1).
template <class M, class S>
void rotate_rows(M& m, int n, int p, int q, S c, S s) {
    for (int k = 0; k < n; ++k) {
        const S x = m.data[p][k], y = m.data[q][k];
        m.data[p][k] = c * x - s * y;
        m.data[q][k] = s * x + c * y;
    }
}

template <class M>
M zeros(int row, int col) {
    M m{};
    if (row >= 1 && col >= 1 && row <= N && col <= N) {
        m.row = row;
        m.col = col;
    }
    return m;
}

template <class M>
M eye(int n) {
    M m = zeros<M>(n, n);
    for (int i = 0; i < m.row; ++i) m.data[i][i] = 1;
    return m;
}

template <class M>
M mult(const M& a, const M& b) {
    if (!fits(a) || !fits(b) || a.col != b.row) return M{};
    M c = zeros<M>(a.row, b.col);
    for (int i = 0; i < a.row; ++i)
        for (int k = 0; k < a.col; ++k) {
            const auto f = a.data[i][k];
            if (f == 0) continue;
            for (int j = 0; j < b.col; ++j) c.data[i][j] += f * b.data[k][j];
        }
    return c;
}

template <class M>
M transpose(const M& a) {
    if (!fits(a)) return M{};
    M t = zeros<M>(a.col, a.row);
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) t.data[j][i] = a.data[i][j];
    return t;
}

template <class M>
M combine(const M& a, const M& b, Scalar<M> sb) {  // a + sb·b
    if (!fits(a) || a.row != b.row || a.col != b.col) return M{};
    M c = a;
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) c.data[i][j] += sb * b.data[i][j];
    return c;
}

template <class M>
M scale(M a, Scalar<M> s) {
    if (!fits(a)) return M{};
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) a.data[i][j] *= s;
    return a;
}

// Doolittle LU with partial pivoting in place; perm[i] = source row of row i.
// Returns the permutation's sign, 0 when singular.
template <class M>
int lu_in_place(M& a, int* perm) {
    int sign = 1;
    const int n = a.row;
    for (int i = 0; i < n; ++i) perm[i] = i;
    for (int c = 0; c < n; ++c) {
        int p = c;
        for (int r = c + 1; r < n; ++r)
            if (std::fabs(a.data[r][c]) > std::fabs(a.data[p][c])) p = r;
        if (!(std::fabs(a.data[p][c]) > 0)) return 0;
        if (p != c) {
            std::swap(a.data[p], a.data[c]);
            std::swap(perm[p], perm[c]);
            sign = -sign;
        }
        for (int r = c + 1; r < n; ++r) {
            a.data[r][c] /= a.data[c][c];
            for (int j = c + 1; j < n; ++j) a.data[r][j] -= a.data[r][c] * a.data[c][j];
        }
    }
    return sign;
}

template <class M>
Scalar<M> det(M a) {
    if (!fits(a) || a.row != a.col) return 0;
    int perm[N];
    const int sign = lu_in_place(a, perm);
    Scalar<M> d = sign;
    for (int i = 0; i < a.row && sign != 0; ++i) d *= a.data[i][i];
    return sign == 0 ? 0 : d;
}

template <class M>
int lu(M a, M* l, M* u, M* p) {
    if (!fits(a) || a.row != a.col || !l || !u || !p) return -1;
    int perm[N];
    if (lu_in_place(a, perm) == 0) return -1;
    const int n = a.row;
    *l = eye<M>(n);
    *u = zeros<M>(n, n);
    *p = zeros<M>(n, n);
    for (int i = 0; i < n; ++i) {
        p->data[i][perm[i]] = 1;
        for (int j = 0; j < n; ++j) (j < i ? l->data[i][j] : u->data[i][j]) = a.data[i][j];
    }
    return 0;
}

template <class M>
M inv(const M& a) {
    if (!fits(a) || a.row != a.col) return M{};
    M out = zeros<M>(a.row, a.row);
    if (!algo::gauss_jordan_inverse(&a.data[0][0], &out.data[0][0], a.row, N)) return M{};
    return out;
}

template <class M>
int qr(const M& a, M* q, M* r) {
    using S = Scalar<M>;
    if (!fits(a) || !q || !r) return -1;
    const int m = a.row, n = a.col;
    *r = a;
    *q = eye<M>(m);
    for (int k = 0; k < std::min(m - 1, n); ++k) {
        S v[N] = {}, norm = 0;
        for (int i = k; i < m; ++i) norm += r->data[i][k] * r->data[i][k];
        norm = std::sqrt(norm);
        if (norm == 0) continue;
        const S alpha = r->data[k][k] > 0 ? -norm : norm;
        for (int i = k; i < m; ++i) v[i] = r->data[i][k];
        v[k] -= alpha;
        S vv = 0;
        for (int i = k; i < m; ++i) vv += v[i] * v[i];
        if (vv == 0) continue;
        // R <- H·R and Q <- Q·H with H = I - 2 v v^T / (v^T v).
        for (int j = 0; j < n; ++j) {
            S s = 0;
            for (int i = k; i < m; ++i) s += v[i] * r->data[i][j];
            s = 2 * s / vv;
            for (int i = k; i < m; ++i) r->data[i][j] -= s * v[i];
        }
        for (int i = 0; i < m; ++i) {
            S s = 0;
            for (int j = k; j < m; ++j) s += q->data[i][j] * v[j];
            s = 2 * s / vv;
            for (int j = k; j < m; ++j) q->data[i][j] -= s * v[j];
        }
        for (int i = k + 1; i < m; ++i) r->data[i][k] = 0;
    }
    return 0;
}

template <class M, class V>
int svd(const M& a, M* u, V* s, M* v) {
    using S = Scalar<M>;
    if (!fits(a) || !u || !s || !v) return -1;
    // One-sided Jacobi on the taller orientation; swap roles at the end.
    const bool wide = a.col > a.row;
    M w = wide ? transpose(a) : a;
    const int m = w.row, n = w.col;
    M vv = eye<M>(n);
    const S eps = std::is_same_v<S, float> ? S(1e-7) : S(1e-15);
    for (int sweep = 0; sweep < 60; ++sweep) {
        bool rotated = false;
        for (int p = 0; p < n - 1; ++p)
            for (int q = p + 1; q < n; ++q) {
                S alpha = 0, beta = 0, gamma = 0;
                for (int i = 0; i < m; ++i) {
                    alpha += w.data[i][p] * w.data[i][p];
                    beta += w.data[i][q] * w.data[i][q];
                    gamma += w.data[i][p] * w.data[i][q];
                }
                if (std::fabs(gamma) <= eps * std::sqrt(alpha * beta) || gamma == 0) continue;
                rotated = true;
                const S zeta = (beta - alpha) / (2 * gamma);
                const S t = (zeta >= 0 ? 1 : -1) / (std::fabs(zeta) + std::sqrt(1 + zeta * zeta));
                const S c = 1 / std::sqrt(1 + t * t), sn = c * t;
                rotate_columns(w, m, p, q, c, sn);
                rotate_columns(vv, n, p, q, c, sn);
            }
        if (!rotated) break;
    }
    // Singular values are the column norms; order them descending.
    int order[N];
    S sig[N];
    for (int j = 0; j < n; ++j) {
        S t = 0;
        for (int i = 0; i < m; ++i) t += w.data[i][j] * w.data[i][j];
        sig[j] = std::sqrt(t);
        order[j] = j;
    }
    std::sort(order, order + n, [&](int x, int y) { return sig[x] > sig[y]; });
    M uu = zeros<M>(m, n), vo = zeros<M>(n, n);
    *s = V{};
    s->len = n;
    for (int k = 0; k < n; ++k) {
        const int j = order[k];
        s->data[k] = sig[j];
        for (int i = 0; i < m; ++i) uu.data[i][k] = sig[j] > 0 ? w.data[i][j] / sig[j] : 0;
        for (int i = 0; i < n; ++i) vo.data[i][k] = vv.data[i][j];
    }
    *u = wide ? vo : uu;
    *v = wide ? uu : vo;
    return 0;
}

template <class M, class V>
int eig_sym(M a, V* values, M* vectors) {
    using S = Scalar<M>;
    if (!fits(a) || a.row != a.col || !values || !vectors) return -1;
    const int n = a.row;
    M vec = eye<M>(n);
    for (int sweep = 0; sweep < 60; ++sweep) {
        S off = 0;
        for (int p = 0; p < n; ++p)
            for (int q = p + 1; q < n; ++q) off += a.data[p][q] * a.data[p][q];
        if (off < S(1e-30)) break;
        for (int p = 0; p < n - 1; ++p)
            for (int q = p + 1; q < n; ++q) {
                if (a.data[p][q] == 0) continue;
                const S theta = (a.data[q][q] - a.data[p][p]) / (2 * a.data[p][q]);
                const S t = (theta >= 0 ? 1 : -1) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
                const S c = 1 / std::sqrt(t * t + 1), s = t * c;
                rotate_columns(a, n, p, q, c, s);  // A <- A·J
                rotate_rows(a, n, p, q, c, s);     // A <- J^T·A
                rotate_columns(vec, n, p, q, c, s);
            }
    }
    int order[N];
    for (int i = 0; i < n; ++i) order[i] = i;
    std::sort(order, order + n, [&](int x, int y) { return a.data[x][x] < a.data[y][y]; });
    *values = V{};
    values->len = n;
    *vectors = zeros<M>(n, n);
    for (int k = 0; k < n; ++k) {
        values->data[k] = a.data[order[k]][order[k]];
        for (int i = 0; i < n; ++i) vectors->data[i][k] = vec.data[i][order[k]];
    }
    return 0;
}

template <class M, class V>
int rank(const M& a, Scalar<M> tol) {
    M u, v;
    V s;
    if (svd(a, &u, &s, &v) != 0) return -1;
    int r = 0;
    for (int i = 0; i < s.len; ++i) r += s.data[i] > tol;
    return r;
}

template <class M, class V>
M pinv(const M& a, Scalar<M> tol) {
    M u, v;
    V s;
    if (svd(a, &u, &s, &v) != 0) return M{};
    // a+ = V·diag(1/s)·U^T over the singular values above tol.
    M out = zeros<M>(a.col, a.row);
    for (int k = 0; k < s.len; ++k) {
        if (!(s.data[k] > tol)) continue;
        for (int i = 0; i < a.col; ++i)
            for (int j = 0; j < a.row; ++j) out.data[i][j] += v.data[i][k] * u.data[j][k] / s.data[k];
    }
    return out;
}

template <class V>
V tridiag_solve(const V& lower, const V& diag, const V& upper, const V& rhs) {
    using S = std::remove_cv_t<std::remove_reference_t<decltype(V{}.data[0])>>;
    const int n = diag.len;
    if (n < 1 || n > N || rhs.len != n || lower.len < n - 1 || upper.len < n - 1) return V{};
    // Thomas algorithm; lower[i] couples row i+1 to row i.
    S c[N], d[N];
    V x{};
    x.len = n;
    S den = diag.data[0];
    if (den == 0) return V{};
    c[0] = n > 1 ? upper.data[0] / den : 0;
    d[0] = rhs.data[0] / den;
    for (int i = 1; i < n; ++i) {
        den = diag.data[i] - lower.data[i - 1] * c[i - 1];
        if (den == 0) return V{};
        c[i] = i < n - 1 ? upper.data[i] / den : 0;
        d[i] = (rhs.data[i] - lower.data[i - 1] * d[i - 1]) / den;
    }
    x.data[n - 1] = d[n - 1];
    for (int i = n - 2; i >= 0; --i) x.data[i] = d[i] - c[i] * x.data[i + 1];
    return x;
}

template <class V>
auto dot(const V& a, const V& b) {
    decltype(a.data[0] * b.data[0]) s = 0;
    for (int i = 0; i < std::min(a.len, b.len) && i < N; ++i) s += a.data[i] * b.data[i];
    return s;
}

template <class V>
V cross(const V& a, const V& b) {
    if (a.len < 3 || b.len < 3) return V{};
    V c{};
    c.len = 3;
    c.data[0] = a.data[1] * b.data[2] - a.data[2] * b.data[1];
    c.data[1] = a.data[2] * b.data[0] - a.data[0] * b.data[2];
    c.data[2] = a.data[0] * b.data[1] - a.data[1] * b.data[0];
    return c;
}

// Position and rotation difference of two homogeneous transforms; exact
// selects angle·axis over the small-angle vector.
Vec transform_diff(const Mat& a, const Mat& b, bool exact) {
    if (a.row < 3 || a.col < 4 || b.row < 3 || b.col < 4) return Vec{};
    algo::Frame A = algo::Frame::identity(), B = algo::Frame::identity();
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            A.R[i][j] = a.data[i][j];
            B.R[i][j] = b.data[i][j];
        }
        A.p[i] = a.data[i][3];
        B.p[i] = b.data[i][3];
    }
    double e[6];
    algo::pose_error(A, B, e);
    if (exact) {
        // e holds sin(angle)·axis; recover the angle from the trace of R_b·R_a^T.
        double tr = 0;
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) tr += B.R[i][k] * A.R[i][k];
        const double s = std::sqrt(e[3] * e[3] + e[4] * e[4] + e[5] * e[5]);
        const double angle = std::atan2(s, (tr - 1) * 0.5);
        if (s > 1e-12)
            for (int i = 3; i < 6; ++i) e[i] *= angle / s;
        // At a half turn the axis is the dominant column of R + I.
        if (s <= 1e-12 && tr < 0) {
            double R[3][3];
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) {
                    R[i][j] = 0;
                    for (int k = 0; k < 3; ++k) R[i][j] += B.R[i][k] * A.R[j][k];
                }
            int c = 0;
            for (int i = 1; i < 3; ++i)
                if (R[i][i] > R[c][c]) c = i;
            double ax[3] = {R[0][c], R[1][c], R[2][c]};
            ax[c] += 1;
            const double n = std::sqrt(ax[0] * ax[0] + ax[1] * ax[1] + ax[2] * ax[2]);
            for (int i = 0; i < 3; ++i) e[3 + i] = ALGO_PI * ax[i] / n;
        }
    }
    Vec v{};
    v.len = 6;
    for (int i = 0; i < 6; ++i) v.data[i] = static_cast<float>(e[i]);
    return v;
}

}  // namespace

extern "C" {

#define ALGO_DEFINE_DENSE(P, M, V, S)                                                      \
    KX_API M P##zeros(int row, int col) { return zeros<M>(row, col); }                     \
    KX_API M P##eye(int n) { return eye<M>(n); }                                           \
    KX_API M P##mult(M a, M b) { return mult(a, b); }                                      \
    KX_API M P##T(M a) { return transpose(a); }                                            \
    KX_API M P##add(M a, M b) { return combine(a, b, S(1)); }                              \
    KX_API M P##sub(M a, M b) { return combine(a, b, S(-1)); }                             \
    KX_API M P##scale(M a, S s) { return scale(a, s); }                                    \
    KX_API S P##det(M a) { return det(a); }                                                \
    KX_API M P##inv(M a) { return inv(a); }                                                \
    KX_API int P##lu(M a, M* l, M* u, M* p) { return lu(a, l, u, p); }                    \
    KX_API int P##qr(M a, M* q, M* r) { return qr(a, q, r); }                              \
    KX_API int P##svd(M a, M* u, V* s, M* v) { return svd(a, u, s, v); }                   \
    KX_API int P##eig_sym(M a, V* values, M* vectors) { return eig_sym(a, values, vectors); } \
    KX_API int P##rank(M a, S tol) { return rank<M, V>(a, tol); }                          \
    KX_API M P##pinv(M a, S tol) { return pinv<M, V>(a, tol); }                            \
    KX_API V P##tridiag_solve(V lower, V diag, V upper, V rhs) { return tridiag_solve(lower, diag, upper, rhs); }

ALGO_DEFINE_DENSE(mat_, Mat, Vec, float)
ALGO_DEFINE_DENSE(matD_, MatD, VecD, double)
#undef ALGO_DEFINE_DENSE

KX_API float vec_dot(Vec a, Vec b) { return dot(a, b); }
KX_API float vec_norm(Vec a) { return std::sqrt(dot(a, a)); }
KX_API Vec vec_cross(Vec a, Vec b) { return cross(a, b); }
KX_API double vecD_dot(VecD a, VecD b) { return dot(a, b); }
KX_API double vecD_norm(VecD a) { return std::sqrt(dot(a, a)); }
KX_API VecD vecD_cross(VecD a, VecD b) { return cross(a, b); }

KX_API Vec vec_angle_axis_diff(Mat a, Mat b) { return transform_diff(a, b, true); }
KX_API Vec vec_Tdiff(Mat a, Mat b) { return transform_diff(a, b, false); }

KX_API Mat matrix_to_mat(Matrix m) {
    Mat out = zeros<Mat>(4, 4);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out.data[i][j] = m.data[i][j];
    return out;
}

KX_API Matrix mat_to_matrix(Mat m) {
    Matrix out{};
    out.irow = out.iline = 4;
    for (int i = 0; i < 4 && i < m.row; ++i)
        for (int j = 0; j < 4 && j < m.col; ++j) out.data[i][j] = m.data[i][j];
    return out;
}

}  // extern "C"
