// Program upload: the time to upload a 100 kB program next to its pacing
// floor (2 ms per 100-byte chunk), and the command round trip of a second
// arm while the first uploads next to the same round trip when idle, all
// measured in one run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "kx_interface.h"
#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kProgramBytes = 100 * 1024;
constexpr double kFloorMs = 2.0 * ((kProgramBytes + 99) / 100);

std::vector<double> g_upload_ms, g_idle_us, g_busy_us;

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

/* A valid six-joint program of exactly kProgramBytes bytes. */
std::string write_program() {
    std::string text = "{\"file\":6}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":0,\"enabled\":true,\"parent_number\":0}\r\n";
    for (int i = 0; text.size() < kProgramBytes - 64; ++i)
        text += "{\"point\":[" + std::to_string(i % 90000) + ",0,0,0,0,0]}\r\n";
    std::string pad = "{\"point\":[0,0,0,0,0,0]}";
    pad += std::string(kProgramBytes - text.size() - pad.size() - 2, ' ') + "\r\n";
    text += pad;
    std::string path = "/tmp/kx_bench_upload_" + std::to_string(::getpid()) + ".txt";
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    return path;
}

struct Rig {
    Rig() {
        kxsim::Options o;
        o.arms = {kxsim::ArmOptions{"AVEN-P"}, kxsim::ArmOptions{"AVEN-P"}};
        o.push_enabled = false;
        sim = std::make_unique<kxsim::Simulator>(o);
        sim->start();
        kx_init(KX_DUAL_MODE_E);
        uploader = kx_create_robot_arm(sim->host(0).c_str(), sim->port(0));
        other = kx_create_robot_arm(sim->host(1).c_str(), sim->port(1));
    }
    ~Rig() {
        kx_destory();
        sim->stop();
    }
    std::unique_ptr<kxsim::Simulator> sim;
    kx_robot_handle* uploader = nullptr;
    kx_robot_handle* other = nullptr;
};

double round_trip_us(kx_robot_handle* h) {
    float joints[7];
    auto start = Clock::now();
    int r = kx_get_joint_degree(h, joints);
    double us = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    return r == 0 ? us : -1;
}

void BM_Upload100k(benchmark::State& state) {
    Rig rig;
    std::string path = write_program();
    kx_send_project_t p{};
    std::snprintf(p.project_path, sizeof p.project_path, "%s", path.c_str());
    p.project_path_len = static_cast<int>(path.size());
    p.plan_speed = 50;
    p.only_save = 1;
    p.save_id = 1;
    for (auto _ : state) {
        /* the second arm idle */
        for (int i = 0; i < 200; ++i) g_idle_us.push_back(round_trip_us(rig.other));
        /* the second arm while the first uploads */
        std::atomic<bool> uploading{true};
        std::thread probe([&] {
            while (uploading) g_busy_us.push_back(round_trip_us(rig.other));
        });
        int err_line = 0;
        auto start = Clock::now();
        int r = kx_send_project(rig.uploader, p, &err_line);
        g_upload_ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        uploading = false;
        probe.join();
        if (r != 0) state.SkipWithError("upload failed");
    }
    std::remove(path.c_str());
    state.counters["upload_ms"] = median(g_upload_ms);
    state.counters["floor_ms"] = kFloorMs;
}

BENCHMARK(BM_Upload100k)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    kx_set_log_call_back(nullptr, 4);  // silence the library
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double up = median(g_upload_ms), idle = median(g_idle_us), busy = median(g_busy_us);
    std::printf("\nupload of %zu bytes      median %8.1f ms  floor %.0f ms  ratio %.3f\n", kProgramBytes, up, kFloorMs,
                up / kFloorMs);
    std::printf("second arm round trip   idle median %7.1f us  during upload %7.1f us  ratio %.2f (target <= 2)\n",
                idle, busy, idle > 0 ? busy / idle : 0.0);
    benchmark::Shutdown();
    return 0;
}
