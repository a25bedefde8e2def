// An application that defines globals and helpers named like the library's:
// the library keeps using its own, and never touches the application's.
// This file includes only public headers, as an application would.
#include <gtest/gtest.h>

#include <cstring>

#include "kx_interface.h"
#include "simulator.h"

extern "C" {
int should_exit = 7;              // the library's is a volatile bool
const char* gHandleList = "mine"; // the library's is a table of five records
int g_mode = -5;
int m_nOutTime = 1;               // the library's is 500 ms: with 1 it would time out
int log_info_calls = 0;
void log_info(const char*, ...) { ++log_info_calls; }
}

TEST(AppSymbols, SameNamesInTheApplicationAndTheLibraryStayApart) {
    kxsim::Options o;
    o.arms = {kxsim::ArmOptions{"AVEN-P"}, kxsim::ArmOptions{"GOLT-QS"}};
    o.push_enabled = false;
    kxsim::Simulator sim(o);
    ASSERT_TRUE(sim.start());
    for (kx_thread_mode_e mode : {KX_TRIPLE_MODE_E, KX_SINGLE_MODE_E}) {
        ASSERT_EQ(0, kx_init(mode));
        kx_robot_handle* arms[2];
        for (int k = 0; k < 2; ++k) {
            arms[k] = kx_create_robot_arm(sim.host(k).c_str(), sim.port(k));
            ASSERT_NE(nullptr, arms[k]);
            EXPECT_EQ(k + 1, arms[k]->id);
        }
        kx_arm_software_version_t info;
        ASSERT_EQ(0, kx_get_arm_software_info(arms[1], &info));
        EXPECT_STREQ("GOLT-QS", info.product_version);
        EXPECT_EQ(0, kx_delete_robot_arm(arms[0]));
        EXPECT_EQ(0, kx_destory());  // raises the library's stop flag and joins its threads
        EXPECT_EQ(7, should_exit);
        EXPECT_STREQ("mine", gHandleList);
        EXPECT_EQ(-5, g_mode);
        EXPECT_EQ(1, m_nOutTime);
        EXPECT_EQ(0, log_info_calls);
    }
}
