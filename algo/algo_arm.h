/*
 * A self-contained kinematic model of one arm.
 *
 * Unlike the process-wide configuration store behind the libalgo_ accessors,
 * an ArmModel is a plain value: any number can exist at once and be used from
 * any thread. The controller simulator builds its arms from these, so that it
 * never touches the store the client library configures.
 */
#ifndef ALGO_ARM_H
#define ALGO_ARM_H

#include "kx_define.h"

#ifdef __cplusplus
namespace algo {

struct ArmModel {
    int type = 0;   /* RobotType value (AVEN 0, BRIV 1, ... CALDIV 10) */
    int sensor = 0; /* SensorType value (_P 0, _QA 1, _QS 2) */
    int dof = 6;
    /* modified DH, one row per joint: metres and radians */
    float d[8] = {}, a[8] = {}, alpha[8] = {}, offset[8] = {};
    float jmin[8] = {}, jmax[8] = {}; /* joint position limits, radians */
    float vmax[8] = {}, amax[8] = {}; /* joint speed / acceleration limits, rad/s and rad/s^2 */
};

/* The built-in default model of a library robot type and sensor edition.
 * Returns false when the type is unknown or the edition is not offered. */
KX_API bool default_model(int type, int sensor, ArmModel* out);

/* Flange transform in the arm's base for joints q (radians): row-major 4x4, metres. */
KX_API void arm_fk(const ArmModel& model, const float q[8], float T[4][4]);

/* Joints reaching flange transform T, nearest to q_ref, inside the limits.
 * Returns 0 and fills q_out, or a negative code when there is no solution
 * (-4 when the type has no solver). */
KX_API int arm_ik(const ArmModel& model, const float q_ref[8], const float T[4][4], float q_out[8]);

}  // namespace algo
#endif

#endif /* ALGO_ARM_H */
