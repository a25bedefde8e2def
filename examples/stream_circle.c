/*
 * Stream a small horizontal circle to the arm with pass-through targets,
 * one every 10 ms, then report where the tool ended.
 *
 *   stream_circle [IP PORT]
 */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <time.h>

#include "example_arm.h"

int main(int argc, char** argv) {
    int dof = 0;
    kx_robot_handle* arm = example_connect(argc, argv, KX_DUAL_MODE_E, &dof);
    float ready[7];
    example_ready_pose(dof, ready);
    printf("moving to ready\n");
    CHECK(kx_movej(arm, ready, 30, 0, 0, 1));

    kx_current_arm_state_t st;
    CHECK(kx_get_current_arm_state(arm, &st));
    const kx_pose_t centre = st.pose;
    const float radius = 0.03f;
    const int steps = 200; /* 2 s around */
    printf("streaming a %.0f mm circle, %d targets 10 ms apart\n", radius * 1000.0f, steps);

    kx_movep_canfd_mode_t setpoint;
    setpoint.pose = centre;
    setpoint.pose.quaternion.w = setpoint.pose.quaternion.x = 0; /* not a unit quaternion: */
    setpoint.pose.quaternion.y = setpoint.pose.quaternion.z = 0; /* the Euler angles are sent */
    setpoint.follow = false;
    setpoint.trajectory_mode = 0;
    setpoint.radio = 0;
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i <= steps; ++i) {
        const float a = 2.0f * 3.14159265f * (float)i / (float)steps;
        setpoint.pose.position.x = centre.position.x + radius * (cosf(a) - 1.0f);
        setpoint.pose.position.y = centre.position.y + radius * sinf(a);
        CHECK(kx_movep_canfd(arm, setpoint));
        example_tick(&next, 10);
    }

    CHECK(kx_get_current_arm_state(arm, &st));
    printf("circle done; tool at %.4f %.4f %.4f (started %.4f %.4f %.4f)\n", st.pose.position.x, st.pose.position.y,
           st.pose.position.z, centre.position.x, centre.position.y, centre.position.z);
    CHECK(kx_destory());
    return 0;
}
