// The simulator's behaviour seen through the public library: an in-process
// simulator whose refusal lines are captured, the library connected to
// every arm of it.
#ifndef TEST_SIM_FIXTURE_H
#define TEST_SIM_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"
#include "test_core_util.h"

namespace simtest {

class LibrarySim : public ::testing::Test {
protected:
    /* Starts a simulator of these products and connects the library to each arm. */
    void start(const std::vector<std::string>& products, double time_scale = 20.0,
               kx_thread_mode_e mode = KX_DUAL_MODE_E, bool push = false) {
        kxsim::Options o;
        o.arms.clear();
        for (const std::string& p : products) o.arms.push_back(kxsim::ArmOptions{p});
        o.time_scale = time_scale;
        o.push_enabled = push;
        udp_port = kxtest::free_udp_port();
        o.udp_port = udp_port;
        o.push_cycle = 5;
        o.log = [this](const std::string& line) {
            std::lock_guard<std::mutex> l(mu_);
            lines_.push_back(line);
        };
        sim = std::make_unique<kxsim::Simulator>(o);
        ASSERT_TRUE(sim->start());
        ASSERT_EQ(0, kx_init(mode));
        inited_ = true;
        for (int k = 0; k < sim->arm_count(); ++k) {
            kx_robot_handle* h = kxtest::connect_arm(*sim, k);
            ASSERT_NE(nullptr, h);
            ASSERT_GT(h->id, 0);
            arms.push_back(h);
        }
    }

    void TearDown() override {
        if (inited_) kx_destory();
        if (sim) sim->stop();
    }

    kx_robot_handle* h(int arm = 0) { return arms.at(static_cast<size_t>(arm)); }

    /* The simulator's log lines so far, and those containing every one of `parts`. */
    std::vector<std::string> log_lines() {
        std::lock_guard<std::mutex> l(mu_);
        return lines_;
    }
    std::vector<std::string> logged(const std::vector<std::string>& parts) {
        std::vector<std::string> out;
        for (const std::string& line : log_lines()) {
            bool all = true;
            for (const std::string& p : parts) all = all && line.find(p) != std::string::npos;
            if (all) out.push_back(line);
        }
        return out;
    }
    void clear_log() {
        std::lock_guard<std::mutex> l(mu_);
        lines_.clear();
    }

    /* The arm's error list as the library reads it. */
    std::vector<int> errors(int arm = 0) {
        kx_current_arm_state_t st{};
        EXPECT_EQ(0, kx_get_current_arm_state(h(arm), &st));
        return std::vector<int>(st.err.err, st.err.err + st.err.err_len);
    }

    /* Waits (real time, generous) until f() holds. */
    template <class F>
    static bool eventually(F&& f, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (std::chrono::steady_clock::now() < end) {
            if (f()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return f();
    }

    std::unique_ptr<kxsim::Simulator> sim;
    std::vector<kx_robot_handle*> arms;
    int udp_port = 0;

private:
    std::mutex mu_;
    std::vector<std::string> lines_;
    bool inited_ = false;
};

}  // namespace simtest

#endif
