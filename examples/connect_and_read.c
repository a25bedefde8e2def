/*
 * Connect to one controller and read its state once.
 *
 *   connect_and_read IP PORT
 *
 * (Start `kx_sim --arms 1 --model AVEN --base-port 8080` to try it without an arm.)
 */
#include <stdio.h>
#include <stdlib.h>

#include "example_connect.h"

int main(int argc, char** argv) {
    kx_robot_handle* arm = example_connect(argc, argv);
    if (arm == NULL) return argc < 3 ? 2 : 1;

    kx_arm_software_version_t info;
    if (kx_get_arm_software_info(arm, &info) == 0)
        printf("product %s, controller %s (%s)\n", info.product_version, info.ctrl_info.version,
               info.ctrl_info.build_time);

    kx_current_arm_state_t state;
    int rc = kx_get_current_arm_state(arm, &state);
    if (rc != 0) {
        fprintf(stderr, "reading the arm state failed: %d\n", rc);
    } else {
        int dof = 0;
        kx_get_arm_dof(arm, &dof);
        printf("joints [deg]:");
        for (int i = 0; i < dof; ++i) printf(" %.3f", state.joint[i]);
        printf("\ntool [m, rad]: %.4f %.4f %.4f  %.3f %.3f %.3f\n", state.pose.position.x, state.pose.position.y,
               state.pose.position.z, state.pose.euler.rx, state.pose.euler.ry, state.pose.euler.rz);
        printf("errors: %d\n", state.err.err_len);
    }

    kx_delete_robot_arm(arm);
    kx_destory();
    return rc == 0 ? 0 : 1;
}
