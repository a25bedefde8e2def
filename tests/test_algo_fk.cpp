// Forward kinematics of every model against an independent evaluation of
// its modified-DH chain.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "algo_arm.h"
#include "robot_define.h"

#ifdef KX_HAVE_KDL
#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#endif

namespace {

constexpr int kTypes[] = {AVEN, BRIV, CALDI, CALDII, CALDIII, DUMO, ESKA, FIRU, GOLT, UNIVERSAL, CALDIV};

// The chain written out matrix by matrix, in double precision.
void reference_fk(const algo::ArmModel& m, const float* q, double T[4][4]) {
    double A[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    for (int i = 0; i < m.dof; ++i) {
        const double ca = std::cos(m.alpha[i]), sa = std::sin(m.alpha[i]);
        const double th = q[i] + m.offset[i], ct = std::cos(th), st = std::sin(th);
        const double rx[4][4] = {{1, 0, 0, m.a[i]}, {0, ca, -sa, 0}, {0, sa, ca, 0}, {0, 0, 0, 1}};
        const double rz[4][4] = {{ct, -st, 0, 0}, {st, ct, 0, 0}, {0, 0, 1, m.d[i]}, {0, 0, 0, 1}};
        double L[4][4] = {}, N[4][4] = {};
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                for (int k = 0; k < 4; ++k) L[r][c] += rx[r][k] * rz[k][c];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                for (int k = 0; k < 4; ++k) N[r][c] += A[r][k] * L[k][c];
        std::copy(&N[0][0], &N[0][0] + 16, &A[0][0]);
    }
    std::copy(&A[0][0], &A[0][0] + 16, &T[0][0]);
}

}  // namespace

TEST(AlgoArmModel, DefaultsCoverEveryTypeAndRejectUnofferedEditions) {
    algo::ArmModel m;
    for (int t : kTypes) {
        ASSERT_TRUE(algo::default_model(t, _P, &m)) << t;
        EXPECT_EQ(m.dof, (t == BRIV || t == FIRU || t == UNIVERSAL) ? 7 : 6);
        for (int i = 0; i < m.dof; ++i) {
            EXPECT_LT(m.jmin[i], m.jmax[i]);
            EXPECT_GT(m.vmax[i], 0.0f);
            EXPECT_GT(m.amax[i], 0.0f);
        }
    }
    EXPECT_FALSE(algo::default_model(ESKA, _QA, &m));
    EXPECT_FALSE(algo::default_model(FIRU, _QS, &m));
    EXPECT_FALSE(algo::default_model(11, _P, &m));
    EXPECT_FALSE(algo::default_model(-1, _P, &m));
    EXPECT_FALSE(algo::default_model(AVEN, 3, &m));
    EXPECT_FALSE(algo::default_model(AVEN, _P, nullptr));

    // A sensor edition lengthens the last link and nothing else.
    algo::ArmModel p, qs;
    ASSERT_TRUE(algo::default_model(GOLT, _P, &p));
    ASSERT_TRUE(algo::default_model(GOLT, _QS, &qs));
    EXPECT_GT(qs.d[5], p.d[5]);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(qs.d[i], p.d[i]);
}

TEST(AlgoArmModel, FlangeMatchesTheModifiedDhChainForEveryModel) {
    std::mt19937 rng(7);
    for (int t : kTypes) {
        for (int sensor = 0; sensor < 3; ++sensor) {
            algo::ArmModel m;
            if (!algo::default_model(t, sensor, &m)) continue;
            for (int n = 0; n < 200; ++n) {
                float q[8] = {};
                for (int i = 0; i < m.dof; ++i)
                    q[i] = std::uniform_real_distribution<float>(m.jmin[i], m.jmax[i])(rng);
                float T[4][4];
                double R[4][4];
                algo::arm_fk(m, q, T);
                reference_fk(m, q, R);
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 4; ++c) ASSERT_NEAR(T[r][c], R[r][c], 1e-5) << t << " " << r << c;
#ifdef KX_HAVE_KDL
                KDL::Chain chain;
                // KDL puts the joint before its segment's frame, so each row is
                // a fixed RotX·TransX segment followed by the joint and RotZ·TransZ.
                for (int i = 0; i < m.dof; ++i) {
                    chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::None),
                                                  KDL::Frame::DH_Craig1989(m.a[i], m.alpha[i], 0, 0)));
                    chain.addSegment(KDL::Segment(
                        KDL::Joint(KDL::Joint::RotZ),
                        KDL::Frame(KDL::Rotation::RotZ(m.offset[i]), KDL::Vector(0, 0, m.d[i]))));
                }
                KDL::ChainFkSolverPos_recursive fk(chain);
                KDL::JntArray jq(m.dof);
                for (int i = 0; i < m.dof; ++i) jq(i) = q[i];
                KDL::Frame F;
                ASSERT_GE(fk.JntToCart(jq, F), 0);
                for (int r = 0; r < 3; ++r) {
                    ASSERT_NEAR(T[r][3], F.p(r), 1e-5);
                    for (int c = 0; c < 3; ++c) ASSERT_NEAR(T[r][c], F.M(r, c), 1e-5);
                }
#endif
            }
        }
    }
}
