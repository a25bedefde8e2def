// The simulator's command connection: framing, request log, connection
// replacement and fault injection.
#include <gtest/gtest.h>

#include "test_sim_client.h"

using namespace simtest;
using std::chrono::milliseconds;

namespace {

struct Wire : ::testing::Test {
    kxsim::Simulator sim{options({"AVEN-P"})};
    void SetUp() override { ASSERT_TRUE(sim.start()); }
};

const char* kQuery = "{\"command\":\"get_install_pose\"}";

}  // namespace

TEST_F(Wire, FramingSurvivesAnyReadBoundaryAndBadLines) {
    Peer p(sim, 0);
    ASSERT_TRUE(p.ok());
    // One byte per write, the terminator split between writes.
    for (char ch : std::string(kQuery) + "\r\n") p.send_bytes(std::string(1, ch));
    EXPECT_EQ(p.line(), "{\"command\":\"install_pose\",\"pose\":[0,0,0]}");

    // Two requests in one segment get two replies, in order.
    p.send_bytes(std::string(kQuery) + "\r\n{\"command\":\"get_collision_stage\"}\r\n");
    EXPECT_EQ(command_of(parse(p.line()).get()), "install_pose");
    EXPECT_EQ(p.line(), "{\"command\":\"get_collision_stage\",\"collision_stage\":0}");

    // Garbage, an empty line, a non-command object and an over-long line are
    // not answered; the stream goes on after each.
    p.send_bytes("not json\r\n\r\n{\"x\":1}\r\n");
    p.send_bytes("{\"command\":\"get_install_pose\",\"pad\":\"" + std::string(70000, 'a') + "\"}\r\n");
    p.send_line("{\"command\":\"get_teach_frame\"}");
    EXPECT_EQ(p.line(), "{\"command\":\"get_teach_frame\",\"frame_type\":0}");

    // An unknown command is refused, as a controller does.
    EXPECT_EQ(flag(p.ask("{\"command\":\"no_such_thing\"}").get(), "set_state"), 0);

    // Every line is logged byte for byte except the over-long one.
    const auto log = sim.received(0);
    ASSERT_EQ(log.size(), 8u);
    EXPECT_EQ(log[0], kQuery);
    EXPECT_EQ(log[3], "not json");
    EXPECT_EQ(log[4], "");
    EXPECT_EQ(log[5], "{\"x\":1}");
    EXPECT_EQ(log[6], "{\"command\":\"get_teach_frame\"}");
    sim.clear_received(0);
    EXPECT_TRUE(sim.received(0).empty());
}

TEST_F(Wire, NewConnectionReplacesTheOld) {
    Peer first(sim, 0);
    ASSERT_TRUE(first.ask(kQuery, "install_pose"));
    Peer second(sim, 0);
    ASSERT_TRUE(second.ask(kQuery, "install_pose"));
    EXPECT_EQ(first.line(), "");
    EXPECT_TRUE(first.eof());

    sim.close_connection(0);
    EXPECT_EQ(second.line(), "");
    EXPECT_TRUE(second.eof());
    Peer third(sim, 0);
    EXPECT_TRUE(third.ask(kQuery, "install_pose"));
}

TEST_F(Wire, DropDelaySplitAndScriptApplyToTheNamedRepliesOnly) {
    Peer p(sim, 0);
    sim.drop_replies(0, "get_install_pose", 2);
    p.send_line(kQuery);
    p.send_line(kQuery);
    // Other commands are answered meanwhile; the third install query again.
    EXPECT_TRUE(p.ask("{\"command\":\"get_teach_frame\"}"));
    EXPECT_TRUE(p.ask(kQuery, "install_pose"));
    EXPECT_TRUE(p.skipped.empty());

    sim.delay_replies(0, "", milliseconds(30));
    EXPECT_TRUE(p.ask("{\"command\":\"get_teach_frame\"}"));

    sim.split_replies(0, "get_install_pose", 5);
    const int before = p.reads();
    EXPECT_EQ(p.ask(kQuery, "install_pose") != nullptr, true);
    EXPECT_GT(p.reads() - before, 1);  // arrived in several pieces

    sim.script_reply(0, "get_install_pose", "{\"command\":\"install_pose\",\"pose\":[1,2]}\r\ngarbage");
    p.send_line(kQuery);
    EXPECT_EQ(p.line(), "{\"command\":\"install_pose\",\"pose\":[1,2]}");
    sim.send_raw(0, "\r\n");
    EXPECT_EQ(p.line(), "garbage");
}

TEST_F(Wire, SilentArmRecordsButNeverAnswers) {
    Peer p(sim, 0);
    sim.set_silent(0, true);
    p.send_line(kQuery);
    ASSERT_TRUE(sim.wait_received(0, 1, milliseconds(3000)));
    sim.set_silent(0, false);
    // The first reply was never written: the next line is the second reply.
    EXPECT_EQ(p.ask("{\"command\":\"get_teach_frame\"}") != nullptr, true);
    EXPECT_TRUE(p.skipped.empty());
    EXPECT_EQ(sim.received(0).size(), 2u);
}

TEST(WireLifecycle, PortsAreDistinctAndStopIsPromptAndRepeatable) {
    kxsim::Simulator sim(options({"AVEN-P", "BRIV-P", "CALD-QA", "DUMO-P", "GOLT-QS"}));
    ASSERT_TRUE(sim.start());
    ASSERT_EQ(sim.arm_count(), 5);
    for (int i = 0; i < 5; ++i)
        for (int j = i + 1; j < 5; ++j) EXPECT_NE(sim.port(i), sim.port(j));
    Peer p(sim, 4);
    auto info = p.ask("{\"command\":\"get_arm_software_info\"}", "arm_software_info");
    ASSERT_TRUE(info);
    EXPECT_STREQ(cJSON_GetObjectItem(info.get(), "Product_version")->valuestring, "GOLT-QS");
    EXPECT_EQ(sim.port(5), -1);
    sim.stop();
    sim.stop();
    EXPECT_EQ(p.line(), "");
}
