// DH parameters: "joint_k" = [alpha deg x 1000, a m x 1e6, d m x 1e6, offset deg x 1000].
#include <string>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

std::string joint_key(int i) { return "joint_" + std::to_string(i + 1); }

void get_dh(Ctx& c) {
    cJSON* r = c.answer();
    for (int i = 0; i < c.arm.dof; ++i) add_ints(r, joint_key(i).c_str(), c.arm.dh[i].data(), 4);
}

void set_dh(Ctx& c) {
    int rows[kMaxJoints][4];
    bool ok = true;
    for (int i = 0; ok && i < c.arm.dof; ++i) ok = c.get_ints(joint_key(i).c_str(), 4, rows[i]);
    if (ok) {
        for (int i = 0; i < c.arm.dof; ++i)
            for (int k = 0; k < 4; ++k) c.arm.dh[i][k] = rows[i][k];
        c.arm.apply_dh();
    }
    c.verdict("set_state", ok);
}

void set_dh_default(Ctx& c) {
    c.arm.reset_dh();
    c.verdict("set_state", true);
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["get_DH_data"] = get_dh;
    t["set_DH_data"] = set_dh;
    t["set_DH_data_default"] = set_dh_default;
}

}  // namespace

const Family dh_family{"dh", commands};

}  // namespace kxsim
