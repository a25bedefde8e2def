/*
 * Stream a small horizontal circle to the arm with pass-through targets,
 * one every 10 ms, then report where the tool ended.
 *
 *   stream_circle [IP PORT]     (no address: runs against a built-in simulator)
 */
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "kx_interface.h"
#include "example_target.h"

constexpr float kPi = 3.14159265f;

int main(int argc, char** argv) {
    kx_init(KX_DUAL_MODE_E);
    ExampleTarget target;
    if (!target.connect(argc, argv, 1.0)) return target.finish(1);
    kx_robot_handle* arm = target.arm;
    const float ready[7] = {0, 20, 70, 0, 90, 0, 0};
    kx_current_arm_state_t st;
    if (!target.start_at(ready, st)) return target.finish(1);
    const kx_pose_t centre = st.pose;
    const float radius = 0.03f;
    const int steps = 200; /* 2 s around */

    kx_movep_canfd_mode_t setpoint{};
    setpoint.pose = centre;
    setpoint.pose.quaternion = {0, 0, 0, 0}; /* not a unit quaternion: the Euler angles are sent */
    setpoint.follow = false;
    setpoint.trajectory_mode = 0;
    setpoint.radio = 0;
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i <= steps; ++i) {
        float a = 2.0f * kPi * static_cast<float>(i) / steps;
        setpoint.pose.position.x = centre.position.x + radius * (std::cos(a) - 1.0f);
        setpoint.pose.position.y = centre.position.y + radius * std::sin(a);
        if (kx_movep_canfd(arm, setpoint) != 0) {
            std::fprintf(stderr, "send failed\n");
            break;
        }
        next += std::chrono::milliseconds(10);
        std::this_thread::sleep_until(next);
    }

    kx_get_current_arm_state(arm, &st);
    std::printf("circle done; tool back at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n", st.pose.position.x,
                st.pose.position.y, st.pose.position.z, centre.position.x, centre.position.y, centre.position.z);
    return target.finish(0);
}
