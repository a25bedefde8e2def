#include "sim_json.h"

#include <arpa/inet.h>

#include <climits>
#include <cmath>
#include <cstdlib>

namespace kxsim {

int to_wire(double value, double scale) {
    const double v = std::trunc(value * scale);
    if (!(v == v)) return 0;  // NaN
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

namespace {
bool number_to_int(const cJSON* item, int& out) {
    if (!cJSON_IsNumber(item)) return false;
    out = to_wire(item->valuedouble, 1.0);
    return true;
}
}  // namespace

bool get_int(const cJSON* obj, const char* key, int& out) {
    return number_to_int(cJSON_GetObjectItemCaseSensitive(obj, key), out);
}

bool get_bool(const cJSON* obj, const char* key, bool& out) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(obj, key);
    if (cJSON_IsBool(item)) {
        out = cJSON_IsTrue(item);
        return true;
    }
    int v = 0;
    if (number_to_int(item, v) && (v == 0 || v == 1)) {
        out = v == 1;
        return true;
    }
    return false;
}

bool get_str(const cJSON* obj, const char* key, std::string& out) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(obj, key);
    if (!cJSON_IsString(item) || !item->valuestring) return false;
    out = item->valuestring;
    return true;
}

bool get_int_list(const cJSON* obj, const char* key, size_t max_n, std::vector<int>& out) {
    const cJSON* arr = cJSON_GetObjectItemCaseSensitive(obj, key);
    if (!cJSON_IsArray(arr)) return false;
    out.clear();
    const cJSON* el = nullptr;
    cJSON_ArrayForEach(el, arr) {
        int v = 0;
        if (out.size() >= max_n || !number_to_int(el, v)) return false;
        out.push_back(v);
    }
    return true;
}

bool get_ints(const cJSON* obj, const char* key, size_t n, int* out) {
    std::vector<int> v;
    if (!get_int_list(obj, key, n, v) || v.size() != n) return false;
    for (size_t i = 0; i < n; ++i) out[i] = v[i];
    return true;
}

bool valid_ip(const std::string& ip) {
    in_addr a{};
    return ip.size() >= 7 && ip.size() <= 15 && inet_pton(AF_INET, ip.c_str(), &a) == 1;
}

void add_int(cJSON* obj, const char* key, int v) { cJSON_AddItemToObject(obj, key, cJSON_CreateNumber(v)); }
void add_bool(cJSON* obj, const char* key, bool v) { cJSON_AddItemToObject(obj, key, cJSON_CreateBool(v)); }
void add_str(cJSON* obj, const char* key, const std::string& v) {
    cJSON_AddItemToObject(obj, key, cJSON_CreateString(v.c_str()));
}
void add_ints(cJSON* obj, const char* key, const int* v, size_t n) {
    cJSON* arr = cJSON_CreateArray();
    for (size_t i = 0; i < n; ++i) cJSON_AddItemToArray(arr, cJSON_CreateNumber(v[i]));
    cJSON_AddItemToObject(obj, key, arr);
}

std::string print_and_delete(cJSON* obj) {
    char* text = cJSON_PrintUnformatted(obj);
    std::string out = text ? text : "";
    cJSON_free(text);
    cJSON_Delete(obj);
    return out;
}

}  // namespace kxsim
