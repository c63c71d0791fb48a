#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDeviceSupportPropertiesByIndex(void* handle, int* property_length, char* property,
                                                              int index, const char* engine_name,
                                                              const char* device) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        if (index < 0) kel::raise("index value is less than 0!");
        if (!property_length && !property) kel::raise("property_length and property both are empty!");
        const auto names = e.getDeviceSupportProperties(engine_name, device);
        const int last = static_cast<int>(names.size()) - 1;
        if (index > last) kel::raise("index value is {}, larger than {}!", index, last);
        const std::string& name = names[static_cast<std::size_t>(index)];
        if (property_length) *property_length = kel::c::lengthOf(name);
        if (property) kel::c::copyOut(name, property);
        return 0;
    });
}
