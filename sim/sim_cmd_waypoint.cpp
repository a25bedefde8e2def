// Global waypoints: stored by name in wire units, listed page by page
// (pages numbered from 1), usable as targets of program motion lines.
#include <algorithm>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr size_t kMaxWaypoints = 1000;
constexpr int kMaxPage = 100;

bool read_waypoint(const ArmState& a, const cJSON* req, Waypoint& w) {
    return get_str(req, "point_name", w.name) && !w.name.empty() && w.name.size() < 20 &&
           get_int_list(req, "joint", kMaxJoints, w.joint) && static_cast<int>(w.joint.size()) == a.dof &&
           get_ints(req, "pose", 6, w.pose) && get_str(req, "work_frame", w.work) &&
           get_str(req, "tool_frame", w.tool) && get_str(req, "time", w.time);
}

Waypoint* find(ArmState& a, const std::string& name) {
    for (Waypoint& w : a.waypoints)
        if (w.name == name) return &w;
    return nullptr;
}

void put(cJSON* o, const Waypoint& w) {
    add_str(o, "point_name", w.name);
    add_ints(o, "joint", w.joint);
    add_ints(o, "pose", w.pose, 6);
    add_str(o, "work_frame", w.work);
    add_str(o, "tool_frame", w.tool);
    add_str(o, "time", w.time);
}

void add_point(Ctx& c) {
    Waypoint w;
    const bool ok = read_waypoint(c.arm, c.req, w) && !find(c.arm, w.name) && c.arm.waypoints.size() < kMaxWaypoints;
    if (ok) c.arm.waypoints.push_back(w);
    c.verdict("add_state", ok);
}

void update_point(Ctx& c) {
    Waypoint w;
    Waypoint* old = c.check(read_waypoint(c.arm, c.req, w), "a waypoint member is missing, mistyped or too long")
                        ? find(c.arm, w.name)
                        : nullptr;
    if (!old && c.why.empty()) c.fail("no waypoint of that name");
    if (old) *old = w;
    c.verdict("update_state", old != nullptr);
}

void delete_point(Ctx& c) {
    std::string name;
    c.get_str("point_name", name);
    auto& v = c.arm.waypoints;
    const auto it = std::find_if(v.begin(), v.end(), [&](const Waypoint& w) { return w.name == name; });
    const bool ok = c.check(it != v.end(), "no waypoint of that name");
    if (ok) v.erase(it);
    c.verdict("delete_state", ok);
}

void given_point(Ctx& c) {
    std::string name;
    const Waypoint* w = c.get_str("point_name", name) ? find(c.arm, name) : nullptr;
    if (!w) return c.verdict("given_state", false);
    put(c.answer(), *w);
}

void list_points(Ctx& c) {
    int page = 0, size = 0;
    std::string search;
    const bool filtered = c.get_str("vague_search", search);
    if (!c.get_int("page_num", page) || !c.get_int("page_size", size) || page < 1 || size < 1 ||
        size > kMaxPage)
        return c.verdict("get_state", false);
    std::vector<const Waypoint*> hits;
    for (const Waypoint& w : c.arm.waypoints)
        if (!filtered || w.name.find(search) != std::string::npos) hits.push_back(&w);
    cJSON* r = c.answer();
    add_bool(r, "get_state", true);
    add_int(r, "total_size", static_cast<int>(hits.size()));
    cJSON* list = cJSON_AddArrayToObject(r, "list");
    for (size_t i = static_cast<size_t>(page - 1) * static_cast<size_t>(size);
         i < hits.size() && i < static_cast<size_t>(page) * static_cast<size_t>(size); ++i) {
        cJSON* o = cJSON_CreateObject();
        put(o, *hits[i]);
        cJSON_AddItemToArray(list, o);
    }
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["add_global_waypoint"] = add_point;
    t["update_global_waypoint"] = update_point;
    t["delete_global_waypoint"] = delete_point;
    t["given_global_waypoint"] = given_point;
    t["get_global_waypoints_list"] = list_points;
}

}  // namespace

const Family waypoint_family{"waypoint", commands};

}  // namespace kxsim
