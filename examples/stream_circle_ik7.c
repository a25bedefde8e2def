/*
 * Stream a Cartesian circle through the local inverse kinematics: every
 * 1 mm point of the circle is solved from the previous answer, and the
 * joints are sent as pass-through targets every 10 ms. No target may move a
 * joint farther than its maximum speed allows in 10 ms: the example stops the
 * arm instead and fails. Prints the largest change of any joint between two
 * targets. Made for seven-joint arms (try `kx_sim --model BRIV`); works on
 * six-joint ones too.
 *
 *   stream_circle_ik7 [HOST [PORT]]
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;
    float ready[7];
    example_ready_pose(&ex, ready);
    example_print_joints("moving to ready", ready, ex.dof);
    CHECK(kx_movej(arm, ready, 30, 0, 0, 1));

    kx_current_arm_state_t st;
    CHECK(kx_get_current_arm_state(arm, &st));
    const kx_pose_t start = st.pose;
    const double pi = 3.14159265358979323846, radius = 0.05, step = 0.001; /* metres */
    const long period_ms = 10;
    const int steps = (int)ceil(2 * pi * radius / step);
    printf("streaming a %.0f mm circle as %d joint targets %ld ms apart\n", radius * 1000, steps, period_ms);

    float prev[7], q[7] = {0}, largest = 0, bound = INFINITY;
    for (int j = 0; j < ex.dof; ++j) bound = fminf(bound, ex.speed[j] * (float)period_ms / 1000.0f);
    memcpy(prev, st.joint, sizeof prev);
    kx_pose_t goal = start;
    kx_movej_canfd_mode_t setpoint;
    memset(&setpoint, 0, sizeof setpoint);
    setpoint.joint = q;
    int rc = 0;
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 1; i <= steps && rc == 0; ++i) {
        /* The circle starts at the tool and has its centre radius away along -x. */
        const double a = 2 * pi * i / steps;
        goal.position.x = (float)(start.position.x + radius * (cos(a) - 1));
        goal.position.y = (float)(start.position.y + radius * sin(a));
        rc = example_next_target(&ex, goal, prev, q, period_ms, i, &largest);
        if (rc == 0) {
            CHECK(kx_movej_canfd(arm, setpoint));
            memcpy(prev, q, sizeof prev);
            example_tick(&next, period_ms);
        }
    }

    CHECK(kx_get_current_arm_state(arm, &st));
    printf("circle of %d points %s; largest joint step %.3f deg (allowed %.3f deg per %ld ms)\n", steps,
           rc == 0 ? "done" : "stopped", largest, bound, period_ms);
    printf("tool at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n", st.pose.position.x, st.pose.position.y,
           st.pose.position.z, start.position.x, start.position.y, start.position.z);
    kx_destory();
    return rc;
}
