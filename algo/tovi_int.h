/*
 * Internal core of the kinematics library: FK and IK as functions of an
 * explicit kinematic description, so that the process-wide store and the
 * thread-safe algo::ArmModel share one implementation.
 */
#ifndef ALGO_TOVI_INT_H
#define ALGO_TOVI_INT_H

#include <cmath>

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
    double theta_v = 0.013;
    int strategy = 1;
    bool avoid_singularity = false;

    void set_dh(const float* d_, const float* a_, const float* alpha_, const float* offset_);
    void set_limits(const float* jmin, const float* jmax); /* arm joint limits, radians */
};

/* Flange transform for arm joints q (radians), general modified-DH chain. */
Frame chain_fk(const Kin& k, const double* q);
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

/* Picks, among n candidate theta vectors, the one whose joints map nearest
 * to the reference (find_nearest_joint per joint, find_min_index overall),
 * writes it as arm joints to q_out. Returns false when none is admissible. */
bool pick_nearest(const Kin& k, const double (*cand)[8], int n, const double* q_ref, double* q_out);

/* Dispatch on k.type to the solver of that model; -4 when it has none. */
int solve_ik(const Kin& k, const Frame& target, const double* q_ref, double* q_out);

}  // namespace algo

#endif /* ALGO_TOVI_INT_H */
