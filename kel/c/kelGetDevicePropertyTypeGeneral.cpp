#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDevicePropertyTypeGeneral(void* handle, void* value, int verify_type_id,
                                                         const char* engine_name, const char* device,
                                                         const char* supported_property) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        require(supported_property, "supported_property pointer is empty!");
        require(value, "value pointer is empty!");
        const auto property = kel::c::verifiedProperty(e, engine_name, device, supported_property, verify_type_id);
        switch (verify_type_id) {
            case 3: {
                const std::uint64_t v = std::get<std::size_t>(property);
                std::memcpy(value, &v, sizeof v);
                break;
            }
            case 4: {
                const float v = std::get<float>(property);
                std::memcpy(value, &v, sizeof v);
                break;
            }
            case 5: {
                const bool v = std::get<bool>(property);
                std::memcpy(value, &v, sizeof v);
                break;
            }
            default:
                kel::raise("Can not get this type_id({}) value! Please check.", verify_type_id);
        }
        return 0;
    });
}
