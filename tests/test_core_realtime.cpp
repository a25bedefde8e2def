// Realtime datagram decoding, the UDP port registry and delivery in triple mode.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstring>

#include "test_core_util.h"
#include "udp.h"

using kxtest::LogCapture;

namespace {

const char* kFull = R"({
 "aloha_state":{"io1_state":1,"io2_state":0},
 "arm_current_status":"move_J",
 "hand":{"hand_pos":[1,2,3,4,5,6],"hand_angle":[6,5,4,3,2,1],"hand_force":[0,0,0,0,0,9],
         "hand_state":[1,1,1,1,1,1],"hand_err":3},
 "lift_state":{"pos":1500,"height":20,"current":30,"err_flag":0,"en_flag":1},
 "expand_state":{"joint_id":7,"mode":1,"pos":-2500,"current":5,"err_flag":1,"en_flag":1},
 "joint_status":{"joint_position":[1000,-2000,3000,0,0,0],"joint_current":[500,0,0,0,0,0],
                 "joint_en_flag":[1,0,1,1,1,1],"joint_err_code":[0,65537,0,0,0,0],
                 "joint_temperature":[25000,0,0,0,0,0],"joint_voltage":[48000,0,0,0,0,0],
                 "joint_speed":[1000,-500,0,0,0,0]},
 "six_force_sensor":{"force":[1000,2000,3000,4000,5000,6000],"zero_force":[1,2,3,4,5,6],"coordinate":1},
 "waypoint":{"quat":[1000000,0,0,0],"euler":[100,200,-300],"position":[100000,-200000,300000]},
 "err":[0,5]})";

TEST(CoreRealtime, DecodesAFullDatagram) {
    kx_realtime_arm_joint_state_t s;
    memset(&s, 0x77, sizeof s);
    ASSERT_EQ(0, parse_kx_realtime_arm_joint_state(kFull, &s));
    EXPECT_EQ(1, s.aloha_state.io1_state);
    EXPECT_EQ(KX_MOVE_J_E, s.arm_current_status);
    EXPECT_EQ(6, s.handState.hand_pos[5]);
    EXPECT_EQ(9, s.handState.hand_force[5]);
    EXPECT_EQ(3, s.handState.hand_err);
    EXPECT_FLOAT_EQ(1.5f, s.liftState.pos);
    EXPECT_EQ(20, s.liftState.height);
    EXPECT_FLOAT_EQ(-2.5f, s.expandState.pos);
    EXPECT_EQ(7, s.expandState.joint_id);
    EXPECT_FLOAT_EQ(-2.0f, s.joint_status.joint_position[1]);
    EXPECT_FLOAT_EQ(0.5f, s.joint_status.joint_current[0]);
    EXPECT_FALSE(s.joint_status.joint_en_flag[1]);
    EXPECT_EQ(1, s.joint_status.joint_err_code[1]);  // stored as 16 bits
    EXPECT_FLOAT_EQ(25.0f, s.joint_status.joint_temperature[0]);
    EXPECT_FLOAT_EQ(48.0f, s.joint_status.joint_voltage[0]);
    EXPECT_FLOAT_EQ(6.0f, s.joint_status.joint_speed[0]);
    EXPECT_FLOAT_EQ(-3.0f, s.joint_status.joint_speed[1]);
    EXPECT_FLOAT_EQ(0.0f, s.joint_status.joint_position[6]);  // zero-filled first
    EXPECT_FLOAT_EQ(6.0f, s.force_sensor.force[5]);
    EXPECT_FLOAT_EQ(0.006f, s.force_sensor.zero_force[5]);
    EXPECT_EQ(1, s.force_sensor.coordinate);
    EXPECT_FLOAT_EQ(1.0f, s.waypoint.quaternion.w);
    EXPECT_FLOAT_EQ(-0.3f, s.waypoint.euler.rz);
    EXPECT_FLOAT_EQ(-0.2f, s.waypoint.position.y);
    EXPECT_EQ(2, s.err.err_len);
    EXPECT_EQ(5, s.err.err[1]);
}

TEST(CoreRealtime, FailuresKeepWhatWasDecodedBefore) {
    LogCapture::install();
    kx_realtime_arm_joint_state_t s;
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(
                      R"({"aloha_state":{"io1_state":4,"io2_state":5},"lift_state":{"pos":1000,"height":1,"current":1,"err_flag":0,"en_flag":0},"waypoint":{}})",
                      &s));
    EXPECT_EQ(4, s.aloha_state.io1_state);
    EXPECT_FLOAT_EQ(1.0f, s.liftState.pos);
    EXPECT_TRUE(LogCapture::all().empty());  // only not-JSON is logged

    const std::string base = R"("joint_status":{},"err":[0])";
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(
                      ("{" + base + R"(,"waypoint":{"quat":[1,0,0],"euler":[0,0,0],"position":[0,0,0]}})").c_str(), &s));
    EXPECT_EQ(0, parse_kx_realtime_arm_joint_state(
                     ("{" + base + R"(,"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]}})").c_str(), &s));
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(
                      R"({"joint_status":{},"err":[],"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]}})",
                      &s));
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(
                      R"({"joint_status":{},"err":[0],"lift_state":{"pos":1},"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]}})",
                      &s));
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state("{\"truncated\":", &s));
    EXPECT_TRUE(LogCapture::has_line("[kx_realtime_arm_joint_state] parse err\n"));
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(nullptr, &s));
}

TEST(CoreRealtime, HostileArrayLengthsStayInsideTheRecord) {
    std::string many;
    for (int i = 0; i < 100; ++i) many += (i ? "," : "") + std::to_string(i + 1);
    std::string text = R"({"joint_status":{"joint_position":[)" + many + R"(],"joint_speed":[)" + many +
                       R"(]},"hand":{"hand_pos":[)" + many + R"(],"hand_angle":[],"hand_force":[],"hand_state":[],"hand_err":0},)" +
                       R"("six_force_sensor":{"force":[)" + many + R"(]},"err":[)" + many +
                       R"(],"waypoint":{"quat":[1,0,0,0],"euler":[0,0,0],"position":[0,0,0]}})";
    struct {
        kx_realtime_arm_joint_state_t s;
        int canary[8];
    } guarded;
    for (int& c : guarded.canary) c = 0x5a5a5a5a;
    ASSERT_EQ(0, parse_kx_realtime_arm_joint_state(text.c_str(), &guarded.s));
    EXPECT_FLOAT_EQ(0.007f, guarded.s.joint_status.joint_position[6]);
    EXPECT_EQ(6, guarded.s.handState.hand_pos[5]);
    EXPECT_EQ(24, guarded.s.err.err_len);
    EXPECT_EQ(24, guarded.s.err.err[23]);
    for (int c : guarded.canary) EXPECT_EQ(0x5a5a5a5a, c);
}

TEST(CoreRealtime, StatusStrings) {
    const char* names[] = {"idle", "move_L", "move_J", "move_C", "move_S", "move_through_joint", "move_through_pose",
                           "move_through_force_pose", "move_through_current", "stop", "slow_stop", "pause",
                           "current_drag", "sensor_drag", "tech_demonstration"};
    for (int i = 0; i < 15; ++i) EXPECT_EQ(i, get_arm_status_from_string(names[i])) << names[i];
    EXPECT_EQ(KX_IDLE_E, get_arm_status_from_string("Move_J"));
    EXPECT_EQ(KX_IDLE_E, get_arm_status_from_string("flying"));
    EXPECT_EQ(KX_IDLE_E, get_arm_status_from_string(nullptr));
    kx_realtime_arm_joint_state_t s;
    EXPECT_EQ(-3, parse_kx_realtime_arm_joint_state(R"({"arm_current_status":5})", &s));
}

TEST(CoreRealtime, PortRegistryCountsUsersAndReleasesSockets) {
    kx_udp_handle* reg = kx_udp_init();
    ASSERT_NE(nullptr, reg);
    int ports[6];
    for (int& p : ports) p = kxtest::free_udp_port();
    EXPECT_EQ(0, reg->udp_add_port(reg, ports[0]));
    EXPECT_EQ(1, reg->udp_add_port(reg, ports[0]));
    EXPECT_EQ(2, reg->udp_list[0].user_num);
    int fd = reg->udp_list[0].udp_id;
    EXPECT_GT(fd, 0);
    EXPECT_EQ(0, reg->udp_delete_port(reg, ports[0]));
    EXPECT_EQ(1, reg->udp_list[0].user_num);
    EXPECT_EQ(0, reg->udp_delete_port(reg, 1));  // unknown port: nothing changes
    EXPECT_EQ(1, reg->udp_list[0].user_num);
    for (int i = 1; i < 5; ++i) EXPECT_EQ(0, reg->udp_add_port(reg, ports[i]));
    EXPECT_EQ(-2, reg->udp_add_port(reg, ports[5]));
    EXPECT_EQ(0, reg->udp_delete_port(reg, ports[0]));
    EXPECT_EQ(0, reg->udp_list[0].user_num);
    EXPECT_EQ(0, reg->udp_list[0].udp_id);
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));  // released ports close their socket
    for (int i = 1; i < 5; ++i) reg->udp_delete_port(reg, ports[i]);
    free(reg);
}

TEST(CoreRealtime, BindingAPortHeldWithoutReuseFails) {
    int holder = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    bind(holder, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t len = sizeof addr;
    getsockname(holder, reinterpret_cast<sockaddr*>(&addr), &len);
    kx_udp_handle* reg = kx_udp_init();
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, reg->udp_add_port(reg, ntohs(addr.sin_port)));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("bind failed"));
    EXPECT_EQ(0, reg->udp_list[0].user_num);
    close(holder);
    free(reg);
}

kxtest::Collector<kx_realtime_arm_joint_state_t> g_states;
void on_state(kx_realtime_arm_joint_state_t state) { g_states.add(state); }

TEST(CoreRealtime, TripleModeDeliversEveryWaitingDatagram) {
    ASSERT_EQ(0, kx_init(KX_TRIPLE_MODE_E));
    ASSERT_NE(nullptr, gUdpHandle);
    kx_realtime_arm_state_call_back(on_state);
    int port = kxtest::free_udp_port();
    ASSERT_EQ(0, gUdpHandle->udp_add_port(gUdpHandle, port));

    int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int kCount = 200;
    for (int i = 0; i < kCount; ++i) {
        std::string d = i % 2 ? std::string(kFull) : std::string("garbage");
        sendto(sender, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }
    std::string huge(5000, '{');  // cut to 1024 bytes, then rejected
    sendto(sender, huge.data(), huge.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    auto states = g_states.wait_for(kCount + 1);
    ASSERT_EQ(static_cast<size_t>(kCount + 1), states.size());
    EXPECT_EQ(-3, states[0].errCode);
    EXPECT_EQ(0, states[1].errCode);
    EXPECT_EQ(KX_MOVE_J_E, states[1].arm_current_status);
    EXPECT_STREQ("127.0.0.1", states[1].arm_ip);
    EXPECT_EQ(-3, states[kCount].errCode);
    close(sender);
    EXPECT_EQ(0, kx_destory());
}

}  // namespace
