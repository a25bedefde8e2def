// The family registry: the command table, clock steps, stops and test
// hooks of every family listed in sim_families.def.
#include <algorithm>

#include "sim_family.h"

namespace kxsim {

const std::vector<const Family*>& families() {
    static const std::vector<const Family*> all = {
#define KX_SIM_FAMILY(name) &name##_family,
#include "sim_families.def"
#undef KX_SIM_FAMILY
    };
    return all;
}

const CommandTable& command_table() {
    static const CommandTable table = [] {
        CommandTable t;
        for (const Family* f : families()) f->commands(t);
        return t;
    }();
    return table;
}

void advance_families(ArmState& arm, double dt, Events& out) {
    for (const Family* f : families())
        if (f->advance) f->advance(arm, dt, out);
}

bool families_busy(const ArmState& arm) {
    return std::any_of(families().begin(), families().end(),
                       [&](const Family* f) { return f->busy && f->busy(arm); });
}

void stop_families(ArmState& arm, Events& out) {
    for (const Family* f : families())
        if (f->stop) f->stop(arm, out);
}

int apply_hook(ArmState& arm, const std::string& name, const std::vector<double>& args) {
    for (const Family* f : families())
        for (const TestHook& h : f->hooks)
            if (name == h.name) return h.apply(arm, args) ? 1 : 0;
    return -1;
}

}  // namespace kxsim
