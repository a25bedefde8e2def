/*
 * Stream a Cartesian circle to a 7-joint arm: every 1 mm point of the
 * circle goes through the local inverse kinematics, solved from the
 * previous answer, and the joints are sent as pass-through targets every
 * 10 ms. Prints the largest change of any joint between two targets.
 *
 *   stream_circle_ik7 [IP PORT]   (no address: a built-in 7-joint simulator)
 */
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "kx_interface.h"
#include "example_target.h"

int main(int argc, char** argv) {
    kx_init(KX_DUAL_MODE_E);
    ExampleTarget target;
    if (!target.connect(argc, argv, 1.0, "BRIV-P")) return target.finish(1);
    kx_robot_handle* arm = target.arm;
    const float ready[7] = {10, 40, 10, 80, 10, 50, 0};
    kx_current_arm_state_t st;
    if (!target.start_at(ready, st)) return target.finish(1);
    const kx_pose_t start = st.pose;
    const double radius = 0.05, step = 0.001; /* metres */
    const int steps = static_cast<int>(std::ceil(2 * M_PI * radius / step));

    kx_inverse_kinematics_params_t ik{};
    std::copy(st.joint, st.joint + 7, ik.q_in);
    ik.q_pose = start;
    ik.flag = 1; /* orientation from the Euler angles */
    float q[7] = {}, largest = 0;
    kx_movej_canfd_mode_t setpoint{};
    setpoint.joint = q;
    auto next = std::chrono::steady_clock::now();
    for (int i = 1; i <= steps; ++i) {
        /* The circle starts at the tool and has its centre radius away along -x. */
        const double a = 2 * M_PI * i / steps;
        ik.q_pose.position.x = static_cast<float>(start.position.x + radius * (std::cos(a) - 1));
        ik.q_pose.position.y = static_cast<float>(start.position.y + radius * std::sin(a));
        if (kx_algo_inverse_kinematics(arm, ik, q) != 0) {
            std::fprintf(stderr, "no solution at point %d\n", i);
            return target.finish(1);
        }
        for (int j = 0; j < 7; ++j) largest = std::max(largest, std::fabs(q[j] - ik.q_in[j]));
        std::copy(q, q + 7, ik.q_in);
        if (kx_movej_canfd(arm, setpoint) != 0) {
            std::fprintf(stderr, "send failed\n");
            return target.finish(1);
        }
        next += std::chrono::milliseconds(10);
        std::this_thread::sleep_until(next);
    }

    kx_get_current_arm_state(arm, &st);
    std::printf("circle of %d points done; largest joint step %.3f deg\n", steps, largest);
    std::printf("tool back at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n", st.pose.position.x, st.pose.position.y,
                st.pose.position.z, start.position.x, start.position.y, start.position.z);
    return target.finish(0);
}
