// Realtime push configuration: validation, request bytes, decoding and the
// UDP registration that follows a read.
#include <gtest/gtest.h>

#include <cstring>

#include "test_core_util.h"

using kxtest::FakeController;
using kxtest::LogCapture;

namespace {

std::string push_reply(int port, bool enable, const std::string& extra = "") {
    return R"({"command":"get_realtime_push","cycle":5,"port":)" + std::to_string(port) +
           R"(,"ip":"192.168.1.10","enable":)" + (enable ? "true" : "false") +
           R"(,"custom":{"joint_speed":true,"lift_state":false,"hand":true,"aloha_state":3})" + extra + "}\r\n";
}

class CorePush : public testing::TestWithParam<kx_thread_mode_e> {
protected:
    void SetUp() override {
        ASSERT_EQ(0, kx_init(GetParam()));
        port_ = kxtest::free_udp_port();
        fake_.set_handler([this](const std::string& line) -> std::string {
            std::string command = kxtest::command_of(line);
            if (command == "get_realtime_push") return push_reply(port_, enable_, extra_);
            if (command == "set_realtime_push") return set_reply_;
            return "";
        });
        m_nOutTime = 20;  // the scripted controller cannot answer the whole set-up
        handle_ = kx_create_robot_arm("127.0.0.1", fake_.port());
        ASSERT_NE(nullptr, handle_);
        kx_rdlock_lock();
        record_ = kx_get_kx_handle_by_robot_handle(handle_);
        kx_rdlock_unlock();
        ASSERT_NE(nullptr, record_);
        m_nOutTime = 60000;
    }
    void TearDown() override { EXPECT_EQ(0, kx_destory()); }
    void set_edition(kx_force_type_e type) {
        record_->arm_dof = 6;
        record_->force_type = type;
    }
    static kx_realtime_push_config_t config() {
        kx_realtime_push_config_t c{};
        c.cycle = 5;
        c.enable = true;
        c.port = 9000;
        c.force_coordinate = -1;
        strcpy(c.ip, "127.0.0.1");
        c.custom_config = {-1, -1, -1, -1, -1, -1};
        return c;
    }
    std::string last_request() { return fake_.received().back(); }

    FakeController fake_;
    int port_ = 0;
    bool enable_ = true;
    std::string extra_;
    std::string set_reply_ = R"({"command":"set_realtime_push","state":true})" "\r\n";
    kx_robot_handle* handle_ = nullptr;
    kx_handle_t* record_ = nullptr;
};

}  // namespace

TEST_P(CorePush, InvalidConfigurationsAreRefusedUnsent) {
    LogCapture::install(LOG_LEVEL_ERROR);
    size_t sent = fake_.received().size();
    auto c = config();
    c.cycle = 0;
    EXPECT_EQ(-4, kx_set_realtime_push(handle_, c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild cycle: 0!\n"));
    c = config();
    c.port = 0;
    EXPECT_EQ(-4, kx_set_realtime_push(handle_, c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild port:0 !\n"));
    c = config();
    strcpy(c.ip, "1.2.3.");
    EXPECT_EQ(-4, kx_set_realtime_push(handle_, c));
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push] set realtime push config error, invaild ip: 1.2.3.!\n"));
    strcpy(c.ip, "123.123.123.1234");
    EXPECT_EQ(-4, kx_set_realtime_push(handle_, c));
    memset(c.ip, '9', sizeof c.ip);  // no terminator at all
    EXPECT_EQ(-4, kx_set_realtime_push(handle_, c));
    EXPECT_EQ(sent, fake_.received().size());
}

TEST_P(CorePush, RequestBytesFollowTheEdition) {
    LogCapture::install(LOG_LEVEL_INFO);
    set_edition(KX_FORCE_TYPE_P_E);
    auto c = config();
    strcpy(c.ip, "1.2.3.4");  // seven characters is enough
    c.force_coordinate = 0;
    EXPECT_EQ(0, kx_set_realtime_push(handle_, c));
    auto lines = fake_.received();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":9000,"ip":"1.2.3.4"})",
              lines[lines.size() - 2]);
    EXPECT_EQ(R"({"command":"get_realtime_push"})", lines.back());  // the set is followed by a read
    EXPECT_TRUE(LogCapture::has_line("[kx_set_realtime_push]Force sensors are not supported! \n"));

    set_edition(KX_FORCE_TYPE_QA_E);
    extra_ = R"(,"force_coordinate":2)";
    c = config();
    c.force_coordinate = 1;
    c.custom_config = {1, 0, -1, 1, -1, 0};
    EXPECT_EQ(0, kx_set_realtime_push(handle_, c));
    lines = fake_.received();
    EXPECT_EQ(R"({"command":"set_realtime_push","enable":true,"cycle":5,"port":9000,"ip":"127.0.0.1","force_cordinate":1,)"
              R"("custom":{"joint_speed":true,"lift_state":false,"aloha_state":false,"hand":true}})",
              lines[lines.size() - 2]);

    set_reply_ = R"({"command":"set_realtime_push","state":false})" "\r\n";
    EXPECT_EQ(1, kx_set_realtime_push(handle_, config()));
    set_reply_ = R"({"command":"set_realtime_push","set_state":true})" "\r\n";
    EXPECT_EQ(-3, kx_set_realtime_push(handle_, config()));
}

TEST_P(CorePush, ReadingDecodesAndRegistersThePort) {
    LogCapture::install(LOG_LEVEL_INFO);
    set_edition(KX_FORCE_TYPE_QS_E);
    extra_ = R"(,"force_coordinate":2)";
    kx_realtime_push_config_t c;
    memset(&c, 0x55, sizeof c);
    ASSERT_EQ(0, kx_get_realtime_push(handle_, &c));
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
    EXPECT_EQ(port_, record_->udp_port);
    EXPECT_TRUE(LogCapture::has_line("current thread mode " + std::to_string(GetParam()) +
                                     " realtime push config.enable: 1\n"));
    if (GetParam() == KX_TRIPLE_MODE_E) {
        // Every read of an enabled configuration adds a user to the port.
        ASSERT_EQ(0, kx_get_realtime_push(handle_, &c));
        ASSERT_NE(nullptr, gUdpHandle);
        EXPECT_EQ(port_, gUdpHandle->udp_list[0].port);
        EXPECT_GE(gUdpHandle->udp_list[0].user_num, 1);
        EXPECT_TRUE(LogCapture::has_line("udp add port " + std::to_string(port_) + " result: 1\n"));
    } else {
        EXPECT_FALSE(LogCapture::contains("udp add port"));
    }

    // A force edition needs "force_coordinate"; other editions ignore it.
    extra_ = "";
    EXPECT_EQ(-3, kx_get_realtime_push(handle_, &c));
    set_edition(KX_FORCE_TYPE_P_E);
    EXPECT_EQ(0, kx_get_realtime_push(handle_, &c));
    EXPECT_EQ(-1, c.force_coordinate);
    EXPECT_EQ(-1, kx_get_realtime_push(handle_, nullptr));
}

INSTANTIATE_TEST_SUITE_P(Modes, CorePush, testing::Values(KX_SINGLE_MODE_E, KX_DUAL_MODE_E, KX_TRIPLE_MODE_E));
