/*
 * Store two global waypoints, read them back and move to each of them.
 *
 *   waypoint_targets [HOST [PORT]]
 *
 * Try it without an arm:
 *   kx_sim --arms 1 --model AVEN --port 8080 --time-scale 5 &
 *   waypoint_targets 127.0.0.1 8080
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;
    float ready[7], targets[2][7];
    example_ready_pose(&ex, ready);
    example_turned(&ex, ready, 0, 10, targets[0]);
    example_turned(&ex, ready, 0, -20, targets[1]);
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
        CHECK(kx_add_global_waypoint(arm, w));
        printf("stored waypoint %s\n", names[k]);
    }

    static kx_waypoint_list_t list;
    CHECK(kx_get_global_waypoints_list(arm, 1, 10, NULL, &list));
    printf("%d waypoint(s) on the controller\n", list.total_size);

    for (int k = 0; k < 2; ++k) {
        kx_waypoint_t w;
        memset(&w, 0, sizeof w);
        CHECK(kx_get_given_global_waypoint(arm, names[k], &w));
        printf("moving to %s (stored %s), tool at %.3f %.3f %.3f m\n", w.point_name, w.time, w.pose.position.x,
               w.pose.position.y, w.pose.position.z);
        example_print_joints("  joints", w.joint, ex.dof);
        CHECK(kx_movej(arm, w.joint, 30, 0, 0, 1));
        kx_current_arm_state_t st;
        CHECK(kx_get_current_arm_state(arm, &st));
        printf("  arrived: tool at %.3f %.3f %.3f m\n", st.pose.position.x, st.pose.position.y, st.pose.position.z);
    }
    for (int k = 0; k < 2; ++k) kx_delete_global_waypoint(arm, names[k]);
    kx_delete_robot_arm(arm);
    kx_destory();
    return 0;
}
