// The kx_algo_ facade without a connection: model mapping, unit
// conversions, the exact checks of inverse kinematics, and the Cartesian
// helpers behind it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "algo_api.h"
#include "kx_interface.h"
#include "kx_invoke_algo.h"
#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

namespace {

constexpr double kDeg = 0.017453292519943295;

void expect_pose_near(const kx_pose_t& a, const kx_pose_t& b, double tol) {
    EXPECT_NEAR(a.position.x, b.position.x, tol);
    EXPECT_NEAR(a.position.y, b.position.y, tol);
    EXPECT_NEAR(a.position.z, b.position.z, tol);
    const kx_matrix_t A = kx_algo_pos2matrix(a), B = kx_algo_pos2matrix(b);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(A.data[i][j], B.data[i][j], tol);
}

kx_frame_t frame(float x, float y, float z, float rx, float ry, float rz) {
    kx_frame_t f{};
    f.pose.position = {x, y, z};
    f.pose.euler = {rx, ry, rz};
    return f;
}

}  // namespace

TEST(AlgoFacade, VersionAndModelMapping) {
    EXPECT_STREQ(kx_algo_version(), "1.5.1-4decf769");
    struct Case {
        int mode;
        RobotType type;
    } cases[] = {{KX_MODEL_AVEN_E, AVEN},     {KX_MODEL_BRIV_E, BRIV},     {KX_MODEL_CALD_I_E, CALDI},
                 {KX_MODEL_CALD_II_E, CALDII}, {KX_MODEL_CALD_III_E, AVEN}, {KX_MODEL_CALD_IV_E, CALDIV},
                 {KX_MODEL_DUMO_E, DUMO},     {KX_MODEL_ESKA_E, ESKA},     {KX_MODEL_FIRU_E, FIRU},
                 {KX_MODEL_GOLT_E, GOLT},     {42, AVEN},                  {-1, AVEN}};
    for (const Case& c : cases) {
        kx_algo_init_sys_data(static_cast<kx_robot_arm_model_e>(c.mode), KX_FORCE_TYPE_P_E);
        EXPECT_EQ(libalgo_get_robot_type(), c.type) << c.mode;
    }
    kx_algo_init_sys_data(KX_MODEL_GOLT_E, KX_FORCE_TYPE_QA_E);
    EXPECT_EQ(libalgo_get_sensor_type(), _QA);
    kx_algo_init_sys_data(KX_MODEL_GOLT_E, KX_FORCE_TYPE_QS_E);
    EXPECT_EQ(libalgo_get_sensor_type(), _QS);
    kx_algo_init_sys_data(KX_MODEL_GOLT_E, static_cast<kx_force_type_e>(9));
    EXPECT_EQ(libalgo_get_sensor_type(), _P);
    // An edition the model does not offer leaves it selected but unloaded.
    kx_algo_init_sys_data(KX_MODEL_ESKA_E, KX_FORCE_TYPE_QA_E);
    EXPECT_EQ(libalgo_get_robot_type(), ESKA);
}

TEST(AlgoFacade, UnitConversionsOfAnglesLimitsFramesAndDh) {
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    kx_algo_set_angle(90.0f, -45.0f, 30.0f);
    EXPECT_FLOAT_EQ(angleU, static_cast<float>(90.0 * 3.141592653589793 / 180));
    EXPECT_FLOAT_EQ(angleV, static_cast<float>(-45.0 * 3.141592653589793 / 180));
    float x = 0, y = 0, z = 0;
    kx_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(x, 90.0f, 1e-4);
    EXPECT_NEAR(z, 30.0f, 1e-4);
    float untouched = 7;
    kx_algo_get_angle(&untouched, nullptr, &z);
    EXPECT_EQ(untouched, 7);

    const float limit[7] = {10, 20, 30, 40, 50, 60, 70};
    kx_algo_set_joint_max_limit(limit);
    float rad[8], back[7] = {};
    libalgo_get_jointlim_max(rad);
    EXPECT_FLOAT_EQ(rad[2], static_cast<float>(30 * kDeg));
    EXPECT_EQ(rad[6], 0.0f);  // beyond dof: zero
    kx_algo_get_joint_max_limit(back);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], limit[i], 1e-4);
    EXPECT_EQ(back[6], 0.0f);
    kx_algo_get_joint_max_limit(nullptr);
    kx_algo_set_joint_max_speed(limit);
    kx_algo_get_joint_max_speed(back);
    EXPECT_NEAR(back[5], 60, 1e-4);
    kx_algo_set_joint_max_acc(limit);
    kx_algo_get_joint_max_acc(back);
    EXPECT_NEAR(back[4], 50, 1e-4);

    kx_frame_t tool = frame(0.01f, 0.02f, 0.15f, 0.1f, 0.2f, 0.3f);
    tool.payload = 1.5f;
    tool.x = 0.001f;
    tool.z = 0.05f;
    kx_algo_set_toolframe(&tool);
    kx_frame_t got{};
    std::strcpy(got.frame_name, "keep");
    kx_algo_get_curr_toolframe(&got);
    EXPECT_STREQ(got.frame_name, "keep");
    EXPECT_EQ(got.pose.position.z, 0.15f);
    EXPECT_EQ(got.pose.euler.ry, 0.2f);
    EXPECT_EQ(got.payload, 1.5f);
    EXPECT_EQ(got.z, 0.05f);
    const kx_frame_t work = frame(0.5f, 0, 0, 0, 0, 1.0f);
    kx_algo_set_workframe(&work);
    kx_algo_get_curr_workframe(&got);
    EXPECT_EQ(got.pose.position.x, 0.5f);
    EXPECT_EQ(got.pose.euler.rz, 1.0f);
    kx_algo_set_workframe(nullptr);
    kx_algo_get_curr_workframe(nullptr);

    // DH: set takes elements 0..6 and converts all eight angles; get fills
    // 0..6 and leaves the eighth zero.
    kx_dh_t dh{};
    for (int i = 0; i < 8; ++i) {
        dh.d[i] = 0.1f * i;
        dh.a[i] = 0.01f * i;
        dh.alpha[i] = 90.0f;
        dh.offset[i] = -45.0f;
    }
    kx_algo_set_dh(dh);
    const DH lib = libalgo_get_dh_value();
    EXPECT_FLOAT_EQ(lib.alpha[3], static_cast<float>(90 * 0.0174532925199433));
    EXPECT_EQ(lib.alpha[7], 0.0f);
    EXPECT_EQ(lib.d[7], 0.0f);
    const kx_dh_t out = kx_algo_get_dh();
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(out.d[i], dh.d[i]);
        EXPECT_NEAR(out.alpha[i], 90.0f, 1e-4);
        EXPECT_NEAR(out.offset[i], -45.0f, 1e-4);
    }
    EXPECT_EQ(out.d[7], 0.0f);
    EXPECT_EQ(out.alpha[7], 0.0f);
}

TEST(AlgoFacade, InverseKinematicsChecksNormLimitsAndTraversalMode) {
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    const float q[7] = {10, -20, 30, 40, -50, 60, 0};
    kx_inverse_kinematics_params_t p{};
    std::memcpy(p.q_in, q, sizeof q);
    p.q_pose = kx_algo_forward_kinematics(nullptr, q);
    p.flag = 1;
    float out[7] = {};
    ASSERT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), 0);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(out[i], q[i], 1e-2);

    // flag 0: the squared norm is compared with 1.0f exactly.
    p.flag = 0;
    p.q_pose.quaternion = {1, 0, 0, 0};
    EXPECT_NE(kx_algo_inverse_kinematics(nullptr, p, out), -2);
    const float h = 0.7071068f;
    p.q_pose.quaternion = {h, h, 0, 0};
    ASSERT_NE(h * h + h * h, 1.0f);
    EXPECT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), -2);

    // The reference limits are inclusive.
    p.flag = 1;
    p.q_pose = kx_algo_forward_kinematics(nullptr, q);
    float hi[7];
    kx_algo_get_joint_max_limit(hi);
    p.q_in[0] = hi[0];
    EXPECT_EQ(kx_algo_judgment_overpos(p.q_in), 0);
    EXPECT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), 0);
    p.q_in[0] = std::nextafter(hi[0], 1000.0f);
    EXPECT_EQ(kx_algo_judgment_overpos(p.q_in), -1);
    EXPECT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), -1);
    EXPECT_EQ(kx_algo_judgment_overpos(nullptr), -1);

    // A library failure is reported as 1 and leaves q_out unconverted.
    p.q_in[0] = q[0];
    p.q_pose.position.x += 10.0f;
    EXPECT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), 1);

    // Traversal: the mode setter writes the library and disarms the flag;
    // the armed flag widens the search on the next solve.
    kx_algo_set_redundant_parameter_traversal_mode(true);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    EXPECT_FALSE(defaut_traversal_mode);
    kx_algo_set_redundant_parameter_traversal_mode(false);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 0.013f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    defaut_traversal_mode = true;
    p.q_pose.position.x -= 10.0f;
    EXPECT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), 0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 3.14f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    defaut_traversal_mode = false;
}

TEST(AlgoFacade, SevenJointArmsSolveThroughTheFacade) {
    for (kx_robot_arm_model_e model : {KX_MODEL_BRIV_E, KX_MODEL_FIRU_E}) {
        kx_algo_init_sys_data(model, KX_FORCE_TYPE_P_E);
        kx_algo_set_redundant_parameter_traversal_mode(false);
        const float q[7] = {10, -20, 30, -40, 50, 60, 20};
        kx_inverse_kinematics_params_t p{};
        std::memcpy(p.q_in, q, sizeof q);
        p.q_in[2] += 3;
        p.q_pose = kx_algo_forward_kinematics(nullptr, q);
        p.flag = 1;
        float out[7] = {};
        ASSERT_EQ(kx_algo_inverse_kinematics(nullptr, p, out), 0) << model;
        expect_pose_near(kx_algo_forward_kinematics(nullptr, out), p.q_pose, 1e-4);
    }
}

TEST(AlgoFacade, ForwardKinematicsAndGlue) {
    kx_algo_init_sys_data(KX_MODEL_GOLT_E, KX_FORCE_TYPE_P_E);
    const kx_pose_t zero = kx_algo_forward_kinematics(nullptr, nullptr);
    EXPECT_EQ(zero.position.x, 0.0f);
    EXPECT_EQ(zero.quaternion.w, 0.0f);
    const float q[7] = {10, -20, 30, 40, -50, 60, 0};
    const kx_pose_t p = kx_algo_forward_kinematics(nullptr, q);
    float rad[8] = {};
    for (int i = 0; i < 6; ++i) rad[i] = static_cast<float>(q[i] * kDeg);
    const Pose lib = forward_kinematics(rad);
    EXPECT_EQ(p.position.y, lib.position.y);
    EXPECT_EQ(p.quaternion.x, lib.quaternion.x);
    EXPECT_EQ(p.euler.rz, lib.euler.rz);
    const Matrix F = Forward_Kinematics_e(q);
    EXPECT_NEAR(F.data[0][3], p.position.x, 1e-7);

    // The overspeed-checking glue: timing bounds and the joint verdict.
    float out[8] = {};
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(q, p, out, 1), 0);
    EXPECT_LE(invoke_inverse_time_total_min, 10000.0);
    float far[8];
    std::memcpy(far, q, sizeof q);
    far[2] += 5;
    EXPECT_EQ(invoke_inverse_kinematics_with_judgment_overspeed(far, p, out, 1), 3);
    EXPECT_EQ(invoke_joint_overspeed_judgment(q, far, 1.0f), 3);
    EXPECT_EQ(invoke_joint_overspeed_judgment(q, q, -1.0f), 0);
    EXPECT_EQ(invoke_libalgo_set_dh_params(DH{}), 0);
    invoke_libalgo_set_control_loop_period(0.004f);
    EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.004f);
}

TEST(AlgoFacade, FrameChangesAndCartesianHelpers) {
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    const kx_frame_t tool = frame(0.0f, 0.0f, 0.1f, 0.0f, 0.0f, 0.5f);
    const kx_frame_t work = frame(0.2f, 0.1f, 0.0f, 0.0f, 0.0f, 0.3f);
    kx_algo_set_toolframe(&tool);
    kx_algo_set_workframe(&work);
    const float q[7] = {10, -20, 30, 40, -50, 60, 0};

    // pos2matrix ignores the quaternion; matrix2pos fills both orientations.
    kx_pose_t pose{};
    pose.position = {0.3f, 0.2f, 0.1f};
    pose.euler = {0.1f, 0.2f, 0.3f};
    pose.quaternion = {0, 0, 0, 0};
    const kx_pose_t round = kx_algo_matrix2pos(kx_algo_pos2matrix(pose));
    EXPECT_NEAR(round.euler.ry, 0.2f, 1e-6);
    EXPECT_NEAR(round.quaternion.w * round.quaternion.w + round.quaternion.z * round.quaternion.z +
                    round.quaternion.x * round.quaternion.x + round.quaternion.y * round.quaternion.y,
                1.0f, 1e-6);
    const kx_matrix_t M = kx_algo_pos2matrix(frame(0.2f, 0.1f, 0, 0, 0, 0.3f).pose);
    expect_pose_near(kx_algo_workframe2base(M, kx_algo_base2workframe(M, pose)), pose, 1e-6);
    const kx_euler_t e = kx_algo_quaternion2euler(kx_algo_euler2quaternion(pose.euler));
    EXPECT_NEAR(e.rx, 0.1f, 1e-6);
    EXPECT_EQ(kx_algo_euler2matrix(pose.euler).irow, 3);

    // Flange to tool: the work frame times flange times tool.
    const kx_pose_t tool_pose = kx_algo_end2tool(nullptr, pose);
    const Matrix chain = matrix_m(matrix_m(pose_euler_to_transformation_matrix(Pose{{0.2f, 0.1f, 0}, {}, {0, 0, 0.3f}}),
                                           pose_euler_to_transformation_matrix(Pose{{0.3f, 0.2f, 0.1f}, {}, {0.1f, 0.2f, 0.3f}})),
                                  pose_euler_to_transformation_matrix(Pose{{0, 0, 0.1f}, {}, {0, 0, 0.5f}}));
    EXPECT_NEAR(tool_pose.position.x, chain.data[0][3], 1e-6);
    EXPECT_NEAR(tool_pose.position.z, chain.data[2][3], 1e-6);

    // Cartesian tool move: zero offset is the current tool pose in the work
    // frame; an offset moves along the tool's own axes.
    const kx_pose_t here = kx_algo_cartesian_tool(nullptr, q, 0, 0, 0);
    expect_pose_near(here, kx_algo_forward_kinematics(nullptr, q), 1e-5);
    const kx_pose_t ahead = kx_algo_cartesian_tool(nullptr, q, 0, 0, 0.05f);
    const kx_matrix_t H = kx_algo_pos2matrix(here);
    EXPECT_NEAR(ahead.position.x - here.position.x, 0.05f * H.data[0][2], 1e-5);
    EXPECT_NEAR(ahead.position.z - here.position.z, 0.05f * H.data[2][2], 1e-5);

    // Pose moves: mode 0 along the work axes, 1 along the tool's, else zeros.
    const float delta[6] = {0.01f, 0.02f, 0.03f, 0.0f, 0.0f, 0.2f};
    const kx_pose_t moved = kx_algo_pose_move(nullptr, here, delta, 0);
    EXPECT_NEAR(moved.position.x, here.position.x + 0.01f, 1e-6);
    EXPECT_NEAR(moved.position.z, here.position.z + 0.03f, 1e-6);
    const kx_matrix_t MR = kx_algo_pos2matrix(moved);
    const Matrix expected = matrix_m(rotz(0.2f), pose_euler_to_transformation_matrix(
                                                     Pose{{}, {}, {here.euler.rx, here.euler.ry, here.euler.rz}}));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(MR.data[i][j], expected.data[i][j], 1e-5);
    const kx_quat_t qm = kx_algo_euler2quaternion(moved.euler);
    EXPECT_NEAR(moved.quaternion.w, qm.w, 1e-6);
    const kx_pose_t tool_moved = kx_algo_pose_move(nullptr, here, delta, 1);
    EXPECT_NEAR(tool_moved.position.x,
                here.position.x + H.data[0][0] * 0.01f + H.data[0][1] * 0.02f + H.data[0][2] * 0.03f, 1e-5);
    const kx_pose_t none = kx_algo_pose_move(nullptr, here, delta, 2);
    EXPECT_EQ(none.position.x, 0.0f);
    EXPECT_EQ(none.euler.rz, 0.0f);
    EXPECT_EQ(none.quaternion.w, 0.0f);

    // dPosMoveWork fills the position only.
    const Pose w = dPosMoveWork(Pose{{1, 2, 3}, {1, 0, 0, 0}, {0.1f, 0.2f, 0.3f}}, delta);
    EXPECT_EQ(w.position.x, 1.01f);
    EXPECT_EQ(w.quaternion.w, 0.0f);
    EXPECT_EQ(w.euler.rz, 0.0f);
    EXPECT_EQ(dPosMove(Pose{}, delta, 7).position.x, 0.0f);

    // Rotating about a work axis keeps the position.
    const kx_pose_t rotated = kx_algo_rotate_move(nullptr, q, 3, 0.1f, kx_pose_t{});
    const kx_pose_t fk = kx_algo_forward_kinematics(nullptr, q);
    EXPECT_NEAR(rotated.position.y, fk.position.y, 1e-6);
    const kx_matrix_t RR = kx_algo_pos2matrix(rotated);
    const Matrix expect_r = matrix_m(rotz(0.1f), pose_euler_to_transformation_matrix(
                                                     Pose{{}, {}, {fk.euler.rx, fk.euler.ry, fk.euler.rz}}));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(RR.data[i][j], expect_r.data[i][j], 1e-5);
    const kx_pose_t still = kx_algo_rotate_move(nullptr, q, 9, 0.1f, kx_pose_t{});
    EXPECT_NEAR(still.euler.rz, fk.euler.rz, 1e-6);

    const float axis[3] = {0, 0, 1};
    float qr[8] = {};
    for (int i = 0; i < 6; ++i) qr[i] = static_cast<float>(q[i] * kDeg);
    const Pose stepped = step_attitude(qr, axis, 0.1f, 0);
    EXPECT_NEAR(stepped.euler.rz, rotated.euler.rz, 1e-5);
}

// A non-finite input is refused with the function's error value instead of a
// result computed from it, and the argument is named in the log.
TEST(AlgoFacade, NonFiniteInputsAreRefused) {
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    float joint[7] = {0, 20, nan, 90, 0, 0, 0};
    EXPECT_EQ(-1, kx_algo_judgment_overpos(joint));

    kx_inverse_kinematics_params_t p{};
    p.q_in[1] = 20;
    p.q_in[3] = 90;
    p.flag = 1;
    p.q_pose = kx_algo_forward_kinematics(nullptr, p.q_in);
    float out[7] = {};
    EXPECT_EQ(0, kx_algo_inverse_kinematics(nullptr, p, out));
    kx_inverse_kinematics_params_t bad = p;
    bad.q_in[4] = nan;
    EXPECT_EQ(-1, kx_algo_inverse_kinematics(nullptr, bad, out));
    bad = p;
    bad.q_pose.position.y = std::numeric_limits<float>::infinity();
    EXPECT_EQ(-1, kx_algo_inverse_kinematics(nullptr, bad, out));

    const kx_pose_t zero{};
    const kx_pose_t fk = kx_algo_forward_kinematics(nullptr, joint);
    EXPECT_EQ(0, std::memcmp(&zero, &fk, sizeof zero));
    const kx_pose_t moved = kx_algo_cartesian_tool(nullptr, p.q_in, 0, nan, 0);
    EXPECT_EQ(0, std::memcmp(&zero, &moved, sizeof zero));
    const float delta[6] = {0, 0, 0, nan, 0, 0};
    const kx_pose_t shifted = kx_algo_pose_move(nullptr, p.q_pose, delta, 0);
    EXPECT_EQ(0, std::memcmp(&zero, &shifted, sizeof zero));
    const kx_pose_t rotated = kx_algo_rotate_move(nullptr, joint, 0, 1.0f, p.q_pose);
    EXPECT_EQ(0, std::memcmp(&zero, &rotated, sizeof zero));
}

// A setter given a non-finite value leaves the configuration as it was.
TEST(AlgoFacade, NonFiniteSettingsAreIgnored) {
    kx_algo_init_sys_data(KX_MODEL_AVEN_E, KX_FORCE_TYPE_P_E);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    kx_algo_set_angle(10, 20, 30);
    kx_algo_set_angle(10, nan, 30);
    float x, y, z;
    kx_algo_get_angle(&x, &y, &z);
    EXPECT_NEAR(20.0f, y, 1e-4);

    float lim[7] = {100, 100, 100, 100, 100, 100, 100}, got[7] = {};
    kx_algo_set_joint_max_limit(lim);
    lim[3] = nan;
    kx_algo_set_joint_max_limit(lim);
    kx_algo_set_joint_min_limit(lim);
    kx_algo_set_joint_max_speed(lim);
    kx_algo_set_joint_max_acc(lim);
    kx_algo_get_joint_max_limit(got);
    EXPECT_NEAR(100.0f, got[3], 1e-3);

    kx_frame_t tool = frame(0, 0, 0.1f, 0, 0, 0);
    kx_algo_set_toolframe(&tool);
    kx_frame_t bad = tool;
    bad.pose.position.z = nan;
    kx_algo_set_toolframe(&bad);
    kx_algo_set_workframe(&bad);
    bad = tool;
    bad.payload = std::numeric_limits<float>::infinity();
    kx_algo_set_toolframe(&bad);
    kx_frame_t now{};
    kx_algo_get_curr_toolframe(&now);
    EXPECT_FLOAT_EQ(0.1f, now.pose.position.z);
    EXPECT_FLOAT_EQ(0.0f, now.payload);

    kx_dh_t dh = kx_algo_get_dh();
    kx_dh_t spoiled = dh;
    spoiled.offset[2] = nan;
    kx_algo_set_dh(spoiled);
    const kx_dh_t after = kx_algo_get_dh();
    EXPECT_EQ(0, std::memcmp(&dh, &after, sizeof dh));
}
