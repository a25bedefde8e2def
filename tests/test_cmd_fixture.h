/* Shared set-up of the command-family tests: an in-process simulator on
 * ephemeral ports, the library connected to it, and captured log lines. */
#ifndef TEST_CMD_FIXTURE_H
#define TEST_CMD_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "kx_interface_global.h"
#include "simulator.h"
#include "test_core_util.h"

namespace cmdtest {

/* Exact log lines, captured through the core tests' sink. */
inline bool logged(const std::string& text) { return kxtest::LogCapture::has_line(text); }
inline void clear_log() { kxtest::LogCapture::clear(); }
using kxtest::free_udp_port;

inline kx_pose_t pose_of(float x, float y, float z, float rx, float ry, float rz) {
    kx_pose_t p{};
    p.position = {x, y, z};
    p.euler = {rx, ry, rz};
    return p;
}

/* Polls a condition on simulator state (which the library cannot signal)
 * until it holds or the deadline passes. */
template <class F>
bool eventually(F&& f, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (std::chrono::steady_clock::now() < end) {
        if (f()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return f();
}

struct SimSetup {
    std::vector<std::string> products{"AVEN-P"};
    kx_thread_mode_e mode = KX_DUAL_MODE_E;
    double time_scale = 20.0;
    bool push = false;
    /* Runs after the simulator started and before the library connects. */
    std::function<void(kxsim::Simulator&)> before_connect;
};

class SimFixture : public ::testing::Test {
protected:
    void start(const SimSetup& s = SimSetup{}) {
        kxsim::Options o;
        o.arms.clear();
        for (const std::string& p : s.products) o.arms.push_back(kxsim::ArmOptions{p});
        o.base_port = 0;
        o.time_scale = s.time_scale;
        o.udp_port = free_udp_port();
        o.push_enabled = s.push;
        sim = std::make_unique<kxsim::Simulator>(o);
        ASSERT_TRUE(sim->start());
        if (s.before_connect) s.before_connect(*sim);
        kxtest::LogCapture::install(LOG_LEVEL_DEBUG);
        ASSERT_EQ(0, kx_init(s.mode));
        inited = true;
        for (int i = 0; i < sim->arm_count(); ++i) {
            kx_robot_handle* h = kx_create_robot_arm(sim->host(i).c_str(), sim->port(i));
            ASSERT_NE(nullptr, h);
            handles.push_back(h);
        }
    }

    void TearDown() override {
        if (inited) kx_destory();
        if (sim) sim->stop();
    }

    kx_robot_handle* h(int arm = 0) { return handles.at(static_cast<size_t>(arm)); }
    kx_handle_t* record(int arm = 0) { return kx_get_kx_handle_by_robot_handle(h(arm)); }

    /* The last request line the arm received, once it has at least n. */
    std::string last_request(int arm = 0) {
        std::vector<std::string> lines = sim->received(arm);
        return lines.empty() ? std::string() : lines.back();
    }

    /* Every request line received since the last clear that starts with
     * {"command":"<command>". */
    std::vector<std::string> requests(const std::string& command, int arm = 0) {
        std::vector<std::string> out;
        const std::string head = "{\"command\":\"" + command + "\"";
        for (const std::string& line : sim->received(arm))
            if (line.compare(0, head.size(), head) == 0) out.push_back(line);
        return out;
    }

    std::unique_ptr<kxsim::Simulator> sim;
    std::vector<kx_robot_handle*> handles;
    bool inited = false;
};

}  // namespace cmdtest

#endif /* TEST_CMD_FIXTURE_H */
