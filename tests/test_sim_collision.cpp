// Self-collision detection, when enabled: links as capsules along the
// arm's DH chain; a move or stream that brings two non-adjacent links
// closer than the safety distance is refused with an arm error.
#include <gtest/gtest.h>

#include <cmath>

#include "test_sim_fixture.h"

using namespace simtest;

namespace {

constexpr int kSelfCollisionError = 0x500B;

using SelfCollision = LibrarySim;

}  // namespace

TEST_F(SelfCollision, FoldingOntoItselfIsRefusedWhenEnabled) {
    start({"AVEN-P", "BRIV-P"});
    const float free6[7] = {0, 0, 0, 0, 0, 0}, folded6[7] = {0, -120, -120, 0, -40, 0};
    const float free7[7] = {0, 0, 0, 0, 0, 0, 0}, folded7[7] = {0, -120, 0, -120, 0, -120, 0};
    for (int arm = 0; arm < 2; ++arm) {
        SCOPED_TRACE(arm);
        const float* free = arm ? free7 : free6;
        const float* folded = arm ? folded7 : folded6;
        bool on = true;
        ASSERT_EQ(0, kx_get_self_collision_enable(h(arm), &on));
        EXPECT_FALSE(on);
        ASSERT_EQ(0, kx_set_self_collision_enable(h(arm), true));
        ASSERT_EQ(0, kx_movej(h(arm), free, 50, 0, 0, 1));
        EXPECT_EQ(1, kx_movej(h(arm), folded, 50, 0, 0, 1));
        EXPECT_EQ(errors(arm), std::vector<int>{kSelfCollisionError});
        EXPECT_EQ(logged({"arm " + std::to_string(arm + 1) + ": movej refused: links", "safety distance"}).size(), 1u)
            << ::testing::PrintToString(log_lines());
        ASSERT_EQ(0, kx_clear_system_err(h(arm)));
        EXPECT_EQ(errors(arm), std::vector<int>{0});

        // Switched off, the same move runs.
        ASSERT_EQ(0, kx_set_self_collision_enable(h(arm), false));
        EXPECT_EQ(0, kx_movej(h(arm), folded, 50, 0, 0, 1));
        EXPECT_EQ(errors(arm), std::vector<int>{0});
        ASSERT_EQ(0, kx_movej(h(arm), free, 50, 0, 0, 1));
    }
}

/* A stream that walks into the fold is stopped at its edge. */
TEST_F(SelfCollision, AStreamStopsAtTheEdge) {
    start({"AVEN-P"});
    ASSERT_EQ(0, kx_set_self_collision_enable(h(), true));
    const float folded[6] = {0, -120, -120, 0, -40, 0};
    float q[7] = {0, 0, 0, 0, 0, 0};
    ASSERT_EQ(0, kx_movej(h(), q, 50, 0, 0, 1));
    constexpr int kSteps = 1000; /* at most 0.12 degree a step */
    for (int i = 1; i <= kSteps; ++i) {
        for (int k = 0; k < 6; ++k) q[k] = folded[k] * static_cast<float>(i) / kSteps;
        ASSERT_EQ(0, kx_movej_canfd(h(), kx_movej_canfd_mode_t{q, 0, false, 0, 0}));
    }
    ASSERT_TRUE(eventually([&] { return errors() == std::vector<int>{kSelfCollisionError}; }));
    const auto lines = logged({"arm 1: movej_canfd refused: links"});
    EXPECT_EQ(lines.size(), 1u) << ::testing::PrintToString(log_lines());
    // Stopped short of the fold, where the links still clear each other.
    const std::vector<double> at = sim->joints(0);
    EXPECT_GT(at[1], -119.0);
    EXPECT_LT(at[1], -1.0);
}
