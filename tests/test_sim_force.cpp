// Force-position control regulates the commanded force along its
// direction, holding or streaming: streamed targets drive the other
// directions, the force governs its own.
#include <gtest/gtest.h>

#include <cmath>

#include "test_sim_fixture.h"

using namespace simtest;

using ForceControl = LibrarySim;

TEST_F(ForceControl, StreamingDownPressesWithTheCommandedForce) {
    start({"AVEN-QS"}, 10.0);
    const float ready[7] = {0, 20, 70, 0, 60, 0};
    ASSERT_EQ(0, kx_movej(h(), ready, 50, 0, 0, 1));
    // The surface 20 mm below the tool: the stream reaches it a third of the way.
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    sim->set_surface_height(0, st.pose.position.z - 0.020);
    ASSERT_EQ(0, kx_clear_force_data(h()));
    ASSERT_EQ(0, kx_start_force_position_move(h()));
    kx_pose_t target = st.pose;
    target.quaternion = {0, 0, 0, 0}; /* sent with its Euler angles */
    for (int i = 0; i < 60; ++i) {
        target.position.z -= 0.001f;
        ASSERT_EQ(0, kx_force_position_move_pose(h(), target, 1, 0, 2, 5.0f, false));
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); /* the stream's period */
    }
    kx_force_data_t d{};
    ASSERT_EQ(0, kx_get_force_data(h(), &d));
    // Mode 0 commands along the base axes: 5 N along the base's z, as commanded.
    EXPECT_NEAR(5.0f, d.work_zero_force_data[2], 0.25f);
    EXPECT_NEAR(0.0f, d.work_zero_force_data[0], 0.25f);
    // Pressed against the surface, the tool stays on it instead of going through.
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_NEAR(st.pose.position.z, target.position.z + 0.040, 0.002);

    // Holding governs the same way; mode 1 commands along the tool's axes.
    ASSERT_EQ(0, kx_stop_force_position_move(h()));
    ASSERT_EQ(0, kx_set_force_position(h(), 1, 1, 2, 8.0f));
    EXPECT_TRUE(eventually([&] {
        return kx_get_force_data(h(), &d) == 0 && std::fabs(std::fabs(d.tool_zero_force_data[2]) - 8.0f) < 0.1f;
    }));
    ASSERT_EQ(0, kx_stop_force_position(h()));
}
