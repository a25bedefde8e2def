/* The README's first program: connect, watch the realtime state, move one
 * joint, disconnect. Built by the consumer test as C99 and as C++17. */
#include <stdio.h>
#include <stdlib.h>

#include "kx_interface.h"

/* Runs on the library's dispatch thread, once per realtime datagram. */
static void on_state(kx_realtime_arm_joint_state_t s) {
    static int shown = 0;
    if (shown++ < 3)
        printf("realtime from %s: joint 1 at %.2f deg, tool x %.4f m\n", s.arm_ip, s.joint_status.joint_position[0],
               s.waypoint.position.x);
}

int main(int argc, char** argv) {
    const char* ip = argc > 2 ? argv[1] : "127.0.0.1";
    int port = argc > 2 ? atoi(argv[2]) : 8080;

    kx_init(KX_TRIPLE_MODE_E);                 /* TCP and UDP receive threads */
    kx_realtime_arm_state_call_back(on_state);
    kx_robot_handle* arm = kx_create_robot_arm(ip, port);
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "no controller at %s:%d\n", ip, port);
        kx_destory();
        return 1;
    }

    kx_arm_software_version_t info;
    kx_current_arm_state_t state;
    int dof = 0;
    if (kx_get_arm_software_info(arm, &info) != 0 || kx_get_arm_dof(arm, &dof) != 0 ||
        kx_get_current_arm_state(arm, &state) != 0) {
        fprintf(stderr, "reading the arm failed\n");
        kx_destory();
        return 1;
    }
    printf("%s with %d joints\n", info.product_version, dof);

    float target[7];
    for (int i = 0; i < 7; ++i) target[i] = state.joint[i];
    target[0] += 10.0f;                        /* degrees */
    int rc = kx_movej(arm, target, 20, 0, 0, 1); /* 20 % speed; blocks until the arm arrives */
    printf("movej returned %d\n", rc);

    kx_delete_robot_arm(arm);
    kx_destory();
    return rc == 0 ? 0 : 1;
}
