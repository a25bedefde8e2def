/*
 * Internal core of the kinematics library: FK and IK as functions of an
 * explicit kinematic description, so that the process-wide store and the
 * thread-safe algo::ArmModel share one implementation.
 */
#ifndef ALGO_TOVI_INT_H
#define ALGO_TOVI_INT_H

#include <cmath>
#include <utility>

#include "constant_define.h"
#include "robot_define.h"

namespace algo {

/* One arm model's built-in data: modified DH rows and limits, in the units
 * a person reads (metres, degrees, degrees/s, degrees/s^2). */
struct ModelTable {
    int type;
    int dof;
    double d[8], a[8], alpha[8], offset[8];
    double jmin[8], jmax[8], vmax[8], amax[8];
    bool sensor_offered[3]; /* _P, _QA, _QS */
};

/* The table of a library robot type, or nullptr when the type is unknown. */
const ModelTable* model_table(int type);
/* Sensor thickness added to the last joint's d, metres. */
double sensor_thickness(int sensor);

/* A rigid transform in double precision. */
struct Frame {
    double R[3][3];
    double p[3];
    static Frame identity() {
        return Frame{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 0, 0}};
    }
};

Frame operator*(const Frame& A, const Frame& B);
Frame inverse(const Frame& T);
Frame frame_from(const Matrix& m);
/* The 4 x 4 identity. */
Matrix matrix_eye();
Matrix matrix_from(const Frame& T);

/* Everything FK and IK need, precomputed for speed. Joint angles q are the
 * arm's; theta = q + offset is the DH angle; lim_* are the modelling limits
 * (in theta). */
struct Kin {
    int type = 0;
    int dof = 6;
    double d[8] = {}, a[8] = {}, alpha[8] = {}, offset[8] = {};
    double ca[8] = {}, sa[8] = {}; /* cos/sin of alpha */
    double lim_min[8] = {}, lim_max[8] = {};
    double vmax[8] = {};
    double period = 0.002;
    double theta_v = 3.14; /* 7-joint redundancy search range, radians (whole redundancy) */
    double longest_elbow = 0; /* 7 joints: joint 4's DH angle with the wrist point farthest from the shoulder */
    bool avoid_singularity = false;

    void set_dh(const float* d_, const float* a_, const float* alpha_, const float* offset_);
    void set_limits(const float* jmin, const float* jmax); /* arm joint limits, radians */
};

/* The process-wide configuration record behind the libalgo_ accessors.
 * kin is derived from the rest and kept current by every setter. */
struct Config {
    DH dh{}, dh_default{};
    RobotType type = AVEN;
    SensorType sensor = _P;
    float jmax[8] = {}, jmin[8] = {}, vmax[8] = {}, amax[8] = {}, direction[8] = {};
    float link_dynamics[7][10] = {};
    float install[3] = {};
    Matrix install_m{};
    float gravity[3] = {};
    Coord tool{}, work{};
    Matrix tool_m{}, work_m{};
    PayloadCfg payload{};
    float period = 0, g = 0;
    float collision[8] = {};
    int16_t safety = 0;
    int all_dof = 0, avoid_singularity = 0, dynamics_type = 0;
    float fb_q[8] = {}, fb_dq[8] = {}, fb_tau[8] = {};
    int16_t dof = 0;
    Kin kin;

    void refresh_kin();
};

Config& store();

/* Flange transform for arm joints q (radians), general modified-DH chain. */
Frame chain_fk(const Kin& k, const double* q);
/* Transform of the first n rows. */
Frame chain_partial(const Kin& k, const double* q, int n);
/* Frames of every joint (origin and z axis), for Jacobians: T[i] is the
 * frame of joint i after its rotation, T[dof] the flange. */
void chain_frames(const Kin& k, const double* q, Frame* T);

/* Closed-form 6-joint solvers. target is the flange in the arm's base;
 * q_ref and q_out are arm joints (radians). Return 0, -1 (unreachable) or
 * -2 (no candidate inside the limits). */
int ik_spherical_wrist(const Kin& k, const Frame& target, const double* q_ref, double* q_out);
int ik_parallel_axes(const Kin& k, const Frame& target, const double* q_ref, double* q_out);
/* 7-joint redundancy searches. */
int ik_srs(const Kin& k, const Frame& target, const double* q_ref, double* q_out);
int ik_offset7(const Kin& k, const Frame& target, const double* q_ref, double* q_out);

/* Solves Rz(t1)·RotX(alpha_a)·Rz(t2)·RotX(alpha_b)·Rz(t3) = M for the DH
 * angles t1..t3 of joints j1..j1+2 (alphas of joints j1+1, j1+2 of +-90
 * degrees). Fills out[branch][3] and returns the number of branches: the
 * two of t2 (sin t2 >= 0 first) and, where axes 1 and 3 are (nearly)
 * aligned so that only t1 +- t3 is defined, the branch that shares the
 * rotation between t1 and t3 from the reference (DH angles ref_theta),
 * within their limits (alone when the axes are aligned). */
int solve_zxzxz(const double M[3][3], const Kin& k, int j1, const double* ref_theta, double out[3][3]);
/* Where joints j1 and j1+2 of the DH angles th are (nearly) aligned, shares
 * their combination as the reference does (solve_zxzxz's split branch);
 * elsewhere th is left as it is. */
void resplit(const Kin& k, int j1, const double* ref_theta, double* th);
/* t wrapped to [-pi, pi]. */
double wrap_angle(double t);

/* |sin| of the middle angle below this: axes so nearly aligned that a
 * single-precision target cannot tell how their free combination is split;
 * the reference's split joins the candidates. */
constexpr double SPLIT_BELOW = 1e-4;

/* Most candidate branches a solver offers for one target. */
constexpr int MAX_CANDIDATES = 24;

/* find_nearest_joint's body, inlined into the solvers. */
inline double nearest_equivalent(double ref, double* cand, const double* margin, double min, double max) {
    const double lo = min - *margin, hi = max + *margin;
    const double tries[5] = {*cand - ALGO_4PI, *cand - ALGO_2PI, *cand, *cand + ALGO_2PI, *cand + ALGO_4PI};
    double best = ALGO_NO_JOINT, chosen = *cand;
    for (double t : tries) {
        const double dist = std::fabs(t - ref);
        if (dist < best && t >= lo && t <= hi) {
            best = dist;
            chosen = t;
        }
    }
    *cand = chosen;
    return best;
}

/* Picks, among n candidate theta vectors, the one whose joints map nearest
 * to the reference (find_nearest_joint per joint, find_min_index overall),
 * writes it as arm joints to q_out. Returns false when none is admissible.
 * past_limits: a joint with no equivalent inside its limits may lie up to
 * 1e-3 rad past one, and is taken back to it (for a caller that polishes
 * and can fall back to the next candidate). */
bool pick_nearest(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double* q_out,
                  bool past_limits = false);
/* The admissible candidates nearest first (joints past their limits as
 * pick_nearest's past_limits): their indices in order[], each mapped to arm
 * joints in mapped[]. Returns how many are admissible. */
int rank_candidates(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double (*mapped)[8],
                    int* order);

/* Pose error of T against target: position difference and the rotation
 * vector (sin(angle)·axis, base frame) taking T's orientation to target's. */
void pose_error(const Frame& T, const Frame& target, double e[6]);
double error_norm(const double e[6]); /* max of |position| and |rotation| */

/* Damped least squares from q toward target, in place. fixed >= 0 holds
 * that joint still. step_bound > 0 scales each step so no joint moves more
 * than step_bound · vmax[j] per iteration. Joints are kept in the modelling
 * limits. Returns the final error_norm. */
struct DlsOptions {
    int max_iter = 8;
    int fixed = -1;
    double step_bound = 0;
    double tol = 1e-10;
};
double dls_refine(const Kin& k, const Frame& target, double* q, const DlsOptions& opt);
/* Levenberg-Marquardt from q toward target, in place: a step is taken only
 * when it lowers the error, otherwise the damping grows. trust > 0 bounds
 * each joint's step by trust · vmax[j]. Joints are kept in the modelling
 * limits. Returns the final error_norm. */
struct LocalOptions {
    int max_iter = 20;
    double damping = 1e-6; /* least lambda^2 */
    double trust = 0;
    double tol = 1e-7;
    int patience = 1000;    /* after this many iterations ... */
    double hopeless = 1e-3; /* ... an error above this ends the search */
};
double local_solve(const Kin& k, const Frame& target, double* q, const LocalOptions& opt);
/* Geometric Jacobian (base frame, rows vx vy vz wx wy wz) from the frames
 * of chain_frames; column `skip` is left zero. */
void jacobian(const Frame* F, int n, int skip, double J[6][8]);

/* Dispatch on k.type to the solver of that model; -4 when it has none. */
int solve_ik(const Kin& k, const Frame& target, const double* q_ref, double* q_out);

}  // namespace algo

#endif /* ALGO_TOVI_INT_H */

namespace algo {

/* Gauss-Jordan inverse with partial pivoting of the n x n matrix at a (rows
 * `stride` apart); writes out (same stride). False when singular. */
template <class S>
bool gauss_jordan_inverse(const S* a, S* out, int n, int stride) {
    S w[18][36];
    if (n < 1 || n > 18) return false;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            w[i][j] = a[i * stride + j];
            w[i][n + j] = (i == j) ? S(1) : S(0);
        }
    for (int c = 0; c < n; ++c) {
        int piv = c;
        for (int r = c + 1; r < n; ++r)
            if (std::fabs(w[r][c]) > std::fabs(w[piv][c])) piv = r;
        if (!(std::fabs(w[piv][c]) > S(0))) return false;
        if (piv != c)
            for (int j = 0; j < 2 * n; ++j) std::swap(w[c][j], w[piv][j]);
        const S inv = S(1) / w[c][c];
        for (int j = 0; j < 2 * n; ++j) w[c][j] *= inv;
        for (int r = 0; r < n; ++r) {
            if (r == c || w[r][c] == S(0)) continue;
            const S f = w[r][c];
            for (int j = 0; j < 2 * n; ++j) w[r][j] -= f * w[c][j];
        }
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) out[i * stride + j] = w[i][n + j];
    return true;
}

}  // namespace algo
