/*
 * The libapi_c demo: two simulated arms of different models, connected in
 * triple mode, each moved through blocking joint and linear moves while the
 * realtime push prints a live line per arm. The simulator runs inside the
 * program (sim/simulator.h), so the demo is built in the source tree only;
 * applications start from examples/ instead.
 *
 *   scripts/demo.sh            (or build/demo/demo)
 */
#include "example_arm.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

struct ArmInfo {
    const char* product;
    std::string host;
    int port = 0;
    example_arm_t arm{};
    Clock::time_point last_line{};
};
ArmInfo g_arms[2] = {{"AVEN-P", {}}, {"BRIV-QA", {}}};
std::atomic<bool> g_live{false};
std::mutex g_print;

/* Each simulated arm sends its datagrams from its own loopback address. */
ArmInfo* arm_of(const kx_realtime_arm_joint_state_t& s) {
    for (ArmInfo& arm : g_arms)
        if (arm.host == s.arm_ip) return &arm;
    return nullptr;
}

/* Runs on the library's dispatch thread: a compact line per arm, 4 per second. */
void on_state(kx_realtime_arm_joint_state_t s) {
    if (!g_live.load() || s.errCode != 0) return;
    ArmInfo* found = arm_of(s);
    if (found == nullptr) return;
    ArmInfo& arm = *found;
    Clock::time_point now = Clock::now();
    if (now - arm.last_line < std::chrono::milliseconds(250)) return;
    arm.last_line = now;
    char joints[128];
    int n = 0;
    for (int i = 0; i < arm.arm.dof; ++i)
        n += std::snprintf(joints + n, sizeof joints - static_cast<size_t>(n), "%7.2f", s.joint_status.joint_position[i]);
    std::lock_guard<std::mutex> lock(g_print);
    std::printf("  %s:%-5d %-7s j[deg]%s  tool[m] %.3f %.3f %.3f\n", s.arm_ip, arm.port, arm.product, joints,
                s.waypoint.position.x, s.waypoint.position.y, s.waypoint.position.z);
    std::fflush(stdout);
}

void say(const char* fmt, const char* product, int rc) {
    std::lock_guard<std::mutex> lock(g_print);
    std::printf(fmt, product, rc);
    std::fflush(stdout);
}

int free_udp_port() {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    socklen_t len = sizeof addr;
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    close(fd);
    return ntohs(addr.sin_port);
}

/* One arm's programme: joint move to a ready pose, a linear square side
 * down and across, and back. Returns the first failing result. */
int run(ArmInfo& arm) {
    float ready[7];
    example_ready_pose(&arm.arm, ready);
    int rc = kx_movej(arm.arm.handle, ready, 40, 0, 0, 1);
    say("  %s movej to ready: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    kx_current_arm_state_t st;
    if ((rc = kx_get_current_arm_state(arm.arm.handle, &st)) != 0) return rc;
    kx_pose_t p = st.pose;
    p.position.z -= 0.06f;
    rc = kx_movel(arm.arm.handle, p, 30, 0, 0, 1);
    say("  %s movel 6 cm down: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    p.position.y += 0.08f;
    rc = kx_movel(arm.arm.handle, p, 30, 0, 0, 1);
    say("  %s movel 8 cm across: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    rc = kx_movej(arm.arm.handle, ready, 40, 0, 0, 1);
    say("  %s movej back to ready: %d\n", arm.product, rc);
    return rc;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        std::fprintf(help ? stdout : stderr,
                     "usage: %s\n"
                     "Starts a simulator with two arms (AVEN, six joints; BRIV, seven joints) inside\n"
                     "this program, connects to both and moves them at once while their realtime\n"
                     "state streams. Takes no options; kx_sim and the examples are the tools for\n"
                     "your own experiments.\n",
                     argv[0]);
        return help ? 0 : 2;
    }
    kxsim::Options o;
    o.arms = {kxsim::ArmOptions{g_arms[0].product}, kxsim::ArmOptions{g_arms[1].product}};
    o.time_scale = 1.0;
    o.udp_port = free_udp_port();
    o.push_enabled = true;
    o.push_cycle = 20;
    kxsim::Simulator sim(o);
    if (!sim.start()) {
        std::fprintf(stderr, "the simulator did not start\n");
        return 1;
    }

    kx_init(KX_TRIPLE_MODE_E);
    kx_realtime_arm_state_call_back(on_state);
    for (int i = 0; i < 2; ++i) {
        ArmInfo& info = g_arms[i];
        info.port = sim.port(i);
        info.host = sim.host(i);
        example_arm_t& arm = info.arm;
        arm.handle = kx_create_robot_arm(info.host.c_str(), info.port);
        if (arm.handle == nullptr || arm.handle->id < 0 || example_read_limits(&arm) != 0) {
            std::fprintf(stderr, "could not connect to %s:%d\n", info.host.c_str(), info.port);
            kx_destory();
            return 1;
        }
        kx_arm_software_version_t v;
        kx_get_arm_software_info(arm.handle, &v);
        std::printf("arm %d at %s:%d: %s, %d joints, controller %s, planner %s\n", arm.handle->id, info.host.c_str(),
                    info.port, v.product_version, arm.dof, v.ctrl_info.version, v.plan_info.version);
    }
    g_live = true;

    std::printf("moving both arms ...\n");
    int rc[2] = {-1, -1};
    std::thread a([&] { rc[0] = run(g_arms[0]); });
    std::thread b([&] { rc[1] = run(g_arms[1]); });
    a.join();
    b.join();
    g_live = false;

    for (ArmInfo& info : g_arms) {
        kx_current_arm_state_t st;
        if (kx_get_current_arm_state(info.arm.handle, &st) != 0) continue;
        std::printf("final %-7s tool [m] %.4f %.4f %.4f  [rad] %.3f %.3f %.3f\n", info.product, st.pose.position.x,
                    st.pose.position.y, st.pose.position.z, st.pose.euler.rx, st.pose.euler.ry, st.pose.euler.rz);
    }
    kx_destory();
    sim.stop();
    return (rc[0] == 0 && rc[1] == 0) ? 0 : 1;
}
