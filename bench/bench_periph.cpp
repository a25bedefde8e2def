/* Peripherals: how long after the simulator writes an effector's completion
 * event does the blocking call return (gripper, lift), and what a Modbus read
 * costs next to a plain query, both round trips measured in the same run. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

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
        if (h != nullptr && kx_set_modbus_mode(h, 0, 115200, 100) != 0) h = nullptr;
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

/* Delay from the completion event's write to the blocking call's return. */
template <class Move>
void completion(benchmark::State& state, Move&& move) {
    Rig& r = rig();
    if (r.h == nullptr) return state.SkipWithError("simulator or connection failed");
    std::vector<double> us;
    int n = 0;
    for (auto _ : state) {
        auto before = r.sim->last_motion_end(0);
        int rc = move(r.h, n++);
        auto returned = Clock::now();
        if (rc != 0) return state.SkipWithError("blocking effector move failed");
        auto end = r.sim->last_motion_end(0);
        while (end == before && Clock::now() - returned < std::chrono::milliseconds(200)) {
            std::this_thread::yield();
            end = r.sim->last_motion_end(0);
        }
        us.push_back(std::chrono::duration<double, std::micro>(returned - end).count());
    }
    report(state, us);
}

void BM_GripperCompletionToReturn(benchmark::State& state) {
    completion(state, [](kx_robot_handle* h, int n) { return kx_set_gripper_position(h, n % 2 ? 400 : 600, true, 5); });
}
BENCHMARK(BM_GripperCompletionToReturn)->Iterations(200)->Unit(benchmark::kMillisecond);

void BM_LiftCompletionToReturn(benchmark::State& state) {
    completion(state, [](kx_robot_handle* h, int n) { return kx_set_lift_height(h, 100, n % 2 ? 100 : 110, 1); });
}
BENCHMARK(BM_LiftCompletionToReturn)->Iterations(100)->Unit(benchmark::kMillisecond);

/* Round trips, alternating so that both see the same machine load. */
void BM_ModbusReadBesidePlainQuery(benchmark::State& state) {
    Rig& r = rig();
    if (r.h == nullptr) return state.SkipWithError("simulator or connection failed");
    std::vector<double> modbus_us, plain_us;
    const kx_peripheral_read_write_params_t reg{0, 10, 1, 1};
    for (auto _ : state) {
        int value = 0, voltage = 0;
        auto t0 = Clock::now();
        int a = kx_read_holding_registers(r.h, reg, &value);
        auto t1 = Clock::now();
        int b = kx_get_voltage(r.h, &voltage);
        auto t2 = Clock::now();
        if (a != 0 || b != 0) return state.SkipWithError("round trip failed");
        modbus_us.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
        plain_us.push_back(std::chrono::duration<double, std::micro>(t2 - t1).count());
    }
    std::sort(modbus_us.begin(), modbus_us.end());
    std::sort(plain_us.begin(), plain_us.end());
    const double m50 = modbus_us[modbus_us.size() / 2], p50 = plain_us[plain_us.size() / 2];
    state.counters["modbus_p50_us"] = m50;
    state.counters["modbus_p99_us"] = modbus_us[modbus_us.size() * 99 / 100];
    state.counters["plain_p50_us"] = p50;
    state.counters["plain_p99_us"] = plain_us[plain_us.size() * 99 / 100];
    state.counters["modbus_over_plain"] = p50 > 0 ? m50 / p50 : 0;
}
BENCHMARK(BM_ModbusReadBesidePlainQuery)->Iterations(2000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
