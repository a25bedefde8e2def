// Temporary stand-ins so that the library links while its families are
// built side by side. Whoever implements one of these deletes it here; the
// file goes away when it is empty.
#include "kx_interface.h"

extern "C" {
KX_API void kx_algo_arm_state_set(kx_robot_handle*) {}
}
