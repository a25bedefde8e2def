// kx watch: a live table of several arms from their realtime push.
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "live.h"

namespace kx {

namespace {

// One table line per arm; returns the number of lines printed.
int print_table(Live& live, bool tty) {
    const char* eol = tty ? "\033[K\n" : "\n";  // on a terminal, also clear what the last table left
    std::lock_guard<std::mutex> lock(live.mutex);
    int max_dof = 6;
    for (auto& a : live.arms) max_dof = std::max(max_dof, a->arm.info.arm_dof);
    std::printf("%-3s %-21s %-5s %-10s", "ARM", "ADDRESS", "MODEL", "STATUS");
    for (int j = 1; j <= max_dof; ++j) std::printf("  %7s", fmt("J%d", j).c_str());
    std::printf("  %8s %8s %8s  %s%s", "X mm", "Y mm", "Z mm", "ERRORS", eol);
    const auto now = std::chrono::steady_clock::now();
    for (auto& p : live.arms) {
        LiveArm& a = *p;
        const kx_realtime_arm_joint_state_t& s = a.rt;
        const bool stale = !a.have_rt || now - a.rt_at > std::chrono::seconds(1);
        std::printf("%-3d %-21.21s %-5s %-10.10s", a.index, a.arm.addr.text.c_str(), model_name(a.arm.info.arm_model),
                    stale ? "no data" : status_name(s.arm_current_status));
        for (int j = 0; j < max_dof; ++j) {
            if (j < a.arm.info.arm_dof && a.have_rt) std::printf("  %7.2f", s.joint_status.joint_position[j]);
            else std::printf("  %7s", "-");
        }
        std::printf("  %8.1f %8.1f %8.1f  ", s.waypoint.position.x * 1e3, s.waypoint.position.y * 1e3,
                    s.waypoint.position.z * 1e3);
        int shown = 0;
        for (int i = 0; i < std::min<int>(s.err.err_len, 24); ++i)
            if (s.err.err[i] != 0) std::printf("%s%d", shown++ ? "," : "", s.err.err[i]);
        std::printf("%s%s", shown ? "" : "none", eol);
    }
    std::fflush(stdout);
    return 1 + static_cast<int>(live.arms.size());
}

}  // namespace

int cmd_watch(const Args& a) {
    const bool tty = isatty(STDOUT_FILENO) && !a.json;
    const int interval = opt_integer(a, "interval", tty ? 100 : 1000);
    const double seconds = opt_number(a, "seconds", 0);
    if (interval < 10 || seconds < 0) throw UsageError{"--interval is 10 ms or more, --seconds 0 or more"};
    catch_interrupts();
    Live live;
    if (const int rc = live.open(a.pos, a.verbose); rc != kOk) return rc;
    if (!live.wait_for_states(3000)) fail("no realtime state from some arm yet (shown as \"no data\")");
    const auto t0 = std::chrono::steady_clock::now();
    int lines = 0;
    while (!g_interrupted && !std::ferror(stdout)) {
        if (a.json) {
            print_json(live.snapshot());
        } else {
            if (tty && lines) std::printf("\033[%dA", lines);  // back to the top of the table: redraw in place
            lines = print_table(live, tty);
            if (!tty) std::printf("\n");
        }
        const auto next = std::chrono::steady_clock::now() + std::chrono::milliseconds(interval);
        const auto end = t0 + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                  std::chrono::duration<double>(seconds > 0 ? seconds : 1e9));
        if (std::chrono::steady_clock::now() >= end) break;
        while (!g_interrupted && std::chrono::steady_clock::now() < std::min(next, end)) sleep_ms(10);
        if (std::chrono::steady_clock::now() >= end) break;
    }
    live.close();
    return kOk;
}

}  // namespace kx
