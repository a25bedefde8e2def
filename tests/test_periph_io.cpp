/* Controller and tool I/O against the simulated controller: exact requests,
 * read-back of what was set, inputs driven from outside, argument checks and
 * hostile replies. */
#include "test_periph_fixture.h"

using namespace cmdtest;

namespace {

using Io = PeriphFixture;

kx_io_config_t mode_of(int io_mode, int speed = 0, int mode = 0) {
    kx_io_config_t c{};
    c.io_mode = io_mode;
    c.io_real_time_config_t.speed = speed;
    c.io_real_time_config_t.mode = mode;
    return c;
}

}  // namespace

TEST_F(Io, RoundTripAndReadBack) {
    start();
    sim->clear_received(0);
    ASSERT_EQ(0, kx_set_IO_mode(h(), 3, mode_of(1)));
    ASSERT_EQ(0, kx_set_DO_state(h(), 3, 1));
    ASSERT_EQ(0, kx_set_IO_mode(h(), 4, mode_of(14, 200, 1)));
    ASSERT_EQ(0, kx_set_voltage(h(), 3));
    ASSERT_EQ(0, kx_set_tool_IO_mode(h(), 1, 1));
    ASSERT_EQ(0, kx_set_tool_DO_state(h(), 1, 1));
    ASSERT_EQ(0, kx_set_tool_voltage(h(), 1));
    const std::vector<std::string> expected = {
        R"({"command":"set_IO_mode","IO_Num":3,"IO_mode":1})",
        R"({"command":"set_DO_state","IO_Num":3,"state":1})",
        R"({"command":"set_IO_mode","IO_Num":4,"IO_mode":14,"realtime_speed":{"speed":200,"mode":1}})",
        R"({"command":"set_voltage","voltage_type":3})",
        R"({"command":"set_tool_IO_mode","IO_Num":1,"state":1})",
        R"({"command":"set_tool_DO_state","IO_Num":1,"state":1})",
        R"({"command":"set_tool_voltage","voltage_type":1})",
    };
    EXPECT_EQ(expected, last_lines(expected.size()));

    kx_io_get_t st{};
    ASSERT_EQ(0, kx_get_IO_state(h(), 3, &st));
    EXPECT_EQ(1, st.io_state);
    EXPECT_EQ(1, st.io_config.io_mode);
    EXPECT_EQ(-1, st.io_config.io_real_time_config_t.speed);
    EXPECT_EQ(-1, st.io_config.io_real_time_config_t.mode);
    ASSERT_EQ(0, kx_get_IO_state(h(), 4, &st));
    EXPECT_EQ(14, st.io_config.io_mode);
    EXPECT_EQ(200, st.io_config.io_real_time_config_t.speed);
    EXPECT_EQ(1, st.io_config.io_real_time_config_t.mode);

    int dout[4] = {-1, -1, -1, -1}, din[4] = {-1, -1, -1, -1};
    ASSERT_EQ(0, kx_get_IO_output(h(), dout));
    EXPECT_EQ(1, dout[2]);
    EXPECT_EQ(0, dout[0]);
    /* An input driven from outside is what an application waiting on it sees. */
    ASSERT_TRUE(sim->set_digital_input(0, 2, 1));
    ASSERT_EQ(0, kx_get_IO_input(h(), din));
    EXPECT_EQ((std::vector<int>{0, 1, 0, 0}), std::vector<int>(din, din + 4));

    int v = -1, mode[2] = {-1, -1}, state[2] = {-1, -1};
    ASSERT_EQ(0, kx_get_voltage(h(), &v));
    EXPECT_EQ(3, v);
    ASSERT_EQ(0, kx_get_tool_voltage(h(), &v));
    EXPECT_EQ(1, v);
    ASSERT_TRUE(sim->set_tool_digital_input(0, 2, 1));
    ASSERT_EQ(0, kx_get_tool_IO_state(h(), mode, state));
    EXPECT_EQ((std::vector<int>{1, 0}), std::vector<int>(mode, mode + 2));
    EXPECT_EQ((std::vector<int>{1, 1}), std::vector<int>(state, state + 2));
    EXPECT_EQ(R"({"command":"get_IO_state","IO_Num":4})", requests("get_IO_state").back());

    /* The controller refuses: an output on an input channel, a bad voltage. */
    EXPECT_EQ(1, kx_set_DO_state(h(), 1 + 2, 5));
    EXPECT_EQ(1, kx_set_voltage(h(), 7));
}

TEST_F(Io, ArgumentChecksSendNothing) {
    start();
    sim->clear_received(0);
    clear_log();
    EXPECT_EQ(1, kx_set_IO_mode(h(), 5, mode_of(1)));
    EXPECT_EQ(1, kx_set_IO_mode(h(), 1, mode_of(15)));
    EXPECT_EQ(1, kx_set_IO_mode(h(), -1, mode_of(0)));
    kx_io_get_t st{};
    EXPECT_EQ(1, kx_get_IO_state(h(), 5, &st));
    EXPECT_TRUE(logged("input param error..."));
    EXPECT_TRUE(requests("set_IO_mode").empty() && requests("get_IO_state").empty());

    EXPECT_EQ(-1, kx_get_IO_input(h(), nullptr));
    EXPECT_EQ(-1, kx_get_tool_IO_state(h(), nullptr, nullptr));
    kx_robot_handle unknown{99};
    EXPECT_EQ(-1, kx_set_IO_mode(&unknown, 1, mode_of(14)));
    EXPECT_EQ(-1, kx_set_DO_state(&unknown, 1, 1));
    EXPECT_TRUE(requests("set_IO_mode").empty() && requests("set_DO_state").empty());
}

TEST_F(Io, HostileReplies) {
    start();
    kx_io_get_t st{};
    st.io_config.io_real_time_config_t.speed = 7;
    reply("get_IO_state", R"({"command":"IO_state","IO_state":1,"IO_Mode":3})");
    ASSERT_EQ(0, kx_get_IO_state(h(), 1, &st));
    EXPECT_EQ(-1, st.io_config.io_real_time_config_t.speed);

    /* Modes above 14 leave speed and mode as they were. */
    st.io_config.io_real_time_config_t.speed = 7;
    reply("get_IO_state", R"({"command":"IO_state","IO_state":0,"IO_Mode":20})");
    ASSERT_EQ(0, kx_get_IO_state(h(), 1, &st));
    EXPECT_EQ(7, st.io_config.io_real_time_config_t.speed);

    for (const char* bad : {R"({"command":"IO_state","IO_state":-1,"IO_Mode":3})",
                            R"({"command":"IO_state","IO_Mode":3})", R"({"command":"IO_state","IO_state":1,"IO_Mode":"x"})",
                            R"({"command":"IO_state","IO_state":1,"IO_Mode":14})",
                            R"({"command":"IO_state","IO_state":1,"IO_Mode":14,"realtime_speed":{"speed":-2,"mode":0}})"}) {
        reply("get_IO_state", bad);
        EXPECT_EQ(-3, kx_get_IO_state(h(), 1, &st)) << bad;
    }

    int din[4] = {9, 9, 9, 9};
    reply("get_IO_input", R"({"command":"IO_input_state","DI":[1,0,1,0,1]})");
    EXPECT_EQ(-3, kx_get_IO_input(h(), din));
    EXPECT_EQ(9, din[0]); /* untouched on failure */
    int mode[2], state[2];
    reply("get_tool_IO_state", R"({"command":"tool_IO_state","IO_Mode":[0,1]})");
    EXPECT_EQ(-3, kx_get_tool_IO_state(h(), mode, state));
    reply("set_voltage", R"({"command":"set_voltage","set_state":true})");
    EXPECT_EQ(-3, kx_set_voltage(h(), 2)); /* the verdict travels as "state" */

    /* Silence, a frame that is not JSON and a reply for another command all time out. */
    reply("get_IO_state", R"({"command":"IO_state",)");
    m_nOutTime = 50;
    EXPECT_EQ(-2, kx_get_IO_state(h(), 1, &st));
    sim->drop_replies(0, "get_voltage");
    int v = 0;
    EXPECT_EQ(-2, kx_get_voltage(h(), &v));
    reply("get_tool_voltage", R"({"command":"get_tool_voltage","voltage_type":2})");
    EXPECT_EQ(-2, kx_get_tool_voltage(h(), &v));
}

TEST(IoDecoding, IoStateReply) {
    kx_io_get_t st{};
    ASSERT_EQ(0, prase_get_IO_state(R"({"IO_state":1,"IO_Mode":14,"realtime_speed":{"speed":3,"mode":2}})", &st));
    EXPECT_EQ(1, st.io_state);
    EXPECT_EQ(3, st.io_config.io_real_time_config_t.speed);
    EXPECT_EQ(2, st.io_config.io_real_time_config_t.mode);
    EXPECT_EQ(-3, prase_get_IO_state(R"({"IO_state":1,"IO_Mode":14,"realtime_speed":{"speed":3}})", &st));
    EXPECT_EQ(-3, prase_get_IO_state("not json", &st));
}

/* Each arm has its own I/O: an input driven on the second arm is seen there only. */
TEST_F(Io, PerArm) {
    SimSetup s;
    s.products = {"AVEN-P", "GOLT-P"};
    start(s);
    ASSERT_TRUE(sim->set_digital_input(1, 4, 1));
    int din[4] = {};
    ASSERT_EQ(0, kx_get_IO_input(h(1), din));
    EXPECT_EQ(1, din[3]);
    ASSERT_EQ(0, kx_get_IO_input(h(0), din));
    EXPECT_EQ(0, din[3]);
    EXPECT_FALSE(sim->set_digital_input(0, 5, 1));
    EXPECT_FALSE(sim->set_digital_input(0, 1, 2));
}
