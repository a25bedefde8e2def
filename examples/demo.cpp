/*
 * The libapi_c demo: two simulated arms of different models, connected in
 * triple mode, each moved through blocking joint and linear moves while the
 * realtime push prints a live line per arm.
 *
 *   scripts/demo.sh            (or build/examples/demo)
 */
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

#include "kx_interface.h"
#include "simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

struct ArmInfo {
    const char* product;
    int port = 0;
    int dof = 6;
    kx_robot_handle* handle = nullptr;
    Clock::time_point last_line{};
};
ArmInfo g_arms[2] = {{"AVEN-P"}, {"BRIV-QA"}};
std::atomic<bool> g_live{false};
std::mutex g_print;

/* Datagrams carry only the sender's address, and both simulated arms send
 * from the loopback address; the seven-joint arm is told apart by its
 * seventh joint, which the demo keeps away from zero. */
int arm_of(const kx_realtime_arm_joint_state_t& s) {
    return s.joint_status.joint_position[6] != 0.0f ? 1 : 0;
}

/* Runs on the library's UDP thread: a compact line per arm, 4 per second. */
void on_state(kx_realtime_arm_joint_state_t s) {
    if (!g_live.load() || s.errCode != 0) return;
    ArmInfo& arm = g_arms[arm_of(s)];
    Clock::time_point now = Clock::now();
    if (now - arm.last_line < std::chrono::milliseconds(250)) return;
    arm.last_line = now;
    char joints[128];
    int n = 0;
    for (int i = 0; i < arm.dof; ++i)
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
int run(ArmInfo& arm, const float* ready) {
    int rc = kx_movej(arm.handle, ready, 40, 0, 0, 1);
    say("  %s movej to ready: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    kx_current_arm_state_t st;
    if ((rc = kx_get_current_arm_state(arm.handle, &st)) != 0) return rc;
    kx_pose_t p = st.pose;
    p.position.z -= 0.06f;
    rc = kx_movel(arm.handle, p, 30, 0, 0, 1);
    say("  %s movel 6 cm down: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    p.position.y += 0.08f;
    rc = kx_movel(arm.handle, p, 30, 0, 0, 1);
    say("  %s movel 8 cm across: %d\n", arm.product, rc);
    if (rc != 0) return rc;
    rc = kx_movej(arm.handle, ready, 40, 0, 0, 1);
    say("  %s movej back to ready: %d\n", arm.product, rc);
    return rc;
}

}  // namespace

int main() {
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
        ArmInfo& arm = g_arms[i];
        arm.port = sim.port(i);
        const std::string host = sim.host(i);
        arm.handle = kx_create_robot_arm(host.c_str(), arm.port);
        if (arm.handle == nullptr || arm.handle->id < 0) {
            std::fprintf(stderr, "could not connect to %s:%d\n", host.c_str(), arm.port);
            kx_destory();
            return 1;
        }
        kx_get_arm_dof(arm.handle, &arm.dof);
        kx_arm_software_version_t v;
        kx_get_arm_software_info(arm.handle, &v);
        std::printf("arm %d at %s:%d: %s, %d joints, controller %s, planner %s\n", arm.handle->id, host.c_str(), arm.port,
                    v.product_version, arm.dof, v.ctrl_info.version, v.plan_info.version);
    }

    const float ready6[7] = {0, 20, 70, 0, 90, 0, 0};
    const float ready7[7] = {0, 30, 0, 60, 0, 60, 20};
    /* Bring the seven-joint arm's last joint off zero before the live lines
     * start (see arm_of). */
    const float start7[7] = {0, 0, 0, 0, 0, 0, 20};
    if (kx_movej(g_arms[1].handle, start7, 60, 0, 0, 1) != 0) {
        kx_destory();
        return 1;
    }
    g_live = true;

    std::printf("moving both arms ...\n");
    int rc[2] = {-1, -1};
    std::thread a([&] { rc[0] = run(g_arms[0], ready6); });
    std::thread b([&] { rc[1] = run(g_arms[1], ready7); });
    a.join();
    b.join();
    g_live = false;

    for (ArmInfo& arm : g_arms) {
        kx_current_arm_state_t st;
        if (kx_get_current_arm_state(arm.handle, &st) != 0) continue;
        std::printf("final %-7s tool [m] %.4f %.4f %.4f  [rad] %.3f %.3f %.3f\n", arm.product, st.pose.position.x,
                    st.pose.position.y, st.pose.position.z, st.pose.euler.rx, st.pose.euler.ry, st.pose.euler.rz);
    }
    kx_destory();
    sim.stop();
    return (rc[0] == 0 && rc[1] == 0) ? 0 : 1;
}
