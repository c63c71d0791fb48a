#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDevicePropertyTypeID(void* handle, int* type_id, const char* engine_name,
                                                    const char* device, const char* supported_property) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        require(supported_property, "supported_property pointer is empty!");
        require(type_id, "type_id pointer is empty!");
        *type_id = kel::c::typeIdOf(e.getDeviceProperty(engine_name, device, supported_property));
        return 0;
    });
}
