/* Program upload: the announcement, the raw chunks as the controller
 * receives them (100/101 bytes, an embedded zero byte, an empty file), the
 * conversion of a drag-teach trajectory into a program file (including the
 * process exit of countLinesInFile), refusals with their line number, the
 * in-memory form, and a program that runs to its finish event. */
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

#include "test_cmd_fixture.h"
#include "test_core_util.h"

using namespace cmdtest;
using kxtest::project_of;
using kxtest::write_file;

namespace {

std::string read_all(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

/* A small valid program for a six-joint arm. */
const std::string kProgram =
    "{\"file\":6}\r\n"
    "{\"name\":\"Folder\",\"num\":1,\"type\":3,\"enabled\":true,\"parent_number\":0}\r\n"
    "{\"command\":\"movej\",\"v\":50,\"joint\":[10000,0,20000,0,0,0],\"r\":0,\"trajectory_connect\":0}\r\n"
    "{\"point\":[10000,0,20000,0,0,0]}\r\n"
    "{\"point\":[11000,0,21000,0,0,0]}\r\n";

class Upload : public SimFixture {
protected:
    void SetUp() override {
        dir_ = ::testing::TempDir() + "kx_upload_" + std::to_string(::getpid());
        ::mkdir(dir_.c_str(), 0755);
    }
    void TearDown() override {
        SimFixture::TearDown();
        std::string cmd = "rm -rf '" + dir_ + "'";
        (void)std::system(cmd.c_str());
    }
    std::string file(const std::string& name, const std::string& text) {
        std::string path = dir_ + "/" + name;
        write_file(path, text);
        return path;
    }
    std::string dir_;
};

struct Finished {
    static kxtest::Collector<kx_event_push_data_t>& events() {
        static kxtest::Collector<kx_event_push_data_t> c;
        return c;
    }
    static void callback(kx_event_push_data_t e) { events().add(e); }
};

/* The process exits are checked in a re-executed child, not a fork of a
 * process with running threads. */
struct ThreadsafeDeathTests : ::testing::Environment {
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};
const auto* const kDeathStyle = ::testing::AddGlobalTestEnvironment(new ThreadsafeDeathTests);

}  // namespace

TEST(ProgramFiles, CountLinesInFile) {
    std::string path = ::testing::TempDir() + "kx_lines_" + std::to_string(::getpid());
    write_file(path, "a\r\nb\r\n" + std::string(1500, 'x') + "\r\nlast");
    EXPECT_EQ(5, countLinesInFile(path.c_str())); /* the long line is read twice */
    write_file(path, "");
    EXPECT_EQ(0, countLinesInFile(path.c_str()));
    std::remove(path.c_str());
    /* A missing file ends the whole process with status 1. */
    EXPECT_EXIT(countLinesInFile("/nonexistent/kx_missing.txt"), ::testing::ExitedWithCode(1), "");
}

TEST(ProgramFiles, TimeStamp) {
    std::string stamp = kx_get_cur_times();
    EXPECT_TRUE(std::regex_match(stamp, std::regex("[0-2][0-9]_[0-5][0-9]_[0-6][0-9]"))) << stamp;
    EXPECT_EQ(static_cast<const void*>(kx_get_cur_times()), static_cast<const void*>(kx_get_cur_times()));
}

TEST(ProgramFiles, ConversionNeedsAConnectedArm) {
    kx_robot_handle stranger{9};
    ::testing::internal::CaptureStdout();
    add_lines_to_file(&stranger, "/nonexistent/a.txt", "/nonexistent/b.txt");
    EXPECT_EQ("Failed to get robot info", ::testing::internal::GetCapturedStdout());
}

TEST_F(Upload, ConversionWritesTheHeader) {
    start(SimSetup{{"BRIV-P"}});
    std::string traj = file("teach.txt", "{\"point\":[1,2,3,4,5,6,7]}\r\n{\"point\":[2,3,4,5,6,7,8]}\r\n");
    std::string prog = dir_ + "/prog.txt";
    add_lines_to_file(h(), traj.c_str(), prog.c_str());
    EXPECT_EQ("{\"file\":7}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":2,\"enabled\":true,\"parent_number\":0}\r\n"
              "{\"point\":[1,2,3,4,5,6,7]}\r\n{\"point\":[2,3,4,5,6,7,8]}\r\n",
              read_all(prog));
    /* The trajectory file must exist: the line count ends the process first. */
    EXPECT_EXIT(add_lines_to_file(h(), (dir_ + "/missing.txt").c_str(), prog.c_str()), ::testing::ExitedWithCode(1),
                "");
    ::testing::internal::CaptureStdout();
    add_lines_to_file(h(), traj.c_str(), (dir_ + "/no/such/dir.txt").c_str());
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout()); /* reported through perror */
}

TEST_F(Upload, ChunkEdgeCasesAsTheControllerReceivesThem) {
    start();
    int err_line = 0;
    /* Exactly 100 bytes and 101 bytes arrive whole (the content is not a
     * program, so the controller refuses it at line 1). */
    for (size_t n : {100u, 101u}) {
        SCOPED_TRACE(n);
        std::string body(n, 'a');
        std::string path = file("p" + std::to_string(n) + ".txt", body);
        EXPECT_EQ(1, kx_send_project(h(), project_of(path), &err_line));
        EXPECT_EQ(1, err_line);
        EXPECT_EQ(body, sim->last_upload(0));
        EXPECT_EQ("{\"command\":\"run_project\",\"project_name\":\"p" + std::to_string(n) + "\",\"file_size\":" +
                      std::to_string(n) + ",\"plan_speed\":50,\"step_flag\":0,\"only_save\":0,\"save_id\":0}",
                  requests("run_project").back());
    }
    /* A zero byte ends its chunk: the rest of that 100-byte block is never
     * sent, so the controller waits for bytes that do not come. */
    std::string body = std::string(50, 'b') + '\0' + std::string(149, 'c');
    EXPECT_EQ(-2, kx_send_project(h(), project_of(file("zero.bin", body)), &err_line));
    EXPECT_EQ(std::string(50, 'b') + std::string(100, 'c'), sim->last_upload(0));
}

TEST_F(Upload, EmptyFileAndLocalFailures) {
    start();
    int err_line = 0;
    EXPECT_EQ(1, kx_send_project(h(), project_of(file("empty.txt", "")), &err_line));
    EXPECT_EQ(1, err_line);
    EXPECT_NE(std::string::npos, requests("run_project").back().find("\"project_name\":\"empty\",\"file_size\":0,"));

    clear_log();
    sim->clear_received(0);
    EXPECT_EQ(-5, kx_send_project(h(), project_of(dir_ + "/missing.txt"), &err_line));
    EXPECT_TRUE(logged("File open failed\n"));
    /* A trajectory to convert needs a directory part. */
    kx_send_project_t p = project_of("teach.txt");
    p.project_type = 1;
    std::string cwd_file = "teach.txt";
    write_file(cwd_file, "{\"point\":[0,0,0,0,0,0]}\r\n");
    EXPECT_EQ(-5, kx_send_project(h(), p, &err_line));
    std::remove(cwd_file.c_str());
    EXPECT_TRUE(requests("run_project").empty());

    /* The announcement refused, or unanswered. */
    std::string prog = file("prog.txt", kProgram);
    sim->script_reply(0, "run_project", "{\"command\":\"run_project\",\"project_state\":false}\r\n");
    clear_log();
    EXPECT_EQ(1, kx_send_project(h(), project_of(prog), &err_line));
    EXPECT_TRUE(logged("[kx_run_project] failed\n"));
    sim->drop_replies(0, "run_project");
    EXPECT_EQ(-2, kx_send_project(h(), project_of(prog), &err_line));
    /* The acknowledgement never comes. */
    sim->drop_replies(0, "download_project");
    EXPECT_EQ(-2, kx_send_project(h(), project_of(prog), &err_line));
    /* Missing trajectory file with conversion: the process exits. */
    kx_send_project_t conv = project_of(dir_ + "/gone.txt");
    conv.project_type = 1;
    EXPECT_EXIT(kx_send_project(h(), conv, &err_line), ::testing::ExitedWithCode(1), "");
}

TEST_F(Upload, BadLineIsRefusedWithItsNumber) {
    start();
    int err_line = 0;
    std::string bad = kProgram + "{\"command\":\"movej\",\"v\":50,\"joint\":[1,2]}\r\n";
    EXPECT_EQ(1, kx_send_project(h(), project_of(file("bad.txt", bad)), &err_line));
    EXPECT_EQ(6, err_line);
    EXPECT_EQ(1, kx_send_project(h(), project_of(file("junk.txt", "{\"file\":6}\r\nnot json\r\n")), &err_line));
    EXPECT_EQ(2, err_line);
    EXPECT_EQ(1, kx_send_project(h(), project_of(file("arm7.txt", "{\"file\":7}\r\n{\"point\":[0,0,0,0,0,0]}\r\n")),
                                 &err_line));
    EXPECT_EQ(1, err_line);
    /* Hostile acknowledgements. */
    sim->script_reply(0, "download_project", "{\"command\":\"download_project\",\"project_state\":false}\r\n");
    err_line = 77;
    EXPECT_EQ(1, kx_send_project(h(), project_of(file("ok.txt", kProgram), 1), &err_line));
    EXPECT_EQ(77, err_line); /* no "err_line": left as it was */
    sim->script_reply(0, "download_project", "{\"command\":\"download_project\"}\r\n");
    EXPECT_EQ(-3, kx_send_project(h(), project_of(file("ok.txt", kProgram), 1), &err_line));
}

TEST_F(Upload, TrajectoryBecomesAProgramThatRuns) {
    start();
    kx_get_arm_event_call_back(Finished::callback);
    std::string traj = file("teach.txt", "{\"point\":[0,0,0,0,0,0]}\r\n{\"point\":[1000,1000,0,0,0,0]}\r\n"
                                         "{\"point\":[2000,2000,0,0,0,0]}\r\n");
    kx_send_project_t p = project_of(traj, 0, 4);
    p.project_type = 1;
    int err_line = 0;
    ASSERT_EQ(0, kx_send_project(h(), p, &err_line));
    EXPECT_EQ(-1, err_line);
    std::smatch m;
    std::string announce = requests("run_project").back();
    ASSERT_TRUE(std::regex_search(announce, m, std::regex("\"project_name\":\"(teach[0-9]{2}_[0-9]{2}_[0-9]{2}\\.txt)\"")))
        << announce;
    std::string converted = read_all(dir_ + "/" + m[1].str());
    EXPECT_EQ(converted, sim->last_upload(0));
    EXPECT_EQ(0u, converted.find("{\"file\":6}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":3,"));
    EXPECT_NE(std::string::npos, announce.find("\"file_size\":" + std::to_string(converted.size()) + ","));

    /* It runs and ends with its finish event. */
    /* its motions end first (the move to the path's start, the path) */
    std::vector<kx_event_push_data_t> events = Finished::events().wait_for(3);
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(KX_CURRENT_TRAJECTORY_STATE_E, events[0].event_type);
    EXPECT_EQ(KX_PROGRAM_RUN_FINISH_E, events.back().event_type);
    EXPECT_EQ(4, events.back().program_id);
    EXPECT_EQ(1, events.back().handle_id);
    EXPECT_NEAR(2.0, sim->joints(0)[0], 1e-3);
}

TEST_F(Upload, InMemoryProgram) {
    start();
    int err_line = 0;
    ASSERT_EQ(0, kx_send_project_lock(h(), kProgram.data(), static_cast<int>(kProgram.size()), &err_line));
    EXPECT_EQ(-1, err_line);
    EXPECT_EQ(kProgram, sim->last_upload(0));
    EXPECT_TRUE(requests("run_project").empty()); /* no announcement */
    EXPECT_EQ(-1, kx_send_project_lock(h(), nullptr, 3, &err_line));
    kx_robot_handle stranger{9};
    EXPECT_EQ(-1, kx_send_project_lock(&stranger, kProgram.data(), 5, &err_line));
    kx_send_project_t p = project_of("x");
    EXPECT_EQ(-1, kx_run_project(&stranger, p, 1));
}
