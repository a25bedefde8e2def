// Electronic fences, the active fence, the virtual wall and self-collision;
// and their enforcement: a planned motion whose tool point would leave the
// allowed side of an enabled zone is refused with the zone's error.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr size_t kMaxName = 10;
constexpr int kPathSamples = 50; /* checks along a planned path */

/* Keys of each form, in the order the geometry is kept. */
const std::vector<const char*>& keys_of(int form) {
    static const std::vector<const char*> kNone;
    static const std::vector<const char*> kCube{"x_min_limit", "x_max_limit", "y_min_limit",
                                                "y_max_limit", "z_min_limit", "z_max_limit"};
    static const std::vector<const char*> kPlane{"x1", "y1", "z1", "x2", "y2", "z2", "x3", "y3", "z3"};
    static const std::vector<const char*> kSphere{"x", "y", "z", "radius"};
    switch (form) {
    case 1: return kCube;
    case 2: return kPlane;
    case 3: return kSphere;
    default: return kNone;
    }
}

/* Reads a zone of one of the allowed forms from a request. */
bool read_zone(const cJSON* req, std::initializer_list<int> forms, bool named, Zone& z) {
    if (!get_int(req, "form", z.form) || std::find(forms.begin(), forms.end(), z.form) == forms.end()) return false;
    if (named && (!get_str(req, "form_name", z.name) || z.name.empty() || z.name.size() > kMaxName)) return false;
    z.geo.clear();
    for (const char* k : keys_of(z.form)) {
        int v = 0;
        if (!get_int(req, k, v)) return false;
        z.geo.push_back(v);
    }
    // The cube's z_min_limit arrives as the client packs it; only x and y are checked.
    if (z.form == 1) return z.geo[0] <= z.geo[1] && z.geo[2] <= z.geo[3];
    if (z.form == 3) return z.geo[3] > 0;
    return true;
}

bool zone_of(Ctx& c, std::initializer_list<int> forms, bool named, Zone& z) {
    return c.check(read_zone(c.req, forms, named, z), "the form, name or geometry is missing, mistyped or invalid");
}

void add_zone(cJSON* obj, const Zone& z, bool named) {
    add_int(obj, "form", z.form);
    if (named) add_str(obj, "form_name", z.name);
    const auto& keys = keys_of(z.form);
    for (size_t i = 0; i < keys.size(); ++i) add_int(obj, keys[i], z.geo[i]);
}

Zone* find_fence(ArmState& a, const std::string& name) {
    for (Zone& z : a.zones.fences)
        if (z.name == name) return &z;
    return nullptr;
}

void add_fence(Ctx& c) {
    Zone z;
    ZoneState& s = c.arm.zones;
    const bool ok = zone_of(c, {1, 2, 3}, true, z) && c.check(!find_fence(c.arm, z.name), "the name is taken") &&
                    c.check(s.fences.size() < static_cast<size_t>(ZoneState::kMaxFences), "ten fences are kept already");
    if (ok) s.fences.push_back(z);
    c.verdict("add_config", ok);
}

void update_fence(Ctx& c) {
    Zone z;
    Zone* old = nullptr;
    const bool ok = zone_of(c, {1, 2, 3}, true, z) && c.check((old = find_fence(c.arm, z.name)) != nullptr, "no fence of that name");
    if (ok) *old = z;
    c.verdict("update_config", ok);
}

void delete_fence(Ctx& c) {
    std::string name;
    auto& f = c.arm.zones.fences;
    const bool ok = c.get_str("form_name", name) && c.check(find_fence(c.arm, name), "no fence of that name");
    if (ok) f.erase(std::remove_if(f.begin(), f.end(), [&](const Zone& z) { return z.name == name; }), f.end());
    c.verdict("delete_config", ok);
}

void fence_names(Ctx& c) {
    cJSON* list = cJSON_CreateArray();
    for (const Zone& z : c.arm.zones.fences) cJSON_AddItemToArray(list, cJSON_CreateString(z.name.c_str()));
    cJSON_AddItemToObject(c.answer(), "name_list", list);
}

void fence_infos(Ctx& c) {
    cJSON* list = cJSON_CreateArray();
    for (const Zone& z : c.arm.zones.fences) {
        cJSON* o = cJSON_CreateObject();
        add_zone(o, z, true);
        cJSON_AddItemToArray(list, o);
    }
    cJSON_AddItemToObject(c.answer(), "info_list", list);
}

void given_fence(Ctx& c) {
    std::string name;
    const Zone* z = c.get_str("form_name", name) ? find_fence(c.arm, name) : nullptr;
    add_bool(c.answer(), "given_state", z != nullptr);
    if (z) add_zone(c.reply, *z, true);
    else c.refuse("no fence of that name");
}

/* ---- active fence, wall, switches ---- */

void set_switch(Ctx& c, ZoneSwitch ZoneState::*member) {
    ZoneSwitch s;
    const bool ok = c.get_bool("set_enable", s.enable) && c.get_int("in_out_side", s.in_out_side) &&
                    (s.in_out_side == 0 || s.in_out_side == 1) && c.get_int("effective_region", s.region) &&
                    s.region >= 0;
    if (ok) c.arm.zones.*member = s;
    c.verdict("set_state", ok);
}
void get_switch(Ctx& c, ZoneSwitch ZoneState::*member) {
    const ZoneSwitch& s = c.arm.zones.*member;
    cJSON* r = c.answer();
    add_bool(r, "enable_state", s.enable);
    add_int(r, "in_out_side", s.in_out_side);
    add_int(r, "effective_region", s.region);
}
void set_fence_enable(Ctx& c) { set_switch(c, &ZoneState::fence_on); }
void get_fence_enable(Ctx& c) { get_switch(c, &ZoneState::fence_on); }
void set_wall_enable(Ctx& c) { set_switch(c, &ZoneState::wall_on); }
void get_wall_enable(Ctx& c) { get_switch(c, &ZoneState::wall_on); }

void set_fence_config(Ctx& c) {
    Zone z;
    const bool ok = zone_of(c, {1, 2}, false, z);
    if (ok) c.arm.zones.fence = z;
    c.verdict("set_config", ok);
}
void set_wall_config(Ctx& c) {
    Zone z;
    const bool ok = zone_of(c, {1, 3}, false, z);
    if (ok) c.arm.zones.wall = z;
    c.verdict("set_config", ok);
}
/* Without a configuration the controller answers "given_state" false. */
void get_zone_config(Ctx& c, const Zone& z) {
    if (z.form == 0) return add_bool(c.answer(), "given_state", false);
    add_zone(c.answer(), z, false);
}
void get_fence_config(Ctx& c) { get_zone_config(c, c.arm.zones.fence); }
void get_wall_config(Ctx& c) { get_zone_config(c, c.arm.zones.wall); }

void set_self_collision(Ctx& c) {
    bool on = false;
    const bool ok = c.get_bool("set_enable", on);
    if (ok) c.arm.zones.self_collision = on;
    c.verdict("set_state", ok);
}
void get_self_collision(Ctx& c) { add_bool(c.answer(), "enable_state", c.arm.zones.self_collision); }

/* ---- enforcement ---- */

/* Whether p (metres) lies inside the zone; a plane's inside is the side its
 * normal (p2 - p1) x (p3 - p1) points to. */
bool inside(const Zone& z, const double p[3]) {
    double g[9] = {};
    for (size_t i = 0; i < z.geo.size() && i < 9; ++i) g[i] = z.geo[i] / 1000.0;
    switch (z.form) {
    case 1: return p[0] >= g[0] && p[0] <= g[1] && p[1] >= g[2] && p[1] <= g[3] && p[2] >= g[4] && p[2] <= g[5];
    case 2: {
        const double u[3] = {g[3] - g[0], g[4] - g[1], g[5] - g[2]}, v[3] = {g[6] - g[0], g[7] - g[1], g[8] - g[2]};
        const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
        return n[0] * (p[0] - g[0]) + n[1] * (p[1] - g[1]) + n[2] * (p[2] - g[2]) >= 0;
    }
    case 3: {
        const double d[3] = {p[0] - g[0], p[1] - g[1], p[2] - g[2]};
        return d[0] * d[0] + d[1] * d[1] + d[2] * d[2] <= g[3] * g[3];
    }
    default: return true;
    }
}

/* The joints at s in [0, 1] along the path's samples, straight between them. */
Joints sample(const std::vector<Joints>& path, double s) {
    const size_t last = path.size() - 1;
    if (last == 0) return path[0];
    const double x = s * static_cast<double>(last);
    const size_t i = std::min(static_cast<size_t>(x), last - 1);
    const double f = x - static_cast<double>(i);
    Joints j{};
    for (int n = 0; n < kMaxJoints; ++n) j[n] = path[i][n] + f * (path[i + 1][n] - path[i][n]);
    return j;
}

bool allowed(const Zone& z, const ZoneSwitch& s, const double p[3]) {
    return !s.enable || z.form == 0 || inside(z, p) == (s.in_out_side == 0);
}

}  // namespace

int ZoneState::violation(const double p[3]) const {
    if (!allowed(fence, fence_on, p)) return kFenceError;
    if (!allowed(wall, wall_on, p)) return kWallError;
    return 0;
}

bool zones_allow(Ctx& c, const Segment& seg) {
    ArmState& arm = c.arm;
    const ZoneState& z = arm.zones;
    if (seg.path.empty()) return true;
    const bool zones = (z.fence_on.enable && z.fence.form) || (z.wall_on.enable && z.wall.form);
    // An arm already folded onto itself may move out of it.
    const bool links = z.self_collision && self_collision(arm, seg.path.front()).empty();
    if (!zones && !links) return true;
    const Mat4 tool = arm.tool_in_base();
    for (int k = 1; k <= kPathSamples; ++k) {
        const Joints j = sample(seg.path, static_cast<double>(k) / kPathSamples);
        if (links) {
            const std::string why = self_collision(arm, j);
            if (!why.empty()) {
                arm.raise(kSelfCollisionError);
                return c.fail(why + ", " + std::to_string(100 * k / kPathSamples) + "% of the way");
            }
        }
        if (!zones) continue;
        // The tool point in the base frame, along the joint path.
        const Mat4 m = mul(arm.flange(j), tool);
        const double p[3] = {m[0][3], m[1][3], m[2][3]};
        if (const int err = z.violation(p)) {
            arm.raise(static_cast<ArmError>(err));
            char text[160];
            std::snprintf(text, sizeof text, "the tool point would %s at (%.3f, %.3f, %.3f) m, %d%% of the way",
                          err == kFenceError ? "leave the electronic fence's allowed side" : "cross the virtual wall",
                          p[0], p[1], p[2], 100 * k / kPathSamples);
            return c.fail(text);
        }
    }
    return true;
}

namespace {

void commands(CommandTable& t) {
    t["add_electronic_fence_config"] = add_fence;
    t["update_electronic_fence_config"] = update_fence;
    t["delete_electronic_fence_config"] = delete_fence;
    t["get_electronic_fence_list_names"] = fence_names;
    t["get_electronic_fence_list_infos"] = fence_infos;
    t["given_electronic_fence_config"] = given_fence;
    t["set_electronic_fence_enable"] = set_fence_enable;
    t["get_electronic_fence_enable"] = get_fence_enable;
    t["set_electronic_fence_config"] = set_fence_config;
    t["get_electronic_fence_config"] = get_fence_config;
    t["set_virtual_wall_enable"] = set_wall_enable;
    t["get_virtual_wall_enable"] = get_wall_enable;
    t["set_virtual_wall_config"] = set_wall_config;
    t["get_virtual_wall_config"] = get_wall_config;
    t["set_self_collision_enable"] = set_self_collision;
    t["get_self_collision_enable"] = get_self_collision;
}

}  // namespace

const Family zones_family{"zones", commands};

}  // namespace kxsim
