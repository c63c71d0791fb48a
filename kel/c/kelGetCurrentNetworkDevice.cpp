#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetCurrentNetworkDevice(void* handle, char* device_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(device_name, "device_name pointer is empty!");
        kel::c::copyOut(e.getCurrentNetworkDevice(), device_name);
    });
}
