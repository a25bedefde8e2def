/* Gripper, hand, lift and expansion axis against the simulated controller:
 * exact requests, blocking waits that end on their own device's completion,
 * the reversed -4/-5 codes, timeouts, and hostile replies. */
#include <chrono>
#include <thread>

#include "test_periph_fixture.h"

using namespace cmdtest;

namespace {

const char* const kGripperDone =
    R"({"command":"current_trajectory_state","trajectory_state":true,"device":1,"trajectory_connect":0})";
const char* const kHandDone =
    R"({"command":"current_trajectory_state","trajectory_state":true,"device":2,"trajectory_connect":0})";

using Effector = PeriphFixture;

std::string line(const std::string& json) { return json + "\r\n"; }

kx_gripper_state_t gripper_of(kx_robot_handle* h) {
    kx_gripper_state_t st{};
    EXPECT_EQ(0, kx_get_gripper_state(h, &st));
    return st;
}

}  // namespace

TEST_F(Effector, GripperPicksWhatIsThere) {
    start();
    ASSERT_EQ(0, kx_set_gripper_route(h(), 10, 900));
    EXPECT_EQ(R"({"command":"set_gripper_route","min":10,"max":900})", last("set_gripper_route"));
    ASSERT_EQ(0, kx_set_gripper_release(h(), 800, true, 5));
    EXPECT_EQ(R"({"command":"set_gripper_release","speed":800,"block":true})", last("set_gripper_release"));
    EXPECT_EQ(900, gripper_of(h()).actpos);

    /* Nothing between the fingers: they close to the end of the route. */
    ASSERT_EQ(0, kx_set_gripper_pick(h(), 900, 300, true, 5));
    EXPECT_EQ(R"({"command":"set_gripper_pick","speed":900,"force":300,"block":true})", last("set_gripper_pick"));
    kx_gripper_state_t st = gripper_of(h());
    EXPECT_EQ(10, st.actpos);
    EXPECT_EQ(3, st.status);
    EXPECT_EQ(0, st.current_force);

    /* An object 400 wide: the pick stops there and holds it. */
    sim->set_gripper_object(0, 400);
    ASSERT_EQ(0, kx_set_gripper_release(h(), 900, true, 5));
    ASSERT_EQ(0, kx_set_gripper_pick_on(h(), 900, 250, true, 5));
    EXPECT_EQ(R"({"command":"set_gripper_pick_on","speed":900,"force":250,"block":true})",
              last("set_gripper_pick_on"));
    st = gripper_of(h());
    EXPECT_EQ(400, st.actpos);
    EXPECT_EQ(2, st.status);
    EXPECT_EQ(250, st.current_force);

    ASSERT_EQ(0, kx_set_gripper_position(h(), 600, true, 5));
    EXPECT_EQ(R"({"command":"set_gripper_position","position":600,"block":true})", last("set_gripper_position"));
    EXPECT_EQ(600, gripper_of(h()).actpos);

    /* Non-blocking with a timeout: only the acceptance is read; a refusal shows. */
    EXPECT_EQ(0, kx_set_gripper_position(h(), 500, false, 1));
    EXPECT_EQ(1, kx_set_gripper_position(h(), 950, false, 1));
    EXPECT_EQ(1, kx_set_gripper_route(h(), 500, 100));
}

/* Scripted cases use arguments the simulated gripper refuses, so that no
 * real motion adds a completion event of its own. */
TEST_F(Effector, GripperWaits) {
    start();
    /* A refusal does not end a blocking wait: the completion does. */
    reply("set_gripper_release", line(R"({"command":"set_gripper","state":false})") + line(kGripperDone));
    EXPECT_EQ(0, kx_set_gripper_release(h(), 0, true, 2));

    clear_log();
    reply("set_gripper_pick", line(R"({"command":"set_gripper","state":true})") + line(kHandDone));
    EXPECT_EQ(-5, kx_set_gripper_pick(h(), 0, 100, true, 2));
    EXPECT_TRUE(logged("[kx_set_gripper_pick] current device is: 2 \n"));

    reply("set_gripper_pick", line(R"({"command":"set_gripper","state":true})") +
                                  line(R"({"command":"current_trajectory_state","trajectory_state":false,"device":1,"trajectory_connect":0})"));
    EXPECT_EQ(1, kx_set_gripper_pick(h(), 0, 100, true, 2));
    reply("set_gripper_pick", line(R"({"command":"set_gripper","state":true})") +
                                  line(R"({"command":"current_trajectory_state","trajectory_state":true})"));
    EXPECT_EQ(-3, kx_set_gripper_pick(h(), 0, 100, true, 2));

    /* No completion within the timeout (0 s gives up at once). */
    reply("set_gripper_position", line(R"({"command":"set_gripper","state":true})"));
    clear_log();
    EXPECT_EQ(-4, kx_set_gripper_position(h(), 5000, true, 0));
    EXPECT_TRUE(logged("[kx_set_gripper_position] timeout error\n"));
    reply("set_gripper_pick_on", line(R"({"command":"set_gripper","state":true})"));
    EXPECT_EQ(-4, kx_set_gripper_pick_on(h(), 0, 100, true, 0));

    /* The acceptance itself: garbage, then silence. */
    reply("set_gripper_release", line(R"({"command":"set_gripper"})"));
    EXPECT_EQ(-3, kx_set_gripper_release(h(), 0, false, 1));
    reply("set_gripper_release", line(R"({"command":"set_gripper","sta)") + line("{}"));
    EXPECT_EQ(-2, kx_set_gripper_release(h(), 0, false, 1));

    reply("get_gripper_state", line(R"({"command":"get_gripper_state","enable":1,"status":0})"));
    kx_gripper_state_t st{};
    EXPECT_EQ(-3, kx_get_gripper_state(h(), &st));
    EXPECT_EQ(-1, kx_get_gripper_state(h(), nullptr));

    /* Neither blocking nor timed: sent, no reply read, about a second. */
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(0, kx_set_gripper_pick(h(), 500, 100, false, 0));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(900));
    EXPECT_EQ(R"({"command":"set_gripper_pick","speed":500,"force":100,"block":false})", last("set_gripper_pick"));
}

TEST_F(Effector, Hand) {
    start();
    ASSERT_EQ(0, kx_set_hand_speed(h(), 1000));
    ASSERT_EQ(0, kx_set_hand_force(h(), 300));
    ASSERT_EQ(0, kx_set_hand_posture(h(), 3, true, 5));
    ASSERT_EQ(0, kx_set_hand_seq(h(), 40, true, 5));
    EXPECT_EQ(1, kx_set_hand_posture(h(), 41, false, 5));
    EXPECT_EQ(R"({"command":"set_hand_speed","speed":1000})", last("set_hand_speed"));
    EXPECT_EQ(R"({"command":"set_hand_force","hand_force":300})", last("set_hand_force"));
    EXPECT_EQ(R"({"command":"set_hand_seq","seq_num":40,"block":true})", last("set_hand_seq"));
    EXPECT_EQ(R"({"command":"set_hand_posture","posture_num":41,"block":false})", last("set_hand_posture"));

    const int angles[6] = {100, 200, 300, 400, 500, -600};
    ASSERT_EQ(0, kx_set_hand_angle(h(), angles));
    EXPECT_EQ(R"({"command":"set_hand_angle","hand_angle":[100,200,300,400,500,-600]})", last("set_hand_angle"));
    ASSERT_EQ(0, kx_set_hand_follow_angle(h(), angles, true));
    EXPECT_EQ(R"({"command":"hand_follow_angle","hand_angle":[100,200,300,400,500,-600]})",
              last("hand_follow_angle"));
    clear_log();
    ASSERT_EQ(0, kx_set_hand_follow_pos(h(), angles, false));
    EXPECT_TRUE(logged("[kx_set_hand_follow_pos] block is 0\n"));
    EXPECT_EQ(-1, kx_set_hand_angle(h(), nullptr));
    EXPECT_EQ(-1, kx_set_hand_follow_pos(h(), nullptr, true));

    /* The hand's codes are the reverse of the gripper's. */
    clear_log();
    reply("set_hand_posture", line(R"({"command":"set_hand_posture","set_state":true})") + line(kGripperDone));
    EXPECT_EQ(-4, kx_set_hand_posture(h(), 0, true, 2));
    EXPECT_TRUE(logged("[kx_set_hand_posture] current device is: 1 \n"));
    reply("set_hand_seq", line(R"({"command":"set_hand_seq","set_state":true})"));
    EXPECT_EQ(-5, kx_set_hand_seq(h(), 0, true, 0));
    reply("set_hand_seq", line(R"({"command":"set_hand_seq","set_state":true})") + line(kHandDone));
    EXPECT_EQ(0, kx_set_hand_seq(h(), 0, true, 2));
    reply("hand_follow_angle", line(R"({"command":"hand_follow_angle","set_state":false})"));
    EXPECT_EQ(1, kx_set_hand_follow_angle(h(), angles, true));
}

TEST_F(Effector, LiftAndExpansionAxis) {
    start();
    ASSERT_EQ(0, kx_set_lift_height(h(), 100, 300, 1));
    EXPECT_EQ(R"({"command":"set_lift_height","speed":100,"height":300})", last("set_lift_height"));
    kx_expand_state_t st{};
    ASSERT_EQ(0, kx_get_lift_state(h(), &st));
    EXPECT_EQ(300, st.pos);
    EXPECT_EQ(0, st.mode);

    ASSERT_EQ(0, kx_set_expand_pos(h(), 100, -9000, 1));
    EXPECT_EQ(R"({"command":"expand_set_pos","speed":100,"pos":-9000})", last("expand_set_pos"));
    ASSERT_EQ(0, kx_get_expand_state(h(), &st));
    EXPECT_EQ(-9000, st.pos);

    /* Non-blocking: accepted while it moves, the state shows the motion. */
    ASSERT_EQ(0, kx_set_lift_height(h(), 1, 0, 0));
    ASSERT_EQ(0, kx_get_lift_state(h(), &st));
    EXPECT_NE(0, st.mode);
    EXPECT_EQ(1, kx_set_lift_height(h(), 100, 5000, 1)); /* beyond its travel: refused, not awaited */

    ASSERT_EQ(0, kx_set_lift_speed(h(), -50));
    EXPECT_EQ(R"({"command":"set_lift_speed","speed":-50})", last("set_lift_speed"));
    ASSERT_EQ(0, kx_set_expand_speed(h(), 0));
    EXPECT_EQ(R"({"command":"expand_set_speed","speed":0})", last("expand_set_speed"));
    EXPECT_EQ(1, kx_set_expand_speed(h(), 500));
}

TEST_F(Effector, AxisWaits) {
    start();
    m_nOutTime = 30;
    /* Another device's completion ends the wait with -4. */
    clear_log();
    reply("expand_set_pos", line(R"({"command":"expand_set_pos","set_pos_state":true})") + line(kGripperDone));
    EXPECT_EQ(-4, kx_set_expand_pos(h(), 0, 0, 1));
    EXPECT_TRUE(logged("[kx_set_expand_pos] current device is: 1 \n"));

    /* No event, and the state query keeps failing: the sixth failure ends it. */
    reply("set_lift_height", line(R"({"command":"set_lift_height","set_state":true})"));
    sim->drop_replies(0, "get_lift_state", 6);
    sim->clear_received(0);
    EXPECT_EQ(-2, kx_set_lift_height(h(), 0, 0, 1));
    EXPECT_EQ(6u, requests("get_lift_state").size());

    /* Nothing moves and no event comes: the state is read at rest ten times
     * before the final event settles it. */
    reply("set_lift_height", line(R"({"command":"set_lift_height","set_state":true})"));
    sim->clear_received(0);
    std::thread late([&] {
        while (requests("get_lift_state").size() < 11) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        sim->send_raw(0, line(R"({"command":"current_trajectory_state","trajectory_state":true,"device":3,"trajectory_connect":0})"));
    });
    EXPECT_EQ(0, kx_set_lift_height(h(), 0, 0, 1));
    late.join();
    EXPECT_GE(requests("get_lift_state").size(), 11u);

    reply("expand_get_state", line(R"({"command":"expand_state","pos":1,"current":2,"err_flag":0})"));
    kx_expand_state_t st{};
    EXPECT_EQ(-3, kx_get_expand_state(h(), &st));
    EXPECT_EQ(-1, kx_get_lift_state(h(), nullptr));
}

TEST_F(SimFixture, SingleModeAxisWaitIsTheSingleModeStep) {
    SimSetup s;
    s.mode = KX_SINGLE_MODE_E;
    start(s);
    clear_log();
    EXPECT_EQ(-3, kx_set_lift_height(h(), 100, 10, 1));
    EXPECT_TRUE(logged("Set command parse err\n"));
}
