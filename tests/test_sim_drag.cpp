// Drag teaching records the arm where it is at every controller cycle, so
// a taught path is as smooth as the hand that taught it and replays at the
// pace it was taught.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "test_sim_client.h"

using namespace simtest;

namespace {

/* One arm at time scale 20 whose controller cycle (record and push) is `cycle_ms`. */
kxsim::Options at_cycle(const char* product, int cycle_ms) {
    kxsim::Options o = options({product}, 20.0);
    o.push_cycle = cycle_ms;
    return o;
}

/* Drag teaches, recording, until done() holds. */
template <class F>
void teach(Peer& p, F&& done) {
    ASSERT_EQ(flag(p.ask(R"({"command":"start_drag_teach","trajectory_record":1})").get(), "drag_teach"), 1);
    while (!done()) std::this_thread::yield();
    ASSERT_EQ(flag(p.ask(R"({"command":"stop_drag_teach"})").get(), "drag_teach"), 1);
}

/* Saves the recorded path and returns its points (those streamed before the
 * save's reply are among the lines its wait skipped). */
std::vector<std::vector<int>> save(Peer& p, size_t dof) {
    std::vector<std::vector<int>> path;
    p.skipped.clear();
    Json r = p.ask(R"({"command":"save_trajectory","trajectory_name":"taught"})");
    EXPECT_EQ(flag(r.get(), "save_state"), 1);
    const size_t n = static_cast<size_t>(num(r.get(), "total_num"));
    for (const std::string& l : p.skipped) path.push_back(ints(parse(l).get(), "point"));
    while (path.size() < n) {
        Json pt = parse(p.line());
        if (!pt) break;
        path.push_back(ints(pt.get(), "point"));
    }
    EXPECT_EQ(path.size(), n);
    for (const auto& pt : path) EXPECT_EQ(pt.size(), dof);
    return path;
}

}  // namespace

/* The hand moves joints 1 and 2 at 3.3 and -1.7 deg/s: every saved point is one
 * cycle's worth further (no repeats, no jumps), from the joints where
 * teaching started to those where it stopped; the replay takes about as
 * long as the teaching did, a program of the points at speed 50 twice as
 * long. */
TEST(DragTeaching, RecordsEveryCycleWhereTheArmIsAndReplaysAtThatPace) {
    kxsim::Simulator sim(at_cycle("AVEN-P", 1));
    ASSERT_TRUE(sim.start());
    Peer p(sim, 0);
    sim.set_hand_motion(0, {3.3, -1.7});
    teach(p, [&] { return sim.joints(0)[0] >= 4.0; });
    const std::vector<double> stopped = sim.joints(0);

    const auto path = save(p, 6);
    ASSERT_GE(path.size(), 50u);
    EXPECT_EQ(path.front(), std::vector<int>(6, 0));
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(path.back()[i], stopped[i] * 1000, 1) << "joint " << i + 1;

    // 1 ms cycle: 3.3 and -1.7 thousandths of a degree a step (rounded), to the last.
    const double rate[2] = {3.3, -1.7};
    for (size_t k = 1; k < path.size(); ++k)
        for (int i = 0; i < 2; ++i)
            ASSERT_NEAR(path[k][i] - path[k - 1][i], rate[i], 1) << "joint " << i + 1 << ", step " << k;

    const double taught = stopped[0] / 3.3; /* seconds */
    constexpr double dt = 0.01;
    {
        // As a program at speed 50: a joint move to the path's start, then the path at half its pace.
        std::string text = "{\"file\":6}\r\n";
        for (const auto& pt : path) {
            text += "{\"point\":[";
            for (size_t i = 0; i < pt.size(); ++i) text += (i ? "," : "") + std::to_string(pt[i]);
            text += "]}\r\n";
        }
        ASSERT_EQ(flag(p.ask(R"({"command":"run_project","project_name":"taught","file_size":)" +
                             std::to_string(text.size()) +
                             R"(,"plan_speed":50,"step_flag":0,"only_save":1,"save_id":1})")
                           .get(),
                       "project_state"),
                  1);
        p.send_bytes(text);
        ASSERT_EQ(flag(p.wait_for("download_project").get(), "project_state"), 1);
        ASSERT_EQ(flag(p.ask(R"({"command":"set_program_id_start","id":1})").get(), "start_state"), 1);
        ASSERT_TRUE(p.wait_for("current_trajectory_state", 10000)); /* at the start */
        const auto run = sim.preview(0, dt);
        ASSERT_GT(run.size(), 10u);
        EXPECT_LT(static_cast<double>(run.size()) * dt, 2.5 * taught + 0.1) << "taught in " << taught << " s";
        EXPECT_NEAR(run.back()[0], stopped[0], 0.01);
        ASSERT_TRUE(p.wait_for("program_run_finish", 10000));
    }
    p.send_line(R"({"command":"drag_trajectory_origin"})");
    ASSERT_TRUE(p.wait_for("current_trajectory_state", 10000));
    ASSERT_EQ(flag(p.ask(R"({"command":"run_drag_trajectory"})").get(), "run_state"), 1);
    const auto replay = sim.preview(0, dt);
    ASSERT_GT(replay.size(), 10u);
    EXPECT_LT(static_cast<double>(replay.size()) * dt, 1.25 * taught + 0.1) << "taught in " << taught << " s";
    EXPECT_NEAR(replay.back()[0], stopped[0], 0.01);
}

/* A still arm is recorded too, one point per cycle. */
TEST(DragTeaching, RecordsAStillArm) {
    kxsim::Simulator sim(at_cycle("BRIV-P", 10));
    ASSERT_TRUE(sim.start());
    Peer p(sim, 0);
    teach(p, [&] { return sim.recorded_points(0) >= 20; });
    const auto path = save(p, 7);
    EXPECT_GE(path.size(), 20u);
    for (const auto& pt : path) EXPECT_EQ(pt, std::vector<int>(7, 0));
}
