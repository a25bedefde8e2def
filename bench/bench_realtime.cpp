// Five simulated arms pushing realtime state at 1 kHz each: datagrams pushed
// versus datagrams delivered to the application's callback.
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "kx_interface.h"
#include "simulator.h"

namespace {

std::atomic<unsigned long long> g_delivered{0};
std::atomic<unsigned long long> g_decoded{0};
unsigned long long g_pushed = 0;

void on_state(kx_realtime_arm_joint_state_t state) {
    g_delivered++;
    if (state.errCode == 0) g_decoded++;
}

int free_udp_port() {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t len = sizeof addr;
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    close(fd);
    return ntohs(addr.sin_port);
}

void BM_FiveArmsAt1kHz(benchmark::State& state) {
    const char* env = std::getenv("KX_BENCH_SECONDS");
    const int seconds = env ? std::atoi(env) : 10;
    for (auto _ : state) {
        kxsim::Options options;
        options.arms.assign(5, kxsim::ArmOptions{});
        options.udp_port = free_udp_port();
        options.push_cycle = 1;
        options.push_enabled = true;
        kxsim::Simulator sim(options);
        sim.start();
        kx_realtime_arm_state_call_back(on_state);
        kx_init(KX_TRIPLE_MODE_E);
        for (int i = 0; i < 5; ++i) kx_create_robot_arm(sim.host(i).c_str(), sim.port(i));
        // Count only what is pushed once the port is being listened to.
        unsigned long long start_pushed = 0;
        for (int i = 0; i < 5; ++i) start_pushed += sim.datagrams_sent(i);
        unsigned long long start_delivered = g_delivered, start_decoded = g_decoded;
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        sim.stop();
        for (int i = 0; i < 5; ++i) g_pushed += sim.datagrams_sent(i);
        g_pushed -= start_pushed;
        // Let the receive thread drain what is still in the socket buffer.
        unsigned long long last = ~0ull;
        while (last != g_delivered) {
            last = g_delivered;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        kx_destory();
        g_delivered -= start_delivered;
        g_decoded -= start_decoded;
    }
    state.counters["pushed"] = static_cast<double>(g_pushed);
    state.counters["delivered"] = static_cast<double>(g_delivered.load());
}

BENCHMARK(BM_FiveArmsAt1kHz)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    kx_set_log_call_back(nullptr, 4);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    unsigned long long delivered = g_delivered;
    std::printf("\npushed %llu  delivered %llu  decoded %llu  lost %lld (%.4f %%)  target: zero loss\n", g_pushed,
                delivered, g_decoded.load(), static_cast<long long>(g_pushed) - static_cast<long long>(delivered),
                g_pushed ? 100.0 * (static_cast<double>(g_pushed) - static_cast<double>(delivered)) /
                               static_cast<double>(g_pushed)
                         : 0.0);
    benchmark::Shutdown();
    return 0;
}
