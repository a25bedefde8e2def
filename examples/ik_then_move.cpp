/*
 * Compute joint angles for a Cartesian target locally, then move there.
 *
 *   ik_then_move [IP PORT]     (no address: runs against a built-in simulator)
 */
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "kx_interface.h"
#include "simulator.h"

int main(int argc, char** argv) {
    std::unique_ptr<kxsim::Simulator> sim;
    const char* ip = "127.0.0.1";
    int port = 0;
    if (argc >= 3) {
        ip = argv[1];
        port = std::atoi(argv[2]);
    } else {
        kxsim::Options o;
        o.time_scale = 4.0;
        o.push_enabled = false;
        sim = std::make_unique<kxsim::Simulator>(o);
        if (!sim->start()) return 1;
        port = sim->port(0);
    }

    kx_init(KX_DUAL_MODE_E);
    kx_robot_handle* arm = kx_create_robot_arm(ip, port);
    if (arm == nullptr || arm->id < 0) {
        std::fprintf(stderr, "could not connect\n");
        kx_destory();
        return 1;
    }

    /* Start from a comfortable configuration. */
    const float ready[7] = {0, 20, 70, 0, 90, 0, 0};
    if (kx_movej(arm, ready, 30, 0, 0, 1) != 0) return kx_destory(), 1;

    /* Target: 8 cm sideways from the current tool pose, same orientation. */
    kx_current_arm_state_t st;
    if (kx_get_current_arm_state(arm, &st) != 0) return kx_destory(), 1;
    kx_inverse_kinematics_params_t ik{};
    for (int i = 0; i < 7; ++i) ik.q_in[i] = st.joint[i];
    ik.q_pose = st.pose;
    ik.q_pose.position.y += 0.08f;
    ik.flag = 1; /* orientation from the Euler angles */

    float q[7] = {};
    int rc = kx_algo_inverse_kinematics(arm, ik, q);
    if (rc != 0) {
        std::fprintf(stderr, "no solution (%d)\n", rc);
        kx_destory();
        return 1;
    }
    std::printf("solution [deg]: %.2f %.2f %.2f %.2f %.2f %.2f\n", q[0], q[1], q[2], q[3], q[4], q[5]);

    rc = kx_movej(arm, q, 30, 0, 0, 1);
    kx_get_current_arm_state(arm, &st);
    std::printf("movej returned %d; tool now at %.4f %.4f %.4f\n", rc, st.pose.position.x, st.pose.position.y,
                st.pose.position.z);
    kx_destory();
    return rc == 0 ? 0 : 1;
}
