/* How long after the controller reports a motion finished does the blocking
 * call return? Measured against the simulator's own record of when it wrote
 * the completion event, for blocking joint moves and blocking steps. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace {

struct Rig {
    std::unique_ptr<kxsim::Simulator> sim;
    kx_robot_handle* h = nullptr;

    Rig() {
        kxsim::Options o;
        o.base_port = 0;
        o.time_scale = 50.0;
        o.push_enabled = false;
        sim = std::make_unique<kxsim::Simulator>(o);
        if (!sim->start()) return;
        kx_init(KX_DUAL_MODE_E);
        h = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
        if (h != nullptr && h->id < 0) h = nullptr;
    }
    ~Rig() {
        kx_destory();
        sim->stop();
    }
};

Rig& rig() {
    static Rig r;
    return r;
}

void report(benchmark::State& state, std::vector<double>& us) {
    if (us.empty()) return;
    std::sort(us.begin(), us.end());
    state.counters["p50_us"] = us[us.size() / 2];
    state.counters["p99_us"] = us[std::min(us.size() - 1, us.size() * 99 / 100)];
    state.counters["max_us"] = us.back();
}

/* Delay from the completion event's write to the caller's return. */
template <class Move>
void measure(benchmark::State& state, Move&& move) {
    Rig& r = rig();
    if (r.h == nullptr) {
        state.SkipWithError("simulator or connection failed");
        return;
    }
    std::vector<double> us;
    int n = 0;
    for (auto _ : state) {
        auto before = r.sim->last_motion_end(0);
        int rc = move(r.h, n++);
        auto returned = std::chrono::steady_clock::now();
        if (rc != 0) {
            state.SkipWithError("blocking motion failed");
            return;
        }
        /* The simulator may note the end just after writing the event. */
        auto end = r.sim->last_motion_end(0);
        while (end == before && std::chrono::steady_clock::now() - returned < std::chrono::milliseconds(200)) {
            std::this_thread::yield();
            end = r.sim->last_motion_end(0);
        }
        us.push_back(std::chrono::duration<double, std::micro>(returned - end).count());
    }
    report(state, us);
}

void BM_BlockingMovejReturn(benchmark::State& state) {
    const float a[7] = {0, 0, 10, 0, 10, 0, 0};
    const float b[7] = {0, 0, 12, 0, 12, 0, 0};
    measure(state, [&](kx_robot_handle* h, int n) { return kx_movej(h, (n % 2) ? b : a, 100, 0, 0, 1); });
}
BENCHMARK(BM_BlockingMovejReturn)->Iterations(200)->Unit(benchmark::kMillisecond);

/* The step must still be running when the first trajectory query arrives;
 * a step that ends before it is waited out for the idle allowance (about a
 * second) by design. */
void BM_BlockingStepReturn(benchmark::State& state) {
    measure(state, [&](kx_robot_handle* h, int n) { return kx_set_joint_step(h, 1, (n % 2) ? 10.0f : -10.0f, 10, 1); });
}
BENCHMARK(BM_BlockingStepReturn)->Iterations(100)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
