#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::require_index;

extern "C" KEL_C_API void kelGetCurrentNetworkDevice(void* handle, char* device_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(device_name, "device_name pointer is empty!");
        kel::c::copy_out(e.getCurrentNetworkDevice(), device_name);
    });
}
