#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetCurrentNetworkDeviceLength(void* handle) {
    return frame(handle, -1, [&](kel::MLEngine& e) { return kel::c::lengthOf(e.getCurrentNetworkDevice()); });
}
