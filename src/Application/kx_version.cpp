#include "kx_interface.h"
#include "kx_version.h"

extern "C" KX_API const char* kx_api_version(void) { return KX_API_VERSION_STRING; }
