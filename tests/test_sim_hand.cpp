// The realtime datagram's "hand" member carries the simulated hand:
// finger positions, angles, forces and whether each is moving.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <mutex>

#include "test_sim_fixture.h"

using namespace simtest;

namespace {

std::mutex g_mu;
std::vector<kx_udp_hand_state_t> g_hands;

void on_state(kx_realtime_arm_joint_state_t s) {
    if (s.errCode != 0) return;
    std::lock_guard<std::mutex> l(g_mu);
    g_hands.push_back(s.handState);
}

/* Whether a datagram since the last call satisfied f. */
template <class F>
bool seen(F&& f) {
    std::lock_guard<std::mutex> l(g_mu);
    bool any = false;
    for (const kx_udp_hand_state_t& h : g_hands) any = any || f(h);
    g_hands.clear();
    return any;
}

using Hand = LibrarySim;

}  // namespace

TEST_F(Hand, RealtimeStateFollowsTheHand) {
    start({"AVEN-P"}, 20.0, KX_TRIPLE_MODE_E, true);
    kx_realtime_push_config_t push{};
    push.cycle = 5;
    push.enable = true;
    push.port = udp_port;
    push.force_coordinate = -1;
    std::strcpy(push.ip, "127.0.0.1");
    push.custom_config = {-1, -1, -1, 1, -1, -1};
    ASSERT_EQ(0, kx_set_realtime_push(h(), push));
    kx_realtime_arm_state_call_back(on_state);

    const int pos[6] = {100, 200, 300, 400, 900, 1000};
    ASSERT_EQ(0, kx_set_hand_force(h(), 600));
    ASSERT_EQ(0, kx_set_hand_follow_pos(h(), pos, true));
    EXPECT_TRUE(eventually([&] {
        return seen([&](const kx_udp_hand_state_t& s) {
            for (int k = 0; k < 6; ++k)
                if (s.hand_pos[k] != pos[k] || s.hand_angle[k] != std::lround(pos[k] * 17.8) || s.hand_state[k] != 0)
                    return false;
            // Fingers closed past half way press with up to the set force.
            return s.hand_force[0] == 0 && s.hand_force[3] == 0 && s.hand_force[4] == 480 && s.hand_force[5] == 600 &&
                   s.hand_err == 0;
        });
    }));

    // A posture moves the fingers over time: moving, then still somewhere else.
    ASSERT_EQ(0, kx_set_hand_posture(h(), 7, false, 1));
    EXPECT_TRUE(eventually([&] {
        return seen([](const kx_udp_hand_state_t& s) { return s.hand_state[0] == 1 && s.hand_state[5] == 1; });
    }));
    EXPECT_TRUE(eventually([&] {
        return seen([&](const kx_udp_hand_state_t& s) {
            bool moved = false;
            for (int k = 0; k < 6; ++k) {
                if (s.hand_state[k] != 0 || s.hand_angle[k] != std::lround(s.hand_pos[k] * 17.8)) return false;
                moved = moved || s.hand_pos[k] != pos[k];
            }
            return moved;
        });
    }));
}
