#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelSetEnginePropertyForNetwork(void* handle, const char* engine_name,
                                                        const char* network_identifier, const char* property_name,
                                                        const char* property_type, const void* property_value) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(network_identifier, "network_identifier pointer is empty!");
        require(property_name, "property_name pointer is empty!");
        require(property_type, "property_type pointer is empty!");
        require(property_value, "property_value pointer is empty!");
        const std::string type = property_type;
        std::any value;
        if (type == "std::filesystem::path")
            value = std::filesystem::path(std::wstring(static_cast<const wchar_t*>(property_value)));
        else if (type == "std::string")
            value = std::string(static_cast<const char*>(property_value));
        else if (type == "std::vector<std::string>")
            value = *static_cast<const std::vector<std::string>*>(property_value);
        else
            return 0;  // other type names are ignored
        e.setEnginePropertyForNetwork(engine_name, network_identifier, property_name, value);
        return 0;
    });
}
