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
constexpr double LIMIT_MARGIN = 1e-6;

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

double sign_of(double v) { return v < 0 ? -1.0 : 1.0; }

double half_turn(double t) { return t > 0 ? t - ALGO_PI : t + ALGO_PI; }

}  // namespace

void solve_zxzxz(const double M[3][3], double sa, double sb, double ref1, double out[2][3]) {
    const double c2 = -sa * sb * M[2][2];
    const double s2 = std::sqrt(M[0][2] * M[0][2] + M[1][2] * M[1][2]);
    if (s2 < SINGULAR) {
        // Axes 1 and 3 coincide: keep the first where the reference has it
        // and give the rest of the rotation to the third,
        // Rz(t3) = (Rz(t1)·RotX(a)·Rz(t2)·RotX(b))^T · M.
        const double t2 = c2 >= 0 ? 0.0 : ALGO_PI, t1 = ref1;
        double A[3][3], B[3][3], N[3][3];
        rot_z(t1, A);
        mul(A, rot_x(sa), B);
        rot_z(t2, A);
        mul(B, A, N);
        mul(N, rot_x(sb), B);
        mul_t(B, M, N);
        for (int k = 0; k < 2; ++k) {
            out[k][0] = t1;
            out[k][1] = t2;
            out[k][2] = std::atan2(N[1][0], N[0][0]);
        }
        return;
    }
    out[0][0] = std::atan2(sb * M[1][2], sb * M[0][2]);
    out[0][1] = std::atan2(s2, c2);
    out[0][2] = std::atan2(-sa * M[2][1], sa * M[2][0]);
    // The flipped branch: t2 -> -t2 turns t1 and t3 by half a turn.
    out[1][0] = half_turn(out[0][0]);
    out[1][1] = -out[0][1];
    out[1][2] = half_turn(out[0][2]);
}

bool pick_nearest(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double* q_out) {
    double dist[16], mapped[16][8];
    if (n < 1 || n > 16) return false;
    double lowest = ALGO_NO_JOINT;
    for (int c = 0; c < n; ++c) {
        dist[c] = 0;
        // A partial sum already above the best cannot win: stop adding.
        for (int j = 0; j < k.dof && dist[c] <= lowest; ++j) {
            double v = cand[c][j], margin = LIMIT_MARGIN;
            dist[c] += nearest_equivalent(q_ref[j] + k.offset[j], &v, &margin, k.lim_min[j], k.lim_max[j]);
            mapped[c][j] = v;
        }
        lowest = std::min(lowest, dist[c]);
    }
    const int best = find_min_index(dist, n);
    if (!(dist[best] < ALGO_NO_JOINT)) return false;
    for (int j = 0; j < k.dof; ++j)
        q_out[j] = std::clamp(mapped[best][j], k.lim_min[j], k.lim_max[j]) - k.offset[j];
    return true;
}

namespace {

constexpr double ACCEPT = 1e-6;  // pose error of an accepted solution

// The chosen branch is polished against the (single precision) target,
// which matters near singular configurations; a DH table outside the
// solver's geometry family fails here with -1 instead of a wrong answer.
int choose(const Kin& k, const Frame& target, const double (*cand)[8], int n, const double* q_ref, double* q_out) {
    double q[8] = {};
    if (!pick_nearest(k, cand, n, q_ref, q)) return -2;
    DlsOptions opt;
    opt.max_iter = 4;
    if (dls_refine(k, target, q, opt) > ACCEPT) return -1;
    std::copy(q, q + k.dof, q_out);
    return 0;
}

}  // namespace

// Spherical wrist (a4 = a5 = d5 = 0), alpha1 = +-90, alpha2 = 0,
// alpha3..alpha5 = +-90, a0 = alpha0 = 0. Branches: shoulder (two
// theta1), elbow (two theta3), wrist flip (two theta5).
int ik_spherical_wrist(const Kin& k, const Frame& target, const double* q_ref, double* q_out) {
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
    double cand[8][8];
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
            double A[3][3], M[3][3], w[2][3];
            mul_t(R3, target.R, A);
            rotx_t_mul(s3, A, M);
            solve_zxzxz(M, k.sa[4], k.sa[5], q_ref[3] + k.offset[3], w);
            for (int b = 0; b < 2; ++b, ++n) {
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
    double cand[8][8];
    int n = 0;
    for (int sh = 0; sh < 2; ++sh) {
        const double t1 = psi - (sh == 0 ? as : ALGO_PI - as);
        const double c1 = std::cos(t1), sn1 = std::sin(t1);
        // The parallel axes' direction for this theta1.
        const double nv[3] = {s1 * sn1, -s1 * c1, 0};
        const double c5 = clamped(-s4 * s5 * (z6[0] * nv[0] + z6[1] * nv[1]));
        const double xn = x6[0] * nv[0] + x6[1] * nv[1], yn = y6[0] * nv[0] + y6[1] * nv[1];
        for (int wr = 0; wr < 2; ++wr) {
            const double st5 = (wr == 0 ? 1 : -1) * std::sqrt(std::max(0.0, 1 - c5 * c5));
            const double t5 = std::atan2(st5, c5);
            const double t6 = std::fabs(st5) < SINGULAR
                                  ? q_ref[5] + k.offset[5]
                                  : std::atan2(-yn * s4 * sign_of(st5), xn * s4 * sign_of(st5));
            // R4 = R6 · (RotX(a4)·Rz(t5)·RotX(a5)·Rz(t6))^T.
            double Z5[3][3], Z6[3][3], A[3][3], B[3][3], R46[3][3], R4[3][3];
            rot_z(t5, Z5);
            rot_z(t6, Z6);
            mul(rot_x(s4).m, Z5, A);
            mul(A, rot_x(s5), B);
            mul(B, Z6, R46);
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j)
                    R4[i][j] = target.R[i][0] * R46[j][0] + target.R[i][1] * R46[j][1] + target.R[i][2] * R46[j][2];
            // Rz(t234) = (Rz(t1)·RotX(a1))^T · R4; its first column in the
            // frame of joint 2: rows x1 and (RotX(a1)^T)·y1.
            const double m00 = c1 * R4[0][0] + sn1 * R4[1][0];
            const double m10 = s1 * R4[2][0];
            const double t234 = std::atan2(m10, m00);
            // Joint 4's origin, then the planar two-link problem in joint 2's frame.
            const double z5[3] = {-s4 * R4[0][1], -s4 * R4[1][1], -s4 * R4[2][1]};
            const double p4[3] = {p5[0] - k.d[4] * z5[0], p5[1] - k.d[4] * z5[1], p5[2] - k.d[4] * z5[2] - k.d[0]};
            const double qx = c1 * p4[0] + sn1 * p4[1] - k.a[1];
            const double qy = s1 * p4[2];
            const double a2 = k.a[2], a3 = k.a[3];
            const double c3 = clamped((qx * qx + qy * qy - a2 * a2 - a3 * a3) / (2 * a2 * a3));
            const double ac = std::acos(c3), base = std::atan2(qy, qx);
            const double off = std::atan2(a3 * std::sin(ac), a2 + a3 * c3);
            for (int el = 0; el < 2; ++el, ++n) {
                const double sgn = el == 0 ? 1 : -1;
                const double t3 = sgn * ac;
                const double t2 = base - sgn * off;
                const double th[6] = {t1, t2, t3, t234 - t2 - t3, t5, t6};
                std::copy(th, th + 6, cand[n]);
                if (std::isnan(c5) || std::isnan(as)) cand[n][0] = NaN;
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

KX_API float theta_v = ALGO_THETA_V_NARROW;
KX_API int global_is_movl = 1;

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

// install^-1 x T x tool^-1: the flange in the arm's own base.
Matrix flange_of(const Matrix& T) {
    const algo::Config& c = algo::store();
    return matrix_m(matrix_m(matrix_inv_coordinate_system(c.install_m), T), matrix_inv_coordinate_system(c.tool_m));
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
    return matrix_m(matrix_inv_coordinate_system(algo::store().work_m), pose_quat_to_transformation_matrix(p));
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
