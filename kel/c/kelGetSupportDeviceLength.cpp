#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetSupportDeviceLength(void* handle, const char* engine_name, const int index) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        requireIndex(index, kelGetSupportDeviceNumber(handle, engine_name));
        return kel::c::lengthOf(e.getSupportedDevices(engine_name).at(index));
    });
}
