/*
 * Dense matrices and vectors up to 18 x 18, single (mat_, vec_) and double
 * (matD_, vecD_) precision, passed by value. A function given dimensions it
 * cannot use returns a 0 x 0 result (or -1 where it returns an int).
 */
#ifndef ALGO_MATRIX_H
#define ALGO_MATRIX_H

#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ALGO_MAT_DIM 18

typedef struct {
    int row;
    int col;
    float data[ALGO_MAT_DIM][ALGO_MAT_DIM];
} Mat;

typedef struct {
    int row;
    int col;
    double data[ALGO_MAT_DIM][ALGO_MAT_DIM];
} MatD;

typedef struct {
    int len;
    float data[ALGO_MAT_DIM];
} Vec;

typedef struct {
    int len;
    double data[ALGO_MAT_DIM];
} VecD;

#define ALGO_DECLARE_DENSE(P, M, V, S)                                                   \
    KX_API M P##zeros(int row, int col);                                                 \
    KX_API M P##eye(int n);                                                              \
    KX_API M P##mult(M a, M b);                                                          \
    KX_API M P##T(M a);                                                                  \
    KX_API M P##add(M a, M b);                                                           \
    KX_API M P##sub(M a, M b);                                                           \
    KX_API M P##scale(M a, S s);                                                         \
    KX_API S P##det(M a);                                                                \
    KX_API M P##inv(M a); /* 0 x 0 when singular */                                     \
    /* P·a = L·U with partial pivoting; P as a permutation matrix. */                    \
    KX_API int P##lu(M a, M* l, M* u, M* p);                                             \
    /* a = Q·R (Householder), Q square orthogonal, R upper triangular. */                \
    KX_API int P##qr(M a, M* q, M* r);                                                   \
    /* a = U·diag(s)·V^T (one-sided Jacobi), s descending; U is row x k, V col x k,   \
     * k = min(row, col). */                                                           \
    KX_API int P##svd(M a, M* u, V* s, M* v);                                            \
    /* Eigen-decomposition of a symmetric matrix (Jacobi): values ascending,          \
     * vectors in the columns. */                                                      \
    KX_API int P##eig_sym(M a, V* values, M* vectors);                                   \
    KX_API int P##rank(M a, S tol);                                                      \
    KX_API M P##pinv(M a, S tol);                                                        \
    /* Solves the tridiagonal system with sub-, main and super-diagonals. */             \
    KX_API V P##tridiag_solve(V lower, V diag, V upper, V rhs);

ALGO_DECLARE_DENSE(mat_, Mat, Vec, float)
ALGO_DECLARE_DENSE(matD_, MatD, VecD, double)
#undef ALGO_DECLARE_DENSE

KX_API float vec_dot(Vec a, Vec b);
KX_API float vec_norm(Vec a);
KX_API Vec vec_cross(Vec a, Vec b);
KX_API double vecD_dot(VecD a, VecD b);
KX_API double vecD_norm(VecD a);
KX_API VecD vecD_cross(VecD a, VecD b);

/* Six-vector (dx, dy, dz, rotation vector) taking homogeneous transform a to
 * b: the rotation part as angle·axis of R_b·R_a^T, in the base frame. */
KX_API Vec vec_angle_axis_diff(Mat a, Mat b);
/* As vec_angle_axis_diff, with the rotation part as the small-angle
 * approximation 0.5·sum(a_i x b_i) over the axes. */
KX_API Vec vec_Tdiff(Mat a, Mat b);

/* The 4 x 4 transform as a dense matrix, and back. */
KX_API Mat matrix_to_mat(Matrix m);
KX_API Matrix mat_to_matrix(Mat m);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_MATRIX_H */
