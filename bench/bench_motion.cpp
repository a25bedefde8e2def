/* How long after the controller reports a motion finished does the blocking
 * call return? Measured against the simulator's own record of when it wrote
 * the completion event, for blocking joint moves and blocking steps. */
#include "bench_completion.h"

namespace {

using benchrig::measure;

void BM_BlockingMovejReturn(benchmark::State& state) {
    const float a[7] = {0, 0, 10, 0, 10, 0, 0};
    const float b[7] = {0, 0, 12, 0, 12, 0, 0};
    measure(state, [&](kx_robot_handle* h, int n) { return kx_movej(h, (n % 2) ? b : a, 100, 0, 0, 1); });
}
BENCHMARK(BM_BlockingMovejReturn)->Iterations(200)->Unit(benchmark::kMillisecond);

/* The step must still be running when the first trajectory query arrives;
 * a step that ends before it is waited out for the idle allowance (about a
 * second) by design. */
void BM_BlockingStepReturn(benchmark::State& state) {
    measure(state, [&](kx_robot_handle* h, int n) { return kx_set_joint_step(h, 1, (n % 2) ? 10.0f : -10.0f, 10, 1); });
}
BENCHMARK(BM_BlockingStepReturn)->Iterations(100)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
