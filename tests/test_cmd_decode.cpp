/* Reply decoding of the command families, including replies a controller
 * should not send: each gives its result code and message, never a crash or
 * a write past an output. */
#include <cmath>
#include <cstring>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Decode : public SimFixture {
protected:
    void reply(const std::string& command, const std::string& json, int count = 1) {
        sim->script_reply(0, command, json + "\r\n", count);
    }
};

}  // namespace

TEST_F(Decode, CurrentTrajectory) {
    start();
    kx_arm_current_trajectory_e type = KX_NO_PLANNING_E;
    float data[8];
    reply("get_arm_current_trajectory",
          R"({"command":"arm_current_trajectory","type":"movel","data":[100000,0,300000,3141,0,0]})");
    ASSERT_EQ(0, kx_get_arm_current_trajectory(h(), &type, data));
    EXPECT_EQ(KX_CARTESIAN_LINEAR_PLANNING_E, type);
    EXPECT_FLOAT_EQ(0.1f, data[0]);
    EXPECT_FLOAT_EQ(0.3f, data[2]);
    EXPECT_FLOAT_EQ(3.141f, data[3]);

    /* Joint kinds fill dof entries; an over-long array is read up to 7. */
    for (float& d : data) d = 42.0f;
    reply("get_arm_current_trajectory",
          R"({"command":"arm_current_trajectory","type":"none","data":[1000,2000,3000,4000,5000,6000,7000,8000,9000]})");
    ASSERT_EQ(0, kx_get_arm_current_trajectory(h(), &type, data));
    EXPECT_EQ(KX_NO_PLANNING_E, type);
    EXPECT_FLOAT_EQ(6.0f, data[5]);
    EXPECT_FLOAT_EQ(42.0f, data[6]);
    EXPECT_FLOAT_EQ(42.0f, data[7]);

    reply("get_arm_current_trajectory", R"({"command":"arm_current_trajectory","type":"MoveJ","data":[0,0,0,0,0,0]})");
    EXPECT_EQ(-1, kx_get_arm_current_trajectory(h(), &type, data));
    clear_log();
    reply("get_arm_current_trajectory", R"({"command":"arm_current_trajectory","type":"movej"})");
    EXPECT_EQ(-1, kx_get_arm_current_trajectory(h(), &type, data));
    EXPECT_TRUE(logged("[kx_get_arm_current_trajectory] Get arm current trajectory parse err\n"));
}

TEST_F(Decode, ArmStateAndTelemetry) {
    start();
    kx_current_arm_state_t st;
    std::memset(&st, 0, sizeof st);
    st.joint[6] = 42.0f;
    reply("get_current_arm_state",
          R"({"command":"current_arm_state","arm_state":{"err":[],"joint":[1000,-2000,3000,4000,5000,6000],"pose":[100000,0,300000,0,0,0]}})");
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_EQ(0, st.err.err_len);
    EXPECT_FLOAT_EQ(-2.0f, st.joint[1]);
    EXPECT_FLOAT_EQ(42.0f, st.joint[6]);
    EXPECT_FLOAT_EQ(0.1f, st.pose.position.x);
    EXPECT_FLOAT_EQ(0.3f, st.pose.position.z);
    EXPECT_NEAR(1.0f, st.pose.quaternion.w, 1e-6);
    EXPECT_NEAR(0.0f, st.pose.quaternion.z, 1e-6);

    reply("get_current_arm_state",
          R"({"command":"current_arm_state","err":[7,8],"joint":[0,0,0,0,0,0],"pose":[0,0,0,0,0,1571]})");
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_EQ(2, st.err.err_len);
    EXPECT_EQ(8, st.err.err[1]);
    EXPECT_NEAR(std::sqrt(0.5f), st.pose.quaternion.w, 1e-3);
    EXPECT_NEAR(std::sqrt(0.5f), st.pose.quaternion.z, 1e-3);

    /* More errors than the record holds, a wrong joint count, and no JSON at
     * all each fail without touching the record. */
    kx_current_arm_state_t before = st;
    clear_log();
    reply("get_current_arm_state",
          R"({"command":"current_arm_state","err":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25],"joint":[0,0,0,0,0,0],"pose":[0,0,0,0,0,0]})");
    EXPECT_EQ(-3, kx_get_current_arm_state(h(), &st));
    EXPECT_TRUE(logged("[kx_get_current_arm_state] Array size mismatch for key err\n"));
    reply("get_current_arm_state", R"({"command":"current_arm_state","err":[],"joint":[0,0,0,0,0,0,0],"pose":[0,0,0,0,0,0]})");
    EXPECT_EQ(-3, kx_get_current_arm_state(h(), &st));
    reply("get_current_arm_state", R"({"command":"current_arm_state","err":[],"joint":[0,0,0,0,0,0]})");
    EXPECT_EQ(-3, kx_get_current_arm_state(h(), &st));
    EXPECT_EQ(0, std::memcmp(&before, &st, sizeof st));

    kx_arm_all_state_t all{};
    reply("get_arm_all_state",
          R"({"command":"arm_all_state","all_state":{"temperature":[25000,0,0,0,0,0],"current":[1500,0,0,0,0,0],"voltage":[48000,0,0,0,0,0],"err_flag":[0,0,0,0,0,32773],"en_flag":[1,1,1,1,1,0],"err":[3]}})");
    ASSERT_EQ(0, kx_get_arm_all_state(h(), &all));
    EXPECT_FLOAT_EQ(25.0f, all.joint_temperature[0]);
    EXPECT_FLOAT_EQ(1.5f, all.joint_current[0]);
    EXPECT_FLOAT_EQ(48.0f, all.joint_voltage[0]);
    EXPECT_EQ(32773, all.joint_err_code[5]);
    EXPECT_EQ(0, all.joint_en_flag[5]);
    EXPECT_EQ(1, all.err.err_len);
    EXPECT_EQ(3, all.err.err[0]);

    float temps[7] = {};
    reply("get_current_joint_temperature",
          R"({"command":"current_joint_temperature","joint_temperature":[30500,0,0,0,0,-1500]})");
    ASSERT_EQ(0, kx_get_current_joint_temperature(h(), temps));
    EXPECT_FLOAT_EQ(30.5f, temps[0]);
    EXPECT_FLOAT_EQ(-1.5f, temps[5]);
}

TEST_F(Decode, SoftwareInfoDecidesModelAndEdition) {
    start();
    struct Case {
        const char* product;
        int result;
        kx_robot_arm_model_e model;
        int dof;
        kx_force_type_e force;
    };
    const Case cases[] = {
        {"AVEN-P", 0, KX_MODEL_AVEN_E, 6, KX_FORCE_TYPE_P_E},    {"BRIV-QA", 0, KX_MODEL_BRIV_E, 7, KX_FORCE_TYPE_QA_E},
        {"CALD-QA", 0, KX_MODEL_CALD_II_E, 6, KX_FORCE_TYPE_QA_E}, {"CALDIV-QS", 0, KX_MODEL_CALD_II_E, 6, KX_FORCE_TYPE_QS_E},
        {"DUMO-P", 0, KX_MODEL_DUMO_E, 6, KX_FORCE_TYPE_P_E},    {"ESKA-QS", 0, KX_MODEL_ESKA_E, 6, KX_FORCE_TYPE_QS_E},
        {"FIRU-P", 0, KX_MODEL_FIRU_E, 7, KX_FORCE_TYPE_P_E},    {"GOLT-QA", 0, KX_MODEL_GOLT_E, 6, KX_FORCE_TYPE_QA_E},
        /* unknown model or edition: refused, record unchanged */
        {"ZETA-P", -1, KX_MODEL_GOLT_E, 6, KX_FORCE_TYPE_QA_E},  {"AVEN", -1, KX_MODEL_GOLT_E, 6, KX_FORCE_TYPE_QA_E},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.product);
        clear_log();
        reply("get_arm_software_info",
              std::string(R"({"command":"arm_software_info","Product_version":")") + c.product +
                  R"(","algorithm_info":{"version":"a1.2"},"ctrl_info":{"version":"c3.4","build_time":"2024-01-02"},"dynamic_info":{"model_version":"d5"},"plan_info":{"version":"p6","build_time":"2024-03-04"}})");
        kx_arm_software_version_t v{};
        EXPECT_EQ(c.result, kx_get_arm_software_info(h(), &v));
        EXPECT_STREQ(c.product, v.product_version);
        EXPECT_STREQ("c3.4", v.ctrl_info.version);
        EXPECT_STREQ("2024-03-04", v.plan_info.build_time);
        EXPECT_STREQ("d5", v.dynamic_info.model_version);
        kx_robot_info_t info{};
        ASSERT_EQ(0, kx_get_robot_info(h(), &info));
        EXPECT_EQ(c.model, info.arm_model);
        EXPECT_EQ(c.dof, info.arm_dof);
        EXPECT_EQ(c.force, info.force_type);
    }
    EXPECT_TRUE(logged("Unknown force type: AVEN\n"));
    clear_log();
    reply("get_arm_software_info", R"({"command":"arm_software_info","Product_version":"ZETA-P"})");
    kx_arm_software_version_t v{};
    EXPECT_EQ(-1, kx_get_arm_software_info(h(), &v));
    EXPECT_TRUE(logged("Unknown arm model: ZETA-P\n"));
    EXPECT_TRUE(logged("[kx_get_arm_software_info] Plan build Time parse err\n"));
    /* A reply longer than the reply buffer arrives cut, and does not parse. */
    reply("get_arm_software_info",
          R"({"command":"arm_software_info","Product_version":"AVEN-P","pad":")" + std::string(1100, 'x') + "\"}");
    EXPECT_EQ(-3, kx_get_arm_software_info(h(), &v));
    EXPECT_TRUE(logged("[kx_get_arm_software_info] Arm software info parse err\n"));
}

TEST_F(Decode, FrameReplies) {
    start();
    kx_frame_name_t names[KX_FRAME_NAMES_MAX];
    std::memset(names, 0, sizeof names);
    int len = -1;
    reply("get_total_tool_frame", R"({"command":"total_tool_frame","tool_names":["base","tool1","NULL","x"]})");
    ASSERT_EQ(0, kx_get_total_tool_frame(h(), names, &len));
    EXPECT_EQ(2, len);
    EXPECT_STREQ("tool1", names[1].name);
    EXPECT_STREQ("", names[2].name);

    /* Never more names than the list holds. */
    kx_frame_name_t many[KX_FRAME_NAMES_MAX + 1];
    std::memset(many, 0, sizeof many);
    std::strcpy(many[KX_FRAME_NAMES_MAX].name, "guard");
    EXPECT_EQ(0, parse_kx_get_total_frame(
                     R"({"frame_names":["a","b","c","d","e","f","g","h","i","j","k","l"]})", many, &len));
    EXPECT_EQ(KX_FRAME_NAMES_MAX, len);
    EXPECT_STREQ("guard", many[KX_FRAME_NAMES_MAX].name);
    EXPECT_EQ(-2, parse_kx_get_total_frame(R"({"names":[]})", many, &len));
    EXPECT_EQ(-2, parse_kx_get_total_frame(R"({"frame_names":"base"})", many, &len));

    /* A missing frame is answered under the request's own name. */
    reply("get_tool_frame", R"({"command":"get_tool_frame","get_state":false})");
    kx_frame_t f{};
    EXPECT_EQ(1, kx_get_given_tool_frame(h(), "nosuch", &f));

    /* Names are cut to ten characters when read back. */
    reply("get_current_tool_frame",
          R"({"command":"current_tool_frame","tool_name":"abcdefghijklmnop","pose":[0,0,100000,0,0,0],"payload":2500,"position":[0,0,30000]})");
    ASSERT_EQ(0, kx_get_current_tool_frame(h(), &f));
    EXPECT_STREQ("abcdefghij", f.frame_name);
    EXPECT_FLOAT_EQ(2.5f, f.payload);
    EXPECT_FLOAT_EQ(0.03f, f.z);
    EXPECT_STREQ("abcdefghij", record()->tool_frame.frame_name);

    clear_log();
    reply("get_current_tool_frame",
          R"({"command":"current_tool_frame","tool_name":"t","pose":[0,0,100000,0,0,0],"payload":2500})");
    EXPECT_EQ(-1, kx_get_current_tool_frame(h(), &f));
    EXPECT_TRUE(logged("[get_current_tool_frame] Tool frame position parse err\n"));
    EXPECT_STREQ("abcdefghij", record()->tool_frame.frame_name);
    reply("get_current_work_frame", R"({"command":"current_work_frame","frame_name":"w","pose":[1,2]})");
    EXPECT_EQ(-1, kx_get_current_work_frame(h(), &f));
    EXPECT_TRUE(logged("[get_current_work_frame] Work frame pose parse err\n"));
}

TEST(DecodeEnvelope, BoundedAndChecked) {
    kxtest::LogCapture::install(LOG_LEVEL_DEBUG);
    kx_envelope_balls_list_t env;
    std::memset(&env, 0xAB, sizeof env);
    std::string list;
    for (int i = 0; i < 7; ++i)
        list += std::string(i ? "," : "") + R"({"name":"ball_with_a_long_name","radius":50,"x":10,"y":-20,"z":30})";
    ASSERT_EQ(0, Parser_Get_Tool_Envelope(
                     (R"({"command":"get_tool_envelope","tool_name":"grip","list":[)" + list + "]}").c_str(), &env));
    EXPECT_EQ(KX_ENVELOPE_BALLS_MAX, env.size);
    EXPECT_STREQ("grip", env.tool_name);
    EXPECT_STREQ("ball_with_a", env.balls[4].name);
    EXPECT_FLOAT_EQ(0.05f, env.balls[4].radius);
    EXPECT_FLOAT_EQ(-0.02f, env.balls[4].y);

    EXPECT_EQ(1, Parser_Get_Tool_Envelope(R"({"get_state":false})", &env));
    EXPECT_TRUE(logged("[kx_get_tool_envelope] Get tool envelope return false! You can check if the tool frame exists.\n"));
    EXPECT_EQ(-3, Parser_Get_Tool_Envelope(R"({"tool_name":"g","list":[{"name":"b"}]})", &env));
    EXPECT_TRUE(logged("[kx_get_tool_envelope] parser error!"));
    EXPECT_EQ(-3, Parser_Get_Tool_Envelope("{", &env));
}

TEST_F(Decode, LimitRepliesAndQuirks) {
    start();
    /* The limit-mode reply is only recognised with its trailing blank. */
    reply("auto_set_joint_limit", R"({"command":"auto_set_joint_limit","limit_mode":true})");
    EXPECT_EQ(-2, kx_auto_set_joint_limit(h(), 1));

    float v[7];
    reply("get_joint_max_speed", R"({"command":"joint_max_speed","joint_speed":[30000,30000,30000,30000,30000]})");
    EXPECT_EQ(-3, kx_get_joint_max_speed(h(), v));
    reply("get_joint_drive_max_acc", R"({"command":"get_joint_drive_max_acc","joint_acc":[1000,0,0,0,0,-500]})");
    ASSERT_EQ(0, kx_get_joint_drive_max_acc(h(), v));
    EXPECT_FLOAT_EQ(6.0f, v[0]);
    EXPECT_FLOAT_EQ(-3.0f, v[5]);

    uint16_t err[7] = {}, brake[7] = {};
    reply("get_joint_err_flag",
          R"({"command":"joint_err_flag","err_flag":[0,1,2,3,4,65537],"brake_state":[1,1,1,1,1,0]})");
    ASSERT_EQ(0, kx_get_joint_err_flag(h(), err, brake));
    EXPECT_EQ(1, err[5]);
    EXPECT_EQ(0, brake[5]);

    kx_wifi_net_t wifi;
    std::memset(&wifi, 0, sizeof wifi);
    reply("get_wifi_net",
          R"({"command":"get_wifi_net","mask":"255.255.255.0","ip":"10.0.0.2","mac":"02:00:00:00:00:01","mode":"ap","channel":6,"ssid":"a_very_long_network_name_over_32_chars","password":"pw"})");
    ASSERT_EQ(0, kx_get_wifi_net(h(), &wifi));
    EXPECT_EQ(6, wifi.channel);
    EXPECT_STREQ("ap", wifi.mode);
    /* Strings are cut by the decoder's 28-byte slot. */
    EXPECT_EQ(27u, std::strlen(wifi.ssid));
}

TEST_F(Decode, UnknownDofFailsAfterTheReply) {
    start();
    ASSERT_GT(h()->id, 0);
    // A connection whose model is not known (a failed create gives its slot
    // back, so forget the model of a live one).
    kx_rdlock_lock();
    kx_get_kx_handle_by_robot_handle(h())->arm_dof = 0;
    kx_rdlock_unlock();
    sim->clear_received(0);
    clear_log();
    float v[7];
    EXPECT_EQ(-1, kx_get_joint_max_pos(h(), v));
    EXPECT_TRUE(logged("[kx_get_joint_max_pos] The robotic arm has been disconnected\n"));
    EXPECT_EQ(1u, requests("get_joint_max_pos").size());
}
