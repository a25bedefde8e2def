/*
 * Records and enumerations of the kinematics library. Angles are radians,
 * lengths metres. Matrix is layout-identical to the API's kx_matrix_t.
 */
#ifndef ALGO_ROBOT_DEFINE_H
#define ALGO_ROBOT_DEFINE_H

#include <stdint.h>

#include "kx_define.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    AVEN = 0,
    BRIV = 1,
    CALDI = 2,
    CALDII = 3,
    CALDIII = 4,
    DUMO = 5,
    ESKA = 6,
    FIRU = 7,
    GOLT = 8,
    UNIVERSAL = 9,
    CALDIV = 10,
} RobotType;

typedef enum {
    _P = 0,
    _QA = 1,
    _QS = 2,
} SensorType;

typedef struct {
    int16_t irow;
    int16_t iline;
    float data[4][4];
} Matrix;

typedef struct {
    float x, y, z;
} Pos;

typedef struct {
    float w, x, y, z;
} Quat;

typedef struct {
    float rx, ry, rz;
} Euler;

typedef struct {
    Pos position;
    Quat quaternion;
    Euler euler;
} Pose;

typedef struct {
    float x, y, z, rx, ry, rz;
} Coord;

typedef struct {
    float mass;
    float com[3];
    float inertia[6];
    float radius;
} PayloadCfg;

typedef struct {
    float d[8];
    float a[8];
    float alpha[8];
    float offset[8];
    float err_d[8];
    float err_a[8];
    float err_alpha[8];
    float err_theta[8];
} DH;

#ifdef __cplusplus
}
#endif

#endif /* ALGO_ROBOT_DEFINE_H */
