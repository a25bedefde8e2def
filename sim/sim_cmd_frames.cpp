// Tool and work frames: creation (taught or entered), selection, update,
// deletion, listing, and the tool's collision envelope.
#include <cmath>
#include <utility>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr size_t kMaxFrames = 10;
constexpr size_t kMaxName = 10;
constexpr size_t kMaxBalls = 5;

bool valid_name(const std::string& n) { return !n.empty() && n.size() <= kMaxName; }

template <class F>
bool can_add(const std::vector<F>& frames, const std::string& name) {
    if (!valid_name(name) || frames.size() >= kMaxFrames) return false;
    for (const auto& f : frames)
        if (f.name == name) return false;
    return true;
}

/* What an update keeps of the frame it replaces. */
void keep_extras(ToolFrame& fresh, ToolFrame& old) { fresh.envelope = std::move(old.envelope); }
void keep_extras(WorkFrame&, WorkFrame&) {}

template <class F>
void create_frame(Ctx& c, std::vector<F>& frames, bool (*read)(const cJSON*, F&), const char* key) {
    F f;
    const bool ok = c.check(read(c.req, f), "a frame member is missing, mistyped or out of range") &&
                    c.check(can_add(frames, f.name), "the name is taken or invalid, or the list is full");
    if (ok) frames.push_back(f);
    c.verdict(key, ok);
}

template <class F>
void update_frame(Ctx& c, std::vector<F>& frames, bool (*read)(const cJSON*, F&)) {
    F f;
    F* old = c.check(read(c.req, f), "a frame member is missing, mistyped or out of range")
                 ? find_by_name(frames, f.name)
                 : nullptr;
    if (!old && c.why.empty()) c.fail("no frame named '" + f.name + "'");
    if (old) {
        keep_extras(f, *old);
        *old = std::move(f);
    }
    c.verdict("update_state", old != nullptr);
}

/* Selecting or deleting by name: the frame must exist; the active one cannot go. */
template <class F>
void change_frame(Ctx& c, std::vector<F>& frames, std::string& current, const char* name_key, const char* key) {
    std::string name;
    const bool ok = c.get_str(name_key, name) && c.check(find_by_name(frames, name), "no frame of that name");
    if (ok) current = name;
    c.verdict(key, ok);
}

template <class F>
void delete_frame(Ctx& c, std::vector<F>& frames, const std::string& current, const char* name_key, const char* key) {
    std::string name;
    F* f = c.get_str(name_key, name) && name != current ? find_by_name(frames, name) : nullptr;
    if (f) frames.erase(frames.begin() + (f - frames.data()));
    c.verdict(key, f != nullptr);
}

template <class F>
void list_frames(Ctx& c, const std::vector<F>& frames, const char* reply, const char* key) {
    cJSON* arr = cJSON_CreateArray();
    for (const auto& f : frames) cJSON_AddItemToArray(arr, cJSON_CreateString(f.name.c_str()));
    cJSON_AddItemToObject(c.answer(reply), key, arr);
}

/* ---- tool frames ---- */

bool read_tool(const cJSON* req, ToolFrame& t) {
    return get_str(req, "tool_name", t.name) && get_int(req, "payload", t.payload) && t.payload >= 0 &&
           get_ints(req, "position", 3, t.com) && get_ints(req, "tool_pose", 6, t.pose);
}

void add_tool(cJSON* r, const ToolFrame& t) {
    add_str(r, "tool_name", t.name);
    add_ints(r, "pose", t.pose, 6);
    add_int(r, "payload", t.payload);
    add_ints(r, "position", t.com, 3);
}

void auto_tool_point(Ctx& c) {
    int n = 0;
    const bool ok = c.int_in("point_num", 1, 6, n);
    if (ok) c.arm.tool_points[n] = c.arm.flange(c.arm.q);
    c.verdict("auto_tool_frame", ok);
}

/* The tool tip touched one fixed point from every taught flange pose
 * F_i: R_i t + p_i = P. Least squares for the tip offset t and P. */
bool tip_from_points(const std::map<int, Mat4>& pts, double tip[3]) {
    if (pts.size() < 3) return false;
    std::vector<std::vector<double>> N(6, std::vector<double>(6, 0));
    std::vector<double> rhs(6, 0), x;
    for (const auto& kv : pts) {
        const Mat4& F = kv.second;
        for (int r = 0; r < 3; ++r) {
            double row[6] = {F[r][0], F[r][1], F[r][2], 0, 0, 0};
            row[3 + r] = -1;
            for (int i = 0; i < 6; ++i) {
                for (int j = 0; j < 6; ++j) N[i][j] += row[i] * row[j];
                rhs[i] += row[i] * -F[r][3];
            }
        }
    }
    if (!solve_linear(N, rhs, x)) return false;
    for (int i = 0; i < 3; ++i) tip[i] = x[i];
    return true;
}

void generate_tool_frame(Ctx& c) {
    ToolFrame t;
    double tip[3];
    const bool ok = c.get_str("tool_name", t.name) && c.get_int("payload", t.payload) &&
                    c.get_ints("position", 3, t.com) && can_add(c.arm.tools, t.name) &&
                    tip_from_points(c.arm.tool_points, tip);
    if (ok) {
        for (int i = 0; i < 3; ++i) t.pose[i] = to_wire(tip[i], 1e6);
        c.arm.tools.push_back(t);
        c.arm.tool_points.clear();
    }
    c.verdict("auto_tool_frame", ok, "set_auto_tool_frame");
}

void given_tool_frame(Ctx& c) {
    std::string name;
    const ToolFrame* t = c.get_str("tool_name", name) ? find_by_name(c.arm.tools, name) : nullptr;
    if (t) add_tool(c.answer("given_tool_frame"), *t);
    else c.verdict("get_state", false);
}

void current_tool_frame(Ctx& c) { add_tool(c.answer("current_tool_frame"), *c.arm.current_tool()); }

void set_envelope(Ctx& c) {
    std::string name;
    ToolFrame* t = c.get_str("tool_name", name) ? find_by_name(c.arm.tools, name) : nullptr;
    const cJSON* list = cJSON_GetObjectItemCaseSensitive(c.req, "list");
    std::vector<Ball> balls;
    bool ok = t && cJSON_IsArray(list) && static_cast<size_t>(cJSON_GetArraySize(list)) <= kMaxBalls;
    const cJSON* items = ok ? list : nullptr;
    const cJSON* el = nullptr;
    cJSON_ArrayForEach(el, items) {
        Ball b;
        ok = ok && get_str(el, "name", b.name) && valid_name(b.name) && get_int(el, "radius", b.radius) &&
             b.radius > 0 && get_int(el, "x", b.x) && get_int(el, "y", b.y) && get_int(el, "z", b.z);
        balls.push_back(b);
    }
    if (ok) t->envelope = std::move(balls);
    c.verdict("set_state", ok);
}

void get_envelope(Ctx& c) {
    std::string name;
    const ToolFrame* t = c.get_str("tool_name", name) ? find_by_name(c.arm.tools, name) : nullptr;
    if (!t) return c.verdict("get_state", false);
    cJSON* r = c.answer();
    add_str(r, "tool_name", t->name);
    cJSON* arr = cJSON_CreateArray();
    for (const Ball& b : t->envelope) {
        cJSON* o = cJSON_CreateObject();
        add_str(o, "name", b.name);
        add_int(o, "radius", b.radius);
        add_int(o, "x", b.x);
        add_int(o, "y", b.y);
        add_int(o, "z", b.z);
        cJSON_AddItemToArray(arr, o);
    }
    cJSON_AddItemToObject(r, "list", arr);
    add_bool(r, "get_state", true);
}

/* ---- work frames ---- */

bool read_work(const cJSON* req, WorkFrame& w) {
    return get_str(req, "frame_name", w.name) && get_ints(req, "frame_pose", 6, w.pose);
}

void add_work(cJSON* r, const WorkFrame& w) {
    add_str(r, "frame_name", w.name);
    add_ints(r, "pose", w.pose, 6);
}

/* Three taught tool positions: the origin, a point on +x, a point in the
 * xy plane (+y side); the frame is made when the third arrives. */
void auto_work_frame(Ctx& c) {
    WorkFrame w;
    int n = 0;
    ArmState& a = c.arm;
    bool ok = c.get_str("frame_name", w.name) && c.int_in("point_num", 1, 3, n) &&
              can_add(a.works, w.name);
    if (ok) a.work_points[n] = mul(a.flange(a.q), a.tool_in_base());
    if (ok && n == 3) {
        ok = a.work_points.count(1) && a.work_points.count(2);
        double o[3], x[3], y[3], z[3], nx = 0, nz = 0;
        for (int i = 0; ok && i < 3; ++i) {
            o[i] = a.work_points[1][i][3];
            x[i] = a.work_points[2][i][3] - o[i];
            y[i] = a.work_points[3][i][3] - o[i];
            nx += x[i] * x[i];
        }
        if (ok) {
            z[0] = x[1] * y[2] - x[2] * y[1], z[1] = x[2] * y[0] - x[0] * y[2], z[2] = x[0] * y[1] - x[1] * y[0];
            nz = z[0] * z[0] + z[1] * z[1] + z[2] * z[2];
            ok = nx > 1e-8 && nz > 1e-12;
        }
        if (ok) {
            Mat4 m = identity();
            for (int i = 0; i < 3; ++i) {
                m[i][0] = x[i] / std::sqrt(nx);
                m[i][2] = z[i] / std::sqrt(nz);
                m[i][3] = o[i];
            }
            for (int i = 0; i < 3; ++i)  // y = z cross x
                m[i][1] = m[(i + 1) % 3][2] * m[(i + 2) % 3][0] - m[(i + 2) % 3][2] * m[(i + 1) % 3][0];
            mat_to_wire(m, w.pose);
            a.works.push_back(w);
            a.work_points.clear();
        }
    }
    c.verdict("auto_work_frame", ok);
}

void given_work_frame(Ctx& c) {
    std::string name;
    const WorkFrame* w = c.get_str("frame_name", name) ? find_by_name(c.arm.works, name) : nullptr;
    if (w) add_work(c.answer("given_work_frame"), *w);
    else c.verdict("get_state", false);
}

void current_work_frame(Ctx& c) { add_work(c.answer("current_work_frame"), *c.arm.current_work()); }

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["set_auto_tool_frame"] = auto_tool_point;
    t["generate_auto_tool_frame"] = generate_tool_frame;
    t["set_manual_tool_frame"] = [](Ctx& c) { create_frame(c, c.arm.tools, read_tool, "manual_tool_frame"); };
    t["set_change_tool_frame"] = [](Ctx& c) {
        change_frame(c, c.arm.tools, c.arm.tool_current, "tool_name", "change_tool_frame");
    };
    t["set_delete_tool_frame"] = [](Ctx& c) {
        delete_frame(c, c.arm.tools, c.arm.tool_current, "tool_name", "delete_tool_frame");
    };
    t["update_tool_frame"] = [](Ctx& c) { update_frame(c, c.arm.tools, read_tool); };
    t["get_total_tool_frame"] = [](Ctx& c) { list_frames(c, c.arm.tools, "total_tool_frame", "tool_names"); };
    t["get_tool_frame"] = given_tool_frame;
    t["get_current_tool_frame"] = current_tool_frame;
    t["set_tool_envelope"] = set_envelope;
    t["get_tool_envelope"] = get_envelope;
    t["set_auto_work_frame"] = auto_work_frame;
    t["set_manual_work_frame"] = [](Ctx& c) { create_frame(c, c.arm.works, read_work, "manual_work_frame"); };
    t["set_change_work_frame"] = [](Ctx& c) {
        change_frame(c, c.arm.works, c.arm.work_current, "frame_name", "change_work_frame");
    };
    t["set_delete_work_frame"] = [](Ctx& c) {
        delete_frame(c, c.arm.works, c.arm.work_current, "frame_name", "delete_work_frame");
    };
    t["update_work_frame"] = [](Ctx& c) { update_frame(c, c.arm.works, read_work); };
    t["get_total_work_frame"] = [](Ctx& c) { list_frames(c, c.arm.works, "total_work_frame", "frame_names"); };
    t["get_work_frame"] = given_work_frame;
    t["get_current_work_frame"] = current_work_frame;
}

}  // namespace

const Family frames_family{"frames", commands};

}  // namespace kxsim
