/*
 * Stream a small horizontal circle to the arm with pass-through Cartesian
 * targets, one every 10 ms, then report where the tool ended. Each target is
 * first solved locally and checked: no joint may need to move farther than
 * its maximum speed allows in 10 ms, or the arm is stopped instead.
 *
 *   stream_circle [HOST [PORT]]
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
    const kx_pose_t centre = st.pose;
    const float radius = 0.03f;
    const long period_ms = 10;
    const int steps = 200; /* 2 s around */
    printf("streaming a %.0f mm circle, %d targets %ld ms apart\n", radius * 1000.0f, steps, period_ms);

    kx_movep_canfd_mode_t setpoint;
    memset(&setpoint, 0, sizeof setpoint);
    setpoint.pose = centre;
    setpoint.pose.quaternion.w = 0; /* not a unit quaternion: the Euler angles are sent */
    float prev[7], q[7], largest = 0;
    memcpy(prev, st.joint, sizeof prev);
    int rc = 0;
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 1; i <= steps && rc == 0; ++i) {
        const float a = 2.0f * 3.14159265f * (float)i / (float)steps;
        setpoint.pose.position.x = centre.position.x + radius * (cosf(a) - 1.0f);
        setpoint.pose.position.y = centre.position.y + radius * sinf(a);
        rc = example_next_target(&ex, setpoint.pose, prev, q, period_ms, i, &largest);
        if (rc == 0) {
            CHECK(kx_movep_canfd(arm, setpoint));
            memcpy(prev, q, sizeof prev);
            example_tick(&next, period_ms);
        }
    }

    CHECK(kx_get_current_arm_state(arm, &st));
    printf("circle %s; largest joint step %.3f deg; tool at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n",
           rc == 0 ? "done" : "stopped", largest, st.pose.position.x, st.pose.position.y, st.pose.position.z,
           centre.position.x, centre.position.y, centre.position.z);
    kx_destory();
    return rc;
}
