// Temporary stand-ins so that the library links while its families are
// built side by side. Whoever implements one of these deletes it here; the
// file goes away when it is empty.
#include "kx_interface.h"

extern "C" {
KX_API int kx_get_arm_software_info(kx_robot_handle*, kx_arm_software_version_t*) { return 0; }
KX_API int kx_get_current_work_frame(kx_robot_handle*, kx_frame_t*) { return 0; }
KX_API int kx_get_current_tool_frame(kx_robot_handle*, kx_frame_t*) { return 0; }
KX_API int kx_get_install_pose(kx_robot_handle*, float*, float*, float*) { return 0; }
KX_API int kx_get_joint_min_pos(kx_robot_handle*, float*) { return 0; }
KX_API int kx_get_joint_max_pos(kx_robot_handle*, float*) { return 0; }
KX_API int kx_get_joint_max_acc(kx_robot_handle*, float*) { return 0; }
KX_API int kx_get_joint_max_speed(kx_robot_handle*, float*) { return 0; }
KX_API int kx_get_DH_data(kx_robot_handle*, kx_dh_t*) { return 0; }
KX_API void kx_algo_arm_state_set(kx_robot_handle*) {}
}
