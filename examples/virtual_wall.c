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

/* Puts the wall around the tool at the ready pose: a small move inside it
 * runs, a large one through it is refused and its error cleared. 0 when so. */
static int try_the_wall(const example_arm_t* ex) {
    kx_robot_handle* arm = ex->handle;
    float start[7], nudge[7], far[7];
    example_ready_pose(ex, start);
    example_turned(ex, start, 0, 2, nudge); /* the tool moves a centimetre or less */
    example_turned(ex, start, 0, 90, far);  /* the tool is 20 cm or more from the ready pose */
    kx_current_arm_state_t st;
    if (kx_movej(arm, start, 30, 0, 0, 1) != 0 || kx_get_current_arm_state(arm, &st) != 0) return 1;

    kx_fence_config_t wall;
    memset(&wall, 0, sizeof wall);
    wall.form = 3; /* sphere */
    wall.sphere.x = st.pose.position.x;
    wall.sphere.y = st.pose.position.y;
    wall.sphere.z = st.pose.position.z;
    wall.sphere.radius = 0.1f;
    printf("wall: ball of %.2f m around (%.3f, %.3f, %.3f)\n", wall.sphere.radius, wall.sphere.x, wall.sphere.y,
           wall.sphere.z);
    const kx_electronic_fence_enable_t on = {true, 0, 0}; /* stay inside */
    if (kx_set_virtual_wall_config(arm, wall) != 0 || kx_set_virtual_wall_enable(arm, on) != 0) return 1;

    int r = kx_movej(arm, nudge, 30, 0, 0, 1);
    printf("small move inside the wall: %d\n", r);
    if (r != 0) return 1;
    r = kx_movej(arm, far, 30, 0, 0, 1);
    printf("large move through the wall: %d (1 = refused)\n", r);
    if (r != 1) return 1;
    print_errors(arm);
    if (kx_clear_system_err(arm) != 0) return 1;
    printf("errors cleared\n");
    print_errors(arm);
    return 0;
}

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    const int rc = try_the_wall(&ex);
    const kx_electronic_fence_enable_t off = {false, 0, 0};
    kx_set_virtual_wall_enable(ex.handle, off);
    printf(rc == 0 ? "virtual wall example done\n" : "virtual wall example failed\n");
    kx_delete_robot_arm(ex.handle);
    kx_destory();
    return rc;
}
