/* DH parameters: one key per joint, [alpha, a, d, offset] as integers. */
#include "kx_command.h"
#include "kx_result.h"

using namespace kx;

namespace {

constexpr const char* kJointKeys[7] = {"joint_1", "joint_2", "joint_3", "joint_4", "joint_5", "joint_6", "joint_7"};

/* alpha and offset in millidegrees, a and d in micrometres. */
void row_to_wire(Args& args, const kx_dh_t& dh, int i, int out[4]) {
    out[0] = args.f(dh.alpha[i], 1000.0f, "dh.alpha", i);
    out[1] = args.f(dh.a[i], 1000000.0f, "dh.a", i);
    out[2] = args.f(dh.d[i], 1000000.0f, "dh.d", i);
    out[3] = args.f(dh.offset[i], 1000.0f, "dh.offset", i);
}

void row_from_wire(const int in[4], kx_dh_t* dh, int i) {
    dh->alpha[i] = from_wire(in[0], kMilli);
    dh->a[i] = from_wire(in[1], kMicro);
    dh->d[i] = from_wire(in[2], kMicro);
    dh->offset[i] = from_wire(in[3], kMilli);
}

}  // namespace

extern "C" {

KX_API int kx_set_DH_data(kx_robot_handle* handle, kx_dh_t dh) {
    static const char* const fn = "kx_set_DH_data";
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    /* Always seven joints; those the arm lacks are sent as zeros. */
    Request req("set_DH_data");
    for (int i = 0; i < 7; ++i) {
        int row[4] = {0, 0, 0, 0};
        if (i < dof) row_to_wire(req, dh, i, row);
        req.ints(kJointKeys[i], row, 4);
    }
    return set_command(fn, handle, req, "set_DH_data", "set_state");
}

KX_API int kx_get_DH_data(kx_robot_handle* handle, kx_dh_t* dh) {
    static const char* const fn = "kx_get_DH_data";
    if (dh == nullptr) return kFailed;
    int dof = checked_dof(fn, handle);
    if (dof < 0) return kFailed;
    Request req("get_DH_data");
    KeyValue kv[7];
    for (int i = 0; i < dof; ++i) kv[i] = kv_ints(kJointKeys[i], 4);
    int r = query(fn, handle, req, "get_DH_data", kv, dof, 1000);
    if (r != 0) return r;
    return with_record(handle, [&](kx_handle_t& rec) {
        for (int i = 0; i < dof; ++i) row_from_wire(kv[i].data.array_value, dh, i);
        rec.dh = *dh;
    });
}

KX_API int kx_set_DH_data_default(kx_robot_handle* handle) {
    return set_bare({"kx_set_DH_data_default", "set_DH_data_default", "set_state", nullptr, 500}, handle);
}

}  // extern "C"
