/*
 * A virtual wall: a ball of 10 cm around the tool that the tool may not
 * leave. A small move inside it runs; a large one is refused with the
 * controller's error, which kx_clear_system_err then clears.
 *
 *   virtual_wall [HOST [PORT]]
 *
 * Against the simulator:   kx_sim --port 8080 --time-scale 5   then   virtual_wall 127.0.0.1 8080
 */
#include "example_arm.h"

static void print_errors(kx_robot_handle* arm) {
    kx_current_arm_state_t st;
    if (kx_get_current_arm_state(arm, &st) != 0) return;
    printf("controller errors:");
    for (int i = 0; i < st.err.err_len && i < 24; ++i) printf(" 0x%04x", (unsigned)st.err.err[i]);
    printf("\n");
}

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    int rc = 1;
    float start[7], nudge[7], far[7];
    example_ready_pose(&ex, start);
    example_turned(&ex, start, 0, 2, nudge); /* the tool moves a centimetre or less */
    example_turned(&ex, start, 0, 90, far);  /* the tool is 20 cm or more from the ready pose */
    kx_electronic_fence_enable_t on = {true, 0, 0}, off = {false, 0, 0};
    kx_current_arm_state_t st;
    kx_fence_config_t wall = {0};

    if (kx_movej(arm, start, 30, 0, 0, 1) != 0 || kx_get_current_arm_state(arm, &st) != 0) goto done;
    wall.form = 3; /* sphere */
    wall.sphere.x = st.pose.position.x;
    wall.sphere.y = st.pose.position.y;
    wall.sphere.z = st.pose.position.z;
    wall.sphere.radius = 0.1f;
    printf("wall: ball of %.2f m around (%.3f, %.3f, %.3f)\n", wall.sphere.radius, wall.sphere.x, wall.sphere.y,
           wall.sphere.z);
    if (kx_set_virtual_wall_config(arm, wall) != 0 || kx_set_virtual_wall_enable(arm, on) != 0) goto done;

    int r = kx_movej(arm, nudge, 30, 0, 0, 1);
    printf("small move inside the wall: %d\n", r);
    if (r != 0) goto done;
    r = kx_movej(arm, far, 30, 0, 0, 1);
    printf("large move through the wall: %d (1 = refused)\n", r);
    if (r != 1) goto done;
    print_errors(arm);
    if (kx_clear_system_err(arm) != 0) goto done;
    printf("errors cleared\n");
    print_errors(arm);
    rc = 0;

done:
    kx_set_virtual_wall_enable(arm, off);
    printf(rc == 0 ? "virtual wall example done\n" : "virtual wall example failed\n");
    kx_delete_robot_arm(arm);
    kx_destory();
    return rc;
}
