/*
 * Blocking and non-blocking moves, with the arm event callback reporting
 * each completed motion.
 *
 *   move_with_events [HOST [PORT]]
 */
#include "example_arm.h"

#include <pthread.h>

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_arrived = PTHREAD_COND_INITIALIZER;
static int g_arrivals = 0;

/* Runs on the library's dispatch thread: keep it short. */
static void on_event(kx_event_push_data_t e) {
    if (e.event_type != KX_CURRENT_TRAJECTORY_STATE_E) return;
    printf("  event: arm %d motion %s (device %d)\n", e.handle_id, e.trajectory_state ? "arrived" : "was cut short",
           e.device);
    pthread_mutex_lock(&g_lock);
    ++g_arrivals;
    pthread_cond_broadcast(&g_arrived);
    pthread_mutex_unlock(&g_lock);
}

/* Waits up to `seconds` for more than `before` arrivals. */
static int wait_arrival(int before, int seconds) {
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += seconds;
    pthread_mutex_lock(&g_lock);
    int rc = 0;
    while (g_arrivals == before && rc == 0) rc = pthread_cond_timedwait(&g_arrived, &g_lock, &until);
    const int arrived = g_arrivals > before;
    pthread_mutex_unlock(&g_lock);
    return arrived ? 0 : -2;
}

int main(int argc, char** argv) {
    kx_get_arm_event_call_back(on_event);
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    float ready[7], left[7];
    example_ready_pose(&ex, ready);
    example_turned(&ex, ready, 0, 30, left);

    printf("blocking movej to ready: returns once the arm has arrived\n");
    CHECK(kx_movej(arm, ready, 30, 0, 0, 1));

    pthread_mutex_lock(&g_lock);
    const int before = g_arrivals;
    pthread_mutex_unlock(&g_lock);
    printf("non-blocking movej 30 degrees round: returns once accepted\n");
    CHECK(kx_movej(arm, left, 30, 0, 0, 0));
    printf("  accepted; waiting for the arrival event\n");
    CHECK(wait_arrival(before, 30));

    kx_current_arm_state_t st;
    CHECK(kx_get_current_arm_state(arm, &st));
    kx_pose_t goal = st.pose;
    goal.position.z -= 0.05f;
    printf("blocking movel 5 cm down\n");
    CHECK(kx_movel(arm, goal, 20, 0, 0, 1));
    CHECK(kx_destory());
    return 0;
}
