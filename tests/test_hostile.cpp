/* A hostile controller: numbers no int holds, endless or huge lines, bytes
 * one at a time, garbage, replies to other commands, a close mid-frame, a
 * reset, silence, and a peer that never accepts. Each call ends with its
 * code within its timeout, and another arm keeps working meanwhile. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"
#include "test_core_util.h"

using namespace cmdtest;
using kxtest::DeafPeer;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

/* The time a machine shared with other builds may add to a bound. */
constexpr milliseconds kSlack{1500};
constexpr milliseconds kTimeout{500}; /* m_nOutTime */
constexpr milliseconds kConnectTimeout{3000};

const char* const kSpeedReply = R"({"command":"arm_max_line_speed","arm_line_speed":321})";

milliseconds since(Clock::time_point t0) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - t0);
}

class Hostile : public SimFixture {
protected:
    void reply(const std::string& command, const std::string& json, int arm = 0) {
        sim->script_reply(arm, command, json + "\r\n");
    }

    void start_two() {
        SimSetup s;
        s.products = {"AVEN-P", "AVEN-P"};
        start(s);
    }

    /* Runs `call` (on arm 0, or anything slow) while arm 1 is queried over and
     * over; checks that the call ended within `limit` and that every query on
     * arm 1 succeeded within its own timeout. Returns the call's result. */
    template <class F>
    int while_other_arm_works(F&& call, milliseconds limit) {
        std::atomic<bool> done{false};
        int failures = 0, successes = 0;
        milliseconds worst{0};
        std::thread other([&] {
            do {
                float v = 0;
                const auto t0 = Clock::now();
                (kx_get_arm_max_line_speed(h(1), &v) == 0 ? successes : failures)++;
                worst = std::max(worst, since(t0));
            } while (!done);
        });
        const auto t0 = Clock::now();
        const int r = call();
        const milliseconds took = since(t0);
        done = true;
        other.join();
        EXPECT_LE(took.count(), (limit + kSlack).count());
        EXPECT_EQ(0, failures);
        EXPECT_GT(successes, 0);
        EXPECT_LE(worst.count(), (kTimeout + kSlack).count());
        EXPECT_EQ(0, kx_set_arm_stop(h(1)));
        return r;
    }

    int speed(int arm = 0) {
        float v = 0;
        return kx_get_arm_max_line_speed(h(arm), &v);
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

    kx_fence_config_list_t fences;
    int fence_count = 0;
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info(
                      R"({"info_list":[{"form_name":"s","form":3,"x":1e10,"y":0,"z":0,"radius":1}]})", &fences,
                      &fence_count));
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info(R"({"info_list":[{"form_name":"s","form":-1e999}]})",
                                                        &fences, &fence_count));

    kx_envelope_balls_list_t env;
    EXPECT_EQ(-3, Parser_Get_Tool_Envelope(
                      R"({"tool_name":"g","list":[{"name":"b","radius":4294967296,"x":0,"y":0,"z":0}]})", &env));

    /* The simulator's own answers decode again. */
    EXPECT_EQ(0, kx_get_arm_max_line_speed(h(), &speed));
    EXPECT_EQ(0, kx_get_current_tool_frame(h(), &f));
}

/* Over-long and slow lines, garbage and replies to other commands: the call
 * gets its reply when one comes (0), else -2 after its timeout. */
TEST_F(Hostile, LongSlowGarbledAndStrayReplies) {
    start_two();
    float v = 0;
    clear_log();
    sim->script_reply(0, "get_arm_max_line_speed", std::string(1 << 20, 'x') + "\r\n" + kSpeedReply + "\r\n");
    EXPECT_EQ(0, while_other_arm_works([&] { return kx_get_arm_max_line_speed(h(0), &v); }, kTimeout));
    EXPECT_FLOAT_EQ(0.321f, v);
    EXPECT_TRUE(logged("[thread_socket_receive] frame longer than 65536 bytes dropped\n"));

    sim->split_replies(0, "get_arm_max_line_speed", 1);
    EXPECT_EQ(0, while_other_arm_works([&] { return speed(); }, kTimeout));

    std::string garbage = "\x01\xff}{\"command\":[\r\n\r\n\r";
    const char binary[] = "\0\0\x80{{{{\"\\";
    garbage += std::string(binary, sizeof binary - 1) + "\n\r\n";
    sim->script_reply(0, "get_arm_max_line_speed", garbage);
    EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));

    reply("get_arm_max_line_speed", R"({"command":"arm_max_line_acc","arm_line_acc":5})");
    EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));
    reply("get_arm_max_line_speed", R"({"state":"arm_max_line_speed_x","arm_line_speed":1})");
    EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));

    EXPECT_EQ(0, speed());  // the connection is as good as before
}

/* A controller that stops answering, or writes one endless line: each call
 * ends with -2 after its timeout, and the arm answers again afterwards. */
TEST_F(Hostile, SilenceAndAnEndlessLine) {
    start_two();
    sim->set_silent(0, true);
    EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));
    sim->set_silent(0, false);
    EXPECT_EQ(0, speed());

    sim->flood(0, true);
    EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));
    EXPECT_EQ(-2, while_other_arm_works([&] { return kx_set_arm_stop(h(0)); }, kTimeout));
    sim->flood(0, false);
    EXPECT_EQ(0, speed());
}

/* The connection closed in the middle of a reply, orderly or by a reset: the
 * waiting call ends with -2 after its timeout, later sends fail with -1, and
 * the arm can be deleted and connected again. */
TEST_F(Hostile, CloseOrResetMidFrame) {
    start_two();
    for (bool reset : {false, true}) {
        SCOPED_TRACE(reset ? "reset" : "close");
        sim->cut_replies(0, "get_arm_max_line_speed", 20, reset);
        EXPECT_EQ(-2, while_other_arm_works([&] { return speed(); }, kTimeout));
        EXPECT_TRUE(eventually([&] { return speed() == -1; }));
        EXPECT_EQ(0, kx_delete_robot_arm(h(0)));
        handles[0] = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
        ASSERT_NE(nullptr, handles[0]);
        EXPECT_GT(h(0)->id, 0);
        EXPECT_EQ(0, speed());
    }
}

/* A controller that never accepts the connection: the create gives up after
 * the connect timeout with id -1, and the other arm still answers. */
TEST_F(Hostile, PeerThatNeverAccepts) {
    start_two();
    DeafPeer deaf;
    ASSERT_TRUE(deaf.full());
    const auto t0 = Clock::now();
    kx_robot_handle* lost = kx_create_robot_arm("127.0.0.1", deaf.port());
    EXPECT_LE(since(t0).count(), (kConnectTimeout + kSlack).count());
    ASSERT_NE(nullptr, lost);
    EXPECT_EQ(-1, lost->id);
    EXPECT_TRUE(logged("[kx_create_robot_arm] socket connect err!\n"));
    EXPECT_EQ(0, speed(1));
    EXPECT_EQ(0, speed());
}

/* The same, with the other arm queried while the create waits: the handle
 * table is not held across the connect, so each query ends within its own
 * timeout. */
TEST_F(Hostile, OtherArmServedWhileAPeerNeverAccepts) {
    start_two();
    DeafPeer deaf;
    ASSERT_TRUE(deaf.full());
    kx_robot_handle* lost = nullptr;
    while_other_arm_works(
        [&] {
            lost = kx_create_robot_arm("127.0.0.1", deaf.port());
            return 0;
        },
        kConnectTimeout);
    ASSERT_NE(nullptr, lost);
    EXPECT_EQ(-1, lost->id);
}
