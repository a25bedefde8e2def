// A URDF of the arm from the controller's own DH parameters and joint limits.
#ifndef KX_DRIVER_URDF_H
#define KX_DRIVER_URDF_H

#include <array>
#include <string>

#include "kx_driver/arm_core.h"

namespace kx_driver {

struct UrdfNames {
    std::string prefix;             // prepended to every link and joint name
    std::string base = "base_link";
    std::string tool = "tool0";
};

// Link names: <prefix><base>, <prefix>link_1..n, <prefix><tool>; joints
// <prefix>joint_1..n (revolute, about z of their link) and a fixed tool joint.
std::string make_urdf(const ArmModel& model, const UrdfNames& names);

// Joint i's fixed transform in its parent (modified DH: RotX(alpha) TransX(a)
// RotZ(offset) TransZ(d)) as x y z roll pitch yaw.
std::array<double, 6> dh_origin(const kx_dh_t& dh, int i);

}  // namespace kx_driver

#endif
