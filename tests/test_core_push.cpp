// Realtime push configuration: validation, request bytes per edition,
// decoding and the UDP registration that follows a read.
#include <gtest/gtest.h>

#include <cstring>

#include "test_core_util.h"

using kxtest::LogCapture;

namespace {

class CorePush : public kxtest::ModeTest {
protected:
    void SetUp() override {
        kxtest::ModeTest::SetUp();
        port_ = kxtest::free_udp_port();
        sim_ = kxtest::start_sim({"AVEN-P", "AVEN-QA", "AVEN-QS"}, port_, true);
        for (int i = 0; i < 3; ++i) {
            arms_[i] = kx_create_robot_arm(sim_->host(i).c_str(), sim_->port(i));
            ASSERT_NE(nullptr, arms_[i]);
            ASSERT_EQ(i + 1, arms_[i]->id);
        }
        m_nOutTime = 60000;
    }
    kx_realtime_push_config_t config() const {
        kx_realtime_push_config_t c{};
        c.cycle = 5;
        c.enable = true;
        c.port = port_;
        c.force_coordinate = -1;
        strcpy(c.ip, "127.0.0.1");
        c.custom_config = {-1, -1, -1, -1, -1, -1};
        return c;
    }
    // The request before the follow-up read.
    std::string set_request(int arm) {
        auto lines = sim_->received(arm);
        return lines.size() >= 2 ? lines[lines.size() - 2] : "";
    }

    int port_ = 0;
    std::unique_ptr<kxsim::Simulator> sim_;
    kx_robot_handle* arms_[3] = {};
};

}  // namespace

TEST_P(CorePush, InvalidConfigurationsAreRefusedUnsent) {
    LogCapture::install(LOG_LEVEL_ERROR);
    size_t sent = sim_->received(0).size();
    auto c = config();
    c.cycle = 0;
    EXPECT_EQ(-4, kx_set_realtime_push(arms_[0], c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild cycle: 0!\n"));
    c = config();
    c.port = 0;
    EXPECT_EQ(-4, kx_set_realtime_push(arms_[0], c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild port:0 !\n"));
    c = config();
    strcpy(c.ip, "1.2.3.");
    EXPECT_EQ(-4, kx_set_realtime_push(arms_[0], c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild ip: 1.2.3.!\n"));
    strcpy(c.ip, "123.123.123.1234");
    EXPECT_EQ(-4, kx_set_realtime_push(arms_[0], c));
    memset(c.ip, '9', sizeof c.ip);  // no terminator at all
    EXPECT_EQ(-4, kx_set_realtime_push(arms_[0], c));
    EXPECT_EQ(sent, sim_->received(0).size());
}

TEST_P(CorePush, RequestBytesFollowTheEdition) {
    LogCapture::install(LOG_LEVEL_INFO);
    const std::string port = std::to_string(port_);
    auto c = config();
    strcpy(c.ip, "1.2.3.4");  // seven characters are enough
    c.force_coordinate = 0;
    EXPECT_EQ(0, kx_set_realtime_push(arms_[0], c));
    EXPECT_EQ(R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":)" + port + R"(,"ip":"1.2.3.4"})",
              set_request(0));
    EXPECT_EQ(R"({"command":"get_realtime_push"})", sim_->received(0).back());  // the set is followed by a read
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push]Force sensors are not supported! \n"));

    c = config();
    c.force_coordinate = 1;
    c.custom_config = {1, 0, -1, 1, -1, 0};
    EXPECT_EQ(0, kx_set_realtime_push(arms_[1], c));
    EXPECT_EQ(R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":)" + port +
                  R"(,"ip":"127.0.0.1","force_cordinate":1,"custom":{"joint_speed":true,"lift_state":false,)"
                  R"("aloha_state":false,"hand":true}})",
              set_request(1));

    c = config();
    c.cycle = 20000;  // beyond what the controller takes
    EXPECT_EQ(1, kx_set_realtime_push(arms_[2], c));
    sim_->script_reply(2, "set_realtime_push", R"({"command":"set_realtime_push","set_state":true})" "\r\n");
    EXPECT_EQ(-3, kx_set_realtime_push(arms_[2], config()));
}

TEST_P(CorePush, ReadingDecodesAndRegistersThePort) {
    LogCapture::install(LOG_LEVEL_INFO);
    kx_realtime_push_config_t c;
    memset(&c, 0x55, sizeof c);
    sim_->script_reply(2, "get_realtime_push",
                       R"({"command":"get_realtime_push","cycle":5,"port":)" + std::to_string(port_) +
                           R"(,"ip":"192.168.1.10","enable":true,"force_coordinate":2,)"
                           R"("custom":{"joint_speed":true,"lift_state":false,"hand":true,"aloha_state":3}})" "\r\n");
    ASSERT_EQ(0, kx_get_realtime_push(arms_[2], &c));
    EXPECT_EQ(5, c.cycle);
    EXPECT_EQ(port_, c.port);
    EXPECT_STREQ("192.168.1.10", c.ip);
    EXPECT_TRUE(c.enable);
    EXPECT_EQ(2, c.force_coordinate);
    EXPECT_EQ(1, c.custom_config.joint_speed);
    EXPECT_EQ(0, c.custom_config.lift_state);
    EXPECT_EQ(-1, c.custom_config.expand_state);
    EXPECT_EQ(1, c.custom_config.hand_state);
    EXPECT_EQ(-1, c.custom_config.aloha_state);  // not a boolean
    EXPECT_EQ(port_, kxtest::record_of(arms_[2])->udp_port);
    EXPECT_TRUE(LogCapture::has_line("current thread mode " + std::to_string(GetParam()) +
                                     " realtime push config.enable: 1\n"));
    if (GetParam() == KX_TRIPLE_MODE_E) {
        // Every read of an enabled configuration adds a user to the port:
        // once per connection set-up, once more here.
        ASSERT_NE(nullptr, gUdpHandle);
        EXPECT_EQ(port_, gUdpHandle->udp_list[0].port);
        EXPECT_EQ(4, gUdpHandle->udp_list[0].user_num);
        EXPECT_TRUE(LogCapture::has_line("udp add port " + std::to_string(port_) + " result: 1\n"));
    } else {
        EXPECT_FALSE(LogCapture::contains("udp add port"));
    }

    // A force edition needs "force_coordinate"; the others report -1.
    sim_->script_reply(2, "get_realtime_push",
                       R"({"command":"get_realtime_push","cycle":5,"port":1,"ip":"1.1.1.1","enable":false,"custom":{}})"
                       "\r\n");
    EXPECT_EQ(-3, kx_get_realtime_push(arms_[2], &c));
    ASSERT_EQ(0, kx_get_realtime_push(arms_[0], &c));
    EXPECT_EQ(-1, c.force_coordinate);
    EXPECT_EQ(-1, kx_get_realtime_push(arms_[0], nullptr));
}

INSTANTIATE_TEST_SUITE_P(Modes, CorePush, testing::Values(KX_SINGLE_MODE_E, KX_DUAL_MODE_E, KX_TRIPLE_MODE_E));
