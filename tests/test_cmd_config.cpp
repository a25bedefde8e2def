/* Configuration round trips against the simulated controller, and the
 * connection record's cached copies they keep current. */
#include <cstring>

#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Config : public SimFixture {};

}  // namespace

TEST_F(Config, ConnectionSetUpFillsTheRecord) {
    start(SimSetup{{"AVEN-P", "BRIV-QA"}});
    ASSERT_EQ(1, h(0)->id);
    ASSERT_EQ(2, h(1)->id);
    kx_robot_info_t info{};
    ASSERT_EQ(0, kx_get_robot_info(h(1), &info));
    EXPECT_EQ(KX_MODEL_BRIV_E, info.arm_model);
    EXPECT_EQ(7, info.arm_dof);
    EXPECT_EQ(KX_FORCE_TYPE_QA_E, info.force_type);

    /* The cache holds what the getters report. */
    for (int arm = 0; arm < 2; ++arm) {
        SCOPED_TRACE(arm);
        kx_handle_t* rec = record(arm);
        float v[7] = {};
        ASSERT_EQ(0, kx_get_joint_max_pos(h(arm), v));
        for (int i = 0; i < rec->arm_dof; ++i) {
            EXPECT_FLOAT_EQ(v[i], rec->joint_max_limit[i]);
            EXPECT_GT(rec->joint_max_limit[i], rec->joint_min_limit[i]);
            EXPECT_GT(rec->joint_max_speed[i], 0.0f);
            EXPECT_GT(rec->joint_max_acc[i], 0.0f);
        }
        kx_dh_t dh{};
        ASSERT_EQ(0, kx_get_DH_data(h(arm), &dh));
        EXPECT_EQ(0, std::memcmp(&dh, &rec->dh, sizeof dh));
    }
}

TEST_F(Config, LimitSettersRefreshTheCache) {
    start();
    kx_handle_t* rec = record();
    float before[7];
    std::memcpy(before, rec->joint_min_limit, sizeof before);

    ASSERT_EQ(0, kx_set_joint_min_pos(h(), 2, -100.5f));
    EXPECT_FLOAT_EQ(-100.5f, rec->joint_min_limit[1]);
    EXPECT_FLOAT_EQ(before[0], rec->joint_min_limit[0]);
    ASSERT_EQ(0, kx_set_joint_max_pos(h(), 3, 99.25f));
    EXPECT_FLOAT_EQ(99.25f, rec->joint_max_limit[2]);
    ASSERT_EQ(0, kx_set_joint_max_speed(h(), 1, 90.0f));
    EXPECT_FLOAT_EQ(90.0f, rec->joint_max_speed[0]);
    ASSERT_EQ(0, kx_set_joint_max_acc(h(), 6, 300.0f));
    EXPECT_FLOAT_EQ(300.0f, rec->joint_max_acc[5]);

    float speed[7] = {};
    ASSERT_EQ(0, kx_get_joint_max_speed(h(), speed));
    EXPECT_FLOAT_EQ(90.0f, speed[0]);

    /* Restoring the automatic limits refreshes both position limits. */
    ASSERT_EQ(0, kx_auto_set_joint_limit(h(), 1));
    float max_pos[7] = {};
    ASSERT_EQ(0, kx_get_joint_max_pos(h(), max_pos));
    EXPECT_EQ(0, std::memcmp(max_pos, rec->joint_max_limit, sizeof(float) * 6));

    ASSERT_EQ(0, kx_set_install_pose(h(), 0.0f, 90.7f, 0.0f));
    EXPECT_FLOAT_EQ(90.0f, rec->install_angle[1]);
    float x, y, z;
    ASSERT_EQ(0, kx_get_install_pose(h(), &x, &y, &z));
    EXPECT_FLOAT_EQ(90.0f, y);

    ASSERT_EQ(0, kx_set_arm_max_line_speed(h(), 0.5f));
    float line = 0;
    ASSERT_EQ(0, kx_get_arm_max_line_speed(h(), &line));
    EXPECT_FLOAT_EQ(0.5f, line);
    ASSERT_EQ(0, kx_set_collision_state(h(), 3));
    int stage = -1;
    ASSERT_EQ(0, kx_get_collision_stage(h(), &stage));
    EXPECT_EQ(3, stage);

    const float home[7] = {0, 10, 20, 30, 40, 50, 0};
    ASSERT_EQ(0, kx_set_init_pose(h(), home));
    float got[7] = {};
    ASSERT_EQ(0, kx_get_init_pose(h(), got));
    EXPECT_FLOAT_EQ(50.0f, got[5]);
}

TEST_F(Config, ToolFramesRoundTrip) {
    start();
    kx_frame_name_t names[10];
    int before = 0;
    ASSERT_EQ(0, kx_get_total_tool_frame(h(), names, &before));
    ASSERT_GE(before, 1);
    std::string original = names[0].name;

    kx_frame_t tool{};
    std::strcpy(tool.frame_name, "grip");
    tool.pose = pose_of(0.01f, 0.0f, 0.12f, 0.0f, 0.0f, 1.571f);
    tool.payload = 1.25f;
    tool.z = 0.04f;
    ASSERT_EQ(0, kx_set_manual_tool_frame(h(), tool));
    /* The name exists now: creating it again is refused. */
    clear_log();
    EXPECT_EQ(1, kx_set_manual_tool_frame(h(), tool));
    EXPECT_TRUE(logged("[kx_set_manual_tool_frame] Failed to create the tool frame system, please check if the name "
                       "already exists"));

    int len = 0;
    ASSERT_EQ(0, kx_get_total_tool_frame(h(), names, &len));
    EXPECT_EQ(before + 1, len);

    ASSERT_EQ(0, kx_change_tool_frame(h(), "grip"));
    const kx_frame_t& cached = record()->tool_frame;
    EXPECT_STREQ("grip", cached.frame_name);
    EXPECT_FLOAT_EQ(0.12f, cached.pose.position.z);
    EXPECT_FLOAT_EQ(1.571f, cached.pose.euler.rz);
    EXPECT_FLOAT_EQ(1.25f, cached.payload);
    EXPECT_FLOAT_EQ(0.04f, cached.z);

    kx_frame_t given{};
    ASSERT_EQ(0, kx_get_given_tool_frame(h(), "grip", &given));
    EXPECT_FLOAT_EQ(0.01f, given.pose.position.x);

    tool.payload = 2.0f;
    ASSERT_EQ(0, kx_update_tool_frame(h(), tool));
    kx_frame_t current{};
    ASSERT_EQ(0, kx_get_current_tool_frame(h(), &current));
    EXPECT_FLOAT_EQ(2.0f, current.payload);

    kx_envelope_balls_list_t env{};
    std::strcpy(env.tool_name, "grip");
    env.size = 2;
    std::strcpy(env.balls[0].name, "a");
    env.balls[0].radius = 0.05f;
    std::strcpy(env.balls[1].name, "b");
    env.balls[1].radius = 0.02f;
    env.balls[1].z = 0.1f;
    ASSERT_EQ(0, kx_set_tool_envelope(h(), env));
    kx_envelope_balls_list_t back{};
    ASSERT_EQ(0, kx_get_tool_envelope(h(), "grip", &back));
    EXPECT_EQ(2, back.size);
    EXPECT_STREQ("b", back.balls[1].name);
    EXPECT_FLOAT_EQ(0.1f, back.balls[1].z);

    ASSERT_EQ(0, kx_change_tool_frame(h(), original.c_str()));
    EXPECT_STREQ(original.c_str(), record()->tool_frame.frame_name);
    ASSERT_EQ(0, kx_delete_tool_frame(h(), "grip"));
    ASSERT_EQ(0, kx_get_total_tool_frame(h(), names, &len));
    EXPECT_EQ(before, len);
    EXPECT_EQ(1, kx_get_given_tool_frame(h(), "grip", &given));
}

TEST_F(Config, WorkFramesRoundTrip) {
    start();
    kx_frame_name_t names[10];
    int before = 0;
    ASSERT_EQ(0, kx_get_total_work_frame(h(), names, &before));
    std::string original = names[0].name;

    ASSERT_EQ(0, kx_set_manual_work_frame(h(), "desk", pose_of(0.5f, -0.25f, 0.1f, 0, 0, 0.5f)));
    int len = 0;
    ASSERT_EQ(0, kx_get_total_work_frame(h(), names, &len));
    EXPECT_EQ(before + 1, len);
    ASSERT_EQ(0, kx_change_work_frame(h(), "desk"));
    EXPECT_STREQ("desk", record()->work_frame.frame_name);
    EXPECT_FLOAT_EQ(-0.25f, record()->work_frame.pose.position.y);

    ASSERT_EQ(0, kx_update_work_frame(h(), "desk", pose_of(0.5f, -0.25f, 0.2f, 0, 0, 0.5f)));
    kx_pose_t p{};
    ASSERT_EQ(0, kx_get_given_work_frame(h(), "desk", &p));
    EXPECT_FLOAT_EQ(0.2f, p.position.z);
    EXPECT_FLOAT_EQ(0.5f, p.euler.rz);

    ASSERT_EQ(0, kx_change_work_frame(h(), original.c_str()));
    ASSERT_EQ(0, kx_delete_work_frame(h(), "desk"));
    EXPECT_STREQ(original.c_str(), record()->work_frame.frame_name);
    ASSERT_EQ(0, kx_get_total_work_frame(h(), names, &len));
    EXPECT_EQ(before, len);
}

TEST_F(Config, DhRoundTripRefreshesTheCache) {
    start(SimSetup{{"BRIV-P"}});
    kx_dh_t dh{};
    ASSERT_EQ(0, kx_get_DH_data(h(), &dh));
    dh.d[0] = 0.3125f;
    dh.alpha[6] = -90.0f;
    ASSERT_EQ(0, kx_set_DH_data(h(), dh));
    kx_dh_t back{};
    ASSERT_EQ(0, kx_get_DH_data(h(), &back));
    EXPECT_FLOAT_EQ(0.3125f, back.d[0]);
    EXPECT_FLOAT_EQ(-90.0f, back.alpha[6]);
    EXPECT_FLOAT_EQ(0.3125f, record()->dh.d[0]);
    ASSERT_EQ(0, kx_set_DH_data_default(h()));
}

TEST_F(Config, ArmStateMatchesTheController) {
    start();
    const float target[7] = {5, -10, 20, 0, 30, 45, 0};
    ASSERT_EQ(0, kx_movej(h(), target, 50, 0, 0, 1));
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    std::vector<double> q = sim->joints(0);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(q[static_cast<size_t>(i)], st.joint[i], 1e-3);
    /* The pose is the forward kinematics of those joints. */
    kx_pose_t fk = kx_algo_forward_kinematics(h(), st.joint);
    EXPECT_NEAR(fk.position.x, st.pose.position.x, 1e-4);
    EXPECT_NEAR(fk.position.z, st.pose.position.z, 1e-4);
    float n = st.pose.quaternion.w * st.pose.quaternion.w + st.pose.quaternion.x * st.pose.quaternion.x +
              st.pose.quaternion.y * st.pose.quaternion.y + st.pose.quaternion.z * st.pose.quaternion.z;
    EXPECT_NEAR(1.0f, n, 1e-5);

    float degree[7] = {};
    ASSERT_EQ(0, kx_get_joint_degree(h(), degree));
    EXPECT_NEAR(45.0f, degree[5], 1e-3);

    kx_arm_software_version_t v{};
    ASSERT_EQ(0, kx_get_arm_software_info(h(), &v));
    EXPECT_STREQ("AVEN-P", v.product_version);
    float volt, cur, temp;
    int err = -1;
    ASSERT_EQ(0, kx_get_controller_state(h(), &volt, &cur, &temp, &err));
    int day, hour, min, sec;
    ASSERT_EQ(0, kx_get_system_runtime(h(), &day, &hour, &min, &sec));
    char ip[16], mask[16], mac[18];
    ASSERT_EQ(0, kx_get_wired_net(h(), ip, mask, mac));
    EXPECT_STREQ("255.255.255.0", mask);
}
