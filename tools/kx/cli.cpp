// Shared pieces of kx: numbers, addresses, models, connections, output.
#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <thread>

#include "kx.h"

namespace kx {

std::atomic<bool> g_interrupted{false};

namespace {

void on_signal(int) { g_interrupted = true; }

const ModelInfo kModels[] = {
    {"AVEN", KX_MODEL_AVEN_E, 6},       {"BRIV", KX_MODEL_BRIV_E, 7},      {"CALD", KX_MODEL_CALD_II_E, 6},
    {"CALDI", KX_MODEL_CALD_I_E, 6},    {"CALDII", KX_MODEL_CALD_II_E, 6}, {"CALDIII", KX_MODEL_CALD_III_E, 6},
    {"CALDIV", KX_MODEL_CALD_IV_E, 6},  {"DUMO", KX_MODEL_DUMO_E, 6},      {"ESKA", KX_MODEL_ESKA_E, 6},
    {"FIRU", KX_MODEL_FIRU_E, 7},       {"GOLT", KX_MODEL_GOLT_E, 6},
};

const char* const kEditions[] = {"P", "QA", "QS"};

}  // namespace

std::string fmt(const char* f, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, f);
    std::vsnprintf(buf, sizeof buf, f, ap);
    va_end(ap);
    return buf;
}

void fail(const std::string& message) { std::fprintf(stderr, "kx: %s\n", message.c_str()); }

double number(const std::string& text, const char* what) {
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(v))
        throw UsageError{fmt("%s must be a number, not \"%s\"", what, text.c_str())};
    return v;
}

int integer(const std::string& text, const char* what) {
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < -1000000000L || v > 1000000000L)
        throw UsageError{fmt("%s must be a whole number, not \"%s\"", what, text.c_str())};
    return static_cast<int>(v);
}

double opt_number(const Args& a, const std::string& name, double fallback) {
    auto it = a.opt.find(name);
    return it == a.opt.end() ? fallback : number(it->second, ("--" + name).c_str());
}

int opt_integer(const Args& a, const std::string& name, int fallback) {
    auto it = a.opt.find(name);
    return it == a.opt.end() ? fallback : integer(it->second, ("--" + name).c_str());
}

std::vector<double> numbers(const std::vector<std::string>& items, size_t first, const char* what) {
    std::vector<double> out;
    for (size_t i = first; i < items.size(); ++i) out.push_back(number(items[i], what));
    return out;
}

Address parse_address(const std::string& text) {
    Address a;
    a.text = text;
    std::string host = text;
    const auto colon = text.rfind(':');
    if (colon != std::string::npos) {
        host = text.substr(0, colon);
        a.port = integer(text.substr(colon + 1), "the port in ADDR");
        if (a.port < 1 || a.port > 65535) throw UsageError{fmt("port %d in \"%s\" is not 1..65535", a.port, text.c_str())};
    }
    if (host.empty()) throw UsageError{fmt("\"%s\" is not an address: give IP[:PORT], e.g. 127.0.0.1:8080", text.c_str())};
    in_addr ip{};
    if (inet_pton(AF_INET, host.c_str(), &ip) == 1) {
        a.ip = host;
        return a;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* res = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &res) != 0 || !res)
        throw UsageError{fmt("cannot resolve host \"%s\": give an IPv4 address or a known host name", host.c_str())};
    char buf[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(res->ai_addr)->sin_addr, buf, sizeof buf);
    freeaddrinfo(res);
    a.ip = buf;
    return a;
}

const ModelInfo* model_by_name(const std::string& name) {
    std::string n;
    for (char c : name) {
        if (c == '-' || c == '_') break;  // "AVEN-QS" names the model AVEN
        n += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    for (const auto& m : kModels)
        if (n == m.name) return &m;
    return nullptr;
}

const char* model_name(kx_robot_arm_model_e model) {
    for (const auto& m : kModels)
        if (m.model == model) return model == KX_MODEL_CALD_II_E ? "CALD" : m.name;
    return "unknown";
}

const char* edition_name(kx_force_type_e edition) {
    const int e = static_cast<int>(edition);
    return e >= 0 && e < 3 ? kEditions[e] : "unknown";
}

bool edition_by_name(const std::string& name, kx_force_type_e& out) {
    for (int i = 0; i < 3; ++i)
        if (strcasecmp(name.c_str(), kEditions[i]) == 0) {
            out = static_cast<kx_force_type_e>(i);
            return true;
        }
    return false;
}

namespace {
bool g_started = false;
}

void start_library(kx_thread_mode_e mode, bool verbose) {
    // The library's own messages are for developers; kx says what went wrong itself.
    kx_set_log_call_back(nullptr, verbose ? LOG_LEVEL_INFO : LOG_LEVEL_ERROR + 1);
    kx_init(mode);
    g_started = true;
}

void stop_library() {
    if (g_started) kx_destory();
    g_started = false;
}

namespace {

// Whether anything accepts a TCP connection at `a` within `ms`: tells a
// controller that does not answer from an address where nothing listens.
enum class Reach { kRefused, kSilent, kAccepted };
Reach probe(const Address& a, int ms) {
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (s < 0) return Reach::kRefused;
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<uint16_t>(a.port));
    inet_pton(AF_INET, a.ip.c_str(), &sa.sin_addr);
    Reach r = Reach::kRefused;
    if (connect(s, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0) {
        r = Reach::kAccepted;
    } else if (errno == EINPROGRESS) {
        pollfd p{s, POLLOUT, 0};
        int err = 0;
        socklen_t len = sizeof err;
        if (poll(&p, 1, ms) == 0) r = Reach::kSilent;
        else if (getsockopt(s, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0) r = Reach::kAccepted;
    }
    close(s);
    return r;
}

}  // namespace

int connect_arm(const std::string& addr_text, Arm& arm) {
    arm.addr = parse_address(addr_text);
    arm.handle = kx_create_robot_arm(arm.addr.ip.c_str(), arm.addr.port);
    if (!arm.handle) {
        fail("too many arms: the library connects at most 5 at once");
        return kFailed;
    }
    if (arm.handle->id < 0) {
        kx_delete_robot_arm(arm.handle);
        arm.handle = nullptr;
        if (probe(arm.addr, 1000) == Reach::kRefused) {
            fail(fmt("cannot connect to %s:%d: check that the controller is on, reachable, and listening on that port",
                     arm.addr.ip.c_str(), arm.addr.port));
            return kNoConnection;
        }
        fail(fmt("%s:%d did not answer in time: is it an arm controller, and is it busy or stuck?", arm.addr.ip.c_str(),
                 arm.addr.port));
        return kTimeout;
    }
    if (kx_get_robot_info(arm.handle, &arm.info) != 0) {
        fail(fmt("%s answered but did not say its model: is it an arm controller?", arm.addr.text.c_str()));
        return kBadReply;
    }
    return kOk;
}

int exit_code(int rc) {
    switch (rc) {
    case 0: return kOk;
    case 1: return kRefused;
    case -1: return kNoConnection;
    case -2: return kTimeout;
    case -3: return kBadReply;
    default: return kFailed;
    }
}

int report(int rc, const Arm& arm, const std::string& what, const std::string& hint) {
    const int code = exit_code(rc);
    const char* addr = arm.addr.text.c_str();
    switch (code) {
    case kOk: break;
    case kRefused:
        fail(fmt("%s refused the %s%s%s", addr, what.c_str(), hint.empty() ? "" : ": ", hint.c_str()));
        break;
    case kNoConnection:
        fail(fmt("%s: the connection to %s failed; check the controller and the network", what.c_str(), addr));
        break;
    case kTimeout:
        fail(fmt("%s: no reply from %s in time; the controller may be busy, try again", what.c_str(), addr));
        break;
    case kBadReply:
        fail(fmt("%s: the reply of %s could not be decoded; is it a supported controller?", what.c_str(), addr));
        break;
    default:
        fail(fmt("%s on %s failed (library result %d)%s%s", what.c_str(), addr, rc, hint.empty() ? "" : ": ",
                 hint.c_str()));
    }
    return code;
}

void print_json(cJSON* obj) {
    char* text = cJSON_PrintUnformatted(obj);
    std::printf("%s\n", text ? text : "{}");
    std::fflush(stdout);
    cJSON_free(text);
    cJSON_Delete(obj);
}

cJSON* json_array(const float* v, int n) {
    cJSON* a = cJSON_CreateArray();
    for (int i = 0; i < n; ++i) cJSON_AddItemToArray(a, cJSON_CreateNumber(std::round(v[i] * 1e6) / 1e6));
    return a;
}

cJSON* json_array(const int* v, int n) {
    cJSON* a = cJSON_CreateArray();
    for (int i = 0; i < n; ++i) cJSON_AddItemToArray(a, cJSON_CreateNumber(v[i]));
    return a;
}

cJSON* json_pose(const kx_pose_t& p) {
    cJSON* o = cJSON_CreateObject();
    const float v[6] = {p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz};
    const char* names[6] = {"x", "y", "z", "rx", "ry", "rz"};
    for (int i = 0; i < 6; ++i) cJSON_AddNumberToObject(o, names[i], std::round(v[i] * 1e6) / 1e6);
    return o;
}

Progress::Progress(const Args& a, std::string label)
    : on_(!a.json && isatty(STDOUT_FILENO)), label_(std::move(label)), start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() { finish(); }

void Progress::update(double fraction) {
    if (!on_) return;
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    constexpr int kWidth = 30;
    std::string bar;
    if (fraction >= 0) {
        fraction = std::min(1.0, fraction);
        const int full = static_cast<int>(fraction * kWidth + 0.5);
        bar = std::string(full, '#') + std::string(kWidth - full, '-');
        std::printf("\r%s [%s] %3d%% %5.1fs", label_.c_str(), bar.c_str(), static_cast<int>(fraction * 100 + 0.5), secs);
    } else {
        const int at = static_cast<int>(secs * 8) % kWidth;
        bar = std::string(kWidth, '-');
        bar[at] = '#';
        std::printf("\r%s [%s] %5.1fs", label_.c_str(), bar.c_str(), secs);
    }
    std::fflush(stdout);
    drawn_ = true;
}

void Progress::finish() {
    if (drawn_) {
        std::printf("\r\033[K");
        std::fflush(stdout);
    }
    drawn_ = false;
}

void catch_interrupts() {
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    // A reader that goes away (kx watch | head) ends the loop like Ctrl-C,
    // so the arms get their push configuration back.
    std::signal(SIGPIPE, SIG_IGN);
}

void sleep_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

bool parse_jog_axis(const std::string& text, int dof, JogAxis& out) {
    static const char* const kPos[] = {"x", "y", "z"};
    static const char* const kOrt[] = {"rx", "ry", "rz"};
    for (int i = 0; i < 3; ++i) {
        if (strcasecmp(text.c_str(), kPos[i]) == 0) {
            out = {JogAxis::kPosition, i, 0.01};
            return true;
        }
        if (strcasecmp(text.c_str(), kOrt[i]) == 0) {
            out = {JogAxis::kOrientation, i, 0.05};
            return true;
        }
    }
    std::string t = text;
    if (!t.empty() && (t[0] == 'j' || t[0] == 'J')) t = t.substr(1);
    if (t.size() == 1 && t[0] >= '1' && t[0] <= '0' + dof) {
        out = {JogAxis::kJoint, t[0] - '0', 5.0};
        return true;
    }
    return false;
}

int jog_step(kx_robot_handle* h, const JogAxis& axis, double step, int speed) {
    const float s = static_cast<float>(step);
    switch (axis.kind) {
    case JogAxis::kJoint: return kx_set_joint_step_block(h, axis.index, s, speed, 1);
    case JogAxis::kPosition:
        return kx_set_pos_step_block(h, static_cast<kx_pos_teach_type_e>(axis.index), s, speed, 1);
    case JogAxis::kOrientation:
        return kx_set_ort_step_block(h, static_cast<kx_ort_teach_type_e>(axis.index), s, speed, 1);
    }
    return -1;
}

}  // namespace kx
