/*
 * Teach a path by hand, save it, turn it into a program, store it in the
 * controller's program library and run it by number, printing the events
 * the controller pushes meanwhile.
 *
 *   teach_to_program [HOST [PORT [SECONDS]]]
 *
 * Try it without an arm (the simulated hand moves joints 1 and 2 while teaching):
 *   kx_sim --arms 1 --model AVEN --edition QS --port 8080 --hand 5,-3 &
 *   teach_to_program 127.0.0.1 8080
 */
#include "example_arm.h"

#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#define PROGRAM_ID 1

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_finished_cond = PTHREAD_COND_INITIALIZER;
static int g_finished = 0; /* the program that finished, 0 while none */

/* Runs on the library's dispatch thread: keep it short. */
static void on_event(kx_event_push_data_t e) {
    if (e.event_type == KX_CURRENT_TRAJECTORY_STATE_E) {
        printf("  [event] arm %d: motion %s (device %d)\n", e.handle_id, e.trajectory_state ? "arrived" : "stopped",
               e.device);
    } else if (e.event_type == KX_PROGRAM_RUN_FINISH_E) {
        printf("  [event] arm %d: program %d finished\n", e.handle_id, e.program_id);
        pthread_mutex_lock(&g_lock);
        g_finished = e.program_id;
        pthread_cond_broadcast(&g_finished_cond);
        pthread_mutex_unlock(&g_lock);
    }
}

/* Starts program `id` and waits up to `seconds` for its finish event; stops
 * the arm and returns 1 when it does not come. (The blocking form,
 * kx_set_program_id_run(..., 1), waits without a limit.) */
static int run_program(kx_robot_handle* arm, int id, int seconds) {
    CHECK(kx_set_program_id_run(arm, id, 0, 0));
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += seconds;
    pthread_mutex_lock(&g_lock);
    int rc = 0;
    while (g_finished != id && rc == 0) rc = pthread_cond_timedwait(&g_finished_cond, &g_lock, &until);
    const int finished = g_finished == id;
    pthread_mutex_unlock(&g_lock);
    if (finished) return 0;
    fprintf(stderr, "program %d did not finish within %d s: stopping the arm\n", id, seconds);
    kx_set_arm_stop(arm);
    return 1;
}

/* Removes the files in `dir`, then `dir`. */
static void remove_dir(const char* dir) {
    DIR* d = opendir(dir);
    if (d == NULL) return;
    char path[512];
    for (struct dirent* e; (e = readdir(d)) != NULL;) {
        if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
        snprintf(path, sizeof path, "%s/%s", dir, e->d_name);
        unlink(path);
    }
    closedir(d);
    rmdir(dir);
}

int main(int argc, char** argv) {
    const char* usage = "[HOST [PORT [SECONDS]]]";
    const int seconds = argc > 3 ? atoi(argv[3]) : 2;
    if (seconds < 1) example_usage_exit(argv[0], usage, "SECONDS must be a positive number");
    kx_get_arm_event_call_back(on_event);
    const example_arm_t ex = example_connect(argc, argv, usage, KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    printf("drag teaching for %d s, recording the path\n", seconds);
    CHECK(kx_start_drag_teach(arm, 1));
    sleep((unsigned)seconds);
    CHECK(kx_stop_drag_teach(arm));

    char dir[] = "/tmp/kx_teach_XXXXXX";
    if (mkdtemp(dir) == NULL) {
        perror("mkdtemp");
        kx_destory();
        return 1;
    }
    char path[256];
    snprintf(path, sizeof path, "%s/teach.txt", dir);
    int points = 0;
    printf("saving the recorded path to %s\n", path);
    CHECK(kx_save_trajectory(arm, path, &points));
    printf("saved %d points\n", points);

    /* The trajectory becomes a program saved beside it; the controller
     * keeps it in its library under PROGRAM_ID. */
    kx_send_project_t project;
    memset(&project, 0, sizeof project);
    snprintf(project.project_path, sizeof project.project_path, "%s", path);
    project.project_path_len = (int)strlen(project.project_path);
    project.plan_speed = 50;
    project.only_save = 1;
    project.save_id = PROGRAM_ID;
    project.project_type = 1;
    int err_line = 0;
    printf("uploading it as program %d\n", PROGRAM_ID);
    int rc = kx_send_project(arm, project, &err_line);
    if (rc != 0) fprintf(stderr, "refused at line %d\n", err_line);
    remove_dir(dir); /* the controller keeps the program */
    CHECK(rc);

    static kx_program_trajectorys_t library;
    CHECK(kx_get_program_trajectory_list(arm, 1, 10, NULL, &library));
    printf("program library: %d program(s)\n", library.list_size);
    for (int i = 0; i < library.list_size && i < 10; ++i)
        printf("  #%d %s (%d bytes, speed %d)\n", library.trajectory_list[i].id,
               library.trajectory_list[i].trajectory_name, library.trajectory_list[i].size,
               library.trajectory_list[i].speed);

    /* At speed 50 the replay takes about twice as long as the teaching. */
    const int allowed = 4 * seconds + 30;
    printf("running program %d and waiting up to %d s for its end\n", PROGRAM_ID, allowed);
    rc = run_program(arm, PROGRAM_ID, allowed);

    kx_current_arm_state_t state;
    CHECK(kx_get_current_arm_state(arm, &state));
    example_print_joints(rc == 0 ? "done; joints now" : "stopped; joints now", state.joint, ex.dof);
    kx_delete_robot_arm(arm);
    kx_destory();
    return rc;
}
