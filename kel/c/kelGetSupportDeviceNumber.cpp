#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetSupportDeviceNumber(void* handle, const char* engine_name) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        return static_cast<int>(e.getSupportedDevices(engine_name).size());
    });
}
