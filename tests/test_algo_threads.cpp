// Kinematics for different arms from several threads: every result equals
// the one computed alone, and the named globals keep the last configuration
// loaded.
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "kx_invoke_algo.h"
#include "test_cmd_fixture.h"

using namespace cmdtest;

namespace {

class AlgoThreads : public SimFixture {};

struct Result {
    kx_pose_t fk;
    int ik_rc;
    float ik[7];
};

// One arm's computation for sample i: forward kinematics of a joint vector,
// then inverse kinematics back from the pose found.
Result compute(kx_robot_handle* h, int i) {
    float q[7] = {};
    for (int j = 0; j < 6; ++j) q[j] = static_cast<float>(((i * 7 + j * 13) % 61) - 30);
    Result r{};
    r.fk = kx_algo_forward_kinematics(h, q);
    kx_inverse_kinematics_params_t p{};
    std::memcpy(p.q_in, q, sizeof p.q_in);
    p.q_pose = r.fk;
    p.flag = 1;
    r.ik_rc = kx_algo_inverse_kinematics(h, p, r.ik);
    return r;
}

bool same(const Result& a, const Result& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

TEST_F(AlgoThreads, ConcurrentCallsForTwoArmsEqualSequentialOnes) {
    SimSetup s;
    s.products = {"AVEN-P", "CALD-QS"};
    start(s);
    ASSERT_EQ(0, kx_set_install_pose(h(1), 0, 90, 0));
    constexpr int kCalls = 3000;
    std::vector<Result> want[2];
    for (int arm = 0; arm < 2; ++arm)
        for (int i = 0; i < kCalls; ++i) want[arm].push_back(compute(h(arm), i));
    ASSERT_FALSE(same(want[0][1], want[1][1]));  // the two models differ

    std::atomic<int> wrong[2] = {0, 0};
    std::vector<std::thread> threads;
    for (int arm = 0; arm < 2; ++arm)
        threads.emplace_back([&, arm] {
            for (int i = 0; i < kCalls; ++i)
                if (!same(compute(h(arm), i), want[arm][static_cast<size_t>(i)])) ++wrong[arm];
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(0, wrong[0].load());
    EXPECT_EQ(0, wrong[1].load());

    // The globals hold what was loaded last.
    kx_algo_arm_state_set(h(0));
    EXPECT_FLOAT_EQ(0.0f, angleV);
    kx_algo_arm_state_set(h(1));
    EXPECT_FLOAT_EQ(static_cast<float>(90 * 3.141592653589793 / 180), angleV);
    const kx_dh_t dh = kx_algo_get_dh();
    EXPECT_FLOAT_EQ(record(1)->dh.d[0], dh.d[0]);
    EXPECT_FLOAT_EQ(record(1)->dh.a[1], dh.a[1]);
}
