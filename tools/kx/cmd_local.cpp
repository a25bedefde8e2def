// kx fk / kx ik: the library's kinematics for a model, with no controller.
#include <cmath>
#include <cstdio>
#include <sstream>

#include "kx.h"

namespace kx {

namespace {

const ModelInfo& load_model(const Args& a) {
    const ModelInfo* m = model_by_name(a.pos.at(0));
    if (!m) throw UsageError{fmt("unknown model \"%s\": AVEN, BRIV, CALD, DUMO, ESKA, FIRU or GOLT", a.pos[0].c_str())};
    kx_force_type_e edition = KX_FORCE_TYPE_P_E;
    const auto dash = a.pos[0].find('-');
    if (dash != std::string::npos && !edition_by_name(a.pos[0].substr(dash + 1), edition))
        throw UsageError{fmt("unknown edition in \"%s\": P, QA or QS", a.pos[0].c_str())};
    if (a.has("edition") && !edition_by_name(a.opt.at("edition"), edition))
        throw UsageError{"--edition is P, QA or QS"};
    kx_set_log_call_back(nullptr, a.verbose ? LOG_LEVEL_INFO : LOG_LEVEL_ERROR + 1);
    kx_algo_init_sys_data(m->model, edition);
    return *m;
}

void joints_of(const std::vector<double>& v, const ModelInfo& m, float* out, const char* what) {
    if (static_cast<int>(v.size()) != m.dof)
        throw UsageError{fmt("%s has %d joints: give %d %s, not %zu", m.name, m.dof, m.dof, what, v.size())};
    for (int i = 0; i < m.dof; ++i) out[i] = static_cast<float>(v[i]);
}

void print_pose(const Args& a, const ModelInfo& m, const kx_pose_t& p) {
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "model", m.name);
        cJSON_AddItemToObject(o, "pose", json_pose(p));
        const float q[4] = {p.quaternion.w, p.quaternion.x, p.quaternion.y, p.quaternion.z};
        cJSON_AddItemToObject(o, "quaternion", json_array(q, 4));
        print_json(o);
        return;
    }
    std::printf("x %.6f  y %.6f  z %.6f m   rx %.6f  ry %.6f  rz %.6f rad\n", p.position.x, p.position.y, p.position.z,
                p.euler.rx, p.euler.ry, p.euler.rz);
}

}  // namespace

int cmd_fk(const Args& a) {
    const ModelInfo& m = load_model(a);
    float q[7] = {};
    joints_of(numbers(a.pos, 1, "a joint angle"), m, q, "angles (degrees)");
    if (kx_algo_judgment_overpos(q) != 0) {
        fail(fmt("a joint is beyond the limits of %s", m.name));
        return kUsage;
    }
    print_pose(a, m, kx_algo_forward_kinematics(nullptr, q));
    return kOk;
}

int cmd_ik(const Args& a) {
    if (a.pos.size() != 7) throw UsageError{"give MODEL x y z rx ry rz --ref J1..Jn"};
    if (!a.has("ref")) throw UsageError{"give the reference joints with --ref J1..Jn (degrees)"};
    const ModelInfo& m = load_model(a);
    const std::vector<double> p = numbers(a.pos, 1, "a pose value");
    std::vector<std::string> ref_items;
    std::stringstream ss(a.opt.at("ref"));
    for (std::string item; std::getline(ss, item, ',');)
        if (!item.empty()) ref_items.push_back(item);
    kx_inverse_kinematics_params_t params{};
    joints_of(numbers(ref_items, 0, "a reference joint"), m, params.q_in, "reference angles after --ref");
    params.q_pose.position = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    params.q_pose.euler = {static_cast<float>(p[3]), static_cast<float>(p[4]), static_cast<float>(p[5])};
    params.q_pose.quaternion = kx_algo_euler2quaternion(params.q_pose.euler);
    params.flag = 1;
    float q[7] = {};
    const int rc = kx_algo_inverse_kinematics(nullptr, params, q);
    if (rc == -1) {
        fail(fmt("a reference joint is beyond the limits of %s", m.name));
        return kUsage;
    }
    if (rc != 0) {
        fail(fmt("no solution: the pose is out of reach of %s, beyond its joint limits or singular", m.name));
        return kFailed;
    }
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "model", m.name);
        cJSON_AddItemToObject(o, "joints", json_array(q, m.dof));
        print_json(o);
    } else {
        for (int i = 0; i < m.dof; ++i) std::printf("%s%.4f", i ? " " : "", q[i]);
        std::printf("\n");
    }
    return kOk;
}

}  // namespace kx
