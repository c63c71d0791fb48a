#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetSupportDevice(void* handle, const char* engine_name, const int index,
                                              char* device_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device_name, "device_name pointer is empty!");
        requireIndex(index, kelGetSupportDeviceNumber(handle, engine_name));
        kel::c::copyOut(e.getSupportedDevices(engine_name).at(index), device_name);
    });
}
