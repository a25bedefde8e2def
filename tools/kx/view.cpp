// kx view: a live page of the arms, served by civetweb.
//
// GET  /               the page (three.js from the system's libjs-three)
// GET  /api/state      the state of every arm as JSON
// POST /api/command    {"token", "arm": ID|"all", "action": "stop"|"clear"|"jog", "axis", "dir", "step"}
// POST /api/stop, /api/clear, /api/jog: the same, the action named by the path
// WS   /ws?token=T     the state pushed about 30 times a second; accepts the same commands
//
// Every command carries the per-run token, which only a page served by this
// process holds: a page of another origin cannot read it, so it cannot stop
// or jog an arm.
#include <arpa/inet.h>

#include <civetweb.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "live.h"
#include "web_assets.h"

namespace kx {

namespace {

constexpr int kPushPeriodMs = 33;       // the page's state rate, about 30 Hz
constexpr size_t kMaxBody = 16 * 1024;  // commands are small
constexpr int kMaxBusy = 8;             // WebSocket commands running at once

struct View {
    Live live;
    std::string token;
    bool embed_token = true;  // loopback: the page carries it; otherwise the user brings it
    bool read_only = false;
    std::string three_js;
    std::mutex ws_mutex;
    std::set<mg_connection*> sockets;
    std::atomic<int> busy{0};  // commands from sockets still running
};

std::string new_token() {
    std::random_device rd;
    std::string t;
    for (int i = 0; i < 4; ++i) t += fmt("%08x", rd());
    return t;
}

bool same_token(const std::string& given, const std::string& token) {
    if (given.size() != token.size()) return false;
    unsigned diff = 0;  // no early exit: the time does not tell how much matched
    for (size_t i = 0; i < given.size(); ++i) diff |= static_cast<unsigned char>(given[i] ^ token[i]);
    return diff == 0;
}

bool is_loopback(const std::string& host) {
    in_addr a{};
    if (host == "localhost") return true;
    return inet_pton(AF_INET, host.c_str(), &a) == 1 && (ntohl(a.s_addr) >> 24) == 127;
}

// On loopback the page holds the token, so only a request that names this
// machine may have it: a page whose host name was rebound to 127.0.0.1 names
// its own host, and is refused.
bool host_allowed(const View& v, const mg_connection* c) {
    if (!v.embed_token) return true;
    const char* h = mg_get_header(c, "Host");
    if (!h) return false;
    std::string host = h;
    if (const auto colon = host.rfind(':'); colon != std::string::npos && host.find(']') == std::string::npos)
        host.resize(colon);
    return is_loopback(host) || host == "[::1]";
}

void send(mg_connection* c, int status, const char* mime, const std::string& body) {
    const char* reason = status == 200 ? "OK" : status == 400 ? "Bad Request" : status == 403 ? "Forbidden"
                       : status == 404 ? "Not Found" : status == 405 ? "Method Not Allowed" : status == 409 ? "Conflict"
                       : status == 504 ? "Gateway Timeout" : "Bad Gateway";
    mg_printf(c,
              "HTTP/1.1 %d %s\r\nContent-Type: %s\r\nContent-Length: %zu\r\nCache-Control: no-store\r\n"
              "X-Content-Type-Options: nosniff\r\nConnection: close\r\n\r\n",
              status, reason, mime, body.size());
    mg_write(c, body.data(), body.size());
}

std::string json_text(cJSON* o) {
    char* t = cJSON_PrintUnformatted(o);
    std::string s = t ? t : "{}";
    cJSON_free(t);
    cJSON_Delete(o);
    return s;
}

std::string outcome(bool ok, const std::string& error, int result = 0) {
    cJSON* o = cJSON_CreateObject();
    cJSON_AddBoolToObject(o, "ok", ok);
    if (!ok) cJSON_AddStringToObject(o, "error", error.c_str());
    cJSON_AddNumberToObject(o, "result", result);
    return json_text(o);
}

// Runs one command from the page; returns the HTTP status and the reply.
std::pair<int, std::string> run_command(View& v, const std::string& body, const char* header_token,
                                        const std::string& path_action = "") {
    cJSON* req = body.empty() && !path_action.empty() ? cJSON_CreateObject()
                                                      : cJSON_ParseWithLength(body.data(), body.size());
    if (!req || !cJSON_IsObject(req)) {
        cJSON_Delete(req);
        return {400, outcome(false, "the command is not a JSON object")};
    }
    auto text = [&](const char* key) {
        const cJSON* i = cJSON_GetObjectItemCaseSensitive(req, key);
        return cJSON_IsString(i) ? std::string(i->valuestring) : std::string();
    };
    const std::string token = header_token ? header_token : text("token");
    const std::string action = path_action.empty() ? text("action") : path_action;
    const std::string axis_text = text("axis"), dir = text("dir");
    const cJSON* arm_item = cJSON_GetObjectItemCaseSensitive(req, "arm");
    const int arm_id = cJSON_IsNumber(arm_item) ? arm_item->valueint : 0;
    // Stopping or clearing without naming an arm means every arm.
    const bool all = (cJSON_IsString(arm_item) && !std::strcmp(arm_item->valuestring, "all")) ||
                     (!arm_item && (action == "stop" || action == "clear"));
    const cJSON* step_item = cJSON_GetObjectItemCaseSensitive(req, "step");
    const double step_given = cJSON_IsNumber(step_item) ? step_item->valuedouble : 0;
    cJSON_Delete(req);

    if (!same_token(token, v.token)) return {403, outcome(false, "missing or wrong token")};
    if (v.read_only) return {403, outcome(false, "this view is read-only")};
    std::vector<LiveArm*> targets;
    for (auto& a : v.live.arms)
        if (all || a->index == arm_id) targets.push_back(a.get());
    if (targets.empty()) return {400, outcome(false, "no such arm")};

    int rc = 0;
    if (action == "stop" || action == "clear") {
        auto call = action == "stop" ? kx_set_arm_stop : kx_clear_system_err;
        for (LiveArm* a : targets)
            if (const int r = v.live.command(*a, call); r != 0) rc = r;
    } else if (action == "jog" && !all) {
        JogAxis axis;
        if (!parse_jog_axis(axis_text, targets[0]->arm.info.arm_dof, axis) || (dir != "+" && dir != "-"))
            return {400, outcome(false, "jog needs an axis (1..7, x, y, z, rx, ry, rz) and a dir (+ or -)")};
        const double size = step_given > 0 && step_given <= axis.default_step * 4 ? step_given : axis.default_step;
        std::unique_lock<std::mutex> one(targets[0]->jog_mutex, std::try_to_lock);
        if (!one.owns_lock()) return {409, outcome(false, "this arm is still doing the last jog")};
        rc = v.live.command(*targets[0], [&](kx_robot_handle* h) { return jog_step(h, axis, dir == "+" ? size : -size, 20); });
    } else {
        return {400, outcome(false, "unknown action: stop, clear or jog (one arm)")};
    }
    switch (exit_code(rc)) {
    case kOk: return {200, outcome(true, "")};
    case kRefused: return {409, outcome(false, "the controller refused it (kx state shows its errors)", rc)};
    case kNoConnection: return {502, outcome(false, "no connection to the controller", rc)};
    case kTimeout: return {504, outcome(false, "no reply from the controller in time", rc)};
    default: return {502, outcome(false, fmt("the controller's answer was not understood (%d)", rc), rc)};
    }
}

std::string page(const View& v) {
    std::string html(kViewHtml);
    auto put = [&](const std::string& key, const std::string& value) {
        for (size_t at; (at = html.find(key)) != std::string::npos;) html.replace(at, key.size(), value);
    };
    put("@TOKEN@", v.embed_token ? v.token : "");
    put("@READONLY@", v.read_only ? "true" : "false");
    return html;
}

int on_http(mg_connection* c, void* data) {
    View& v = *static_cast<View*>(data);
    const mg_request_info* ri = mg_get_request_info(c);
    const std::string uri = ri->local_uri ? ri->local_uri : "/";
    const std::string method = ri->request_method ? ri->request_method : "";
    if (!host_allowed(v, c)) {
        send(c, 403, "text/plain", "this view answers only to 127.0.0.1 or localhost\n");
        return 1;
    }
    static const std::string kActionPaths[] = {"/api/stop", "/api/clear", "/api/jog"};
    const bool action_path = std::find(std::begin(kActionPaths), std::end(kActionPaths), uri) != std::end(kActionPaths);
    if (uri == "/api/command" || action_path) {
        if (method != "POST") {
            send(c, 405, "application/json", outcome(false, "POST a command"));
            return 1;
        }
        std::string body;
        char buf[4096];
        for (int n; body.size() <= kMaxBody && (n = mg_read(c, buf, sizeof buf)) > 0;) body.append(buf, n);
        if (body.size() > kMaxBody) {
            send(c, 400, "application/json", outcome(false, "command too long"));
            return 1;
        }
        const auto [status, reply] =
            run_command(v, body, mg_get_header(c, "X-KX-Token"), action_path ? uri.substr(5) : std::string());
        send(c, status, "application/json", reply);
        return 1;
    }
    if (method != "GET" && method != "HEAD") {
        send(c, 405, "text/plain", "GET only\n");
        return 1;
    }
    if (uri == "/api/state") send(c, 200, "application/json", json_text(v.live.snapshot()));
    else if (uri == "/" || uri == "/index.html") send(c, 200, "text/html; charset=utf-8", page(v));
    else if (uri == "/view.js") send(c, 200, "text/javascript; charset=utf-8", kViewJs);
    else if (uri == "/view.css") send(c, 200, "text/css; charset=utf-8", kViewCss);
    else if (uri == "/three.min.js") {
        std::ifstream f(v.three_js, std::ios::binary);
        std::stringstream ss;
        ss << f.rdbuf();
        if (f) send(c, 200, "text/javascript; charset=utf-8", ss.str());
        else send(c, 404, "text/plain", "three.js is not installed (apt-get install libjs-three)\n");
    } else {
        send(c, 404, "text/plain", "not found\n");
    }
    return 1;
}

int ws_connect(const mg_connection* c, void* data) {
    View& v = *static_cast<View*>(data);
    const mg_request_info* ri = mg_get_request_info(c);
    if (!host_allowed(v, c)) return 1;
    char given[128] = {};
    if (!ri->query_string || mg_get_var(ri->query_string, std::strlen(ri->query_string), "token", given, sizeof given) < 0)
        return 1;
    return same_token(given, v.token) ? 0 : 1;  // non-zero refuses the upgrade
}

void ws_ready(mg_connection* c, void* data) {
    View& v = *static_cast<View*>(data);
    std::lock_guard<std::mutex> lock(v.ws_mutex);
    v.sockets.insert(c);
}

int ws_data(mg_connection* c, int flags, char* text, size_t len, void* data) {
    View& v = *static_cast<View*>(data);
    const int opcode = flags & 0xf;
    if (opcode == MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE) return 0;
    if (opcode != MG_WEBSOCKET_OPCODE_TEXT || len > kMaxBody) return 1;
    // A command may wait for a motion: run it off the connection's thread.
    if (v.busy >= kMaxBusy) {
        const std::string msg = "{\"reply\":" + outcome(false, "too many commands at once") + "}";
        mg_websocket_write(c, MG_WEBSOCKET_OPCODE_TEXT, msg.data(), msg.size());
        return 1;
    }
    ++v.busy;
    std::thread([&v, c, body = std::string(text, len)] {
        const auto [status, reply] = run_command(v, body, nullptr);
        const std::string msg = "{\"reply\":" + reply + "}";
        std::lock_guard<std::mutex> lock(v.ws_mutex);
        if (v.sockets.count(c)) mg_websocket_write(c, MG_WEBSOCKET_OPCODE_TEXT, msg.data(), msg.size());
        --v.busy;
    }).detach();
    return 1;
}

void ws_close(const mg_connection* c, void* data) {
    View& v = *static_cast<View*>(data);
    std::lock_guard<std::mutex> lock(v.ws_mutex);
    v.sockets.erase(const_cast<mg_connection*>(c));
}

}  // namespace

int cmd_view(const Args& a) {
    auto v = std::make_unique<View>();
    v->read_only = a.has("read-only");
    v->three_js = KX_THREE_JS;
    std::string listen = a.has("listen") ? a.opt.at("listen") : "127.0.0.1:8000";
    const auto colon = listen.rfind(':');
    if (colon == std::string::npos) throw UsageError{"--listen takes HOST:PORT, e.g. 127.0.0.1:8000"};
    const std::string host = listen.substr(0, colon);
    const int port = integer(listen.substr(colon + 1), "the port of --listen");
    in_addr probe{};
    if (port < 0 || port > 65535 || (host != "localhost" && inet_pton(AF_INET, host.c_str(), &probe) != 1))
        throw UsageError{"--listen takes an IPv4 HOST and a PORT 0..65535, e.g. 127.0.0.1:8000"};
    const bool loopback = is_loopback(host);
    if (a.has("token")) {
        v->token = a.opt.at("token");
        if (v->token.size() < 16 || v->token.size() > 100 || v->token.find_first_of(" \"&#%<>") != std::string::npos)
            throw UsageError{"--token needs 16 to 100 characters without spaces, quotes or &#%<>"};
    } else {
        v->token = new_token();
    }
    v->embed_token = loopback;  // elsewhere anyone could fetch the page: the token travels in the URL fragment
    catch_interrupts();
    if (const int rc = v->live.open(a.pos, a.verbose); rc != kOk) return rc;

    mg_init_library(0);
    const std::string ports = (host == "localhost" ? "127.0.0.1" : host) + ":" + std::to_string(port);
    const char* options[] = {"listening_ports", ports.c_str(), "num_threads", "16", "request_timeout_ms", "10000",
                             "enable_keep_alive", "no", nullptr};
    mg_callbacks callbacks{};
    mg_context* ctx = mg_start(&callbacks, nullptr, options);
    if (!ctx) {
        fail(fmt("cannot listen on %s: is the port in use? (--listen HOST:PORT picks another)", ports.c_str()));
        v->live.close();
        return kFailed;
    }
    mg_set_request_handler(ctx, "/", on_http, v.get());
    mg_set_websocket_handler(ctx, "/ws", ws_connect, ws_ready, ws_data, ws_close, v.get());
    mg_server_port sp[4] = {};
    const int actual = mg_get_server_ports(ctx, 4, sp) > 0 ? sp[0].port : port;
    std::string url = fmt("http://%s:%d/", host.c_str(), actual);
    if (!loopback) url += "#token=" + v->token;
    std::printf("kx view: serving %zu arm%s on %s%s (Ctrl-C to stop)\n", v->live.arms.size(),
                v->live.arms.size() == 1 ? "" : "s", url.c_str(), v->read_only ? ", read-only" : "");
    if (!loopback && !a.has("token")) std::printf("kx view: generated token %s\n", v->token.c_str());
    std::fflush(stdout);

    std::thread keeper([&v] {
        while (!g_interrupted) {
            v->live.renew_stale_push();
            sleep_ms(250);
        }
    });
    while (!g_interrupted) {
        const std::string state = json_text(v->live.snapshot());
        {
            std::lock_guard<std::mutex> lock(v->ws_mutex);
            for (mg_connection* c : v->sockets) mg_websocket_write(c, MG_WEBSOCKET_OPCODE_TEXT, state.data(), state.size());
        }
        sleep_ms(kPushPeriodMs);
    }
    keeper.join();
    mg_stop(ctx);
    mg_exit_library();
    for (int waited = 0; v->busy > 0 && waited < 10000; waited += 10) sleep_ms(10);
    v->live.close();
    return kOk;
}

}  // namespace kx
