// The TCP side with exact bytes from the simulator: hostile replies,
// unterminated replies, the connection table, the socket record and
// single-mode point frames.
#include <gtest/gtest.h>

#include <thread>

#include "socket.h"
#include "test_core_util.h"

using kxtest::LogCapture;

namespace {

const std::string kPushReply =
    R"({"command":"get_realtime_push","cycle":7,"port":9,"ip":"127.0.0.1","enable":false,"custom":{}})";

class CoreTransport : public kxtest::ModeTest {};

}  // namespace

TEST_P(CoreTransport, HostileRepliesNeverBreakTheStream) {
    LogCapture::install(LOG_LEVEL_ERROR);
    auto sim = kxtest::start_sim();
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, handle);
    m_nOutTime = 60000;
    kx_realtime_push_config_t config;
    std::string junk = "\x01\x02garbage}\r\n{\"command\":\r\n" + std::string(70 * 1024, 'x') + "\r\n";
    sim->script_reply(0, "get_realtime_push", junk + kPushReply + "\r\n");
    ASSERT_EQ(0, kx_get_realtime_push(handle, &config));
    EXPECT_EQ(7, config.cycle);
    EXPECT_TRUE(LogCapture::contains("frame longer than 65536 bytes dropped"));

    // Undecodable replies are -3; a non-number integer reads 0.
    sim->script_reply(0, "get_realtime_push", R"({"command":"get_realtime_push","cycle":5})" "\r\n");
    EXPECT_EQ(-3, kx_get_realtime_push(handle, &config));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_realtime_push] port parsing error\n"));
    int mode = -1;
    char get[] = "get_arm_run_mode", key[] = "mode";
    sim->script_reply(0, get, R"({"command":"get_arm_run_mode","mode":"two"})" "\r\n");
    EXPECT_EQ(0, kx_get_data_common(handle, &mode, get, key));
    EXPECT_EQ(0, mode);
    EXPECT_EQ(0, kx_get_data_common(handle, &mode, get, key));  // the simulator's own answer again
}

INSTANTIATE_TEST_SUITE_P(Modes, CoreTransport, testing::Values(KX_SINGLE_MODE_E, KX_DUAL_MODE_E, KX_TRIPLE_MODE_E));

TEST(CoreTransportThreaded, UnterminatedCompleteReplyIsAccepted) {
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = kxtest::start_sim();
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, handle);
    m_nOutTime_max = 60000;
    char set[] = "set_v", key[] = "v";
    sim->script_reply(0, set, R"({"command":"set_v","set_state":true})");
    EXPECT_EQ(0, kx_set_data_common(handle, 4, set, key));
    EXPECT_EQ(R"({"command":"set_v","v":4})", sim->received(0).back());
    sim->script_reply(0, set, R"({"command":"set_v","set_state":false})" "\r\n");
    EXPECT_EQ(1, kx_set_data_common(handle, 4, set, key));
    EXPECT_EQ(0, kx_destory());
}

TEST(CoreRegistry, SlotsHandlesAndLocks) {
    LogCapture::install(LOG_LEVEL_ERROR);
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    int port = kxtest::bound_port(SOCK_STREAM);
    kx_robot_handle* handles[5];
    for (int i = 0; i < 5; ++i) {
        handles[i] = kx_create_robot_arm("127.0.0.1", port);
        ASSERT_NE(nullptr, handles[i]);
        EXPECT_EQ(-1, handles[i]->id);
    }
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] socket connect err!\n"));

    // Failed creates keep their slots until deleted, answering as records
    // whose model is unknown; a deleted one is gone. Every path releases the
    // read lock, or the deletes below could not take it.
    EXPECT_EQ(nullptr, kx_create_robot_arm("127.0.0.1", port));
    kx_robot_info_t info;
    EXPECT_EQ(-2, kx_get_robot_info(handles[0], &info));
    int dof = 0;
    EXPECT_EQ(-1, kx_get_arm_dof(handles[0], &dof));
    EXPECT_EQ(0, kx_delete_robot_arm(handles[0]));
    EXPECT_EQ(-1, kx_delete_robot_arm(handles[0]));
    kx_robot_handle copy = *handles[1];
    for (int i = 1; i < 5; ++i) EXPECT_EQ(0, kx_delete_robot_arm(handles[i]));
    EXPECT_EQ(-1, kx_get_robot_info(&copy, &info));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_robot_info] handle is NULL!\n"));
    EXPECT_EQ(-1, kx_delete_robot_arm(&copy));
    EXPECT_TRUE(LogCapture::has_line("not find handle\n"));
    kx_realtime_push_config_t config;
    EXPECT_EQ(-1, kx_get_realtime_push(&copy, &config));

    auto sim5 = kxtest::start_sim(5);
    kx_robot_handle* arms[5];
    for (int i = 0; i < 5; ++i) {
        arms[i] = kxtest::connect_arm(*sim5, i);
        ASSERT_NE(nullptr, arms[i]);
        EXPECT_EQ(i + 1, arms[i]->id);
    }
    EXPECT_EQ(nullptr, kx_create_robot_arm("127.0.0.1", port));
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] robot num is max"));
    handles[2] = arms[2];
    EXPECT_EQ(0, kx_delete_robot_arm(handles[2]));
    auto sim = kxtest::start_sim();
    kx_robot_handle* live = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, live);
    EXPECT_EQ(3, live->id);  // the lowest free slot
    EXPECT_EQ(gHandleList[2], kxtest::record_of(live));
    ASSERT_EQ(0, kx_get_robot_info(live, &info));
    EXPECT_EQ(6, info.arm_dof);
    EXPECT_EQ(0, kx_get_arm_dof(live, &dof));
    EXPECT_EQ(nullptr, kx_create_robot_arm(nullptr, 1));
    EXPECT_EQ(0, kx_destory());
}

TEST(CoreSocket, RecordArgumentsAndNonBlockingReads) {
    EXPECT_EQ(nullptr, kx_socket_handle_init(nullptr, 1));
    EXPECT_EQ(nullptr, kx_socket_handle_init("127.0.0.1", 0));
    EXPECT_EQ(nullptr, kx_socket_handle_init("127.0.0.1", -4));
    EXPECT_EQ(nullptr, kx_socket_handle_init(std::string(21, '1').c_str(), 1));
    kx_socket_handle* twenty = kx_socket_handle_init(std::string(20, '1').c_str(), 1);
    ASSERT_NE(nullptr, twenty);
    EXPECT_EQ(0, memcmp(twenty->ip, std::string(20, '1').data(), 20));
    EXPECT_EQ(-1, twenty->socket_id);
    EXPECT_EQ(0, kx_socket_handle_destroy(twenty));
    EXPECT_EQ(0, kx_socket_handle_destroy(nullptr));

    auto sim = kxtest::start_sim();
    sim->set_silent(0, true);
    kx_socket_handle* sock = kx_socket_handle_init(sim->host(0).c_str(), sim->port(0));
    ASSERT_GT(sock->init(sock), 0);
    uint8_t byte = 'x';
    EXPECT_EQ(-1, sock->send(sock, &byte, 0));
    EXPECT_EQ(-1, sock->block_send(sock, nullptr, 1));
    uint8_t buf[16];
    EXPECT_EQ(-2, sock->block_receive(sock, buf, sizeof buf));  // idle: returns at once
    EXPECT_EQ(-2, sock->receive(sock, buf, sizeof buf));
    EXPECT_EQ(-1, sock->receive(sock, buf, 0));
    std::string hello = "{\"command\":\"hello\"}\r\n";
    EXPECT_EQ(0, sock->block_send(sock, reinterpret_cast<uint8_t*>(hello.data()), static_cast<int>(hello.size())));
    ASSERT_TRUE(sim->wait_received(0, 1, std::chrono::seconds(10)));  // accepted and read
    sim->send_raw(0, "hi");
    int n;
    while ((n = sock->block_receive(sock, buf, sizeof buf)) == -2) std::this_thread::yield();
    EXPECT_EQ(2, n);
    sim->close_connection(0);
    while ((n = sock->block_receive(sock, buf, sizeof buf)) == -2) std::this_thread::yield();
    EXPECT_EQ(-1, n);
    EXPECT_EQ(0, kx_socket_handle_destroy(sock));

    kx_socket_handle* bad = kx_socket_handle_init("not an address", 1);
    EXPECT_EQ(-3, bad->init(bad));
    EXPECT_EQ(-1, bad->socket_id);
    kx_socket_handle_destroy(bad);
}

TEST(CoreTransportSingle, DragTeachPointsAreWrittenByTheWaitingCall) {
    LogCapture::install(LOG_LEVEL_DEBUG);
    ASSERT_EQ(0, kx_init(KX_SINGLE_MODE_E));
    auto sim = kxtest::start_sim();
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    ASSERT_NE(nullptr, handle);
    F_SaveDragTeach = tmpfile();
    sim->send_raw(0, R"({"point":[1,2,3,4,5,6]})" "\r\n" R"({"command":"other"})" "\r\n" R"({"point":[6,5,4,3,2,1]})" "\r\n");
    uint8_t buf[2048] = {};
    // Point frames never match: the wait runs out having written them.
    EXPECT_EQ(-2, kx_pack_lock_set("saver", handle, nullptr, 0, "point", buf, sizeof buf, 200));
    EXPECT_TRUE(LogCapture::has_line("[saver] point save_trajectory complete\n"));
    EXPECT_EQ(1, drag_teach_save_start);
    EXPECT_EQ(0, drag_teach_save_state);
    EXPECT_GT(drag_teach_count, 0);  // silent polls after the first point are counted
    EXPECT_TRUE(LogCapture::contains("drag_save len 25 robot_handle: 1 drag_save:"));
    EXPECT_EQ("{\"point\":[1,2,3,4,5,6]}\r\n{\"point\":[6,5,4,3,2,1]}\r\n", kxtest::close_save_file());

    // With no file open the save is marked failed.
    sim->send_raw(0, R"({"point":[1]})" "\r\n");
    EXPECT_EQ(-2, kx_pack_lock_set("saver", handle, nullptr, 0, "point", buf, sizeof buf, 100));
    EXPECT_EQ(1, drag_teach_save_state);
    EXPECT_EQ(0, kx_destory());
}
