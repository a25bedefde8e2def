// The family registry: the command table, clock steps, stops and test
// hooks of every family listed in sim_families.def.
#include <algorithm>

#include "sim_family.h"

namespace kxsim {

// The registry and the command table are never destroyed: the simulator's
// threads may still read them while a process ends by exit() (a death test, a
// library call that exits), after static destructors have run.
const std::vector<const Family*>& families() {
    static const auto& all = *new const std::vector<const Family*>{
#define KX_SIM_FAMILY(name) &name##_family,
#include "sim_families.def"
#undef KX_SIM_FAMILY
    };
    return all;
}

const CommandTable& command_table() {
    static const auto& table = *new const CommandTable([] {
        CommandTable t;
        for (const Family* f : families()) f->commands(t);
        return t;
    }());
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
