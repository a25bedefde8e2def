// The configuration store, the forward kinematics variants over it and the
// inverse kinematics dispatcher.
#include <gtest/gtest.h>

#include <cmath>

#include "algo_arm.h"
#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

namespace {

void expect_matrix_near(const Matrix& a, const Matrix& b, double tol) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_NEAR(a.data[i][j], b.data[i][j], tol) << i << j;
}

Matrix model_fk(int type, int sensor, const float* q) {
    algo::ArmModel m;
    EXPECT_TRUE(algo::default_model(type, sensor, &m));
    float T[4][4];
    algo::arm_fk(m, q, T);
    Matrix out{};
    out.irow = out.iline = 4;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out.data[i][j] = T[i][j];
    return out;
}

}  // namespace

TEST(AlgoStore, ModelSelectionLoadsDefaultsAndChecksEditions) {
    struct Case {
        RobotType type;
        int dof;
    } cases[] = {{AVEN, 6}, {BRIV, 7},  {CALDI, 6}, {CALDII, 6},    {CALDIII, 6}, {DUMO, 6},
                 {ESKA, 6}, {FIRU, 7},  {GOLT, 6},  {UNIVERSAL, 7}, {CALDIV, 6}};
    for (const Case& c : cases) {
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(c.type, _P), 0) << c.type;
        EXPECT_EQ(libalgo_get_robot_type(), c.type);
        EXPECT_EQ(libalgo_get_rbt_dof(), c.dof);
        EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);
        EXPECT_FLOAT_EQ(libalgo_get_control_loop_period(), 0.002f);
    }
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(ESKA, _QA), -1);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(FIRU, _QS), -1);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(static_cast<RobotType>(11), _P), -1);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(UNIVERSAL, static_cast<SensorType>(7)), 0);
    EXPECT_EQ(libalgo_set_robot_and_sensor_type(GOLT, _QS), 0);
    EXPECT_EQ(libalgo_get_sensor_type(), _QS);
    libalgo_init();
    EXPECT_EQ(libalgo_get_robot_type(), AVEN);
    EXPECT_EQ(libalgo_get_sensor_type(), _P);
}

TEST(AlgoStore, SettersKeepTheirDocumentedRules) {
    libalgo_init();
    EXPECT_EQ(libalgo_set_safety_level(3), 0);
    EXPECT_EQ(libalgo_set_safety_level(9), -1);
    EXPECT_EQ(libalgo_get_safety_level(), 3);
    EXPECT_EQ(libalgo_set_system_all_dof(5), -1);
    EXPECT_EQ(libalgo_set_system_all_dof(8), 0);
    EXPECT_EQ(libalgo_get_system_all_dof(), 8);

    const float neg[8] = {-2, -1, -3, -1, -1, -1, -1, -1};
    libalgo_set_joint_direction(neg);
    const float mixed[8] = {0, 5, 0, -0.5f, 0, 2, 0, 0};
    libalgo_set_joint_direction(mixed);
    float dir[8];
    libalgo_get_joint_direction(dir);
    const float expect[6] = {-1, 1, -1, -1, -1, 1};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(dir[i], expect[i]) << i;

    // Modelling limits are in the solvers' coordinates: limit + DH offset.
    float hi[8], mhi[8], lo[8], mlo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    libalgo_get_modeling_jointlim_max(mhi);
    libalgo_get_modeling_jointlim_min(mlo);
    const DH dh = libalgo_get_dh_value();
    for (int i = 0; i < 6; ++i) {
        EXPECT_FLOAT_EQ(mhi[i], hi[i] + dh.offset[i]);
        EXPECT_FLOAT_EQ(mlo[i], lo[i] + dh.offset[i]);
    }

    // DH: the default check tolerates 1e-10 only; compensation is separate.
    DH changed = dh;
    changed.d[0] += 1e-6f;
    changed.err_d[0] = 0.5f;
    libalgo_set_dh_params(changed);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 0);
    EXPECT_EQ(libalgo_get_dh_value().err_d[0], 0.0f);
    libalgo_set_dh_compensation_value(changed);
    EXPECT_EQ(libalgo_get_dh_compensation_value().err_d[0], 0.5f);
    libalgo_set_dh_params(dh);
    EXPECT_EQ(libalgo_check_dh_params_is_default(), 1);

    // Install angle: matrix Rz·Ry·Rx and gravity seen from the base.
    const float angle[3] = {0.0f, 1.5707963f, 0.0f};
    libalgo_set_robot_install_angle(angle);
    float g[3];
    libalgo_get_gravity_vector(g);
    EXPECT_NEAR(g[0], 9.81f, 1e-5);
    EXPECT_NEAR(g[2], 0.0f, 1e-5);
    const Matrix inst = libalgo_get_robot_install_angle_matrix();
    EXPECT_NEAR(inst.data[0][2], 1.0f, 1e-6);
    EXPECT_EQ(inst.data[3][3], 1.0f);

    // Frames rebuild their matrices.
    libalgo_set_tool_cs_params(Coord{0.1f, 0.2f, 0.3f, 0.0f, 0.0f, 1.0f});
    const Matrix tool = libalgo_get_tool_cs_matrix();
    EXPECT_EQ(tool.irow, 4);
    EXPECT_FLOAT_EQ(tool.data[2][3], 0.3f);
    EXPECT_NEAR(tool.data[1][0], std::sin(1.0f), 1e-6);
    EXPECT_EQ(libalgo_get_tool_cs_params().rz, 1.0f);

    // A new model selection zeroes everything set before.
    libalgo_set_robot_and_sensor_type(AVEN, _P);
    EXPECT_EQ(libalgo_get_safety_level(), 0);
    EXPECT_EQ(libalgo_get_tool_cs_params().x, 0.0f);
    expect_matrix_near(libalgo_get_tool_cs_matrix(), rotx(0.0f), 0);
}

TEST(AlgoStore, ForwardKinematicsVariantsComposeInstallToolAndWork) {
    const float q[8] = {0.3f, -0.4f, 0.5f, 0.6f, -0.7f, 0.8f, 0.2f, 0};
    for (RobotType t : {AVEN, BRIV, CALDI, CALDII, CALDIII, DUMO, ESKA, FIRU, GOLT, UNIVERSAL, CALDIV}) {
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(t, _P), 0);
        // Every model's flange is its modified-DH chain (CALDI included).
        expect_matrix_near(forward_kinematics_e(q), model_fk(t, _P, q), 1e-6);
    }
    libalgo_set_robot_and_sensor_type(GOLT, _QA);
    const Matrix F = forward_kinematics_e(q);
    expect_matrix_near(F, model_fk(GOLT, _QA, q), 1e-6);
    const float angle[3] = {0.1f, 0.2f, 0.3f};
    libalgo_set_robot_install_angle(angle);
    libalgo_set_tool_cs_params(Coord{0.01f, 0.02f, 0.1f, 0.1f, 0.0f, 0.2f});
    libalgo_set_work_cs_params(Coord{0.5f, -0.1f, 0.0f, 0.0f, 0.3f, 0.0f});
    const Matrix I = libalgo_get_robot_install_angle_matrix(), T = libalgo_get_tool_cs_matrix();
    const Matrix W = libalgo_get_work_cs_to_base_matrix();
    const Matrix unity = matrix_m(matrix_m(I, F), T);
    expect_matrix_near(forward_kinematics_for_unity(q), unity, 1e-6);
    expect_matrix_near(forward_kinematics_rotate(q), unity, 1e-6);
    expect_matrix_near(forward_kinematics_rotate_flange(q), matrix_m(I, F), 1e-6);
    expect_matrix_near(forward_kinematics_world_to_flange(q), matrix_m(W, matrix_m(I, F)), 1e-6);
    expect_matrix_near(forward_kinematics_pos(q), matrix_m(F, T), 1e-6);
    const Pose p = forward_kinematics(q);
    const Matrix WU = matrix_m(W, unity);
    EXPECT_NEAR(p.position.x, WU.data[0][3], 1e-6);
    EXPECT_NEAR(p.position.z, WU.data[2][3], 1e-6);
    expect_matrix_near(pose_quat_to_transformation_matrix(p), WU, 1e-5);
    expect_matrix_near(pose_euler_to_transformation_matrix(p), WU, 1e-5);
    // A null joint vector is the zero configuration.
    const float zero[8] = {};
    expect_matrix_near(forward_kinematics_e(nullptr), forward_kinematics_e(zero), 0);
    // Calibration adds the compensation values to the nominal table.
    DH comp{};
    comp.err_d[0] = 0.01f;
    libalgo_set_dh_compensation_value(comp);
    EXPECT_NEAR(forward_kinematics_pos_calibration(q).data[2][3], F.data[2][3] + 0.01f, 1e-6);
}

TEST(AlgoStore, InverseKinematicsRoundTripsThroughInstallToolAndWork) {
    const float q[8] = {0.3f, -0.4f, 0.5f, 0.6f, -0.7f, 0.8f, 0.2f, 0};
    for (RobotType t : {AVEN, BRIV, CALDII, CALDIII, DUMO, ESKA, FIRU, GOLT, CALDIV}) {
        ASSERT_EQ(libalgo_set_robot_and_sensor_type(t, _P), 0);
        const float angle[3] = {0.1f, 0.2f, 0.3f};
        libalgo_set_robot_install_angle(angle);
        libalgo_set_tool_cs_params(Coord{0.01f, 0.02f, 0.1f, 0.1f, 0.0f, 0.2f});
        libalgo_set_work_cs_params(Coord{0.5f, -0.1f, 0.0f, 0.0f, 0.3f, 0.0f});
        const Pose target = forward_kinematics(q);
        float ref[8], out[8] = {};
        for (int i = 0; i < 8; ++i) ref[i] = q[i] + 0.05f;
        for (uint8_t flag : {1, 2}) {
            ASSERT_EQ(inverse_kinematics(ref, &target, out, flag), 0) << t;
            const Pose got = forward_kinematics(out);
            EXPECT_NEAR(got.position.x, target.position.x, 1e-5);
            EXPECT_NEAR(got.position.y, target.position.y, 1e-5);
            EXPECT_NEAR(got.position.z, target.position.z, 1e-5);
            expect_matrix_near(pose_quat_to_transformation_matrix(got), pose_quat_to_transformation_matrix(target),
                               1e-4);
        }
    }
    EXPECT_EQ(inverse_kinematics(nullptr, nullptr, nullptr, 1), -1);
}

TEST(AlgoStore, DispatcherGapsAndLastJointWrapTolerance) {
    const float q[8] = {0.3f, -0.4f, 0.5f, 0.6f, -0.7f, 3.15f, 0.2f, 0};
    float out[8];
    for (RobotType t : {CALDI, UNIVERSAL}) {
        libalgo_set_robot_and_sensor_type(t, _P);
        const Pose target = forward_kinematics(q);
        EXPECT_EQ(inverse_kinematics(q, &target, out, 1), -4);
    }
    // With joint 6 allowed over +-4 pi, its solution 3.15 also has the
    // equivalent 3.15 + 2 pi in range, and a reference of 6.283185 is nearer
    // the first while one of 6.33 is nearer the second.
    libalgo_set_robot_and_sensor_type(AVEN, _P);
    float hi[8], lo[8];
    libalgo_get_jointlim_max(hi);
    libalgo_get_jointlim_min(lo);
    hi[5] = 12.5f;
    lo[5] = -12.5f;
    libalgo_set_jointlim_max(hi);
    libalgo_set_jointlim_min(lo);
    const Pose target = forward_kinematics(q);
    float ref[8];
    std::copy(q, q + 8, ref);
    ref[5] = 6.30f;  // within 2 degrees past a turn: treated as 6.283185
    ASSERT_EQ(inverse_kinematics(ref, &target, out, 1), 0);
    EXPECT_NEAR(out[5], 3.15f, 1e-4);
    ref[5] = 6.33f;  // beyond: left alone
    ASSERT_EQ(inverse_kinematics(ref, &target, out, 1), 0);
    EXPECT_NEAR(out[5], 3.15f + 6.2831853f, 1e-4);
    // The negative side mirrors it, with the solution at -3.15.
    float qn[8];
    std::copy(q, q + 8, qn);
    qn[5] = -3.15f;
    const Pose mirrored = forward_kinematics(qn);
    ref[5] = -6.30f;
    ASSERT_EQ(inverse_kinematics(ref, &mirrored, out, 1), 0);
    EXPECT_NEAR(out[5], -3.15f, 1e-4);
    ref[5] = -6.33f;
    ASSERT_EQ(inverse_kinematics(ref, &mirrored, out, 1), 0);
    EXPECT_NEAR(out[5], -3.15f - 6.2831853f, 1e-4);
}

TEST(AlgoStore, SearchSettingsAndOverspeedJudgment) {
    ikine_set_7dof_solver_search_strategy(0);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 3.14f);
    ikine_set_7dof_solver_search_strategy(1);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 0.013f);
    ikine_set_solution_range_briv(1.5f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 0);
    ikine_set_solution_range_briv(1.0f);
    EXPECT_EQ(ikine_get_7dof_solver_search_strategy(), 1);
    // The settings outlive a model selection.
    libalgo_set_robot_and_sensor_type(BRIV, _P);
    EXPECT_FLOAT_EQ(ikine_get_solution_range_briv(), 1.0f);

    libalgo_set_robot_and_sensor_type(AVEN, _P);
    float v[8];
    libalgo_get_joint_vel_maxlim(v);
    const float step = v[1] * 0.002f;
    const float cur[8] = {};
    float next[8] = {};
    EXPECT_EQ(joint_overspeed_judgment(cur, next, 1.0f), 0);
    next[1] = step * 0.99f;
    EXPECT_EQ(joint_overspeed_judgment(cur, next, 1.0f), 0);
    next[1] = step * 1.01f;
    EXPECT_EQ(joint_overspeed_judgment(cur, next, 1.0f), 2);
    EXPECT_EQ(joint_overspeed_judgment(cur, next, 2.0f), 0);
    // A negative factor allows no motion at all.
    next[1] = 0;
    next[0] = 1e-6f;
    EXPECT_EQ(joint_overspeed_judgment(cur, next, -1.0f), 1);
}
