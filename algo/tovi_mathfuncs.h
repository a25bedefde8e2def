/*
 * Fixed-size pose arithmetic shared by the whole library: Euler angles
 * (fixed-axis roll-pitch-yaw, R = Rz(rz)·Ry(ry)·Rx(rx)), quaternions
 * (w, x, y, z), 4x4 homogeneous matrices and the joint-choice helpers.
 */
#ifndef ALGO_TOVI_MATHFUNCS_H
#define ALGO_TOVI_MATHFUNCS_H

#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API Euler matrix_to_euler(Matrix m);
KX_API Quat matrix_to_quat(Matrix m);
KX_API Matrix euler_to_matrix(float rx, float ry, float rz);
KX_API Quat euler_to_quat(float rx, float ry, float rz);
KX_API Matrix quat_to_matrix(Quat q);
KX_API Euler quat_to_euler(Quat q);
KX_API Matrix pose_euler_to_transformation_matrix(Pose pose);
KX_API Matrix pose_quat_to_transformation_matrix(Pose pose);
KX_API Pose transformation_matrix_to_pose(Matrix m);
KX_API Matrix matrix_inv_coordinate_system(Matrix m);
KX_API Matrix matrix_m(Matrix a, Matrix b);
KX_API Matrix matrix_inv(Matrix m);
KX_API Quat quaternion_interpolation(Quat q0, Quat q1, float theta, float phi);
KX_API Matrix rotx(float angle);
KX_API Matrix roty(float angle);
KX_API Matrix rotz(float angle);

/* 7x7 helpers (row-major float[7][7]). */
KX_API void matrix_m_dim7(const float a[7][7], const float b[7][7], float out[7][7]);
KX_API int matrix_inv_dim7(const float a[7][7], float out[7][7]);

/* The 2*pi-equivalent of *cand nearest to ref inside [min - *margin,
 * max + *margin]; writes it to *cand and returns the distance, or 1e6 when
 * none is admissible (then *cand is unchanged). */
KX_API double find_nearest_joint(double ref, double* cand, double* margin, double min, double max);
/* Index of the smallest of n values (the first of equal minima). */
KX_API int find_min_index(const double* values, int n);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_TOVI_MATHFUNCS_H */
