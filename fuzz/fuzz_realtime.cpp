/* The realtime datagram parser: 0 or -3, and the error list never longer
 * than the record. */
#include <cstdlib>

#include "fuzz_common.h"
#include "kx_interface_global.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kxfuzz::silence_log();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1024) return 0;  // a datagram is read into 1024 bytes
    const std::string text = kxfuzz::as_text(data, size);
    kx_realtime_arm_joint_state_t state;
    int r = parse_kx_realtime_arm_joint_state(text.c_str(), &state);
    if ((r != 0 && r != -3) || state.err.err_len > 24) std::abort();
    return 0;
}
