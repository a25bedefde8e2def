#include "kx_reply.h"

#include <algorithm>
#include <cstring>

#include "MIO_JSON.h"

namespace kx {

const cJSON* ReplyView::container() const {
    const cJSON* box = cJSON_GetObjectItem(root_, "arm_state");
    if (box == nullptr) box = cJSON_GetObjectItem(root_, "all_state");
    return box ? box : root_;
}

Read read_int(const cJSON* obj, const char* key, int* out) {
    const cJSON* item = obj ? cJSON_GetObjectItem(obj, key) : nullptr;
    if (item == nullptr) return Read::Missing;
    return json_int(item, out) ? Read::Ok : Read::Invalid;
}

namespace {
bool element(const cJSON* item, int* out) {
    if (!cJSON_IsNumber(item)) {
        *out = -1;
        return true;
    }
    return json_int(item, out);
}
}  // namespace

Read read_ints_upto(const cJSON* obj, const char* key, int cap, int* out, int* size) {
    const cJSON* arr = obj ? cJSON_GetObjectItem(obj, key) : nullptr;
    if (arr == nullptr) return Read::Missing;
    if (!cJSON_IsArray(arr)) return Read::Invalid;
    int n = 0;
    for (const cJSON* item = arr->child; item != nullptr && n < cap; item = item->next, ++n)
        if (!element(item, &out[n])) return Read::Invalid;
    if (size) *size = std::min(cJSON_GetArraySize(arr), cap);
    return Read::Ok;
}

Read read_ints(const cJSON* obj, const char* key, int n, int* out) {
    const cJSON* arr = obj ? cJSON_GetObjectItem(obj, key) : nullptr;
    if (arr == nullptr) return Read::Missing;
    if (!cJSON_IsArray(arr) || cJSON_GetArraySize(arr) != n) return Read::Invalid;
    return read_ints_upto(obj, key, n, out, nullptr);
}

Read read_str(const cJSON* obj, const char* key, char* out, size_t cap) {
    const cJSON* item = obj ? cJSON_GetObjectItem(obj, key) : nullptr;
    if (item == nullptr) return Read::Missing;
    if (!cJSON_IsString(item) || cap == 0) return Read::Invalid;
    size_t n = strnlen(item->valuestring, cap - 1);
    std::memcpy(out, item->valuestring, n);
    out[n] = '\0';
    return Read::Ok;
}

Read read_bool(const cJSON* obj, const char* key, bool* out) {
    const cJSON* item = obj ? cJSON_GetObjectItem(obj, key) : nullptr;
    if (item == nullptr) return Read::Missing;
    if (!cJSON_IsBool(item)) return Read::Invalid;
    *out = cJSON_IsTrue(item);
    return Read::Ok;
}

}  // namespace kx
