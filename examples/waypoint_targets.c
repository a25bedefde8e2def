/*
 * Store two global waypoints, read them back and move to each of them.
 *
 *   waypoint_targets IP PORT
 *
 * Try it without an arm:
 *   kx_sim --arms 1 --model AVEN --port 8080 --time-scale 5 &
 *   waypoint_targets 127.0.0.1 8080
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kx_interface.h"

static int fail(const char* what, int rc) {
    fprintf(stderr, "%s failed: %d\n", what, rc);
    kx_destory();
    return 1;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s IP PORT\n", argv[0]);
        return 2;
    }
    kx_init(KX_DUAL_MODE_E);
    kx_robot_handle* arm = kx_create_robot_arm(argv[1], atoi(argv[2]));
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "could not connect to %s:%s\n", argv[1], argv[2]);
        kx_destory();
        return 1;
    }
    static const float targets[2][7] = {{10, 20, 30, 0, 40, 0, 0}, {-10, 10, 45, 0, 30, 15, 0}};
    const char* names[2] = {"pick", "place"};
    for (int k = 0; k < 2; ++k) {
        kx_waypoint_t w;
        memset(&w, 0, sizeof w);
        snprintf(w.point_name, sizeof w.point_name, "%s", names[k]);
        memcpy(w.joint, targets[k], sizeof w.joint);
        w.pose = kx_algo_forward_kinematics(arm, targets[k]);
        snprintf(w.work_frame, sizeof w.work_frame, "World");
        snprintf(w.tool_frame, sizeof w.tool_frame, "Arm_Tip");
        kx_delete_global_waypoint(arm, names[k]); /* from an earlier run, if any */
        int rc = kx_add_global_waypoint(arm, w);
        if (rc != 0) return fail("kx_add_global_waypoint", rc);
        printf("stored waypoint %s\n", names[k]);
    }

    static kx_waypoint_list_t list;
    int rc = kx_get_global_waypoints_list(arm, 1, 10, NULL, &list);
    if (rc != 0) return fail("kx_get_global_waypoints_list", rc);
    printf("%d waypoint(s) on the controller\n", list.total_size);

    for (int k = 0; k < 2; ++k) {
        kx_waypoint_t w;
        memset(&w, 0, sizeof w);
        if ((rc = kx_get_given_global_waypoint(arm, names[k], &w)) != 0) return fail("kx_get_given_global_waypoint", rc);
        printf("moving to %s (stored %s): joints %.1f %.1f %.1f %.1f %.1f %.1f, tool at %.3f %.3f %.3f m\n",
               w.point_name, w.time, w.joint[0], w.joint[1], w.joint[2], w.joint[3], w.joint[4], w.joint[5],
               w.pose.position.x, w.pose.position.y, w.pose.position.z);
        if ((rc = kx_movej(arm, w.joint, 30, 0, 0, 1)) != 0) return fail("kx_movej", rc);
        kx_current_arm_state_t st;
        if ((rc = kx_get_current_arm_state(arm, &st)) != 0) return fail("kx_get_current_arm_state", rc);
        printf("  arrived: tool at %.3f %.3f %.3f m\n", st.pose.position.x, st.pose.position.y, st.pose.position.z);
    }
    for (int k = 0; k < 2; ++k) kx_delete_global_waypoint(arm, names[k]);
    kx_delete_robot_arm(arm);
    kx_destory();
    return 0;
}
