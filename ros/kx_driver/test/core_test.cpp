// The driver's ROS-independent core: trajectory checks and sampling, the
// URDF's joint transforms, and the conversion of realtime state.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kx_driver/arm_core.h"
#include "kx_driver/pose_math.h"
#include "kx_driver/trajectory.h"
#include "kx_driver/urdf.h"

namespace kx_driver {
namespace {

constexpr double kDeg = M_PI / 180.0;

JointLimits three_joints() {
    return {{"a", "b", "c"}, {-1, -1, -1}, {1, 1, 1}, {2, 2, 2}};
}

TEST(Trajectory, ReordersFillsVelocitiesAndStaysWithinSpeed) {
    Trajectory t;
    // Goal columns c, a, b; times 1 and 2 s.
    const auto check = prepare_trajectory({"c", "a", "b"}, {{1.0, {0.3, 0.1, 0.2}, {}}, {2.0, {0.6, 0.5, 0.2}, {}}},
                                          three_joints(), {0, 0, 0}, 0.005, t);
    ASSERT_TRUE(check.ok()) << check.message;
    ASSERT_EQ(t.points.size(), 3u);  // the current joints first
    EXPECT_EQ(t.points[1].position, (std::vector<double>{0.1, 0.2, 0.3}));
    // a and c keep rising through the middle point, b turns there: its velocity is 0.
    EXPECT_NEAR(t.points[1].velocity[0], 0.25, 1e-12);
    EXPECT_EQ(t.points[1].velocity[1], 0.0);
    EXPECT_NEAR(t.points[1].velocity[2], 0.3, 1e-12);
    std::vector<double> p, v, prev{0, 0, 0};
    for (double s = 0; s <= 2.0 + 1e-9; s += 0.005) {
        t.sample(s, p, v);
        for (size_t j = 0; j < 3; ++j) EXPECT_LE(std::fabs(p[j] - prev[j]), 2 * 0.005 + 1e-9);
        prev = p;
    }
    t.sample(1.0, p, v);  // passes through the points
    EXPECT_NEAR(p[0], 0.1, 1e-12);
    EXPECT_NEAR(p[2], 0.3, 1e-12);
    t.sample(5.0, p, v);  // and holds the last one
    EXPECT_EQ(p, (std::vector<double>{0.5, 0.2, 0.6}));
    EXPECT_EQ(v, (std::vector<double>{0, 0, 0}));
}

TEST(Trajectory, RejectsBeforeAnythingMoves) {
    Trajectory t;
    const JointLimits l = three_joints();
    const std::vector<double> here{0, 0, 0};
    struct Case {
        std::vector<std::string> names;
        std::vector<TrajectoryPoint> points;
        TrajectoryError error;
        const char* says;
    } cases[] = {
        {{"a", "b", "x"}, {{1, {0, 0, 0}, {}}}, TrajectoryError::kInvalidJoints, "unknown joint 'x'"},
        {{"a", "b"}, {{1, {0, 0}, {}}}, TrajectoryError::kInvalidJoints, "the arm has 3"},
        {{"a", "a", "b"}, {{1, {0, 0, 0}, {}}}, TrajectoryError::kInvalidJoints, "given twice"},
        {{"a", "b", "c"}, {}, TrajectoryError::kInvalidGoal, "no point"},
        {{"a", "b", "c"}, {{1, {0, 1.5, 0}, {}}}, TrajectoryError::kInvalidGoal, "beyond its limits"},
        {{"a", "b", "c"}, {{0.1, {0, 0.5, 0}, {}}}, TrajectoryError::kInvalidGoal, "above its limit"},
        {{"a", "b", "c"}, {{1, {0, 0.1, 0}, {}}, {1, {0, 0.2, 0}, {}}}, TrajectoryError::kInvalidGoal,
         "does not come after"},
        {{"a", "b", "c"}, {{0, {0.5, 0, 0}, {}}}, TrajectoryError::kInvalidGoal, "not where the arm is"},
        {{"a", "b", "c"}, {{1, {NAN, 0, 0}, {}}}, TrajectoryError::kInvalidGoal, "finite"},
        {{"a", "b", "c"}, {{1, {0, 0, 0}, {1, 2}}}, TrajectoryError::kInvalidGoal, "finite"},
        {{"a", "b", "c"}, {{1e12, {0, 0, 0}, {}}}, TrajectoryError::kInvalidGoal, "longer than an hour"},
    };
    for (const Case& c : cases) {
        const auto check = prepare_trajectory(c.names, c.points, l, here, 0.005, t);
        EXPECT_EQ(check.error, c.error) << c.says;
        EXPECT_NE(check.message.find(c.says), std::string::npos) << check.message;
    }
    // A first point at time 0 where the arm already is, is only a restatement.
    EXPECT_TRUE(prepare_trajectory({"a", "b", "c"}, {{0, {0, 0, 0}, {}}, {1, {0.2, 0, 0}, {}}}, l, here, 0.005, t).ok());
    EXPECT_EQ(t.points.size(), 2u);
    // Given velocities that overshoot a limit between points are caught on the sampled path.
    const auto over = prepare_trajectory({"a", "b", "c"}, {{1, {0.95, 0, 0}, {1.9, 0, 0}}, {2, {0.95, 0, 0}, {}}}, l,
                                         here, 0.005, t);
    EXPECT_FALSE(over.ok());
}

TEST(Trajectory, StreamedTargetChecks) {
    const JointLimits l = three_joints();
    std::string why;
    EXPECT_TRUE(within_limits(l, {0, 0, 0}, {0.01, -0.01, 0}, 0.005, &why)) << why;
    EXPECT_FALSE(within_limits(l, {0, 0, 0}, {0.02, 0, 0}, 0.005, &why));
    EXPECT_NE(why.find("a would need 4.000 rad/s"), std::string::npos) << why;
    EXPECT_FALSE(within_limits(l, {}, {0, 0, 1.2}, 0, &why));
    EXPECT_FALSE(within_limits(l, {}, {0, 0}, 0, &why));
    EXPECT_FALSE(within_limits(l, {}, {0, INFINITY, 0}, 0, &why));
}

TEST(Trajectory, StreamClockMeasuresThePeriodLikeTheController) {
    StreamClock c;
    EXPECT_DOUBLE_EQ(c.period(10), 0.020);  // a new stream
    EXPECT_DOUBLE_EQ(c.wait_for(10, 0.015), 0);
    EXPECT_LT(c.wait_for(10, 0.025), 0);  // waiting does not lengthen a new stream's period
    c.sent(10);
    // Targets arriving together after it do not shrink the period below the mean of eight gaps.
    for (int k = 0; k < 3; ++k) c.sent(10.0001);
    EXPECT_NEAR(c.period(10.0001), (0.0001 + 4 * 0.020) / 8, 1e-12);
    // A 10 ms stream: the mean gap, or the time since the last target when longer.
    for (int k = 1; k <= 8; ++k) c.sent(11 + 0.01 * k);
    EXPECT_NEAR(c.period(11.09), 0.010, 1e-9);
    EXPECT_NEAR(c.period(11.08), 0.00875, 1e-9) << "one target right after another";
    EXPECT_NEAR(c.period(11.13), 0.050, 1e-9);
    // Holding a target until the period admits it.
    const double w = c.wait_for(11.085, 0.011);
    EXPECT_NEAR(c.period(11.085 + w), 0.011, 1e-9);
    EXPECT_DOUBLE_EQ(c.wait_for(11.09, 0.009), 0);
    EXPECT_LT(c.wait_for(11.09, 0.2), 0);  // beyond the longest period
    EXPECT_DOUBLE_EQ(c.period(12), 0.020) << "a stream silent for 0.5 s starts again";
    c.reset();
    EXPECT_FALSE(c.active(11.09));

    const JointLimits l = three_joints();
    EXPECT_DOUBLE_EQ(travel_time(l, {0, 0, 0}, {0.01, -0.04, 0}), 0.04 / l.max_speed[1]);
}

// Modified DH with plain matrices, independently of the quaternion helpers.
using M4 = std::array<std::array<double, 4>, 4>;
M4 mul(const M4& a, const M4& b) {
    M4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) r[i][j] += a[i][k] * b[k][j];
    return r;
}
M4 dh_matrix(double alpha, double a, double theta, double d) {
    const double ca = std::cos(alpha), sa = std::sin(alpha), ct = std::cos(theta), st = std::sin(theta);
    return {{{ct, -st, 0, a}, {st * ca, ct * ca, -sa, -sa * d}, {st * sa, ct * sa, ca, ca * d}, {0, 0, 0, 1}}};
}
M4 urdf_matrix(const std::array<double, 6>& o, double q) {  // origin xyz rpy, then about z by q
    const auto r = quat_from_rpy(o[3], o[4], o[5]);
    const Pose7 p = compose({o[0], o[1], o[2], r[0], r[1], r[2], r[3]}, {0, 0, 0, 0, 0, std::sin(q / 2), std::cos(q / 2)});
    const double x = p[3], y = p[4], z = p[5], w = p[6];
    return {{{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w), p[0]},
             {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w), p[1]},
             {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y), p[2]},
             {0, 0, 0, 1}}};
}

TEST(Urdf, JointOriginsReproduceTheDhChain) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> len(-0.5, 0.5), ang(-180, 180), q(-3, 3);
    const double right_angles[] = {-90, 90, 0, 180};
    for (int trial = 0; trial < 50; ++trial) {
        kx_dh_t dh{};
        for (int i = 0; i < 7; ++i) {
            dh.d[i] = static_cast<float>(len(rng));
            dh.a[i] = static_cast<float>(len(rng));
            // Real arms use right angles (where roll-pitch-yaw degenerates); mix them in.
            dh.alpha[i] = static_cast<float>(trial % 2 ? right_angles[(trial + i) % 4] : ang(rng));
            dh.offset[i] = static_cast<float>(trial % 3 ? right_angles[(trial + 2 * i) % 4] : ang(rng));
        }
        M4 want{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}}, got = want;
        for (int i = 0; i < 7; ++i) {
            const double qi = q(rng);
            want = mul(want, dh_matrix(dh.alpha[i] * kDeg, dh.a[i], qi + dh.offset[i] * kDeg, dh.d[i]));
            got = mul(got, urdf_matrix(dh_origin(dh, i), qi));
        }
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 4; ++c) ASSERT_NEAR(got[r][c], want[r][c], 1e-9) << "trial " << trial;
    }
}

TEST(Urdf, NamesCarryThePrefixAndLimits) {
    ArmModel m;
    m.dof = 6;
    for (int i = 0; i < 6; ++i) {
        m.min_pos[i] = -2.5;
        m.max_pos[i] = 2.5;
        m.max_speed[i] = 3.0;
        m.dh.d[i] = 0.1f;
    }
    const std::string u = make_urdf(m, {"left_", "base", "flange_tool"});
    for (const char* s : {"<link name=\"left_base\">", "<link name=\"left_link_6\">", "<link name=\"left_flange_tool\"/>",
                          "<joint name=\"left_joint_1\" type=\"revolute\">", "<parent link=\"left_base\"/>",
                          "<joint name=\"left_flange_tool_joint\" type=\"fixed\">", "lower=\"-2.5\" upper=\"2.5\" velocity=\"3\""})
        EXPECT_NE(u.find(s), std::string::npos) << s;
    EXPECT_EQ(u.find("joint_7"), std::string::npos);
}

TEST(ArmSample, ConvertsUnitsFramesAndSensors) {
    kx_realtime_arm_joint_state_t s{};
    s.joint_status.joint_position[0] = 90.0f;
    s.joint_status.joint_speed[1] = -30.0f;
    s.joint_status.joint_err_code[2] = 7;
    s.joint_status.joint_en_flag[0] = true;
    s.waypoint.position = {0.1f, 0.2f, 0.3f};
    s.waypoint.quaternion = {1, 0, 0, 0};
    s.force_sensor.zero_force[0] = 5.0f;
    s.err.err_len = 3;
    s.err.err[0] = 0;
    s.err.err[1] = 4101;
    s.err.err[2] = 0;
    s.arm_current_status = KX_PAUSE_E;
    // A work frame turned 90 degrees about z and lifted by 1 m.
    const std::array<double, 7> work{0, 0, 1, 0, 0, std::sin(M_PI / 4), std::cos(M_PI / 4)};
    const ArmSample a = convert_state(s, 6, KX_FORCE_TYPE_QA_E, work);
    EXPECT_NEAR(a.position[0], M_PI / 2, 1e-6);
    EXPECT_NEAR(a.velocity[1], -M_PI / 6, 1e-6);
    EXPECT_TRUE(a.has_velocity);
    EXPECT_EQ(a.joint_errors[2], 7);
    EXPECT_TRUE(a.joint_enabled[0]);
    EXPECT_FALSE(a.joint_enabled[1]);
    EXPECT_NEAR(a.tool[0], -0.2, 1e-6);  // base = work * tool-in-work
    EXPECT_NEAR(a.tool[1], 0.1, 1e-6);
    EXPECT_NEAR(a.tool[2], 1.3, 1e-6);
    EXPECT_TRUE(a.has_wrench);  // the one-axis sensor gives Fz only
    EXPECT_EQ(a.wrench[0], 0.0);
    EXPECT_EQ(a.wrench[2], 5.0);
    EXPECT_EQ(a.errors, std::vector<int>{4101});
    EXPECT_STREQ(trajectory_state_name(a.trajectory_state), "pause");
    EXPECT_STREQ(trajectory_state_name(99), "unknown");
    // No sensor, and a hostile error count: no wrench, at most 24 codes read.
    s.err.err_len = 200;
    const ArmSample b = convert_state(s, 7, KX_FORCE_TYPE_P_E, identity_pose());
    EXPECT_FALSE(b.has_wrench);
    EXPECT_EQ(b.errors, std::vector<int>{4101});
}

}  // namespace
}  // namespace kx_driver

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
