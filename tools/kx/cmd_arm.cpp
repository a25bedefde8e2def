// kx commands that talk to one controller.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>

#include "kx.h"

namespace kx {

namespace {

constexpr int kDefaultSpeed = 20;

Arm open_arm(const Args& a) {
    start_library(KX_DUAL_MODE_E, a.verbose);
    Arm arm;
    if (const int rc = connect_arm(a.pos.at(0), arm); rc != kOk) throw Exit(rc);
    return arm;
}

void expect_positionals(const Args& a, size_t n, const char* usage) {
    if (a.pos.size() != n) throw UsageError{fmt("expected %zu arguments; usage: %s", n, usage)};
}

int speed_of(const Args& a) {
    const int v = opt_integer(a, "speed", kDefaultSpeed);
    if (v < 1 || v > 100) throw UsageError{fmt("--speed must be 1..100 (percent), not %d", v)};
    return v;
}

double timeout_of(const Args& a, double fallback) {
    const double t = opt_number(a, "timeout", fallback);
    if (t <= 0) throw UsageError{"--timeout must be a positive number of seconds"};
    return t;
}

// Runs a blocking library call on a worker thread while this thread draws
// progress (`fraction` returns 0..1, or < 0 when unknown). Ctrl-C stops the
// arm; --timeout gives up waiting (the arm keeps moving).
int wait_for(const Args& a, Arm& arm, const std::string& label, std::function<int()> blocking,
             std::function<double()> fraction, double timeout_s) {
    catch_interrupts();
    auto job = std::async(std::launch::async, std::move(blocking));
    Progress bar(a, label);
    const auto t0 = std::chrono::steady_clock::now();
    while (job.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        if (g_interrupted) {
            kx_set_arm_stop(arm.handle);
            bar.finish();
            job.wait();
            fail(fmt("interrupted: %s was stopped", arm.addr.text.c_str()));
            return kInterrupted;
        }
        if (timeout_s > 0 && std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() > timeout_s) {
            bar.finish();
            fail(fmt("%s did not end within %g s; it may still be running (kx stop %s stops the arm)", label.c_str(),
                     timeout_s, arm.addr.text.c_str()));
            std::fflush(nullptr);
            std::_Exit(kTimeout);  // the library still waits on the worker thread
        }
        bar.update(fraction ? fraction() : -1);
    }
    bar.finish();
    return job.get();
}

float distance(const float* a, const float* b, int n) {
    float d = 0;
    for (int i = 0; i < n; ++i) d = std::max(d, std::fabs(a[i] - b[i]));
    return d;
}

// Fraction of the way from `from` to `to` reached by `now`.
double covered(float total, float left) { return total > 1e-6f ? 1.0 - left / total : 1.0; }

void print_moved(const Args& a, const Arm& arm, bool waited) {
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddBoolToObject(o, "done", waited);
        cJSON_AddBoolToObject(o, "accepted", true);
        print_json(o);
    } else if (!waited) {
        std::printf("accepted by %s (not waiting for the end)\n", arm.addr.text.c_str());
    }
}

// A move: sent and left (--no-wait), or waited for with progress.
int run_move(const Args& a, Arm& arm, const char* label, const char* hint, const std::function<int()>& send,
             const std::function<int()>& send_and_wait, const std::function<double()>& fraction) {
    const int rc = a.has("no-wait") ? send()
                                    : wait_for(a, arm, label, send_and_wait, fraction, a.has("timeout") ? timeout_of(a, 0) : 0);
    if (rc == kInterrupted) return rc;
    if (rc != 0) return report(rc, arm, "move", hint);
    print_moved(a, arm, !a.has("no-wait"));
    return kOk;
}

// The end of an action: {"done":true} (and the program id) with --json, else `text`.
int print_done(const Args& a, const std::string& text, int id = 0) {
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddBoolToObject(o, "done", true);
        if (id > 0) cJSON_AddNumberToObject(o, "id", id);
        print_json(o);
    } else if (!text.empty()) {
        std::printf("%s\n", text.c_str());
    }
    return kOk;
}

cJSON* gripper_json(const kx_gripper_state_t& g) {
    cJSON* o = cJSON_CreateObject();
    cJSON_AddNumberToObject(o, "position", g.actpos);
    cJSON_AddNumberToObject(o, "force", g.current_force);
    cJSON_AddBoolToObject(o, "enabled", g.enable_state == 1);
    cJSON_AddNumberToObject(o, "status", g.status);
    cJSON_AddNumberToObject(o, "error", g.error);
    cJSON_AddNumberToObject(o, "mode", g.mode);
    cJSON_AddNumberToObject(o, "temperature", g.temperature);
    return o;
}

}  // namespace

int cmd_info(const Args& a) {
    expect_positionals(a, 1, "kx info ADDR");
    Arm arm = open_arm(a);
    kx_arm_software_version_t sw{};
    const int rc = kx_get_arm_software_info(arm.handle, &sw);
    if (rc != 0) return report(rc, arm, "software information query");
    const int dof = arm.info.arm_dof;
    int joint_versions[7] = {};
    const bool joints_ok = kx_get_joint_software_version(arm.handle, joint_versions) == 0;
    cJSON* o = cJSON_CreateObject();
    cJSON_AddStringToObject(o, "address", fmt("%s:%d", arm.addr.ip.c_str(), arm.addr.port).c_str());
    cJSON_AddStringToObject(o, "model", model_name(arm.info.arm_model));
    cJSON_AddNumberToObject(o, "joints", dof);
    cJSON_AddStringToObject(o, "edition", edition_name(arm.info.force_type));
    cJSON_AddStringToObject(o, "product", sw.product_version);
    cJSON* v = cJSON_AddObjectToObject(o, "versions");
    cJSON_AddStringToObject(v, "library", kx_api_version());
    cJSON_AddStringToObject(v, "controller", sw.ctrl_info.version);
    cJSON_AddStringToObject(v, "controller_build", sw.ctrl_info.build_time);
    cJSON_AddStringToObject(v, "algorithm", sw.algorithm_info.version);
    cJSON_AddStringToObject(v, "dynamics", sw.dynamic_info.model_version);
    cJSON_AddStringToObject(v, "planner", sw.plan_info.version);
    cJSON_AddStringToObject(v, "planner_build", sw.plan_info.build_time);
    cJSON_AddItemToObject(v, "joint_firmware", joints_ok ? json_array(joint_versions, dof) : cJSON_CreateNull());
    if (a.json) {
        print_json(o);
        return kOk;
    }
    std::printf("address     %s\nmodel       %s (%s)\njoints      %d\nedition     %s\n", cJSON_GetObjectItem(o, "address")->valuestring,
                model_name(arm.info.arm_model), sw.product_version, dof, edition_name(arm.info.force_type));
    std::printf("controller  %s (built %s)\nalgorithm   %s\ndynamics    %s\nplanner     %s (built %s)\nlibrary     %s\n",
                sw.ctrl_info.version, sw.ctrl_info.build_time, sw.algorithm_info.version, sw.dynamic_info.model_version,
                sw.plan_info.version, sw.plan_info.build_time, kx_api_version());
    if (joints_ok) {
        std::printf("joint fw   ");
        for (int i = 0; i < dof; ++i) std::printf(" %d", joint_versions[i]);
        std::printf("\n");
    }
    cJSON_Delete(o);
    return kOk;
}

int cmd_state(const Args& a) {
    expect_positionals(a, 1, "kx state ADDR");
    Arm arm = open_arm(a);
    kx_current_arm_state_t s{};
    const int rc = kx_get_current_arm_state(arm.handle, &s);
    if (rc != 0) return report(rc, arm, "state query");
    const int dof = arm.info.arm_dof;
    const int nerr = std::min<int>(s.err.err_len, 24);
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddItemToObject(o, "joints", json_array(s.joint, dof));
        cJSON_AddItemToObject(o, "pose", json_pose(s.pose));
        cJSON* errors = cJSON_AddArrayToObject(o, "errors");
        for (int i = 0; i < nerr; ++i)
            if (s.err.err[i] != 0) cJSON_AddItemToArray(errors, cJSON_CreateNumber(s.err.err[i]));
        print_json(o);
        return kOk;
    }
    std::printf("joints (deg) ");
    for (int i = 0; i < dof; ++i) std::printf(" %9.3f", s.joint[i]);
    std::printf("\npose         x %.6f  y %.6f  z %.6f m   rx %.4f  ry %.4f  rz %.4f rad\nerrors       ",
                s.pose.position.x, s.pose.position.y, s.pose.position.z, s.pose.euler.rx, s.pose.euler.ry,
                s.pose.euler.rz);
    bool any = false;
    for (int i = 0; i < nerr; ++i)
        if (s.err.err[i] != 0) {
            std::printf("%s%d", any ? ", " : "", s.err.err[i]);
            any = true;
        }
    std::printf("%s\n", any ? "  (kx clear ADDR clears them)" : "none");
    return kOk;
}

int cmd_movej(const Args& a) {
    const std::vector<double> j = numbers(a.pos, 1, "a joint angle");
    const int v = speed_of(a);
    Arm arm = open_arm(a);
    const int dof = arm.info.arm_dof;
    if (static_cast<int>(j.size()) != dof)
        throw UsageError{fmt("%s has %d joints: give %d angles (degrees), not %zu", arm.addr.text.c_str(), dof, dof,
                             j.size())};
    float target[7] = {};
    for (int i = 0; i < dof; ++i) target[i] = static_cast<float>(j[i]);
    float start[7] = {};
    if (!a.has("no-wait")) kx_get_joint_degree(arm.handle, start);
    const float total = distance(start, target, dof);
    return run_move(
        a, arm, "movej", "a joint beyond its limit, or errors pending? (kx state / kx clear)",
        [&] { return kx_movej_nblock(arm.handle, target, v, 0, 0); },
        [&] { return kx_movej_block(arm.handle, target, v, 0, 0, 1); },
        [&] {
            float now[7] = {};
            return kx_get_joint_degree(arm.handle, now) == 0 ? covered(total, distance(now, target, dof)) : -1.0;
        });
}

int cmd_movel(const Args& a) {
    expect_positionals(a, 7, "kx movel ADDR x y z rx ry rz");
    const std::vector<double> p = numbers(a.pos, 1, "a pose value");
    const int v = speed_of(a);
    Arm arm = open_arm(a);
    kx_pose_t pose{};
    pose.position = {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    pose.euler = {static_cast<float>(p[3]), static_cast<float>(p[4]), static_cast<float>(p[5])};
    pose.quaternion = kx_algo_euler2quaternion(pose.euler);
    const float target[3] = {pose.position.x, pose.position.y, pose.position.z};
    auto where = [&](float* xyz) {
        kx_current_arm_state_t s{};
        if (kx_get_current_arm_state(arm.handle, &s) != 0) return false;
        xyz[0] = s.pose.position.x, xyz[1] = s.pose.position.y, xyz[2] = s.pose.position.z;
        return true;
    };
    float start[3] = {};
    if (!a.has("no-wait")) where(start);
    const float total = distance(start, target, 3);
    return run_move(
        a, arm, "movel", "out of reach, through a singularity, or errors pending? (kx state / kx clear)",
        [&] { return kx_movel_nblock(arm.handle, pose, v, 0, 0); },
        [&] { return kx_movel_block(arm.handle, pose, v, 0, 0, 1); },
        [&] {
            float now[3];
            return where(now) ? covered(total, distance(now, target, 3)) : -1.0;
        });
}

int cmd_jog(const Args& a) {
    expect_positionals(a, 3, "kx jog ADDR AXIS +|-");
    const std::string& dir = a.pos[2];
    if (dir != "+" && dir != "-") throw UsageError{fmt("direction must be + or -, not \"%s\"", dir.c_str())};
    const int v = speed_of(a);
    Arm arm = open_arm(a);
    JogAxis axis;
    if (!parse_jog_axis(a.pos[1], arm.info.arm_dof, axis))
        throw UsageError{fmt("AXIS must be a joint 1..%d, x, y, z, rx, ry or rz, not \"%s\"", arm.info.arm_dof,
                             a.pos[1].c_str())};
    const double step = std::fabs(opt_number(a, "step", axis.default_step)) * (dir == "+" ? 1 : -1);
    const int rc = wait_for(a, arm, "jog", [&] { return jog_step(arm.handle, axis, step, v); }, nullptr, 0);
    if (rc == kInterrupted) return rc;
    if (rc != 0) return report(rc, arm, "jog", "at a limit, or errors pending? (kx state / kx clear)");
    print_moved(a, arm, true);
    return kOk;
}

namespace {
int simple_set(const Args& a, int (*fn)(kx_robot_handle*), const char* what, const char* done) {
    expect_positionals(a, 1, (std::string("kx ") + a.command + " ADDR").c_str());
    Arm arm = open_arm(a);
    const int rc = fn(arm.handle);
    if (rc != 0) return report(rc, arm, what);
    return print_done(a, done);
}
}  // namespace

int cmd_stop(const Args& a) { return simple_set(a, kx_set_arm_stop, "stop", "stopped"); }
int cmd_clear(const Args& a) { return simple_set(a, kx_clear_system_err, "error clearing", "errors cleared"); }

int cmd_io(const Args& a) {
    const std::string& what = a.pos[1];
    if (what == "get") {
        expect_positionals(a, 2, "kx io ADDR get");
        Arm arm = open_arm(a);
        int in[4] = {}, out[4] = {};
        int rc = kx_get_IO_input(arm.handle, in);
        if (rc == 0) rc = kx_get_IO_output(arm.handle, out);
        if (rc != 0) return report(rc, arm, "I/O query");
        if (a.json) {
            cJSON* o = cJSON_CreateObject();
            cJSON_AddItemToObject(o, "inputs", json_array(in, 4));
            cJSON_AddItemToObject(o, "outputs", json_array(out, 4));
            print_json(o);
        } else {
            std::printf("inputs  DI1..4: %d %d %d %d\noutputs DO1..4: %d %d %d %d\n", in[0], in[1], in[2], in[3], out[0],
                        out[1], out[2], out[3]);
        }
        return kOk;
    }
    if (what == "set") {
        expect_positionals(a, 4, "kx io ADDR set CHANNEL 0|1");
        const int channel = integer(a.pos[2], "CHANNEL");
        const int state = integer(a.pos[3], "the output state");
        if (state != 0 && state != 1) throw UsageError{"the output state must be 0 or 1"};
        Arm arm = open_arm(a);
        const int rc = kx_set_DO_state(arm.handle, channel, state);
        if (rc != 0) return report(rc, arm, "output change", "is the channel (1..4) set up as an output?");
        return print_done(a, "");
    }
    throw UsageError{fmt("kx io ADDR get|set, not \"%s\"", what.c_str())};
}

int cmd_gripper(const Args& a) {
    const std::string& what = a.pos[1];
    const int speed = opt_integer(a, "speed", 500), force = opt_integer(a, "force", 500);
    if (speed < 1 || speed > 1000 || force < 1 || force > 1000) throw UsageError{"--speed and --force are 1..1000"};
    const bool block = !a.has("no-wait");
    const int timeout = static_cast<int>(std::ceil(timeout_of(a, 10)));
    std::function<int(kx_robot_handle*)> call;
    if (what == "state") {
        expect_positionals(a, 2, "kx gripper ADDR state");
        Arm arm = open_arm(a);
        kx_gripper_state_t g{};
        const int rc = kx_get_gripper_state(arm.handle, &g);
        if (rc != 0) return report(rc, arm, "gripper query");
        cJSON* o = gripper_json(g);
        if (a.json) {
            print_json(o);
        } else {
            std::printf("position %d  force %d  enabled %s  status %d  error %d\n", g.actpos, g.current_force,
                        g.enable_state == 1 ? "yes" : "no", g.status, g.error);
            cJSON_Delete(o);
        }
        return kOk;
    } else if (what == "open") {
        expect_positionals(a, 2, "kx gripper ADDR open");
        call = [=](kx_robot_handle* h) { return kx_set_gripper_release(h, speed, block, timeout); };
    } else if (what == "close") {
        expect_positionals(a, 2, "kx gripper ADDR close");
        call = [=](kx_robot_handle* h) { return kx_set_gripper_pick(h, speed, force, block, timeout); };
    } else if (what == "pos") {
        expect_positionals(a, 3, "kx gripper ADDR pos N");
        const int pos = integer(a.pos[2], "N");
        if (pos < 1 || pos > 1000) throw UsageError{"the gripper position N is 1..1000"};
        call = [=](kx_robot_handle* h) { return kx_set_gripper_position(h, pos, block, timeout); };
    } else {
        throw UsageError{fmt("kx gripper ADDR open|close|pos N|state, not \"%s\"", what.c_str())};
    }
    Arm arm = open_arm(a);
    const int rc = wait_for(a, arm, "gripper", [&] { return call(arm.handle); }, nullptr, 0);
    if (rc == kInterrupted) return rc;
    // The blocking gripper calls report "no completion in time" as -4.
    if (block && rc == -4) {
        fail(fmt("the gripper of %s did not finish within %d s (--timeout)", arm.addr.text.c_str(), timeout));
        return kTimeout;
    }
    if (rc != 0) return report(rc, arm, "gripper command", "is a gripper attached and enabled?");
    kx_gripper_state_t g{};
    if (a.json) {
        cJSON* o = kx_get_gripper_state(arm.handle, &g) == 0 ? gripper_json(g) : cJSON_CreateObject();
        cJSON_AddBoolToObject(o, "done", block);
        print_json(o);
    }
    return kOk;
}

namespace {

int program_list(const Args& a, Arm& arm) {
    auto list = std::make_unique<kx_program_trajectorys_t>();
    const int rc = kx_get_program_trajectory_list(arm.handle, 1, 100, nullptr, list.get());
    if (rc != 0) return report(rc, arm, "program list query");
    const int n = std::max(0, std::min(list->list_size, 100));
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddNumberToObject(o, "total", list->list_size);
        cJSON* arr = cJSON_AddArrayToObject(o, "programs");
        for (int i = 0; i < n; ++i) {
            const kx_trajectory_data_t& t = list->trajectory_list[i];
            cJSON* e = cJSON_CreateObject();
            cJSON_AddNumberToObject(e, "id", t.id);
            cJSON_AddStringToObject(e, "name", std::string(t.trajectory_name, strnlen(t.trajectory_name, 32)).c_str());
            cJSON_AddNumberToObject(e, "size", t.size);
            cJSON_AddNumberToObject(e, "speed", t.speed);
            cJSON_AddItemToArray(arr, e);
        }
        print_json(o);
        return kOk;
    }
    if (n == 0) std::printf("no programs stored\n");
    else std::printf("%4s  %-32s %8s %6s\n", "ID", "NAME", "BYTES", "SPEED");
    for (int i = 0; i < n; ++i) {
        const kx_trajectory_data_t& t = list->trajectory_list[i];
        std::printf("%4d  %-32.32s %8d %5d%%\n", t.id, t.trajectory_name, t.size, t.speed);
    }
    return kOk;
}

// The smallest id of the controller's library that holds no program, or 0.
int free_program_id(Arm& arm) {
    auto list = std::make_unique<kx_program_trajectorys_t>();
    if (kx_get_program_trajectory_list(arm.handle, 1, 100, nullptr, list.get()) != 0) return 0;
    std::vector<bool> used(102, false);
    for (int i = 0; i < std::max(0, std::min(list->list_size, 100)); ++i)
        if (list->trajectory_list[i].id > 0 && list->trajectory_list[i].id <= 101) used[list->trajectory_list[i].id] = true;
    int id = 1;
    while (used[id]) ++id;
    return id;
}

int program_upload(const Args& a, Arm& arm, const std::string& file) {
    const bool run = a.has("run");
    const int id = opt_integer(a, "id", 0), speed = opt_integer(a, "speed", 100);
    if (id < 0 || speed < 1 || speed > 100) throw UsageError{"--id is 1 or more, --speed 1..100"};
    kx_send_project_t p{};
    if (file.size() >= sizeof p.project_path) throw UsageError{"the program file's path is too long"};
    std::snprintf(p.project_path, sizeof p.project_path, "%s", file.c_str());
    p.project_path_len = static_cast<int>(file.size());
    p.plan_speed = speed;
    p.only_save = run ? 0 : 1;
    p.save_id = run || id > 0 ? id : free_program_id(arm);
    struct stat st {};
    stat(file.c_str(), &st);
    const double expect_s = 0.5 + 0.002 * std::ceil(st.st_size / 100.0);  // 100-byte chunks paced 2 ms apart
    int err_line = -1;
    const auto t0 = std::chrono::steady_clock::now();
    const int rc = wait_for(
        a, arm, "upload", [&] { return kx_send_project(arm.handle, p, &err_line); },
        [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / expect_s; }, 0);
    if (rc == kInterrupted) return rc;
    if (rc == 1)
        return report(rc, arm, "program",
                      err_line > 0 ? fmt("line %d of %s is wrong", err_line, file.c_str()) : "a program is running?");
    if (rc == -5) {
        fail(fmt("cannot read %s", file.c_str()));
        return kUsage;
    }
    if (rc != 0) return report(rc, arm, "program upload");
    // The controller knows the program by the file's base name.
    std::string name = file.substr(file.find_last_of('/') == std::string::npos ? 0 : file.find_last_of('/') + 1);
    if (const auto dot = name.rfind('.'); dot != std::string::npos) name.resize(dot);
    const int saved = p.save_id;
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddBoolToObject(o, "accepted", true);
        cJSON_AddStringToObject(o, "name", name.c_str());
        if (saved > 0) cJSON_AddNumberToObject(o, "id", saved);
        else cJSON_AddNullToObject(o, "id");
        cJSON_AddBoolToObject(o, "running", run);
        print_json(o);
    } else {
        std::printf("%s uploaded as \"%s\"%s%s\n", file.c_str(), name.c_str(),
                    saved > 0 ? fmt(", id %d", saved).c_str() : "", run ? ", running" : "");
    }
    return kOk;
}

}  // namespace

int cmd_program(const Args& a) {
    const std::string what = a.pos.size() > 1 ? a.pos[1] : "";
    if (what == "upload") {
        expect_positionals(a, 3, "kx program ADDR upload FILE");
        if (access(a.pos[2].c_str(), R_OK) != 0) throw UsageError{fmt("cannot read %s", a.pos[2].c_str())};
        Arm arm = open_arm(a);
        return program_upload(a, arm, a.pos[2]);
    }
    if (what == "list") {
        expect_positionals(a, 2, "kx program ADDR list");
        Arm arm = open_arm(a);
        return program_list(a, arm);
    }
    if (what == "run" || what == "delete") {
        expect_positionals(a, 3, ("kx program ADDR " + what + " ID").c_str());
        const int id = integer(a.pos[2], "ID");
        Arm arm = open_arm(a);
        int rc;
        if (what == "delete") {
            rc = kx_delete_program_trajectory(arm.handle, id);
            if (rc != 0) return report(rc, arm, "deletion", fmt("is there a program %d? (kx program ADDR list)", id));
        } else {
            const int speed = opt_integer(a, "speed", 0);
            const int block = a.has("no-wait") ? 0 : 1;
            rc = wait_for(a, arm, fmt("program %d", id), [&] { return kx_set_program_id_run(arm.handle, id, speed, block); },
                          nullptr, 0);
            if (rc == kInterrupted) return rc;
            if (rc != 0)
                return report(rc, arm, "program run", fmt("is there a program %d and is the arm idle?", id));
        }
        return print_done(a, "", id);
    }
    throw UsageError{fmt("kx program ADDR upload FILE|list|run ID|delete ID, not \"%s\"", what.c_str())};
}

int cmd_teach(const Args& a) {
    expect_positionals(a, 3, "kx teach ADDR record FILE --seconds S");
    if (a.pos[1] != "record") throw UsageError{fmt("kx teach ADDR record FILE, not \"%s\"", a.pos[1].c_str())};
    if (!a.has("seconds")) throw UsageError{"give the recording time with --seconds S"};
    const double secs = opt_number(a, "seconds", 0);
    if (secs <= 0 || secs > 3600) throw UsageError{"--seconds must be above 0 and at most 3600"};
    const std::string file = a.pos[2];
    if (FILE* f = std::fopen(file.c_str(), "ab")) std::fclose(f);
    else throw UsageError{fmt("cannot write %s", file.c_str())};
    Arm arm = open_arm(a);
    int rc = kx_start_drag_teach(arm.handle, 1);
    if (rc != 0) return report(rc, arm, "drag teaching", "is the arm idle and free of errors?");
    catch_interrupts();
    {
        Progress bar(a, "recording");
        const auto t0 = std::chrono::steady_clock::now();
        for (double t = 0; t < secs && !g_interrupted;
             t = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count()) {
            bar.update(t / secs);
            sleep_ms(std::min(100, static_cast<int>((secs - t) * 1000) + 1));
        }
    }
    g_interrupted = false;  // Ctrl-C ended the recording, which is still saved
    rc = kx_stop_drag_teach(arm.handle);
    if (rc != 0) return report(rc, arm, "end of drag teaching");
    int points = 0;
    rc = wait_for(a, arm, "saving", [&] { return kx_save_trajectory(arm.handle, file.c_str(), &points); }, nullptr, 0);
    if (rc == -4) {
        fail(fmt("cannot write %s", file.c_str()));
        return kFailed;
    }
    if (rc != 0 && rc != kInterrupted) return report(rc, arm, "saving of the recorded path");
    if (a.json) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "file", file.c_str());
        cJSON_AddNumberToObject(o, "points", points);
        print_json(o);
    } else {
        std::printf("%d points saved to %s\n", points, file.c_str());
    }
    return rc == 0 ? kOk : rc;
}

}  // namespace kx
