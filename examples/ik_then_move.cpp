/*
 * Compute joint angles for a Cartesian target locally, then move there.
 *
 *   ik_then_move [IP PORT]     (no address: runs against a built-in simulator)
 */
#include <cstdio>

#include "kx_interface.h"
#include "example_target.h"

int main(int argc, char** argv) {
    kx_init(KX_DUAL_MODE_E);
    ExampleTarget target;
    if (!target.connect(argc, argv, 4.0)) return target.finish(1);
    kx_robot_handle* arm = target.arm;

    /* Start from a comfortable configuration. */
    const float ready[7] = {0, 20, 70, 0, 90, 0, 0};
    if (kx_movej(arm, ready, 30, 0, 0, 1) != 0) return target.finish(1);

    /* Target: 8 cm sideways from the current tool pose, same orientation. */
    kx_current_arm_state_t st;
    if (kx_get_current_arm_state(arm, &st) != 0) return target.finish(1);
    kx_inverse_kinematics_params_t ik{};
    for (int i = 0; i < 7; ++i) ik.q_in[i] = st.joint[i];
    ik.q_pose = st.pose;
    ik.q_pose.position.y += 0.08f;
    ik.flag = 1; /* orientation from the Euler angles */

    float q[7] = {};
    int rc = kx_algo_inverse_kinematics(arm, ik, q);
    if (rc != 0) {
        std::fprintf(stderr, "no solution (%d)\n", rc);
        return target.finish(1);
    }
    std::printf("solution [deg]: %.2f %.2f %.2f %.2f %.2f %.2f\n", q[0], q[1], q[2], q[3], q[4], q[5]);

    rc = kx_movej(arm, q, 30, 0, 0, 1);
    kx_get_current_arm_state(arm, &st);
    std::printf("movej returned %d; tool now at %.4f %.4f %.4f\n", rc, st.pose.position.x, st.pose.position.y,
                st.pose.position.z);
    return target.finish(rc == 0 ? 0 : 1);
}
