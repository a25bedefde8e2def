// Whatever the simulator refuses, it says why: one log line naming the arm,
// the command and the reason, for refusals of every kind.
#include <gtest/gtest.h>

#include "test_sim_fixture.h"

using namespace simtest;

using Refusals = LibrarySim;

TEST_F(Refusals, EachRefusalLogsOneLineWithItsReason) {
    start({"AVEN-P", "BRIV-QS"});
    struct Case {
        int arm;
        std::function<int()> call;
        int code;
        std::vector<std::string> line;
    };
    kx_fence_config_t fence{};
    fence.form = 1;
    fence.cube = {-0.5f, 0.5f, -0.5f, 0.5f, -0.5f, 0.2f}; /* the tool point must stay below 0.2 m */
    const float beyond[7] = {200, 0, 0, 0, 0, 0};
    const float up[7] = {0, 0, 0, 0, 0, 0};
    kx_force_data_t data{};
    const Case cases[] = {
        {0, [&] { return kx_movej(h(), beyond, 20, 0, 0, 0); }, 1,
         {"arm 1: movej refused: joint 1 target 200.000 deg beyond its limits [-178.000, 178.000]"}},
        {0, [&] { return kx_get_force_data(h(), &data); }, -3,
         {"arm 1: get_force_data refused: needs a six-axis force sensor (edition QS); this arm has no force sensor"}},
        {1, [&] { return kx_set_gripper_pick(h(1), 2000, 100, false, 1); }, 1,
         {"arm 2: set_gripper_pick refused: \"speed\" 2000 outside 1..1000"}},
        {1, [&] { return kx_set_electronic_fence_config(h(1), fence); }, 0, {}},
        {1, [&] { return kx_set_electronic_fence_enable(h(1), kx_electronic_fence_enable_t{true, 0, 0}); }, 0, {}},
        {1, [&] { return kx_movej(h(1), up, 20, 0, 0, 0); }, 1,
         {"arm 2: movej refused: the tool point would leave the electronic fence's allowed side"}},
        {0, [&] { return kx_set_arm_power(h(), 0); }, 0, {}},
        {0, [&] { return kx_movej(h(), up, 20, 0, 0, 0); }, 1, {"arm 1: movej refused: the arm is powered off"}},
        {0, [&] { return kx_set_joint_en_state(h(), 9, 1); }, 1,
         {"arm 1: set_joint_en_state refused: a value or the arm's state does not allow",
          "\"joint_en_state\":[9,1]"}},
    };
    size_t expected = 0;
    for (const Case& c : cases) {
        EXPECT_EQ(c.code, c.call()) << ::testing::PrintToString(c.line);
        if (c.line.empty()) continue;
        ++expected;
        EXPECT_EQ(logged(c.line).size(), 1u) << ::testing::PrintToString(log_lines());
    }
    EXPECT_EQ(log_lines().size(), expected) << ::testing::PrintToString(log_lines());
}
