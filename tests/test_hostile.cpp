/* A hostile controller: numbers no int holds, endless or huge lines, bytes
 * one at a time, garbage, replies to other commands, a close mid-frame, a
 * reset, silence, and a peer that never accepts. Each call ends with its
 * code within its timeout, and another arm keeps working meanwhile. */
#include <cstring>
#include <string>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Hostile : public SimFixture {
protected:
    void reply(const std::string& command, const std::string& json, int arm = 0) {
        sim->script_reply(arm, command, json + "\r\n");
    }
};

}  // namespace

/* Every family decoder refuses a number no int can hold with its own error,
 * and the connection goes on answering. */
TEST_F(Hostile, NumbersNoIntHoldsAreEachDecodersError) {
    start();
    kx_arm_all_state_t all{};
    clear_log();
    reply("get_arm_all_state",
          R"({"command":"arm_all_state","temperature":[0,0,0,0,0,0],"current":[0,0,0,0,0,0],"voltage":[0,0,0,0,0,0],"err_flag":[0,0,0,0,0,2147483647],"en_flag":[1,1,1,1,1,1],"err":[]})");
    EXPECT_EQ(-3, kx_get_arm_all_state(h(), &all));
    EXPECT_TRUE(logged("[kx_get_arm_all_state] err_flag parsing error\n"));
    reply("get_arm_all_state",
          R"({"command":"arm_all_state","temperature":[1e10,0,0,0,0,0],"current":[0,0,0,0,0,0],"voltage":[0,0,0,0,0,0],"err_flag":[0,0,0,0,0,0],"en_flag":[1,1,1,1,1,1],"err":[]})");
    EXPECT_EQ(-3, kx_get_arm_all_state(h(), &all));
    EXPECT_TRUE(logged("[kx_get_arm_all_state] temperature parsing error\n"));

    float speed = 0;
    reply("get_arm_max_line_speed", R"({"command":"arm_max_line_speed","arm_line_speed":-1e999})");
    EXPECT_EQ(-3, kx_get_arm_max_line_speed(h(), &speed));

    kx_frame_t f{};
    clear_log();
    reply("get_current_tool_frame",
          R"({"command":"current_tool_frame","tool_name":"t","pose":[0,0,0,0,0,0],"payload":1e12,"position":[0,0,0]})");
    EXPECT_EQ(-1, kx_get_current_tool_frame(h(), &f));
    EXPECT_TRUE(logged("[get_current_tool_frame] Tool frame payload parse err\n"));
    reply("get_current_tool_frame",
          R"({"command":"current_tool_frame","tool_name":"t","pose":[0,0,0,0,0,0],"payload":0,"position":[0,3e9,0]})");
    EXPECT_EQ(-1, kx_get_current_tool_frame(h(), &f));
    EXPECT_TRUE(logged("[get_current_tool_frame] Tool frame position parse err\n"));

    kx_arm_current_trajectory_e type;
    float data[7];
    clear_log();
    reply("get_arm_current_trajectory", R"({"command":"arm_current_trajectory","type":"none","data":[0,-1e300]})");
    EXPECT_EQ(-1, kx_get_arm_current_trajectory(h(), &type, data));
    EXPECT_TRUE(logged("[kx_get_arm_current_trajectory] Get arm current trajectory parse err\n"));

    kx_envelope_balls_list_t env;
    EXPECT_EQ(-3, Parser_Get_Tool_Envelope(
                      R"({"tool_name":"g","list":[{"name":"b","radius":4294967296,"x":0,"y":0,"z":0}]})", &env));

    /* The simulator's own answers decode again. */
    EXPECT_EQ(0, kx_get_arm_max_line_speed(h(), &speed));
    EXPECT_EQ(0, kx_get_current_tool_frame(h(), &f));
}
