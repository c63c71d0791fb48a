#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDevicePropertyTypeString(void* handle, int* value_length, char* value,
                                                        int verify_type_id, const char* engine_name,
                                                        const char* device, const char* supported_property) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        require(supported_property, "supported_property pointer is empty!");
        if (!value_length && !value) kel::raise("value_length and value pointers both empty!");
        const auto property = kel::c::verifiedProperty(e, engine_name, device, supported_property, verify_type_id);
        const std::string& text = std::get<std::string>(property);
        if (value_length) *value_length = kel::c::lengthOf(text);
        if (value) kel::c::copyOut(text, value);
        return 0;
    });
}
