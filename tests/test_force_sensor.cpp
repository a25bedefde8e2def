/* Force sensor readings, zeroing and calibration, force drag mode and
 * force-position control against the simulated controller: request bytes,
 * result codes, edition checks, hostile replies, and the contact force
 * settling where it was commanded. */
#include <cmath>
#include <limits>

#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Force : public SimFixture {
protected:
    /* Runs f, then returns the request lines it produced on `arm`. */
    template <class F>
    std::vector<std::string> sent_by(F&& f, size_t n = 1, int arm = 0) {
        sim->clear_received(arm);
        f();
        EXPECT_TRUE(sim->wait_received(arm, n, std::chrono::seconds(5)));
        return sim->received(arm);
    }
    std::string one_sent_by(std::function<void()> f, int arm = 0) {
        std::vector<std::string> lines = sent_by(f, 1, arm);
        return lines.empty() ? std::string() : lines.front();
    }
};

const float kPose1[7] = {10.0005f, -20, 30, 0, 45, 0, 0};

}  // namespace

TEST_F(Force, SixAxisReadingsFollowPushAndZeroing) {
    start(SimSetup{{"AVEN-QS", "AVEN-QA", "AVEN-P"}});
    kx_force_data_t d{};
    EXPECT_EQ(R"({"command":"get_force_data"})", one_sent_by([&] { ASSERT_EQ(0, kx_get_force_data(h(0), &d)); }));

    /* A push on the tool shows in the raw reading; zeroing removes what is
     * there now, so the next push shows alone in the zeroed values. */
    ASSERT_EQ(0, kx_clear_force_data(h(0)));
    EXPECT_EQ(R"({"command":"clear_force_data"})", last_request(0));
    ASSERT_EQ(0, kx_get_force_data(h(0), &d));
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(0.0f, d.zero_force_data[i], 2e-3f);
    sim->set_external_force(0, {0, 0, -20, 0, 0, 0});
    ASSERT_EQ(0, kx_get_force_data(h(0), &d));
    float norm = 0;
    for (int i = 0; i < 3; ++i) norm += d.zero_force_data[i] * d.zero_force_data[i];
    EXPECT_NEAR(20.0f, std::sqrt(norm), 0.01f);
    EXPECT_NEAR(-20.0f, d.work_zero_force_data[2], 0.01f); /* the work frame is the base here */

    /* Sensor commands of the other editions are refused as a controller does. */
    EXPECT_EQ(-3, kx_get_force_data(h(2), &d));
    EXPECT_EQ(1, kx_clear_force_data(h(2)));
    EXPECT_EQ(1, kx_clear_force_data(h(1)));
}

TEST_F(Force, OneAxisReadingsAndEditionCheck) {
    start(SimSetup{{"AVEN-QA", "AVEN-QS"}});
    kx_fz_data_t fz{};
    EXPECT_EQ(R"({"command":"get_Fz"})", one_sent_by([&] { ASSERT_EQ(0, kx_get_Fz(h(0), &fz)); }));
    ASSERT_EQ(0, kx_clear_Fz(h(0)));
    EXPECT_EQ(R"({"command":"clear_Fz"})", last_request(0));
    sim->set_external_force(0, {0, 0, 15});
    ASSERT_EQ(0, kx_get_Fz(h(0), &fz));
    EXPECT_NE(0.0f, fz.zero_Fz);
    EXPECT_NEAR(15.0f, fz.work_zero_Fz, 0.01f);

    /* A six-axis arm answers no Fz query: refused locally, nothing sent. */
    clear_log();
    sim->clear_received(1);
    EXPECT_EQ(-4, kx_get_Fz(h(1), &fz));
    EXPECT_TRUE(logged("arm force type check err!"));
    EXPECT_TRUE(sim->received(1).empty());

    /* Hostile replies. */
    sim->script_reply(0, "get_Fz", "{\"command\":\"get_Fz\",\"Fz\":1}\r\n");
    EXPECT_EQ(-3, kx_get_Fz(h(0), &fz));
    sim->drop_replies(0, "get_Fz");
    EXPECT_EQ(-2, kx_get_Fz(h(0), &fz));
}

TEST_F(Force, CalibrationBlockingRule) {
    start(SimSetup{{"AVEN-QS", "AVEN-QA"}});
    /* Blocking: the outcome is read from the "set_force_sensor" reply. */
    EXPECT_EQ(R"({"command":"set_force_sensor"})", one_sent_by([&] { EXPECT_EQ(0, kx_set_force_sensor(h(0), true)); }));
    /* Not blocking: sent, never read. */
    sim->drop_replies(0, "set_force_sensor");
    EXPECT_EQ(0, kx_set_force_sensor(h(0), false));

    /* Manual calibration: four poses, only the fourth may wait. */
    for (int count = 1; count <= 3; ++count) {
        std::string line = one_sent_by([&] { EXPECT_EQ(0, kx_manual_set_force(h(0), count, const_cast<float*>(kPose1), true)); });
        EXPECT_EQ("{\"command\":\"manual_set_force_pose" + std::to_string(count) +
                      "\",\"joint\":[10000,-20000,30000,0,45000,0]}",
                  line);
    }
    EXPECT_EQ(0, kx_manual_set_force(h(0), 4, const_cast<float*>(kPose1), true));
    sim->clear_received(0);
    EXPECT_EQ(-4, kx_manual_set_force(h(0), 5, const_cast<float*>(kPose1), true));
    EXPECT_EQ(-4, kx_manual_set_force(h(0), 0, const_cast<float*>(kPose1), false));
    EXPECT_TRUE(sim->received(0).empty());
    /* Out of order, the controller refuses the closing pose. */
    EXPECT_EQ(1, kx_manual_set_force(h(0), 4, const_cast<float*>(kPose1), true));
    EXPECT_EQ(0, kx_stop_set_force_sensor(h(0)));
    EXPECT_EQ(R"({"command":"stop_set_force_sensor"})", last_request(0));

    /* One-axis calibration. */
    EXPECT_EQ(0, kx_auto_set_Fz(h(1), true));
    EXPECT_EQ(R"({"command":"auto_set_Fz"})", last_request(1));
    const float pose2[7] = {1, 2, 3, 4, 5, 6, 0};
    std::string line = one_sent_by([&] { EXPECT_EQ(0, kx_manual_set_Fz(h(1), const_cast<float*>(kPose1), const_cast<float*>(pose2), true)); }, 1);
    EXPECT_EQ(R"({"command":"manual_set_Fz","pose1":[10000,-20000,30000,0,45000,0],"pose2":[1000,2000,3000,4000,5000,6000]})",
              line);
    EXPECT_EQ(1, kx_auto_set_Fz(h(0), true)); /* no one-axis sensor there */
}

TEST_F(Force, DragModeNeedsASensor) {
    start(SimSetup{{"AVEN-P", "AVEN-QS"}});
    clear_log();
    int mode = -1;
    EXPECT_EQ(-4, kx_set_force_drag_mode(h(0), 1));
    EXPECT_EQ(-4, kx_get_force_drag_mode(h(0), &mode));
    EXPECT_TRUE(logged("KX_FORCE_TYPE_P_E not support force drag mode\n"));
    EXPECT_TRUE(requests("set_force_drag_mode", 0).empty());

    EXPECT_EQ(R"({"command":"set_force_drag_mode","mode":1})",
              one_sent_by([&] { EXPECT_EQ(0, kx_set_force_drag_mode(h(1), 1)); }, 1));
    EXPECT_EQ(0, kx_get_force_drag_mode(h(1), &mode));
    EXPECT_EQ(1, mode);
}

TEST_F(Force, ForcePositionRequestsAndScaling) {
    start(SimSetup{{"AVEN-QS"}});
    /* Truncated, then scaled: -2.7 N is sent as -20. */
    EXPECT_EQ(R"({"command":"set_force_position","sensor":1,"mode":0,"direction":2,"N":-20})",
              one_sent_by([&] { EXPECT_EQ(0, kx_set_force_position(h(), 1, 0, 2, -2.7f)); }));
    EXPECT_EQ(0, kx_stop_force_position(h()));
    EXPECT_EQ(R"({"command":"stop_force_position"})", last_request());

    /* Scaled, then truncated: 2.7 N is sent as 27. */
    kx_force_position_t p{};
    p.sensor = 1;
    p.mode = 1;
    p.control_mode[2] = 1;
    p.desired_force[2] = 2.7f;
    p.limit_vel[2] = 0.05f;
    EXPECT_EQ(R"({"command":"set_force_position","mode":1,"sensor":1,"desired_force":[0,0,27,0,0,0],"control_mode":[0,0,1,0,0,0],"limit_vel":[0,0,50,0,0,0]})",
              one_sent_by([&] { EXPECT_EQ(0, kx_set_force_position_new(h(), p)); }));
    EXPECT_EQ(0, kx_stop_force_position(h()));

    EXPECT_EQ(0, kx_start_force_position_move(h()));
    EXPECT_EQ(R"({"command":"Start_Force_Position_Move"})", last_request());

    /* Streamed targets: the quaternion decides "pose_quat" or "pose". */
    kx_pose_t pose = pose_of(0.3f, 0, 0.4f, 3.1f, 0, 0);
    pose.quaternion = {1, 0, 0, 0};
    EXPECT_EQ(R"({"command":"Force_Position_Move","pose_quat":[300000,0,400000,1000000,0,0,0],"follow":true,"sensor":1,"mode":0,"dir":2,"force":50})",
              one_sent_by([&] { EXPECT_EQ(0, kx_force_position_move_pose(h(), pose, 1, 0, 2, 5.9f, true)); }));
    pose.quaternion = {0, 0, 0, 0};
    EXPECT_EQ(R"({"command":"Force_Position_Move","pose":[300000,0,400000,3100,0,0],"follow":false,"sensor":1,"mode":0,"dir":2,"force":50})",
              one_sent_by([&] { EXPECT_EQ(0, kx_force_position_move_pose(h(), pose, 1, 0, 2, 5.9f, false)); }));
    EXPECT_EQ(R"({"command":"Force_Position_Move","joint":[10000,-20000,30000,0,45000,0],"follow":false,"sensor":0,"mode":0,"dir":2,"force":-30})",
              one_sent_by([&] { EXPECT_EQ(0, kx_force_position_move_joint(h(), kPose1, 0, 0, 2, -3.5f, false)); }));

    /* The record form never carries "desired_force"; a bad radio only warns. */
    kx_force_position_move_t m{};
    m.flag = 0;
    for (int i = 0; i < 6; ++i) m.joint[i] = kPose1[i];
    m.sensor = 1;
    m.desired_force[2] = 3;
    m.control_mode[2] = 1;
    m.limit_vel[2] = 0.1f;
    m.trajectory_mode = 1;
    m.radio = 101;
    clear_log();
    EXPECT_EQ(R"({"command":"Force_Position_Move","follow":false,"sensor":1,"mode":0,"trajectory_mode":1,"radio":101,"control_mode":[0,0,1,0,0,0],"joint":[10000,-20000,30000,0,45000,0],"limit_vel":[0,0,100,0,0,0]})",
              one_sent_by([&] { EXPECT_EQ(0, kx_force_position_move(h(), m)); }));
    EXPECT_TRUE(logged("[kx_force_position_move] kx_force_position_move_t param warn, invaild radio: 101!\n"));
    m.flag = 1;
    m.pose = pose;
    m.trajectory_mode = 0;
    m.radio = 0;
    clear_log();
    std::string line = one_sent_by([&] { EXPECT_EQ(0, kx_force_position_move(h(), m)); });
    EXPECT_NE(std::string::npos, line.find(R"("pose":[300000,0,400000,3100,0,0])"));
    EXPECT_EQ(std::string::npos, line.find("desired_force"));
    EXPECT_FALSE(logged("[kx_force_position_move] kx_force_position_move_t param warn, invaild radio: 0!\n"));
    EXPECT_EQ(0, kx_stop_force_position_move(h()));
    EXPECT_EQ(R"({"command":"Stop_Force_Position_Move"})", last_request());

    /* An unknown handle sends nothing. */
    kx_robot_handle stranger{9};
    EXPECT_EQ(-1, kx_force_position_move_pose(&stranger, pose, 1, 0, 2, 1, false));
    EXPECT_EQ(-1, kx_force_position_move_joint(&stranger, kPose1, 1, 0, 2, 1, false));
}

TEST_F(Force, CommandedForceSettlesOnTheSurface) {
    start(SimSetup{{"AVEN-QS"}});
    ASSERT_EQ(0, kx_clear_force_data(h()));
    ASSERT_EQ(0, kx_set_force_position(h(), 1, 0, 2, 12.0f));
    kx_force_data_t d{};
    EXPECT_TRUE(eventually([&] {
        return kx_get_force_data(h(), &d) == 0 && std::fabs(d.tool_zero_force_data[2] - 12.0f) < 0.01f;
    }));
    ASSERT_EQ(0, kx_stop_force_position(h()));
    EXPECT_TRUE(eventually([&] { return kx_get_force_data(h(), &d) == 0 && std::fabs(d.tool_zero_force_data[2]) < 0.01f; }));

    /* With the surface far below the tool there is nothing to press on. */
    sim->set_surface_height(0, -1.0);
    ASSERT_EQ(0, kx_set_force_position(h(), 1, 0, 2, 12.0f));
    const float nudge[7] = {5, 0, 0, 0, 0, 0, 0}; /* lets simulated time pass while holding */
    ASSERT_EQ(0, kx_movej(h(), nudge, 20, 0, 0, 1));
    ASSERT_EQ(0, kx_get_force_data(h(), &d));
    EXPECT_NEAR(0.0f, d.tool_zero_force_data[2], 0.01f);
}

TEST_F(Force, NonFiniteArgumentsAreNeverSent) {
    start(SimSetup{{"AVEN-QS"}});
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    sim->clear_received(0);
    clear_log();
    EXPECT_EQ(-1, kx_set_force_position(h(), 1, 0, 2, nan));
    EXPECT_TRUE(logged("[kx_set_force_position] N is not a finite number\n"));
    kx_force_position_t p{};
    p.limit_vel[4] = inf;
    EXPECT_EQ(-1, kx_set_force_position_new(h(), p));
    EXPECT_TRUE(logged("[kx_set_force_position_new] limit_vel[4] is not a finite number\n"));
    float joint[7] = {0, 0, nan, 0, 0, 0, 0};
    EXPECT_EQ(-1, kx_force_position_move_joint(h(), joint, 0, 0, 2, 1, false));
    EXPECT_EQ(-1, kx_manual_set_force(h(), 1, joint, false));
    EXPECT_TRUE(logged("[kx_manual_set_force] joint[2] is not a finite number\n"));
    kx_pose_t pose = pose_of(0.3f, inf, 0.4f, 0, 0, 0);
    EXPECT_EQ(-1, kx_force_position_move_pose(h(), pose, 1, 0, 2, 1, false));
    kx_force_position_move_t m{};
    m.flag = 1;
    m.pose = pose_of(0.3f, 0, 0.4f, 0, 0, 0);
    m.desired_force[0] = nan;
    EXPECT_EQ(-1, kx_force_position_move(h(), m));
    kx_waypoint_t w{};
    std::snprintf(w.point_name, sizeof w.point_name, "P");
    w.pose.euler.rz = nan;
    EXPECT_EQ(-1, kx_add_global_waypoint(h(), w));
    EXPECT_TRUE(logged("[kx_add_global_waypoint] pose.euler.rz is not a finite number\n"));
    EXPECT_TRUE(sim->received(0).empty());
}
