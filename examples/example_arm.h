/*
 * What the examples share: where to connect, the arm's joint limits, a ready
 * pose chosen for the arm at hand, a guard that keeps streamed targets within
 * what each joint can do, and failing loudly. Plain C99 over the public
 * headers only; include it before any system header.
 *
 * Every example takes the controller as [HOST [PORT]] on its command line:
 * HOST is an IPv4 address or a host name (default 127.0.0.1), PORT a number
 * (default 8080, where `kx_sim` listens unless told otherwise). Try them with:
 *
 *     kx_sim --arms 2 --model AVEN,BRIV &
 *     connect_and_read                  # arm 1, six joints
 *     ik_then_move 127.0.0.2            # arm 2, seven joints
 *
 * Exit status: 0 done, 1 a call or one of the example's own checks failed,
 * 2 a bad command line, 77 the arm lacks what the example needs (a force
 * sensor, say): nothing was tried.
 */
#ifndef EXAMPLE_ARM_H
#define EXAMPLE_ARM_H

#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L /* getaddrinfo, clock_nanosleep */
#endif

#include <arpa/inet.h>
#include <math.h>
#include <netdb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

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

/* What an example knows about the arm it drives, read from the controller. */
typedef struct {
    kx_robot_handle* handle;
    int dof;        /* 6 or 7 */
    float min[7];   /* each joint's range, degrees */
    float max[7];
    float speed[7]; /* each joint's maximum speed, degrees per second */
} example_arm_t;

#define EXAMPLE_MISSING_FEATURE 77

static inline void example_usage_exit(const char* program, const char* usage, const char* why) {
    if (why) fprintf(stderr, "%s: %s\n", program, why);
    fprintf(why ? stderr : stdout, "usage: %s %s\n", program, usage);
    exit(why ? 2 : 0);
}

/* The controller's address from argv[1] (an IPv4 address or a host name,
 * resolved to IPv4) and its port from argv[2]; either may be left out. */
static inline void example_target(int argc, char** argv, const char* usage, char ip[INET_ADDRSTRLEN], int* port) {
    const char* host = argc > 1 ? argv[1] : "127.0.0.1";
    if (strcmp(host, "-h") == 0 || strcmp(host, "--help") == 0) example_usage_exit(argv[0], usage, NULL);
    *port = 8080;
    if (argc > 2) {
        char* end = NULL;
        const long p = strtol(argv[2], &end, 10);
        if (end == argv[2] || *end != '\0' || p < 1 || p > 65535)
            example_usage_exit(argv[0], usage, "PORT must be a number from 1 to 65535");
        *port = (int)p;
    }
    struct addrinfo hints, *found = NULL;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET; /* the library speaks IPv4 */
    hints.ai_socktype = SOCK_STREAM;
    const int rc = getaddrinfo(host, NULL, &hints, &found);
    if (rc != 0 || found == NULL) {
        fprintf(stderr, "%s: cannot resolve '%s' to an IPv4 address: %s\n", argv[0], host, gai_strerror(rc));
        exit(2);
    }
    inet_ntop(AF_INET, &((const struct sockaddr_in*)(const void*)found->ai_addr)->sin_addr, ip, INET_ADDRSTRLEN);
    freeaddrinfo(found);
}

/* Reads the joint count and limits of the connected arm->handle into *arm:
 * 0, or the first result that was not. */
static inline int example_read_limits(example_arm_t* arm) {
    int rc = kx_get_arm_dof(arm->handle, &arm->dof);
    if (rc == 0) rc = kx_get_joint_min_pos(arm->handle, arm->min);
    if (rc == 0) rc = kx_get_joint_max_pos(arm->handle, arm->max);
    if (rc == 0) rc = kx_get_joint_max_speed(arm->handle, arm->speed);
    return rc;
}

/* Starts the library in `mode`, connects to the arm named on the command line
 * and reads its joint count and limits; ends the example when that fails.
 * `usage` is the command line after the program's name, for --help. */
static inline example_arm_t example_connect(int argc, char** argv, const char* usage, kx_thread_mode_e mode) {
    setvbuf(stdout, NULL, _IOLBF, 0); /* steps and failures in order, also in a log file */
    char ip[INET_ADDRSTRLEN];
    int port = 0;
    example_target(argc, argv, usage, ip, &port);
    CHECK(kx_init(mode));
    printf("connecting to %s:%d\n", ip, port);
    example_arm_t arm;
    memset(&arm, 0, sizeof arm);
    arm.handle = kx_create_robot_arm(ip, port);
    if (arm.handle == NULL || arm.handle->id < 0) {
        fprintf(stderr, "FAILED: no controller answers at %s:%d (is kx_sim running?)\n", ip, port);
        kx_destory();
        exit(1);
    }
    CHECK(example_read_limits(&arm));
    printf("connected: handle %d, %d joints\n", arm.handle->id, arm.dof);
    return arm;
}

static inline void example_print_joints(const char* what, const float* q, int dof) {
    printf("%s [deg]:", what);
    for (int i = 0; i < dof; ++i) printf(" %.2f", q[i]);
    printf("\n");
}

/* ---- a ready pose for this arm ------------------------------------------ */

/* |det| of the n x n matrix m (row-major, n <= 6), by elimination. */
static inline double example_abs_det(double m[6][6], int n) {
    double det = 1;
    for (int c = 0; c < n; ++c) {
        int p = c;
        for (int r = c + 1; r < n; ++r)
            if (fabs(m[r][c]) > fabs(m[p][c])) p = r;
        if (m[p][c] == 0) return 0;
        for (int k = 0; k < n; ++k) {
            const double t = m[c][k];
            m[c][k] = m[p][k];
            m[p][k] = t;
        }
        det *= m[c][c];
        for (int r = c + 1; r < n; ++r) {
            const double f = m[r][c] / m[c][c];
            for (int k = c; k < n; ++k) m[r][k] -= f * m[c][k];
        }
    }
    return fabs(det);
}

/* How far configuration q is from every singular one, from 0 (singular) to 1:
 * the Jacobian's |det| divided by the product of its column lengths, which
 * does not favour a stretched arm the way |det| alone would. The Jacobian
 * comes from finite differences of the local forward kinematics, its linear
 * rows divided by a typical reach of 0.5 m; a seven-joint arm takes the
 * smallest value over its six-joint subsets, so aligned wrist axes or a
 * straight elbow count as singular although the seventh joint could stand in. */
static inline double example_dexterity(kx_robot_handle* arm, int dof, const float q[7]) {
    const double h = 0.5, reach = 0.5; /* step, degrees; metres */
    const kx_matrix_t m0 = kx_algo_pos2matrix(kx_algo_forward_kinematics(arm, q));
    double jac[6][7];
    for (int j = 0; j < dof; ++j) {
        float qj[7];
        memcpy(qj, q, sizeof qj);
        qj[j] += (float)h;
        const kx_matrix_t m1 = kx_algo_pos2matrix(kx_algo_forward_kinematics(arm, qj));
        const double rad = h * 3.14159265358979323846 / 180;
        for (int r = 0; r < 3; ++r) jac[r][j] = (m1.data[r][3] - m0.data[r][3]) / rad / reach;
        /* angular rate from R1 R0^T - I, which is skew for a small turn */
        double w[3][3];
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                w[r][c] = 0;
                for (int k = 0; k < 3; ++k) w[r][c] += (double)m1.data[r][k] * m0.data[c][k];
            }
        jac[3][j] = (w[2][1] - w[1][2]) / 2 / rad;
        jac[4][j] = (w[0][2] - w[2][0]) / 2 / rad;
        jac[5][j] = (w[1][0] - w[0][1]) / 2 / rad;
    }
    double worst = INFINITY;
    for (int drop = dof == 7 ? 0 : -1; drop < (dof == 7 ? 7 : 0); ++drop) {
        double sub[6][6], lengths = 1;
        for (int j = 0, c = 0; j < dof; ++j) {
            if (j == drop) continue;
            double sq = 0;
            for (int r = 0; r < 6; ++r) sq += jac[r][j] * jac[r][j];
            lengths *= sqrt(sq);
            for (int r = 0; r < 6; ++r) sub[r][c] = jac[r][j];
            ++c;
        }
        const double d = lengths > 0 ? example_abs_det(sub, 6) / lengths : 0;
        if (d < worst) worst = d;
    }
    return worst;
}

/* A ready configuration for this arm, in degrees: every joint well inside its
 * range (a quarter of the range or more from either end, within +-180), the
 * tool above the base and away from its axis, and of those candidates the one
 * farthest from every singular configuration, so that the examples' small
 * Cartesian moves around it need only small joint moves. Computed locally. */
static inline void example_ready_pose(const example_arm_t* arm, float q[7]) {
    float mid[7], step[7];
    for (int j = 0; j < 7; ++j) {
        const float lo = j < arm->dof ? fmaxf(arm->min[j], -180) : 0, hi = j < arm->dof ? fminf(arm->max[j], 180) : 0;
        mid[j] = roundf((lo + hi) / 2);
        step[j] = floorf((hi - lo) / 8);
        q[j] = mid[j];
    }
    /* The first joint turns the whole arm and the last only the flange: only
     * the joints between shape it. Five values each, 0.25 .. 0.75 of a range. */
    const int inner = arm->dof - 2;
    int total = 1;
    for (int j = 0; j < inner; ++j) total *= 5;
    double best = -1;
    for (int n = 0; n < total; ++n) {
        float c[7];
        memcpy(c, mid, sizeof c);
        for (int j = 1, rest = n; j <= inner; ++j, rest /= 5) c[j] = mid[j] + (float)(rest % 5 - 2) * step[j];
        const kx_pose_t p = kx_algo_forward_kinematics(arm->handle, c);
        if (p.position.z < 0.15f || hypotf(p.position.x, p.position.y) < 0.2f) continue;
        const double d = example_dexterity(arm->handle, arm->dof, c);
        if (d > best) {
            best = d;
            memcpy(q, c, sizeof c);
        }
    }
    if (best < 0)
        fprintf(stderr, "warning: the library's kinematics gives no pose for this arm (model and edition "
                        "unknown to it?): using the middle of every joint's range as the ready pose\n");
}

/* `ready` with joint `joint` (0-based) turned by `delta` degrees, the other
 * way round when that keeps it inside its range and this way would not. */
static inline void example_turned(const example_arm_t* arm, const float ready[7], int joint, float delta, float q[7]) {
    memcpy(q, ready, 7 * sizeof q[0]);
    q[joint] += delta;
    if (q[joint] > arm->max[joint] || q[joint] < arm->min[joint]) q[joint] = ready[joint] - delta;
}

/* ---- streaming ----------------------------------------------------------- */

/* Streamed targets go straight to the joints, so no joint may be asked to
 * move farther between two targets than its maximum speed allows in the
 * stream's period. Checks `next` against `prev` (the previous target, or the
 * arm's joints before the first) and keeps the largest step seen in
 * *largest. A step beyond the bound is not sent: the arm is stopped, the
 * joint and both numbers are printed, and 1 is returned. */
static inline int example_step_guard(const example_arm_t* arm, const float prev[7], const float next[7],
                                     long period_ms, int index, float* largest) {
    for (int j = 0; j < arm->dof; ++j) {
        const float step = fabsf(next[j] - prev[j]), bound = arm->speed[j] * (float)period_ms / 1000.0f;
        if (step > *largest) *largest = step;
        if (step > bound) {
            fprintf(stderr,
                    "STOPPED: target %d would move joint %d by %.3f deg in %ld ms, more than its %.3f deg "
                    "(maximum speed %.1f deg/s); the arm is stopped instead\n",
                    index, j + 1, step, period_ms, bound, arm->speed[j]);
            kx_set_arm_stop(arm->handle);
            return 1;
        }
    }
    return 0;
}

/* The next target of a Cartesian stream: the joints for tool pose `pose`,
 * solved locally next to `prev` (the previous target), in q, checked by
 * example_step_guard. 1, with the arm stopped, when there is no solution or
 * the step is too large. */
static inline int example_next_target(const example_arm_t* arm, kx_pose_t pose, const float prev[7], float q[7],
                                      long period_ms, int index, float* largest) {
    kx_inverse_kinematics_params_t ik;
    memset(&ik, 0, sizeof ik);
    memcpy(ik.q_in, prev, sizeof ik.q_in);
    ik.q_pose = pose;
    ik.flag = 1; /* orientation from the Euler angles */
    const int rc = kx_algo_inverse_kinematics(arm->handle, ik, q);
    if (rc != 0) {
        fprintf(stderr, "STOPPED: target %d (%.4f %.4f %.4f m) has no joint solution (%d); the arm is stopped\n",
                index, pose.position.x, pose.position.y, pose.position.z, rc);
        kx_set_arm_stop(arm->handle);
        return 1;
    }
    return example_step_guard(arm, prev, q, period_ms, index, largest);
}

/* Sleeps until *next + period_ms (CLOCK_MONOTONIC) and advances *next: a
 * steady cadence for streamed targets. After a late wake-up the cadence
 * restarts from now instead of catching up, so two targets are never closer
 * than the period. Start with clock_gettime(CLOCK_MONOTONIC, next). */
static inline void example_tick(struct timespec* next, long period_ms) {
    next->tv_nsec += period_ms * 1000000L;
    while (next->tv_nsec >= 1000000000L) {
        next->tv_nsec -= 1000000000L;
        ++next->tv_sec;
    }
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec > next->tv_sec || (now.tv_sec == next->tv_sec && now.tv_nsec > next->tv_nsec)) {
        *next = now;
        return;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, next, NULL);
}

#endif /* EXAMPLE_ARM_H */
