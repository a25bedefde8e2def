// Motion in simulated time: planned moves, their end events, stopping,
// pausing, joined trajectories, steps, teaching and streamed targets.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "algo_arm.h"
#include "test_sim_client.h"

using namespace simtest;

namespace {

const char* kEndOk = "{\"command\":\"current_trajectory_state\",\"trajectory_state\":true,\"device\":0,"
                     "\"trajectory_connect\":0}";
const char* kEndStopped = "{\"command\":\"current_trajectory_state\",\"trajectory_state\":false,\"device\":0,"
                          "\"trajectory_connect\":0}";

std::string movej(const std::vector<int>& joint, int v, int tc = 0) {
    std::string s = "{\"command\":\"movej\",\"v\":" + std::to_string(v) + ",\"joint\":[";
    for (size_t i = 0; i < joint.size(); ++i) s += (i ? "," : "") + std::to_string(joint[i]);
    return s + "],\"trajectory_connect\":" + std::to_string(tc) + ",\"r\":0}";
}

struct Motion : ::testing::Test {
    kxsim::Simulator sim{options({"AVEN-P"}, 50.0)};
    std::unique_ptr<Peer> p;
    void SetUp() override {
        ASSERT_TRUE(sim.start());
        p = std::make_unique<Peer>(sim, 0);
    }
    int accepted(const std::string& req, const std::string& reply = "") {
        Json j = p->ask(req, reply);
        return j ? flag(j.get(), "receive_state") : -2;
    }
    std::vector<int> trajectory(std::string* type = nullptr) {
        Json j = p->ask("{\"command\":\"get_arm_current_trajectory\"}", "arm_current_trajectory");
        if (type) *type = cJSON_GetObjectItem(j.get(), "type")->valuestring;
        return ints(j.get(), "data");
    }
    std::vector<int> degrees() { return ints(p->ask("{\"command\":\"get_joint_degree\"}", "joint_degree").get(), "joint"); }
    /* The next end event (perhaps already passed over while awaiting a reply), whole. */
    std::string end_event() {
        for (auto it = p->skipped.begin(); it != p->skipped.end(); ++it)
            if (command_of(parse(*it).get()) == "current_trajectory_state") {
                std::string e = *it;
                p->skipped.erase(it);
                return e;
            }
        for (;;) {
            const std::string l = p->line(10000);
            if (l.empty() || command_of(parse(l).get()) == "current_trajectory_state") return l;
        }
    }
};

}  // namespace

TEST_F(Motion, MovejRunsToItsTargetAndReportsTheEnd) {
    const std::vector<int> target{10000, -20000, 30000, 0, 45000, -1000};
    EXPECT_EQ(accepted(movej(target, 30)), 1);
    std::string type;
    const auto data = trajectory(&type);
    if (sim.moving(0)) {  // still under way when asked
        EXPECT_EQ(type, "movej");
        EXPECT_EQ(data, target);
    }
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_EQ(degrees(), target);
    EXPECT_FALSE(sim.moving(0));
    EXPECT_NE(sim.last_motion_end(0), std::chrono::steady_clock::time_point{});
    EXPECT_EQ(trajectory(&type), target);
    EXPECT_EQ(type, "none");
    const auto j = sim.joints(0);
    ASSERT_EQ(j.size(), 6u);
    EXPECT_NEAR(j[4], 45.0, 1e-9);

    // Odometry counts the travel in whole degrees.
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_joint_odom\"}").get(), "odom"), (std::vector<int>{10, 20, 30, 0, 45, 1}));
}

TEST_F(Motion, InvalidMovesAreRefusedAndNothingMoves) {
    EXPECT_EQ(accepted(movej({400000, 0, 0, 0, 0, 0}, 20)), 0);  // beyond the joint limit
    EXPECT_EQ(accepted(movej({0, 0, 0, 0, 0}, 20)), 0);          // five joints on a six-joint arm
    EXPECT_EQ(accepted(movej({1000, 0, 0, 0, 0, 0}, 0)), 0);     // no speed
    EXPECT_EQ(accepted(movej({1000, 0, 0, 0, 0, 0}, 20, 2)), 0); // no such connection flag
    EXPECT_EQ(accepted("{\"command\":\"movej\",\"v\":20}"), 0);
    EXPECT_EQ(accepted("{\"command\":\"movel\",\"v\":20,\"pose\":[1,2,3],\"trajectory_connect\":0,\"r\":0}"), 0);
    EXPECT_EQ(accepted("{\"command\":\"movec\",\"pose\":[],\"v\":20,\"r\":0,\"loop\":0,\"trajectory_connect\":0}"), 0);
    EXPECT_EQ(accepted("{\"command\":\"set_joint_step\",\"joint_step\":[9,5000],\"v\":20}"), 0);
    EXPECT_EQ(accepted("{\"command\":\"set_pos_step\",\"v\":20,\"step\":10000}"), 0);  // no step_type
    // A disabled joint holds the whole arm.
    p->ask("{\"command\":\"set_joint_en_state\",\"joint_en_state\":[2,0]}");
    EXPECT_EQ(accepted(movej({1000, 0, 0, 0, 0, 0}, 20)), 0);
    EXPECT_FALSE(sim.moving(0));
    EXPECT_EQ(degrees(), (std::vector<int>{0, 0, 0, 0, 0, 0}));
}

TEST_F(Motion, StopCutsTheMotionShortAndClearsTheQueue) {
    EXPECT_EQ(accepted(movej({170000, 0, 0, 0, 0, 0}, 1)), 1);
    EXPECT_EQ(accepted(movej({0, 0, 0, 0, 0, 0}, 1)), 1);
    p->send_line("{\"command\":\"set_arm_stop\"}");
    EXPECT_EQ(p->line(), "{\"command\":\"set_arm_stop\",\"arm_stop\":true}");
    EXPECT_EQ(end_event(), kEndStopped);
    EXPECT_FALSE(sim.moving(0));
    EXPECT_LT(degrees()[0], 170000);
    std::string type;
    trajectory(&type);
    EXPECT_EQ(type, "none");

    // A slow stop brakes, then reports the motion as not reached.
    EXPECT_EQ(accepted(movej({-170000, 0, 0, 0, 0, 0}, 1)), 1);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_arm_slow_stop\"}").get(), "arm_slow_stop"), 1);
    EXPECT_EQ(end_event(), kEndStopped);
    EXPECT_GT(degrees()[0], -170000);

    // Deleting the trajectories ends the running one the same way.
    EXPECT_EQ(accepted(movej({170000, 0, 0, 0, 0, 0}, 1)), 1);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_arm_delete_trajectory\"}").get(), "arm_delete_trajectory"), 1);
    EXPECT_EQ(end_event(), kEndStopped);
    EXPECT_FALSE(sim.moving(0));
}

TEST_F(Motion, PauseFreezesAndContinueResumes) {
    EXPECT_EQ(accepted(movej({0, 0, 60000, 0, 0, 0}, 2)), 1);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_arm_pause\"}").get(), "arm_pause"), 1);
    const auto frozen = degrees();
    std::string type;
    EXPECT_EQ(trajectory(&type), (std::vector<int>{0, 0, 60000, 0, 0, 0}));
    EXPECT_EQ(type, "movej");  // still the running motion
    EXPECT_EQ(degrees(), frozen);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_arm_continue\"}").get(), "arm_continue"), 1);
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_EQ(degrees()[2], 60000);

    // Deleting the current trajectory while paused moves on to the next one.
    EXPECT_EQ(accepted(movej({0, 0, 0, 0, 0, 0}, 1)), 1);
    EXPECT_EQ(accepted(movej({0, 0, 10000, 0, 0, 0}, 100)), 1);
    p->ask("{\"command\":\"set_arm_pause\"}");
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_delete_current_trajectory\"}").get(), "delete_current_trajectory"), 1);
    EXPECT_EQ(end_event(), kEndStopped);
    trajectory(&type);
    EXPECT_EQ(type, "movej");
    p->ask("{\"command\":\"set_arm_continue\"}");
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_EQ(degrees()[2], 10000);
}

TEST_F(Motion, JoinedMovesWaitForTheClosingOne) {
    EXPECT_EQ(accepted(movej({20000, 0, 0, 0, 0, 0}, 50, 1)), 1);
    EXPECT_FALSE(sim.moving(0));
    std::string type;
    trajectory(&type);
    EXPECT_EQ(type, "none");
    EXPECT_EQ(accepted(movej({20000, 20000, 0, 0, 0, 0}, 50, 0)), 1);
    EXPECT_EQ(end_event(), "{\"command\":\"current_trajectory_state\",\"trajectory_state\":true,\"device\":0,"
                           "\"trajectory_connect\":1}");
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_EQ(degrees(), (std::vector<int>{20000, 20000, 0, 0, 0, 0}));
}

TEST_F(Motion, StepsTeachingAndStreamedTargets) {
    EXPECT_EQ(accepted("{\"command\":\"set_joint_step\",\"joint_step\":[2,5000],\"v\":50}"), 1);
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_EQ(degrees()[1], 5000);

    // Teaching runs until stopped, then the arm holds still.
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_joint_teach\",\"teach_joint\":1,\"v\":10,\"direction\":\"neg\"}").get(),
                   "joint_teach"), 1);
    EXPECT_TRUE(sim.moving(0));
    while (degrees()[0] > -100) std::this_thread::yield();
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_stop_teach\"}").get(), "stop_teach"), 1);
    EXPECT_FALSE(sim.moving(0));
    const auto held = degrees();
    EXPECT_EQ(degrees(), held);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_joint_teach\",\"teach_joint\":1,\"v\":10,\"direction\":\"up\"}").get(),
                   "joint_teach"), 0);
    EXPECT_EQ(flag(p->ask("{\"command\":\"set_teach_frame\",\"frame_type\":1}").get(), "set_state"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_teach_frame\"}").get(), "frame_type"), 1);

    // Streamed joint targets within a joint's reach apply at once and are not answered.
    auto near_held = [&](int d0, int d5) {
        std::vector<int> j = held;
        j[0] += d0, j[5] += d5;
        std::string s;
        for (size_t i = 0; i < j.size(); ++i) s += (i ? "," : "") + std::to_string(j[i]);
        return std::pair{j, s};
    };
    const auto [a, a_text] = near_held(1000, -1000);
    p->send_line("{\"command\":\"movej_canfd\",\"joint\":[" + a_text +
                 "],\"follow\":false,\"expand\":0,\"trajectory_mode\":0,\"radio\":0}");
    EXPECT_EQ(degrees(), a);
    p->send_line("{\"command\":\"movej_follow\",\"joint\":[0,0,0,0,0,500000]}");  // out of range: ignored
    const auto [b, b_text] = near_held(1500, 0);
    p->send_line("{\"command\":\"movej_follow\",\"joint\":[" + b_text + "]}");
    EXPECT_EQ(degrees(), b);
    EXPECT_TRUE(p->skipped.empty());
}

/* Cartesian motion needs a working inverse kinematics for the model. */
TEST_F(Motion, CartesianMovesFollowTheirPath) {
    algo::ArmModel m;
    ASSERT_TRUE(algo::default_model(0, 0, &m));
    float q[8] = {0, 0.3f, 1.2f, 0, 0.8f, 0}, qo[8], T[4][4];
    algo::arm_fk(m, q, T);
    if (algo::arm_ik(m, q, T, qo) != 0) GTEST_SKIP() << "no inverse kinematics for this model yet";

    EXPECT_EQ(accepted(movej({10000, -20000, 30000, 5000, 45000, -15000}, 100)), 1);
    EXPECT_EQ(end_event(), kEndOk);
    auto pose = [&] {
        Json st = p->ask("{\"command\":\"get_current_arm_state\"}", "current_arm_state");
        return ints(cJSON_GetObjectItem(st.get(), "arm_state"), "pose");
    };
    auto pose_req = [](const char* cmd, std::vector<int> v) {
        std::string s = std::string("{\"command\":\"") + cmd + "\",\"v\":50,\"pose\":[";
        for (size_t i = 0; i < v.size(); ++i) s += (i ? "," : "") + std::to_string(v[i]);
        return s + "],\"trajectory_connect\":0,\"r\":0}";
    };
    const auto start = pose();
    auto near = [](const std::vector<int>& a, const std::vector<int>& b) {
        for (size_t i = 0; i < 3; ++i)
            if (std::abs(a[i] - b[i]) > 1000) return false;  // 1 mm
        return true;
    };

    auto up = start;
    up[2] += 30000;
    EXPECT_EQ(accepted(pose_req("movel", up)), 1);
    std::string type;
    trajectory(&type);
    if (sim.moving(0)) EXPECT_EQ(type, "movel");
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_TRUE(near(pose(), up));

    auto side = start;
    side[1] += 30000;
    EXPECT_EQ(accepted(pose_req("movej_p", side)), 1);
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_TRUE(near(pose(), side));

    std::string arc = "{\"command\":\"movec\",\"pose\":{\"pose_via\":[";
    auto via = start;
    via[1] += 21213, via[2] += 21213;  // on the quarter circle about the start
    for (int i = 0; i < 6; ++i) arc += (i ? "," : "") + std::to_string(via[i]);
    arc += "],\"pose_to\":[";
    for (int i = 0; i < 6; ++i) arc += (i ? "," : "") + std::to_string(up[i]);
    arc += "]},\"v\":50,\"r\":0,\"loop\":0,\"trajectory_connect\":0}";
    EXPECT_EQ(accepted(arc, "movec"), 1);
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_TRUE(near(pose(), up));

    EXPECT_EQ(accepted("{\"command\":\"set_pos_step\",\"v\":50,\"step\":-30000,\"step_type\":\"z_step\"}"), 1);
    EXPECT_EQ(end_event(), kEndOk);
    EXPECT_TRUE(near(pose(), start));

    EXPECT_EQ(accepted(pose_req("moves", {5000000, 0, 0, 0, 0, 0})), 0);  // out of reach
}
