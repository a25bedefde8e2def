/*
 * Blocking and non-blocking moves, with the arm event callback reporting
 * each completed motion.
 *
 *   move_with_events [IP PORT]     (no address: runs against a built-in simulator)
 */
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "kx_interface.h"
#include "example_target.h"

namespace {

std::atomic<int> g_arrivals{0};

/* Runs on the library's receive thread: keep it short. */
void on_event(kx_event_push_data_t e) {
    if (e.event_type == KX_CURRENT_TRAJECTORY_STATE_E) {
        std::printf("  event: arm %d motion %s (device %d)\n", e.handle_id,
                    e.trajectory_state ? "arrived" : "was cut short", e.device);
        ++g_arrivals;
    }
}

}  // namespace

int main(int argc, char** argv) {
    kx_init(KX_DUAL_MODE_E);
    kx_get_arm_event_call_back(on_event);
    ExampleTarget target;
    if (!target.connect(argc, argv, 4.0)) return target.finish(1);
    kx_robot_handle* arm = target.arm;

    const float ready[7] = {0, 20, 70, 0, 90, 0, 0};
    const float left[7] = {30, 20, 70, 0, 90, 0, 0};

    /* Blocking: returns once the arm has arrived. */
    std::printf("blocking movej to ready ...\n");
    int rc = kx_movej(arm, ready, 30, 0, 0, 1);
    std::printf("  returned %d\n", rc);

    /* Non-blocking: returns once accepted; the event tells when it arrives. */
    int before = g_arrivals.load();
    std::printf("non-blocking movej to left ...\n");
    rc = kx_movej(arm, left, 30, 0, 0, 0);
    std::printf("  returned %d, the arm is on its way\n", rc);
    while (rc == 0 && g_arrivals.load() == before) std::this_thread::sleep_for(std::chrono::milliseconds(10));

    /* Blocking linear move straight down 5 cm from where the arm is now. */
    kx_current_arm_state_t st;
    if (kx_get_current_arm_state(arm, &st) == 0) {
        kx_pose_t goal = st.pose;
        goal.position.z -= 0.05f;
        std::printf("blocking movel 5 cm down ...\n");
        std::printf("  returned %d\n", kx_movel(arm, goal, 20, 0, 0, 1));
    }

    return target.finish(0);
}
