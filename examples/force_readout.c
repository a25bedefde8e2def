/*
 * Print live force readings: all six axes on a QS arm, Fz on a QA arm.
 *
 *   force_readout [HOST [PORT [COUNT]]]
 *
 * Try it without an arm (the simulator pushes 20 N down and 5 N sideways on the tool):
 *   kx_sim --arms 1 --model AVEN --edition QS --port 8080 --push 5,0,-20 &
 *   force_readout 127.0.0.1 8080
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    const char* usage = "[HOST [PORT [COUNT]]]";
    const int count = argc > 3 ? atoi(argv[3]) : 10;
    if (count < 1) example_usage_exit(argv[0], usage, "COUNT must be a positive number");
    const example_arm_t ex = example_connect(argc, argv, usage, KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;
    kx_robot_info_t info;
    CHECK(kx_get_robot_info(arm, &info));
    if (info.force_type == KX_FORCE_TYPE_P_E) {
        fprintf(stderr, "this arm has no force sensor (start kx_sim with --edition QS or QA): nothing to read\n");
        kx_destory();
        return EXAMPLE_MISSING_FEATURE;
    }
    struct timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    int rc = 0;
    printf("reading the %s sensor %d times, 100 ms apart (N, N m)\n",
           info.force_type == KX_FORCE_TYPE_QS_E ? "six-axis" : "one-axis", count);
    for (int i = 0; i < count && rc == 0; ++i) {
        if (info.force_type == KX_FORCE_TYPE_QS_E) {
            kx_force_data_t d;
            if ((rc = kx_get_force_data(arm, &d)) == 0)
                printf("raw  Fx %8.3f Fy %8.3f Fz %8.3f  Mx %7.3f My %7.3f Mz %7.3f | work Fz %8.3f\n", d.force_data[0],
                       d.force_data[1], d.force_data[2], d.force_data[3], d.force_data[4], d.force_data[5],
                       d.work_zero_force_data[2]);
        } else {
            kx_fz_data_t fz;
            if ((rc = kx_get_Fz(arm, &fz)) == 0)
                printf("Fz %8.3f  zeroed %8.3f  work %8.3f  tool %8.3f\n", fz.Fz, fz.zero_Fz, fz.work_zero_Fz,
                       fz.tool_zero_Fz);
        }
        example_tick(&next, 100);
    }
    if (rc != 0) fprintf(stderr, "reading the sensor failed: %d\n", rc);
    kx_delete_robot_arm(arm);
    kx_destory();
    return rc == 0 ? 0 : 1;
}
