// Realtime push over UDP: destination, content, optional members, size.
#include <gtest/gtest.h>

#include "test_sim_client.h"

using namespace simtest;

namespace {

kxsim::Options pushing(std::vector<std::string> products, int port, int cycle = 10) {
    kxsim::Options o = options(std::move(products), 10.0);
    o.push_enabled = true;
    o.udp_port = port;
    o.push_cycle = cycle;
    return o;
}

void expect_arrays(const cJSON* obj, std::initializer_list<const char*> keys, size_t n) {
    for (const char* k : keys) EXPECT_EQ(ints(obj, k).size(), n) << k;
}

}  // namespace

TEST(Push, DatagramCarriesJointsPoseAndErrors) {
    UdpSink sink;
    kxsim::Simulator sim(pushing({"AVEN-P"}, sink.port()));
    ASSERT_TRUE(sim.start());
    const std::string d = sink.receive();
    ASSERT_FALSE(d.empty());
    EXPECT_LE(d.size(), 1024u);
    Json j = parse(d);
    ASSERT_TRUE(j);
    const cJSON* js = cJSON_GetObjectItem(j.get(), "joint_status");
    expect_arrays(js, {"joint_position", "joint_current", "joint_en_flag", "joint_err_code", "joint_temperature",
                       "joint_voltage"}, 6);
    EXPECT_EQ(cJSON_GetObjectItem(js, "joint_speed"), nullptr);  // optional, not asked for
    const cJSON* wp = cJSON_GetObjectItem(j.get(), "waypoint");
    EXPECT_EQ(ints(wp, "position").size(), 3u);
    EXPECT_EQ(ints(wp, "euler").size(), 3u);
    const auto quat = ints(wp, "quat");
    ASSERT_EQ(quat.size(), 4u);
    const double norm = (double(quat[0]) * quat[0] + double(quat[1]) * quat[1] + double(quat[2]) * quat[2] +
                         double(quat[3]) * quat[3]) / 1e12;
    EXPECT_NEAR(norm, 1.0, 1e-3);
    EXPECT_EQ(ints(j.get(), "err"), std::vector<int>{0});
    EXPECT_EQ(cJSON_GetObjectItem(j.get(), "six_force_sensor"), nullptr);
    EXPECT_EQ(cJSON_GetObjectItem(j.get(), "arm_current_status"), nullptr);
    ASSERT_FALSE(sink.receive().empty());  // the first one is surely counted by now
    EXPECT_GE(sim.datagrams_sent(0), 1u);
}

TEST(Push, EveryOptionalMemberFitsInOneDatagram) {
    UdpSink sink;
    kxsim::Simulator sim(pushing({"BRIV-QA", "GOLT-QS"}, sink.port()));
    ASSERT_TRUE(sim.start());
    for (int arm = 0; arm < 2; ++arm) {
        Peer p(sim, arm);
        Json ok = p.ask("{\"command\":\"set_realtime_push\",\"custom\":{\"joint_speed\":true,\"lift_state\":true,"
                        "\"expand_state\":true,\"arm_current_status\":true,\"aloha_state\":true,\"hand\":true}}");
        ASSERT_EQ(flag(ok.get(), "state"), 1);
    }
    bool seen[2] = {false, false};
    for (int n = 0; n < 200 && !(seen[0] && seen[1]); ++n) {
        const std::string d = sink.receive();
        ASSERT_FALSE(d.empty());
        EXPECT_LE(d.size(), 1024u);
        Json j = parse(d);
        ASSERT_TRUE(j);
        if (!cJSON_GetObjectItem(j.get(), "hand")) continue;  // sent before the change
        const cJSON* js = cJSON_GetObjectItem(j.get(), "joint_status");
        const size_t dof = ints(js, "joint_position").size();
        const bool seven = dof == 7;
        seen[seven ? 0 : 1] = true;
        EXPECT_EQ(ints(js, "joint_speed").size(), dof);
        /* BRIV-QA (seven joints) has a one-axis sensor, GOLT-QS a six-axis one. */
        const cJSON* fs = cJSON_GetObjectItem(j.get(), seven ? "one_force_sensor" : "six_force_sensor");
        ASSERT_TRUE(fs) << d;
        EXPECT_EQ(ints(fs, "force").size(), seven ? 1u : 6u);
        EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(fs, "coordinate")));
        const cJSON* hand = cJSON_GetObjectItem(j.get(), "hand");
        expect_arrays(hand, {"hand_pos", "hand_angle", "hand_force", "hand_state"}, 6);
        EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(hand, "hand_err")));
        for (const char* k : {"pos", "height", "current", "err_flag", "en_flag"})
            EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(cJSON_GetObjectItem(j.get(), "lift_state"), k))) << k;
        for (const char* k : {"joint_id", "mode", "pos", "current", "err_flag", "en_flag"})
            EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(cJSON_GetObjectItem(j.get(), "expand_state"), k))) << k;
        for (const char* k : {"io1_state", "io2_state"})
            EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(cJSON_GetObjectItem(j.get(), "aloha_state"), k))) << k;
        EXPECT_STREQ(cJSON_GetObjectItem(j.get(), "arm_current_status")->valuestring, "idle");
    }
    EXPECT_TRUE(seen[0] && seen[1]);
}

TEST(Push, ConfigurationRedirectsAndMotionShows) {
    UdpSink sink;
    kxsim::Simulator sim(options({"AVEN-P"}, 10.0));  // push off at start
    ASSERT_TRUE(sim.start());
    EXPECT_EQ(sim.datagrams_sent(0), 0u);
    Peer p(sim, 0);
    // A non-loopback address is kept in the configuration, but the simulated
    // controller only ever pushes to this machine.
    const std::string set = "{\"command\":\"set_realtime_push\",\"enable\":true,\"cycle\":1,\"port\":" +
                            std::to_string(sink.port()) + ",\"ip\":\"10.20.30.40\",\"custom\":{\"arm_current_status\":true}}";
    ASSERT_EQ(flag(p.ask(set).get(), "state"), 1);
    EXPECT_STREQ(cJSON_GetObjectItem(p.ask("{\"command\":\"get_realtime_push\"}").get(), "ip")->valuestring,
                 "10.20.30.40");
    ASSERT_FALSE(sink.receive().empty());

    // A long, slow move shows up as "move_J" with changing joints.
    ASSERT_EQ(flag(p.ask("{\"command\":\"movej\",\"v\":1,\"joint\":[90000,0,0,0,0,0],\"trajectory_connect\":0,"
                         "\"r\":0}").get(), "receive_state"), 1);
    bool moving_seen = false;
    for (int n = 0; n < 2000 && !moving_seen; ++n) {
        Json j = parse(sink.receive());
        ASSERT_TRUE(j);
        moving_seen = std::string(cJSON_GetObjectItem(j.get(), "arm_current_status")->valuestring) == "move_J" &&
                      ints(cJSON_GetObjectItem(j.get(), "joint_status"), "joint_position")[0] > 0;
    }
    EXPECT_TRUE(moving_seen);
    p.ask("{\"command\":\"set_arm_pause\"}");
    bool paused_seen = false;
    for (int n = 0; n < 2000 && !paused_seen; ++n)
        paused_seen = std::string(cJSON_GetObjectItem(parse(sink.receive()).get(), "arm_current_status")
                                      ->valuestring) == "pause";
    EXPECT_TRUE(paused_seen);
    EXPECT_GT(sim.datagrams_sent(0), 1u);
}
