// kx_sim: serves simulated arm controllers on loopback until SIGINT/SIGTERM.
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "simulator.h"

namespace {

const char* const kModels[] = {"AVEN", "BRIV", "CALD", "DUMO", "ESKA", "FIRU", "GOLT"};
const char* const kEditions[] = {"P", "QA", "QS"};

int usage(const char* why) {
    std::fprintf(stderr,
                 "kx_sim: %s\n"
                 "usage: kx_sim --arms N --model AVEN|BRIV|CALD|DUMO|ESKA|FIRU|GOLT[,MODEL...] "
                 "[--edition P|QA|QS] --base-port P [--time-scale S] [--udp-ip IP] [--udp-port P]\n"
                 "       [--push FX,FY,FZ[,MX,MY,MZ]] [--surface Z] [--hand RATE1,RATE2,...]\n"
                 "  --push: external wrench on every arm's tool (N, N m, base frame)\n"
                 "  --surface: height (m) of the surface force-position control presses against\n"
                 "  --hand: joint rates (deg/s) the operator's hand moves the arm at while drag teaching\n",
                 why);
    return 2;
}

template <size_t N>
bool one_of(const std::string& s, const char* const (&names)[N]) {
    for (const char* n : names)
        if (s == n) return true;
    return false;
}

/* A comma-separated list of numbers. */
bool to_list(const char* s, std::vector<double>& out) {
    out.clear();
    std::stringstream ss(s);
    for (std::string item; std::getline(ss, item, ',');) {
        char* end = nullptr;
        const double v = std::strtod(item.c_str(), &end);
        if (item.empty() || *end || !(v == v)) return false;
        out.push_back(v);
    }
    return !out.empty();
}

bool to_int(const char* s, int lo, int hi, int& out) {
    char* end = nullptr;
    const long v = std::strtol(s, &end, 10);
    if (!*s || *end || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int arms = 1;
    std::string models = "AVEN", edition = "P";
    kxsim::Options opt;
    bool have_port = false;
    std::vector<double> push, hand;
    double surface = NAN;
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
        } else if (a == "--push") {
            if (!to_list(v, push) || push.size() > 6) return usage("--push takes up to six numbers");
        } else if (a == "--hand") {
            if (!to_list(v, hand) || hand.size() > 7) return usage("--hand takes up to seven joint rates");
        } else if (a == "--surface") {
            std::vector<double> z;
            if (!to_list(v, z) || z.size() != 1) return usage("bad --surface");
            surface = z[0];
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
    for (int k = 0; k < sim.arm_count(); ++k) {
        if (!push.empty()) sim.set_external_force(k, push);
        if (!hand.empty()) sim.set_hand_motion(k, hand);
        sim.set_surface_height(k, surface);
    }
    for (int k = 0; k < sim.arm_count(); ++k)
        std::printf("arm %d listening on 127.0.0.1:%d model %s\n", k, sim.port(k), sim.product_version(k).c_str());
    std::fflush(stdout);

    int sig = 0;
    sigwait(&stop_signals, &sig);
    sim.stop();
    return 0;
}
