// The TCP side against a scripted controller: framing across segments,
// timeouts, peer close, the connection table and single mode.
#include <gtest/gtest.h>

#include <thread>

#include "socket.h"
#include "test_core_util.h"

using kxtest::FakeController;
using kxtest::LogCapture;

namespace {

const char* kPushReply =
    R"({"command":"get_realtime_push","cycle":10,"port":8089,"ip":"127.0.0.1","enable":false,"custom":{}})"
    "\r\n";

// Answers the push-configuration query of the connection set-up; everything
// else through `more` (empty = silence).
FakeController::Handler controller(std::function<std::string(const std::string&)> more = {}) {
    return [more](const std::string& line) -> std::string {
        if (kxtest::command_of(line) == "get_realtime_push") return kPushReply;
        return more ? more(line) : std::string();
    };
}

// The scripted controller cannot answer the whole set-up: let it fail fast.
kx_robot_handle* connect(FakeController& fake) {
    m_nOutTime = 20;
    kx_robot_handle* handle = kx_create_robot_arm("127.0.0.1", fake.port());
    m_nOutTime = 500;
    EXPECT_NE(nullptr, handle);
    return handle;
}

// The generic integer query the tests drive: {"command":"get_v"}, value "v".
int get_v(kx_robot_handle* handle, int* value, const char* command = "get_v") {
    std::string cmd = command, key = "v";
    return kx_get_data_common(handle, value, cmd.data(), key.data());
}

class CoreTransport : public kxtest::ModeTest {};

}  // namespace

TEST_P(CoreTransport, FramesSurviveAnySegmentation) {
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    int value = 0;

    // Two frames in one segment: the second waits in the queue (or the framer) for its caller.
    fake.set_handler(controller([&](const std::string&) {
        return std::string(R"({"command":"get_v","v":11})" "\r\n" R"({"command":"get_w","v":22})" "\r\n");
    }));
    ASSERT_EQ(0, get_v(handle, &value));
    EXPECT_EQ(11, value);
    fake.set_handler(controller());
    ASSERT_EQ(0, get_v(handle, &value, "get_w"));
    EXPECT_EQ(22, value);

    // One frame split byte by byte.
    fake.set_handler(controller([&](const std::string&) {
        fake.send_bytewise(R"({"command":"get_v","v":33})" "\r\n");
        return std::string();
    }));
    m_nOutTime = 60000;
    ASSERT_EQ(0, get_v(handle, &value));
    EXPECT_EQ(33, value);
}

TEST_P(CoreTransport, SilenceTimesOutAndClosingIsDetected) {
    LogCapture::install(LOG_LEVEL_ERROR);
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    int value = 0;
    m_nOutTime = 40;
    EXPECT_EQ(-2, get_v(handle, &value));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_data_common] get_v revice error\n"));

    // The controller closes while a call waits: no reply, then sends fail.
    fake.set_handler([&](const std::string&) {
        fake.close_client();
        return std::string();
    });
    m_nOutTime = 300;
    EXPECT_EQ(-2, get_v(handle, &value));
    kx_handle_t* record = kxtest::record_of(handle);
    ASSERT_NE(nullptr, record);
    if (GetParam() != KX_SINGLE_MODE_E) {
        EXPECT_TRUE(LogCapture::has_line("服务器已关闭!\n"));
        EXPECT_EQ(-1, kx::socket_fd(record->socket_handle));
        EXPECT_EQ(-1, get_v(handle, &value));
        EXPECT_TRUE(LogCapture::has_line("[kx_get_data_common] get_v send error\n"));
    }
}

TEST_P(CoreTransport, HostileRepliesNeverBreakTheStream) {
    LogCapture::install(LOG_LEVEL_ERROR);
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    int value = 0;
    m_nOutTime = 60000;
    fake.set_handler(controller([&](const std::string&) {
        std::string junk = "\x01\x02garbage}\r\n{\"command\":\r\n" + std::string(70 * 1024, 'x') + "\r\n";
        return junk + R"({"command":"get_v","v":-5})" "\r\n";
    }));
    ASSERT_EQ(0, get_v(handle, &value));
    EXPECT_EQ(-5, value);
    EXPECT_TRUE(LogCapture::contains("frame longer than 65536 bytes dropped"));

    // Undecodable replies are -3, never a crash.
    fake.set_handler(controller([&](const std::string&) { return std::string(R"({"command":"get_v","v":[1]})" "\r\n"); }));
    EXPECT_EQ(0, get_v(handle, &value));  // a non-number reads 0
    EXPECT_EQ(0, value);
    fake.set_handler(controller([&](const std::string&) { return std::string(R"({"command":"get_v"})" "\r\n"); }));
    EXPECT_EQ(-3, get_v(handle, &value));
}

INSTANTIATE_TEST_SUITE_P(Modes, CoreTransport,
                         testing::Values(KX_SINGLE_MODE_E, KX_DUAL_MODE_E, KX_TRIPLE_MODE_E),
                         [](const testing::TestParamInfo<kx_thread_mode_e>& info) {
                             return std::string(info.param == KX_SINGLE_MODE_E   ? "Single"
                                                : info.param == KX_DUAL_MODE_E ? "Dual"
                                                                                : "Triple");
                         });

TEST(CoreTransportThreaded, UnterminatedCompleteReplyIsAccepted) {
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    char set_v[] = "set_v", v_key[] = "v";
    m_nOutTime_max = 60000;
    fake.set_handler(controller([&](const std::string&) { return std::string(R"({"command":"set_v","set_state":true})"); }));
    EXPECT_EQ(0, kx_set_data_common(handle, 4, set_v, v_key));
    EXPECT_EQ(R"({"command":"set_v","v":4})", fake.received().back());
    fake.set_handler(controller([&](const std::string&) { return std::string(R"({"command":"set_v","set_state":false})" "\r\n"); }));
    EXPECT_EQ(1, kx_set_data_common(handle, 4, set_v, v_key));
    EXPECT_EQ(0, kx_destory());
}

TEST(CoreTransportThreaded, EventsReachTheCallbackWhileQueued) {
    static std::atomic<int> events{0};
    kx_get_arm_event_call_back([](kx_event_push_data_t e) {
        if (e.event_type == KX_CURRENT_TRAJECTORY_STATE_E && e.device == 3) events++;
    });
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    fake.send_raw(R"({"command":"current_trajectory_state","trajectory_state":true,"device":3,"trajectory_connect":0})"
                  "\r\n");
    uint8_t buf[1024] = {};
    ASSERT_GT(kx_pack_lock_set("t", handle, nullptr, 0, "current_trajectory_state", buf, sizeof buf, 60000), 0);
    EXPECT_EQ(1, events.load());
    int device = -1, connect_flag = -1;
    EXPECT_EQ(1, parse_kx_move_command(reinterpret_cast<char*>(buf), &device, &connect_flag));
    EXPECT_EQ(3, device);
    EXPECT_EQ(0, kx_destory());
}

TEST(CoreTransportThreaded, DestroyReturnsWithCallsInFlight) {
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    const size_t base = fake.received().size();
    m_nOutTime = 600000;
    std::vector<std::thread> callers;
    std::atomic<int> finished{0};
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            int value;
            EXPECT_EQ(-2, get_v(handle, &value));
            finished++;
        });
    }
    EXPECT_TRUE(fake.wait_received(base + 3));
    EXPECT_EQ(0, kx_destory());
    for (auto& t : callers) t.join();
    EXPECT_EQ(3, finished.load());
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
    EXPECT_EQ(nullptr, kx_create_robot_arm("127.0.0.1", port));
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] robot num is max"));

    // Failed records still answer lookups; the model is unknown.
    kx_robot_info_t info;
    EXPECT_EQ(-2, kx_get_robot_info(handles[0], &info));
    int dof = 0;
    EXPECT_EQ(-1, kx_get_arm_dof(handles[0], &dof));
    kx_robot_handle copy = *handles[0];
    EXPECT_EQ(-1, kx_get_robot_info(&copy, &info));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_robot_info] handle is NULL!\n"));
    EXPECT_EQ(-1, kx_delete_robot_arm(&copy));
    EXPECT_TRUE(LogCapture::has_line("not find handle\n"));
    int value;
    EXPECT_EQ(-1, get_v(&copy, &value));

    // Deleting (which needs the write lock) frees a slot for a real connection.
    EXPECT_EQ(0, kx_delete_robot_arm(handles[2]));
    FakeController fake(controller());
    kx_robot_handle* live = connect(fake);
    kx_rdlock_lock();
    EXPECT_EQ(gHandleList[2], kx_get_kx_handle_by_robot_handle(live));  // the lowest free slot is reused
    kx_rdlock_unlock();
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

    FakeController fake;
    kx_socket_handle* sock = kx_socket_handle_init("127.0.0.1", fake.port());
    ASSERT_GT(sock->init(sock), 0);
    uint8_t byte = 'x';
    EXPECT_EQ(-1, sock->send(sock, &byte, 0));
    EXPECT_EQ(-1, sock->block_send(sock, nullptr, 1));
    uint8_t buf[16];
    EXPECT_EQ(-2, sock->block_receive(sock, buf, sizeof buf));  // idle: returns at once
    EXPECT_EQ(-2, sock->receive(sock, buf, sizeof buf));
    EXPECT_EQ(-1, sock->receive(sock, buf, 0));
    ASSERT_TRUE(fake.wait_connected());
    fake.send_raw("hi");
    int n;
    while ((n = sock->block_receive(sock, buf, sizeof buf)) == -2) std::this_thread::yield();
    EXPECT_EQ(2, n);
    fake.close_client();
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
    FakeController fake(controller());
    kx_robot_handle* handle = connect(fake);
    F_SaveDragTeach = tmpfile();
    fake.send_raw(R"({"point":[1,2,3,4,5,6]})" "\r\n" R"({"command":"other"})" "\r\n" R"({"point":[6,5,4,3,2,1]})" "\r\n");
    uint8_t buf[2048] = {};
    // Point frames never match: the wait runs out having written them.
    EXPECT_EQ(-2, kx_pack_lock_set("saver", handle, nullptr, 0, "point", buf, sizeof buf, 200));
    EXPECT_TRUE(LogCapture::has_line("[saver] point save_trajectory complete\n"));
    EXPECT_EQ(1, drag_teach_save_start);
    EXPECT_EQ(0, drag_teach_save_state);
    EXPECT_GT(drag_teach_count, 0);  // silent polls after the first point are counted
    EXPECT_TRUE(LogCapture::contains("drag_save len 25 robot_handle: "));
    rewind(F_SaveDragTeach);
    char content[256] = {};
    fread(content, 1, sizeof content - 1, F_SaveDragTeach);
    EXPECT_STREQ("{\"point\":[1,2,3,4,5,6]}\r\n{\"point\":[6,5,4,3,2,1]}\r\n", content);
    fclose(F_SaveDragTeach);
    F_SaveDragTeach = nullptr;

    // With no file open the save is marked failed.
    fake.send_raw(R"({"point":[1]})" "\r\n");
    EXPECT_EQ(-2, kx_pack_lock_set("saver", handle, nullptr, 0, "point", buf, sizeof buf, 100));
    EXPECT_EQ(1, drag_teach_save_state);
    EXPECT_EQ(0, kx_destory());
}
