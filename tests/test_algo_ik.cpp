// Inverse kinematics round trips for every model with a solver: random
// in-limit configurations, targets by forward kinematics, solved from a
// reference near the generating configuration and from one anywhere.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"

#include "algo_arm.h"
#include "robot_define.h"

namespace {

constexpr double kDeg = 3.14159265358979323846 / 180.0;

struct Stats {
    int tried = 0, solved = 0, farther = 0;
};

double angle_error(const float A[4][4], const float B[4][4]) {
    // |R_A^T R_B - I| bounds the rotation angle for small errors.
    double e = 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double s = 0;
            for (int k = 0; k < 3; ++k) s += A[k][i] * B[k][j];
            e = std::max(e, std::fabs(s - (i == j ? 1.0 : 0.0)));
        }
    return e;
}

// Checks one solve; returns whether it succeeded.
bool check_solve(const algo::ArmModel& m, const float* q_gen, const float* ref, bool nearest, Stats& st) {
    float T[4][4], S[4][4], q[8] = {};
    algo::arm_fk(m, q_gen, T);
    if (algo::arm_ik(m, ref, T, q) != 0) return false;
    algo::arm_fk(m, q, S);
    for (int r = 0; r < 3; ++r) EXPECT_NEAR(S[r][3], T[r][3], 1e-5);
    EXPECT_LT(angle_error(S, T), 1e-4);
    double d_sol = 0, d_gen = 0;
    for (int i = 0; i < m.dof; ++i) {
        EXPECT_GE(q[i], m.jmin[i]);
        EXPECT_LE(q[i], m.jmax[i]);
        d_sol += std::fabs(q[i] - ref[i]);
        d_gen += std::fabs(q_gen[i] - ref[i]);
    }
    // The generating configuration is itself an in-limit solution, so the
    // chosen one can be no farther from the reference. Near a singularity a
    // single-precision target moves the exact solution a little along the
    // degenerate direction; that is counted, a different branch fails.
    if (nearest) {
        EXPECT_LE(d_sol, d_gen + 0.05);
        st.farther += d_sol > d_gen + 1e-3;
    }
    return true;
}

void round_trips(int type, int sensor, int n, Stats& near, Stats& anywhere, bool nearest) {
    algo::ArmModel m;
    ASSERT_TRUE(algo::default_model(type, sensor, &m));
    std::mt19937 rng(1234 + type * 3 + sensor);
    auto uni = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    for (int t = 0; t < n; ++t) {
        float q[8] = {}, ref[8] = {}, any[8] = {};
        for (int i = 0; i < m.dof; ++i) {
            q[i] = static_cast<float>(uni(m.jmin[i], m.jmax[i]));
            const double d = 5.0 * kDeg;
            ref[i] = static_cast<float>(std::clamp<double>(q[i] + uni(-d, d), m.jmin[i], m.jmax[i]));
            any[i] = static_cast<float>(uni(m.jmin[i], m.jmax[i]));
        }
        near.tried++;
        near.solved += check_solve(m, q, ref, nearest, near);
        anywhere.tried++;
        anywhere.solved += check_solve(m, q, any, nearest, anywhere);
    }
}

}  // namespace

TEST(AlgoIk, SixJointClosedFormsSolveEveryReachableTargetOnTheNearestBranch) {
    for (int type : {AVEN, CALDII, CALDIII, CALDIV, DUMO, ESKA, GOLT}) {
        for (int sensor = 0; sensor < 3; ++sensor) {
            algo::ArmModel m;
            if (!algo::default_model(type, sensor, &m)) continue;
            Stats near, anywhere;
            round_trips(type, sensor, 1000, near, anywhere, true);
            EXPECT_EQ(near.solved, near.tried) << type << "/" << sensor;
            EXPECT_EQ(anywhere.solved, anywhere.tried) << type << "/" << sensor;
            EXPECT_LE(near.farther + anywhere.farther, (near.tried + anywhere.tried) / 200);
        }
    }
}

TEST(AlgoIk, SevenJointRedundancySearchesSolveFromNearAndFarReferences) {
    for (int type : {BRIV, FIRU}) {
        for (int sensor = 0; sensor < 3; ++sensor) {
            algo::ArmModel m;
            if (!algo::default_model(type, sensor, &m)) continue;
            Stats near, anywhere;
            round_trips(type, sensor, 1000, near, anywhere, false);
            EXPECT_GE(near.solved * 1000, near.tried * 995) << type << "/" << sensor;
            EXPECT_GE(anywhere.solved * 100, anywhere.tried * 99) << type << "/" << sensor;
        }
    }
}

TEST(AlgoIk, TypesWithoutSolverAndUnreachableTargetsFail) {
    algo::ArmModel m;
    float q[8] = {}, out[8] = {}, T[4][4];
    for (int type : {CALDI, UNIVERSAL}) {
        ASSERT_TRUE(algo::default_model(type, _P, &m));
        algo::arm_fk(m, q, T);
        EXPECT_EQ(algo::arm_ik(m, q, T, out), -4);
    }
    for (int type : {AVEN, CALDIII, GOLT, BRIV, FIRU}) {
        ASSERT_TRUE(algo::default_model(type, _P, &m));
        algo::arm_fk(m, q, T);
        T[0][3] += 5.0f;  // far out of reach
        EXPECT_LT(algo::arm_ik(m, q, T, out), 0) << type;
        T[0][3] = NAN;
        EXPECT_LT(algo::arm_ik(m, q, T, out), 0) << type;
    }
}

TEST(AlgoIk, ArmModelsAreIndependentOfTheStoreAndOfEachOther) {
    // Several threads solve with their own models while the process-wide
    // store is reconfigured underneath: nothing is shared.
    std::vector<std::thread> workers;
    std::vector<int> solved(4, 0);
    for (int w = 0; w < 4; ++w)
        workers.emplace_back([w, &solved] {
            const int type = (w % 2) ? BRIV : GOLT;
            algo::ArmModel m;
            algo::default_model(type, _P, &m);
            std::mt19937 rng(w);
            for (int n = 0; n < 200; ++n) {
                float q[8] = {}, out[8] = {}, T[4][4];
                for (int i = 0; i < m.dof; ++i)
                    q[i] = std::uniform_real_distribution<float>(m.jmin[i], m.jmax[i])(rng);
                algo::arm_fk(m, q, T);
                solved[w] += algo::arm_ik(m, q, T, out) == 0;
            }
        });
    for (int n = 0; n < 200; ++n) {
        libalgo_set_robot_and_sensor_type(n % 2 ? CALDI : FIRU, _P);
        ikine_set_solution_range_briv(n % 2 ? 0.0f : 3.14f);
    }
    for (auto& t : workers) t.join();
    for (int w = 0; w < 4; ++w) EXPECT_EQ(solved[w], 200) << w;
}
