// The dense matrix library: decompositions reconstruct their input, and
// unusable dimensions give empty results instead of out-of-bounds access.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "algo_matrix.h"

namespace {

MatD random_matrix(int r, int c, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    MatD m = matD_zeros(r, c);
    for (int i = 0; i < r; ++i)
        for (int j = 0; j < c; ++j) m.data[i][j] = u(rng);
    return m;
}

void expect_near(const MatD& a, const MatD& b, double tol) {
    ASSERT_EQ(a.row, b.row);
    ASSERT_EQ(a.col, b.col);
    for (int i = 0; i < a.row; ++i)
        for (int j = 0; j < a.col; ++j) EXPECT_NEAR(a.data[i][j], b.data[i][j], tol) << i << "," << j;
}

MatD diag(const VecD& s, int r, int c) {
    MatD d = matD_zeros(r, c);
    for (int i = 0; i < s.len; ++i) d.data[i][i] = s.data[i];
    return d;
}

}  // namespace

TEST(AlgoMatrix, DecompositionsReconstructTheirInput) {
    std::mt19937 rng(11);
    for (int n : {1, 3, 6, 7, 18}) {
        const MatD A = random_matrix(n, n, rng);
        expect_near(matD_mult(A, matD_inv(A)), matD_eye(n), 1e-8);
        MatD L, U, P;
        ASSERT_EQ(matD_lu(A, &L, &U, &P), 0);
        expect_near(matD_mult(P, A), matD_mult(L, U), 1e-10);
        double prod = 1;
        for (int i = 0; i < n; ++i) prod *= U.data[i][i];
        EXPECT_NEAR(std::fabs(matD_det(A)), std::fabs(prod), 1e-10);
        MatD S = matD_add(A, matD_T(A));
        VecD values;
        MatD vectors;
        ASSERT_EQ(matD_eig_sym(S, &values, &vectors), 0);
        expect_near(matD_mult(S, vectors), matD_mult(vectors, diag(values, n, n)), 1e-8);
        for (int i = 1; i < n; ++i) EXPECT_LE(values.data[i - 1], values.data[i]);
    }
    for (auto [r, c] : {std::pair{6, 7}, std::pair{7, 6}, std::pair{4, 4}, std::pair{18, 3}}) {
        const MatD A = random_matrix(r, c, rng);
        MatD Q, R;
        ASSERT_EQ(matD_qr(A, &Q, &R), 0);
        expect_near(matD_mult(Q, R), A, 1e-10);
        expect_near(matD_mult(matD_T(Q), Q), matD_eye(r), 1e-10);
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < i && j < c; ++j) EXPECT_EQ(R.data[i][j], 0.0);
        MatD U, V;
        VecD s;
        ASSERT_EQ(matD_svd(A, &U, &s, &V), 0);
        const int k = std::min(r, c);
        EXPECT_EQ(s.len, k);
        expect_near(matD_mult(matD_mult(U, diag(s, k, k)), matD_T(V)), A, 1e-9);
        for (int i = 1; i < k; ++i) EXPECT_GE(s.data[i - 1], s.data[i]);
        EXPECT_EQ(matD_rank(A, 1e-9), k);
        const MatD Ap = matD_pinv(A, 1e-9);
        expect_near(matD_mult(matD_mult(A, Ap), A), A, 1e-9);
    }
    // Rank deficiency and a singular matrix.
    MatD D = matD_zeros(3, 3);
    D.data[0][0] = 1;
    D.data[1][1] = 2;
    EXPECT_EQ(matD_rank(D, 1e-9), 2);
    EXPECT_EQ(matD_det(D), 0.0);
    EXPECT_EQ(matD_inv(D).row, 0);
    MatD L, U, P;
    EXPECT_EQ(matD_lu(D, &L, &U, &P), -1);
}

TEST(AlgoMatrix, SinglePrecisionVectorsAndTransformDifferences) {
    Mat A = mat_eye(3);
    A.data[0][1] = 2;
    const Mat B = mat_scale(mat_T(A), 2.0f);
    EXPECT_EQ(B.data[1][0], 4.0f);
    EXPECT_EQ(mat_sub(B, B).data[1][0], 0.0f);
    EXPECT_FLOAT_EQ(mat_det(A), 1.0f);

    VecD lower{2, {1, 1}}, main{3, {4, 4, 4}}, upper{2, {1, 1}}, rhs{3, {5, 6, 5}};
    const VecD x = matD_tridiag_solve(lower, main, upper, rhs);
    ASSERT_EQ(x.len, 3);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(x.data[i], 1.0, 1e-12);

    const Vec a{3, {1, 0, 0}}, b{3, {0, 1, 0}};
    const Vec c = vec_cross(a, b);
    EXPECT_EQ(c.data[2], 1.0f);
    EXPECT_EQ(vec_dot(a, b), 0.0f);
    EXPECT_FLOAT_EQ(vec_norm(Vec{2, {3, 4}}), 5.0f);

    // From identity to a 0.5 rad turn about Z shifted by (1, 2, 3).
    Mat T0 = mat_eye(4), T1 = mat_eye(4);
    T1.data[0][0] = T1.data[1][1] = std::cos(0.5f);
    T1.data[1][0] = std::sin(0.5f);
    T1.data[0][1] = -std::sin(0.5f);
    T1.data[0][3] = 1;
    T1.data[1][3] = 2;
    T1.data[2][3] = 3;
    const Vec d = vec_angle_axis_diff(T0, T1);
    ASSERT_EQ(d.len, 6);
    EXPECT_FLOAT_EQ(d.data[0], 1.0f);
    EXPECT_NEAR(d.data[5], 0.5f, 1e-6);
    EXPECT_NEAR(vec_Tdiff(T0, T1).data[5], std::sin(0.5f), 1e-6);
    // A half turn still has its angle and axis.
    Mat H = mat_eye(4);
    H.data[1][1] = H.data[2][2] = -1;
    EXPECT_NEAR(std::fabs(vec_angle_axis_diff(T0, H).data[3]), 3.14159265f, 1e-5);
    const Matrix m = mat_to_matrix(T1);
    EXPECT_EQ(m.data[1][3], 2.0f);
    EXPECT_EQ(matrix_to_mat(m).data[0][3], 1.0f);
}

TEST(AlgoMatrix, UnusableDimensionsGiveEmptyResults) {
    Mat bad{};
    bad.row = 19;
    bad.col = 2;
    EXPECT_EQ(mat_T(bad).row, 0);
    EXPECT_EQ(mat_mult(mat_eye(3), mat_eye(4)).row, 0);
    EXPECT_EQ(mat_add(mat_eye(3), mat_eye(4)).row, 0);
    EXPECT_EQ(mat_zeros(-1, 3).row, 0);
    EXPECT_EQ(mat_eye(40).row, 0);
    EXPECT_EQ(mat_inv(mat_zeros(2, 3)).row, 0);
    EXPECT_EQ(mat_det(mat_zeros(2, 3)), 0.0f);
    Mat q, r;
    EXPECT_EQ(mat_qr(bad, &q, &r), -1);
    EXPECT_EQ(mat_qr(mat_eye(3), nullptr, &r), -1);
    Vec s;
    EXPECT_EQ(mat_svd(bad, &q, &s, &r), -1);
    EXPECT_EQ(mat_rank(bad, 1e-6f), -1);
    EXPECT_EQ(mat_tridiag_solve(Vec{}, Vec{30, {}}, Vec{}, Vec{}).len, 0);
    EXPECT_EQ(vec_angle_axis_diff(mat_eye(3), mat_eye(4)).len, 0);
    EXPECT_EQ(vec_cross(Vec{2, {1, 2}}, Vec{3, {1, 2, 3}}).len, 0);
    EXPECT_EQ(vec_dot(Vec{40, {}}, Vec{40, {}}), 0.0f);
}
