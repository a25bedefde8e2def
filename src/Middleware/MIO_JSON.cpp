#include "MIO_JSON.h"

extern "C" {

KX_API bool MIO_JSON_Assert(const void* ptr) { return ptr != nullptr; }

KX_API cJSON* MIO_JSON_Parse(const char* value) { return MIO_JSON_Assert(value) ? cJSON_Parse(value) : nullptr; }

KX_API void MIO_JSON_Delete(cJSON* item) {
    if (MIO_JSON_Assert(item)) cJSON_Delete(item);
}

KX_API cJSON* MIO_JSON_CreateObject(void) { return cJSON_CreateObject(); }
KX_API cJSON* MIO_JSON_CreateArray(void) { return cJSON_CreateArray(); }
KX_API cJSON* MIO_JSON_CreateNumber(double num) { return cJSON_CreateNumber(num); }
KX_API cJSON* MIO_JSON_CreateTrue(void) { return cJSON_CreateTrue(); }
KX_API cJSON* MIO_JSON_CreateFalse(void) { return cJSON_CreateFalse(); }

KX_API cJSON* MIO_JSON_CreateString(const char* string) {
    return MIO_JSON_Assert(string) ? cJSON_CreateString(string) : nullptr;
}

KX_API void MIO_JSON_AddItemToObject(cJSON* object, const char* string, cJSON* item) {
    if (MIO_JSON_Assert(object) && MIO_JSON_Assert(string) && MIO_JSON_Assert(item))
        cJSON_AddItemToObject(object, string, item);
}

KX_API void MIO_JSON_AddItemToArray(cJSON* array, cJSON* item) {
    if (MIO_JSON_Assert(array) && MIO_JSON_Assert(item)) cJSON_AddItemToArray(array, item);
}

KX_API char* MIO_JSON_Print(const cJSON* item) { return MIO_JSON_Assert(item) ? cJSON_Print(item) : nullptr; }

KX_API char* MIO_JSON_PrintUnformatted(const cJSON* item) {
    return MIO_JSON_Assert(item) ? cJSON_PrintUnformatted(item) : nullptr;
}

KX_API cJSON* MIO_JSON_GetObjectItem(const cJSON* object, const char* string) {
    return MIO_JSON_Assert(object) && MIO_JSON_Assert(string) ? cJSON_GetObjectItem(object, string) : nullptr;
}

KX_API cJSON* MIO_JSON_GetArrayItem(const cJSON* array, int index) {
    return MIO_JSON_Assert(array) ? cJSON_GetArrayItem(array, index) : nullptr;
}

KX_API int MIO_JSON_GetArraySize(const cJSON* array) { return MIO_JSON_Assert(array) ? cJSON_GetArraySize(array) : 0; }

KX_API int MIO_JSON_GetTypeFormItem(const cJSON* item) { return MIO_JSON_Assert(item) ? item->type : 0; }

KX_API int MIO_JSON_GetObjectItemInt(const cJSON* object, const char* string) {
    if (!MIO_JSON_Assert(object) || !MIO_JSON_Assert(string)) return -2;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    if (!item) return -1;
    int value;
    return kx::json_int(item, &value) ? value : -3;
}

KX_API char* MIO_JSON_GetObjectItemStr(const cJSON* object, const char* string) {
    if (!MIO_JSON_Assert(object) || !MIO_JSON_Assert(string)) return nullptr;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

KX_API int MIO_JSON_GetObjectItemBool(const cJSON* object, const char* string) {
    if (!MIO_JSON_Assert(object) || !MIO_JSON_Assert(string)) return -1;
    const cJSON* item = cJSON_GetObjectItem(object, string);
    if (cJSON_IsTrue(item)) return 1;
    if (cJSON_IsFalse(item)) return 0;
    return -1;
}

KX_API int MIO_JSON_GetArrayItemInt(const cJSON* array, int index) {
    if (!cJSON_IsArray(array) || index < 0 || index >= cJSON_GetArraySize(array)) return -1;
    int value;
    return kx::json_int(cJSON_GetArrayItem(array, index), &value) ? value : -1;
}

}  // extern "C"

namespace kx {

bool json_int(const cJSON* item, int* out) {
    if (!cJSON_IsNumber(item)) return false;
    const double v = item->valuedouble;
    if (!(v > -2147483649.0 && v < 2147483648.0)) return false; /* NaN fails too */
    *out = static_cast<int>(v);
    return true;
}

}  // namespace kx
