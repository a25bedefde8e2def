/* Tool and work frames and the tool's collision envelope. Reading the active
 * frame refreshes the connection record and the process-wide frame matrix
 * used by the local kinematics. */
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>

#include "kx_command.h"
#include "kx_result.h"
#include "kx_reply.h"
#include "kx_commands_internal.h"
#include "kx_invoke_algo.h"
#include "MIO_JSON.h"

using namespace kx;

namespace {

/* Names read back are cut to 10 characters. */
constexpr size_t kNameKept = 11;

/* A caller's name field may fill its 12 bytes without a terminator. */
struct Name {
    char text[13];
    explicit Name(const char* src) {
        std::memset(text, 0, sizeof text);
        if (src != nullptr) std::strncpy(text, src, 12);
    }
};

/* The messages of the two active-frame decoders. */
struct FrameTexts {
    const char* name_key;
    const char* name_ok;
    const char* name_err;
    const char* pose_ok;
    const char* pose_err;
    const char* whole_err;
};
const FrameTexts kToolTexts{"tool_name",
                            "[get_current_tool_frame] Tool frame Name: %s\n",
                            "[get_current_tool_frame] Tool frame Name parse err\n",
                            "[get_current_tool_frame] Tool frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n",
                            "[get_current_tool_frame] Tool frame pose parse err\n",
                            "[get_current_tool_frame] Current Tool frame parse err\n"};
const FrameTexts kWorkTexts{"frame_name",
                            "[get_current_work_frame] Work frame Name: %s\n",
                            "[get_current_work_frame] Work frame Name parse err\n",
                            "[get_current_work_frame] Work frame pose: (%.3f, %.3f, %.3f, %.3f, %.3f, %.3f)\n",
                            "[get_current_work_frame] Work frame pose parse err\n",
                            "[get_current_work_frame] Current Work frame parse err\n"};

/* Name and pose, common to both frames; the tool frame adds its payload. */
int parse_frame(const char* msg, kx_frame_t* frame, const FrameTexts& t, bool tool) {
    if (msg == nullptr || frame == nullptr) return -1;
    cJSON* root = cJSON_Parse(msg);
    if (root == nullptr) {
        kx_log_error("%s", t.whole_err);
        return -1;
    }
    kx_frame_t f;
    std::memset(&f, 0, sizeof f);
    int result = -1;
    do {
        const cJSON* name = cJSON_GetObjectItem(root, t.name_key);
        if (!cJSON_IsString(name) || name->valuestring == nullptr) {
            kx_log_error("%s", t.name_err);
            break;
        }
        copy_str(f.frame_name, kNameKept, name->valuestring);
        kx_log_info(t.name_ok, f.frame_name);
        int pose[6];
        if (read_ints(root, "pose", 6, pose) != Read::Ok) {
            kx_log_error("%s", t.pose_err);
            break;
        }
        pose_from_wire(pose, &f.pose);
        kx_log_info(t.pose_ok, f.pose.position.x, f.pose.position.y, f.pose.position.z, f.pose.euler.rx,
                    f.pose.euler.ry, f.pose.euler.rz);
        if (tool) {
            const cJSON* payload = cJSON_GetObjectItem(root, "payload");
            int payload_wire;
            if (!json_int(payload, &payload_wire)) {
                kx_log_error("[get_current_tool_frame] Tool frame payload parse err\n");
                break;
            }
            f.payload = from_wire(payload_wire, kMilli);
            kx_log_info("[get_current_tool_frame] Tool frame payloda: %.3f\n", f.payload);
            int com[3];
            if (read_ints(root, "position", 3, com) != Read::Ok) {
                kx_log_error("[get_current_tool_frame] Tool frame position parse err\n");
                break;
            }
            f.x = from_wire(com[0], kMicro);
            f.y = from_wire(com[1], kMicro);
            f.z = from_wire(com[2], kMicro);
            kx_log_info("[get_current_tool_frame] Tool frame position: (%.3f, %.3f, %.3f)\n", f.x, f.y, f.z);
        }
        result = 0;
    } while (false);
    cJSON_Delete(root);
    if (result == 0) *frame = f;
    return result;
}

/* Reads the active frame, refreshes the matrix and the record's copy. */
int get_current_frame(const char* fn, kx_robot_handle* h, bool tool, kx_frame_t* out) {
    if (out == nullptr) return -1;
    Request req(tool ? "get_current_tool_frame" : "get_current_work_frame");
    ReplyBuf buf;
    int r = exchange(fn, h, &req, tool ? "current_tool_frame" : "current_work_frame", buf);
    if (r < 1) return r;
    kx_frame_t f;
    r = tool ? parse_kx_get_current_tool_frame(buf.text, &f) : parse_kx_get_current_work_frame(buf.text, &f);
    if (r != 0) return r;
    *out = f;
    kx_matrix_t m = kx_algo_pos2matrix(f.pose);
    static_assert(sizeof(Matrix) == sizeof(kx_matrix_t), "the library's matrix mirrors the API's");
    {
        const kx::AlgoLock lock; /* the named matrices belong with the library's configuration */
        std::memcpy(tool ? &Tool_Matrix : &Frame_Matrix, &m, sizeof m);
    }
    return with_record(h, [&](kx_handle_t& rec) { (tool ? rec.tool_frame : rec.work_frame) = f; });
}

/* A selecting or deleting command, after which the active frame is read
 * again and that read's result returned. */
int set_then_reread(const SetSpec& s, kx_robot_handle* h, const char* name_key, const char* name, bool tool) {
    if (name == nullptr) return -1;
    Request req(s.command);
    req.str(name_key, name);
    int r = set_command(s.fn, h, req, s.command, s.key);
    if (r != 0) return r;
    kx_frame_t scratch;
    return tool ? kx_get_current_tool_frame(h, &scratch) : kx_get_current_work_frame(h, &scratch);
}

/* The fields shared by the manual and the update tool-frame commands. */
void add_tool_fields(Request& req, const kx_frame_t& frame, const Name& name) {
    int pose[6];
    req.pose(frame.pose, pose, "frame.pose");
    req.str("tool_name", name.text)
        .num("payload", req.f(frame.payload, 1000.0f, "frame.payload"))
        .ints("position", {req.f(frame.x, 1000000.0f, "frame.x"), req.f(frame.y, 1000000.0f, "frame.y"),
                           req.f(frame.z, 1000000.0f, "frame.z")})
        .ints("tool_pose", pose, 6);
}

int send_work_pose(const SetSpec& s, kx_robot_handle* h, const char* work_name, const kx_pose_t& pose) {
    if (work_name == nullptr) return -1;
    int wire[6];
    Request req(s.command);
    req.pose(pose, wire, "pose");
    req.str("frame_name", work_name).ints("frame_pose", wire, 6);
    return set_command(s.fn, h, req, s.command, s.key);
}

int get_total(const char* fn, kx_robot_handle* h, const char* request, const char* reply, kx_frame_name_t* names,
              int* len) {
    if (names == nullptr || len == nullptr) return -1;
    Request req(request);
    ReplyBuf buf;
    int r = exchange(fn, h, &req, reply, buf);
    if (r < 1) return r;
    return parse_kx_get_total_frame(buf.text, names, len);
}

}  // namespace

extern "C" {

KX_API int parse_kx_get_current_tool_frame(const char* msg, kx_frame_t* frame) {
    return parse_frame(msg, frame, kToolTexts, true);
}

KX_API int parse_kx_get_current_work_frame(const char* msg, kx_frame_t* frame) {
    return parse_frame(msg, frame, kWorkTexts, false);
}

KX_API int parse_kx_get_total_frame(const char* msg, kx_frame_name_t* names, int* len) {
    if (msg == nullptr || names == nullptr || len == nullptr) return -1;
    cJSON* root = cJSON_Parse(msg);
    if (root == nullptr) {
        kx_log_error("Get total frame name parse err\n");
        return kUndecodable;
    }
    const cJSON* list = cJSON_GetObjectItem(root, "frame_names");
    if (list == nullptr) list = cJSON_GetObjectItem(root, "tool_names");
    if (!cJSON_IsArray(list)) {
        cJSON_Delete(root);
        return -2;
    }
    int count = 0;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, list) {
        if (count >= KX_FRAME_NAMES_MAX) break;
        if (!cJSON_IsString(item) || item->valuestring == nullptr) continue;
        if (std::strcmp(item->valuestring, "NULL") == 0) break;
        /* Up to the whole 12-byte field; a 12-character name has no terminator. */
        char* dst = names[count].name;
        size_t n = strnlen(item->valuestring, sizeof names[count].name);
        std::memset(dst, 0, sizeof names[count].name);
        std::memcpy(dst, item->valuestring, n);
        ++count;
    }
    if (count > 0) *len = count;
    cJSON_Delete(root);
    return 0;
}

KX_API int Parser_Get_Tool_Envelope(const char* msg, kx_envelope_balls_list_t* envelope) {
    static const char* const fn = "kx_get_tool_envelope";
    if (msg == nullptr || envelope == nullptr) return -1;
    cJSON* root = cJSON_Parse(msg);
    if (root == nullptr) {
        kx_log_error("[%s] parser error!", fn);
        return kUndecodable;
    }
    if (cJSON_IsFalse(cJSON_GetObjectItem(root, "get_state"))) {
        kx_log_error("[%s] Get tool envelope return false! You can check if the tool frame exists.\n", fn);
        cJSON_Delete(root);
        return 1;
    }
    kx_envelope_balls_list_t env;
    std::memset(&env, 0, sizeof env);
    bool ok = false;
    const cJSON* tool = cJSON_GetObjectItem(root, "tool_name");
    const cJSON* list = cJSON_GetObjectItem(root, "list");
    if (cJSON_IsString(tool) && tool->valuestring != nullptr && cJSON_IsArray(list)) {
        copy_str(env.tool_name, tool->valuestring);
        ok = true;
        const cJSON* ball = nullptr;
        cJSON_ArrayForEach(ball, list) {
            if (env.size >= KX_ENVELOPE_BALLS_MAX) break;
            const cJSON* name = cJSON_GetObjectItem(ball, "name");
            const cJSON* v[4] = {cJSON_GetObjectItem(ball, "radius"), cJSON_GetObjectItem(ball, "x"),
                                 cJSON_GetObjectItem(ball, "y"), cJSON_GetObjectItem(ball, "z")};
            int w[4];
            if (!cJSON_IsString(name) || name->valuestring == nullptr || !json_int(v[0], &w[0]) ||
                !json_int(v[1], &w[1]) || !json_int(v[2], &w[2]) || !json_int(v[3], &w[3])) {
                ok = false;
                break;
            }
            kx_envelopes_ball_t& b = env.balls[env.size++];
            copy_str(b.name, name->valuestring);
            b.radius = from_wire(w[0], kMilli);
            b.x = from_wire(w[1], kMilli);
            b.y = from_wire(w[2], kMilli);
            b.z = from_wire(w[3], kMilli);
        }
    }
    cJSON_Delete(root);
    if (!ok) {
        kx_log_error("[%s] parser error!", fn);
        return kUndecodable;
    }
    *envelope = env;
    return 0;
}

KX_API int kx_set_auto_tool_frame(kx_robot_handle* handle, int point_num) {
    return set_num({"kx_set_auto_tool_frame", "set_auto_tool_frame", "auto_tool_frame"}, handle, "point_num",
                   point_num);
}

KX_API int kx_generate_auto_tool_frame(kx_robot_handle* handle, const char* name, float payload, float x, float y,
                                       float z) {
    if (name == nullptr) return kFailed;
    Request req("generate_auto_tool_frame");
    req.str("tool_name", name)
        .num("payload", req.f(payload, 1000.0f, "payload"))
        .ints("position", {req.f(x, 1000000.0f, "x"), req.f(y, 1000000.0f, "y"), req.f(z, 1000000.0f, "z")});
    /* Answered under the point-teaching command's name. */
    return set_command("kx_generate_auto_tool_frame", handle, req, "set_auto_tool_frame", "auto_tool_frame");
}

KX_API int kx_set_manual_tool_frame(kx_robot_handle* handle, kx_frame_t frame) {
    static const char* const fn = "kx_set_manual_tool_frame";
    Name name(frame.frame_name);
    Request req("set_manual_tool_frame");
    add_tool_fields(req, frame, name);
    int r = set_command(fn, handle, req, "set_manual_tool_frame", "manual_tool_frame");
    if (r == 1) kx_log_error("[%s] Failed to create the tool frame system, please check if the name already exists", fn);
    return r;
}

KX_API int kx_update_tool_frame(kx_robot_handle* handle, kx_frame_t frame) {
    Name name(frame.frame_name);
    Request req("update_tool_frame");
    add_tool_fields(req, frame, name);
    return set_command("kx_update_tool_frame", handle, req, "update_tool_frame", "update_state");
}

KX_API int kx_change_tool_frame(kx_robot_handle* handle, const char* tool_name) {
    return set_then_reread({"kx_change_tool_frame", "set_change_tool_frame", "change_tool_frame"}, handle,
                           "tool_name", tool_name, true);
}

KX_API int kx_delete_tool_frame(kx_robot_handle* handle, const char* tool_name) {
    return set_then_reread({"kx_delete_tool_frame", "set_delete_tool_frame", "delete_tool_frame"}, handle,
                           "tool_name", tool_name, true);
}

KX_API int kx_set_auto_work_frame(kx_robot_handle* handle, const char* workname, int point_num) {
    if (workname == nullptr) return kFailed;
    Request req("set_auto_work_frame");
    req.str("frame_name", workname).num("point_num", point_num);
    return set_command("kx_set_auto_work_frame", handle, req, "set_auto_work_frame", "auto_work_frame");
}

KX_API int kx_set_manual_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose) {
    return send_work_pose({"kx_set_manual_work_frame", "set_manual_work_frame", "manual_work_frame"}, handle,
                          work_name, pose);
}

KX_API int kx_update_work_frame(kx_robot_handle* handle, const char* work_name, kx_pose_t pose) {
    return send_work_pose({"kx_update_work_frame", "update_work_frame", "update_state"}, handle, work_name, pose);
}

KX_API int kx_change_work_frame(kx_robot_handle* handle, const char* work_name) {
    return set_then_reread({"kx_change_work_frame", "set_change_work_frame", "change_work_frame"}, handle,
                           "frame_name", work_name, false);
}

KX_API int kx_delete_work_frame(kx_robot_handle* handle, const char* work_name) {
    return set_then_reread({"kx_delete_work_frame", "set_delete_work_frame", "delete_work_frame"}, handle,
                           "frame_name", work_name, false);
}

KX_API int kx_set_tool_envelope(kx_robot_handle* handle, kx_envelope_balls_list_t envelope) {
    static const char* const fn = "kx_set_tool_envelope";
    int size = envelope.size < 0 ? 0 : (envelope.size > KX_ENVELOPE_BALLS_MAX ? KX_ENVELOPE_BALLS_MAX : envelope.size);
    Args args;
    int wire[KX_ENVELOPE_BALLS_MAX][4];
    for (int i = 0; i < size; ++i) {
        const kx_envelopes_ball_t& b = envelope.balls[i];
        const float v[4] = {b.radius, b.x, b.y, b.z};
        static const char* const kNames[4] = {"radius", "x", "y", "z"};
        for (int k = 0; k < 4; ++k) {
            char name[32];
            std::snprintf(name, sizeof name, "envelope.balls[%d].%s", i, kNames[k]);
            wire[i][k] = args.f(v[k], 1000.0f, name);
        }
    }
    if (args.refused(fn)) return kFailed;
    const Name tool(envelope.tool_name);
    cJSON* list = cJSON_CreateArray();
    for (int i = 0; i < size && list != nullptr; ++i) {
        const kx_envelopes_ball_t& b = envelope.balls[i];
        cJSON* ball = cJSON_CreateObject();
        cJSON_AddStringToObject(ball, "name", Name(b.name).text);
        cJSON_AddNumberToObject(ball, "radius", wire[i][0]);
        cJSON_AddNumberToObject(ball, "x", wire[i][1]);
        cJSON_AddNumberToObject(ball, "y", wire[i][2]);
        cJSON_AddNumberToObject(ball, "z", wire[i][3]);
        cJSON_AddItemToArray(list, ball);
    }
    /* A 500-byte line; send and wait failures are not logged. */
    Request req("set_tool_envelope");
    req.str("tool_name", tool.text).tree("list", list).limit(500).unreported();
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "set_tool_envelope", buf);
    if (r < 1) return r;
    r = parse_kx_set_command(fn, buf.text, "set_state");
    if (r == 1) kx_log_error("[%s] Set tool envelope return false! You can check if the tool frame exists.\n", fn);
    return r;
}

KX_API int kx_get_tool_envelope(kx_robot_handle* handle, const char* tool_name, kx_envelope_balls_list_t* envelope) {
    static const char* const fn = "kx_get_tool_envelope";
    if (tool_name == nullptr || envelope == nullptr) return kFailed;
    Request req("get_tool_envelope");
    req.str("tool_name", tool_name);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "get_tool_envelope", buf);
    if (r < 1) return r;
    return Parser_Get_Tool_Envelope(buf.text, envelope);
}

KX_API int kx_get_total_tool_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len) {
    return get_total("kx_get_total_tool_frame", handle, "get_total_tool_frame", "total_tool_frame", frame_names, len);
}

KX_API int kx_get_total_work_frame(kx_robot_handle* handle, kx_frame_name_t* frame_names, int* len) {
    return get_total("kx_get_total_work_frame", handle, "get_total_work_frame", "total_work_frame", frame_names, len);
}

KX_API int kx_get_given_tool_frame(kx_robot_handle* handle, const char* name, kx_frame_t* frame) {
    static const char* const fn = "kx_get_given_tool_frame";
    if (name == nullptr || frame == nullptr) return kFailed;
    Request req("get_tool_frame");
    req.str("tool_name", name);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "given_tool_frame", buf);
    if (r == -2) {
        /* A missing frame is answered under the request's own name. */
        r = exchange(fn, handle, nullptr, "get_tool_frame", buf);
        if (r > 0) r = parse_kx_set_command(fn, buf.text, "get_state");
        return (r < 0 && g_mode == KX_SINGLE_MODE_E) ? 1 : r;
    }
    if (r < 1) return r;
    KeyValue kv[] = {kv_str("tool_name"), kv_ints("pose", 6), kv_int("payload"), kv_ints("position", 3)};
    r = common_json_parse(fn, buf.text, kv, 4);
    if (r != 0) return r;
    kx_frame_t f;
    std::memset(&f, 0, sizeof f);
    copy_str(f.frame_name, kNameKept, kv[0].data.str_value);
    pose_from_wire(kv[1].data.array_value, &f.pose);
    f.payload = from_wire(kv[2].data.int_value, kMilli);
    f.x = from_wire(kv[3].data.array_value[0], kMicro);
    f.y = from_wire(kv[3].data.array_value[1], kMicro);
    f.z = from_wire(kv[3].data.array_value[2], kMicro);
    *frame = f;
    return 0;
}

KX_API int kx_get_given_work_frame(kx_robot_handle* handle, const char* name, kx_pose_t* pose) {
    static const char* const fn = "kx_get_given_work_frame";
    if (name == nullptr || pose == nullptr) return kFailed;
    Request req("get_work_frame");
    req.str("frame_name", name);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "given_work_frame", buf);
    if (r < 1) {
        r = exchange(fn, handle, nullptr, "get_work_frame", buf, kOutTimeMax);
        return r < 1 ? r : parse_kx_set_command(fn, buf.text, "get_state");
    }
    KeyValue kv[] = {kv_str("frame_name"), kv_ints("pose", 6)};
    r = common_json_parse(fn, buf.text, kv, 2);
    if (r == 0) pose_from_wire(kv[1].data.array_value, pose);
    return r;
}

KX_API int kx_get_current_tool_frame(kx_robot_handle* handle, kx_frame_t* tool_frame) {
    return get_current_frame("kx_get_current_tool_frame", handle, true, tool_frame);
}

KX_API int kx_get_current_work_frame(kx_robot_handle* handle, kx_frame_t* work_frame) {
    return get_current_frame("kx_get_current_work_frame", handle, false, work_frame);
}

}  // extern "C"
