/* Electronic fences, the virtual wall and self-collision against the
 * simulated controller: the form-dependent key sets and their thousandths,
 * storage by name, hostile replies, and enforcement of the wall on moves. */
#include <cstring>

#include "test_periph_fixture.h"

using namespace cmdtest;

namespace {

kx_fence_config_t cube(const char* name, float x0, float x1, float y0, float y1, float z0, float z1) {
    kx_fence_config_t c{};
    c.form = KX_FENCE_FORM_CUBE_E;
    std::strncpy(c.name, name, sizeof c.name);
    c.cube = {x0, x1, y0, y1, z0, z1};
    return c;
}

kx_fence_config_t sphere(const char* name, float x, float y, float z, float r) {
    kx_fence_config_t c{};
    c.form = KX_FENCE_FORM_SPHERE_E;
    std::strncpy(c.name, name, sizeof c.name);
    c.sphere = {x, y, z, r};
    return c;
}

kx_fence_config_t plane(const char* name) {
    kx_fence_config_t c{};
    c.form = KX_FENCE_FORM_PLANE_E;
    std::strncpy(c.name, name, sizeof c.name);
    c.plan = {0.0015f, -0.0015f, 0, 1, 0, 0, 0, 1, 0.25f};
    return c;
}

using Zones = PeriphFixture;

}  // namespace

TEST_F(Zones, FencesStoredByName) {
    start();
    ASSERT_EQ(0, kx_add_electronic_fence_config(h(), cube("box", -0.2f, 0.5f, -0.3f, 0.3f, 0.1f, 0.8f)));
    /* "z_min_limit" carries x_min_limit, as the controller expects. */
    EXPECT_EQ(R"({"command":"add_electronic_fence_config","form":1,"form_name":"box","x_max_limit":500,)"
              R"("x_min_limit":-200,"y_max_limit":300,"y_min_limit":-300,"z_max_limit":800,"z_min_limit":-200})",
              last("add_electronic_fence_config"));
    ASSERT_EQ(0, kx_add_electronic_fence_config(h(), plane("floor")));
    EXPECT_EQ(R"({"command":"add_electronic_fence_config","form":2,"form_name":"floor","x1":1,"y1":-1,"z1":0,)"
              R"("x2":1000,"y2":0,"z2":0,"x3":0,"y3":1000,"z3":250})",
              last("add_electronic_fence_config"));
    ASSERT_EQ(0, kx_add_electronic_fence_config(h(), sphere("ball", 0.1f, 0.2f, 0.3f, 0.05f)));
    EXPECT_EQ(R"({"command":"add_electronic_fence_config","form":3,"form_name":"ball","radius":50,"x":100,"y":200,"z":300})",
              last("add_electronic_fence_config"));
    EXPECT_EQ(1, kx_add_electronic_fence_config(h(), sphere("ball", 0, 0, 0, 0.1f))); /* name taken */

    kx_fence_names_t names[10];
    int len = -1;
    ASSERT_EQ(0, kx_get_electronic_fence_list_names(h(), names, &len));
    ASSERT_EQ(3, len);
    EXPECT_STREQ("floor", names[1].name);

    kx_fence_config_t got{};
    ASSERT_EQ(0, kx_get_given_electronic_fence_config(h(), "ball", &got));
    EXPECT_EQ(R"({"command":"given_electronic_fence_config","form_name":"ball"})",
              last("given_electronic_fence_config"));
    EXPECT_EQ(3, got.form);
    EXPECT_STREQ("ball", got.name);
    EXPECT_FLOAT_EQ(0.05f, got.sphere.radius);
    EXPECT_FLOAT_EQ(0.2f, got.sphere.y);
    clear_log();
    EXPECT_EQ(1, kx_get_given_electronic_fence_config(h(), "none", &got));
    EXPECT_TRUE(logged("The given electronic fence name does not exist!\n"));

    ASSERT_EQ(0, kx_update_electronic_fence_config(h(), sphere("ball", 0, 0, 0.4f, 0.1f)));
    EXPECT_EQ(R"({"command":"update_electronic_fence_config","form":3,"form_name":"ball","radius":100,"x":0,"y":0,"z":400})",
              last("update_electronic_fence_config"));
    EXPECT_EQ(1, kx_update_electronic_fence_config(h(), sphere("nothing", 0, 0, 0, 0.1f)));

    kx_fence_config_list_t list{};
    ASSERT_EQ(0, kx_get_electronic_fence_list_infos(h(), &list, &len));
    ASSERT_EQ(3, len);
    EXPECT_FLOAT_EQ(-0.2f, list.config[0].cube.z_min_limit); /* as it was sent */
    EXPECT_FLOAT_EQ(0.8f, list.config[0].cube.z_max_limit);
    EXPECT_FLOAT_EQ(0.25f, list.config[1].plan.z3);
    EXPECT_FLOAT_EQ(0.4f, list.config[2].sphere.z);

    ASSERT_EQ(0, kx_delete_electronic_fence_config(h(), "floor"));
    EXPECT_EQ(R"({"command":"delete_electronic_fence_config","form_name":"floor"})",
              last("delete_electronic_fence_config"));
    EXPECT_EQ(1, kx_delete_electronic_fence_config(h(), "floor"));
    ASSERT_EQ(0, kx_get_electronic_fence_list_names(h(), names, &len));
    EXPECT_EQ(2, len);

    /* A form the controller does not know is not sent. */
    sim->clear_received(0);
    clear_log();
    kx_fence_config_t bad = cube("bad", 0, 1, 0, 1, 0, 1);
    bad.form = 4;
    EXPECT_EQ(-4, kx_add_electronic_fence_config(h(), bad));
    EXPECT_EQ(-4, kx_update_electronic_fence_config(h(), bad));
    EXPECT_TRUE(logged("Configuration error for the form of the newly added electronic fence! Wrong form: 4\n"));
    EXPECT_TRUE(requests("add_electronic_fence_config").empty() && requests("update_electronic_fence_config").empty());

    /* A coordinate that is not a finite number is never sent. */
    kx_fence_config_t nan_box = cube("nan", 0, 1, 0, 1, 0, 1);
    nan_box.cube.y_max_limit = __builtin_nanf("");
    EXPECT_EQ(-1, kx_add_electronic_fence_config(h(), nan_box));
    EXPECT_TRUE(logged("[kx_add_electronic_fence_config] y_max_limit is not a finite number\n"));
    kx_fence_config_t inf_ball = sphere("", 0, 0, 0, __builtin_inff());
    EXPECT_EQ(-1, kx_set_virtual_wall_config(h(), inf_ball));
    EXPECT_TRUE(requests("add_electronic_fence_config").empty() && requests("set_virtual_wall_config").empty());
}

TEST_F(Zones, ActiveFenceWallAndSwitches) {
    start();
    kx_fence_config_t got{};
    EXPECT_EQ(1, kx_get_electronic_fence_config(h(), &got)); /* none set yet */
    ASSERT_EQ(0, kx_set_electronic_fence_config(h(), cube("", 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f)));
    EXPECT_EQ(R"({"command":"set_electronic_fence_config","form":1,"x_max_limit":200,"x_min_limit":100,)"
              R"("y_max_limit":400,"y_min_limit":300,"z_max_limit":600,"z_min_limit":100})",
              last("set_electronic_fence_config"));
    ASSERT_EQ(0, kx_get_electronic_fence_config(h(), &got));
    EXPECT_EQ(1, got.form);
    EXPECT_FLOAT_EQ(0.4f, got.cube.y_max_limit);
    ASSERT_EQ(0, kx_set_electronic_fence_config(h(), plane("")));
    ASSERT_EQ(0, kx_get_electronic_fence_config(h(), &got));
    EXPECT_FLOAT_EQ(0.001f, got.plan.x1);
    clear_log();
    sim->clear_received(0);
    EXPECT_EQ(-4, kx_set_electronic_fence_config(h(), sphere("", 0, 0, 0, 1)));
    EXPECT_TRUE(logged("electronic fence form check err!!"));
    EXPECT_TRUE(requests("set_electronic_fence_config").empty());

    ASSERT_EQ(0, kx_set_virtual_wall_config(h(), sphere("", 0, 0, 0.3f, 0.7f)));
    EXPECT_EQ(R"({"command":"set_virtual_wall_config","form":3,"radius":700,"x":0,"y":0,"z":300})",
              last("set_virtual_wall_config"));
    ASSERT_EQ(0, kx_get_virtual_wall_config(h(), &got));
    EXPECT_EQ(3, got.form);
    EXPECT_FLOAT_EQ(0.7f, got.sphere.radius);
    clear_log();
    EXPECT_EQ(1, kx_set_virtual_wall_config(h(), plane("")));
    EXPECT_TRUE(logged("virtual wall form check err!\n"));
    EXPECT_EQ(R"({"command":"set_virtual_wall_config","form":2})", last("set_virtual_wall_config"));

    kx_electronic_fence_enable_t on{true, 1, 2}, st{};
    ASSERT_EQ(0, kx_set_electronic_fence_enable(h(), on));
    EXPECT_EQ(R"({"command":"set_electronic_fence_enable","set_enable":true,"in_out_side":1,"effective_region":2})",
              last("set_electronic_fence_enable"));
    ASSERT_EQ(0, kx_get_electronic_fence_enable(h(), &st));
    EXPECT_TRUE(st.enable_state);
    EXPECT_EQ(1, st.in_out_side);
    EXPECT_EQ(2, st.effective_region);
    ASSERT_EQ(0, kx_set_virtual_wall_enable(h(), {false, 0, 0}));
    EXPECT_EQ(R"({"command":"set_virtual_wall_enable","set_enable":false,"in_out_side":0,"effective_region":0})",
              last("set_virtual_wall_enable"));
    st.enable_state = true;
    ASSERT_EQ(0, kx_get_virtual_wall_enable(h(), &st));
    EXPECT_FALSE(st.enable_state);

    bool sc = false;
    ASSERT_EQ(0, kx_set_self_collision_enable(h(), true));
    EXPECT_EQ(R"({"command":"set_self_collision_enable","set_enable":true})", last("set_self_collision_enable"));
    ASSERT_EQ(0, kx_get_self_collision_enable(h(), &sc));
    EXPECT_TRUE(sc);
    EXPECT_EQ(-1, kx_get_self_collision_enable(h(), nullptr));
}

TEST_F(Zones, HostileReplies) {
    start();
    /* A twelve-character name fills its field without a terminator. */
    kx_fence_names_t names[10];
    std::memset(names, 'x', sizeof names);
    int len = 0;
    reply("get_electronic_fence_list_names",
          R"({"command":"get_electronic_fence_list_names","name_list":["abcdefghijkl","a","b","c","d","e","f","g","h","i","j","k"]})");
    ASSERT_EQ(0, kx_get_electronic_fence_list_names(h(), names, &len));
    EXPECT_EQ(10, len); /* bounded by the caller's ten entries */
    EXPECT_EQ(0, std::memcmp(names[0].name, "abcdefghijkl", 12));
    clear_log();
    reply("get_electronic_fence_list_names", R"({"command":"get_electronic_fence_list_names","name_list":"x"})");
    EXPECT_EQ(-3, kx_get_electronic_fence_list_names(h(), names, &len));
    EXPECT_TRUE(logged("Get fence list names parse err\n"));

    kx_fence_config_t got{};
    reply("given_electronic_fence_config",
          R"({"command":"given_electronic_fence_config","form":1,"form_name":"a_very_long_name","x_min_limit":1})");
    EXPECT_EQ(-3, kx_get_given_electronic_fence_config(h(), "a", &got));
    EXPECT_STREQ("a_very_lon", got.name); /* ten characters kept */
    reply("get_virtual_wall_config", R"({"command":"get_virtual_wall_config","given_state":true})");
    EXPECT_EQ(-3, kx_get_virtual_wall_config(h(), &got));
    reply("get_virtual_wall_config", R"({"command":"get_virtual_wall_config","form":2,"x1":5})");
    EXPECT_EQ(0, kx_get_virtual_wall_config(h(), &got)); /* no geometry for a plane wall */
    EXPECT_EQ(2, got.form);
    reply("get_electronic_fence_enable", R"({"command":"get_electronic_fence_enable","enable_state":true})");
    kx_electronic_fence_enable_t st{};
    EXPECT_EQ(-3, kx_get_electronic_fence_enable(h(), &st));
    reply("set_electronic_fence_config", R"({"command":"set_electronic_fence_config","set_state":true})");
    EXPECT_EQ(-3, kx_set_electronic_fence_config(h(), plane("")));
}

TEST(FenceConversions, ListInfoDecoding) {
    kx_fence_config_list_t list;
    std::memset(&list, 0x7f, sizeof list);
    int len = -1;
    /* Thousandths back to metres; the second entry lacks a key and ends the
     * decode with the first one filled. */
    const char* msg =
        R"({"info_list":[{"form_name":"s","form":3,"x":-1,"y":2,"z":3,"radius":1500},)"
        R"({"form_name":"c","form":1,"x_min_limit":1,"x_max_limit":2},{"form_name":"p","form":2}]})";
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info(msg, &list, &len));
    EXPECT_EQ(3, len);
    EXPECT_FLOAT_EQ(-0.001f, list.config[0].sphere.x);
    EXPECT_FLOAT_EQ(1.5f, list.config[0].sphere.radius);
    EXPECT_STREQ("s", list.config[0].name);
    EXPECT_FLOAT_EQ(0.002f, list.config[1].cube.x_max_limit);

    /* An unknown form reads no geometry; a name that is not a string fails. */
    EXPECT_EQ(0, Parser_Get_Electronic_Fence_List_Info(R"({"info_list":[{"form_name":"u","form":9}]})", &list, &len));
    EXPECT_EQ(9, list.config[0].form);
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info(R"({"info_list":[{"form_name":1,"form":1}]})", &list, &len));
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info("not json", &list, &len));
    EXPECT_EQ(-3, Parser_Get_Electronic_Fence_List_Info(R"({"info_list":{}})", &list, &len));
}

TEST_F(Zones, WallStopsAMove) {
    start();
    const float home[7] = {0, 0, 0, 0, 0, 0, 0};
    const float far[7] = {60, -20, 30, 5, 45, -15, 0};
    const float near[7] = {1, 0, 0, 0, 0, 0, 0};
    kx_pose_t p = kx_algo_forward_kinematics(h(), home);
    /* A ball of 10 cm around the tool: a small turn stays inside, a large one leaves. */
    ASSERT_EQ(0, kx_set_virtual_wall_config(h(), sphere("", p.position.x, p.position.y, p.position.z, 0.1f)));
    ASSERT_EQ(0, kx_set_virtual_wall_enable(h(), {true, 0, 0}));
    EXPECT_EQ(1, kx_movej(h(), far, 50, 0, 0, 1));
    kx_current_arm_state_t st{};
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_GE(st.err.err_len, 1);
    EXPECT_NE(0, st.err.err[0]);
    ASSERT_EQ(0, kx_clear_system_err(h()));
    ASSERT_EQ(0, kx_get_current_arm_state(h(), &st));
    EXPECT_EQ(0, st.err.err[0]);
    EXPECT_EQ(0, kx_movej(h(), near, 50, 0, 0, 1));

    /* Switched off, the wall no longer stops anything. */
    ASSERT_EQ(0, kx_set_virtual_wall_enable(h(), {false, 0, 0}));
    EXPECT_EQ(0, kx_movej(h(), far, 50, 0, 0, 1));
}
