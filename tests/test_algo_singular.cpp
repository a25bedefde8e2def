// Inverse kinematics at and near the singular configurations of every model
// with a solver: answers stay next to a reference that lies next to a
// solution, with the freely combining joints split as the reference has them.
#include <gtest/gtest.h>

#include <cmath>

#include "kx_invoke_algo.h"
#include "test_algo_singular.h"

namespace {

constexpr int kSamples = 1000;
constexpr double kNear = 0.5 * singular::kDeg;

// At least 99.9 % solved, and at least 99 % of the answers with every joint
// within 5 degrees of the reference.
void expect_next_to_reference(int type, singular::Kind k, double off) {
    const singular::Tally t = singular::run(type, k, off, kSamples, 500 + 7 * type + k);
    SCOPED_TRACE(::testing::Message() << "type " << type << ", " << singular::name(k) << (off > 0 ? " (near)" : "")
                                      << ": solved " << t.solved_share() << "%, near " << t.near_share()
                                      << "%, worst " << t.worst << " deg");
    ASSERT_GE(t.tried, kSamples * 9 / 10);
    EXPECT_GE(t.solved * 1000, t.tried * 999);
    EXPECT_GE(t.near * 100, t.solved * 99);
}

void expect_next_to_reference(std::initializer_list<int> types, std::initializer_list<singular::Kind> kinds) {
    for (int type : types)
        for (singular::Kind k : kinds)
            for (double off : {0.0, kNear}) expect_next_to_reference(type, k, off);
}

// The pose of q, solved from ref: reached, with every joint within 5 degrees of ref.
void expect_solved_next_to(const algo::ArmModel& m, const float* q, const float* ref, int dof) {
    const float d = static_cast<float>(singular::kDeg);
    const Pose pose = forward_kinematics(q);
    float out[8] = {};
    ASSERT_EQ(inverse_kinematics(ref, &pose, out, 2), 0);
    EXPECT_TRUE(singular::reaches(m, out, pose, 2));
    for (int j = 0; j < dof; ++j) EXPECT_NEAR(out[j], ref[j], 5 * d) << j;
}

}  // namespace

TEST(AlgoSingular, SphericalWristsKeepTheReferencesSplitOfAlignedWristAxes) {
    // The example of a user: AVEN's ready pose is wrist-singular; solving
    // its own pose from itself gives itself back.
    libalgo_set_robot_and_sensor_type(AVEN, _P);
    const float d = static_cast<float>(singular::kDeg);
    const float ready[8] = {0, 20 * d, 70 * d, 0, 90 * d, 0, 0, 0};
    const Pose pose = forward_kinematics(ready);
    float out[8] = {};
    ASSERT_EQ(inverse_kinematics(ready, &pose, out, 1), 0);
    for (int j = 0; j < 6; ++j) EXPECT_NEAR(out[j], ready[j], 1e-3) << j;

    expect_next_to_reference({AVEN, CALDII, CALDIII, CALDIV}, {singular::WRIST});
}

TEST(AlgoSingular, ParallelAxesArmsStayNextToTheReferenceAtShoulderAndElbow) {
    expect_next_to_reference({DUMO, ESKA, GOLT}, {singular::SHOULDER, singular::ELBOW});
}

TEST(AlgoSingular, ParallelAxesArmsSplitTheFreeCombinationOfAlignedWristAxesAsTheReference) {
    expect_next_to_reference({DUMO, ESKA, GOLT}, {singular::WRIST});

    // Joint 6 turns two whole turns: with the reference at its limit, the
    // split that would take it a hair past the limit keeps it there instead
    // of a turn away (its only equivalent inside).
    algo::ArmModel m;
    ASSERT_TRUE(algo::default_model(GOLT, _P, &m));
    libalgo_set_robot_and_sensor_type(GOLT, _P);
    const float d = static_cast<float>(singular::kDeg);
    const float q[8] = {9.920f * d, 122.617f * d, 55.134f * d, -8.893f * d, 0, 359.716f * d, 0, 0};
    const float ref[8] = {9.320f * d, 122.793f * d, 54.853f * d, -9.895f * d, -1.465f * d, m.jmax[5], 0, 0};
    expect_solved_next_to(m, q, ref, 6);
}

TEST(AlgoSingular, SevenJointArmsStayNextToTheReferenceAtStraightElbowAndAlignedWrist) {
    for (int strategy : {0, 1}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        expect_next_to_reference({BRIV, FIRU}, {singular::WRIST});
        expect_next_to_reference({BRIV}, {singular::ELBOW});
    }
}

// Near its longest elbow the solutions of the offset arm turn sharply: the
// nearest may lie past a turn from where a local search ends.
TEST(AlgoSingular, OffsetSevenJointArmStaysNextToTheReferenceAtItsLongestElbow) {
    for (int strategy : {0, 1}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        expect_next_to_reference({FIRU}, {singular::ELBOW});
    }

    // A wrist point at the elbow's full reach, with joint 7 where the wrist
    // comes nearest the shoulder: joint 7 has (all but) one value there.
    algo::ArmModel m;
    ASSERT_TRUE(algo::default_model(FIRU, _P, &m));
    libalgo_set_robot_and_sensor_type(FIRU, _P);
    ikine_set_7dof_solver_search_strategy(0);
    const float d = static_cast<float>(singular::kDeg);
    float q[8] = {-81.338f * d, -93.732f * d, -111.488f * d, 0, -1.194f * d, 152.163f * d, -152.339f * d, 0};
    q[3] = static_cast<float>(singular::singular_values(m, singular::ELBOW, q).at(0));
    const float ref[8] = {-79.485f * d, -92.176f * d, -110.299f * d, -25.783f * d,
                          -2.521f * d,  153.017f * d, -153.399f * d, 0};
    expect_solved_next_to(m, q, ref, 7);
}

TEST(AlgoSingular, StreamingThroughAWristSingularityNeedsNoJump) {
    // Every six-joint model, at its best-conditioned wrist-singular working
    // pose among a few hundred (every joint in the middle of its range, the
    // forearm across the base axis, the wrist away from it): 60 mm lines
    // through the singular pose along x, y and z, and a 60 mm radius circle
    // centred on it, 1 mm apart. The circle winds the wrist once around the
    // singular positions: joint 4 turns a whole turn, at 1.5 degrees per
    // step or less, until its range ends (where no answer can follow).
    for (int type : {AVEN, CALDII, CALDIII, CALDIV, DUMO, ESKA, GOLT}) {
        algo::ArmModel m;
        ASSERT_TRUE(algo::default_model(type, _P, &m));
        libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _P);
        std::mt19937 rng(900 + type);
        singular::Sample best;
        double best_conditioning = 0;
        for (int attempt = 0; attempt < 300; ++attempt) {
            singular::Sample s;
            if (!singular::sample(m, singular::WRIST, 0, rng, s)) continue;
            bool working = true;
            for (int j = 0; j < 6; ++j) {
                const double inside = j == 4 ? 20 * singular::kDeg : 0.2 * (m.jmax[j] - m.jmin[j]);
                working = working && s.q[j] > m.jmin[j] + inside && s.q[j] < m.jmax[j] - inside;
            }
            const singular::Vec z1 = singular::axis_of(m, s.q, 0), z4 = singular::axis_of(m, s.q, 3);
            const singular::Vec w = singular::position_of(s.q);
            const double conditioning = std::hypot(w[0], w[1]) > 0.2 ? singular::arm_conditioning(m, s.q) : 0;
            if (working && std::fabs(z1[0] * z4[0] + z1[1] * z4[1] + z1[2] * z4[2]) < 0.5 &&
                conditioning > best_conditioning)
                best = s, best_conditioning = conditioning;
        }
        ASSERT_GT(best_conditioning, 0.3) << "type " << type;
        for (const singular::Vec& dir : {singular::Vec{1, 0, 0}, singular::Vec{0, 1, 0}, singular::Vec{0, 0, 1}}) {
            const singular::PathRun r = singular::line_through(m, best.q, dir, 0.03);
            ASSERT_EQ(r.done, 60) << "type " << type;
            EXPECT_LT(r.largest, 2.0) << "type " << type << " line " << dir[0] << dir[1] << dir[2];
        }
        const singular::PathRun c = singular::circle_around(m, best.q, 0.06);
        ASSERT_EQ(c.done, c.steps) << "type " << type;
        EXPECT_LT(c.largest_clear, 2.0) << "type " << type << " circle";
    }
}

TEST(AlgoSingular, AFastWristTurnFromAnExactlySingularPoseIsReportedNotHidden) {
    // At a wrist-singular pose, a target whose wrist tilts across joint 5's
    // axis needs joint 4 to turn by a quarter turn first, one that tilts
    // along it does not. The answer is still the nearest one; the
    // overspeed-checking solve names the joint that would have to move too
    // fast in one period (10 ms here).
    libalgo_set_robot_and_sensor_type(AVEN, _P);
    invoke_libalgo_set_control_loop_period(0.010f);
    const float ready[8] = {0, 20, 70, 0, 90, 0, 0, 0};
    auto target = [](const float* q) {
        const Pose p = invoke_forward_kinematics(q);
        return kx_pose_t{{p.position.x, p.position.y, p.position.z},
                         {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z},
                         {p.euler.rx, p.euler.ry, p.euler.rz}};
    };
    float out[8] = {};
    const float along[8] = {0, 20, 70, 0, 90.5f, 0, 0, 0};
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(ready, target(along), out, 2), 0);
    for (int j = 0; j < 6; ++j) EXPECT_NEAR(out[j], along[j], 0.01) << j;
    // The same wrist pose with joints 4 and 6 turned against each other, then tilted.
    const float across[8] = {0, 20, 70, 90, 90.5f, -90, 0, 0};
    const int joint = invoke_inverse_kinematics_with_judgment_overspeed(ready, target(across), out, 2);
    EXPECT_TRUE(joint == 4 || joint == 6) << joint;
    EXPECT_NEAR(std::fabs(out[3]), 90, 1.0);
}
