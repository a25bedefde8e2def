#include "kx_reply.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "MIO_JSON.h"

namespace kx {

namespace {

struct StoredTree {
    const void* fifo = nullptr;
    int index = -1;
    unsigned long long stamp = 0;
    cJSON* tree = nullptr;
    ~StoredTree() { cJSON_Delete(tree); }
};

struct TakenReply {
    const char* at = nullptr; /* where the reply was copied */
    char* text = nullptr;     /* its bytes, to tell a reused buffer from it */
    size_t cap = 0;
    cJSON* tree = nullptr;
    ~TakenReply() {
        cJSON_Delete(tree);
        std::free(text);
    }
};

thread_local StoredTree t_stored;
thread_local TakenReply t_taken;

const cJSON* taken_tree_for(const char* text) {
    if (t_taken.tree == nullptr || text != t_taken.at || std::strcmp(text, t_taken.text) != 0) return nullptr;
    return t_taken.tree;
}

}  // namespace

void keep_stored_tree(const void* fifo, int index, unsigned long long stamp, cJSON* root) {
    cJSON_Delete(t_stored.tree);
    t_stored.fifo = fifo;
    t_stored.index = index;
    t_stored.stamp = stamp;
    t_stored.tree = root;
}

void taken_whole(const void* fifo, int index, unsigned long long stamp, const char* out, size_t len) {
    if (t_stored.tree == nullptr || t_stored.fifo != fifo || t_stored.index != index || t_stored.stamp != stamp)
        return;
    if (t_taken.cap < len + 1) {
        auto* grown = static_cast<char*>(std::realloc(t_taken.text, len + 1));
        if (grown == nullptr) return;  // parsed again later, that is all
        t_taken.text = grown;
        t_taken.cap = len + 1;
    }
    std::memcpy(t_taken.text, out, len);
    t_taken.text[len] = '\0';
    cJSON_Delete(t_taken.tree);
    t_taken.tree = t_stored.tree;
    t_taken.at = out;
    t_stored.tree = nullptr;
}

void forget_taken_reply() {
    cJSON_Delete(t_taken.tree);
    t_taken.tree = nullptr;
    t_taken.at = nullptr;
}

ReplyView::ReplyView(const char* text) : root_(nullptr) {
    if (const cJSON* tree = taken_tree_for(text)) {
        root_ = const_cast<cJSON*>(tree);  // borrowed, read only
        owned_ = false;
        return;
    }
    root_ = text ? cJSON_Parse(text) : nullptr;
}

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
