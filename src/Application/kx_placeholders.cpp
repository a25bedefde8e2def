// Temporary stand-ins so that the library links while its families are
// built side by side. Whoever implements one of these deletes it here; the
// file goes away when it is empty.
#include <cstring>

#include "algo_arm.h"
#include "kx_interface.h"

extern "C" {
KX_API void kx_algo_arm_state_set(kx_robot_handle*) {}
}

namespace algo {
KX_API bool default_model(int type, int sensor, ArmModel* out) {
    if (!out) return false;
    *out = ArmModel{};
    out->type = type;
    out->sensor = sensor;
    out->dof = (type == 1 || type == 7 || type == 9) ? 7 : 6;
    for (int i = 0; i < out->dof; ++i) {
        out->jmin[i] = -3.1f; out->jmax[i] = 3.1f; out->vmax[i] = 3.14f; out->amax[i] = 10.0f;
    }
    return true;
}
KX_API void arm_fk(const ArmModel&, const float*, float T[4][4]) {
    std::memset(T, 0, sizeof(float) * 16);
    for (int i = 0; i < 4; ++i) T[i][i] = 1.0f;
}
KX_API int arm_ik(const ArmModel&, const float*, const float (*)[4], float*) { return -4; }
}  // namespace algo
