/* Numeric constants of the kinematics library. */
#ifndef ALGO_CONSTANT_DEFINE_H
#define ALGO_CONSTANT_DEFINE_H

#define ALGO_PI 3.141592653589793
#define ALGO_2PI 6.28318530717959
#define ALGO_4PI 12.56637061435918
#define ALGO_DEG2RAD 0.017453292519943295
#define ALGO_RAD2DEG 57.29577951308232

#define ALGO_MAX_JOINTS 8
#define ALGO_DEFAULT_PERIOD 0.002f /* control loop period, seconds */
#define ALGO_GRAVITY (-9.81f)

/* Euler angles below this come back shifted by 2*pi (see matrix_to_euler). */
#define ALGO_EULER_WRAP (-3.13)
/* |R20| above this is treated as pitch = +-pi/2. */
#define ALGO_GIMBAL_LIMIT 0.999999

/* The 7-joint search range: narrow (strategy 1) and wide (strategy 0). */
#define ALGO_THETA_V_NARROW 0.013f
#define ALGO_THETA_V_WIDE 3.14f

/* find_nearest_joint's "no admissible equivalent". */
#define ALGO_NO_JOINT 1e6

#endif
