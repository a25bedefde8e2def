/* Thin null-checking layer over cJSON: every library message is built and read through it. */
#ifndef KX_MIDDLEWARE_MIO_JSON_H
#define KX_MIDDLEWARE_MIO_JSON_H

#include <stdbool.h>

#include <cJSON.h>

#include "kx_define.h"

#ifdef __cplusplus
extern "C" {
#endif

KX_API bool MIO_JSON_Assert(const void* ptr);
KX_API cJSON* MIO_JSON_Parse(const char* value);
KX_API void MIO_JSON_Delete(cJSON* item);
KX_API cJSON* MIO_JSON_CreateObject(void);
KX_API cJSON* MIO_JSON_CreateArray(void);
KX_API cJSON* MIO_JSON_CreateNumber(double num);
KX_API cJSON* MIO_JSON_CreateTrue(void);
KX_API cJSON* MIO_JSON_CreateFalse(void);
KX_API cJSON* MIO_JSON_CreateString(const char* string);
KX_API void MIO_JSON_AddItemToObject(cJSON* object, const char* string, cJSON* item);
KX_API void MIO_JSON_AddItemToArray(cJSON* array, cJSON* item);
KX_API char* MIO_JSON_Print(const cJSON* item);
KX_API char* MIO_JSON_PrintUnformatted(const cJSON* item);
KX_API cJSON* MIO_JSON_GetObjectItem(const cJSON* object, const char* string);
KX_API cJSON* MIO_JSON_GetArrayItem(const cJSON* array, int index);
KX_API int MIO_JSON_GetArraySize(const cJSON* array);
/* The node's cJSON type flags; 0 for null. */
KX_API int MIO_JSON_GetTypeFormItem(const cJSON* item);
/* Member as int: -2 null argument, -1 missing, -3 not a number. */
KX_API int MIO_JSON_GetObjectItemInt(const cJSON* object, const char* string);
/* Member's own text, or null when missing / not a string. */
KX_API char* MIO_JSON_GetObjectItemStr(const cJSON* object, const char* string);
/* 1 true, 0 false, -1 missing, not a boolean or null argument. */
KX_API int MIO_JSON_GetObjectItemBool(const cJSON* object, const char* string);
/* Element as int; -1 when not an array, out of range or not a number. */
KX_API int MIO_JSON_GetArrayItemInt(const cJSON* array, int index);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
namespace kx {
/* The integer a number from the network stands for (fraction truncated):
 * false for a non-number and for a NaN, infinite or out-of-range value,
 * which no int can hold and no decoder may convert. */
bool json_int(const cJSON* item, int* out);
}  // namespace kx
#endif

#endif /* KX_MIDDLEWARE_MIO_JSON_H */
