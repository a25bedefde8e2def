/* Exact request bytes of every command family, as the controller receives
 * them. */
#include <cstring>
#include <functional>
#include <limits>

#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Wire : public SimFixture {
protected:
    /* Runs f, then returns the one request line it produced. */
    template <class F>
    std::string sent_by(F&& f) {
        sim->clear_received(0);
        f();
        EXPECT_TRUE(sim->wait_received(0, 1, std::chrono::seconds(5)));
        std::vector<std::string> lines = sim->received(0);
        return lines.empty() ? std::string() : lines.front();
    }
};

}  // namespace

TEST_F(Wire, LimitsScaleAndTruncate) {
    start();
    EXPECT_EQ(R"({"command":"set_joint_max_speed","joint_max_speed":[1,30000]})",
              sent_by([&] { kx_set_joint_max_speed(h(), 1, 180.0f); }));
    EXPECT_EQ(R"({"command":"set_joint_max_acc","joint_max_acc":[1,30000]})",
              sent_by([&] { kx_set_joint_max_acc(h(), 1, 180.0f); }));
    /* The drive acceleration alone is not divided by 6. */
    EXPECT_EQ(R"({"command":"set_joint_drive_max_acc","joint_max_acc":[1,180000]})",
              sent_by([&] { kx_set_joint_drive_max_acc(h(), 1, 180.0f); }));
    EXPECT_EQ(R"({"command":"set_joint_drive_max_speed","joint_max_speed":[2,30000]})",
              sent_by([&] { kx_set_joint_drive_max_speed(h(), 2, 180.0f); }));
    EXPECT_EQ(R"({"command":"set_joint_min_pos","joint_min_pos":[3,-179999]})",
              sent_by([&] { kx_set_joint_min_pos(h(), 3, -179.9999f); }));
    EXPECT_EQ(R"({"command":"set_install_pose","pose":[0,90,0]})",
              sent_by([&] { kx_set_install_pose(h(), 0.0f, 90.7f, -0.5f); }));
    EXPECT_EQ(R"({"command":"set_collision_stage","collision_stage":4})",
              sent_by([&] { kx_set_collision_state(h(), 4); }));
    EXPECT_EQ(R"({"command":"set_arm_max_line_speed","arm_line_speed":250})",
              sent_by([&] { kx_set_arm_max_line_speed(h(), 0.25f); }));
    EXPECT_EQ(R"({"command":"auto_set_joint_limit","limit_mode":1})",
              sent_by([&] { kx_auto_set_joint_limit(h(), 1); }));
    const float home[7] = {0, 20, 0, 90.0005f, 0, -0.0009f, 0};
    EXPECT_EQ(R"({"command":"set_init_pose","init_pose":[0,20000,0,90000,0,0]})",
              sent_by([&] { kx_set_init_pose(h(), home); }));
    EXPECT_EQ(R"({"command":"get_joint_max_speed"})", sent_by([&] {
                  float v[7];
                  kx_get_joint_max_speed(h(), v);
              }));
}

TEST_F(Wire, MotionRequests) {
    start();
    const float joint[7] = {0, 20, 0, 90, 0, 0, 0};
    EXPECT_EQ(R"({"command":"movej","v":20,"joint":[0,20000,0,90000,0,0],"trajectory_connect":0,"r":0})",
              sent_by([&] { kx_movej(h(), joint, 20, 0, 0, 0); }));
    kx_set_arm_stop(h());
    kx_pose_t p = pose_of(0.3f, -0.1f, 0.25f, 3.141f, 0.0f, -1.5f);
    EXPECT_EQ(R"({"command":"movel","v":10,"pose":[300000,-100000,250000,3141,0,-1500],"trajectory_connect":1,"r":3})",
              sent_by([&] { kx_movel(h(), p, 10, 3, 1, 0); }));
    kx_set_arm_delete_trajectory(h());
    EXPECT_EQ(R"({"command":"moves","v":10,"pose":[300000,-100000,250000,3141,0,-1500],"trajectory_connect":1,"r":0})",
              sent_by([&] { kx_moves(h(), p, 10, 0, 1, 0); }));
    kx_set_arm_delete_trajectory(h());

    /* The arc nests its poses and sends r in thousandths. */
    kx_pose_t via = pose_of(0.1f, 0, 0.3f, 0, 0, 0);
    EXPECT_EQ(R"({"command":"movec","pose":{"pose_via":[100000,0,300000,0,0,0],"pose_to":[300000,-100000,250000,3141,0,-1500]},"v":5,"r":5000,"loop":2,"trajectory_connect":1})",
              sent_by([&] { kx_movec(h(), via, p, 5, 5, 2, 1, 0); }));
    kx_set_arm_delete_trajectory(h());

    /* An invalid joining flag is refused locally and nothing is sent. */
    sim->clear_received(0);
    EXPECT_EQ(-6, kx_movec(h(), via, p, 5, 5, 0, 2, 1));
    EXPECT_TRUE(logged("[kx_movec] trajectory_connect check err! \n"));
    EXPECT_TRUE(sim->received(0).empty());
}

TEST_F(Wire, StepsTeachAndStop) {
    start();
    EXPECT_EQ(R"({"command":"set_joint_step","joint_step":[2,5000],"v":20})",
              sent_by([&] { EXPECT_EQ(0, kx_set_joint_step(h(), 2, 5.0f, 20, 0)); }));
    EXPECT_EQ(R"({"command":"set_pos_step","v":10,"step":10000,"step_type":"y_step"})",
              sent_by([&] { kx_set_pos_step(h(), KX_Y_DIR_E, 0.01f, 10, 0); }));
    /* An unknown axis adds no step type. */
    EXPECT_EQ(R"({"command":"set_pos_step","v":10,"step":10000})",
              sent_by([&] { kx_set_pos_step(h(), static_cast<kx_pos_teach_type_e>(3), 0.01f, 10, 0); }));
    EXPECT_EQ(R"({"command":"set_ort_step","v":10,"step":-200,"step_type":"rz_step"})",
              sent_by([&] { kx_set_ort_step(h(), KX_RZ_ROTATE_E, -0.2f, 10, 0); }));
    EXPECT_EQ(R"({"command":"set_joint_teach","teach_joint":1,"v":10,"direction":"neg"})",
              sent_by([&] { kx_set_joint_teach(h(), 1, 0, 10); }));
    kx_set_stop_teach(h());
    EXPECT_EQ(R"({"command":"set_joint_teach","teach_joint":1,"v":10,"direction":"pos"})",
              sent_by([&] { kx_set_joint_teach(h(), 1, -3, 10); }));
    EXPECT_EQ(R"({"command":"set_stop_teach"})", sent_by([&] { EXPECT_EQ(0, kx_set_stop_teach(h())); }));
    EXPECT_EQ(R"({"command":"set_pos_teach","teach_type":"z","direction":"pos","v":5})",
              sent_by([&] { kx_set_pos_teach(h(), KX_Z_DIR_E, 1, 5); }));
    kx_set_stop_teach(h());
    EXPECT_EQ(R"({"command":"set_ort_teach","teach_type":"rx","direction":"neg","v":5})",
              sent_by([&] { kx_set_ort_teach(h(), KX_RX_ROTATE_E, 0, 5); }));
    kx_set_stop_teach(h());
    EXPECT_EQ(R"({"command":"set_arm_slow_stop"})", sent_by([&] { kx_set_arm_slow_stop(h()); }));
    EXPECT_EQ(R"({"command":"set_teach_frame","frame_type":1})", sent_by([&] { kx_set_teach_frame(h(), 1); }));
}

TEST_F(Wire, StreamingChoosesQuaternionOrEuler) {
    start();
    float joint[7] = {0, 0, 90, 0, 90, 0, 0};
    kx_movej_canfd_mode_t j{joint, 0.0f, false, 0, 0};
    clear_log();
    EXPECT_EQ(R"({"command":"movej_canfd","joint":[0,0,90000,0,90000,0],"follow":false,"expand":0,"trajectory_mode":0,"radio":0})",
              sent_by([&] { EXPECT_EQ(0, kx_movej_canfd(h(), j)); }));
    EXPECT_FALSE(logged("[kx_movej_canfd] kx_movej_canfd_mode_t config warn, invaild radio: 0!\n"));
    j.trajectory_mode = 1;
    j.radio = 101;
    EXPECT_EQ(R"({"command":"movej_canfd","joint":[0,0,90000,0,90000,0],"follow":false,"expand":0,"trajectory_mode":1,"radio":101})",
              sent_by([&] { kx_movej_canfd(h(), j); }));
    EXPECT_TRUE(logged("[kx_movej_canfd] kx_movej_canfd_mode_t config warn, invaild radio: 101!\n"));

    kx_movep_canfd_mode_t p{};
    p.pose = pose_of(0.1f, 0.2f, 0.3f, 0.5f, 0, 0);
    EXPECT_EQ(R"({"command":"movep_canfd","follow":true,"pose":[100000,200000,300000,500,0,0],"trajectory_mode":0,"radio":0})",
              sent_by([&] {
                  p.follow = true;
                  kx_movep_canfd(h(), p);
              }));
    p.pose.quaternion = {1, 0, 0, 0};
    EXPECT_EQ(R"({"command":"movep_canfd","follow":true,"pose_quat":[100000,200000,300000,1000000,0,0,0],"trajectory_mode":0,"radio":0})",
              sent_by([&] { kx_movep_canfd(h(), p); }));
    /* Unit means a squared norm strictly between 0.99 and 1.1. */
    kx_pose_t f = p.pose;
    f.quaternion = {0.995f, 0, 0, 0};
    EXPECT_EQ(R"({"command":"movep_follow","pose_quat":[100000,200000,300000,995000,0,0,0]})",
              sent_by([&] { kx_movep_follow(h(), f); }));
    f.quaternion = {1.05f, 0, 0, 0};
    EXPECT_EQ(R"({"command":"movep_follow","pose":[100000,200000,300000,500,0,0]})",
              sent_by([&] { kx_movep_follow(h(), f); }));
    EXPECT_EQ(R"({"command":"movej_follow","joint":[0,0,90000,0,90000,0]})",
              sent_by([&] { kx_movej_follow(h(), joint); }));
}

TEST_F(Wire, FramesAndEnvelope) {
    start();
    kx_frame_t tool{};
    std::strcpy(tool.frame_name, "grip");
    tool.pose = pose_of(0, 0, 0.1f, 0, 0, 1.5708f);
    tool.payload = 1.5f;
    tool.x = 0.001f;
    tool.z = 0.05f;
    EXPECT_EQ(R"({"command":"set_manual_tool_frame","tool_name":"grip","payload":1500,"position":[1000,0,50000],"tool_pose":[0,0,100000,0,0,1570]})",
              sent_by([&] { kx_set_manual_tool_frame(h(), tool); }));
    EXPECT_EQ(R"({"command":"generate_auto_tool_frame","tool_name":"t2","payload":500,"position":[0,0,20000]})",
              sent_by([&] { kx_generate_auto_tool_frame(h(), "t2", 0.5f, 0, 0, 0.02f); }));
    EXPECT_EQ(R"({"command":"set_manual_work_frame","frame_name":"desk","frame_pose":[500000,0,0,0,0,0]})",
              sent_by([&] { kx_set_manual_work_frame(h(), "desk", pose_of(0.5f, 0, 0, 0, 0, 0)); }));
    EXPECT_EQ(R"({"command":"get_tool_frame","tool_name":"grip"})", sent_by([&] {
                  kx_frame_t f;
                  kx_get_given_tool_frame(h(), "grip", &f);
              }));

    kx_envelope_balls_list_t env{};
    std::strcpy(env.tool_name, "grip");
    EXPECT_EQ(R"({"command":"set_tool_envelope","tool_name":"grip","list":[]})",
              sent_by([&] { kx_set_tool_envelope(h(), env); }));
    env.size = 9; /* only five balls exist */
    for (int i = 0; i < 5; ++i) {
        std::snprintf(env.balls[i].name, sizeof env.balls[i].name, "b%d", i);
        env.balls[i].radius = 0.05f;
        env.balls[i].z = 0.01f * static_cast<float>(i);
    }
    std::string line = sent_by([&] { kx_set_tool_envelope(h(), env); });
    EXPECT_NE(std::string::npos,
              line.find(R"("list":[{"name":"b0","radius":50,"x":0,"y":0,"z":0},{"name":"b1","radius":50,"x":0,"y":0,"z":10},)"));
    EXPECT_NE(std::string::npos, line.find(R"({"name":"b4","radius":50,"x":0,"y":0,"z":40}]})"));
}

TEST_F(Wire, DhAlwaysSendsSevenJoints) {
    start();
    kx_dh_t dh{};
    dh.d[0] = 0.2405f;
    dh.alpha[1] = -90.0f;
    dh.a[2] = 0.256f;
    dh.offset[1] = -90.0f;
    dh.d[6] = 9.0f; /* ignored on a six-joint arm */
    EXPECT_EQ(R"({"command":"set_DH_data","joint_1":[0,0,240500,0],"joint_2":[-90000,0,0,-90000],"joint_3":[0,256000,0,0],"joint_4":[0,0,0,0],"joint_5":[0,0,0,0],"joint_6":[0,0,0,0],"joint_7":[0,0,0,0]})",
              sent_by([&] { kx_set_DH_data(h(), dh); }));
}

TEST_F(Wire, ControllerCommands) {
    start();
    EXPECT_EQ(R"({"command":"set_NetIP","ip":"192.168.1.18"})", sent_by([&] { kx_set_NetIP(h(), "192.168.1.18"); }));
    EXPECT_EQ(R"({"command":"set_wifi_ap","wifi_name":"arm","password":"secret"})",
              sent_by([&] { EXPECT_EQ(0, kx_set_wifi_ap(h(), "arm", "secret")); }));
    EXPECT_EQ(R"({"command":"set_usb","baudrate":460800})", sent_by([&] { EXPECT_EQ(0, kx_set_usb(h(), 460800)); }));
    EXPECT_EQ(R"({"command":"set_arm_power","arm_power":1})", sent_by([&] { kx_set_arm_power(h(), 1); }));
    EXPECT_EQ(R"({"command":"get_arm_software_info"})", sent_by([&] {
                  kx_arm_software_version_t v;
                  kx_get_arm_software_info(h(), &v);
              }));
}

/* A NaN or infinite argument never reaches the arm: the call fails with -1
 * and names the argument, and the next request on the connection is the
 * first thing the controller sees. */
TEST_F(Wire, NonFiniteArgumentsAreNeverSent) {
    start();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    float joint[7] = {0, 20, nan, 90, 0, 0, 0};
    kx_pose_t pose = pose_of(0.3f, 0, 0.4f, 3.14f, 0, 0);
    kx_pose_t bad_pose = pose;
    bad_pose.euler.ry = -inf;
    kx_frame_t frame{};
    std::strcpy(frame.frame_name, "tool1");
    frame.payload = inf;
    kx_dh_t dh{};
    dh.a[4] = nan;
    kx_envelope_balls_list_t env{};
    env.size = 2;
    env.balls[1].z = nan;
    kx_movej_canfd_mode_t canfd{};
    canfd.joint = joint;
    kx_movep_canfd_mode_t canfdp{};
    canfdp.pose = bad_pose;
    struct Case {
        std::string log;
        std::function<int()> call;
    };
    const std::vector<Case> cases = {
        {"[kx_movej] joint[2] is not a finite number", [&] { return kx_movej(h(), joint, 20, 0, 0, 1); }},
        {"[kx_movel] pose.euler.ry is not a finite number", [&] { return kx_movel(h(), bad_pose, 20, 0, 0, 0); }},
        {"[kx_movec] pose_to.euler.ry is not a finite number",
         [&] { return kx_movec(h(), pose, bad_pose, 20, 0, 0, 0, 0); }},
        {"[kx_movej_p] pose.euler.ry is not a finite number",
         [&] { return kx_movej_p(h(), bad_pose, 20, 0, 0, 0); }},
        {"[kx_movej_canfd] joint[2] is not a finite number", [&] { return kx_movej_canfd(h(), canfd); }},
        {"[kx_movep_canfd] pose.euler.ry is not a finite number", [&] { return kx_movep_canfd(h(), canfdp); }},
        {"[kx_movej_follow] joint[2] is not a finite number", [&] { return kx_movej_follow(h(), joint); }},
        {"[kx_set_joint_step] step is not a finite number", [&] { return kx_set_joint_step(h(), 1, nan, 10, 0); }},
        {"[kx_set_pos_step] step is not a finite number",
         [&] { return kx_set_pos_step(h(), KX_X_DIR_E, inf, 10, 0); }},
        {"[kx_set_joint_max_speed] value is not a finite number",
         [&] { return kx_set_joint_max_speed(h(), 1, nan); }},
        {"[kx_set_arm_max_line_speed] value is not a finite number",
         [&] { return kx_set_arm_max_line_speed(h(), inf); }},
        {"[kx_set_init_pose] joint[2] is not a finite number", [&] { return kx_set_init_pose(h(), joint); }},
        {"[kx_set_install_pose] y is not a finite number", [&] { return kx_set_install_pose(h(), 0, nan, 0); }},
        {"[kx_generate_auto_tool_frame] z is not a finite number",
         [&] { return kx_generate_auto_tool_frame(h(), "t", 1, 0, 0, -inf); }},
        {"[kx_set_manual_tool_frame] frame.payload is not a finite number",
         [&] { return kx_set_manual_tool_frame(h(), frame); }},
        {"[kx_update_work_frame] pose.euler.ry is not a finite number",
         [&] { return kx_update_work_frame(h(), "w", bad_pose); }},
        {"[kx_set_tool_envelope] envelope.balls[1].z is not a finite number",
         [&] { return kx_set_tool_envelope(h(), env); }},
        {"[kx_set_DH_data] dh.a[4] is not a finite number", [&] { return kx_set_DH_data(h(), dh); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.log);
        clear_log();
        sim->clear_received(0);
        EXPECT_EQ(-1, c.call());
        EXPECT_TRUE(logged(c.log + "\n"));
        EXPECT_EQ(R"({"command":"get_joint_max_speed"})", sent_by([&] {
                      float v[7];
                      kx_get_joint_max_speed(h(), v);
                  }));
        EXPECT_FALSE(sim->moving(0));
    }
}
