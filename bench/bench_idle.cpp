// CPU used by the library while five connections sit idle.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "kx_interface.h"
#include "kx_interface_global.h"
#include "simulator.h"

namespace {

double g_library_percent = 0, g_process_percent = 0;

double thread_cpu_seconds(pthread_t thread) {
    clockid_t clock;
    timespec ts{};
    if (pthread_getcpuclockid(thread, &clock) != 0 || clock_gettime(clock, &ts) != 0) return 0;
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double process_cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& tv) { return static_cast<double>(tv.tv_sec) + tv.tv_usec * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void BM_IdleFiveConnections(benchmark::State& state) {
    const char* env = std::getenv("KX_BENCH_SECONDS");
    const int seconds = env ? std::atoi(env) : 3;
    for (auto _ : state) {
        kxsim::Options options;
        options.arms.assign(5, kxsim::ArmOptions{});
        options.push_enabled = false;
        kxsim::Simulator sim(options);
        sim.start();
        kx_init(KX_TRIPLE_MODE_E);
        for (int i = 0; i < 5; ++i) kx_create_robot_arm(sim.host(i).c_str(), sim.port(i));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // past the set-up traffic
        double lib0 = thread_cpu_seconds(thread_id) + thread_cpu_seconds(thread_udp_id);
        double proc0 = process_cpu_seconds();
        auto wall0 = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
        double lib = thread_cpu_seconds(thread_id) + thread_cpu_seconds(thread_udp_id) - lib0;
        g_library_percent = 100.0 * lib / wall;
        g_process_percent = 100.0 * (process_cpu_seconds() - proc0) / wall;
        kx_destory();
    }
    state.counters["library_cpu_pct"] = g_library_percent;
    state.counters["process_cpu_pct"] = g_process_percent;
}

BENCHMARK(BM_IdleFiveConnections)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    kx_set_log_call_back(nullptr, 4);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\nidle CPU with five connections: library threads %.3f %% of one core, whole process "
                "(incl. in-process simulator) %.3f %%  target <= 0.5 %%\n",
                g_library_percent, g_process_percent);
    benchmark::Shutdown();
    return 0;
}
