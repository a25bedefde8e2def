// The facade with a real connection to the simulator: creating an arm
// loads its cached description into the kinematics library, and every
// handle-taking operation reloads it.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "algo_arm.h"
#include "kx_interface.h"
#include "libalgo_interface.h"
#include "simulator.h"

namespace {

std::mutex log_mutex;
std::vector<std::string> log_lines;

void capture(const char* fmt, va_list args) {
    char text[1024];
    vsnprintf(text, sizeof text, fmt, args);
    std::lock_guard lock(log_mutex);
    log_lines.emplace_back(text);
}

bool logged(const std::string& line) {
    std::lock_guard lock(log_mutex);
    for (const auto& l : log_lines)
        if (l == line) return true;
    return false;
}

class AlgoConnected : public ::testing::Test {
protected:
    void SetUp() override {
        kxsim::Options options;
        options.arms = {kxsim::ArmOptions{"BRIV-QA"}};
        options.push_enabled = false;
        sim_ = std::make_unique<kxsim::Simulator>(options);
        ASSERT_TRUE(sim_->start());
        ASSERT_EQ(kx_init(KX_DUAL_MODE_E), 0);
        kx_set_log_call_back(capture, LOG_LEVEL_DEBUG);
        handle_ = kx_create_robot_arm(sim_->host(0).c_str(), sim_->port(0));
        ASSERT_NE(handle_, nullptr);
        ASSERT_GT(handle_->id, 0);
    }
    void TearDown() override {
        kx_destory();
        sim_.reset();
    }
    std::unique_ptr<kxsim::Simulator> sim_;
    kx_robot_handle* handle_ = nullptr;
};

}  // namespace

TEST_F(AlgoConnected, CreatingAnArmLoadsItsDescriptionAndHandlesReloadIt) {
    EXPECT_EQ(libalgo_get_robot_type(), BRIV);
    EXPECT_EQ(libalgo_get_sensor_type(), _QA);
    EXPECT_EQ(libalgo_get_rbt_dof(), 7);

    // Another model in the library is replaced by the connection's again.
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    const float q[7] = {10, -20, 30, -40, 50, 60, 70};
    const kx_pose_t pose = kx_algo_forward_kinematics(handle_, q);
    EXPECT_EQ(libalgo_get_robot_type(), BRIV);
    algo::ArmModel m;
    ASSERT_TRUE(algo::default_model(BRIV, _QA, &m));
    float qr[8] = {}, T[4][4];
    for (int i = 0; i < 7; ++i) qr[i] = q[i] * 0.017453292519943295f;
    algo::arm_fk(m, qr, T);
    EXPECT_NEAR(pose.position.x, T[0][3], 1e-5);
    EXPECT_NEAR(pose.position.z, T[2][3], 1e-5);

    kx_inverse_kinematics_params_t p{};
    for (int i = 0; i < 7; ++i) p.q_in[i] = q[i] + 2;
    p.q_pose = pose;
    p.flag = 1;
    float out[7] = {};
    kx_algo_init_sys_data(KX_MODEL_GOLT_E, KX_FORCE_TYPE_P_E);
    ASSERT_EQ(kx_algo_inverse_kinematics(handle_, p, out), 0);
    const kx_pose_t back = kx_algo_forward_kinematics(handle_, out);
    EXPECT_NEAR(back.position.y, pose.position.y, 1e-5);

    // Tool to flange and back through the record's frames.
    const kx_pose_t tool = kx_algo_end2tool(handle_, pose);
    const kx_pose_t flange = kx_algo_tool2end(handle_, tool);
    EXPECT_NEAR(flange.position.x, pose.position.x, 1e-5);
    EXPECT_NEAR(flange.position.z, pose.position.z, 1e-5);

    // An unknown handle warns and leaves the configuration; null is silent.
    kx_algo_init_sys_data(KX_MODEL_DUMO_E, KX_FORCE_TYPE_P_E);
    kx_robot_handle stranger{4};
    kx_algo_arm_state_set(&stranger);
    EXPECT_TRUE(logged("The robotic arm is not connected!"));
    EXPECT_EQ(libalgo_get_robot_type(), DUMO);
    {
        std::lock_guard lock(log_mutex);
        log_lines.clear();
    }
    kx_algo_arm_state_set(nullptr);
    EXPECT_FALSE(logged("The robotic arm is not connected!"));
    EXPECT_EQ(libalgo_get_robot_type(), DUMO);
}
