/*
 * Connect to one controller and read its identity and state once.
 *
 *   connect_and_read [HOST [PORT]]
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    printf("reading the software information\n");
    kx_arm_software_version_t info;
    CHECK(kx_get_arm_software_info(arm, &info));
    printf("product %s, controller %s (%s)\n", info.product_version, info.ctrl_info.version,
           info.ctrl_info.build_time);

    printf("reading the arm state\n");
    kx_current_arm_state_t state;
    CHECK(kx_get_current_arm_state(arm, &state));
    example_print_joints("joints", state.joint, ex.dof);
    printf("tool [m, rad]: %.4f %.4f %.4f  %.3f %.3f %.3f\n", state.pose.position.x, state.pose.position.y,
           state.pose.position.z, state.pose.euler.rx, state.pose.euler.ry, state.pose.euler.rz);
    /* A healthy arm reports one error code, 0. */
    printf("error codes: %d (%s)\n", state.err.err_len,
           state.err.err_len == 1 && state.err.err[0] == 0 ? "none" : "see kx_get_current_arm_state");
    for (int j = 0; j < ex.dof; ++j)
        printf("joint %d: %.1f .. %.1f deg, up to %.1f deg/s\n", j + 1, ex.min[j], ex.max[j], ex.speed[j]);

    CHECK(kx_delete_robot_arm(arm));
    CHECK(kx_destory());
    return 0;
}
