#include "kx_driver/urdf.h"

#include <cmath>
#include <cstdio>
#include <sstream>

#include "kx_driver/pose_math.h"

namespace kx_driver {
namespace {

constexpr double kDeg = M_PI / 180.0;

std::string num(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%.9g", std::fabs(v) < 1e-12 ? 0.0 : v);
    return b;
}

std::string origin(double x, double y, double z, double r, double p, double yw) {
    return "<origin xyz=\"" + num(x) + " " + num(y) + " " + num(z) + "\" rpy=\"" + num(r) + " " + num(p) + " " +
           num(yw) + "\"/>";
}

// A cylinder from the link's origin to `to` (in the link's frame), so the
// model shows the arm's geometry without any mesh file.
void segment(std::ostringstream& o, const std::array<double, 3>& to, double radius) {
    const double len = std::sqrt(to[0] * to[0] + to[1] * to[1] + to[2] * to[2]);
    if (len < 1e-4) return;
    const double pitch = std::atan2(std::hypot(to[0], to[1]), to[2]);
    const double yaw = std::atan2(to[1], to[0]);
    o << "    <visual>" << origin(to[0] / 2, to[1] / 2, to[2] / 2, 0, pitch, yaw)
      << "<geometry><cylinder radius=\"" << num(radius) << "\" length=\"" << num(len)
      << "\"/></geometry><material name=\"kx_grey\"/></visual>\n";
}

}  // namespace

std::array<double, 6> dh_origin(const kx_dh_t& dh, int i) {
    const auto rx = quat_from_rpy(dh.alpha[i] * kDeg, 0, 0);
    const auto rz = quat_from_rpy(0, 0, dh.offset[i] * kDeg);
    Pose7 m = compose(Pose7{0, 0, 0, rx[0], rx[1], rx[2], rx[3]}, Pose7{dh.a[i], 0, 0, 0, 0, 0, 1});
    m = compose(m, Pose7{0, 0, 0, rz[0], rz[1], rz[2], rz[3]});
    m = compose(m, Pose7{0, 0, dh.d[i], 0, 0, 0, 1});
    const auto rpy = rpy_from_quat(rot(m));
    return {m[0], m[1], m[2], rpy[0], rpy[1], rpy[2]};
}

std::string make_urdf(const ArmModel& model, const UrdfNames& names) {
    const std::string& p = names.prefix;
    const int n = model.dof;
    std::ostringstream o;
    o << "<?xml version=\"1.0\"?>\n<robot name=\"" << p << "kx_arm\">\n"
      << "  <material name=\"kx_grey\"><color rgba=\"0.7 0.7 0.72 1\"/></material>\n";
    auto link = [&](const std::string& name, const std::array<double, 3>& to) {
        o << "  <link name=\"" << name << "\">\n";
        o << "    <visual><geometry><sphere radius=\"0.045\"/></geometry><material name=\"kx_grey\"/></visual>\n";
        segment(o, to, 0.03);
        o << "  </link>\n";
    };
    auto next_origin = [&](int i) -> std::array<double, 3> {  // joint i+1's origin in link i (0 = base)
        if (i < n) {
            const auto d = dh_origin(model.dh, i);
            return {d[0], d[1], d[2]};
        }
        return {model.tool[0], model.tool[1], model.tool[2]};
    };
    link(p + names.base, next_origin(0));
    for (int i = 1; i <= n; ++i) link(p + "link_" + std::to_string(i), next_origin(i));
    o << "  <link name=\"" << p << names.tool << "\"/>\n";
    for (int i = 0; i < n; ++i) {
        const auto d = dh_origin(model.dh, i);
        const std::string parent = i == 0 ? p + names.base : p + "link_" + std::to_string(i);
        o << "  <joint name=\"" << p << "joint_" << i + 1 << "\" type=\"revolute\">\n    <parent link=\"" << parent
          << "\"/><child link=\"" << p << "link_" << i + 1 << "\"/>\n    " << origin(d[0], d[1], d[2], d[3], d[4], d[5])
          << "<axis xyz=\"0 0 1\"/>\n    <limit lower=\"" << num(model.min_pos[i]) << "\" upper=\""
          << num(model.max_pos[i]) << "\" velocity=\"" << num(model.max_speed[i]) << "\" effort=\"1000\"/>\n"
          << "  </joint>\n";
    }
    const auto rpy = rpy_from_quat(rot(model.tool));
    o << "  <joint name=\"" << p << names.tool << "_joint\" type=\"fixed\">\n    <parent link=\"" << p << "link_" << n
      << "\"/><child link=\"" << p << names.tool << "\"/>\n    "
      << origin(model.tool[0], model.tool[1], model.tool[2], rpy[0], rpy[1], rpy[2]) << "\n  </joint>\n";
    o << "</robot>\n";
    return o.str();
}

}  // namespace kx_driver
