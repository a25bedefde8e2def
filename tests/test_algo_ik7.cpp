// Seven-joint inverse kinematics through the configuration store, in both
// search modes: answers reach the target, stay near a nearby reference and
// follow a Cartesian path without jumps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "algo_arm.h"
#include "libalgo_interface.h"
#include "robot_define.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

namespace {

constexpr double kDeg = 3.14159265358979323846 / 180.0;

// Whether q reaches the target pose within single precision.
bool reaches(const float* q, const Pose& target) {
    const Matrix A = pose_quat_to_transformation_matrix(forward_kinematics(q));
    const Matrix B = pose_quat_to_transformation_matrix(target);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            if (!(std::fabs(A.data[r][c] - B.data[r][c]) < (c == 3 ? 1e-5 : 1e-4))) return false;
    return true;
}

double largest_change(int dof, const float* a, const float* b) {
    double m = 0;
    for (int i = 0; i < dof; ++i) m = std::max(m, std::fabs(static_cast<double>(a[i]) - b[i]));
    return m;
}

struct Tally {
    int tried = 0, solved = 0, within10 = 0;
};

// Random in-limit configurations; the reference is the configuration moved
// by up to `spread` per joint (near) or anywhere in the limits (spread 0).
Tally solve_random(int type, int strategy, double spread, unsigned seed, int n) {
    algo::ArmModel m;
    EXPECT_TRUE(algo::default_model(type, _P, &m));
    libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _P);
    ikine_set_7dof_solver_search_strategy(strategy);
    std::mt19937 rng(seed);
    auto uni = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    Tally t;
    for (int k = 0; k < n; ++k) {
        float q[8] = {}, ref[8] = {}, out[8] = {};
        for (int i = 0; i < m.dof; ++i) {
            q[i] = static_cast<float>(uni(m.jmin[i], m.jmax[i]));
            ref[i] = spread > 0 ? static_cast<float>(std::clamp<double>(q[i] + uni(-spread, spread), m.jmin[i], m.jmax[i]))
                                : static_cast<float>(uni(m.jmin[i], m.jmax[i]));
        }
        const Pose target = forward_kinematics(q);
        ++t.tried;
        if (inverse_kinematics(ref, &target, out, 2) != 0) continue;
        EXPECT_TRUE(reaches(out, target)) << type << " sample " << k;
        for (int i = 0; i < m.dof; ++i) {
            EXPECT_GE(out[i], m.jmin[i]);
            EXPECT_LE(out[i], m.jmax[i]);
        }
        ++t.solved;
        t.within10 += largest_change(m.dof, out, ref) <= 10 * kDeg;
    }
    return t;
}

}  // namespace

TEST(AlgoIk7, AnswersReachTheTargetAndStayNearANearbyReferenceInBothModes) {
    for (int type : {BRIV, FIRU}) {
        for (int strategy : {0, 1}) {
            // Every target has a solution within 5 degrees of its reference.
            const Tally near = solve_random(type, strategy, 5 * kDeg, 40 + type, 400);
            EXPECT_GE(near.solved * 200, near.tried * 199) << type << "/" << strategy;
            EXPECT_GE(near.within10 * 100, near.solved * 99) << type << "/" << strategy;
        }
        const Tally any = solve_random(type, 0, 0, 90 + type, 200);
        EXPECT_GE(any.solved * 100, any.tried * 99) << type;
    }
    // The mode persists across solves.
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 3.14f);
}

TEST(AlgoIk7, CartesianPathsOfMillimetreStepsMoveNoJointFarInOneStep) {
    const float d = static_cast<float>(kDeg);
    for (int type : {BRIV, FIRU}) {
        const float start[8] = {10 * d, 40 * d, 10 * d, (type == BRIV ? 80 : -80) * d, 10 * d,
                                (type == BRIV ? 50 : 100) * d, 0, 0};
        for (int strategy : {0, 1}) {
            libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _P);
            ikine_set_7dof_solver_search_strategy(strategy);
            const Pose p0 = forward_kinematics(start);
            // A 60 mm line, then a circle of 20 mm radius back to its end.
            float q[8];
            std::copy(start, start + 8, q);
            double largest = 0;
            const int line_steps = 60, circle_steps = 126;
            for (int i = 1; i <= line_steps + circle_steps; ++i) {
                Pose target = p0;
                if (i <= line_steps) {
                    target.position.y += 0.001f * i;
                    target.position.z -= 0.0005f * i;
                } else {
                    const double a = 2 * 3.14159265358979 * (i - line_steps) / circle_steps;
                    target.position.x += static_cast<float>(0.02 * (std::cos(a) - 1));
                    target.position.y += static_cast<float>(0.001 * line_steps + 0.02 * std::sin(a));
                    target.position.z -= 0.0005f * line_steps;
                }
                float next[8] = {};
                ASSERT_EQ(inverse_kinematics(q, &target, next, 2), 0) << type << "/" << strategy << " step " << i;
                EXPECT_TRUE(reaches(next, target));
                largest = std::max(largest, largest_change(7, q, next));
                std::copy(next, next + 8, q);
            }
            EXPECT_LT(largest, 2 * kDeg) << type << "/" << strategy;
        }
    }
}

TEST(AlgoIk7, NearSingularConfigurationsAndFarReferencesStillGetAnAnswerThatReaches) {
    // Straight elbow, shoulder axes aligned and the wrist at zero: the
    // redundancy parameter degenerates, the nearby solution does not.
    const float d = static_cast<float>(kDeg);
    const float poses[][8] = {
        {30 * d, 0.5f * d, -20 * d, 60 * d, 10 * d, 40 * d, 5 * d, 0},
        {-40 * d, 30 * d, 15 * d, 1.0f * d, 20 * d, 30 * d, 10 * d, 0},
        {20 * d, 45 * d, -10 * d, 70 * d, 25 * d, 0.3f * d, -30 * d, 0},
    };
    libalgo_set_robot_and_sensor_type(BRIV, _P);
    for (int strategy : {0, 1}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        for (const auto& q : poses) {
            float ref[8], out[8] = {};
            for (int i = 0; i < 8; ++i) ref[i] = q[i] + (i % 2 ? 2 : -2) * d;
            const Pose target = forward_kinematics(q);
            ASSERT_EQ(inverse_kinematics(ref, &target, out, 2), 0);
            EXPECT_TRUE(reaches(out, target));
            EXPECT_LE(largest_change(7, out, ref), 10 * kDeg);
        }
    }
    // From a far reference whose branch turns the flange by half a turn: a
    // half turn must read as the largest orientation error, not as none.
    ikine_set_7dof_solver_search_strategy(0);
    const float q[8] = {75.915f * d, -98.767f * d, 61.533f * d, -17.965f * d, -61.563f * d, 60.198f * d, 5.892f * d, 0};
    const float ref[8] = {70.93f * d, -97.079f * d, 156.497f * d, 111.252f * d, -3.052f * d, -110.15f * d, -346.586f * d, 0};
    const Pose target = forward_kinematics(q);
    float out[8] = {};
    ASSERT_EQ(inverse_kinematics(ref, &target, out, 2), 0);
    EXPECT_TRUE(reaches(out, target));
}

TEST(AlgoIk7, OverspeedCheckComparesEachJointStepWithItsLimitOverOneCycle) {
    libalgo_set_robot_and_sensor_type(BRIV, _P);
    float vmax[8] = {}, q[8] = {}, step[8] = {};
    libalgo_get_joint_vel_maxlim(vmax);
    const float cycle = libalgo_get_control_loop_period();
    for (int i = 0; i < 7; ++i) step[i] = 0.9f * vmax[i] * cycle;
    EXPECT_EQ(joint_overspeed_judgment(q, step, 1.0f), 0);
    step[2] = 1.1f * vmax[2] * cycle;
    EXPECT_EQ(joint_overspeed_judgment(q, step, 1.0f), 3);
    EXPECT_EQ(joint_overspeed_judgment(q, step, 2.0f), 0);
    // A negative factor counts as zero: any motion of joint 1 is too fast.
    float nudge[8] = {1e-6f};
    EXPECT_EQ(joint_overspeed_judgment(q, nudge, -1.0f), 1);
    EXPECT_EQ(joint_overspeed_judgment(q, q, -1.0f), 0);
}
