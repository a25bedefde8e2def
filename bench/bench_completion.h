/* Shared by the benchmarks of blocking calls: one simulated arm connected
 * once per process, and the delay from the simulator's write of a completion
 * event to the blocking call's return, as p50/p99/max counters. */
#ifndef BENCH_COMPLETION_H
#define BENCH_COMPLETION_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace benchrig {

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

inline Rig& rig() {
    static Rig r;
    return r;
}

inline void report(benchmark::State& state, std::vector<double>& us) {
    if (us.empty()) return;
    std::sort(us.begin(), us.end());
    state.counters["p50_us"] = us[us.size() / 2];
    state.counters["p99_us"] = us[std::min(us.size() - 1, us.size() * 99 / 100)];
    state.counters["max_us"] = us.back();
}

/* Delay from the completion event's write to the caller's return; move(h, n)
 * is the n-th blocking call and returns its result code. */
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
            state.SkipWithError("blocking call failed");
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

}  // namespace benchrig

#endif /* BENCH_COMPLETION_H */
