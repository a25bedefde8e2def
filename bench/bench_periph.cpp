/* Peripherals: how long after the simulator writes an effector's completion
 * event does the blocking call return (gripper, lift), and what a Modbus read
 * costs next to a plain query, both round trips measured in the same run. */
#include <algorithm>
#include <chrono>

#include "bench_completion.h"

namespace {

using Clock = std::chrono::steady_clock;
using benchrig::measure;
using benchrig::rig;

/* The Modbus reads go to the controller's RS485 port, opened once as master. */
kx_robot_handle* modbus_ready() {
    static const bool opened = rig().h != nullptr && kx_set_modbus_mode(rig().h, 0, 115200, 100) == 0;
    return opened ? rig().h : nullptr;
}

void BM_GripperCompletionToReturn(benchmark::State& state) {
    measure(state, [](kx_robot_handle* h, int n) { return kx_set_gripper_position(h, n % 2 ? 400 : 600, true, 5); });
}
BENCHMARK(BM_GripperCompletionToReturn)->Iterations(200)->Unit(benchmark::kMillisecond);

void BM_LiftCompletionToReturn(benchmark::State& state) {
    measure(state, [](kx_robot_handle* h, int n) { return kx_set_lift_height(h, 100, n % 2 ? 100 : 110, 1); });
}
BENCHMARK(BM_LiftCompletionToReturn)->Iterations(100)->Unit(benchmark::kMillisecond);

/* Round trips, alternating so that both see the same machine load. */
void BM_ModbusReadBesidePlainQuery(benchmark::State& state) {
    kx_robot_handle* h = modbus_ready();
    if (h == nullptr) return state.SkipWithError("simulator, connection or Modbus port failed");
    std::vector<double> modbus_us, plain_us;
    const kx_peripheral_read_write_params_t reg{0, 10, 1, 1};
    for (auto _ : state) {
        int value = 0, voltage = 0;
        auto t0 = Clock::now();
        int a = kx_read_holding_registers(h, reg, &value);
        auto t1 = Clock::now();
        int b = kx_get_voltage(h, &voltage);
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
