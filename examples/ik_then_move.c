/*
 * Compute joint angles for a Cartesian target locally (no network traffic),
 * then move there and compare where the tool arrived.
 *
 *   ik_then_move [HOST [PORT]]
 */
#include "example_arm.h"

int main(int argc, char** argv) {
    const example_arm_t ex = example_connect(argc, argv, "[HOST [PORT]]", KX_DUAL_MODE_E);
    kx_robot_handle* arm = ex.handle;

    float ready[7];
    example_ready_pose(&ex, ready);
    example_print_joints("moving to ready", ready, ex.dof);
    CHECK(kx_movej(arm, ready, 30, 0, 0, 1));

    kx_current_arm_state_t st;
    CHECK(kx_get_current_arm_state(arm, &st));
    kx_inverse_kinematics_params_t ik;
    for (int i = 0; i < 7; ++i) ik.q_in[i] = st.joint[i];
    ik.q_pose = st.pose;
    ik.q_pose.position.y += 0.08f; /* 8 cm sideways, same orientation */
    ik.flag = 1;                   /* orientation from the Euler angles */
    printf("solving for the tool at %.4f %.4f %.4f\n", ik.q_pose.position.x, ik.q_pose.position.y,
           ik.q_pose.position.z);

    float q[7] = {0};
    CHECK(kx_algo_inverse_kinematics(arm, ik, q));
    example_print_joints("solution", q, ex.dof);

    printf("moving there\n");
    CHECK(kx_movej(arm, q, 30, 0, 0, 1));
    CHECK(kx_get_current_arm_state(arm, &st));
    const float dx = st.pose.position.x - ik.q_pose.position.x, dy = st.pose.position.y - ik.q_pose.position.y,
                dz = st.pose.position.z - ik.q_pose.position.z;
    const float miss = sqrtf(dx * dx + dy * dy + dz * dz);
    printf("tool now at %.4f %.4f %.4f, %.2f mm from the target\n", st.pose.position.x, st.pose.position.y,
           st.pose.position.z, miss * 1000.0f);
    CHECK(kx_destory());
    return miss < 0.001f ? 0 : 1;
}
