/* Forward kinematics over the configuration store. Radians, metres. */
#ifndef ALGO_TOVI_KINEMATICS_H
#define ALGO_TOVI_KINEMATICS_H

#include "robot_define.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Tool pose in the current work frame. */
KX_API Pose forward_kinematics(const float* q);
/* Install-angle matrix x flange x tool matrix. */
KX_API Matrix forward_kinematics_for_unity(const float* q);
/* Flange in the arm's own base, by the model's closed form. */
KX_API Matrix forward_kinematics_e(const float* q);
/* Install-angle matrix x flange. */
KX_API Matrix forward_kinematics_rotate_flange(const float* q);
/* Install-angle matrix x flange x tool (the tool in the world). */
KX_API Matrix forward_kinematics_rotate(const float* q);
/* Work frame x install x flange (the flange in the work frame). */
KX_API Matrix forward_kinematics_world_to_flange(const float* q);
/* Flange x tool, without install angle or work frame. */
KX_API Matrix forward_kinematics_pos(const float* q);
/* Flange with the DH compensation values added to the nominal table. */
KX_API Matrix forward_kinematics_pos_calibration(const float* q);

/* Per-model flange closed forms over the given DH record, first dof rows. */
KX_API Matrix forward_kinematics_aven(const float* q, const DH* dh, int dof);
KX_API Matrix forward_kinematics_briv(const float* q, const DH* dh, int dof);
KX_API Matrix forward_kinematics_cald_2(const float* q, const DH* dh, int dof);
KX_API Matrix forward_kinematics_cald_3(const float* q, const DH* dh, int dof);
KX_API Matrix forward_kinematics_orla(const float* q, const DH* dh, int dof);
KX_API Matrix forward_kinematics_firu(const float* q, const DH* dh, int dof);

#ifdef __cplusplus
}
#endif

#endif /* ALGO_TOVI_KINEMATICS_H */
