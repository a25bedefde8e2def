// Inverse kinematics at and near the singular configurations of every model
// with a solver: answers stay next to a reference that lies next to a
// solution, with the freely combining joints split as the reference has them.
#include <gtest/gtest.h>

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
}

TEST(AlgoSingular, SevenJointArmsStayNextToTheReferenceAtStraightElbowAndAlignedWrist) {
    for (int strategy : {0, 1}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        expect_next_to_reference({BRIV, FIRU}, {singular::WRIST});
        expect_next_to_reference({BRIV}, {singular::ELBOW});
    }
}

// Not met yet: 0.5 degrees from FIRU's longest elbow 98.8 % of the answers
// lie within 5 degrees of the reference (worst 11 degrees); at it, all do.
TEST(AlgoSingular, DISABLED_OffsetSevenJointArmStaysNextToTheReferenceAtItsLongestElbow) {
    for (int strategy : {0, 1}) {
        ikine_set_7dof_solver_search_strategy(strategy);
        expect_next_to_reference({FIRU}, {singular::ELBOW});
    }
}
