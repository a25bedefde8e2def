/* Drag teaching against the simulated controller: teaching follows the
 * hand, the recorded path is saved to a file point by point (threaded and
 * single mode), replay goes to the origin, runs, pauses, continues and
 * stops; faults in the saved stream end the save with -6. */
#include <cstdio>
#include <fstream>
#include <sstream>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class Drag : public SimFixture {
protected:
    void SetUp() override {
        /* The completion flag is never cleared by the library; each test
         * here starts as a fresh process would. */
        drag_teach_save_complete = 0;
        drag_teach_count = 0;
        path_ = ::testing::TempDir() + "kx_drag_" + std::to_string(::getpid()) + ".txt";
    }
    void TearDown() override {
        SimFixture::TearDown();
        std::remove(path_.c_str());
    }

    /* Teaches for about `points` record cycles with the hand moving joints 1 and 2. */
    void teach(int points) {
        sim->set_hand_motion(0, {5.0, -3.0});
        ASSERT_EQ(0, kx_start_drag_teach(h(), 1));
        EXPECT_EQ(R"({"command":"start_drag_teach","trajectory_record":1})", last_request());
        ASSERT_TRUE(eventually([&] { return sim->recorded_points(0) >= static_cast<size_t>(points); }));
        ASSERT_EQ(0, kx_stop_drag_teach(h()));
        EXPECT_EQ(R"({"command":"stop_drag_teach"})", last_request());
    }

    std::vector<std::string> saved_lines() {
        std::ifstream in(path_, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        std::string text = ss.str();
        std::vector<std::string> lines;
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find("\r\n", start);
            if (end == std::string::npos) {
                lines.push_back("<unterminated>" + text.substr(start));
                break;
            }
            lines.push_back(text.substr(start, end - start));
            start = end + 2;
        }
        return lines;
    }

    std::string path_;
};

}  // namespace

TEST_F(Drag, TeachSaveWritesEveryPoint) {
    start();
    teach(40);
    size_t recorded = sim->recorded_points(0);
    int num = -1;
    ASSERT_EQ(0, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_EQ(static_cast<int>(recorded), num);
    std::string base = path_.substr(path_.rfind('/') + 1);
    EXPECT_EQ("{\"command\":\"save_trajectory\",\"trajectory_name\":\"" + base.substr(0, base.rfind('.')) + "\"}",
              requests("save_trajectory").back());
    EXPECT_EQ(nullptr, F_SaveDragTeach);
    EXPECT_EQ(0, drag_teach_count);
    std::vector<std::string> lines = saved_lines();
    ASSERT_EQ(recorded, lines.size());
    EXPECT_EQ("{\"point\":[0,0,0,0,0,0]}", lines.front()); /* where teaching started */
    std::vector<double> q = sim->joints(0);
    char last[128];
    std::snprintf(last, sizeof last, "{\"point\":[%d,%d,0,0,0,0]}", static_cast<int>(q[0] * 1000),
                  static_cast<int>(q[1] * 1000));
    EXPECT_EQ(last, lines.back()); /* and where it stopped */
    EXPECT_TRUE(logged("[kx_save_trajectory] Trajectory total num: " + std::to_string(num) + "\n"));
}

TEST_F(Drag, SaveFailures) {
    start();
    int num = -1;
    clear_log();
    EXPECT_EQ(-4, kx_save_trajectory(h(), "/nonexistent-dir/x.txt", &num));
    EXPECT_TRUE(logged("[kx_save_trajectory] File open error!"));
    /* Nothing recorded: the controller refuses. */
    EXPECT_EQ(1, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_TRUE(logged("[kx_save_trajectory] Save state: false\n"));
    /* Hostile replies. */
    sim->script_reply(0, "save_trajectory", "{\"command\":\"save_trajectory\",\"save_state\":true,\"total_num\":-1}\r\n");
    EXPECT_EQ(-3, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_TRUE(logged("[kx_save_trajectory] Trajectory total num parse err\n"));
    sim->script_reply(0, "save_trajectory", "{\"command\":\"save_trajectory\",\"save_state\":3}\r\n");
    EXPECT_EQ(-3, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_TRUE(logged("[kx_save_trajectory] Save trajectory err\n"));
    sim->drop_replies(0, "save_trajectory");
    EXPECT_EQ(-2, kx_save_trajectory(h(), path_.c_str(), &num));
    /* Accepted but no point within 2 s. */
    sim->script_reply(0, "save_trajectory", "{\"command\":\"save_trajectory\",\"save_state\":true,\"total_num\":5}\r\n");
    EXPECT_EQ(-6, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_EQ(5, num);

    /* A malformed point line mid-stream. */
    teach(20);
    sim->inject_save_faults(0, -1, 3);
    clear_log();
    EXPECT_EQ(-6, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_TRUE(logged("Error: 'point' is not an array. {\"point\":\"malformed\"}\n"));
    EXPECT_EQ(1, drag_teach_save_state);
}

TEST(SaveReply, Decoding) {
    int num = -7;
    drag_teach_total_num = 0;
    EXPECT_EQ(0, parse_kx_save_trajectory("t", R"({"command":"save_trajectory","save_state":true,"total_num":12})", &num));
    EXPECT_EQ(12, num);
    EXPECT_EQ(12, drag_teach_total_num);
    num = -7;
    EXPECT_EQ(1, parse_kx_save_trajectory("t", R"({"save_state":false,"total_num":12})", &num));
    EXPECT_EQ(-7, num); /* read only when saving */
    EXPECT_EQ(-3, parse_kx_save_trajectory("t", R"({"save_state":true})", &num));
    EXPECT_EQ(-3, parse_kx_save_trajectory("t", "{\"save_state\":", &num));
}

TEST_F(Drag, SingleModeSaveEndsBySilence) {
    SimSetup s;
    s.mode = KX_SINGLE_MODE_E;
    start(s);
    teach(30);
    /* The stream falls silent after 10 points: in single mode the save
     * ends by silence all the same, with what came. */
    sim->inject_save_faults(0, 10, -1);
    int num = -1;
    ASSERT_EQ(0, kx_save_trajectory(h(), path_.c_str(), &num));
    EXPECT_EQ(static_cast<int>(sim->recorded_points(0)), num);
    std::vector<std::string> lines = saved_lines();
    ASSERT_EQ(10u, lines.size());
    EXPECT_EQ("{\"point\":[0,0,0,0,0,0]}", lines.front());
    EXPECT_EQ(1, drag_teach_save_complete);
    EXPECT_EQ(nullptr, F_SaveDragTeach);
    EXPECT_TRUE(logged("[kx_save_trajectory]  save_trajectory complete\n") ||
                logged("[kx_save_trajectory] point save_trajectory complete\n"));
}

TEST_F(Drag, ReplayGoesToOriginRunsPausesAndStops) {
    start();
    teach(200);
    /* Leave the origin, then come back to it, blocking. */
    const float away[7] = {20, 20, 20, 0, 0, 0, 0};
    ASSERT_EQ(0, kx_movej(h(), away, 50, 0, 0, 1));
    ASSERT_EQ(0, kx_drag_trajectory_origin(h(), 1));
    EXPECT_EQ(R"({"command":"drag_trajectory_origin"})", requests("drag_trajectory_origin").back());
    for (double v : sim->joints(0)) EXPECT_NEAR(0.0, v, 1e-3);

    /* A full replay that the call waits out: 1 s pause, the replay's end,
     * then the verdict. */
    EXPECT_EQ(0, kx_run_drag_trajectory(h(), 1));
    EXPECT_EQ(R"({"command":"run_drag_trajectory"})", requests("run_drag_trajectory").back());
    EXPECT_FALSE(sim->moving(0));
    EXPECT_NE(0.0, sim->joints(0)[0]);

    /* Back without waiting; run without waiting (no verdict read), pause,
     * continue, stop. */
    ASSERT_EQ(0, kx_drag_trajectory_origin(h(), 0));
    ASSERT_TRUE(eventually([&] { return !sim->moving(0); }));
    ASSERT_EQ(0, kx_run_drag_trajectory(h(), 0));
    EXPECT_TRUE(eventually([&] { return sim->moving(0); }));
    EXPECT_EQ(0, kx_pause_drag_trajectory(h()));
    EXPECT_EQ(0, kx_continue_drag_trajectory(h()));
    EXPECT_EQ(1, kx_continue_drag_trajectory(h())); /* not paused any more */
    EXPECT_EQ(0, kx_stop_drag_trajectory(h()));
    EXPECT_FALSE(sim->moving(0));
    EXPECT_EQ(1, kx_stop_drag_trajectory(h())); /* nothing to stop */
}

TEST_F(Drag, SettingsAndMultiFrameTeaching) {
    start(SimSetup{{"AVEN-QS", "AVEN-QA"}});
    EXPECT_EQ(0, kx_set_drag_teach_sensitivity(h(), 80));
    EXPECT_EQ(R"({"command":"set_drag_teach_sensitivity","grade":80})", last_request());
    int grade = 0;
    EXPECT_EQ(0, kx_get_drag_teach_sensitivity(h(), &grade));
    EXPECT_EQ(80, grade);
    EXPECT_EQ(1, kx_set_drag_teach_sensitivity(h(), 0));

    EXPECT_EQ(0, kx_start_multi_drag_teach(h(), 2, 1));
    EXPECT_EQ(R"({"command":"start_multi_drag_teach","mode":2,"singular_wall":1})", last_request());
    EXPECT_EQ(0, kx_stop_drag_teach(h()));

    kx_multi_drag_teach_t t{};
    t.frame = 1;
    t.singular_wall = 1;
    t.free_axes[0] = t.free_axes[2] = 1;
    EXPECT_EQ(0, kx_start_multi_drag_teach_new(h(0), t));
    EXPECT_EQ(R"({"command":"start_multi_drag_teach","frame":1,"singular_wall":1,"free_axes":[1,0,1,0,0,0]})",
              last_request(0));
    clear_log();
    EXPECT_EQ(0, kx_start_multi_drag_teach_new(h(1), t));
    EXPECT_EQ(R"({"command":"start_multi_drag_teach","frame":1})", last_request(1));
    EXPECT_TRUE(logged("Non-six-dimensional force version, The configuration for singular_wall and the values in "
                       "free_axes array are invalid.\n"));
    kx_robot_handle stranger{9};
    EXPECT_EQ(-1, kx_start_multi_drag_teach_new(&stranger, t));
}
