// kx_sim: serves simulated arm controllers on loopback until SIGINT/SIGTERM.
#include <arpa/inet.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kx_version.h"
#include "simulator.h"

namespace {

const char* const kModels[] = {"AVEN", "BRIV", "CALD", "DUMO", "ESKA", "FIRU", "GOLT"};
const char* const kEditions[] = {"P", "QA", "QS"};

const char kHelp[] =
    "usage: kx_sim [options]\n"
    "\n"
    "Simulates 1 to 5 arm controllers on this machine until Ctrl-C. Arm K (1..5)\n"
    "listens for its command connection on 127.0.0.K and sends its realtime state\n"
    "datagrams from 127.0.0.K, as separate controllers would. Connect to it with\n"
    "kx_create_robot_arm(\"127.0.0.K\", PORT).\n"
    "\n"
    "options (a comma-separated list gives one value per arm, at most --arms\n"
    "values; the last value repeats for the remaining arms):\n"
    "  --arms N             number of arms, 1 to 5 (default 1)\n"
    "  --model M[,M...]     arm model: AVEN, CALD, DUMO, ESKA, GOLT (6 joints)\n"
    "                       or BRIV, FIRU (7 joints) (default AVEN)\n"
    "  --edition E[,E...]   force edition: P (no sensor), QA (one-axis Fz sensor),\n"
    "                       QS (six-axis sensor) (default P); ESKA and FIRU\n"
    "                       come in P only\n"
    "  --port P[,P...]      TCP command port, 0 = any free port (default 8080)\n"
    "  --time-scale S       simulated seconds per real second (default 1)\n"
    "  --udp-ip IP          initial realtime push address, in 127.0.0.0/8\n"
    "                       (default 127.0.0.1)\n"
    "  --udp-port P         initial realtime push port (default 8089)\n"
    "  --no-push            start with realtime push disabled\n"
    "  --push FX,FY,FZ[,MX,MY,MZ]  external wrench on every arm's tool (N, N m,\n"
    "                       base frame), felt by the force sensor\n"
    "  --surface Z          height (m, base frame) of the stiff surface that\n"
    "                       force-position control presses against (default: at the tool)\n"
    "  --hand R1,R2,...     joint rates (deg/s) at which the operator's hand moves\n"
    "                       the arm while drag teaching\n"
    "  --grip-object W      width (gripper position 1..1000) of an object between\n"
    "                       every gripper's fingers; 0 = nothing (default)\n"
    "  --stdin-commands     read the lines below from standard input while running\n"
    "                       (off by default: a background job reading its terminal\n"
    "                       would be stopped)\n"
    "  --help               print this text and exit\n"
    "  --version            print the version and exit\n"
    "\n"
    "with --stdin-commands, lines drive the peripherals of arm K (1..5):\n"
    "  input K CHANNEL 0|1        digital input 1..4\n"
    "  tool-input K CHANNEL 0|1   tool digital input 1..2\n"
    "  object K WIDTH             gripper object width 1..1000, 0 = nothing\n"
    "\n"
    "Whatever an arm refuses, it says why on standard error, one line each:\n"
    "\"kx_sim: arm K: COMMAND refused: REASON\". Arm errors (read with the arm\n"
    "state, cleared by clear_system_err): 0x5008 electronic fence, 0x5009 virtual\n"
    "wall, 0x500A a streamed target farther than a joint can go in the stream's\n"
    "period (the mean gap over its last eight targets; 20 ms for a new stream),\n"
    "0x500B self-collision (when enabled), 0x5001 a program line failed. After\n"
    "0x500A or 0x500B streamed targets are refused until the error is cleared.\n"
    "\n"
    "example: kx_sim --arms 2 --model AVEN,BRIV --edition QS,P\n"
    "prints one line per arm, e.g. \"arm 1 listening on 127.0.0.1:8080 model AVEN-QS\".\n";

int usage(const std::string& why) {
    std::fprintf(stderr, "kx_sim: %s\n(kx_sim --help lists the options)\n", why.c_str());
    return 2;
}

template <size_t N>
bool one_of(const std::string& s, const char* const (&names)[N]) {
    for (const char* n : names)
        if (s == n) return true;
    return false;
}

/* A comma-separated list of at most `max_n` finite numbers. */
bool to_list(const std::string& s, size_t max_n, std::vector<double>& out) {
    out.clear();
    std::stringstream ss(s);
    for (std::string item; std::getline(ss, item, ',');) {
        char* end = nullptr;
        const double v = std::strtod(item.c_str(), &end);
        if (item.empty() || *end || !std::isfinite(v)) return false;
        out.push_back(v);
    }
    return !out.empty() && out.size() <= max_n;
}

bool to_int(const std::string& s, int lo, int hi, int& out) {
    char* end = nullptr;
    const long v = std::strtol(s.c_str(), &end, 10);
    if (s.empty() || *end || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream ss(list);
    for (std::string item; std::getline(ss, item, ',');) out.push_back(item);
    return out;
}

/* Value for arm index k of a per-arm list: the last one repeats. */
const std::string& for_arm(const std::vector<std::string>& list, int k) {
    return list[std::min(static_cast<size_t>(k), list.size() - 1)];
}

/* Applies one line of the peripheral driver; false when it is not understood. */
bool drive(kxsim::Simulator& sim, const std::string& line) {
    std::istringstream in(line);
    std::string what;
    int arm = 0, a = -1, b = -1;
    if (!(in >> what >> arm >> a) || arm < 1 || arm > sim.arm_count()) return false;
    if (what == "object") {
        sim.set_gripper_object(arm - 1, a);
        return true;
    }
    if (!(in >> b)) return false;
    if (what == "input") return sim.set_digital_input(arm - 1, a, b);
    if (what == "tool-input") return sim.set_tool_digital_input(arm - 1, a, b);
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
    std::vector<std::string> models{"AVEN"}, editions{"P"}, ports{"8080"};
    kxsim::Options opt;
    std::vector<double> push, hand, surface;
    int grip_object = 0;
    bool stdin_commands = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (a == "--version") {
            std::printf("kx_sim %s (kinematics %s)\n", KX_API_VERSION_STRING, KX_ALGO_VERSION_STRING);
            return 0;
        }
        if (a == "--no-push") {
            opt.push_enabled = false;
            continue;
        }
        if (a == "--stdin-commands") {
            stdin_commands = true;
            continue;
        }
        static const char* const kWithValue[] = {"--arms",       "--model",  "--edition", "--port",
                                                 "--time-scale", "--udp-ip", "--udp-port", "--grip-object",
                                                 "--push",       "--surface", "--hand"};
        if (!one_of(a, kWithValue)) return usage("unknown option " + a);
        if (i + 1 >= argc) return usage("missing value for " + a);
        const std::string v = argv[++i];
        if (a == "--arms") {
            if (!to_int(v, 1, 5, arms)) return usage("--arms takes 1 to 5, not '" + v + "'");
        } else if (a == "--model") {
            models = split(v);
            for (const std::string& m : models)
                if (!one_of(m, kModels))
                    return usage("unknown model '" + m + "' (AVEN, BRIV, CALD, DUMO, ESKA, FIRU or GOLT)");
        } else if (a == "--edition") {
            editions = split(v);
            for (const std::string& e : editions)
                if (!one_of(e, kEditions)) return usage("--edition takes P, QA or QS, not '" + e + "'");
        } else if (a == "--port") {
            ports = split(v);
            int p = 0;
            for (const std::string& s : ports)
                if (!to_int(s, 0, 65535, p)) return usage("--port takes 0 to 65535 per arm, not '" + s + "'");
        } else if (a == "--time-scale") {
            std::vector<double> scale;
            if (!to_list(v, 1, scale) || !(scale[0] > 0))
                return usage("--time-scale takes one positive number, not '" + v + "'");
            opt.time_scale = scale[0];
        } else if (a == "--push") {
            if (!to_list(v, 6, push) || (push.size() != 3 && push.size() != 6))
                return usage("--push takes three forces FX,FY,FZ or six values FX,FY,FZ,MX,MY,MZ, not '" + v + "'");
        } else if (a == "--hand") {
            if (!to_list(v, 7, hand)) return usage("--hand takes one to seven joint rates, not '" + v + "'");
        } else if (a == "--surface") {
            if (!to_list(v, 1, surface)) return usage("--surface takes one height in metres, not '" + v + "'");
        } else if (a == "--udp-ip") {
            in_addr addr{};
            if (::inet_pton(AF_INET, v.c_str(), &addr) != 1)
                return usage("--udp-ip takes a dotted-quad IPv4 address, not '" + v + "'");
            if ((ntohl(addr.s_addr) >> 24) != 127)
                return usage("--udp-ip " + v + " is not a loopback address: the simulator pushes only to 127.0.0.0/8");
            opt.udp_ip = v;
        } else if (a == "--grip-object") {
            if (!to_int(v, 0, 1000, grip_object)) return usage("--grip-object takes 0 to 1000");
        } else if (a == "--udp-port") {
            if (!to_int(v, 1, 65535, opt.udp_port)) return usage("--udp-port takes 1 to 65535, not '" + v + "'");
        }
    }
    if (models.empty() || editions.empty() || ports.empty()) return usage("an empty per-arm list");
    for (const auto& [name, list] : {std::pair{"--model", &models}, {"--edition", &editions}, {"--port", &ports}})
        if (list->size() > static_cast<size_t>(arms))
            return usage(std::string(name) + " gives " + std::to_string(list->size()) + " values for " +
                         std::to_string(arms) + (arms == 1 ? " arm" : " arms") + " (--arms)");

    opt.arms.clear();
    for (int k = 0; k < arms; ++k) {
        kxsim::ArmOptions arm;
        const std::string& model = for_arm(models, k);
        arm.product_version = model + "-" + for_arm(editions, k);
        if (!kxsim::product_offered(arm.product_version)) {
            std::string offered;
            for (const char* e : kEditions)
                if (kxsim::product_offered(model + "-" + e)) offered += (offered.empty() ? "" : ", ") + std::string(e);
            return usage("arm " + std::to_string(k + 1) + ": there is no " + arm.product_version + " (" + model +
                         " comes in edition " + offered + " only)");
        }
        to_int(for_arm(ports, k), 0, 65535, arm.port);
        opt.arms.push_back(arm);
    }

    // Block the stop signals before any thread starts, then wait for them here.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    kxsim::Simulator sim(opt);
    if (!sim.start()) {
        std::fprintf(stderr, "kx_sim: %s\n", sim.start_error().c_str());
        return 1;
    }
    for (int k = 0; k < sim.arm_count(); ++k) {
        sim.set_gripper_object(k, grip_object);
        if (!push.empty()) sim.set_external_force(k, push);
        if (!hand.empty()) sim.set_hand_motion(k, hand);
        if (!surface.empty()) sim.set_surface_height(k, surface[0]);
    }
    for (int k = 0; k < sim.arm_count(); ++k)
        std::printf("arm %d listening on %s:%d model %s\n", k + 1, sim.host(k).c_str(), sim.port(k),
                    sim.product_version(k).c_str());
    std::fflush(stdout);
    if (stdin_commands) drive_from_stdin(sim);

    int sig = 0;
    sigwait(&stop_signals, &sig);
    sim.stop();
    return 0;
}
