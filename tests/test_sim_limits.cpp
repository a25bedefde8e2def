// No motion outruns a joint: streamed targets beyond a joint's reach in the
// stream's period are refused with an arm error, and planned moves of every
// model keep every joint within its speed and acceleration limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "test_sim_client.h"
#include "test_sim_fixture.h"

using namespace simtest;

namespace {

constexpr int kStreamSpeedError = 0x500A;

kx_movej_canfd_mode_t canfd(float* joint) {
    kx_movej_canfd_mode_t m{};
    m.joint = joint;
    return m;
}

using Streaming = LibrarySim;

std::string wire_list(const std::vector<int>& v) {
    std::string s;
    for (size_t i = 0; i < v.size(); ++i) s += (i ? "," : "") + std::to_string(v[i]);
    return s;
}

}  // namespace

/* On a six- and a seven-joint arm: small steps are followed, a jump is
 * refused and stops the stream until the error is cleared. */
TEST_F(Streaming, AJumpIsRefusedWithAnArmErrorUntilCleared) {
    start({"AVEN-P", "BRIV-P"});
    for (int arm = 0; arm < 2; ++arm) {
        SCOPED_TRACE(arm);
        const int dof = arm == 0 ? 6 : 7;
        float q[7] = {0, 10, 20, -10, 30, -20, 10};
        ASSERT_EQ(0, kx_movej(h(arm), q, 50, 0, 0, 1));

        // Steps of 0.1 degree are within every joint's reach at any rate.
        for (int i = 0; i < 20; ++i) {
            q[0] += 0.1f;
            q[dof - 1] -= 0.1f;
            ASSERT_EQ(0, kx_movej_canfd(h(arm), canfd(q)));
        }
        ASSERT_TRUE(eventually([&] { return std::fabs(sim->joints(arm)[0] - q[0]) < 2e-3; }));
        EXPECT_NEAR(sim->joints(arm)[static_cast<size_t>(dof - 1)], q[dof - 1], 2e-3);
        EXPECT_EQ(errors(arm), std::vector<int>{0});

        // 45 degrees in one period: refused, the arm stays, the error shows.
        const std::vector<double> before = sim->joints(arm);
        q[1] += 45;
        ASSERT_EQ(0, kx_movej_canfd(h(arm), canfd(q)));
        ASSERT_TRUE(eventually([&] { return errors(arm) == std::vector<int>{kStreamSpeedError}; }));
        EXPECT_EQ(sim->joints(arm), before);
        const auto lines = logged({"arm " + std::to_string(arm + 1) + ":", "movej_canfd refused", "joint 2",
                                   "would move 45.000 deg", "its limit is"});
        EXPECT_EQ(lines.size(), 1u) << ::testing::PrintToString(log_lines());

        // Until cleared, even a small step is refused.
        q[1] -= 45;
        q[0] += 0.1f;
        ASSERT_EQ(0, kx_movej_follow(h(arm), q));
        EXPECT_TRUE(eventually([&] { return !logged({"movej_follow refused", "error 0x500A", "clear_system_err"}).empty(); }));
        EXPECT_EQ(sim->joints(arm), before);

        ASSERT_EQ(0, kx_clear_system_err(h(arm)));
        EXPECT_EQ(errors(arm), std::vector<int>{0});
        ASSERT_EQ(0, kx_movej_follow(h(arm), q));
        EXPECT_TRUE(eventually([&] { return std::fabs(sim->joints(arm)[0] - q[0]) < 1e-3; }));
        clear_log();
    }
}

/* A Cartesian target that the joints cannot reach in one period is refused the same way. */
TEST_F(Streaming, APoseJumpIsRefusedToo) {
    start({"AVEN-P"});
    const float q[7] = {0, 10, 70, 0, 60, 0};
    ASSERT_EQ(0, kx_movej(h(), q, 50, 0, 0, 1));
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    kx_movep_canfd_mode_t m{};
    m.pose = st.pose;
    m.pose.quaternion = {0, 0, 0, 0}; /* the Euler angles are sent */
    m.pose.position.z -= 0.0005f;
    ASSERT_EQ(0, kx_movep_canfd(h(), m));
    ASSERT_TRUE(eventually([&] { return std::fabs(sim->joints(0)[2] - 70) > 1e-3; }));
    m.pose.position.z -= 0.2f; /* 20 cm in one period */
    ASSERT_EQ(0, kx_movep_canfd(h(), m));
    EXPECT_TRUE(eventually([&] { return errors() == std::vector<int>{kStreamSpeedError}; }));
    EXPECT_EQ(logged({"arm 1: movep_canfd refused", "would move"}).size(), 1u) << ::testing::PrintToString(log_lines());
}

/* Every model: a far joint move and Cartesian steps, sampled as planned,
 * never ask a joint for more than its speed or acceleration. */
TEST(PlannedMoves, StayWithinJointSpeedAndAcceleration) {
    for (const char* model : {"AVEN", "BRIV", "CALD", "DUMO", "ESKA", "FIRU", "GOLT"}) {
        SCOPED_TRACE(model);
        // Slow simulated time: the motion barely starts while it is sampled.
        kxsim::Simulator sim(options({std::string(model) + "-P"}, 0.001));
        ASSERT_TRUE(sim.start());
        Peer p(sim, 0);
        const auto lo = ints(p.ask(R"({"command":"get_joint_min_pos"})", "joint_min_pos").get(), "min_pos");
        const auto hi = ints(p.ask(R"({"command":"get_joint_max_pos"})", "joint_max_pos").get(), "max_pos");
        const auto vmax = ints(p.ask(R"({"command":"get_joint_max_speed"})", "joint_max_speed").get(), "joint_speed");
        const auto amax = ints(p.ask(R"({"command":"get_joint_max_acc"})", "joint_max_acc").get(), "joint_acc");
        const size_t dof = lo.size();
        ASSERT_GE(dof, 6u);
        const double f[7] = {0.75, 0.6, 0.65, 0.4, 0.7, 0.3, 0.45};
        std::vector<int> target(dof);
        for (size_t i = 0; i < dof; ++i) target[i] = static_cast<int>(lo[i] + f[i] * (hi[i] - lo[i]));
        Json r = p.ask(R"({"command":"movej","v":100,"joint":[)" + wire_list(target) +
                       R"(],"trajectory_connect":0,"r":0})");
        ASSERT_EQ(flag(r.get(), "receive_state"), 1);
        for (const char* step : {R"({"command":"set_pos_step","step_type":"z_step","step":-60000,"v":100})",
                                 R"({"command":"set_pos_step","step_type":"y_step","step":80000,"v":100})",
                                 R"({"command":"set_ort_step","step_type":"rx_step","step":400,"v":100})"}) {
            r = p.ask(step);
            EXPECT_EQ(flag(r.get(), "receive_state"), 1) << step;
        }
        constexpr double dt = 0.005;
        const auto path = sim.preview(0, dt);
        ASSERT_GT(path.size(), 10u);
        double busiest = 0;
        for (size_t i = 0; i < dof; ++i) {
            const double v_lim = vmax[i] * 6e-3, a_lim = amax[i] * 6e-3; /* deg/s, deg/s^2 */
            double v_top = 0, a_top = 0;
            for (size_t k = 1; k < path.size(); ++k) {
                v_top = std::max(v_top, std::fabs(path[k][i] - path[k - 1][i]) / dt);
                if (k >= 2)
                    a_top = std::max(a_top, std::fabs(path[k][i] - 2 * path[k - 1][i] + path[k - 2][i]) / (dt * dt));
            }
            EXPECT_LE(v_top, v_lim * 1.02) << "joint " << i + 1;
            EXPECT_LE(a_top, a_lim * 1.05) << "joint " << i + 1;
            busiest = std::max(busiest, v_top / v_lim);
        }
        EXPECT_GT(busiest, 0.9) << "no joint comes near its speed: the moves are slowed needlessly";
    }
}

/* Targets held up on their way and arriving together after a steady
 * stream are judged by the stream's rate, not refused. */
TEST(StreamPeriod, ABurstAfterASteadyStreamIsFollowed) {
    kxsim::Simulator sim(options({"AVEN-P"}, 10.0));
    ASSERT_TRUE(sim.start());
    Peer p(sim, 0);
    auto target = [](int k) {
        return R"({"command":"movej_canfd","joint":[)" + std::to_string(k * 1500) +
               R"(,0,0,0,0,0],"follow":false,"expand":0,"trajectory_mode":0,"radio":0})";
    };
    int k = 0;
    // 1.5 degrees every 10 ms of simulated time (1 ms real): 150 deg/s, within joint 1's 180.
    for (; k < 10; ++k) {
        p.send_line(target(k + 1));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // Four more, sent 10 ms apart but held up: they arrive together when the last is due.
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    std::string burst;
    for (; k < 14; ++k) burst += target(k + 1) + "\r\n";
    p.send_bytes(burst);
    Json st = p.ask(R"({"command":"get_current_arm_state"})", "current_arm_state");
    const cJSON* s = cJSON_GetObjectItem(st.get(), "arm_state");
    EXPECT_EQ(ints(s, "err"), std::vector<int>{0});
    EXPECT_EQ(ints(s, "joint")[0], 14 * 1500);
}

/* A recorded path faster than a joint may go is replayed within its limits. */
TEST(PlannedMoves, AReplayStaysWithinJointLimits) {
    kxsim::Simulator sim(options({"AVEN-P"}, 20.0));
    ASSERT_TRUE(sim.start());
    Peer p(sim, 0);
    sim.set_hand_motion(0, {400});  // the operator swings joint 1 at 400 deg/s; its limit is 180
    ASSERT_EQ(flag(p.ask(R"({"command":"start_drag_teach","trajectory_record":1})").get(), "drag_teach"), 1);
    while (sim.joints(0)[0] < 60) std::this_thread::yield();
    ASSERT_EQ(flag(p.ask(R"({"command":"stop_drag_teach"})").get(), "drag_teach"), 1);
    sim.set_hand_motion(0, {});
    p.send_line(R"({"command":"drag_trajectory_origin"})");
    ASSERT_TRUE(p.wait_for("current_trajectory_state", 10000));
    ASSERT_EQ(flag(p.ask(R"({"command":"run_drag_trajectory"})").get(), "run_state"), 1);
    constexpr double dt = 0.005;
    const auto path = sim.preview(0, dt);
    ASSERT_GT(path.size(), 10u);
    double v_top = 0;
    for (size_t k = 1; k < path.size(); ++k) v_top = std::max(v_top, std::fabs(path[k][0] - path[k - 1][0]) / dt);
    EXPECT_LE(v_top, 180 * 1.02);
    EXPECT_GT(path.back()[0], 59);
}

/* A smooth Cartesian stream is followed on every model, never refused. */
TEST(StreamPeriod, ASmoothPoseStreamIsFollowedOnEveryModel) {
    for (const char* model : {"AVEN", "BRIV", "CALD", "DUMO", "ESKA", "FIRU", "GOLT"}) {
        SCOPED_TRACE(model);
        kxsim::Simulator sim(options({std::string(model) + "-P"}, 10.0));
        ASSERT_TRUE(sim.start());
        Peer p(sim, 0);
        const auto lo = ints(p.ask(R"({"command":"get_joint_min_pos"})", "joint_min_pos").get(), "min_pos");
        const auto hi = ints(p.ask(R"({"command":"get_joint_max_pos"})", "joint_max_pos").get(), "max_pos");
        const double f[7] = {0.5, 0.6, 0.65, 0.45, 0.6, 0.4, 0.5};
        std::vector<int> ready(lo.size());
        for (size_t i = 0; i < lo.size(); ++i) ready[i] = static_cast<int>(lo[i] + f[i] * (hi[i] - lo[i]));
        p.send_line(R"({"command":"movej","v":50,"joint":[)" + wire_list(ready) + R"(],"trajectory_connect":0,"r":0})");
        ASSERT_TRUE(p.wait_for("current_trajectory_state", 10000));
        Json st = p.ask(R"({"command":"get_current_arm_state"})", "current_arm_state");
        std::vector<int> pose = ints(cJSON_GetObjectItem(st.get(), "arm_state"), "pose");
        ASSERT_EQ(pose.size(), 6u);
        const int x0 = pose[0], y0 = pose[1];
        for (int i = 1; i <= 60; ++i) {  // an arc of a 40 mm circle in 0.5 mm steps, 10 ms apart
            const double a = i * 0.5e-3 / 0.02;
            pose[0] = x0 + static_cast<int>(20000 * (std::cos(a) - 1));
            pose[1] = y0 + static_cast<int>(20000 * std::sin(a));
            p.send_line(R"({"command":"movep_canfd","follow":false,"pose":[)" + wire_list(pose) +
                        R"(],"trajectory_mode":0,"radio":0})");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        st = p.ask(R"({"command":"get_current_arm_state"})", "current_arm_state");
        const cJSON* s = cJSON_GetObjectItem(st.get(), "arm_state");
        EXPECT_EQ(ints(s, "err"), std::vector<int>{0});
        const auto at = ints(s, "pose");
        EXPECT_NEAR(at[0], pose[0], 50);
        EXPECT_NEAR(at[1], pose[1], 50);
    }
}
