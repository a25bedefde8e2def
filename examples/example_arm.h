/*
 * What the examples share: where to connect, a ready pose for the arm's joint
 * count, and failing loudly. Plain C99 over the public headers only.
 *
 * Every example takes the controller's address as IP PORT on its command
 * line; without them it connects to 127.0.0.1:8080, where `kx_sim` listens by
 * default. Try them with:
 *
 *     kx_sim --arms 2 --model AVEN,BRIV &
 *     connect_and_read                  # arm 1, six joints
 *     ik_then_move 127.0.0.2 8080       # arm 2, seven joints
 */
#ifndef EXAMPLE_ARM_H
#define EXAMPLE_ARM_H

#include <stdio.h>
#include <stdlib.h>

#include "kx_interface.h"

/* Ends the example with status 1 when a call does not return 0. */
#define CHECK(call)                                                          \
    do {                                                                     \
        int rc_ = (call);                                                    \
        if (rc_ != 0) {                                                      \
            fprintf(stderr, "FAILED: %s returned %d\n", #call, rc_);         \
            kx_destory();                                                    \
            exit(1);                                                         \
        }                                                                    \
    } while (0)

/* Starts the library in `mode` and connects to the arm named on the command
 * line; ends the example when that fails. Stores the joint count in *dof. */
static inline kx_robot_handle* example_connect(int argc, char** argv, kx_thread_mode_e mode, int* dof) {
    const char* ip = argc >= 3 ? argv[1] : "127.0.0.1";
    int port = argc >= 3 ? atoi(argv[2]) : 8080;
    CHECK(kx_init(mode));
    printf("connecting to %s:%d\n", ip, port);
    kx_robot_handle* arm = kx_create_robot_arm(ip, port);
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "FAILED: no controller answers at %s:%d (is kx_sim running?)\n", ip, port);
        kx_destory();
        exit(1);
    }
    CHECK(kx_get_arm_dof(arm, dof));
    printf("connected: handle %d, %d joints\n", arm->id, *dof);
    return arm;
}

/* A comfortable configuration away from singularities, in degrees. */
static inline void example_ready_pose(int dof, float q[7]) {
    static const float six[7] = {0, 20, 70, 0, 90, 0, 0};
    static const float seven[7] = {0, 30, 0, 60, 0, 60, 20};
    for (int i = 0; i < 7; ++i) q[i] = dof == 7 ? seven[i] : six[i];
}

static inline void example_print_joints(const char* what, const float* q, int dof) {
    printf("%s [deg]:", what);
    for (int i = 0; i < dof; ++i) printf(" %.2f", q[i]);
    printf("\n");
}

#if defined(_POSIX_C_SOURCE) && _POSIX_C_SOURCE >= 200112L
#include <time.h>

/* Sleeps until *next + period_ms (CLOCK_MONOTONIC) and advances *next: a
 * steady cadence for streamed targets. Start with clock_gettime(*next). */
static inline void example_tick(struct timespec* next, long period_ms) {
    next->tv_nsec += period_ms * 1000000L;
    while (next->tv_nsec >= 1000000000L) {
        next->tv_nsec -= 1000000000L;
        ++next->tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, next, NULL);
}
#endif

#endif /* EXAMPLE_ARM_H */
