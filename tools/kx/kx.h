// kx: shared pieces of the command-line client (arguments, connections,
// output, exit codes). Uses only the public C interface of libapi_c.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <cjson/cJSON.h>

#include "kx_interface.h"

namespace kx {

// Documented in tools/kx/README.md; scripts rely on them.
enum Exit : int {
    kOk = 0,
    kRefused = 1,       // the controller refused the command
    kUsage = 2,         // bad command line (or unreadable input file)
    kNoConnection = 3,  // could not connect, or the connection failed
    kTimeout = 4,       // no reply, or the work did not end in time
    kBadReply = 5,      // the controller's reply could not be decoded
    kFailed = 6,        // the command ran but did not succeed (see message)
    kInterrupted = 130, // Ctrl-C during a waited move (the arm was stopped)
};

// Parsed command line of one command: positionals and --options.
struct Args {
    std::string command;
    std::vector<std::string> pos;
    std::map<std::string, std::string> opt;  // "--speed 20" -> {"speed","20"}; flags map to ""
    bool json = false;
    bool verbose = false;

    bool has(const std::string& name) const { return opt.count(name) != 0; }
};

// A usage error: message printed, exit code kUsage.
struct UsageError {
    std::string what;
};

double number(const std::string& text, const char* what);
int integer(const std::string& text, const char* what);
double opt_number(const Args& a, const std::string& name, double fallback);
int opt_integer(const Args& a, const std::string& name, int fallback);
std::vector<double> numbers(const std::vector<std::string>& items, size_t first, const char* what);

// ADDR = IP[:PORT] or HOST[:PORT]; host names are resolved to IPv4.
struct Address {
    std::string ip;
    int port = 8080;
    std::string text;  // as given
};
Address parse_address(const std::string& text);

// Models by the names the controller reports (AVEN, CALD, ...).
struct ModelInfo {
    const char* name;
    kx_robot_arm_model_e model;
    int dof;
};
const ModelInfo* model_by_name(const std::string& name);
const char* model_name(kx_robot_arm_model_e model);
const char* edition_name(kx_force_type_e edition);
bool edition_by_name(const std::string& name, kx_force_type_e& out);

// One connected arm. The library is started once per process (`start`).
struct Arm {
    Address addr;
    kx_robot_handle* handle = nullptr;
    kx_robot_info_t info{};
};
void start_library(kx_thread_mode_e mode, bool verbose);
void stop_library();
// Connects; on failure prints what to do and returns the exit code (kOk on success).
int connect_arm(const std::string& addr_text, Arm& arm);

// The exit code for a library result; `what` names the action in the message
// printed on failure ("move", "stop", ...); `hint` is added on refusal.
int report(int rc, const Arm& arm, const std::string& what, const std::string& hint = "");
int exit_code(int rc);
void fail(const std::string& message);  // "kx: message" on stderr

// Output: one JSON object with --json, else lines of text.
void print_json(cJSON* obj);  // prints and deletes
cJSON* json_array(const float* v, int n);
cJSON* json_array(const int* v, int n);
cJSON* json_pose(const kx_pose_t& p);
std::string fmt(const char* f, ...) __attribute__((format(printf, 1, 2)));

// A progress bar on a terminal (stdout a tty, no --json); silent otherwise.
class Progress {
public:
    Progress(const Args& a, std::string label);
    ~Progress();
    void update(double fraction);  // 0..1; negative: unknown, shows elapsed time
    void finish();

private:
    bool on_;
    bool drawn_ = false;
    std::string label_;
    std::chrono::steady_clock::time_point start_;
};

// Ctrl-C: set by SIGINT, SIGTERM or SIGHUP once `catch_interrupts` ran.
extern std::atomic<bool> g_interrupted;
void catch_interrupts();
void sleep_ms(int ms);

// Commands. Each returns an exit code.
int cmd_info(const Args&);
int cmd_state(const Args&);
int cmd_watch(const Args&);
int cmd_movej(const Args&);
int cmd_movel(const Args&);
int cmd_jog(const Args&);
int cmd_stop(const Args&);
int cmd_clear(const Args&);
int cmd_io(const Args&);
int cmd_gripper(const Args&);
int cmd_program(const Args&);
int cmd_teach(const Args&);
int cmd_fk(const Args&);
int cmd_ik(const Args&);
int cmd_view(const Args&);

// Jog axes shared by `kx jog` and the live view: "1".."7", x, y, z, rx, ry, rz.
struct JogAxis {
    enum Kind { kJoint, kPosition, kOrientation } kind = kJoint;
    int index = 0;          // joint number 1..7, or axis 0..2
    double default_step = 0;
};
bool parse_jog_axis(const std::string& text, int dof, JogAxis& out);
// Runs one step and waits for its end; returns the library result.
int jog_step(kx_robot_handle* h, const JogAxis& axis, double step, int speed);

}  // namespace kx
