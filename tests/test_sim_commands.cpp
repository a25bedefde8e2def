// Reply names, keys and state round trips of the configuration families.
#include <gtest/gtest.h>

#include "test_sim_client.h"

using namespace simtest;

namespace {

struct Commands : ::testing::Test {
    kxsim::Simulator sim{options({"AVEN-QA", "BRIV-P"})};
    std::unique_ptr<Peer> p, p7;
    void SetUp() override {
        ASSERT_TRUE(sim.start());
        p = std::make_unique<Peer>(sim, 0);
        p7 = std::make_unique<Peer>(sim, 1);
    }
    /* The outcome boolean `key` of the reply to `req` named `reply`. */
    int verdict(const std::string& req, const std::string& reply, const char* key) {
        Json j = p->ask(req, reply);
        return j ? flag(j.get(), key) : -2;
    }
};

}  // namespace

TEST_F(Commands, JointLimitsRoundTripInWireUnits) {
    EXPECT_EQ(verdict("{\"command\":\"set_joint_max_speed\",\"joint_max_speed\":[1,30000]}", "set_joint_max_speed",
                      "joint_max_speed"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_joint_max_speed\"}", "joint_max_speed").get(), "joint_speed")[0], 30000);
    // Drive limits are separate and keep what was sent, unscaled.
    EXPECT_EQ(verdict("{\"command\":\"set_joint_drive_max_acc\",\"joint_max_acc\":[2,180000]}",
                      "set_joint_drive_max_acc", "joint_max_acc"), 1);
    auto acc = ints(p->ask("{\"command\":\"get_joint_drive_max_acc\"}").get(), "joint_acc");
    ASSERT_EQ(acc.size(), 6u);
    EXPECT_EQ(acc[1], 180000);
    EXPECT_NE(ints(p->ask("{\"command\":\"get_joint_max_acc\"}", "joint_max_acc").get(), "joint_acc")[1], 180000);

    EXPECT_EQ(verdict("{\"command\":\"set_joint_min_pos\",\"joint_min_pos\":[3,-179999]}", "set_joint_min_pos",
                      "joint_min_pos"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_joint_min_pos\"}", "joint_min_pos").get(), "min_pos")[2], -179999);
    // A lower limit above the upper one, joint 0 or 7 of a six-joint arm, a
    // zero speed: refused, nothing changes.
    EXPECT_EQ(verdict("{\"command\":\"set_joint_min_pos\",\"joint_min_pos\":[3,400000]}", "set_joint_min_pos",
                      "joint_min_pos"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_joint_max_pos\",\"joint_max_pos\":[7,1000]}", "set_joint_max_pos",
                      "joint_max_pos"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_joint_max_speed\",\"joint_max_speed\":[0,1000]}", "set_joint_max_speed",
                      "joint_max_speed"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_joint_max_acc\",\"joint_max_acc\":[1,0]}", "set_joint_max_acc",
                      "joint_max_acc"), 0);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_joint_min_pos\"}", "joint_min_pos").get(), "min_pos")[2], -179999);

    // Restoring the limits answers under the name with the trailing blank.
    p->send_line("{\"command\":\"auto_set_joint_limit\",\"limit_mode\":1}");
    EXPECT_EQ(p->line(), "{\"command\":\"auto_set_joint_limit \",\"limit_mode\":true}");
    EXPECT_NE(ints(p->ask("{\"command\":\"get_joint_min_pos\"}", "joint_min_pos").get(), "min_pos")[2], -179999);

    // The seven-joint arm reports seven of everything.
    Peer& q = *p7;
    EXPECT_EQ(ints(q.ask("{\"command\":\"get_joint_max_pos\"}", "joint_max_pos").get(), "max_pos").size(), 7u);
    EXPECT_EQ(ints(q.ask("{\"command\":\"get_joint_en_state\"}", "joint_en_state").get(), "en_state").size(), 7u);
    auto err = q.ask("{\"command\":\"get_joint_err_flag\"}", "joint_err_flag");
    EXPECT_EQ(ints(err.get(), "err_flag").size(), 7u);
    EXPECT_EQ(ints(err.get(), "brake_state").size(), 7u);
}

TEST_F(Commands, ArmLimitsCollisionInitAndInstallPose) {
    EXPECT_EQ(verdict("{\"command\":\"set_arm_max_line_speed\",\"arm_line_speed\":1500}", "set_arm_max_line_speed",
                      "arm_line_speed"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_arm_max_line_speed\"}", "arm_max_line_speed").get(), "arm_line_speed"),
              1500);
    EXPECT_EQ(verdict("{\"command\":\"set_arm_max_angular_acc\",\"arm_angular_acc\":-1}", "set_arm_max_angular_acc",
                      "arm_angular_acc"), 0);
    // The stage is set by one name and answered by another.
    EXPECT_EQ(verdict("{\"command\":\"set_collision_stage\",\"collision_stage\":4}", "set_collision_state",
                      "collision_state"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_collision_stage\"}").get(), "collision_stage"), 4);
    EXPECT_EQ(verdict("{\"command\":\"set_collision_stage\",\"collision_stage\":9}", "set_collision_state",
                      "collision_state"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_arm_init\"}", "set_arm_init", "arm_init"), 1);

    EXPECT_EQ(verdict("{\"command\":\"set_init_pose\",\"init_pose\":[0,10000,20000,0,-5000,1]}", "set_init_pose",
                      "init_pose"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_init_pose\"}", "arm_init_pose").get(), "init_pose"),
              (std::vector<int>{0, 10000, 20000, 0, -5000, 1}));
    EXPECT_EQ(verdict("{\"command\":\"set_init_pose\",\"init_pose\":[0,0,0]}", "set_init_pose", "init_pose"), 0);

    EXPECT_EQ(verdict("{\"command\":\"set_install_pose\",\"pose\":[0,90,0]}", "set_install_pose", "set_state"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_install_pose\"}", "install_pose").get(), "pose"),
              (std::vector<int>{0, 90, 0}));
}

TEST_F(Commands, ToolAndWorkFramesAreManagedByName) {
    const std::string tool =
        "{\"command\":\"set_manual_tool_frame\",\"tool_name\":\"grip\",\"payload\":1500,"
        "\"position\":[0,0,50000],\"tool_pose\":[0,0,100000,0,0,1571]}";
    EXPECT_EQ(verdict(tool, "set_manual_tool_frame", "manual_tool_frame"), 1);
    EXPECT_EQ(verdict(tool, "set_manual_tool_frame", "manual_tool_frame"), 0);  // duplicate name
    auto names = p->ask("{\"command\":\"get_total_tool_frame\"}", "total_tool_frame");
    ASSERT_TRUE(names);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(names.get(), "tool_names")), 2);

    auto given = p->ask("{\"command\":\"get_tool_frame\",\"tool_name\":\"grip\"}", "given_tool_frame");
    ASSERT_TRUE(given);
    EXPECT_EQ(ints(given.get(), "pose"), (std::vector<int>{0, 0, 100000, 0, 0, 1571}));
    EXPECT_EQ(num(given.get(), "payload"), 1500);
    EXPECT_EQ(ints(given.get(), "position"), (std::vector<int>{0, 0, 50000}));
    p->send_line("{\"command\":\"get_tool_frame\",\"tool_name\":\"none\"}");
    EXPECT_EQ(p->line(), "{\"command\":\"get_tool_frame\",\"get_state\":false}");

    // The active frame moves the reported pose; it cannot be deleted.
    auto pose_z = [&] {
        Json st = p->ask("{\"command\":\"get_current_arm_state\"}", "current_arm_state");
        return ints(cJSON_GetObjectItem(st.get(), "arm_state"), "pose")[2];
    };
    const int z0 = pose_z();
    EXPECT_EQ(verdict("{\"command\":\"set_change_tool_frame\",\"tool_name\":\"grip\"}", "set_change_tool_frame",
                      "change_tool_frame"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_current_tool_frame\"}", "current_tool_frame").get(), "payload"), 1500);
    EXPECT_NE(pose_z(), z0);
    EXPECT_EQ(verdict("{\"command\":\"set_delete_tool_frame\",\"tool_name\":\"grip\"}", "set_delete_tool_frame",
                      "delete_tool_frame"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_delete_tool_frame\",\"tool_name\":\"ghost\"}", "set_delete_tool_frame",
                      "delete_tool_frame"), 0);
    EXPECT_EQ(verdict("{\"command\":\"update_tool_frame\",\"tool_name\":\"grip\",\"payload\":0,\"position\":[0,0,0],"
                      "\"tool_pose\":[0,0,0,0,0,0]}", "update_tool_frame", "update_state"), 1);
    EXPECT_EQ(pose_z(), z0);
    EXPECT_EQ(verdict("{\"command\":\"set_change_tool_frame\",\"tool_name\":\"Arm_Tip\"}", "set_change_tool_frame",
                      "change_tool_frame"), 1);
    EXPECT_EQ(verdict("{\"command\":\"set_delete_tool_frame\",\"tool_name\":\"grip\"}", "set_delete_tool_frame",
                      "delete_tool_frame"), 1);

    // Envelopes: at most five balls, only on an existing tool.
    std::string balls;
    for (int i = 0; i < 6; ++i)
        balls += std::string(i ? "," : "") + "{\"name\":\"b" + std::to_string(i) +
                 "\",\"radius\":50,\"x\":0,\"y\":0,\"z\":" + std::to_string(i * 10) + "}";
    EXPECT_EQ(verdict("{\"command\":\"set_tool_envelope\",\"tool_name\":\"Arm_Tip\",\"list\":[" + balls + "]}",
                      "set_tool_envelope", "set_state"), 0);
    balls = balls.substr(0, balls.rfind(",{"));
    EXPECT_EQ(verdict("{\"command\":\"set_tool_envelope\",\"tool_name\":\"Arm_Tip\",\"list\":[" + balls + "]}",
                      "set_tool_envelope", "set_state"), 1);
    EXPECT_EQ(verdict("{\"command\":\"set_tool_envelope\",\"tool_name\":\"grip\",\"list\":[]}", "set_tool_envelope",
                      "set_state"), 0);
    auto env = p->ask("{\"command\":\"get_tool_envelope\",\"tool_name\":\"Arm_Tip\"}");
    ASSERT_TRUE(env);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(env.get(), "list")), 5);
    EXPECT_EQ(num(cJSON_GetArrayItem(cJSON_GetObjectItem(env.get(), "list"), 4), "z"), 40);

    // Work frames, with their own keys.
    EXPECT_EQ(verdict("{\"command\":\"set_manual_work_frame\",\"frame_name\":\"table\",\"frame_pose\":[100000,0,0,0,0,0]}",
                      "set_manual_work_frame", "manual_work_frame"), 1);
    EXPECT_EQ(verdict("{\"command\":\"set_change_work_frame\",\"frame_name\":\"table\"}", "set_change_work_frame",
                      "change_work_frame"), 1);
    auto cw = p->ask("{\"command\":\"get_current_work_frame\"}", "current_work_frame");
    ASSERT_TRUE(cw);
    EXPECT_STREQ(cJSON_GetObjectItem(cw.get(), "frame_name")->valuestring, "table");
    EXPECT_EQ(ints(cw.get(), "pose")[0], 100000);
    EXPECT_EQ(verdict("{\"command\":\"set_delete_work_frame\",\"frame_name\":\"table\"}", "set_delete_work_frame",
                      "delete_work_frame"), 0);
    p->send_line("{\"command\":\"get_work_frame\",\"frame_name\":\"nope\"}");
    EXPECT_EQ(p->line(), "{\"command\":\"get_work_frame\",\"get_state\":false}");
    auto works = p->ask("{\"command\":\"get_total_work_frame\"}", "total_work_frame");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(works.get(), "frame_names")), 2);
}

TEST_F(Commands, ControllerSystemAndVersions) {
    auto info = p->ask("{\"command\":\"get_arm_software_info\"}", "arm_software_info");
    ASSERT_TRUE(info);
    EXPECT_STREQ(cJSON_GetObjectItem(info.get(), "Product_version")->valuestring, "AVEN-QA");
    for (const char* o : {"algorithm_info", "ctrl_info", "dynamic_info", "plan_info"})
        EXPECT_TRUE(cJSON_IsObject(cJSON_GetObjectItem(info.get(), o))) << o;
    EXPECT_TRUE(cJSON_IsString(cJSON_GetObjectItem(cJSON_GetObjectItem(info.get(), "ctrl_info"), "build_time")));
    sim.set_product_version(0, "XYZ-P");
    EXPECT_STREQ(cJSON_GetObjectItem(p->ask("{\"command\":\"get_arm_software_info\"}", "arm_software_info").get(),
                                     "Product_version")->valuestring, "XYZ-P");

    EXPECT_EQ(verdict("{\"command\":\"set_arm_power\",\"arm_power\":0}", "set_arm_power", "arm_power"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_arm_power_state\"}", "arm_power_state").get(), "power_state"), 0);
    // A powered-down arm refuses to move.
    EXPECT_EQ(verdict("{\"command\":\"movej\",\"v\":20,\"joint\":[0,0,1000,0,0,0],\"trajectory_connect\":0,\"r\":0}",
                      "movej", "receive_state"), 0);

    auto rt = p->ask("{\"command\":\"get_system_runtime\"}");
    for (const char* k : {"day", "hour", "min", "sec"}) EXPECT_GE(num(rt.get(), k), 0) << k;
    for (const char* c : {"clear_system_runtime", "clear_joint_odom", "clear_system_err"})
        EXPECT_EQ(verdict(std::string("{\"command\":\"") + c + "\"}", c, "clear_state"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_joint_odom\"}").get(), "odom").size(), 6u);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_controller_state\"}", "controller_state").get(), "err_flag"), 0);

    EXPECT_EQ(verdict("{\"command\":\"set_NetIP\",\"ip\":\"10.0.0.7\"}", "set_NetIP", "status"), 1);
    EXPECT_EQ(verdict("{\"command\":\"set_NetIP\",\"ip\":\"10.0.0\"}", "set_NetIP", "status"), 0);
    EXPECT_STREQ(cJSON_GetObjectItem(p->ask("{\"command\":\"get_wired_net\"}").get(), "ip")->valuestring, "10.0.0.7");
    p->send_line("{\"command\":\"set_wifi_ap\",\"wifi_name\":\"cell\",\"password\":\"12345678\"}");
    auto wifi = p->ask("{\"command\":\"get_wifi_net\"}");
    ASSERT_TRUE(wifi);
    EXPECT_STREQ(cJSON_GetObjectItem(wifi.get(), "mode")->valuestring, "ap");
    EXPECT_STREQ(cJSON_GetObjectItem(wifi.get(), "ssid")->valuestring, "cell");
    EXPECT_GT(num(wifi.get(), "channel"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_wifi_close\"}", "set_wifi_close", "wifi_close_state"), 1);
    EXPECT_EQ(cJSON_GetObjectItem(p->ask("{\"command\":\"get_wifi_net\"}").get(), "ssid"), nullptr);

    EXPECT_EQ(verdict("{\"command\":\"set_arm_run_mode\",\"mode\":2}", "set_arm_run_mode", "mode"), 1);
    EXPECT_EQ(num(p->ask("{\"command\":\"get_arm_run_mode\"}").get(), "mode"), 2);
    EXPECT_EQ(ints(p7->ask("{\"command\":\"get_joint_software_version\"}", "joint_software_version").get(), "version")
                  .size(), 7u);
    EXPECT_NE(num(p->ask("{\"command\":\"get_tool_software_version\"}", "tool_software_version").get(), "version"),
              -999999);
}

TEST_F(Commands, StateReadingsAndDh) {
    auto st = p7->ask("{\"command\":\"get_current_arm_state\"}", "current_arm_state");
    ASSERT_TRUE(st);
    const cJSON* s = cJSON_GetObjectItem(st.get(), "arm_state");
    EXPECT_EQ(ints(s, "joint").size(), 7u);
    EXPECT_EQ(ints(s, "pose").size(), 6u);
    EXPECT_EQ(ints(s, "err"), std::vector<int>{0});
    auto all = p7->ask("{\"command\":\"get_arm_all_state\"}", "arm_all_state");
    for (const char* k : {"temperature", "current", "voltage", "err_flag", "en_flag"})
        EXPECT_EQ(ints(cJSON_GetObjectItem(all.get(), "all_state"), k).size(), 7u) << k;
    const struct {
        const char *req, *reply, *key;
    } readings[] = {{"get_current_joint_temperature", "current_joint_temperature", "joint_temperature"},
                    {"get_current_joint_current", "current_joint_current", "joint_current"},
                    {"get_current_joint_voltage", "current_joint_voltage", "joint_voltage"},
                    {"get_joint_degree", "joint_degree", "joint"}};
    for (const auto& r : readings)
        EXPECT_EQ(ints(p->ask(std::string("{\"command\":\"") + r.req + "\"}", r.reply).get(), r.key).size(), 6u);

    // DH: six rows for six joints, seven for seven; what is set reads back exactly.
    auto dh = p->ask("{\"command\":\"get_DH_data\"}");
    ASSERT_TRUE(dh);
    EXPECT_EQ(ints(dh.get(), "joint_6").size(), 4u);
    EXPECT_EQ(cJSON_GetObjectItem(dh.get(), "joint_7"), nullptr);
    EXPECT_EQ(ints(p7->ask("{\"command\":\"get_DH_data\"}").get(), "joint_7").size(), 4u);
    std::string set = "{\"command\":\"set_DH_data\"";
    for (int j = 1; j <= 7; ++j)
        set += ",\"joint_" + std::to_string(j) + "\":" + (j == 7 ? "[0,0,0,0]" : "[-90000,10000,240500," + std::to_string(j) + "]");
    EXPECT_EQ(verdict(set + "}", "set_DH_data", "set_state"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_DH_data\"}").get(), "joint_3"), (std::vector<int>{-90000, 10000, 240500, 3}));
    EXPECT_EQ(verdict("{\"command\":\"set_DH_data\",\"joint_1\":[1,2,3]}", "set_DH_data", "set_state"), 0);
    EXPECT_EQ(verdict("{\"command\":\"set_DH_data_default\"}", "set_DH_data_default", "set_state"), 1);
    EXPECT_EQ(ints(p->ask("{\"command\":\"get_DH_data\"}").get(), "joint_1"), ints(dh.get(), "joint_1"));
}

TEST_F(Commands, RealtimePushConfiguration) {
    auto cfg = p->ask("{\"command\":\"get_realtime_push\"}");
    ASSERT_TRUE(cfg);
    for (const char* k : {"cycle", "port", "force_coordinate"}) EXPECT_NE(num(cfg.get(), k), -999999) << k;
    EXPECT_EQ(flag(cfg.get(), "enable"), 0);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(cfg.get(), "custom")), 6);
    // No force member on an arm without a sensor.
    EXPECT_EQ(cJSON_GetObjectItem(p7->ask("{\"command\":\"get_realtime_push\"}").get(), "force_coordinate"), nullptr);

    EXPECT_EQ(verdict("{\"command\":\"set_realtime_push\",\"enable\":true,\"cycle\":5,\"port\":9001,"
                      "\"ip\":\"127.0.0.2\",\"force_cordinate\":1,\"custom\":{\"hand\":true,\"joint_speed\":true}}",
                      "set_realtime_push", "state"), 1);
    cfg = p->ask("{\"command\":\"get_realtime_push\"}");
    EXPECT_EQ(num(cfg.get(), "cycle"), 5);
    EXPECT_EQ(num(cfg.get(), "port"), 9001);
    EXPECT_STREQ(cJSON_GetObjectItem(cfg.get(), "ip")->valuestring, "127.0.0.2");
    EXPECT_EQ(num(cfg.get(), "force_coordinate"), 1);
    EXPECT_EQ(flag(cJSON_GetObjectItem(cfg.get(), "custom"), "hand"), 1);
    EXPECT_EQ(flag(cJSON_GetObjectItem(cfg.get(), "custom"), "lift_state"), 0);
    // Invalid members refuse the whole request.
    for (const char* bad : {"\"cycle\":0", "\"port\":70000", "\"ip\":\"1.2.3\"", "\"custom\":{\"hand\":\"yes\"}"})
        EXPECT_EQ(verdict(std::string("{\"command\":\"set_realtime_push\",\"enable\":false,") + bad + "}",
                          "set_realtime_push", "state"), 0) << bad;
    EXPECT_EQ(flag(p->ask("{\"command\":\"get_realtime_push\"}").get(), "enable"), 1);
}

/* Families are driven from outside through their named hooks. */
TEST_F(Commands, FamilyHooksDriveTheArm) {
    EXPECT_FALSE(sim.drive(0, "no_such_hook", {}));
    EXPECT_FALSE(sim.drive(0, "digital_input", {5, 1}));  // channels 1..4
    EXPECT_FALSE(sim.drive(0, "digital_input", {2}));
    EXPECT_FALSE(sim.drive(7, "digital_input", {2, 1}));  // no such arm
    ASSERT_TRUE(sim.drive(0, "digital_input", {2, 1}));
    EXPECT_EQ(ints(p->ask(R"({"command":"get_IO_input"})", "IO_input_state").get(), "DI"),
              (std::vector<int>{0, 1, 0, 0}));
    ASSERT_TRUE(sim.set_tool_digital_input(0, 1, 1));
    EXPECT_EQ(ints(p->ask(R"({"command":"get_tool_IO_state"})", "tool_IO_state").get(), "IO_state"),
              (std::vector<int>{1, 0}));
}
