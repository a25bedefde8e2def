// Command round trip through the library against the simulator, beside the
// same request bytes written straight to the simulator on a socket ("direct")
// and a raw loopback TCP round trip with a server that does no work, all in one
// run. Prints what the library adds (library - direct), and how five arms
// issuing round trips at the same time slow each other down.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<double> g_lib_us, g_push_us, g_raw_us, g_direct_us;
double g_alone_lib = 0, g_five_lib = 0, g_alone_direct = 0, g_five_direct = 0;

const std::string kRequest = R"({"command":"get_arm_software_info"})" "\r\n";

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())))];
}

int connect_loopback(int port, const std::string& host = "127.0.0.1") {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}

// A minimal client on a blocking socket: write the request, read until "\r\n".
class Direct {
public:
    Direct(const std::string& host, int port) : fd_(connect_loopback(port, host)) {}
    ~Direct() {
        if (fd_ >= 0) close(fd_);
    }
    int round_trip() {
        if (send(fd_, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(kRequest.size()))
            return -1;
        char buf[4096];
        size_t got = 0;
        for (;;) {
            ssize_t n = recv(fd_, buf + got, sizeof buf - got, 0);
            if (n <= 0) return -1;
            got += static_cast<size_t>(n);
            if (got >= 2 && buf[got - 2] == '\r' && buf[got - 1] == '\n') return 0;
            if (got == sizeof buf) got = 0;
        }
    }

private:
    int fd_;
};

std::unique_ptr<kxsim::Simulator> start_sim(int arms) {
    kxsim::Options options;
    options.arms.assign(static_cast<size_t>(arms), kxsim::ArmOptions{});
    options.push_enabled = false;
    auto sim = std::make_unique<kxsim::Simulator>(options);
    sim->start();
    return sim;
}

// A request/reply pair of similar size over loopback with blocking sockets
// and a server that does no work: the floor of any round trip.
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
        client_ = connect_loopback(ntohs(addr.sin_port));
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

// The round trips interleaved, so machine load weighs on each alike. Arm 0
// serves the library, arm 1 the direct client (a new connection would
// replace the library's on the same arm).
void BM_RoundTrips(benchmark::State& state) {
    auto sim = start_sim(2);
    kx_init(KX_DUAL_MODE_E);
    kx_robot_handle* handle = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
    Direct direct(sim->host(1), sim->port(1));
    RawLoopback raw;
    kx_arm_software_version_t info;
    kx_realtime_push_config_t config;
    for (auto _ : state) {
        bool ok = sample(g_raw_us, [&] { return raw.round_trip(); });
        ok = sample(g_direct_us, [&] { return direct.round_trip(); }) && ok;
        ok = sample(g_lib_us, [&] { return kx_get_arm_software_info(handle, &info); }) && ok;
        ok = sample(g_push_us, [&] { return kx_get_realtime_push(handle, &config); }) && ok;
        if (!ok) state.SkipWithError("round trip failed");
    }
    kx_destory();
    state.counters["raw_p50_us"] = percentile(g_raw_us, 0.5);
    state.counters["direct_p50_us"] = percentile(g_direct_us, 0.5);
    state.counters["lib_p50_us"] = percentile(g_lib_us, 0.5);
    state.counters["lib_p99_us"] = percentile(g_lib_us, 0.99);
}

// p50 of `rounds` round trips per client, with `clients` of them running at once.
template <class Client>
double concurrent_p50(std::vector<Client*>& clients, int rounds) {
    std::vector<std::vector<double>> samples(clients.size());
    std::vector<std::thread> threads;
    std::atomic<bool> go{false};
    for (size_t i = 0; i < clients.size(); ++i) {
        threads.emplace_back([&, i] {
            while (!go) std::this_thread::yield();
            for (int r = 0; r < rounds; ++r) sample(samples[i], [&] { return clients[i]->round_trip(); });
        });
    }
    go = true;
    for (auto& t : threads) t.join();
    std::vector<double> all;
    for (auto& s : samples) all.insert(all.end(), s.begin(), s.end());
    return percentile(all, 0.5);
}

struct LibClient {
    kx_robot_handle* handle;
    int round_trip() {
        kx_arm_software_version_t info;
        return kx_get_arm_software_info(handle, &info);
    }
};

// One arm alone, then five arms at once: how much do they slow each other?
void BM_FiveArmsConcurrently(benchmark::State& state) {
    const int rounds = 2000;
    for (auto _ : state) {
        auto sim = start_sim(5);
        kx_init(KX_DUAL_MODE_E);
        std::vector<LibClient> libs;
        for (int i = 0; i < 5; ++i) libs.push_back({kx_create_robot_arm(sim->host(i).c_str(), sim->port(i))});
        std::vector<LibClient*> one{&libs[0]}, five;
        for (auto& l : libs) five.push_back(&l);
        g_alone_lib = concurrent_p50(one, rounds);
        g_five_lib = concurrent_p50(five, rounds);
        kx_destory();

        // The same with direct clients, on fresh connections.
        std::vector<std::unique_ptr<Direct>> directs;
        for (int i = 0; i < 5; ++i) directs.push_back(std::make_unique<Direct>(sim->host(i), sim->port(i)));
        std::vector<Direct*> d_one{directs[0].get()}, d_five;
        for (auto& d : directs) d_five.push_back(d.get());
        g_alone_direct = concurrent_p50(d_one, rounds);
        g_five_direct = concurrent_p50(d_five, rounds);
    }
    state.counters["lib_alone_p50_us"] = g_alone_lib;
    state.counters["lib_five_p50_us"] = g_five_lib;
}

BENCHMARK(BM_RoundTrips)->Iterations(5000)->UseRealTime();
BENCHMARK(BM_FiveArmsConcurrently)->Iterations(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    kx_set_log_call_back(nullptr, 4);  // silence the library
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    auto line = [](const char* name, const std::vector<double>& v) {
        if (!v.empty()) std::printf("%-28s p50 %8.1f us  p99 %8.1f us\n", name, percentile(v, 0.5), percentile(v, 0.99));
    };
    std::printf("\n");
    line("raw loopback TCP", g_raw_us);
    line("direct to simulator", g_direct_us);
    line("kx_get_arm_software_info", g_lib_us);
    line("kx_get_realtime_push", g_push_us);
    if (!g_lib_us.empty() && !g_direct_us.empty()) {
        std::printf("added by the library (kx_get_arm_software_info - direct): p50 %.1f us  p99 %.1f us  "
                    "(target p50 <= 10 us, p99 <= 30 us)\n",
                    percentile(g_lib_us, 0.5) - percentile(g_direct_us, 0.5),
                    percentile(g_lib_us, 0.99) - percentile(g_direct_us, 0.99));
    }
    if (g_alone_lib > 0 && g_alone_direct > 0) {
        std::printf("five arms at once, p50 per round trip: library %.1f us alone, %.1f us with five, ratio %.2f "
                    "(target <= 2); direct %.1f / %.1f us, ratio %.2f\n",
                    g_alone_lib, g_five_lib, g_five_lib / g_alone_lib, g_alone_direct, g_five_direct,
                    g_five_direct / g_alone_direct);
    }
    benchmark::Shutdown();
    return 0;
}
