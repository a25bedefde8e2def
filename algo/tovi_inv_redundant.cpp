// Inverse kinematics of the seven-joint arms (redundancy searches) and the
// damped least-squares refinement they and the closed forms share.
#include <algorithm>
#include <array>
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

namespace {

// pose_error with the rotation part as angle·axis: sin(angle)·axis vanishes
// at a half turn, which must read as the largest error, not as none.
void solver_error(const Frame& T, const Frame& target, double e[6]) {
    pose_error(T, target, e);
    double trace = 0;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) trace += T.R[r][c] * target.R[r][c];
    const double sine = std::sqrt(e[3] * e[3] + e[4] * e[4] + e[5] * e[5]);
    const double angle = std::atan2(sine, 0.5 * (trace - 1));
    if (sine > 1e-9)
        for (int i = 3; i < 6; ++i) e[i] *= angle / sine;
    else if (trace < 1)
        e[3] = angle;
}

}  // namespace

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

void jacobian(const Frame* F, int n, int skip, double J[6][8]) {
    // Column j = (z_j x (p - o_j), z_j).
    for (int j = 0; j < 8; ++j) {
        for (int r = 0; r < 6; ++r) J[r][j] = 0;
        if (j >= n || j == skip) continue;
        const double z[3] = {F[j].R[0][2], F[j].R[1][2], F[j].R[2][2]};
        const double r[3] = {F[n].p[0] - F[j].p[0], F[n].p[1] - F[j].p[1], F[n].p[2] - F[j].p[2]};
        J[0][j] = z[1] * r[2] - z[2] * r[1];
        J[1][j] = z[2] * r[0] - z[0] * r[2];
        J[2][j] = z[0] * r[1] - z[1] * r[0];
        J[3][j] = z[0];
        J[4][j] = z[1];
        J[5][j] = z[2];
    }
}

namespace {

// dq = J^T (J J^T + lambda2 I)^-1 e: the damped least-squares step.
bool dls_step(const double J[6][8], int n, const double e[6], double lambda2, double dq[8]) {
    double A[6][6], y[6];
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c <= r; ++c) {
            double s = 0;
            for (int j = 0; j < n; ++j) s += J[r][j] * J[c][j];
            A[r][c] = A[c][r] = s + (r == c ? lambda2 : 0);
        }
    if (!cholesky_solve6(A, e, y)) return false;
    for (int j = 0; j < 8; ++j) {
        dq[j] = 0;
        if (j < n)
            for (int r = 0; r < 6; ++r) dq[j] += J[r][j] * y[r];
    }
    return true;
}

// The factor (at most 1) that keeps every joint's step within bound x its
// speed limit; 1 when bound is 0.
double step_scale(const Kin& k, const double* dq, double bound) {
    double scale = 1;
    if (bound > 0)
        for (int j = 0; j < k.dof; ++j)
            if (std::fabs(dq[j]) * scale > bound * k.vmax[j]) scale = bound * k.vmax[j] / std::fabs(dq[j]);
    return scale;
}

void step_within_limits(const Kin& k, const double* q, const double* dq, double scale, double* out) {
    for (int j = 0; j < k.dof; ++j)
        out[j] = std::clamp(q[j] + scale * dq[j], k.lim_min[j] - k.offset[j], k.lim_max[j] - k.offset[j]);
}

}  // namespace

double dls_refine(const Kin& k, const Frame& target, double* q, const DlsOptions& opt) {
    Frame F[9];
    double e[6], err = 0, prev = 0;
    bool clipped = false;
    const int n = k.dof;
    for (int it = 0;; ++it) {
        chain_frames(k, q, F);
        solver_error(F[n], target, e);
        err = error_norm(e);
        if (err < opt.tol || it >= opt.max_iter) break;
        // A full step that no longer halves the error has reached the noise
        // floor of the (single precision) target.
        if (it > 0 && !clipped && err > 0.5 * prev) break;
        prev = err;
        double J[6][8], dq[8];
        jacobian(F, n, opt.fixed, J);
        // Damping grows with the error.
        if (!dls_step(J, n, e, 1e-8 + 1e-3 * err * err, dq)) break;
        const double scale = step_scale(k, dq, opt.step_bound);
        clipped = scale < 1;
        step_within_limits(k, q, dq, scale, q);
    }
    return err;
}

double local_solve(const Kin& k, const Frame& target, double* q, const LocalOptions& opt) {
    const int n = k.dof;
    Frame F[9], G[9];
    double e[6], f[6];
    chain_frames(k, q, F);
    solver_error(F[n], target, e);
    double cost = 0, lambda2 = opt.damping;
    for (double v : e) cost += v * v;
    for (int it = 0; it < opt.max_iter && error_norm(e) >= opt.tol; ++it) {
        if (it >= opt.patience && error_norm(e) > opt.hopeless) break;
        double J[6][8], dq[8], qn[8];
        jacobian(F, n, -1, J);
        if (!dls_step(J, n, e, lambda2, dq)) break;
        step_within_limits(k, q, dq, step_scale(k, dq, opt.trust), qn);
        chain_frames(k, qn, G);
        solver_error(G[n], target, f);
        double c = 0;
        for (double v : f) c += v * v;
        if (c < cost) {
            std::copy(qn, qn + n, q);
            std::copy(G, G + n + 1, F);
            std::copy(f, f + 6, e);
            cost = c;
            lambda2 = std::max(opt.damping, lambda2 * 0.1);
        } else if ((lambda2 *= 10) > 1) {
            break;  // no step helps: a limit or a singularity holds the arm
        }
    }
    return error_norm(e);
}

namespace {

using Vec3 = std::array<double, 3>;

Vec3 sub(const Vec3& a, const Vec3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Vec3 add_scaled(const Vec3& a, double s, const Vec3& b) { return {a[0] + s * b[0], a[1] + s * b[1], a[2] + s * b[2]}; }
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vec3 unit(const Vec3& a) {
    const double n = std::sqrt(dot(a, a));
    return n > 0 ? Vec3{a[0] / n, a[1] / n, a[2] / n} : Vec3{0, 0, 0};
}
Vec3 column(const double R[3][3], int c) { return {R[0][c], R[1][c], R[2][c]}; }

constexpr double ACCEPT = 1e-6;
constexpr double STRAIGHT = 1e-3;    // |sin| of an elbow taken as straight
constexpr double LOCAL_TRUST = 0.1;  // largest local step, seconds at each joint's speed limit
constexpr int LOCAL_ITER = 120;      // slow only near a singularity, where it is needed
constexpr int LOCAL_PATIENCE = 12;   // iterations after which a large error means a far reference
constexpr double NEAR_POSE = 0.6;    // pose error (m or rad) of a reference worth a closer look
constexpr double CLOSE = 0.15;       // a local answer this near the reference (every joint) is taken
constexpr double NEIGHBOURHOOD = 0.2; // redundancy looked through around a far or failed local answer
constexpr double CLOSE_RANGE = 0.1;  // ... at least, even in the narrow search
constexpr double SCAN_STEP = 0.05;   // redundancy sampling
constexpr int GOLDEN_STEPS = 6;
constexpr int SCAN_WINDOW = 3;       // redundancy steps scanned past the first solution
constexpr double SLIDE_STEP = 0.05;  // largest joint move along the solutions per step, radians
constexpr double SLIDE_DONE = 0.005; // ... and the one below which the answer counts as nearest
constexpr int SLIDE_ITER = 16;
// Cosines and sines this far past 1 are taken as 1: a single-precision
// target at the elbow's full reach lands just outside; the polish decides.
constexpr double DOMAIN_TOL = 1e-5;
constexpr double TRACE_STEP = 0.02;  // joint move per step along the solutions, radians
constexpr int TRACE_STEPS = 40;      // ... and the most steps each way
constexpr double TRACE_BEYOND = 0.25; // farther from the reference than the nearest by this: turn back
constexpr double TRACE_ELBOW = 0.1;  // |sin| of a reference's elbow from its longest that asks for a trace
constexpr double TRACE_ABOVE = 0.02; // ... when the answer is farther than this from it

// The S-R-S arm for one target: shoulder S, wrist W, the circle the elbow
// runs on (centre C, radius rho, in-plane axes v, w about the S-W line).
struct SrsTarget {
    Vec3 S, W, u, v, w;
    double L1, L2, cos_beta, sin_beta, c4;
};

bool srs_setup(const Kin& k, const Frame& target, SrsTarget& g) {
    g.S = {0, 0, k.d[0]};
    g.L1 = k.d[2];
    g.L2 = k.d[4];
    const Vec3 z7 = column(target.R, 2);
    g.W = add_scaled({target.p[0], target.p[1], target.p[2]}, -k.d[6], z7);
    const Vec3 sw = sub(g.W, g.S);
    const double L = std::sqrt(dot(sw, sw));
    // A single-precision target of a stretched arm may lie a hair beyond reach.
    if (!(L > 0) || L > g.L1 + g.L2 + 1e-6 || L < std::fabs(g.L1 - g.L2) - 1e-6) return false;
    g.u = unit(sw);
    // The arm angle is measured from the plane through S-W and the base's
    // vertical (or x, when S-W is vertical).
    Vec3 ref = std::fabs(g.u[2]) < 0.99 ? Vec3{0, 0, 1} : Vec3{1, 0, 0};
    g.v = unit(add_scaled(ref, -dot(ref, g.u), g.u));
    g.w = cross(g.u, g.v);
    g.cos_beta = std::clamp((g.L1 * g.L1 + L * L - g.L2 * g.L2) / (2 * g.L1 * L), -1.0, 1.0);
    g.sin_beta = std::sqrt(1 - g.cos_beta * g.cos_beta);
    // |S-W|^2 = L1^2 + L2^2 + 2 L1 L2 (z3 . z5) and z3 . z5 = -s3 s4 cos(theta4).
    g.c4 = std::clamp(-k.sa[3] * k.sa[4] * (L * L - g.L1 * g.L1 - g.L2 * g.L2) / (2 * g.L1 * g.L2), -1.0, 1.0);
    return true;
}

// The eight candidates (elbow, shoulder, wrist branches) at arm angle psi.
int srs_candidates(const Kin& k, const Frame& target, const SrsTarget& g, double psi, const double* ref_theta,
                   double cand[MAX_CANDIDATES][8]) {
    const Vec3 dir = add_scaled(add_scaled(Vec3{0, 0, 0}, g.cos_beta, g.u), g.sin_beta,
                                add_scaled(add_scaled(Vec3{0, 0, 0}, std::cos(psi), g.v), std::sin(psi), g.w));
    const Vec3 z3 = unit(dir);
    const Vec3 E = add_scaled(g.S, g.L1, z3);
    const Vec3 f = sub(g.W, E);
    const Vec3 fperp = add_scaled(f, -dot(f, z3), z3);
    const double s4abs = std::sqrt(std::max(0.0, 1 - g.c4 * g.c4));
    // A straight elbow has no elbow plane: the arm angle turns the upper
    // arm's frame about the shoulder-wrist line instead.
    const Vec3 turn = add_scaled(add_scaled(Vec3{0, 0, 0}, std::cos(psi), g.v), std::sin(psi), g.w);
    const Vec3 straight = unit(add_scaled(turn, -dot(turn, z3), z3));
    int n = 0;
    for (int el = 0; el < 2; ++el) {
        const double st4 = el == 0 ? s4abs : -s4abs;
        // The elbow's sine comes from a distance, with the square root of
        // its rounding: below STRAIGHT the elbow counts as straight.
        const bool is_straight = s4abs < STRAIGHT;
        const double t4 = is_straight ? (g.c4 > 0 ? 0.0 : ALGO_PI) : std::atan2(st4, g.c4);
        const Vec3 x3 = is_straight ? straight : unit(add_scaled(Vec3{0, 0, 0}, k.sa[4] * st4, fperp));
        const Vec3 y3 = cross(z3, x3);
        const double R3[3][3] = {{x3[0], y3[0], z3[0]}, {x3[1], y3[1], z3[1]}, {x3[2], y3[2], z3[2]}};
        double sh[3][3];
        const int nsh = solve_zxzxz(R3, k, 0, ref_theta, sh);
        // R4 = R3·RotX(a3)·Rz(t4); M = RotX(a4)^T·R4^T·R_target.
        const double c = std::cos(t4), s = std::sin(t4), s3 = k.sa[3], s4 = k.sa[4];
        double R4[3][3];
        for (int i = 0; i < 3; ++i) {
            // RotX(a3)·Rz(t4) columns: (c, s3 s... ) written out for cos(a3) = 0.
            R4[i][0] = R3[i][0] * c + R3[i][2] * s3 * s;
            R4[i][1] = -R3[i][0] * s + R3[i][2] * s3 * c;
            R4[i][2] = -R3[i][1] * s3;
        }
        double A[3][3], M[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                A[i][j] = R4[0][i] * target.R[0][j] + R4[1][i] * target.R[1][j] + R4[2][i] * target.R[2][j];
        for (int j = 0; j < 3; ++j) {
            M[0][j] = A[0][j];
            M[1][j] = s4 * A[2][j];
            M[2][j] = -s4 * A[1][j];
        }
        double wr[3][3];
        const int nwr = solve_zxzxz(M, k, 4, ref_theta, wr);
        for (int a = 0; a < nsh; ++a)
            for (int b = 0; b < nwr; ++b, ++n) {
                double th[7] = {sh[a][0], sh[a][1], sh[a][2], t4, wr[b][0], wr[b][1], wr[b][2]};
                // A straight elbow aligns joints 3 and 5 on the upper arm.
                if (is_straight) resplit(k, 2, ref_theta, th);
                std::copy(th, th + 7, cand[n]);
            }
    }
    return n;
}

bool polish(const Kin& k, const Frame& target, double* q) {
    DlsOptions opt;
    opt.max_iter = 4;
    opt.tol = 1e-7;
    opt.step_bound = k.period;
    return dls_refine(k, target, q, opt) < ACCEPT;
}

// The part of joint motion d that leaves the flange where it is,
// d - J^+ J d, into out; returns its largest joint (NaN when J fails).
double null_share(const double J[6][8], int n, const double* d, double* out) {
    double Jd[6] = {}, r[8];
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < n; ++j) Jd[i] += J[i][j] * d[j];
    if (!dls_step(J, n, Jd, 1e-9, r)) return NAN;
    double largest = 0;
    for (int j = 0; j < n; ++j) largest = std::max(largest, std::fabs(out[j] = d[j] - r[j]));
    return largest;
}

double squared_distance(const Kin& k, const double* a, const double* b) {
    double s = 0;
    for (int j = 0; j < k.dof; ++j) s += (a[j] - b[j]) * (a[j] - b[j]);
    return s;
}

// Moves a solution q along the target's solutions (the Jacobian's null
// space) toward the reference until it is the nearest there, then back onto
// the target each time. Near a straight elbow the solutions curve sharply
// and neither the local search nor a redundancy value sampled around its
// answer ends at the nearest one. Returns whether q moved.
bool slide_to_nearest(const Kin& k, const Frame& target, const double* q_ref, double* q) {
    const int n = k.dof;
    Frame F[9];
    double J[6][8], best = squared_distance(k, q, q_ref);
    bool moved = false;
    for (int it = 0; it < SLIDE_ITER; ++it) {
        chain_frames(k, q, F);
        jacobian(F, n, -1, J);
        // The share of (q_ref - q) the target lets the arm take.
        double d[8] = {}, free[8];
        for (int j = 0; j < n; ++j) d[j] = q_ref[j] - q[j];
        const double largest = null_share(J, n, d, free);
        if (!(largest >= SLIDE_DONE)) break;
        double scale = std::min(1.0, SLIDE_STEP / largest);
        bool better = false;
        for (int tries = 0; tries < 4 && !better; ++tries, scale *= 0.5) {
            double c[8];
            step_within_limits(k, q, free, scale, c);
            if (!polish(k, target, c)) continue;
            const double dist = squared_distance(k, c, q_ref);
            if (dist < best) {
                best = dist;
                std::copy(c, c + n, q);
                better = moved = true;
            }
        }
        if (!better) break;
    }
    return moved;
}

}  // namespace

namespace {

struct Mat3 {
    double m[3][3];
    Vec3 operator*(const Vec3& v) const {
        return {m[0][0] * v[0] + m[0][1] * v[1] + m[0][2] * v[2], m[1][0] * v[0] + m[1][1] * v[1] + m[1][2] * v[2],
                m[2][0] * v[0] + m[2][1] * v[1] + m[2][2] * v[2]};
    }
    Mat3 operator*(const Mat3& b) const {
        Mat3 c{};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) c.m[i][j] = m[i][0] * b.m[0][j] + m[i][1] * b.m[1][j] + m[i][2] * b.m[2][j];
        return c;
    }
    Mat3 t() const {
        Mat3 c{};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) c.m[i][j] = m[j][i];
        return c;
    }
};
Mat3 rz(double t) { return Mat3{{{std::cos(t), -std::sin(t), 0}, {std::sin(t), std::cos(t), 0}, {0, 0, 1}}}; }
Mat3 rx(double s) { return Mat3{{{1, 0, 0}, {0, 0, -s}, {0, s, 0}}}; }  // alpha = +-90, s its sine

// The eight candidates of the offset arm for a given theta7: frame 6 is
// then known, and with it the wrist point W = origin 5 = origin 6. |W - S|
// fixes theta4 (two), the direction of W seen from frame 6 fixes theta6
// (two) and theta5, and what is left is the spherical shoulder (two).
// Assumes a0..a2 = 0, d2 = 0, alpha0 = 0, alpha1..alpha5 = +-90, a5 = 0,
// d6 = 0 (any last row).
int offset7_candidates(const Kin& k, const Frame& target, double t7, const double* ref_theta, double cand[MAX_CANDIDATES][8]) {
    // A7 = RotX(alpha6)·TransX(a6)·Rz(t7)·TransZ(d7); frame 6 = target · A7^-1.
    Frame A7 = Frame::identity();
    {
        const double c = std::cos(t7), s = std::sin(t7), ca = k.ca[6], sa = k.sa[6];
        const double R[3][3] = {{c, -s, 0}, {ca * s, ca * c, -sa}, {sa * s, sa * c, ca}};
        std::copy(&R[0][0], &R[0][0] + 9, &A7.R[0][0]);
        A7.p[0] = k.a[6];
        A7.p[1] = -sa * k.d[6];
        A7.p[2] = ca * k.d[6];
    }
    const Frame F6 = target * inverse(A7);
    Mat3 R6;
    std::copy(&F6.R[0][0], &F6.R[0][0] + 9, &R6.m[0][0]);
    const Vec3 SW = {F6.p[0], F6.p[1], F6.p[2] - k.d[0]};
    const double s3 = k.sa[3], s4 = k.sa[4], s5 = k.sa[5];
    const double a3 = k.a[3], a4 = k.a[4], d3 = k.d[2], d5 = k.d[4];
    // W - S = R3·b(t4), b = (a3 + X, 0, d3 + s3 Y), X = a4 c + s4 d5 s,
    // Y = a4 s - s4 d5 c: |b|^2 = K + P cos t4 + Q sin t4.
    const double K = a3 * a3 + d3 * d3 + a4 * a4 + d5 * d5;
    const double P = 2 * a3 * a4 - 2 * d3 * s3 * s4 * d5, Q = 2 * a3 * s4 * d5 + 2 * d3 * s3 * a4;
    const double rho = std::hypot(P, Q);
    if (!(rho > 0)) return 0;
    const double c = (dot(SW, SW) - K) / rho;
    if (c > 1 + DOMAIN_TOL || c < -1 - DOMAIN_TOL) return 0;
    const double phi = std::atan2(Q, P), ac = std::acos(std::clamp(c, -1.0, 1.0));
    const Vec3 dv = R6.t() * SW;
    const double r = std::hypot(dv[0], dv[1]), gamma = std::atan2(dv[1], dv[0]);
    int n = 0;
    for (int el = 0; el < 2; ++el) {
        const double t4 = phi + (el == 0 ? ac : -ac);
        const double ct = std::cos(t4), st = std::sin(t4);
        const double X = a4 * ct + s4 * d5 * st, Y = a4 * st - s4 * d5 * ct;
        const Vec3 b = {a3 + X, 0, d3 + s3 * Y};
        const Mat3 R34 = rx(s3) * rz(t4);
        const Vec3 cp = rx(s4).t() * (R34.t() * b);
        // RotX(a4)^T c = Rz(t5)·RotX(a5)·Rz(t6)·d: the z row gives
        // r sin(t6 + gamma) = s5 c'_z.
        const double v = r > 1e-12 ? s5 * cp[2] / r : NAN;
        if (!(v >= -1 - DOMAIN_TOL && v <= 1 + DOMAIN_TOL)) continue;
        const double as = std::asin(std::clamp(v, -1.0, 1.0));
        for (int wr = 0; wr < 2; ++wr) {
            const double t6 = (wr == 0 ? as : ALGO_PI - as) - gamma;
            const Vec3 e = rz(t6) * dv;
            const Vec3 g = {e[0], -s5 * e[2], s5 * e[1]};
            const double t5 = std::atan2(cp[1], cp[0]) - std::atan2(g[1], g[0]);
            const Mat3 R46 = rx(s4) * rz(t5) * rx(s5) * rz(t6);
            const Mat3 R3 = R6 * R46.t() * R34.t();
            double sh[3][3];
            const int nsh = solve_zxzxz(R3.m, k, 0, ref_theta, sh);
            for (int a = 0; a < nsh; ++a, ++n) {
                const double th[7] = {sh[a][0], sh[a][1], sh[a][2], t4, t5, t6, t7};
                std::copy(th, th + 7, cand[n]);
            }
        }
    }
    return n;
}

// Whether q is at or near a singular configuration where the local search
// leaves part of the answer to chance: aligned axes of the shoulder (joints
// 1 and 3) or of the wrist (5 and 7), which the closed-form branches split
// from the reference, or an elbow at its longest (the wrist point as far
// from the shoulder as it goes), where the redundancy and the elbow mix.
// |sin| of the angle between q's elbow and its longest (the wrist point as
// far from the shoulder as it goes).
double elbow_bend(const Kin& k, const double* q) { return std::fabs(std::sin(q[3] + k.offset[3] - k.longest_elbow)); }

bool nearly_singular(const Kin& k, const double* q) {
    constexpr double NEAR = 0.02;  // |sin| of the angle from the singular value, about 1 degree
    if (std::fabs(std::sin(q[1] + k.offset[1])) < NEAR || std::fabs(std::sin(q[5] + k.offset[5])) < NEAR) return true;
    return elbow_bend(k, q) < NEAR;
}

double max_deviation(const Kin& k, const double* a, const double* b) {
    double m = 0;
    for (int j = 0; j < k.dof; ++j) m = std::max(m, std::fabs(a[j] - b[j]));
    return m;
}

// Follows the target's solutions from q0 both ways (along the Jacobian's
// null space, each step pulled back onto the target), TRACE_STEP per step
// on the joint that moves most, and hands each point to go_on(q), which
// says whether to follow further. Near a straight elbow the solutions
// nearest the reference may lie past a sharp turn that no redundancy value
// sampled at a fixed spacing and no descent toward the reference passes.
template <class GoOn>
void trace_solutions(const Kin& k, const Frame& target, const double* q0, GoOn go_on) {
    const int n = k.dof;
    Frame F[9];
    double J[6][8], seed[8] = {};
    chain_frames(k, q0, F);
    jacobian(F, n, -1, J);
    // The direction of the null space: the joint axis with the largest share.
    double best = 0;
    for (int j = 0; j < n; ++j) {
        double e[8] = {}, v[8];
        e[j] = 1;
        const double largest = null_share(J, n, e, v);
        if (largest > best) best = largest, std::copy(v, v + n, seed);
    }
    if (!(best > 1e-6)) return;
    for (double way : {1.0, -1.0}) {
        double q[8], t[8];
        std::copy(q0, q0 + n, q);
        for (int j = 0; j < n; ++j) t[j] = way * seed[j];
        for (int step = 0; step < TRACE_STEPS; ++step) {
            double largest = 0;
            for (int j = 0; j < n; ++j) largest = std::max(largest, std::fabs(t[j]));
            double c[8];
            step_within_limits(k, q, t, TRACE_STEP / largest, c);
            if (!polish(k, target, c) || max_deviation(k, c, q) < 0.1 * TRACE_STEP) break;
            std::copy(c, c + n, q);
            if (!go_on(q)) break;
            // The tangent here, oriented as the last one.
            chain_frames(k, q, F);
            jacobian(F, n, -1, J);
            double next[8];
            if (!(null_share(J, n, t, next) > 1e-9 * largest)) break;
            std::copy(next, next + n, t);
        }
    }
}

// How far q is from the reference: the farthest joint first (the measure a
// caller sees as a jump), the sum of all as the tie-breaker.
double distance(const Kin& k, const double* a, const double* b) {
    double s = 0, m = 0;
    for (int j = 0; j < k.dof; ++j) {
        const double d = std::fabs(a[j] - b[j]);
        s += d;
        m = std::max(m, d);
    }
    return m + 0.1 * s;
}

// The search over one seven-joint target. `candidates(value, ref_theta,
// cand)` gives the closed-form branches at one value of the redundancy
// parameter, `param(q)` that parameter for arm joints q; `gather(values)`
// writes the values (and returns how many, at most two) where the
// solutions of a target at the elbow's full or least reach gather.
template <class Candidates, class Param, class Gather>
struct Redundancy {
    const Kin& k;
    const Frame& target;
    const double* q_ref;
    Candidates candidates;
    Param param;
    Gather gather;
    double ref_theta[8] = {};

    // The branch nearest the reference at one value (arm joints, unpolished)
    // and its distance; ALGO_NO_JOINT when none is admissible.
    double branch_at(double value, double* q) const {
        double cand[MAX_CANDIDATES][8];
        const int n = candidates(value, ref_theta, cand);
        if (n == 0 || !pick_nearest(k, cand, n, q_ref, q)) return ALGO_NO_JOINT;
        return distance(k, q, q_ref);
    }

    // The value within centre +- half nearest the reference: a scan `step`
    // apart, then golden-section between the best sample's neighbours.
    double nearest_around(double centre, double half, double step, double* q) const {
        double best = ALGO_NO_JOINT, at = centre, tmp[8];
        const int steps = step > 0 ? static_cast<int>(half / step) : 0;
        for (int i = -steps; i <= steps; ++i) {
            const double d = branch_at(centre + i * step, tmp);
            if (d < best) best = d, at = centre + i * step;
        }
        if (best == ALGO_NO_JOINT) return best;
        double lo = at - step, hi = at + step;
        constexpr double g = 0.3819660112501051;
        double x1 = lo + g * (hi - lo), x2 = hi - g * (hi - lo);
        double d1 = branch_at(x1, tmp), d2 = branch_at(x2, tmp);
        for (int it = 0; it < GOLDEN_STEPS; ++it) {
            if (d1 < d2) {
                hi = x2, x2 = x1, d2 = d1;
                x1 = lo + g * (hi - lo), d1 = branch_at(x1, tmp);
            } else {
                lo = x1, x1 = x2, d1 = d2;
                x2 = hi - g * (hi - lo), d2 = branch_at(x2, tmp);
            }
        }
        if (std::min(d1, d2) < best) at = d1 < d2 ? x1 : x2;
        return branch_at(at, q);
    }

    int solve(double* q_out) {
        for (int j = 0; j < 7; ++j) ref_theta[j] = q_ref[j] + k.offset[j];
        // Locally from the reference: the usual answer, nearest it and
        // continuous along a path. From a far reference (the target far
        // from the reference's pose) no solution is near anyway, and the
        // closed-form branches below are quicker.
        double q[8] = {}, best_q[8] = {}, best = ALGO_NO_JOINT, e0[6];
        std::copy(q_ref, q_ref + k.dof, q);
        solver_error(chain_fk(k, q_ref), target, e0);
        const bool near = error_norm(e0) < NEAR_POSE;
        LocalOptions opt;
        opt.trust = LOCAL_TRUST;
        opt.max_iter = LOCAL_ITER;
        opt.patience = LOCAL_PATIENCE;
        const double local_err = near ? local_solve(k, target, q, opt) : ALGO_NO_JOINT;
        auto consider = [&](const double* c) {
            const double d = distance(k, c, q_ref);
            if (d < best) {
                best = d;
                std::copy(c, c + k.dof, best_q);
            }
        };
        // From a reference near the target, near a singular configuration:
        // whichever branch the answer came from, the nearest solution along
        // it; near a straight elbow also past the sharp turns of the
        // solutions there.
        auto finish = [&](double* out, bool singular) {
            const bool elbow = near && elbow_bend(k, q_ref) < TRACE_ELBOW;
            double c[8];
            std::copy(best_q, best_q + k.dof, c);
            if ((elbow || (near && singular)) && slide_to_nearest(k, target, q_ref, c)) consider(c);
            if (elbow && max_deviation(k, best_q, q_ref) > TRACE_ABOVE) {
                const double limit = max_deviation(k, best_q, q_ref) + TRACE_BEYOND;
                std::copy(best_q, best_q + k.dof, c);
                trace_solutions(k, target, c, [&](const double* p) {
                    consider(p);
                    return max_deviation(k, p, q_ref) < limit;
                });
                std::copy(best_q, best_q + k.dof, c);
                if (slide_to_nearest(k, target, q_ref, c)) consider(c);
            }
            std::copy(best_q, best_q + k.dof, out);
            return 0;
        };
        if (local_err < ACCEPT) {
            best = distance(k, q, q_ref);
            std::copy(q, q + k.dof, best_q);
            if (max_deviation(k, q, q_ref) <= CLOSE) {
                // Near a singular configuration the local search stops
                // anywhere along what is free there; the closed-form
                // branches around its redundancy value (which split aligned
                // axes as the reference does) may lie nearer.
                double c[8];
                const bool singular = nearly_singular(k, q);
                if (singular && nearest_around(param(q), NEIGHBOURHOOD, SCAN_STEP, c) < ALGO_NO_JOINT &&
                    polish(k, target, c))
                    consider(c);
                return finish(q_out, singular);
            }
        }
        auto settled = [&] { return best < ALGO_NO_JOINT && max_deviation(k, best_q, q_ref) <= CLOSE; };
        // Near a singularity or a limit the local answer may be far, or
        // missing, although a nearer one exists: the closed-form branch at
        // the reference's redundancy value and at the one where the local
        // search ended, and failing that a look around both.
        const double centres[2] = {param(q_ref), param(q)};
        for (int i = 0; i < (near ? 2 : 1); ++i) {
            double c[8];
            if (branch_at(centres[i], c) < ALGO_NO_JOINT && polish(k, target, c)) consider(c);
        }
        const double half = std::min(NEIGHBOURHOOD, std::max(k.theta_v, CLOSE_RANGE));
        for (int i = 0; i < 2 && near && !settled(); ++i) {
            double c[8];
            if (nearest_around(centres[i], half, SCAN_STEP, c) < ALGO_NO_JOINT && polish(k, target, c)) consider(c);
        }
        // A target at the elbow's full (or least) reach is reached only at
        // (or next to) one redundancy value, which a sampled scan misses.
        double values[2];
        for (int i = 0, n = settled() ? 0 : gather(values); i < n && !settled(); ++i) {
            double c[8];
            if (branch_at(values[i], c) < ALGO_NO_JOINT && polish(k, target, c)) consider(c);
        }
        // Near a straight elbow or aligned axes the reference's redundancy
        // value says little: the whole range, if the mode allows it and the
        // local search came close (the reference is near a solution).
        if (local_err < opt.hopeless && !settled() && k.theta_v > half) {
            double c[8];
            if (nearest_around(centres[0], k.theta_v, SCAN_STEP, c) < ALGO_NO_JOINT && polish(k, target, c))
                consider(c);
        }
        // Still nothing: the whole range +-theta_v, outward from the
        // reference's value, ending a window past the first solution.
        const double start = param(q_ref), range = std::max(0.0, k.theta_v);
        const double step = std::min(range, SCAN_STEP);
        const int steps = best < ALGO_NO_JOINT || step <= 0 ? 0 : static_cast<int>(range / step);
        int last = 2 * steps;
        for (int i = 1; i <= last; ++i) {
            double c[8];
            const double d = branch_at(start + ((i + 1) / 2) * step * (i % 2 ? 1 : -1), c);
            if (d == ALGO_NO_JOINT || !polish(k, target, c)) continue;
            if (best == ALGO_NO_JOINT) last = std::min(last, i + 2 * SCAN_WINDOW);
            consider(c);
        }
        // Last, from a far reference, whatever the local search reaches.
        if (best == ALGO_NO_JOINT && !near) {
            std::copy(q_ref, q_ref + k.dof, q);
            opt.patience = LOCAL_ITER;
            if (local_solve(k, target, q, opt) < ACCEPT) consider(q);
        }
        if (best == ALGO_NO_JOINT) return -2;
        return finish(q_out, nearly_singular(k, best_q));
    }
};

template <class Candidates, class Param, class Gather>
int redundancy_search(const Kin& k, const Frame& target, const double* q_ref, double* q_out, Candidates candidates,
                      Param param, Gather gather) {
    Redundancy<Candidates, Param, Gather> r{k, target, q_ref, candidates, param, gather};
    return r.solve(q_out);
}

}  // namespace

// S-R-S seven-joint arm: all a = 0, d2 = d4 = d6 = 0, alpha0 = 0, the other
// alphas +-90. The arm angle psi (elbow on its circle about the
// shoulder-wrist line) parametrises the redundancy for the closed-form
// branches that back up the local search.
int ik_srs(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
    SrsTarget g;
    if (!srs_setup(k, target, g)) return -1;
    return redundancy_search(
        k, target, q_ref, q_out,
        [&](double psi, const double* ref_theta, double cand[MAX_CANDIDATES][8]) {
            return srs_candidates(k, target, g, psi, ref_theta, cand);
        },
        [&](const double* q) {
            // A straight elbow has no elbow plane: then the arm angle is the
            // turn of the upper arm's frame, as the branches build it.
            const Frame E = chain_partial(k, q, 3);
            const Vec3 e = sub({E.p[0], E.p[1], E.p[2]}, g.S);
            const Vec3 perp = add_scaled(e, -dot(e, g.u), g.u);
            if (dot(perp, perp) > 1e-12 * g.L1 * g.L1) return std::atan2(dot(perp, g.w), dot(perp, g.v));
            const Vec3 x3 = column(E.R, 0);
            return std::atan2(dot(x3, g.w), dot(x3, g.v));
        },
        [](double*) { return 0; });
}

// Seven-joint arm with link offsets: theta7 parametrises the redundancy for
// the closed-form branches.
int ik_offset7(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
    // The wrist point (frame 6's origin) runs on a circle as theta7 turns:
    // W - S = P0 - a7 (cos(t7) x - sin(t7) y), with P0 = p - d7 z - S and x,
    // y, z the target's axes: nearest the shoulder and farthest from it (the
    // elbow's full and least reach) at t7 = atan2(-P0.y, P0.x) and half a
    // turn on.
    auto gather = [&](double* t7) {
        const Vec3 P0 = add_scaled({target.p[0], target.p[1], target.p[2] - k.d[0]}, -k.d[6], column(target.R, 2));
        t7[0] = std::atan2(-dot(P0, column(target.R, 1)), dot(P0, column(target.R, 0)));
        t7[1] = wrap_angle(t7[0] + ALGO_PI);
        return 2;
    };
    return redundancy_search(
        k, target, q_ref, q_out,
        [&](double t7, const double* ref_theta, double cand[MAX_CANDIDATES][8]) {
            return offset7_candidates(k, target, t7, ref_theta, cand);
        },
        [&](const double* q) { return q[6] + k.offset[6]; }, gather);
}

}  // namespace algo
