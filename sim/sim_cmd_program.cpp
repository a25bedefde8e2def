// Programs: uploads (announced by "run_project" and sent raw, or sent as
// loose lines without announcement), their check, the program library, and
// running a program line by line in simulated time with step mode, pause,
// continue and stop, ending with "program_run_finish".
//
// A program is a header ({"file":dof} then folder lines {"name":...}) and a
// body of point lines {"point":[joints x 1000]} and motion command lines
// (movej, movej_p, movel, moves, movec; movej may name a global waypoint
// with "point_name" instead of "joint"). A bad line is refused with its
// 1-based line number in the file.
#include <algorithm>
#include <memory>

#include "sim_family.h"
#include "sim_json.h"

namespace kxsim {
namespace {

constexpr long kMaxProgramBytes = 1 << 20;
constexpr int kMaxPage = 100;

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
Json parse(const std::string& s) { return Json(cJSON_ParseWithLength(s.data(), s.size()), cJSON_Delete); }

double cycle_of(const ArmState& a) { return std::max(1, a.push.cycle) / 1000.0; }

bool is_motion(const std::string& cmd) {
    for (const char* m : {"movej", "movej_p", "movel", "moves", "movec"})
        if (cmd == m) return true;
    return false;
}

bool valid_body_line(const ArmState& a, const cJSON* o) {
    int w[7], v = 0;
    const size_t dof = static_cast<size_t>(a.dof);
    if (cJSON_GetObjectItemCaseSensitive(o, "point")) {
        if (!get_ints(o, "point", dof, w)) return false;
        Joints j{};
        for (int i = 0; i < a.dof; ++i) j[i] = w[i] / 1000.0;
        return a.within_limits(j);
    }
    std::string cmd, name;
    if (!get_str(o, "command", cmd) || !is_motion(cmd) || !get_int(o, "v", v) || v < 1 || v > 100) return false;
    if (cmd == "movej") return get_ints(o, "joint", dof, w) || get_str(o, "point_name", name);
    if (cmd == "movec") {
        const cJSON* p = cJSON_GetObjectItemCaseSensitive(o, "pose");
        return cJSON_IsObject(p) && get_ints(p, "pose_via", 6, w) && get_ints(p, "pose_to", 6, w);
    }
    return get_ints(o, "pose", 6, w) || get_ints(o, "pose_quat", 7, w);
}

/* 0 when the text is a program for this arm (body lines into `out`), else
 * the number of the first bad line. */
int check(const ArmState& a, const std::string& text, Program& out) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    if (lines.empty()) return 1;
    out.lines.clear();
    for (size_t i = 0; i < lines.size(); ++i) {
        const int number = static_cast<int>(i) + 1;
        Json o = parse(lines[i]);
        if (!cJSON_IsObject(o.get())) return number;
        int file = 0;
        std::string folder;
        if (i == 0) {
            if (!get_int(o.get(), "file", file) || file != a.dof) return number;
        } else if (get_str(o.get(), "name", folder)) {
            continue; /* a folder line */
        } else if (!valid_body_line(a, o.get())) {
            return number;
        } else {
            out.lines.push_back(lines[i]);
        }
    }
    return out.lines.empty() ? static_cast<int>(lines.size()) + 1 : 0;
}

std::string ack(int err_line) {
    cJSON* o = cJSON_CreateObject();
    add_str(o, "command", "download_project");
    add_bool(o, "project_state", err_line == 0);
    if (err_line != 0) add_int(o, "err_line", err_line);
    return print_and_delete(o);
}

void start_run(ArmState& a, const Program& prog, int id, bool step) {
    ProgramState& p = a.program;
    p.run = prog;
    p.run_id = id;
    p.next = 0;
    p.step_mode = step;
    p.line_busy = false;
    p.run_state = 1;
    a.paused = false;
}

/* The upload is complete: check, store and/or run, and acknowledge. */
std::string finish_upload(ArmState& a, Events& out) {
    ProgramState& p = a.program;
    p.last_upload = p.upload;
    Program prog;
    const int err = check(a, p.upload, prog);
    if (err != 0) out.push_back({"download_project refused: line " + std::to_string(err) + " of the program is not a "
                                 "valid line for this arm", false, true});
    p.upload.clear();
    p.upload_left = -1;
    if (err == 0) {
        prog.name = p.upload_name;
        prog.speed = p.upload_speed;
        prog.size = static_cast<int>(p.last_upload.size());
        int id = p.upload_id;
        if (p.upload_only_save && id <= 0) {
            id = 1;
            while (p.library.count(id)) ++id;
        }
        if (id > 0) p.library[id] = prog;
        if (!p.upload_only_save && a.can_move()) start_run(a, prog, id, p.upload_step != 0);
    }
    return ack(err);
}

void run_project(Ctx& c) {
    ProgramState& p = c.arm.program;
    int size = -1;
    std::string name;
    const bool ok = c.get_str("project_name", name) && !name.empty() && c.get_int("file_size", size) &&
                    size >= 0 && size <= kMaxProgramBytes && c.get_int("plan_speed", p.upload_speed) &&
                    c.get_int("step_flag", p.upload_step) && c.get_int("only_save", p.upload_only_save) &&
                    c.get_int("save_id", p.upload_id) && p.run_state == 0 && p.upload_left < 0;
    c.verdict("project_state", ok);
    if (!ok) return;
    p.upload_name = name;
    p.upload.clear();
    p.upload_left = size;
    if (size == 0) c.events.push_back({finish_upload(c.arm, c.events), false});
}

/* Consecutive point lines from `from` run as one path at the record rate. */
bool plan_points(const ArmState& a, size_t from, size_t& to, Segment& seg) {
    const std::vector<std::string>& lines = a.program.run.lines;
    seg.path.clear();
    for (to = from; to < lines.size(); ++to) {
        Json o = parse(lines[to]);
        int w[7];
        if (!get_ints(o.get(), "point", static_cast<size_t>(a.dof), w)) break;
        Joints j{};
        for (int i = 0; i < a.dof; ++i) j[i] = w[i] / 1000.0;
        seg.path.push_back(j);
    }
    if (seg.path.empty()) return false;
    if (seg.path.size() == 1) seg.path.push_back(seg.path.front());
    const double speed = std::clamp(a.program.plan_speed, 1, 100) / 100.0;
    const double duration = static_cast<double>(seg.path.size() - 1) * cycle_of(a) / speed;
    a.plan_recorded(seg, duration);
    return a.can_move();
}

/* A motion line goes through the arm's own command table. */
bool run_motion(ArmState& a, const std::string& line, Events& out) {
    Json o = parse(line);
    std::string name;
    if (get_str(o.get(), "point_name", name) && !cJSON_GetObjectItemCaseSensitive(o.get(), "joint")) {
        const auto it = std::find_if(a.waypoints.begin(), a.waypoints.end(),
                                     [&](const Waypoint& w) { return w.name == name; });
        if (it == a.waypoints.end()) return false;
        cJSON_AddItemToObject(o.get(), "joint", cJSON_CreateIntArray(it->joint.data(), static_cast<int>(it->joint.size())));
    }
    Json reply = parse(handle_request(a, o.get(), a.last_t, out));
    bool ok = false;
    return get_bool(reply.get(), "receive_state", ok) && ok;
}

void fail(ArmState& a, Events& out, const std::string& why) {
    out.push_back({"program " + std::to_string(a.program.run_id) + " stopped: " + why, false, true});
    a.raise(kProgramError);
    a.program.run_state = 0;
    a.program.fail_at = -1;
}

/* The program's line number in the file of body line i (two header lines). */
int file_line(size_t i) { return static_cast<int>(i) + 3; }

}  // namespace

void advance_program(ArmState& a, Events& out) {
    ProgramState& p = a.program;
    if (p.run_state != 1 || a.paused) return;
    if (p.line_busy) {
        if (!a.queue.empty()) return;
        p.line_busy = false;
        if (p.step_mode) {
            a.paused = true; /* "set_arm_continue" runs the next line */
            return;
        }
    }
    if (p.next >= p.run.lines.size()) {
        p.run_state = 0;
        cJSON* o = cJSON_CreateObject();
        add_str(o, "command", "program_run_finish");
        add_int(o, "finish_id", p.run_id);
        out.push_back({print_and_delete(o), false});
        return;
    }
    const std::string line = "line " + std::to_string(file_line(p.next));
    if (file_line(p.next) == p.fail_at) return fail(a, out, line + " failed (injected)");
    Json o = parse(p.run.lines[p.next]);
    bool ok;
    if (cJSON_GetObjectItemCaseSensitive(o.get(), "point")) {
        size_t to = p.next;
        Segment seg, approach;
        /* a recorded path starts with a joint move to its first point */
        std::string why;
        ok = plan_points(a, p.next, to, seg) && a.plan_joint(seg.path.front(), 20, approach, why);
        if (ok) {
            a.enqueue(std::move(approach), a.last_t, out);
            a.enqueue(std::move(seg), a.last_t, out);
        }
        p.next = to;
    } else {
        ok = run_motion(a, p.run.lines[p.next], out);
        ++p.next;
    }
    if (!ok) return fail(a, out, line + " could not run");
    p.line_busy = true;
}

void stop_program(ArmState& a, Events&) {
    a.program.run_state = 0;
    a.program.line_busy = false;
}

size_t take_upload(ArmState& a, const char* data, size_t n, double, std::string& reply, Events& out) {
    ProgramState& p = a.program;
    if (p.upload_left <= 0) return 0;
    const size_t m = std::min(n, static_cast<size_t>(p.upload_left));
    p.upload.append(data, m);
    p.upload_left -= static_cast<long>(m);
    p.last_upload = p.upload; /* visible while it arrives */
    if (p.upload_left == 0) reply = finish_upload(a, out);
    return m;
}

bool loose_line(ArmState& a, const std::string& line, double, std::string& reply, Events& out) {
    ProgramState& p = a.program;
    if (!p.loose) {
        Json o = parse(line);
        if (!cJSON_IsObject(o.get()) || !cJSON_GetObjectItemCaseSensitive(o.get(), "file") ||
            cJSON_GetObjectItemCaseSensitive(o.get(), "command"))
            return false;
        p.loose = true;
        p.loose_left = -1;
        p.upload.clear();
    }
    p.upload += line + "\r\n";
    Json o = parse(line);
    int count = 0;
    if (!cJSON_IsObject(o.get())) p.loose_left = 0; /* a bad line ends it: the check reports it */
    else if (p.loose_left < 0 && get_int(o.get(), "type", count)) p.loose_left = std::max(count, 0);
    else if (p.loose_left > 0) --p.loose_left;
    if (p.loose_left == 0) {
        p.loose = false;
        p.upload_name = "memory";
        p.upload_speed = 100;
        p.upload_step = p.upload_only_save = p.upload_id = 0;
        reply = finish_upload(a, out);
    }
    return true;
}

namespace {

void list_programs(Ctx& c) {
    const ProgramState& p = c.arm.program;
    int page = 0, size = 0;
    std::string search;
    c.get_str("vague_search", search);
    if (!c.get_int("page_num", page) || !c.get_int("page_size", size) || page < 1 || size < 1 ||
        size > kMaxPage)
        return c.verdict("set_state", false);
    std::vector<std::pair<int, const Program*>> hits;
    for (const auto& [id, prog] : p.library)
        if (prog.name.find(search) != std::string::npos) hits.emplace_back(id, &prog);
    cJSON* r = c.answer();
    add_int(r, "page_num", page);
    add_int(r, "page_size", size);
    add_int(r, "total_size", static_cast<int>(hits.size()));
    add_str(r, "vague_search", search);
    cJSON* list = cJSON_AddArrayToObject(r, "list");
    for (size_t i = static_cast<size_t>(page - 1) * static_cast<size_t>(size);
         i < hits.size() && i < static_cast<size_t>(page) * static_cast<size_t>(size); ++i) {
        cJSON* o = cJSON_CreateObject();
        add_int(o, "id", hits[i].first);
        add_str(o, "trajectory_name", hits[i].second->name);
        add_int(o, "size", hits[i].second->size);
        add_int(o, "speed", hits[i].second->speed);
        cJSON_AddItemToArray(list, o);
    }
}

void run_state(Ctx& c) {
    const ProgramState& p = c.arm.program;
    cJSON* r = c.answer();
    add_int(r, "run_state", p.run_state == 1 && c.arm.paused ? 2 : p.run_state);
    add_int(r, "id", p.run_id);
    add_int(r, "edit_id", p.run_id);
    add_int(r, "plan_num", static_cast<int>(p.next));
    add_ints(r, "loop_num", std::vector<int>{});
    add_ints(r, "loop_cont", std::vector<int>{});
    add_int(r, "step_mode", p.step_mode ? 1 : 0);
    add_int(r, "plan_speed", p.plan_speed);
}

void start_by_id(Ctx& c) {
    ProgramState& p = c.arm.program;
    int id = 0, speed = 0;
    const bool has_speed = cJSON_GetObjectItemCaseSensitive(c.req, "speed") != nullptr;
    const auto it = c.get_int("id", id) ? p.library.find(id) : p.library.end();
    const bool ok = it != p.library.end() && p.run_state == 0 && c.arm.can_move() && !c.arm.running() &&
                    (!has_speed || c.int_in("speed", 1, 100, speed));
    if (ok) {
        p.plan_speed = has_speed ? speed : it->second.speed;
        start_run(c.arm, it->second, id, false);
    }
    c.verdict("start_state", ok);
}

void update_program(Ctx& c) {
    int id = 0, speed = 0;
    std::string name;
    auto& lib = c.arm.program.library;
    const auto it = c.get_int("id", id) ? lib.find(id) : lib.end();
    const bool ok = it != lib.end() && c.int_in("plan_speed", 1, 100, speed) &&
                    c.get_str("project_name", name) && !name.empty();
    if (ok) it->second.name = name, it->second.speed = speed;
    c.verdict("update_state", ok);
}

}  // namespace

namespace {

void commands(CommandTable& t) {
    t["run_project"] = run_project;
    t["get_program_trajectory_list"] = list_programs;
    t["get_program_run_state"] = run_state;
    t["set_program_id_start"] = start_by_id;
    t["update_program_trajectory"] = update_program;
    t["delete_program_trajectory"] = [](Ctx& c) {
        int id = 0;
        auto& p = c.arm.program;
        const bool ok = c.get_int("id", id) && !(p.run_state == 1 && p.run_id == id) && p.library.erase(id) == 1;
        c.verdict("delete_state", ok);
    };
    t["set_default_run_program"] = [](Ctx& c) {
        int id = 0;
        const bool ok = c.get_int("id", id) && c.arm.program.library.count(id) == 1;
        if (ok) c.arm.program.default_id = id;
        c.verdict("set_state", ok);
    };
    t["get_default_run_program"] = [](Ctx& c) { add_int(c.answer(), "id", c.arm.program.default_id); };
    t["plan_speed"] = [](Ctx& c) {
        int speed = 0;
        const bool ok = c.int_in("speed", 1, 100, speed);
        if (ok) c.arm.program.plan_speed = speed;
        c.verdict("plan_state", ok);
    };
}

}  // namespace

const Family program_family{
    "program",
    commands,
    [](ArmState& a, double, Events& out) { advance_program(a, out); },
    [](const ArmState& a) { return a.program.run_state == 1; },
    stop_program,
    /* The next run stops with an error at this line of its file (args: line, 1-based, headers included). */
    {{"fail_program_at", [](ArmState& a, const std::vector<double>& v) {
          if (v.size() != 1) return false;
          a.program.fail_at = static_cast<int>(v[0]);
          return true;
      }}}};

}  // namespace kxsim
