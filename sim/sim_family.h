/*
 * Families of the simulated controller. A family lives in one file and
 * describes itself there with one Family value: the commands it answers,
 * the state it keeps (ArmState::family_state<T>()), what it does as
 * simulated time passes, whether it needs the clock, what a stop command
 * ends, and the hooks that drive it from outside (tests, kx_sim's options).
 * sim_families.def lists the families, one line each: a new family is a new
 * file and a line there.
 */
#ifndef KX_SIM_FAMILY_H
#define KX_SIM_FAMILY_H

#include <string>
#include <vector>

#include "sim_arm.h"

namespace kxsim {

/* Drives a family from outside: a name and numbers; false when they are not accepted. */
struct TestHook {
    const char* name;
    bool (*apply)(ArmState& arm, const std::vector<double>& args);
};

struct Family {
    const char* name;
    void (*commands)(CommandTable& table);                            /* adds its handlers */
    void (*advance)(ArmState& arm, double dt, Events& out) = nullptr; /* after each clock step */
    bool (*busy)(const ArmState& arm) = nullptr; /* needs the clock although no motion runs */
    void (*stop)(ArmState& arm, Events& out) = nullptr; /* a stop command ends what it runs */
    std::vector<TestHook> hooks = {};
};

#define KX_SIM_FAMILY(name) extern const Family name##_family;
#include "sim_families.def"
#undef KX_SIM_FAMILY

/* Every family, in the order of sim_families.def. */
const std::vector<const Family*>& families();

}  // namespace kxsim

#endif
