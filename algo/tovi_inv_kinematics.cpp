// Inverse kinematics: dispatch and solvers (being built).
#include "tovi_int.h"

namespace algo {
int solve_ik(const Kin&, const Frame&, const double*, double*) { return -4; }
}  // namespace algo
