// The request pipeline end to end: one writer per connection, the slot rule
// of failed creates, and an arm of a model the library does not know.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <thread>

#include "test_core_util.h"

using namespace std::chrono_literals;
using kxtest::LogCapture;

namespace {

bool whole_request(const std::string& line, int dof) {
    const char* end = nullptr;
    cJSON* root = cJSON_ParseWithOpts(line.c_str(), &end, 1);
    bool ok = root != nullptr && cJSON_IsObject(root) && root->child != nullptr &&
              std::string(root->child->string) == "command" &&
              std::string(cJSON_GetStringValue(root->child) ? cJSON_GetStringValue(root->child) : "") ==
                  "movej_canfd" &&
              cJSON_GetArraySize(cJSON_GetObjectItem(root, "joint")) == dof &&
              cJSON_IsNumber(cJSON_GetObjectItem(root, "radio"));
    cJSON_Delete(root);
    return ok;
}

bool has_command(const std::vector<std::string>& lines, const std::string& command) {
    for (auto& line : lines)
        if (line.find("\"command\":\"" + command + "\"") != std::string::npos) return true;
    return false;
}

}  // namespace

// Several threads stream to one arm whose controller stops reading for a
// second: every line it finally reads is one whole request, and none is lost.
TEST(CorePipeline, ThreadsStreamingToASlowControllerWriteWholeLines) {
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = kxtest::start_sim();
    kxtest::SlowPeer peer(sim->host(0), sim->port(0));
    kx_robot_handle* arm = kx_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(nullptr, arm);
    ASSERT_EQ(1, arm->id);
    peer.set_forwarding(false);  // from here on the peer only keeps what it reads
    int small = 2048;            // a stalled peer then blocks the writers within a few lines
    setsockopt(kxtest::record_of(arm)->socket_handle->socket_id, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);

    std::atomic<bool> streaming{true};
    std::atomic<long> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            float joint[7] = {};
            kx_movej_canfd_mode_t config{};
            config.joint = joint;
            for (int i = 0; streaming && i < 5000; ++i) {
                for (int j = 0; j < 6; ++j) joint[j] = static_cast<float>(t * 100 + j) + 0.001f * (i % 1000);
                if (kx_movej_canfd(arm, config) == 0) ++accepted;
            }
        });
    }
    auto deadline = std::chrono::steady_clock::now() + 10s;
    while (peer.line_count() < 200 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    peer.stall_for(1000ms);
    std::this_thread::sleep_for(1500ms);  // the scenario: streaming through the stall and past it
    streaming = false;
    for (auto& t : threads) t.join();

    deadline = std::chrono::steady_clock::now() + 20s;
    while ((peer.line_count() < static_cast<size_t>(accepted.load()) || peer.pending_bytes() != 0) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(5ms);
    auto lines = peer.lines();
    EXPECT_EQ(static_cast<size_t>(accepted.load()), lines.size());
    EXPECT_EQ(0u, peer.pending_bytes());
    size_t broken = 0;
    for (auto& line : lines)
        if (!whole_request(line, 6) && broken++ < 3) ADD_FAILURE() << "not one whole request: " << line;
    EXPECT_EQ(0u, broken);
    EXPECT_EQ(0, kx_destory());
}

// A failed create keeps its slot, with id -1, until it is deleted; the next
// arm takes the next slot, and a sixth create finds no slot at all.
TEST(CorePipeline, FailedCreatesKeepTheirSlotsUntilDeleted) {
    LogCapture::install(LOG_LEVEL_ERROR);
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = kxtest::start_sim(2);
    sim->set_product_version(1, "ZETA-P");
    const int closed = kxtest::bound_port(SOCK_STREAM);

    kx_robot_handle* refused = kx_create_robot_arm("127.0.0.1", closed);
    ASSERT_NE(nullptr, refused);
    EXPECT_EQ(-1, refused->id);
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] socket connect err!\n"));
    EXPECT_EQ(gHandleList[0], kxtest::record_of(refused));

    kx_robot_handle* live = kxtest::connect_arm(*sim, 0);
    ASSERT_NE(nullptr, live);
    EXPECT_EQ(2, live->id);

    kx_robot_handle* unknown = kxtest::connect_arm(*sim, 1);
    ASSERT_NE(nullptr, unknown);
    EXPECT_EQ(-1, unknown->id);
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] get robot info err!\n"));
    EXPECT_EQ(gHandleList[2], kxtest::record_of(unknown));

    kx_robot_handle* more[2];
    for (auto*& h : more) {
        h = kx_create_robot_arm("127.0.0.1", closed);
        ASSERT_NE(nullptr, h);
        EXPECT_EQ(-1, h->id);
    }
    EXPECT_EQ(gHandleList[4], kxtest::record_of(more[1]));
    LogCapture::clear();
    EXPECT_EQ(nullptr, kxtest::connect_arm(*sim, 0));
    EXPECT_TRUE(LogCapture::has_line("[kx_create_robot_arm] robot num is max"));

    // A refused record answers like any record whose socket is gone.
    kx_robot_info_t info{};
    EXPECT_EQ(-2, kx_get_robot_info(refused, &info));
    kx_realtime_push_config_t push{};
    EXPECT_EQ(-1, kx_get_realtime_push(refused, &push));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_realtime_push] get_realtime_push send error\n"));

    EXPECT_EQ(0, kx_delete_robot_arm(refused));
    EXPECT_EQ(nullptr, gHandleList[0]);
    EXPECT_EQ(-1, kx_delete_robot_arm(refused));
    kx_robot_handle* again = kxtest::connect_arm(*sim, 0);
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(1, again->id);
    EXPECT_EQ(0, kx_get_robot_info(again, &info));
    EXPECT_EQ(0, kx_destory());
    for (auto* slot : gHandleList) EXPECT_EQ(nullptr, slot);
}

// An arm of a model this library does not know stays usable: what needs no
// joint count works, and joint-count commands fail where they check it.
TEST(CorePipeline, UnknownModelStaysUsable) {
    LogCapture::install(LOG_LEVEL_ERROR);
    ASSERT_EQ(0, kx_init(KX_DUAL_MODE_E));
    auto sim = kxtest::start_sim();
    sim->set_product_version(0, "ZETA-P");
    kx_robot_handle* arm = kxtest::connect_arm(*sim, 0);
    ASSERT_NE(nullptr, arm);
    EXPECT_EQ(-1, arm->id);
    EXPECT_TRUE(LogCapture::has_line("Unknown arm model: ZETA-P\n"));
    kx_robot_info_t info{};
    EXPECT_EQ(-2, kx_get_robot_info(arm, &info));
    int dof = 0;
    EXPECT_EQ(-1, kx_get_arm_dof(arm, &dof));

    // A getter sends its request, receives the reply, then fails.
    sim->clear_received(0);
    float joints[7] = {};
    EXPECT_EQ(-1, kx_get_joint_max_pos(arm, joints));
    EXPECT_TRUE(LogCapture::has_line("[kx_get_joint_max_pos] The robotic arm has been disconnected\n"));
    EXPECT_TRUE(has_command(sim->received(0), "get_joint_max_pos"));

    // A joint move checks before it sends anything.
    sim->clear_received(0);
    const float target[7] = {};
    EXPECT_EQ(-1, kx_movej(arm, target, 10, 0, 0, 0));
    EXPECT_TRUE(LogCapture::has_line("[kx_movej] The robotic arm has been disconnected\n"));
    float canfd_joint[7] = {};
    kx_movej_canfd_mode_t canfd{};
    canfd.joint = canfd_joint;
    EXPECT_EQ(-1, kx_movej_canfd(arm, canfd));
    EXPECT_TRUE(sim->received(0).empty());

    // Pose targets and commands that need no joint count work.
    kx_realtime_push_config_t push{};
    EXPECT_EQ(0, kx_get_realtime_push(arm, &push));
    kx_pose_t pose{};
    pose.position.z = 0.4f;
    pose.quaternion.w = 1.0f;
    EXPECT_EQ(0, kx_movep_follow(arm, pose));
    kx_movep_canfd_mode_t canfd_pose{};
    canfd_pose.pose = pose;
    EXPECT_EQ(0, kx_movep_canfd(arm, canfd_pose));
    ASSERT_TRUE(sim->wait_received(0, 3, 10s));
    EXPECT_TRUE(has_command(sim->received(0), "movep_follow"));
    EXPECT_TRUE(has_command(sim->received(0), "movep_canfd"));
    EXPECT_EQ(0, kx_delete_robot_arm(arm));
    EXPECT_EQ(0, kx_destory());
}
