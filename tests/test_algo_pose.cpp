// Pose arithmetic: conversions, their documented branches, and the
// joint-choice helpers.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tovi_mathfuncs.h"

namespace {

void expect_rotation_near(const Matrix& a, const Matrix& b, double tol) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(a.data[i][j], b.data[i][j], tol) << i << j;
}

}  // namespace

TEST(AlgoPose, EulerQuaternionAndMatrixRoundTrip) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> ang(-3.1f, 3.1f), pitch(-1.5f, 1.5f);
    for (int n = 0; n < 2000; ++n) {
        const float rx = ang(rng), ry = pitch(rng), rz = ang(rng);
        const Matrix R = euler_to_matrix(rx, ry, rz);
        EXPECT_EQ(R.irow, 3);
        EXPECT_EQ(R.iline, 3);
        // R = Rz·Ry·Rx, built independently from the elementary rotations.
        expect_rotation_near(R, matrix_m(matrix_m(rotz(rz), roty(ry)), rotx(rx)), 1e-6);
        const Quat q = euler_to_quat(rx, ry, rz);
        expect_rotation_near(quat_to_matrix(q), R, 2e-6);
        const Quat q2 = matrix_to_quat(R);
        const float sign = (q.w * q2.w + q.x * q2.x + q.y * q2.y + q.z * q2.z) < 0 ? -1.f : 1.f;
        EXPECT_NEAR(q2.w * sign, q.w, 2e-6);
        EXPECT_NEAR(q2.x * sign, q.x, 2e-6);
        const Euler e = matrix_to_euler(R);
        expect_rotation_near(euler_to_matrix(e.rx, e.ry, e.rz), R, 2e-6);
        const Euler e2 = quat_to_euler(q);
        expect_rotation_near(euler_to_matrix(e2.rx, e2.ry, e2.rz), R, 2e-6);
    }
    // matrix_to_quat's non-trace branches: half turns about each axis.
    for (int axis = 0; axis < 3; ++axis) {
        const Matrix R = axis == 0 ? rotx(3.14159265f) : axis == 1 ? roty(3.14159265f) : rotz(3.14159265f);
        const Quat q = matrix_to_quat(R);
        const float c[3] = {q.x, q.y, q.z};
        EXPECT_NEAR(std::fabs(c[axis]), 1.0f, 1e-6);
        expect_rotation_near(quat_to_matrix(q), R, 1e-6);
    }
}

TEST(AlgoPose, MatrixToEulerWrapsBelowMinus313AndReportsGimbalYawInRx) {
    // -3.135 about X comes back as 2*pi - 3.135.
    Euler e = matrix_to_euler(rotx(-3.135f));
    EXPECT_NEAR(e.rx, 6.283185307179586 - 3.135, 1e-5);
    EXPECT_NEAR(e.ry, 0.0, 1e-6);
    // -3.12 is above the threshold and stays.
    EXPECT_NEAR(matrix_to_euler(rotz(-3.12f)).rz, -3.12, 1e-5);
    // Exactly -pi (an atan2 of -0) wraps to +pi.
    const Euler w = matrix_to_euler(euler_to_matrix(0.3f, 0.2f, -3.1405f));
    EXPECT_GT(w.rz, 3.14f);
    // Pitch +-pi/2: rz is 0 and the whole yaw goes to rx.
    for (float pitch : {1.5707964f, -1.5707964f}) {
        const Matrix R = euler_to_matrix(0.4f, pitch, 0.3f);
        const Euler g = matrix_to_euler(R);
        EXPECT_EQ(g.rz, 0.0f);
        EXPECT_NEAR(std::fabs(g.ry), 1.5707964, 1e-3);
        expect_rotation_near(euler_to_matrix(g.rx, g.ry, g.rz), R, 1e-5);
    }
}

TEST(AlgoPose, HomogeneousTransformsComposeAndInvert) {
    Pose p{};
    p.position = {0.1f, -0.2f, 0.3f};
    p.euler = {0.3f, -0.5f, 1.2f};
    p.quaternion = euler_to_quat(p.euler.rx, p.euler.ry, p.euler.rz);
    const Matrix A = pose_euler_to_transformation_matrix(p);
    const Matrix B = pose_quat_to_transformation_matrix(p);
    expect_rotation_near(A, B, 1e-6);
    EXPECT_EQ(A.irow, 4);
    EXPECT_EQ(A.data[3][3], 1.0f);
    EXPECT_EQ(A.data[0][3], 0.1f);
    const Pose back = transformation_matrix_to_pose(A);
    EXPECT_FLOAT_EQ(back.position.z, 0.3f);
    EXPECT_NEAR(back.euler.rz, 1.2f, 1e-5);
    EXPECT_NEAR(back.quaternion.w, p.quaternion.w, 1e-6);

    for (const Matrix& inv : {matrix_inv_coordinate_system(A), matrix_inv(A)}) {
        const Matrix I = matrix_m(A, inv);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) EXPECT_NEAR(I.data[i][j], i == j ? 1.0 : 0.0, 1e-6);
    }
    // The rigid inverse uses cofactors, not the transpose: a scaled rotation
    // part is still inverted exactly.
    Matrix S = A;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) S.data[i][j] *= 2.0f;
    const Matrix SI = matrix_m(S, matrix_inv_coordinate_system(S));
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_NEAR(SI.data[i][j], i == j ? 1.0 : 0.0, 1e-6);
    // A singular matrix gives zeros, not garbage.
    Matrix Z{};
    Z.irow = Z.iline = 4;
    const Matrix ZI = matrix_inv(Z);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_EQ(ZI.data[i][j], 0.0f);
}

TEST(AlgoPose, QuaternionInterpolationFollowsTheFormulaWithoutGuard) {
    const Quat q0 = euler_to_quat(0, 0, 0), q1 = euler_to_quat(0, 0, 1.0f);
    const float theta = std::acos(q0.w * q1.w + q0.z * q1.z);
    const Quat mid = quaternion_interpolation(q0, q1, theta, theta / 2);
    const Quat half = euler_to_quat(0, 0, 0.5f);
    EXPECT_NEAR(mid.w, half.w, 1e-6);
    EXPECT_NEAR(mid.z, half.z, 1e-6);
    const Quat end = quaternion_interpolation(q0, q1, theta, theta);
    EXPECT_NEAR(end.z, q1.z, 1e-6);
    // sin(0) in the denominator is not guarded.
    const Quat same = quaternion_interpolation(q0, q0, 0.0f, 0.0f);
    EXPECT_TRUE(std::isnan(same.w) || std::isinf(same.w));
}

TEST(AlgoPose, FindNearestJointAndFindMinIndex) {
    const double two_pi = 6.28318530717959;
    double margin = 0, cand = -3.1;
    EXPECT_NEAR(find_nearest_joint(3.1, &cand, &margin, -two_pi, two_pi), std::fabs(-3.1 + two_pi - 3.1), 1e-12);
    EXPECT_DOUBLE_EQ(cand, -3.1 + two_pi);
    // Nothing admissible: 1e6 and the candidate unchanged.
    cand = 0.5;
    EXPECT_EQ(find_nearest_joint(0.0, &cand, &margin, 1.0, 1.2), 1e6);
    EXPECT_EQ(cand, 0.5);
    // The margin widens the interval.
    margin = 0.6;
    EXPECT_NEAR(find_nearest_joint(0.0, &cand, &margin, 1.0, 1.2), 0.5, 1e-12);
    // A tie keeps the earlier (more negative) equivalent.
    margin = 0;
    cand = two_pi / 2;
    EXPECT_EQ(find_nearest_joint(0.0, &cand, &margin, -10, 10), two_pi / 2);
    EXPECT_EQ(cand, -two_pi / 2);
    // A NaN candidate is never admissible.
    cand = NAN;
    EXPECT_EQ(find_nearest_joint(0.0, &cand, &margin, -10, 10), 1e6);

    const double v[5] = {3, 1, 2, 1, 5};
    EXPECT_EQ(find_min_index(v, 5), 1);
    EXPECT_EQ(find_min_index(v, 1), 0);
    EXPECT_EQ(find_min_index(v, 0), 0);
    EXPECT_EQ(find_min_index(v, -3), 0);
}

TEST(AlgoPose, SevenBySevenHelpers) {
    float A[7][7], I[7][7], P[7][7];
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> u(-1, 1);
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 7; ++j) A[i][j] = u(rng) + (i == j ? 4.0f : 0.0f);
    ASSERT_EQ(matrix_inv_dim7(A, I), 0);
    matrix_m_dim7(A, I, P);
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 7; ++j) EXPECT_NEAR(P[i][j], i == j ? 1.0 : 0.0, 1e-5);
    float Z[7][7] = {};
    EXPECT_EQ(matrix_inv_dim7(Z, I), -1);
}
