// Inverse kinematics: the dispatcher, the closed-form six-joint solvers and
// the helpers that choose among candidate branches.
#include <algorithm>
#include <cmath>
#include <limits>

#include "tovi_inv_kinematics.h"

#include "libalgo_interface.h"
#include "tovi_int.h"
#include "tovi_mathfuncs.h"

namespace algo {
namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double SINGULAR = 1e-9;   // |sin| below this: axes aligned
// acos/asin arguments this far past 1 are clamped: a single-precision
// target at a stretched arm lands just outside; the polish fixes the rest.
constexpr double DOMAIN_TOL = 1e-5;
// A joint this far past its limit, with no equivalent inside, is taken back
// to it (and the polish decides): near a singular configuration rounding
// moves joints that far.
constexpr double FREE_LIMIT_MARGIN = 1e-3;
constexpr double LIMIT_MARGIN = 1e-6;  // rounding past a limit that still counts as inside

// acos/asin of a value that may overshoot 1 by rounding; NaN when it truly
// lies outside (the branch does not exist).
double clamped(double v) {
    if (v > 1.0) return v <= 1.0 + DOMAIN_TOL ? 1.0 : NaN;
    if (v < -1.0) return v >= -1.0 - DOMAIN_TOL ? -1.0 : NaN;
    return v;
}

void mul_t(const double A[3][3], const double B[3][3], double out[3][3]) {  // A^T B
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) out[i][j] = A[0][i] * B[0][j] + A[1][i] * B[1][j] + A[2][i] * B[2][j];
}

// RotX(alpha)^T · A, for alpha = +-90 (s its sine): rows (A0, s A2, -s A1).
void rotx_t_mul(double s, const double A[3][3], double out[3][3]) {
    for (int j = 0; j < 3; ++j) {
        out[0][j] = A[0][j];
        out[1][j] = s * A[2][j];
        out[2][j] = -s * A[1][j];
    }
}

void rot_z(double t, double R[3][3]) {
    const double c = std::cos(t), s = std::sin(t);
    const double r[3][3] = {{c, -s, 0}, {s, c, 0}, {0, 0, 1}};
    std::copy(&r[0][0], &r[0][0] + 9, &R[0][0]);
}

struct Rot3 {
    double m[3][3];
};
// RotX(alpha) for alpha = +-90 (s its sine).
Rot3 rot_x(double s) { return Rot3{{{1, 0, 0}, {0, 0, -s}, {0, s, 0}}}; }

void mul(const double A[3][3], const double B[3][3], double out[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) out[i][j] = A[i][0] * B[0][j] + A[i][1] * B[1][j] + A[i][2] * B[2][j];
}
void mul(const double A[3][3], const Rot3& B, double out[3][3]) { mul(A, B.m, out); }

double half_turn(double t) { return t > 0 ? t - ALGO_PI : t + ALGO_PI; }

// Half width of the search along a free combination, radians: a reference
// within a few degrees of a solution needs far less.
constexpr double FREE_SEARCH = 0.35;

// Where f is least in [lo, hi] (golden-section search, f unimodal there).
template <class F>
double golden_minimum(F f, double lo, double hi) {
    constexpr double g = 0.3819660112501051;
    double x1 = lo + g * (hi - lo), x2 = hi - g * (hi - lo), f1 = f(x1), f2 = f(x2);
    for (int it = 0; it < 24; ++it) {
        if (f1 < f2) {
            hi = x2, x2 = x1, f2 = f1;
            x1 = lo + g * (hi - lo), f1 = f(x1);
        } else {
            lo = x1, x1 = x2, f1 = f2;
            x2 = hi - g * (hi - lo), f2 = f(x2);
        }
    }
    return f1 < f2 ? x1 : x2;
}

// How far joint value t lies from the reference along a free combination:
// the squared distance of its equivalent nearest the reference, with how
// far that lies past a limit weighing heavily. It changes continuously
// where a joint crosses its limit, so that a search along the combination
// ends at the limit (within rounding), not past it where the nearest
// equivalent inside the limits (of a joint that turns whole turns) is a
// turn away.
constexpr double PAST_LIMIT_WEIGHT = 1e4;
double limited_cost(double ref, double t, double lo, double hi) {
    double best = ALGO_NO_JOINT;
    for (double v : {t - ALGO_4PI, t - ALGO_2PI, t, t + ALGO_2PI, t + ALGO_4PI}) {
        const double past = std::max({0.0, lo - v, v - hi});
        best = std::min(best, (v - ref) * (v - ref) + PAST_LIMIT_WEIGHT * past * past);
    }
    return std::isnan(t) ? NaN : best;
}

// Where the equivalent of t nearest ref lies just past a limit (such a
// search's rounding), t becomes that limit; the polish decides.
void to_limit_next_to(double ref, double& t, double lo, double hi) {
    const double v = ref + std::remainder(t - ref, 2 * ALGO_PI);
    if (v > hi && v <= hi + FREE_LIMIT_MARGIN) t = hi;
    if (v < lo && v >= lo - FREE_LIMIT_MARGIN) t = lo;
}

}  // namespace

double wrap_angle(double t) { return std::remainder(t, 2 * ALGO_PI); }

int solve_zxzxz(const double M[3][3], const Kin& k, int j1, const double* ref_theta, double out[3][3]) {
    const double sa = k.sa[j1 + 1], sb = k.sa[j1 + 2], ref1 = ref_theta[j1], ref3 = ref_theta[j1 + 2];
    const double c2 = -sa * sb * M[2][2];
    const double s2 = std::sqrt(M[0][2] * M[0][2] + M[1][2] * M[1][2]);
    int n = 0;
    if (s2 >= SINGULAR) {
        out[0][0] = std::atan2(sb * M[1][2], sb * M[0][2]);
        out[0][1] = std::atan2(s2, c2);
        out[0][2] = std::atan2(-sa * M[2][1], sa * M[2][0]);
        // The flipped branch: t2 -> -t2 turns t1 and t3 by half a turn.
        out[1][0] = half_turn(out[0][0]);
        out[1][1] = -out[0][1];
        out[1][2] = half_turn(out[0][2]);
        n = 2;
    }
    if (s2 < SPLIT_BELOW) {
        // (Nearly) aligned axes 1 and 3: only t1 + sigma·t3 is defined, and
        // a single-precision target leaves t1 and t3 to rounding. The
        // rotation still to be made is shared equally between them from the
        // reference: with t1 = ref1,
        // Rz(t3) = (Rz(t1)·RotX(a)·Rz(t2)·RotX(b))^T · M.
        const double t2 = c2 >= 0 ? 0.0 : ALGO_PI, sigma = M[2][2] >= 0 ? 1.0 : -1.0;
        double A[3][3], B[3][3], N[3][3];
        rot_z(ref1, A);
        mul(A, rot_x(sa), B);
        rot_z(t2, A);
        mul(B, A, N);
        mul(N, rot_x(sb), B);
        mul_t(B, M, N);
        // The rotation left for t1 and t3 together, shared equally, unless
        // a limit holds one of them: then the other takes the rest.
        const double rest = wrap_angle(std::atan2(N[1][0], N[0][0]) - ref3);
        const int j3 = j1 + 2;
        const double t3 = std::clamp(ref3 + 0.5 * rest, k.lim_min[j3], k.lim_max[j3]);
        const double t1 = std::clamp(ref1 + sigma * (rest - (t3 - ref3)), k.lim_min[j1], k.lim_max[j1]);
        out[n][0] = t1;
        out[n][1] = t2;
        out[n][2] = ref3 + rest - sigma * (t1 - ref1);
        ++n;
    }
    return n;
}

void resplit(const Kin& k, int j1, const double* ref_theta, double* th) {
    double A[3][3], B[3][3], M[3][3], out[3][3];
    rot_z(th[j1], A);
    mul(A, rot_x(k.sa[j1 + 1]), B);
    rot_z(th[j1 + 1], A);
    mul(B, A, M);
    mul(M, rot_x(k.sa[j1 + 2]), B);
    rot_z(th[j1 + 2], A);
    mul(B, A, M);
    const int n = solve_zxzxz(M, k, j1, ref_theta, out);
    if (n != 2) std::copy(out[n - 1], out[n - 1] + 3, th + j1);
}

namespace {

// Sum of the joints' distances to the reference, each joint mapped to its
// 2pi-equivalent nearest the reference within the limits (into mapped, DH
// angles); the sum stops growing once it passes `enough`.
double mapped_distance(const Kin& k, const double* cand, const double* q_ref, double enough, double* mapped,
                       bool past_limits) {
    double dist = 0;
    for (int j = 0; j < k.dof && dist <= enough; ++j) {
        // An equivalent inside the limits first; one just past them (taken
        // back to the limit) only when there is none.
        double v = cand[j], d = nearest_equivalent(q_ref[j] + k.offset[j], &v, &LIMIT_MARGIN, k.lim_min[j], k.lim_max[j]);
        if (!(d < ALGO_NO_JOINT) && past_limits)
            d = nearest_equivalent(q_ref[j] + k.offset[j], &v, &FREE_LIMIT_MARGIN, k.lim_min[j], k.lim_max[j]);
        dist += d;
        mapped[j] = v;
    }
    return dist;
}

void to_arm_joints(const Kin& k, double* q) {
    for (int j = 0; j < k.dof; ++j) q[j] = std::clamp(q[j], k.lim_min[j], k.lim_max[j]) - k.offset[j];
}

}  // namespace

int rank_candidates(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double (*mapped)[8],
                    int* order) {
    double dist[MAX_CANDIDATES];
    int admissible = 0;
    for (int c = 0; c < n && c < MAX_CANDIDATES; ++c) {
        dist[c] = mapped_distance(k, cand[c], q_ref, ALGO_NO_JOINT, mapped[c], true);
        if (!(dist[c] < ALGO_NO_JOINT)) continue;
        // Insertion by distance; equal distances keep the earlier candidate first.
        int at = admissible++;
        while (at > 0 && dist[order[at - 1]] > dist[c]) {
            order[at] = order[at - 1];
            --at;
        }
        order[at] = c;
    }
    for (int i = 0; i < admissible; ++i) to_arm_joints(k, mapped[order[i]]);
    return admissible;
}

bool pick_nearest(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double* q_out, bool past_limits) {
    double dist[MAX_CANDIDATES], mapped[MAX_CANDIDATES][8];
    if (n < 1 || n > MAX_CANDIDATES) return false;
    double lowest = ALGO_NO_JOINT;
    // A partial sum already above the best cannot win: it stops early.
    for (int c = 0; c < n; ++c) lowest = std::min(lowest, dist[c] = mapped_distance(k, cand[c], q_ref, lowest, mapped[c], past_limits));
    const int best = find_min_index(dist, n);
    if (!(dist[best] < ALGO_NO_JOINT)) return false;
    std::copy(mapped[best], mapped[best] + k.dof, q_out);
    to_arm_joints(k, q_out);
    return true;
}

namespace {

constexpr double ACCEPT = 1e-6;  // pose error of an accepted solution
constexpr double POLISH = 1e-7;  // below this a closed form needs no polish

// Candidates are polished against the (single precision) target nearest
// first, and the first that reaches it is taken: near a singular
// configuration the nearest may be the reference's split of a free
// combination, which reaches the target only when it is (all but) exactly
// singular. A DH table outside the solver's geometry family fails here
// with -1 instead of a wrong answer.
int choose(const Kin& k, const Frame& target, const double (*cand)[8], int n, const double* q_ref, double* q_out) {
    DlsOptions opt;
    opt.max_iter = 4;
    opt.tol = POLISH;
    // The nearest first, alone: it is the answer but near a singular
    // configuration.
    double q[8] = {};
    if (!pick_nearest(k, cand, n, q_ref, q, true)) return -2;
    if (dls_refine(k, target, q, opt) <= ACCEPT) {
        std::copy(q, q + k.dof, q_out);
        return 0;
    }
    double mapped[MAX_CANDIDATES][8];
    int order[MAX_CANDIDATES];
    const int admissible = rank_candidates(k, cand, n, q_ref, mapped, order);
    for (int i = 1; i < admissible; ++i) {
        double* c = mapped[order[i]];
        if (dls_refine(k, target, c, opt) > ACCEPT) continue;
        std::copy(c, c + k.dof, q_out);
        return 0;
    }
    return -1;
}

}  // namespace

// Spherical wrist (a4 = a5 = d5 = 0), alpha1 = +-90, alpha2 = 0,
// alpha3..alpha5 = +-90, a0 = alpha0 = 0. Branches: shoulder (two
// theta1), elbow (two theta3), wrist flip (two theta5).
int ik_spherical_wrist(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
    double ref_theta[8];
    for (int j = 0; j < 8; ++j) ref_theta[j] = q_ref[j] + k.offset[j];
    const double s1 = k.sa[1], s3 = k.sa[3];
    const double* R = &target.R[0][0];
    const double wc[3] = {target.p[0] - k.d[5] * R[2], target.p[1] - k.d[5] * R[5],
                          target.p[2] - k.d[5] * R[8] - k.d[0]};
    const double lat = -s1 * (k.d[1] + k.d[2]);
    const double u2 = wc[0] * wc[0] + wc[1] * wc[1] - lat * lat;
    if (u2 < -DOMAIN_TOL) return -1;
    const double a2 = k.a[2], lx = k.a[3], ly = -s3 * k.d[3];
    const double L = std::hypot(lx, ly), phi = std::atan2(ly, lx);
    const double vy = s1 * wc[2];
    double cand[MAX_CANDIDATES][8];
    int n = 0;
    for (int sh = 0; sh < 2; ++sh) {
        const double u = (sh == 0 ? 1 : -1) * std::sqrt(std::max(u2, 0.0));
        const double t1 = std::atan2(wc[1], wc[0]) - std::atan2(lat, u);
        const double c1 = std::cos(t1), sn1 = std::sin(t1);
        const double vx = u - k.a[1];
        const double c = clamped((vx * vx + vy * vy - a2 * a2 - L * L) / (2 * a2 * L));
        // The two elbows: theta3 + phi = +-acos(c), mirrored about the line to the wrist.
        const double ac = std::acos(c), base = std::atan2(vy, vx);
        const double off = std::atan2(L * std::sin(ac), a2 + L * c);
        for (int el = 0; el < 2; ++el) {
            const double sgn = el == 0 ? 1 : -1;
            const double t3 = sgn * ac - phi;
            const double t2 = base - sgn * off;
            // R3 = Rz(t1)·RotX(alpha1)·Rz(t2 + t3), written out.
            const double c23 = std::cos(t2 + t3), s23 = std::sin(t2 + t3);
            const double R3[3][3] = {{c1 * c23, -c1 * s23, s1 * sn1},
                                     {sn1 * c23, -sn1 * s23, -s1 * c1},
                                     {s1 * s23, s1 * c23, 0}};
            double A[3][3], M[3][3], w[3][3];
            mul_t(R3, target.R, A);
            rotx_t_mul(s3, A, M);
            const int nw = solve_zxzxz(M, k, 3, ref_theta, w);
            for (int b = 0; b < nw; ++b, ++n) {
                const double th[6] = {t1, t2, t3, w[b][0], w[b][1], w[b][2]};
                std::copy(th, th + 6, cand[n]);
                if (std::isnan(c)) cand[n][0] = NaN;
            }
        }
    }
    return choose(k, target, cand, n, q_ref, q_out);
}

// Three parallel axes (2, 3, 4): alpha1 = +-90, alpha2 = alpha3 = 0,
// alpha4 = alpha5 = +-90, a0 = a4 = a5 = alpha0 = 0. Branches: shoulder
// (two theta1), wrist (two theta5), elbow (two theta3).
int ik_parallel_axes(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
    const double s1 = k.sa[1], s4 = k.sa[4], s5 = k.sa[5];
    const double D = k.d[1] + k.d[2] + k.d[3];
    const double x6[3] = {target.R[0][0], target.R[1][0], target.R[2][0]};
    const double y6[3] = {target.R[0][1], target.R[1][1], target.R[2][1]};
    const double z6[3] = {target.R[0][2], target.R[1][2], target.R[2][2]};
    const double p5[3] = {target.p[0] - k.d[5] * z6[0], target.p[1] - k.d[5] * z6[1], target.p[2] - k.d[5] * z6[2]};
    const double r = std::hypot(p5[0], p5[1]);
    if (r < std::fabs(D) - DOMAIN_TOL) return -1;
    const double psi = std::atan2(p5[1], p5[0]);
    const double as = std::asin(clamped(r > 0 ? -s1 * D / r : 0.0));
    double cand[MAX_CANDIDATES][8];
    int n = 0;
    for (int sh = 0; sh < 2; ++sh) {
        const double t1 = psi - (sh == 0 ? as : ALGO_PI - as);
        const double c1 = std::cos(t1), sn1 = std::sin(t1);
        // The parallel axes' direction for this theta1.
        const double nv[3] = {s1 * sn1, -s1 * c1, 0};
        const double c5 = clamped(-s4 * s5 * (z6[0] * nv[0] + z6[1] * nv[1]));
        const double xn = x6[0] * nv[0] + x6[1] * nv[1], yn = y6[0] * nv[0] + y6[1] * nv[1];
        // Wrist branch with sin(t5) >= 0; the other is (-t5, t6 + pi), which
        // turns joint 4's frame by a half turn (t234 + pi, z5 reversed).
        // sin(t5) from the components of z6 across the parallel axes: from
        // cos(t5) it would carry the square root of the target's rounding.
        const double across = z6[0] * c1 + z6[1] * sn1;
        const double st5 = std::sqrt(across * across + z6[2] * z6[2]);
        const double t5 = std::atan2(st5, c5);
        // R4 = R6 · (RotX(a4)·Rz(t5)·RotX(a5)·Rz(t6))^T, and t234 from it:
        // Rz(t234) = (Rz(t1)·RotX(a1))^T · R4; its first column in the
        // frame of joint 2: rows x1 and (RotX(a1)^T)·y1.
        auto frame4 = [&](double t6, double R4[3][3]) {
            double Z5[3][3], Z6[3][3], A[3][3], B[3][3], R46[3][3];
            rot_z(t5, Z5);
            rot_z(t6, Z6);
            mul(rot_x(s4).m, Z5, A);
            mul(A, rot_x(s5), B);
            mul(B, Z6, R46);
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j)
                    R4[i][j] = target.R[i][0] * R46[j][0] + target.R[i][1] * R46[j][1] + target.R[i][2] * R46[j][2];
            return std::atan2(s1 * R4[2][0], c1 * R4[0][0] + sn1 * R4[1][0]);
        };
        // The joints for t6, the wrist branch (flip) and the elbow branch.
        // The joints for t6 (R4 and t234 from frame4), the wrist branch
        // (flip) and the elbow branch. `loose`: a wrist point a little out of
        // the elbow's reach counts as a straight elbow (the polish decides),
        // as it may along a free combination.
        auto arm = [&](const double R4[3][3], double t234, double t6, int wr, int el, double* th, bool loose) {
            const double flip = wr == 0 ? 1 : -1;
            const double z5[3] = {-flip * s4 * R4[0][1], -flip * s4 * R4[1][1], -flip * s4 * R4[2][1]};
            // Joint 4's origin, then the planar two-link problem in joint 2's frame.
            const double p4[3] = {p5[0] - k.d[4] * z5[0], p5[1] - k.d[4] * z5[1], p5[2] - k.d[4] * z5[2] - k.d[0]};
            const double qx = c1 * p4[0] + sn1 * p4[1] - k.a[1];
            const double qy = s1 * p4[2];
            const double a2 = k.a[2], a3 = k.a[3];
            const double v = (qx * qx + qy * qy - a2 * a2 - a3 * a3) / (2 * a2 * a3);
            const double c3 = loose ? std::clamp(v, -1.0, 1.0) : clamped(v);
            const double ac = std::acos(c3), base = std::atan2(qy, qx);
            const double off = std::atan2(a3 * std::sin(ac), a2 + a3 * c3);
            const double sgn = el == 0 ? 1 : -1;
            const double t3 = sgn * ac, t2 = base - sgn * off;
            const double w234 = wr == 0 ? t234 : half_turn(t234);
            const double out[6] = {t1, t2, t3, w234 - t2 - t3, flip * t5, wr == 0 ? t6 : half_turn(t6)};
            std::copy(out, out + 6, th);
            if (std::isnan(c5) || std::isnan(as)) th[0] = NaN;
        };
        if (st5 >= SINGULAR) {
            const double t6 = std::atan2(-yn * s4, xn * s4);
            double R4[3][3];
            const double t234 = frame4(t6, R4);
            for (int wr = 0; wr < 2; ++wr)
                for (int el = 0; el < 2; ++el, ++n) arm(R4, t234, t6, wr, el, cand[n], false);
        }
        if (st5 < SPLIT_BELOW) {
            // Axes 4 and 6 (nearly) aligned: one combination of joints 2, 3,
            // 4 and 6 is free (t6 moves joint 5 around the wrist point, and
            // joints 2 to 4 follow). Per branch, the t6 whose joints lie
            // nearest the reference; the search starts where t234 and t6
            // share the reference's remainder equally.
            const double r6 = q_ref[5] + k.offset[5];
            const double r234 = q_ref[1] + k.offset[1] + q_ref[2] + k.offset[2] + q_ref[3] + k.offset[3];
            double R4[3][3];
            const double rest = wrap_angle(frame4(r6, R4) - r234);
            const double start = r6 + (-s4 * s5 * c5 >= 0 ? 0.5 : -0.5) * rest;
            for (int wr = 0; wr < 2; ++wr)
                for (int el = 0; el < 2; ++el, ++n) {
                    auto at = [&](double t6, double* th) {
                        double R4[3][3];
                        const double t234 = frame4(t6, R4);
                        arm(R4, t234, t6, wr, el, th, true);
                    };
                    auto distance = [&](double t6) {
                        double th[6], sum = 0;
                        at(t6, th);
                        for (int j = 1; j < 6; ++j)
                            sum += limited_cost(q_ref[j] + k.offset[j], th[j], k.lim_min[j], k.lim_max[j]);
                        return std::isnan(sum) ? ALGO_NO_JOINT : sum;
                    };
                    const double centre = wr == 0 ? start : half_turn(start);
                    at(golden_minimum(distance, centre - FREE_SEARCH, centre + FREE_SEARCH), cand[n]);
                    for (int j = 1; j < 6; ++j)
                        to_limit_next_to(q_ref[j] + k.offset[j], cand[n][j], k.lim_min[j], k.lim_max[j]);
                }
        }
    }
    return choose(k, target, cand, n, q_ref, q_out);
}

int solve_ik(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
    switch (k.type) {
        case AVEN:
        case CALDII:
        case CALDIII:
        case CALDIV: return ik_spherical_wrist(k, target, q_ref, q_out);
        case DUMO:
        case ESKA:
        case GOLT: return ik_parallel_axes(k, target, q_ref, q_out);
        case BRIV: return ik_srs(k, target, q_ref, q_out);
        case FIRU: return ik_offset7(k, target, q_ref, q_out);
        default: return -4;
    }
}

}  // namespace algo

using algo::Frame;
using algo::Kin;

// Until a caller narrows it, the 7-joint search covers the whole redundancy:
// a caller that never chooses a mode gets the solver's best success rate.
KX_API float theta_v = ALGO_THETA_V_WIDE;
KX_API int global_is_movl = 0;

namespace {

using Solver = int (*)(const Kin&, const Frame&, const double*, double*);

Kin solver_kin() {
    Kin k = algo::store().kin;
    k.theta_v = theta_v;
    return k;
}

int run(Solver solve, const float* q_ref, const Frame& flange, float* q_out) {
    if (!q_ref || !q_out) return -1;
    const Kin k = solver_kin();
    double ref[8] = {}, out[8] = {};
    for (int i = 0; i < k.dof; ++i) ref[i] = q_ref[i];
    const int rc = solve(k, flange, ref, out);
    if (rc == 0)
        for (int i = 0; i < k.dof; ++i) q_out[i] = static_cast<float>(out[i]);
    return rc;
}

// Install angle, tool and work frame are mostly identities: skip them.
bool is_identity(const Matrix& m) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (m.data[i][j] != (i == j ? 1.0f : 0.0f)) return false;
    return true;
}

Matrix times_inverse_of(const Matrix& frame, const Matrix& T, bool frame_first) {
    if (is_identity(frame)) return T;
    const Matrix inv = matrix_inv_coordinate_system(frame);
    return frame_first ? matrix_m(inv, T) : matrix_m(T, inv);
}

// install^-1 x T x tool^-1: the flange in the arm's own base.
Matrix flange_of(const Matrix& T) {
    const algo::Config& c = algo::store();
    return times_inverse_of(c.tool_m, times_inverse_of(c.install_m, T, true), false);
}

int closed_form(Solver solve, const float* q_ref, const Matrix& T, float* q_out) {
    return run(solve, q_ref, algo::frame_from(flange_of(T)), q_out);
}

int redundant(Solver solve, const float* q_ref, const Mat& T, float* q_out) {
    if (T.row != 4 || T.col != 4) return -1;
    return run(solve, q_ref, algo::frame_from(mat_to_matrix(T)), q_out);
}

}  // namespace

extern "C" {

KX_API Matrix calc_Tbase2tool_from_Pose(const Pose* pose, uint8_t flag) {
    Pose p = pose ? *pose : Pose{};
    if (flag == 1) p.quaternion = euler_to_quat(p.euler.rx, p.euler.ry, p.euler.rz);
    return times_inverse_of(algo::store().work_m, pose_quat_to_transformation_matrix(p), true);
}

KX_API int inverse_kinematics(const float* q_in, const Pose* target, float* q_out, uint8_t flag) {
    if (!q_in || !target || !q_out) return -1;
    const Matrix T = calc_Tbase2tool_from_Pose(target, flag);
    const algo::Config& c = algo::store();
    float ref[8] = {};
    for (int i = 0; i < c.dof && i < 8; ++i) ref[i] = q_in[i];
    // A last joint just past a full turn (by up to about 2 degrees) counts as
    // exactly one turn; further out it is left alone.
    float& last = ref[c.type == BRIV ? 6 : 5];
    if (last > 6.283185f && last < 6.318092f) last = 6.283185f;
    if (last < -6.283185f && last > -6.318092f) last = -6.283185f;
    switch (c.type) {
        case AVEN: return inverse_kinematics_aven(ref, T, q_out);
        case BRIV: return inverse_kinematics_briv(ref, matrix_to_mat(flange_of(T)), q_out);
        case CALDII:
        case CALDIV: return inverse_kinematics_cald_2(ref, T, q_out);
        case CALDIII: return inverse_kinematics_cald_3(ref, T, q_out);
        case DUMO:
        case ESKA:
        case GOLT: return inverse_kinematics_orla(ref, T, q_out);
        case FIRU: return inverse_kinematics_firu(ref, matrix_to_mat(flange_of(T)), q_out);
        default: return -4;  // CALDI, UNIVERSAL and unknown types have no inverse
    }
}

KX_API int inverse_kinematics_aven(const float* q_ref, Matrix target, float* q_out) {
    return closed_form(algo::ik_spherical_wrist, q_ref, target, q_out);
}
KX_API int inverse_kinematics_cald_2(const float* q_ref, Matrix target, float* q_out) {
    return closed_form(algo::ik_spherical_wrist, q_ref, target, q_out);
}
KX_API int inverse_kinematics_cald_3(const float* q_ref, Matrix target, float* q_out) {
    return closed_form(algo::ik_spherical_wrist, q_ref, target, q_out);
}
KX_API int inverse_kinematics_orla(const float* q_ref, Matrix target, float* q_out) {
    return closed_form(algo::ik_parallel_axes, q_ref, target, q_out);
}
KX_API int inverse_kinematics_briv(const float* q_ref, Mat target, float* q_out) {
    return redundant(algo::ik_srs, q_ref, target, q_out);
}
KX_API int inverse_kinematics_firu(const float* q_ref, Mat target, float* q_out) {
    return redundant(algo::ik_offset7, q_ref, target, q_out);
}

KX_API int ikine_jacobe_and_pose_firu(const float* q, Mat* jacobian, Mat* pose) {
    if (!q || !jacobian || !pose) return -1;
    const Kin& k = algo::store().kin;
    double qd[8] = {}, J[6][8];
    for (int i = 0; i < k.dof; ++i) qd[i] = q[i];
    Frame F[9];
    algo::chain_frames(k, qd, F);
    algo::jacobian(F, k.dof, -1, J);
    *jacobian = mat_zeros(6, k.dof);
    for (int r = 0; r < 6; ++r)
        for (int j = 0; j < k.dof; ++j) jacobian->data[r][j] = static_cast<float>(J[r][j]);
    *pose = matrix_to_mat(algo::matrix_from(F[k.dof]));
    return 0;
}

KX_API int joint_overspeed_judgment(const float* q_current, const float* q_solve, float vel_factor) {
    if (!q_current || !q_solve) return -1;
    const algo::Config& c = algo::store();
    if (vel_factor < 0) vel_factor = 0;
    for (int i = 0; i < c.dof && i < 8; ++i)
        if (std::fabs(q_solve[i] - q_current[i]) > c.vmax[i] * c.period * vel_factor) return i + 1;
    return 0;
}

KX_API void ikine_set_7dof_solver_search_strategy(int strategy) {
    global_is_movl = strategy;
    theta_v = strategy == 1 ? ALGO_THETA_V_NARROW : ALGO_THETA_V_WIDE;
}
KX_API int ikine_get_7dof_solver_search_strategy(void) { return global_is_movl; }

KX_API void ikine_set_solution_range_briv(float range) {
    theta_v = range;
    global_is_movl = range <= 1.0f ? 1 : 0;
}
KX_API float ikine_get_solution_range_briv(void) { return theta_v; }

}  // extern "C"
