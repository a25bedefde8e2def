// kx: look at and command robot-arm controllers from a shell.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "kx.h"

namespace {

using kx::Args;

struct Command {
    const char* name;
    int (*run)(const Args&);
    int min_pos;             // positionals after the command, at least
    const char* options;     // space-separated; a trailing '=' takes a value
    const char* usage;
    const char* help;
};

// Options every command takes.
constexpr const char* kCommonOptions = "json help verbose";

const Command kCommands[] = {
    {"info", kx::cmd_info, 1, "", "kx info ADDR [--json]",
     "Model, joint count, force edition and software versions of the controller at ADDR."},
    {"state", kx::cmd_state, 1, "", "kx state ADDR [--json]",
     "Joint angles (degrees), tool pose (metres, radians) and error codes."},
    {"watch", kx::cmd_watch, 1, "seconds= interval=", "kx watch ADDR... [--seconds S] [--interval MS] [--json]",
     "A live table of one to five arms from their realtime state push, refreshed in place\n"
     "until Ctrl-C (or for S seconds). With --json or when piped, prints one JSON object\n"
     "per refresh (every MS milliseconds, default 100 on a terminal, 1000 otherwise)."},
    {"movej", kx::cmd_movej, 2, "speed= no-wait timeout=", "kx movej ADDR J1..Jn [--speed P] [--no-wait] [--timeout S]",
     "Joint move to the given angles (degrees, one per joint) at P percent speed\n"
     "(default 20). Waits for the end of the move (progress bar on a terminal) unless\n"
     "--no-wait; --timeout S gives up waiting after S seconds (the arm keeps moving).\n"
     "Ctrl-C while waiting stops the arm."},
    {"movel", kx::cmd_movel, 7, "speed= no-wait timeout=",
     "kx movel ADDR x y z rx ry rz [--speed P] [--no-wait] [--timeout S]",
     "Linear move of the tool to the pose x y z (metres) rx ry rz (radians,\n"
     "R = Rz*Ry*Rx) at P percent speed (default 20). Waiting as for movej."},
    {"jog", kx::cmd_jog, 3, "step= speed=", "kx jog ADDR AXIS +|- [--step S] [--speed P]",
     "One step of a joint (AXIS 1..7, S degrees, default 5), of the tool along x, y or z\n"
     "(S metres, default 0.01) or about rx, ry or rz (S radians, default 0.05), at P\n"
     "percent speed (default 20). Waits for the end of the step."},
    {"stop", kx::cmd_stop, 1, "", "kx stop ADDR", "Stops the arm at once."},
    {"clear", kx::cmd_clear, 1, "", "kx clear ADDR", "Clears the controller's errors."},
    {"io", kx::cmd_io, 2, "", "kx io ADDR get [--json] | kx io ADDR set CHANNEL 0|1",
     "Reads the digital inputs and outputs, or sets digital output CHANNEL (1..4)."},
    {"gripper", kx::cmd_gripper, 2, "speed= force= no-wait timeout=",
     "kx gripper ADDR open|close|pos N|state [--speed S] [--force F] [--no-wait] [--timeout S]",
     "Opens or closes the gripper (speed and force 1..1000, default 500), moves its\n"
     "fingers to position N (1..1000), or reads its state. Waits up to --timeout\n"
     "seconds (default 10) for the end unless --no-wait."},
    {"program", kx::cmd_program, 2, "run id= speed= no-wait",
     "kx program ADDR upload FILE [--run] [--id N] [--speed P] | list | run ID [--no-wait] | delete ID",
     "Uploads a program file (saved in the controller's library as --id N, or the\n"
     "next free id; --run runs it at once instead), lists the library, runs a stored\n"
     "program (waiting for its end unless --no-wait) or deletes one."},
    {"teach", kx::cmd_teach, 3, "seconds=", "kx teach ADDR record FILE --seconds S",
     "Drag teaching: records the path the arm is moved along by hand for S seconds\n"
     "(Ctrl-C ends it early) and saves it to FILE (one JSON point per line)."},
    {"fk", kx::cmd_fk, 2, "edition=", "kx fk MODEL J1..Jn [--edition P|QA|QS] [--json]",
     "Forward kinematics on this machine (no controller): flange pose of MODEL\n"
     "(AVEN, BRIV, CALD, DUMO, ESKA, FIRU, GOLT) at the joint angles (degrees)."},
    {"ik", kx::cmd_ik, 7, "ref= edition=", "kx ik MODEL x y z rx ry rz --ref J1..Jn [--edition E] [--json]",
     "Inverse kinematics on this machine: the joint angles nearest to the reference\n"
     "joints (--ref, degrees, space- or comma-separated) that put the flange at the pose."},
    {"view", kx::cmd_view, 1, "listen= token= read-only",
     "kx view ADDR... [--listen HOST:PORT] [--token T] [--read-only]",
     "Serves a live page of the arms (3D figure, joints, pose, errors, events, plots,\n"
     "Stop, Clear errors and jog buttons) on http://127.0.0.1:8000/ until Ctrl-C.\n"
     "Commands from the page carry a per-run token; --listen on an address other than\n"
     "loopback needs --token (16 characters or more), or prints a generated one.\n"
     "--read-only serves the view without any command. GET /api/state returns the\n"
     "state as JSON."},
};

const Command* find_command(const std::string& name) {
    for (const auto& c : kCommands)
        if (name == c.name) return &c;
    return nullptr;
}

void print_help() {
    std::printf("usage: kx COMMAND ARGS... [--json] [--verbose]\n\n"
                "Looks at and commands robot-arm controllers. ADDR is IP[:PORT] (default port 8080;\n"
                "host names are resolved). Angles in degrees, positions in metres, orientations in\n"
                "radians.\n\ncommands:\n");
    for (const auto& c : kCommands) std::printf("  %s\n", c.usage);
    std::printf("\nkx COMMAND --help describes one command. Exit codes: 0 done, 1 refused by the\n"
                "controller, 2 bad usage, 3 no connection, 4 timeout, 5 undecodable reply,\n"
                "6 failed, 130 interrupted.\n");
}

bool option_allowed(const Command& c, const std::string& name, bool& takes_value) {
    for (const char* list : {c.options, kCommonOptions}) {
        const char* p = list;
        while (*p) {
            while (*p == ' ') ++p;
            const char* end = p;
            while (*end && *end != ' ') ++end;
            std::string word(p, end);
            takes_value = !word.empty() && word.back() == '=';
            if (takes_value) word.pop_back();
            if (!word.empty() && word == name) return true;
            p = end;
        }
    }
    return false;
}

// "--name value", "--name=value" or "--flag"; anything else is positional
// (so negative numbers and the jog direction "-" are positionals). --ref
// takes the numbers that follow it.
Args parse(const Command& c, int argc, char** argv) {
    Args a;
    a.command = c.name;
    for (int i = 2; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "-h") arg = "--help";
        if (arg.rfind("--", 0) != 0 || arg.size() == 2) {
            a.pos.push_back(arg);
            continue;
        }
        std::string name = arg.substr(2), value;
        const auto eq = name.find('=');
        const bool inline_value = eq != std::string::npos;
        if (inline_value) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
        }
        bool takes_value = false;
        if (!option_allowed(c, name, takes_value))
            throw kx::UsageError{kx::fmt("%s has no option --%s (kx %s --help lists them)", c.name, name.c_str(), c.name)};
        if (takes_value && !inline_value) {
            if (i + 1 >= argc) throw kx::UsageError{kx::fmt("--%s needs a value", name.c_str())};
            value = argv[++i];
            if (name == "ref")  // the reference joints: every number that follows
                while (i + 1 < argc && std::strncmp(argv[i + 1], "--", 2) != 0) value += std::string(",") + argv[++i];
        } else if (!takes_value && inline_value) {
            throw kx::UsageError{kx::fmt("--%s takes no value", name.c_str())};
        }
        a.opt[name] = value;
    }
    a.json = a.has("json");
    a.verbose = a.has("verbose");
    return a;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "help")) {
        print_help();
        return argc < 2 ? kx::kUsage : kx::kOk;
    }
    if (!std::strcmp(argv[1], "--version")) {
        std::printf("kx %s\n", kx_api_version());
        return kx::kOk;
    }
    const Command* c = find_command(argv[1]);
    if (!c) {
        kx::fail(kx::fmt("unknown command \"%s\" (kx --help lists the commands)", argv[1]));
        return kx::kUsage;
    }
    int code = kx::kOk;
    try {
        Args a = parse(*c, argc, argv);
        if (a.has("help")) {
            std::printf("usage: %s\n\n%s\n", c->usage, c->help);
            return kx::kOk;
        }
        if (static_cast<int>(a.pos.size()) < c->min_pos)
            throw kx::UsageError{kx::fmt("missing arguments; usage: %s", c->usage)};
        code = c->run(a);
    } catch (kx::Exit e) {  // already reported
        code = e;
    } catch (const kx::UsageError& e) {
        kx::fail(e.what + "\n(kx " + c->name + " --help shows the usage)");
        code = kx::kUsage;
    } catch (const std::exception& e) {
        kx::fail(e.what());
        code = kx::kFailed;
    }
    kx::stop_library();
    return code;
}
