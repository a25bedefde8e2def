/* The exported commands no other test needs, each called once against the
 * simulator: the request reaches the controller under its command name and
 * the call returns the controller's answer. */
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Remaining : public SimFixture {};

}  // namespace

TEST_F(Remaining, EveryCommandAnswers) {
    start();
    float f[7] = {};
    int n = 0;
    int versions[7] = {};
    uint8_t en[7] = {};
    struct Case {
        const char* command; /* the request's "command" */
        std::function<int()> call;
    };
    const std::vector<Case> cases = {
        {"clear_joint_odom", [&] { return kx_clear_joint_odom(h()); }},
        {"clear_system_err", [&] { return kx_clear_system_err(h()); }},
        {"clear_system_runtime", [&] { return kx_clear_system_runtime(h()); }},
        {"set_arm_max_line_acc", [&] { return kx_set_arm_max_line_acc(h(), 1.5f); }},
        {"get_arm_max_line_acc", [&] { return kx_get_arm_max_line_acc(h(), f); }},
        {"set_arm_max_angular_speed", [&] { return kx_set_arm_max_angular_speed(h(), 0.5f); }},
        {"get_arm_max_angular_speed", [&] { return kx_get_arm_max_angular_speed(h(), f); }},
        {"set_arm_max_angular_acc", [&] { return kx_set_arm_max_angular_acc(h(), 2.0f); }},
        {"get_arm_max_angular_acc", [&] { return kx_get_arm_max_angular_acc(h(), f); }},
        {"get_arm_power_state", [&] { return kx_get_arm_power_state(h(), &n); }},
        {"set_arm_run_mode", [&] { return kx_set_arm_run_mode(h(), 0); }},
        {"get_arm_run_mode", [&] { return kx_get_arm_run_mode(h(), &n); }},
        {"get_current_joint_current", [&] { return kx_get_current_joint_current(h(), f); }},
        {"get_current_joint_voltage", [&] { return kx_get_current_joint_voltage(h(), f); }},
        {"set_joint_drive_max_pos", [&] { return kx_set_joint_drive_max_pos(h(), 1, 170.0f); }},
        {"get_joint_drive_max_pos", [&] { return kx_get_joint_drive_max_pos(h(), f); }},
        {"set_joint_drive_min_pos", [&] { return kx_set_joint_drive_min_pos(h(), 1, -170.0f); }},
        {"get_joint_drive_min_pos", [&] { return kx_get_joint_drive_min_pos(h(), f); }},
        {"get_joint_drive_max_speed", [&] { return kx_get_joint_drive_max_speed(h(), f); }},
        {"set_joint_en_state", [&] { return kx_set_joint_en_state(h(), 1, 1); }},
        {"get_joint_en_state", [&] { return kx_get_joint_en_state(h(), en); }},
        {"get_joint_odom", [&] { return kx_get_joint_odom(h(), f); }},
        {"get_joint_software_version", [&] { return kx_get_joint_software_version(h(), versions); }},
        {"get_tool_software_version", [&] { return kx_get_tool_software_version(h(), &n); }},
        {"get_teach_frame", [&] { return kx_get_teach_frame(h(), &n); }},
        {"set_joint_clear_err", [&] { return kx_set_joint_clear_err(h(), 1); }},
        {"set_joint_zero_pos", [&] { return kx_set_joint_zero_pos(h(), 1); }},
        {"set_arm_pause", [&] { return kx_set_arm_pause(h()); }},
        {"set_arm_continue", [&] { return kx_set_arm_continue(h()); }},
        {"set_delete_current_trajectory", [&] { return kx_set_delete_current_trajectory(h()); }},
        {"set_arm_init", [&] { return kx_set_arm_tcp_init(h()); }},
        {"set_auto_tool_frame", [&] { return kx_set_auto_tool_frame(h(), 1); }},
        {"set_auto_work_frame", [&] { return kx_set_auto_work_frame(h(), "w1", 1); }},
        {"set_RS485", [&] { return kx_set_RS485(h(), 115200); }},
        {"set_net_default", [&] { return kx_set_net_default(h()); }},
        {"set_wifi_sta", [&] { return kx_set_wifi_sta(h(), "router", "secret"); }},
        {"set_wifi_close", [&] { return kx_set_wifi_close(h()); }},
        {"set_pos_step", [&] { return kx_set_pos_step_block(h(), KX_Z_DIR_E, 0.01f, 20, 1); }},
        {"set_ort_step", [&] { return kx_set_ort_step_block(h(), KX_RZ_ROTATE_E, 0.05f, 20, 1); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        sim->clear_received(0);
        EXPECT_EQ(0, c.call());
        const std::string head = std::string(R"({"command":")") + c.command + "\"";
        const std::vector<std::string> lines = sim->received(0);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(head, lines.front().substr(0, head.size()));
    }
}

TEST_F(Remaining, BlockingSplineAndArcReturnOnArrival) {
    start();
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    kx_pose_t to = st.pose;
    to.position.z -= 0.02f;
    EXPECT_EQ(0, kx_moves_block(h(), to, 50, 0, 0, 1));
    kx_pose_t via = to, end = to;
    via.position.x += 0.01f;
    via.position.y += 0.01f;
    end.position.x += 0.02f;
    EXPECT_EQ(0, kx_movec_block(h(), via, end, 50, 0, 0, 0, 1));
    EXPECT_FALSE(sim->moving(0));
}

TEST_F(Remaining, InternalLookupsAndVersion) {
    start();
    EXPECT_NE(nullptr, kx_api_version());
    EXPECT_EQ(0, kx_mutex_lock());
    EXPECT_EQ(0, kx_mutex_unlock());
    EXPECT_EQ(record(), kx_get_kx_handle_by_fifo_handle(record()->fifo_handle));
    kx_socket_fifo_handle other{};
    EXPECT_EQ(nullptr, kx_get_kx_handle_by_fifo_handle(&other));
}
