/* Safety zones: named electronic fences, the active fence, the virtual wall
 * and self-collision detection. Geometry travels in thousandths of a metre;
 * which keys a record carries depends on its form. */
#include <cstddef>
#include <cstring>

#include "MIO_JSON.h"
#include "kx_result.h"
#include "kx_command.h"
#include "kx_commands_internal.h"

using namespace kx;

namespace {

constexpr int kListMax = 10;   /* fences in a list record */
constexpr int kNameCopy = 10;  /* characters of a given fence's name kept */
constexpr int kInfoBuf = 2048; /* the full fence list is longer than an ordinary reply */

/* ---- geometry --------------------------------------------------------------- */

/* A geometry key and where its value lives in kx_fence_config_t. */
struct GeoKey {
    const char* key;
    size_t offset;
};
#define KX_GEO(key, member) {key, offsetof(kx_fence_config_t, member)}

/* Keys in the order they are sent. The cube's "z_min_limit" carries
 * x_min_limit: the controller reads it so. */
constexpr GeoKey kCubeSent[] = {KX_GEO("x_max_limit", cube.x_max_limit), KX_GEO("x_min_limit", cube.x_min_limit),
                                KX_GEO("y_max_limit", cube.y_max_limit), KX_GEO("y_min_limit", cube.y_min_limit),
                                KX_GEO("z_max_limit", cube.z_max_limit), KX_GEO("z_min_limit", cube.x_min_limit)};
constexpr GeoKey kPlane[] = {KX_GEO("x1", plan.x1), KX_GEO("y1", plan.y1), KX_GEO("z1", plan.z1),
                             KX_GEO("x2", plan.x2), KX_GEO("y2", plan.y2), KX_GEO("z2", plan.z2),
                             KX_GEO("x3", plan.x3), KX_GEO("y3", plan.y3), KX_GEO("z3", plan.z3)};
constexpr GeoKey kSphereSent[] = {KX_GEO("radius", sphere.radius), KX_GEO("x", sphere.x), KX_GEO("y", sphere.y),
                                  KX_GEO("z", sphere.z)};
/* Keys in the order they are read back, each into its own field. */
constexpr GeoKey kCubeRead[] = {KX_GEO("x_min_limit", cube.x_min_limit), KX_GEO("x_max_limit", cube.x_max_limit),
                                KX_GEO("y_min_limit", cube.y_min_limit), KX_GEO("y_max_limit", cube.y_max_limit),
                                KX_GEO("z_min_limit", cube.z_min_limit), KX_GEO("z_max_limit", cube.z_max_limit)};
constexpr GeoKey kSphereRead[] = {KX_GEO("x", sphere.x), KX_GEO("y", sphere.y), KX_GEO("z", sphere.z),
                                  KX_GEO("radius", sphere.radius)};
#undef KX_GEO

struct GeoKeys {
    const GeoKey* keys;
    int n;
};
template <size_t N>
constexpr GeoKeys keys_of(const GeoKey (&k)[N]) {
    return {k, static_cast<int>(N)};
}

GeoKeys sent_keys(int form) {
    switch (form) {
    case KX_FENCE_FORM_CUBE_E: return keys_of(kCubeSent);
    case KX_FENCE_FORM_PLANE_E: return keys_of(kPlane);
    case KX_FENCE_FORM_SPHERE_E: return keys_of(kSphereSent);
    default: return {nullptr, 0};
    }
}

GeoKeys read_keys(int form) {
    switch (form) {
    case KX_FENCE_FORM_CUBE_E: return keys_of(kCubeRead);
    case KX_FENCE_FORM_PLANE_E: return keys_of(kPlane);
    case KX_FENCE_FORM_SPHERE_E: return keys_of(kSphereRead);
    default: return {nullptr, 0};
    }
}

float geo(const kx_fence_config_t& c, const GeoKey& k) {
    float v;
    std::memcpy(&v, reinterpret_cast<const char*>(&c) + k.offset, sizeof v);
    return v;
}
void set_geo(kx_fence_config_t& c, const GeoKey& k, int thousandths) {
    const float v = static_cast<float>(thousandths / 1000.0);
    std::memcpy(reinterpret_cast<char*>(&c) + k.offset, &v, sizeof v);
}

/* Appends a form's geometry, encoded, to a request. */
void pack_geometry(Request& req, const kx_fence_config_t& c, int form) {
    const GeoKeys g = sent_keys(form);
    for (int i = 0; i < g.n; ++i) req.num(g.keys[i].key, req.f(geo(c, g.keys[i]), 1000.0f, g.keys[i].key));
}

/* Decodes a form's geometry from a reply: 0, or the decoder's -3. */
int decode_geometry(const char* fn, const char* text, kx_fence_config_t& c, int form) {
    const GeoKeys g = read_keys(form);
    if (g.n == 0) return 0;
    KeyValue kv[9];
    for (int i = 0; i < g.n; ++i) kv[i] = kv_int(g.keys[i].key);
    int r = common_json_parse(fn, text, kv, g.n);
    if (r != 0) return r;
    for (int i = 0; i < g.n; ++i) set_geo(c, g.keys[i], kv[i].data.int_value);
    return 0;
}

/* The record's name as a terminated string (it may fill all 12 bytes). */
struct Name {
    char text[sizeof(kx_fence_config_t::name) + 1] = {};
    explicit Name(const char (&name)[sizeof(kx_fence_config_t::name)]) {
        std::memcpy(text, name, sizeof name);
    }
};

/* ---- named fences ------------------------------------------------------------ */

struct FenceStore {
    const char* fn;
    const char* command;
    const char* verdict;
};
constexpr FenceStore kAdd{"kx_add_electronic_fence_config", "add_electronic_fence_config", "add_config"};
constexpr FenceStore kUpdate{"kx_update_electronic_fence_config", "update_electronic_fence_config",
                             "update_config"};

int store_fence(const FenceStore& s, kx_robot_handle* h, const kx_fence_config_t& c) {
    if (c.form < KX_FENCE_FORM_CUBE_E || c.form > KX_FENCE_FORM_SPHERE_E) {
        kx_log_error("Configuration error for the form of the newly added electronic fence! Wrong form: %d\n",
                     c.form);
        return kInvalidConfig;
    }
    Name name(c.name);
    Request req(s.command);
    req.num("form", c.form).str("form_name", name.text);
    pack_geometry(req, c, c.form);
    return set_command(s.fn, h, req, s.command, s.verdict);
}

/* ---- the active fence and the wall -------------------------------------------- */

/* Reads "form", then the geometry of the forms the zone can take. With no
 * "form" the reply's "given_state" may say the controller has none. */
int get_zone(const char* fn, const char* command, int form_a, int form_b, kx_robot_handle* h,
             kx_fence_config_t* config) {
    if (config == nullptr) return -1;
    Request req(command);
    ReplyBuf buf;
    int r = exchange(fn, h, &req, command, buf);
    if (r < 1) return r;
    KeyValue form = kv_int("form");
    r = common_json_parse(fn, buf.text, &form, 1);
    if (r != 0) return parse_kx_set_command(fn, buf.text, "given_state") == 1 ? 1 : r;
    config->form = form.data.int_value;
    if (config->form != form_a && config->form != form_b) return 0;
    return decode_geometry(fn, buf.text, *config, config->form);
}

/* {"command", "set_enable", "in_out_side", "effective_region"} */
int set_enable(const char* fn, const char* command, kx_robot_handle* h, const kx_electronic_fence_enable_t& s) {
    Request req(command);
    req.flag("set_enable", s.enable_state).num("in_out_side", s.in_out_side).num("effective_region",
                                                                                 s.effective_region);
    return set_command(fn, h, req, command, "set_state");
}

int get_enable(const char* fn, const char* command, kx_robot_handle* h, kx_electronic_fence_enable_t* s) {
    if (s == nullptr) return -1;
    Request req(command);
    KeyValue kv[] = {kv_bool("enable_state"), kv_int("in_out_side"), kv_int("effective_region")};
    int r = query(fn, h, req, command, kv, 3);
    if (r != 0) return r;
    s->enable_state = kv[0].data.bool_value;
    s->in_out_side = kv[1].data.int_value;
    s->effective_region = kv[2].data.int_value;
    return 0;
}

/* One fence of "info_list": name, form, then its geometry. */
bool parse_info(const cJSON* item, kx_fence_config_t& c) {
    const cJSON* name = MIO_JSON_GetObjectItem(item, "form_name");
    const cJSON* form = MIO_JSON_GetObjectItem(item, "form");
    if (!cJSON_IsString(name) || !kx::json_int(form, &c.form)) return false;
    std::strncpy(c.name, name->valuestring, sizeof c.name);
    const GeoKeys g = read_keys(c.form);
    for (int i = 0; i < g.n; ++i) {
        int value;
        if (!kx::json_int(MIO_JSON_GetObjectItem(item, g.keys[i].key), &value)) return false;
        set_geo(c, g.keys[i], value);
    }
    return true;
}

}  // namespace

extern "C" {

KX_API int Parser_Get_Electronic_Fence_List_Info(const char* msg, kx_fence_config_list_t* list, int* len) {
    if (msg == nullptr || list == nullptr || len == nullptr) return kUndecodable;
    cJSON* root = MIO_JSON_Parse(msg);
    const cJSON* infos = MIO_JSON_GetObjectItem(root, "info_list");
    if (!cJSON_IsArray(infos)) {
        MIO_JSON_Delete(root);
        return kUndecodable;
    }
    int size = MIO_JSON_GetArraySize(infos);
    *len = size < kListMax ? size : kListMax;
    int r = 0;
    for (int i = 0; i < *len; ++i)
        if (!parse_info(MIO_JSON_GetArrayItem(infos, i), list->config[i])) {
            r = -3;
            break;
        }
    MIO_JSON_Delete(root);
    return r;
}

KX_API int kx_add_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config) {
    return store_fence(kAdd, handle, config);
}

KX_API int kx_update_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config) {
    return store_fence(kUpdate, handle, config);
}

KX_API int kx_delete_electronic_fence_config(kx_robot_handle* handle, const char* form_name) {
    if (form_name == nullptr) return kFailed;
    Request req("delete_electronic_fence_config");
    req.str("form_name", form_name);
    return set_command("kx_delete_electronic_fence_config", handle, req, "delete_electronic_fence_config",
                       "delete_config");
}

KX_API int kx_get_electronic_fence_list_names(kx_robot_handle* handle, kx_fence_names_t* names, int* len) {
    static const char* const fn = "kx_get_electronic_fence_list_names";
    if (names == nullptr || len == nullptr) return kFailed;
    Request req("get_electronic_fence_list_names");
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "get_electronic_fence_list_names", buf);
    if (r < 1) return r;
    cJSON* root = MIO_JSON_Parse(buf.text);
    const cJSON* list = MIO_JSON_GetObjectItem(root, "name_list");
    if (!cJSON_IsArray(list)) {
        kx_log_error("Get fence list names parse err\n");
        MIO_JSON_Delete(root);
        return kUndecodable;
    }
    int size = MIO_JSON_GetArraySize(list);
    *len = size < kListMax ? size : kListMax;
    for (int i = 0; i < *len; ++i) {
        const cJSON* item = MIO_JSON_GetArrayItem(list, i);
        std::memset(names[i].name, 0, sizeof names[i].name);
        if (cJSON_IsString(item)) std::strncpy(names[i].name, item->valuestring, sizeof names[i].name);
    }
    MIO_JSON_Delete(root);
    return 0;
}

KX_API int kx_get_given_electronic_fence_config(kx_robot_handle* handle, const char* name, kx_fence_config_t* config) {
    static const char* const fn = "kx_get_given_electronic_fence_config";
    if (name == nullptr || config == nullptr) return kFailed;
    Request req("given_electronic_fence_config");
    req.str("form_name", name);
    ReplyBuf buf;
    int r = exchange(fn, handle, &req, "given_electronic_fence_config", buf);
    if (r < 1) return r;
    if (parse_kx_set_command(fn, buf.text, "given_state") == 1) {
        kx_log_error("The given electronic fence name does not exist!\n");
        return 1;
    }
    KeyValue kv[] = {kv_int("form"), kv_str("form_name")};
    r = common_json_parse(fn, buf.text, kv, 2);
    if (r != 0) return r;
    std::memset(config->name, 0, sizeof config->name);
    std::memcpy(config->name, kv[1].data.str_value, strnlen(kv[1].data.str_value, kNameCopy));
    config->form = kv[0].data.int_value;
    return decode_geometry(fn, buf.text, *config, config->form);
}

KX_API int kx_get_electronic_fence_list_infos(kx_robot_handle* handle, kx_fence_config_list_t* config_list,
                                              int* len) {
    static const char* const fn = "kx_get_electronic_fence_list_infos";
    if (config_list == nullptr || len == nullptr) return kFailed;
    Request req("get_electronic_fence_list_infos");
    if (!req.ok()) return kFailed;
    uint8_t buf[kInfoBuf] = {};
    int r = kx_pack_lock_set(fn, handle, req.rows(), req.size(), "get_electronic_fence_list_infos", buf, sizeof buf,
                             m_nOutTime);
    if (r < 1) return r;
    return Parser_Get_Electronic_Fence_List_Info(reinterpret_cast<const char*>(buf), config_list, len);
}

KX_API int kx_set_electronic_fence_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t state) {
    return set_enable("kx_set_electronic_fence_enable", "set_electronic_fence_enable", handle, state);
}

KX_API int kx_get_electronic_fence_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t* state) {
    return get_enable("kx_get_electronic_fence_enable", "get_electronic_fence_enable", handle, state);
}

KX_API int kx_set_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t config) {
    if (config.form == KX_FENCE_FORM_SPHERE_E) {
        kx_log_error("electronic fence form check err!!");
        return kInvalidConfig;
    }
    Request req("set_electronic_fence_config");
    req.num("form", config.form);
    pack_geometry(req, config, config.form);
    return set_command("kx_set_electronic_fence_config", handle, req, "set_electronic_fence_config", "set_config");
}

KX_API int kx_get_electronic_fence_config(kx_robot_handle* handle, kx_fence_config_t* config) {
    return get_zone("kx_get_electronic_fence_config", "get_electronic_fence_config", KX_FENCE_FORM_CUBE_E,
                    KX_FENCE_FORM_PLANE_E, handle, config);
}

KX_API int kx_set_virtual_wall_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t state) {
    return set_enable("kx_set_virtual_wall_enable", "set_virtual_wall_enable", handle, state);
}

KX_API int kx_get_virtual_wall_enable(kx_robot_handle* handle, kx_electronic_fence_enable_t* state) {
    return get_enable("kx_get_virtual_wall_enable", "get_virtual_wall_enable", handle, state);
}

KX_API int kx_set_virtual_wall_config(kx_robot_handle* handle, kx_fence_config_t config) {
    /* A plane cannot bound the wall: the controller is told the form alone. */
    if (config.form == KX_FENCE_FORM_PLANE_E) kx_log_error("virtual wall form check err!\n");
    Request req("set_virtual_wall_config");
    req.num("form", config.form);
    if (config.form != KX_FENCE_FORM_PLANE_E) pack_geometry(req, config, config.form);
    return set_command("kx_set_virtual_wall_config", handle, req, "set_virtual_wall_config", "set_config");
}

KX_API int kx_get_virtual_wall_config(kx_robot_handle* handle, kx_fence_config_t* config) {
    return get_zone("kx_get_virtual_wall_config", "get_virtual_wall_config", KX_FENCE_FORM_CUBE_E,
                    KX_FENCE_FORM_SPHERE_E, handle, config);
}

KX_API int kx_set_self_collision_enable(kx_robot_handle* handle, bool state) {
    Request req("set_self_collision_enable");
    req.flag("set_enable", state);
    return set_command("kx_set_self_collision_enable", handle, req, "set_self_collision_enable", "set_state");
}

KX_API int kx_get_self_collision_enable(kx_robot_handle* handle, bool* state) {
    static const char* const fn = "kx_get_self_collision_enable";
    if (state == nullptr) return kFailed;
    Request req("get_self_collision_enable");
    KeyValue kv = kv_bool("enable_state");
    int r = query(fn, handle, req, "get_self_collision_enable", &kv, 1);
    if (r == 0) *state = kv.data.bool_value;
    return r;
}

}  // extern "C"
