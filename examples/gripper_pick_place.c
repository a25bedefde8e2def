/*
 * Pick and place with the two-finger gripper, every step blocking until the
 * arm or the gripper reports it finished.
 *
 *   gripper_pick_place [HOST [PORT]]
 *
 * Try it against the simulator; its --grip-object option puts an object
 * (here 400 wide) between the fingers, without it they close on nothing:
 *   kx_sim --port 8080 --time-scale 5 --grip-object 400 &
 *   gripper_pick_place 127.0.0.1 8080
 */
#include "example_arm.h"

static int step(const char* what, int rc) {
    printf("%-40s -> %d\n", what, rc);
    return rc;
}

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    float above_pick[7], above_place[7];
    example_ready_pose(&ex, above_pick);
    example_turned(&ex, above_pick, 0, 45, above_place);
    const int timeout_s = 10;
    int rc = 0;
    kx_gripper_state_t st;
    memset(&st, 0, sizeof st);

    if (step("open the gripper", kx_set_gripper_release(arm, 500, true, timeout_s)) != 0 ||
        step("move above the part", kx_movej(arm, above_pick, 30, 0, 0, 1)) != 0 ||
        step("close on the part (force 300)", kx_set_gripper_pick(arm, 500, 300, true, timeout_s)) != 0 ||
        step("read the gripper state", kx_get_gripper_state(arm, &st)) != 0) {
        rc = 1;
    } else {
        /* Status 2: holding an object; 3: the fingers closed on nothing. */
        printf("fingers at %d, force %d, status %d: %s\n", st.actpos, st.current_force, st.status,
               st.status == 2 ? "holding the part" : "nothing gripped");
        if (st.status != 2) {
            fprintf(stderr, "nothing between the fingers: on a simulator, start kx_sim with --grip-object W "
                            "(for example --grip-object 400) to put an object W wide there\n");
            rc = 1;
        }
    }
    if (rc == 0 && (step("carry it to the place position", kx_movej(arm, above_place, 30, 0, 0, 1)) != 0 ||
                    step("let go", kx_set_gripper_release(arm, 500, true, timeout_s)) != 0))
        rc = 1;

    printf(rc == 0 ? "pick and place done\n" : "pick and place failed\n");
    kx_delete_robot_arm(arm);
    kx_destory();
    return rc;
}
