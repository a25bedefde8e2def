// kx_sim: serves simulated arm controllers on loopback until SIGINT/SIGTERM.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "simulator.h"

namespace {

const char* const kModels[] = {"AVEN", "BRIV", "CALD", "DUMO", "ESKA", "FIRU", "GOLT"};
const char* const kEditions[] = {"P", "QA", "QS"};

int usage(const char* why) {
    std::fprintf(stderr,
                 "kx_sim: %s\n"
                 "usage: kx_sim --arms N --model AVEN|BRIV|CALD|DUMO|ESKA|FIRU|GOLT[,MODEL...] "
                 "[--edition P|QA|QS] --base-port P [--time-scale S] [--udp-ip IP] [--udp-port P]\n"
                 "              [--grip-object WIDTH]\n"
                 "while running, lines on standard input drive the peripherals:\n"
                 "  input ARM CHANNEL 0|1      digital input 1..4 of arm ARM (0-based)\n"
                 "  tool-input ARM CHANNEL 0|1 tool digital input 1..2\n"
                 "  object ARM WIDTH           gripper object width 1..1000, 0 = nothing\n",
                 why);
    return 2;
}

template <size_t N>
bool one_of(const std::string& s, const char* const (&names)[N]) {
    for (const char* n : names)
        if (s == n) return true;
    return false;
}

bool to_int(const char* s, int lo, int hi, int& out) {
    char* end = nullptr;
    const long v = std::strtol(s, &end, 10);
    if (!*s || *end || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

/* Applies one line of the peripheral driver; false when it is not understood. */
bool drive(kxsim::Simulator& sim, const std::string& line) {
    std::istringstream in(line);
    std::string what;
    int arm = -1, a = -1, b = -1;
    if (!(in >> what >> arm >> a)) return false;
    if (what == "object") {
        sim.set_gripper_object(arm, a);
        return arm >= 0 && arm < sim.arm_count();
    }
    if (!(in >> b)) return false;
    if (what == "input") return sim.set_digital_input(arm, a, b);
    if (what == "tool-input") return sim.set_tool_digital_input(arm, a, b);
    return false;
}

/* Reads driver lines until standard input ends; never holds up the exit. */
void drive_from_stdin(kxsim::Simulator& sim) {
    std::thread([&sim] {
        for (std::string line; std::getline(std::cin, line);) {
            if (line.empty()) continue;
            std::printf("%s: %s\n", drive(sim, line) ? "ok" : "not understood", line.c_str());
            std::fflush(stdout);
        }
    }).detach();
}

}  // namespace

int main(int argc, char** argv) {
    int arms = 1;
    std::string models = "AVEN", edition = "P";
    kxsim::Options opt;
    bool have_port = false;
    int grip_object = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc) return usage(("missing value for " + a).c_str());
        const char* v = argv[++i];
        if (a == "--arms") {
            if (!to_int(v, 1, 5, arms)) return usage("--arms takes 1 to 5");
        } else if (a == "--model") {
            models = v;
        } else if (a == "--edition") {
            edition = v;
            if (!one_of(edition, kEditions)) return usage("--edition takes P, QA or QS");
        } else if (a == "--base-port") {
            if (!to_int(v, 0, 65530, opt.base_port)) return usage("bad --base-port");
            have_port = true;
        } else if (a == "--time-scale") {
            char* end = nullptr;
            opt.time_scale = std::strtod(v, &end);
            if (*end || !(opt.time_scale > 0)) return usage("bad --time-scale");
        } else if (a == "--udp-ip") {
            opt.udp_ip = v;
        } else if (a == "--grip-object") {
            if (!to_int(v, 0, 1000, grip_object)) return usage("--grip-object takes 0 to 1000");
        } else if (a == "--udp-port") {
            if (!to_int(v, 1, 65535, opt.udp_port)) return usage("bad --udp-port");
        } else {
            return usage(("unknown option " + a).c_str());
        }
    }
    if (!have_port) return usage("--base-port is required");

    // One model for all arms, or one per arm (the last repeats).
    std::vector<std::string> list;
    std::stringstream ss(models);
    for (std::string m; std::getline(ss, m, ',');) {
        if (!one_of(m, kModels)) return usage(("unknown model " + m).c_str());
        list.push_back(m);
    }
    if (list.empty()) return usage("--model is empty");
    opt.arms.clear();
    for (int k = 0; k < arms; ++k)
        opt.arms.push_back({list[std::min<size_t>(static_cast<size_t>(k), list.size() - 1)] + "-" + edition});

    // Block the stop signals before any thread starts, then wait for them here.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    kxsim::Simulator sim(opt);
    if (!sim.start()) {
        std::fprintf(stderr, "kx_sim: cannot listen on the requested ports: %s\n", std::strerror(errno));
        return 1;
    }
    for (int k = 0; k < sim.arm_count(); ++k) sim.set_gripper_object(k, grip_object);
    for (int k = 0; k < sim.arm_count(); ++k)
        std::printf("arm %d listening on 127.0.0.1:%d model %s\n", k, sim.port(k), sim.product_version(k).c_str());
    std::fflush(stdout);
    drive_from_stdin(sim);

    int sig = 0;
    sigwait(&stop_signals, &sig);
    sim.stop();
    return 0;
}
