/* The program library and global waypoints against the simulated
 * controller: listing, editing, the default program, starting by id with a
 * wait for the finish event (and an error at line N), step mode, the run
 * state, and waypoints stored, listed, read back and used as targets. */
#include <cmath>
#include <cstring>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"
#include "test_core_util.h"

using namespace cmdtest;

namespace {

const std::string kProgram =
    "{\"file\":6}\r\n"
    "{\"name\":\"Folder\",\"num\":1,\"type\":2,\"enabled\":true,\"parent_number\":0}\r\n"
    "{\"command\":\"movej\",\"v\":80,\"joint\":[10000,0,20000,0,0,0],\"r\":0,\"trajectory_connect\":0}\r\n"
    "{\"command\":\"movej\",\"v\":80,\"joint\":[0,0,0,0,0,0],\"r\":0,\"trajectory_connect\":0}\r\n";

class Library : public SimFixture {
protected:
    /* Stores kProgram in the controller's library under `id` (header comes
     * from the upload; it is sent as an announced upload). */
    void store(int id, const char* name, int step = 0, int only_save = 1) {
        std::string path = ::testing::TempDir() + name;
        ASSERT_TRUE(kxtest::write_file(path, kProgram));
        kx_send_project_t p = kxtest::project_of(path, only_save, id);
        p.plan_speed = 60;
        p.step_flag = step;
        int err_line = 0;
        ASSERT_EQ(0, kx_send_project(h(), p, &err_line));
        std::remove(path.c_str());
    }
};

struct Events {
    static kxtest::Collector<kx_event_push_data_t>& got() {
        static kxtest::Collector<kx_event_push_data_t> c;
        return c;
    }
    static void callback(kx_event_push_data_t e) { got().add(e); }
};

kx_waypoint_t waypoint(const char* name, float j1) {
    kx_waypoint_t w{};
    std::snprintf(w.point_name, sizeof w.point_name, "%s", name);
    const float joints[6] = {j1, 12.3456f, 30, 0, 45, 0};
    std::memcpy(w.joint, joints, sizeof joints);
    w.pose = pose_of(0.25f, -0.1f, 0.3f, 3.1f, 0.001f, -0.5f);
    std::memcpy(w.work_frame, "World", 6);
    std::memcpy(w.tool_frame, "Arm_Tip", 8);
    std::memcpy(w.time, "caller's own", 13);
    return w;
}

}  // namespace

TEST_F(Library, ListEditDefaultAndDelete) {
    start();
    store(3, "alpha.txt");
    store(5, "beta.txt");
    kx_program_trajectorys_t list{};
    std::memcpy(list.vague_search, "untouched", 10);
    ASSERT_EQ(0, kx_get_program_trajectory_list(h(), 1, 10, nullptr, &list));
    EXPECT_EQ(R"({"command":"get_program_trajectory_list","page_num":1,"page_size":10})", last_request());
    EXPECT_STREQ("untouched", list.vague_search); /* no search given: left alone */
    EXPECT_EQ(2, list.list_size);
    EXPECT_EQ(3, list.trajectory_list[0].id);
    EXPECT_STREQ("alpha", list.trajectory_list[0].trajectory_name);
    EXPECT_EQ(60, list.trajectory_list[0].speed);
    EXPECT_EQ(static_cast<int>(kProgram.size()), list.trajectory_list[0].size);

    ASSERT_EQ(0, kx_get_program_trajectory_list(h(), 1, 10, "bet", &list));
    EXPECT_EQ(R"({"command":"get_program_trajectory_list","vague_search":"bet","page_num":1,"page_size":10})",
              last_request());
    EXPECT_EQ(1, list.list_size);
    EXPECT_STREQ("bet", list.vague_search);
    EXPECT_EQ(5, list.trajectory_list[0].id);

    ASSERT_EQ(0, kx_update_program_trajectory(h(), 5, 30, "gamma"));
    EXPECT_EQ(R"({"command":"update_program_trajectory","id":5,"plan_speed":30,"project_name":"gamma"})",
              last_request());
    EXPECT_EQ(1, kx_update_program_trajectory(h(), 9, 30, "nope"));
    ASSERT_EQ(0, kx_set_default_run_program(h(), 5));
    EXPECT_EQ(R"({"command":"set_default_run_program","id":5})", last_request());
    int id = 0;
    ASSERT_EQ(0, kx_get_default_run_program(h(), &id));
    EXPECT_EQ(5, id);
    EXPECT_EQ(0, kx_set_plan_speed(h(), 40));
    EXPECT_EQ(R"({"command":"plan_speed","speed":40})", last_request());
    EXPECT_EQ(1, kx_set_plan_speed(h(), 400));

    ASSERT_EQ(0, kx_delete_program_trajectory(h(), 3));
    EXPECT_EQ(R"({"command":"delete_program_trajectory","id":3})", last_request());
    EXPECT_EQ(1, kx_delete_program_trajectory(h(), 3));
    EXPECT_EQ(std::vector<int>{5}, sim->program_ids(0));

    /* Hostile list replies. */
    sim->script_reply(0, "get_program_trajectory_list",
                      R"({"command":"get_program_trajectory_list","page_num":1,"page_size":1,"total_size":1,"vague_search":"","list":{}})" "\r\n");
    clear_log();
    EXPECT_EQ(-3, kx_get_program_trajectory_list(h(), 1, 1, nullptr, &list));
    EXPECT_TRUE(logged("[kx_get_program_trajectory_list] get program trajectory list parser error!\n"));
    std::string many = R"({"command":"get_program_trajectory_list","page_num":1,"page_size":1,"total_size":150,"vague_search":"","list":[)";
    for (int i = 0; i < 150; ++i) many += std::string(i ? "," : "") + "{\"id\":" + std::to_string(i) + "}";
    sim->script_reply(0, "get_program_trajectory_list", many + "]}\r\n");
    EXPECT_EQ(0, kx_get_program_trajectory_list(h(), 1, 1, nullptr, &list));
    EXPECT_EQ(99, list.trajectory_list[99].id);
    sim->script_reply(0, "get_program_trajectory_list",
                      R"({"command":"get_program_trajectory_list","page_num":1,"page_size":1,"total_size":1,"vague_search":"","list":[{"id":1,"size":4294967296}]})" "\r\n");
    EXPECT_EQ(-3, kx_get_program_trajectory_list(h(), 1, 1, nullptr, &list));
}

TEST_F(Library, StartByIdWaitsForItsFinish) {
    start();
    kx_get_arm_event_call_back(Events::callback);
    store(7, "run.txt");
    /* speed 0 sends no "speed" */
    ASSERT_EQ(0, kx_set_program_id_run(h(), 7, 0, 1));
    EXPECT_EQ(R"({"command":"set_program_id_start","id":7})", requests("set_program_id_start").back());
    std::vector<kx_event_push_data_t> ev = Events::got().wait_for(1);
    ASSERT_FALSE(ev.empty());
    EXPECT_EQ(7, ev.back().program_id);
    for (double q : sim->joints(0)) EXPECT_NEAR(0.0, q, 1e-3);

    /* Not waiting: the verdict only. */
    ASSERT_EQ(0, kx_set_program_id_run(h(), 7, 50, 0));
    EXPECT_EQ(R"({"command":"set_program_id_start","id":7,"speed":50})", requests("set_program_id_start").back());
    EXPECT_EQ(1, kx_set_program_id_run(h(), 7, 50, 0)); /* already running */
    ASSERT_TRUE(eventually([&] {
        kx_program_run_state_t st{};
        return kx_get_program_run_state(h(), &st) == 0 && st.run_state == 0;
    }));
    EXPECT_EQ(1, kx_set_program_id_run(h(), 8, 0, 1)); /* no such program */

    /* An error at line 4 of the file: no finish message of program 8 comes
     * (the earlier run's finish, still queued, names another program). */
    store(8, "fail.txt");
    sim->fail_program_at(0, 4);
    EXPECT_EQ(-4, kx_set_program_id_run(h(), 8, 0, 1));
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_NE(0, st.err.err[0]);
}

TEST_F(Library, SingleModeStartWaitsWithATimeout) {
    SimSetup s;
    s.mode = KX_SINGLE_MODE_E;
    start(s);
    store(2, "single.txt");
    EXPECT_EQ(0, kx_set_program_id_run(h(), 2, 0, 5));
    sim->fail_program_at(0, 3);
    EXPECT_EQ(-4, kx_set_program_id_run(h(), 2, 0, 1));
}

TEST_F(Library, StepModeAndRunState) {
    start();
    store(1, "step.txt", 1, 0); /* runs at once, one line per continue */
    kx_program_run_state_t st{};
    ASSERT_TRUE(eventually([&] { return kx_get_program_run_state(h(), &st) == 0 && st.run_state == 2; }));
    EXPECT_EQ(R"({"command":"get_program_run_state"})", last_request());
    EXPECT_EQ(1, st.step_mode);
    EXPECT_EQ(1, st.id);
    EXPECT_EQ(1, st.plan_num);
    EXPECT_NEAR(10.0, sim->joints(0)[0], 1e-3);
    ASSERT_EQ(0, kx_set_arm_continue(h()));
    ASSERT_TRUE(eventually([&] { return kx_get_program_run_state(h(), &st) == 0 && st.plan_num == 2 && st.run_state == 2; }));
    EXPECT_NEAR(0.0, sim->joints(0)[0], 1e-3);
    ASSERT_EQ(0, kx_set_arm_stop(h()));
    ASSERT_EQ(0, kx_get_program_run_state(h(), &st));
    EXPECT_EQ(0, st.run_state);

    /* Decoding: loops are bounded, a missing run_state is an error. */
    std::string loops = "[";
    for (int i = 0; i < 120; ++i) loops += std::string(i ? "," : "") + std::to_string(i);
    loops += "]";
    std::string reply = "{\"command\":\"get_program_run_state\",\"run_state\":1,\"loop_num\":" + loops +
                        ",\"loop_cont\":" + loops + "}";
    ASSERT_EQ(0, Parser_Get_Program_Run_State("t", reply.c_str(), &st));
    EXPECT_EQ(100, st.total_loop);
    EXPECT_EQ(99, st.loop_cont[99]);
    EXPECT_EQ(-3, Parser_Get_Program_Run_State("t", R"({"loop_num":[1]})", &st));
    EXPECT_EQ(-3, Parser_Get_Program_Run_State("t", R"({"run_state":1,"loop_num":3})", &st));
    /* A number no int can hold is a decode error, wherever it sits. */
    for (const char* big : {R"({"run_state":3000000000})", R"({"run_state":1,"id":-3000000000})",
                            R"({"run_state":1,"loop_cont":[1,1e10]})", R"({"run_state":1,"plan_speed":1e300})"}) {
        SCOPED_TRACE(big);
        EXPECT_EQ(-3, Parser_Get_Program_Run_State("t", big, &st));
    }
    sim->script_reply(0, "get_program_run_state", "{\"command\":\"get_program_run_state\"}\r\n");
    EXPECT_EQ(-3, kx_get_program_run_state(h(), &st));
}

TEST_F(Library, WaypointsStoredListedAndUsedAsTargets) {
    start();
    kx_waypoint_t w = waypoint("P1", 20);
    ASSERT_EQ(0, kx_add_global_waypoint(h(), w));
    std::string line = last_request();
    EXPECT_EQ(0u, line.find(R"({"command":"add_global_waypoint","point_name":"P1","joint":[20000,12345,30000,0,45000,0],"pose":[250000,-100000,300000,3100,1,-500],"work_frame":"World","tool_frame":"Arm_Tip","time":")"))
        << line;
    EXPECT_EQ(std::string::npos, line.find("caller's own"));
    EXPECT_EQ(1, kx_add_global_waypoint(h(), w)); /* already there */
    ASSERT_EQ(0, kx_add_global_waypoint(h(), waypoint("P2", -15)));

    kx_waypoint_t got{};
    got.pose.quaternion = {0.5f, 0.5f, 0.5f, 0.5f}; /* neither sent nor filled */
    ASSERT_EQ(0, kx_get_given_global_waypoint(h(), "P1", &got));
    EXPECT_EQ(0.5f, got.pose.quaternion.w);
    EXPECT_EQ(0.5f, got.pose.quaternion.z);
    EXPECT_EQ(R"({"command":"given_global_waypoint","point_name":"P1"})", last_request());
    EXPECT_STREQ("P1", got.point_name);
    EXPECT_FLOAT_EQ(12.345f, got.joint[1]);
    EXPECT_FLOAT_EQ(0.25f, got.pose.position.x);
    EXPECT_FLOAT_EQ(3.1f, got.pose.euler.rx);
    EXPECT_STREQ("Arm_Tip", got.tool_frame);
    EXPECT_EQ(19u, std::strlen(got.time));
    EXPECT_EQ(1, kx_get_given_global_waypoint(h(), "nope", &got));

    w.joint[0] = 25;
    ASSERT_EQ(0, kx_update_global_waypoint(h(), w));
    EXPECT_EQ(0u, last_request().find(R"({"command":"update_global_waypoint","point_name":"P1","joint":[25000,)"));
    EXPECT_EQ(1, kx_update_global_waypoint(h(), waypoint("P9", 0)));

    kx_waypoint_list_t list{};
    list.points_list[0].pose.quaternion.x = 0.25f;
    ASSERT_EQ(0, kx_get_global_waypoints_list(h(), 1, 10, nullptr, &list));
    EXPECT_EQ(0.25f, list.points_list[0].pose.quaternion.x);
    EXPECT_EQ(R"({"command":"get_global_waypoints_list","page_num":1,"page_size":10})", last_request());
    EXPECT_EQ(2, list.total_size);
    ASSERT_EQ(2, list.list_len);
    EXPECT_FLOAT_EQ(25.0f, list.points_list[0].joint[0]);
    EXPECT_STREQ("P2", list.points_list[1].point_name);
    ASSERT_EQ(0, kx_get_global_waypoints_list(h(), 1, 10, "2", &list));
    EXPECT_EQ(R"({"command":"get_global_waypoints_list","vague_search":"2","page_num":1,"page_size":10})",
              last_request());
    EXPECT_EQ(1, list.list_len);
    EXPECT_EQ(1, kx_get_global_waypoints_list(h(), 0, 10, nullptr, &list));

    /* A waypoint read back is a move target. */
    ASSERT_EQ(0, kx_get_given_global_waypoint(h(), "P2", &got));
    ASSERT_EQ(0, kx_movej(h(), got.joint, 50, 0, 0, 1));
    EXPECT_NEAR(-15.0, sim->joints(0)[0], 1e-3);

    /* A program line may name a waypoint as its target. */
    const float home[7] = {};
    ASSERT_EQ(0, kx_movej(h(), home, 50, 0, 0, 1));
    const std::string prog = "{\"file\":6}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":1,\"enabled\":true,\"parent_number\":0}\r\n"
                             "{\"command\":\"movej\",\"v\":50,\"point_name\":\"P2\",\"r\":0,\"trajectory_connect\":0}\r\n";
    int err_line = 0;
    ASSERT_EQ(0, kx_send_project_lock(h(), prog.data(), static_cast<int>(prog.size()), &err_line));
    EXPECT_TRUE(eventually([&] { return std::fabs(sim->joints(0)[0] + 15.0) < 1e-3 && !sim->moving(0); }));

    ASSERT_EQ(0, kx_delete_global_waypoint(h(), "P1"));
    EXPECT_EQ(R"({"command":"delete_global_waypoint","point_name":"P1"})", last_request());
    EXPECT_EQ(1, kx_delete_global_waypoint(h(), "P1"));

    /* Hostile list replies. */
    const char* bad[] = {
        R"({"command":"get_global_waypoints_list","get_state":1,"total_size":1,"list":[]})",
        R"({"command":"get_global_waypoints_list","total_size":1})",
        R"({"command":"get_global_waypoints_list","total_size":1,"list":[{"point_name":"x","tool_frame":"a","work_frame":"b","time":"t","joint":[1,2],"pose":[0,0,0,0,0,0]}]})",
        /* numbers no int can hold */
        R"({"command":"get_global_waypoints_list","total_size":3000000000,"list":[]})",
        R"({"command":"get_global_waypoints_list","total_size":1,"list":[{"point_name":"x","tool_frame":"a","work_frame":"b","time":"t","joint":[1,2,3,4,5,6],"pose":[0,0,1e12,0,0,0]}]})",
        "not json"};
    for (const char* reply : bad) {
        SCOPED_TRACE(reply);
        EXPECT_EQ(-3, parser_get_point_list("t", reply, 6, &list));
    }
}
