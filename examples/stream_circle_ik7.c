/*
 * Stream a Cartesian circle through the local inverse kinematics: every
 * 1 mm point of the circle is solved from the previous answer, and the
 * joints are sent as pass-through targets every 10 ms. Prints the largest
 * change of any joint between two targets. Made for seven-joint arms (try
 * `kx_sim --model BRIV`); works on six-joint ones too.
 *
 *   stream_circle_ik7 [IP PORT]
 */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <string.h>
#include <time.h>

#include "example_arm.h"

int main(int argc, char** argv) {
    int dof = 0;
    kx_robot_handle* arm = example_connect(argc, argv, KX_DUAL_MODE_E, &dof);
    float ready[7] = {10, 40, 10, 80, 10, 50, 0};
    if (dof != 7) example_ready_pose(dof, ready);
    example_print_joints("moving to ready", ready, dof);
    CHECK(kx_movej(arm, ready, 30, 0, 0, 1));

    kx_current_arm_state_t st;
    CHECK(kx_get_current_arm_state(arm, &st));
    const kx_pose_t start = st.pose;
    const double pi = 3.14159265358979323846, radius = 0.05, step = 0.001; /* metres */
    const int steps = (int)ceil(2 * pi * radius / step);
    printf("streaming a %.0f mm circle as %d joint targets 10 ms apart\n", radius * 1000, steps);

    kx_inverse_kinematics_params_t ik;
    memset(&ik, 0, sizeof ik);
    memcpy(ik.q_in, st.joint, sizeof ik.q_in);
    ik.q_pose = start;
    ik.flag = 1; /* orientation from the Euler angles */
    float q[7] = {0}, largest = 0;
    kx_movej_canfd_mode_t setpoint;
    memset(&setpoint, 0, sizeof setpoint);
    setpoint.joint = q;
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 1; i <= steps; ++i) {
        /* The circle starts at the tool and has its centre radius away along -x. */
        const double a = 2 * pi * i / steps;
        ik.q_pose.position.x = (float)(start.position.x + radius * (cos(a) - 1));
        ik.q_pose.position.y = (float)(start.position.y + radius * sin(a));
        CHECK(kx_algo_inverse_kinematics(arm, ik, q));
        for (int j = 0; j < 7; ++j) largest = fmaxf(largest, fabsf(q[j] - ik.q_in[j]));
        memcpy(ik.q_in, q, sizeof ik.q_in);
        CHECK(kx_movej_canfd(arm, setpoint));
        example_tick(&next, 10);
    }

    CHECK(kx_get_current_arm_state(arm, &st));
    printf("circle of %d points done; largest joint step %.3f deg\n", steps, largest);
    printf("tool back at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n", st.pose.position.x, st.pose.position.y,
           st.pose.position.z, start.position.x, start.position.y, start.position.z);
    CHECK(kx_destory());
    return 0;
}
