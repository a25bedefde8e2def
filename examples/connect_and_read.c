/*
 * Connect to one controller and read its identity and state once.
 *
 *   connect_and_read [IP PORT]
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    int dof = 0;
    kx_robot_handle* arm = example_connect(argc, argv, KX_DUAL_MODE_E, &dof);

    printf("reading the software information\n");
    kx_arm_software_version_t info;
    CHECK(kx_get_arm_software_info(arm, &info));
    printf("product %s, controller %s (%s)\n", info.product_version, info.ctrl_info.version,
           info.ctrl_info.build_time);

    printf("reading the arm state\n");
    kx_current_arm_state_t state;
    CHECK(kx_get_current_arm_state(arm, &state));
    example_print_joints("joints", state.joint, dof);
    printf("tool [m, rad]: %.4f %.4f %.4f  %.3f %.3f %.3f\n", state.pose.position.x, state.pose.position.y,
           state.pose.position.z, state.pose.euler.rx, state.pose.euler.ry, state.pose.euler.rz);
    printf("errors: %d\n", state.err.err_len);

    CHECK(kx_delete_robot_arm(arm));
    CHECK(kx_destory());
    return 0;
}
