/* Blocking and non-blocking motion against the simulated controller: a
 * blocking call returns when the arm has arrived, and only then. */
#include <cmath>
#include <future>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

/* Dual and triple thread modes wait the same way. */
class Motion : public SimFixture, public ::testing::WithParamInterface<kx_thread_mode_e> {
protected:
    void start_mode(double time_scale = 20.0) {
        SimSetup s;
        s.mode = GetParam();
        s.time_scale = time_scale;
        start(s);
    }

    /* Whether the simulated arm rests at `joint` (degrees). */
    bool at(const float* joint, int arm = 0, double tol = 0.01) {
        std::vector<double> q = sim->joints(arm);
        for (size_t i = 0; i < q.size(); ++i)
            if (std::fabs(q[i] - joint[i]) > tol) return false;
        return !sim->moving(arm);
    }

    void expect_tool_at(const kx_pose_t& p) {
        kx_current_arm_state_t st{};
        ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
        EXPECT_NEAR(p.position.x, st.pose.position.x, 1e-3);
        EXPECT_NEAR(p.position.y, st.pose.position.y, 1e-3);
        EXPECT_NEAR(p.position.z, st.pose.position.z, 1e-3);
    }
};

const float kHome[7] = {0, 0, 0, 0, 0, 0, 0};
const float kA[7] = {10, -20, 30, 5, 45, -15, 0};
const float kB[7] = {-15, 10, 60, -5, 30, 20, 0};
/* Outside the joint limits: the controller refuses it and nothing moves. */
const float kUnreachable[7] = {0, 0, 720, 0, 0, 0, 0};

}  // namespace

TEST_P(Motion, BlockingMovesReturnOnArrival) {
    start_mode();
    ASSERT_EQ(0, kx_movej(h(), kA, 50, 0, 0, 1));
    EXPECT_TRUE(at(kA));
    ASSERT_EQ(0, kx_movej(h(), kB, 50, 0, 0, 1));
    EXPECT_TRUE(at(kB));

    /* A joint-space move to the pose of kA, then a linear move 3 cm down:
     * each returns with the tool at its target. */
    kx_pose_t target = kx_algo_forward_kinematics(h(), kA);
    ASSERT_EQ(0, kx_movej_p(h(), target, 50, 0, 0, 1));
    EXPECT_FALSE(sim->moving(0));
    expect_tool_at(target);
    target.position.z -= 0.03f;
    ASSERT_EQ(0, kx_movel(h(), target, 50, 0, 0, 1));
    EXPECT_FALSE(sim->moving(0));
    expect_tool_at(target);
}

TEST_P(Motion, BlockingStepsWaitForTheStep) {
    start_mode();
    ASSERT_EQ(0, kx_set_joint_step(h(), 2, 7.5f, 50, 1));
    EXPECT_FALSE(sim->moving(0));
    EXPECT_NEAR(7.5, sim->joints(0)[1], 0.01);
}

TEST_P(Motion, JoinedMoveIsNotAwaited) {
    start_mode(5.0);
    /* A joined motion returns as soon as it is accepted ... */
    ASSERT_EQ(0, kx_movej(h(), kA, 20, 0, 1, 1));
    EXPECT_FALSE(at(kA));
    /* ... and the following unjoined one waits for the whole chain. */
    ASSERT_EQ(0, kx_movej(h(), kB, 20, 0, 0, 1));
    EXPECT_TRUE(at(kB));
}

TEST_P(Motion, NonBlockingCompletionDoesNotEndALaterWait) {
    start_mode();
    ASSERT_EQ(0, kx_movej(h(), kA, 50, 0, 0, 0));
    ASSERT_TRUE(eventually([&] { return at(kA); }));
    /* The first motion's completion event is still due or queued; the
     * blocking move must wait for its own. */
    ASSERT_EQ(0, kx_movej(h(), kB, 10, 0, 0, 1));
    EXPECT_TRUE(at(kB));
}

TEST_P(Motion, RefusedMoveReturnsOne) {
    start_mode();
    EXPECT_EQ(1, kx_movej(h(), kUnreachable, 20, 0, 0, 1));
    EXPECT_EQ(1, kx_movej(h(), kUnreachable, 20, 0, 0, 0));
    EXPECT_FALSE(sim->moving(0));
}

TEST_P(Motion, StopEndsABlockingMove) {
    start_mode(1.0);
    auto move = std::async(std::launch::async, [&] { return kx_movej(h(), kA, 5, 0, 0, 1); });
    ASSERT_TRUE(eventually([&] { return sim->moving(0); }));
    EXPECT_EQ(0, kx_set_arm_stop(h()));
    EXPECT_EQ(1, move.get()); /* the motion ended without reaching its target */
    EXPECT_FALSE(sim->moving(0));
}

TEST_P(Motion, ForeignDeviceEventEndsWithMinusFour) {
    start_mode();
    m_nOutTime = 100;
    /* The move is reported accepted but nothing runs; every query reports no
     * planning, followed by an arrival event of device 1. Such events keep
     * the wait going until the idle allowance is spent; the one that comes
     * after that ends it. */
    sim->script_reply(0, "movej", "{\"command\":\"movej\",\"receive_state\":true}\r\n");
    sim->script_reply(0, "get_arm_current_trajectory",
                      "{\"command\":\"arm_current_trajectory\",\"type\":\"none\",\"data\":[0,0,0,0,0,0]}\r\n"
                      "{\"command\":\"current_trajectory_state\",\"trajectory_state\":true,\"device\":1,"
                      "\"trajectory_connect\":0}\r\n",
                      10);
    sim->clear_received(0);
    clear_log();
    EXPECT_EQ(-4, kx_movej(h(), kUnreachable, 20, 0, 0, 1));
    EXPECT_TRUE(logged("[kx_movej] current device is: 1 \n"));
    EXPECT_EQ(10u, requests("get_arm_current_trajectory").size());
}

TEST_P(Motion, FailingTrajectoryQueriesEndTheWait) {
    start_mode();
    m_nOutTime = 100;
    sim->script_reply(0, "movej", "{\"command\":\"movej\",\"receive_state\":true}\r\n");
    sim->script_reply(0, "get_arm_current_trajectory", "{\"command\":\"arm_current_trajectory\",\"type\":\"none\"}\r\n",
                      6);
    sim->clear_received(0);
    EXPECT_EQ(-1, kx_movej(h(), kUnreachable, 20, 0, 0, 1));
    EXPECT_EQ(6u, requests("get_arm_current_trajectory").size());
}

INSTANTIATE_TEST_SUITE_P(Modes, Motion, ::testing::Values(KX_DUAL_MODE_E, KX_TRIPLE_MODE_E),
                         [](const ::testing::TestParamInfo<kx_thread_mode_e>& i) {
                             return i.param == KX_DUAL_MODE_E ? std::string("Dual") : std::string("Triple");
                         });

/* Without a receive thread no event is ever in hand: the blocking form ends
 * with the decode failure, after the move was accepted. */
TEST_F(SimFixture, SingleModeBlockingMoveReportsTheDecodeFailure) {
    SimSetup s;
    s.mode = KX_SINGLE_MODE_E;
    start(s);
    clear_log();
    EXPECT_EQ(-3, kx_movej(h(), kA, 50, 0, 0, 1));
    EXPECT_TRUE(logged("Set command parse err\n"));
    EXPECT_EQ(-5, kx_movecmd_singlemode_parse(h(), 0, 0));
    kx_set_arm_stop(h());
}
