// The connection core against the controller simulator over loopback.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "simulator.h"
#include "socket.h"
#include "test_core_util.h"

using kxtest::LogCapture;

namespace {

const char* kTrajectoryEvent =
    R"({"command":"current_trajectory_state","trajectory_state":true,"device":0,"trajectory_connect":0})";

using kxtest::start_sim;
using kxtest::record_of;

class CoreIntegration : public kxtest::ModeTest {};

}  // namespace

TEST_P(CoreIntegration, ConnectsQueriesAndSurvivesAnySegmentation) {
    auto sim = start_sim(1);
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(1, handle->id);
    m_nOutTime = 60000;
    kx_realtime_push_config_t config;
    ASSERT_EQ(0, kx_get_realtime_push(handle, &config));
    EXPECT_EQ(R"({"command":"get_realtime_push"})", sim->received(0).back());

    // One reply written byte by byte.
    sim->split_replies(0, "get_realtime_push", 1);
    ASSERT_EQ(0, kx_get_realtime_push(handle, &config));
    // A reply and an event in one segment: both delivered, the event stays queued.
    std::string reply = R"({"command":"get_realtime_push","cycle":7,"port":9,"ip":"127.0.0.1","enable":false,"custom":{}})";
    sim->script_reply(0, "get_realtime_push", reply + "\r\n" + kTrajectoryEvent + "\r\n");
    ASSERT_EQ(0, kx_get_realtime_push(handle, &config));
    EXPECT_EQ(7, config.cycle);
    uint8_t buf[1024] = {};
    EXPECT_GT(kx_pack_lock_set("t", handle, nullptr, 0, "current_trajectory_state", buf, sizeof buf, 60000), 0);
}

TEST_P(CoreIntegration, SilenceAndClosingGiveNoReply) {
    LogCapture::install(LOG_LEVEL_ERROR);
    auto sim = start_sim(1);
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, handle);
    kx_realtime_push_config_t config;
    sim->set_silent(0, true);
    m_nOutTime = 40;
    EXPECT_EQ(-2, kx_get_realtime_push(handle, &config));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_realtime_push] get_realtime_push revice error\n"));

    m_nOutTime = 400;
    size_t before = sim->received(0).size();
    std::thread closer([&] {
        if (sim->wait_received(0, before + 1, std::chrono::seconds(10))) sim->close_connection(0);
    });
    EXPECT_EQ(-2, kx_get_realtime_push(handle, &config));
    closer.join();
    if (GetParam() != KX_SINGLE_MODE_E) {
        EXPECT_TRUE(LogCapture::has_line("服务器已关闭!\n"));
        EXPECT_EQ(-1, kx::socket_fd(record_of(handle)->socket_handle));
        EXPECT_EQ(-1, kx_get_realtime_push(handle, &config));  // no reconnect: sends fail from now on
        EXPECT_TRUE(LogCapture::has_line("[kx_get_realtime_push] get_realtime_push send error\n"));
    }
}

TEST_P(CoreIntegration, DestroyReturnsWithCallsInFlight) {
    auto sim = start_sim(2);
    kx_robot_handle* a = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    kx_robot_handle* b = kx_create_robot_arm(sim->host(1).c_str(), sim->port(1));
    ASSERT_TRUE(a && b);
    sim->set_silent(0, true);
    sim->set_silent(1, true);
    const size_t base0 = sim->received(0).size(), base1 = sim->received(1).size();
    m_nOutTime = 600000;
    std::vector<std::thread> callers;
    for (kx_robot_handle* h : {a, b, a}) {
        callers.emplace_back([h] {
            kx_realtime_push_config_t config;
            EXPECT_EQ(-2, kx_get_realtime_push(h, &config));
        });
    }
    ASSERT_TRUE(sim->wait_received(0, base0 + 2, std::chrono::seconds(10)));
    ASSERT_TRUE(sim->wait_received(1, base1 + 1, std::chrono::seconds(10)));
    EXPECT_EQ(0, kx_destory());
    for (auto& t : callers) t.join();
    ASSERT_EQ(0, kx_init(GetParam()));  // for TearDown
}

INSTANTIATE_TEST_SUITE_P(Modes, CoreIntegration, testing::Values(KX_SINGLE_MODE_E, KX_DUAL_MODE_E, KX_TRIPLE_MODE_E));

TEST(CoreIntegrationTable, FiveArmsThenNoSlotThenAnUnreachableOne) {
    LogCapture::install(LOG_LEVEL_ERROR);
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = start_sim(5);
    kx_robot_handle* handles[5];
    for (int i = 0; i < 5; ++i) {
        handles[i] = kx_create_robot_arm(sim->host(i).c_str(), sim->port(i));
        ASSERT_NE(nullptr, handles[i]);
        EXPECT_EQ(i + 1, handles[i]->id);
    }
    EXPECT_EQ(nullptr, kx_create_robot_arm(sim->host(0).c_str(), sim->port(0)));
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] robot num is max"));

    // Each connection gets its own replies, concurrently.
    m_nOutTime = 60000;
    std::vector<std::thread> callers;
    for (kx_robot_handle* h : handles) {
        callers.emplace_back([h] {
            for (int i = 0; i < 20; ++i) {
                kx_realtime_push_config_t config;
                EXPECT_EQ(0, kx_get_realtime_push(h, &config));
            }
        });
    }
    for (auto& t : callers) t.join();

    // A create that fails to connect keeps its slot until it is deleted.
    EXPECT_EQ(0, kx_delete_robot_arm(handles[3]));
    sim->stop();
    kx_robot_handle* dead = kx_create_robot_arm(sim->host(3).c_str(), sim->port(3));
    ASSERT_NE(nullptr, dead);
    EXPECT_EQ(-1, dead->id);
    EXPECT_EQ(gHandleList[3], kxtest::record_of(dead));
    EXPECT_EQ(nullptr, kx_create_robot_arm(sim->host(3).c_str(), sim->port(3)));
    EXPECT_EQ(0, kx_delete_robot_arm(dead));
    kx_robot_handle* dead_too = kx_create_robot_arm(sim->host(3).c_str(), sim->port(3));
    ASSERT_NE(nullptr, dead_too);
    EXPECT_EQ(-1, dead_too->id);
    EXPECT_EQ(0, kx_destory());
}

kxtest::Collector<kx_event_push_data_t> g_events;
kxtest::Collector<kx_realtime_arm_joint_state_t> g_states;

TEST(CoreIntegrationEvents, EventsReachTheCallbackWhileQueued) {
    kx_get_arm_event_call_back([](kx_event_push_data_t e) { g_events.add(e); });
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = start_sim(2);
    kx_robot_handle* a = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    kx_robot_handle* b = kx_create_robot_arm(sim->host(1).c_str(), sim->port(1));
    ASSERT_TRUE(a && b);
    sim->send_raw(1, std::string(R"({"command":"program_run_finish","finish_id":12})") + "\r\n");
    auto events = g_events.wait_for(1);
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(2, events[0].handle_id);
    EXPECT_EQ(KX_PROGRAM_RUN_FINISH_E, events[0].event_type);
    EXPECT_EQ(12, events[0].program_id);
    uint8_t buf[1024] = {};
    EXPECT_GT(kx_pack_lock_set("t", b, nullptr, 0, "program_run_finish", buf, sizeof buf, 60000), 0);
    EXPECT_EQ(-2, kx_pack_lock_set("t", a, nullptr, 0, "program_run_finish", buf, sizeof buf, 10));
    EXPECT_EQ(0, kx_destory());
}

TEST(CoreIntegrationRealtime, DatagramsAreDecodedAndDeliveredInTripleMode) {
    kx_realtime_arm_state_call_back([](kx_realtime_arm_joint_state_t s) { g_states.add(s); });
    ASSERT_EQ(0, kx_init(KX_TRIPLE_MODE_E));
    int port = kxtest::free_udp_port();
    // Each simulated arm pushes from its own address, so arm_ip tells them apart.
    auto sim = start_sim({"AVEN-P", "GOLT-P"}, port, true);
    ASSERT_EQ("127.0.0.1", sim->host(0));
    ASSERT_EQ("127.0.0.2", sim->host(1));
    for (int k = 0; k < 2; ++k) {
        kx_robot_handle* handle = kx_create_robot_arm(sim->host(k).c_str(), sim->port(k));
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(port, record_of(handle)->udp_port);
    }
    auto from = [](const std::vector<kx_realtime_arm_joint_state_t>& states, const char* ip) {
        return std::count_if(states.begin(), states.end(),
                             [ip](const kx_realtime_arm_joint_state_t& s) { return std::strcmp(s.arm_ip, ip) == 0; });
    };
    auto states = g_states.wait_until([&](const auto& s) { return from(s, "127.0.0.1") >= 5 && from(s, "127.0.0.2") >= 5; });
    ASSERT_GE(from(states, "127.0.0.1"), 5);
    ASSERT_GE(from(states, "127.0.0.2"), 5);
    EXPECT_EQ(states.size(), static_cast<size_t>(from(states, "127.0.0.1") + from(states, "127.0.0.2")));
    for (auto& s : states) {
        EXPECT_EQ(0, s.errCode);
        const kx_quat_t& q = s.waypoint.quaternion;
        EXPECT_NEAR(1.0, q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z, 1e-3);  // a unit quaternion
    }
    EXPECT_EQ(0, kx_destory());
}
