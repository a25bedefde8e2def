/*
 * Reading request members and writing reply members, in the controller's
 * wire types: every quantity is a JSON integer.
 */
#ifndef KX_SIM_JSON_H
#define KX_SIM_JSON_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kxsim {

/* Physical value to wire integer: scaled, truncated toward zero, clamped. */
int to_wire(double value, double scale);

/* Request readers: false when the member is missing or of the wrong type. */
bool get_int(const cJSON* obj, const char* key, int& out);
bool get_bool(const cJSON* obj, const char* key, bool& out); /* also takes 0/1 */
bool get_str(const cJSON* obj, const char* key, std::string& out);
/* An integer array of exactly n elements. */
bool get_ints(const cJSON* obj, const char* key, size_t n, int* out);
/* An integer array of any length up to max_n. */
bool get_int_list(const cJSON* obj, const char* key, size_t max_n, std::vector<int>& out);

/* A dotted-quad IPv4 address. */
bool valid_ip(const std::string& ip);

/* Reply writers. */
void add_int(cJSON* obj, const char* key, int v);
void add_bool(cJSON* obj, const char* key, bool v);
void add_str(cJSON* obj, const char* key, const std::string& v);
void add_ints(cJSON* obj, const char* key, const int* v, size_t n);
inline void add_ints(cJSON* obj, const char* key, const std::vector<int>& v) {
    add_ints(obj, key, v.data(), v.size());
}

/* Unformatted text of a JSON tree; the tree is deleted. */
std::string print_and_delete(cJSON* obj);

}  // namespace kxsim

#endif
