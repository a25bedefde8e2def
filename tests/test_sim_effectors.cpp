// Effectors announce the end of every motion, whether or not the caller
// waits for it: an application may fire a motion and wait on its event
// callback instead.
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

#include "test_sim_fixture.h"

using namespace simtest;

namespace {

std::mutex g_mu;
std::vector<int> g_devices; /* devices of the completion events, in order */

void on_event(kx_event_push_data_t e) {
    if (e.event_type != KX_CURRENT_TRAJECTORY_STATE_E || !e.trajectory_state) return;
    std::lock_guard<std::mutex> l(g_mu);
    g_devices.push_back(e.device);
}

std::vector<int> devices() {
    std::lock_guard<std::mutex> l(g_mu);
    std::vector<int> d = g_devices;
    std::sort(d.begin(), d.end());
    return d;
}

using Effectors = LibrarySim;

}  // namespace

TEST_F(Effectors, EveryMotionEndsWithItsEventWithoutBlocking) {
    start({"AVEN-P"}, 50.0);
    kx_get_arm_event_call_back(on_event);
    ASSERT_EQ(0, kx_set_gripper_release(h(), 500, false, 1));
    ASSERT_EQ(0, kx_set_hand_posture(h(), 3, false, 1));
    ASSERT_EQ(0, kx_set_lift_height(h(), 50, 300, 0));
    ASSERT_EQ(0, kx_set_expand_pos(h(), 50, 9000, 0));
    EXPECT_TRUE(eventually([] { return devices() == std::vector<int>{1, 2, 3, 4}; }))
        << ::testing::PrintToString(devices());

    // And once more each, so that a second motion is not mistaken for the first.
    ASSERT_EQ(0, kx_set_gripper_position(h(), 300, false, 1));
    ASSERT_EQ(0, kx_set_hand_seq(h(), 5, false, 1));
    EXPECT_TRUE(eventually([] { return devices() == std::vector<int>{1, 1, 2, 2, 3, 4}; }))
        << ::testing::PrintToString(devices());
    kx_gripper_state_t st{};
    ASSERT_EQ(0, kx_get_gripper_state(h(), &st));
    EXPECT_EQ(300, st.actpos);
}
