// Command round trip through the library against the simulator, next to a
// raw loopback TCP round trip of similar size, in one run.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<double> g_lib_us, g_push_us, g_raw_us;

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())))];
}

struct Library {
    Library() {
        kxsim::Options options;
        options.push_enabled = false;
        sim = std::make_unique<kxsim::Simulator>(options);
        sim->start();
        kx_init(KX_DUAL_MODE_E);
        handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    }
    ~Library() {
        kx_destory();
        sim->stop();
    }
    std::unique_ptr<kxsim::Simulator> sim;
    kx_robot_handle* handle = nullptr;
};

// A request/reply pair of similar size over loopback with blocking sockets
// and a server that does no work: the floor the library is compared with.
class RawLoopback {
public:
    RawLoopback() {
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        socklen_t len = sizeof addr;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &len);
        listen(listener_, 1);
        server_ = std::thread([this] { serve(); });
        client_ = socket(AF_INET, SOCK_STREAM, 0);
        connect(client_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        int one = 1;
        setsockopt(client_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~RawLoopback() {
        close(client_);
        server_.join();
        close(listener_);
    }
    int round_trip() {
        send(client_, kRequest.data(), kRequest.size(), MSG_NOSIGNAL);
        char buf[4096];
        size_t got = 0;
        while (got < kReply.size()) {
            ssize_t n = recv(client_, buf, sizeof buf, 0);
            if (n <= 0) return -1;
            got += static_cast<size_t>(n);
        }
        return 0;
    }

private:
    void serve() {
        int fd = accept(listener_, nullptr, nullptr);
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::string pending;
        char buf[4096];
        for (;;) {
            ssize_t n = recv(fd, buf, sizeof buf, 0);
            if (n <= 0) break;
            pending.append(buf, static_cast<size_t>(n));
            size_t pos;
            while ((pos = pending.find("\r\n")) != std::string::npos) {
                pending.erase(0, pos + 2);
                send(fd, kReply.data(), kReply.size(), MSG_NOSIGNAL);
            }
        }
        close(fd);
    }

    inline static const std::string kRequest = R"({"command":"get_arm_software_info"})" "\r\n";
    inline static const std::string kReply =
        R"({"command":"arm_software_info","Product_version":"AVEN-P","algorithm_info":{"version":"1.4.2"},)"
        R"("ctrl_info":{"build_time":"2024-05-10 09:30:00","version":"1.7.0"},"dynamic_info":{"model_version":"1.0"},)"
        R"("plan_info":{"build_time":"2024-05-10 09:30:00","version":"1.7.0"}})" "\r\n";
    int listener_ = -1, client_ = -1;
    std::thread server_;
};

template <class Call>
bool sample(std::vector<double>& samples, Call call) {
    auto start = Clock::now();
    int result = call();
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    return result == 0;
}

// The three round trips interleaved, so machine load weighs on each alike.
void BM_RoundTrips(benchmark::State& state) {
    Library lib;
    RawLoopback raw;
    kx_arm_software_version_t info;
    kx_realtime_push_config_t config;
    for (auto _ : state) {
        bool ok = sample(g_raw_us, [&] { return raw.round_trip(); });
        ok = sample(g_lib_us, [&] { return kx_get_arm_software_info(lib.handle, &info); }) && ok;
        ok = sample(g_push_us, [&] { return kx_get_realtime_push(lib.handle, &config); }) && ok;
        if (!ok) state.SkipWithError("round trip failed");
    }
    state.counters["raw_p50_us"] = percentile(g_raw_us, 0.5);
    state.counters["lib_p50_us"] = percentile(g_lib_us, 0.5);
    state.counters["lib_p99_us"] = percentile(g_lib_us, 0.99);
}

BENCHMARK(BM_RoundTrips)->Iterations(5000)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    kx_set_log_call_back(nullptr, 4);  // silence the library
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double raw50 = percentile(g_raw_us, 0.5);
    auto line = [&](const char* name, const std::vector<double>& v) {
        if (v.empty()) return;
        double p50 = percentile(v, 0.5), p99 = percentile(v, 0.99);
        std::printf("%-28s p50 %8.1f us  p99 %8.1f us  p50/raw %.2f  (target p50 <= %.1f us, p99 <= 500 us)\n", name,
                    p50, p99, raw50 > 0 ? p50 / raw50 : 0.0, 2 * raw50 + 50);
    };
    std::printf("\nraw loopback TCP             p50 %8.1f us  p99 %8.1f us\n", raw50, percentile(g_raw_us, 0.99));
    line("kx_get_arm_software_info", g_lib_us);
    line("kx_get_realtime_push", g_push_us);
    benchmark::Shutdown();
    return 0;
}
