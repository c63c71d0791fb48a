#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDeviceSupportPropertiesNumber(void* handle, int* properties_number,
                                                             const char* engine_name, const char* device) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        require(properties_number, "properties_number pointer is empty!");
        *properties_number = static_cast<int>(e.getDeviceSupportProperties(engine_name, device).size());
        return 0;
    });
}
