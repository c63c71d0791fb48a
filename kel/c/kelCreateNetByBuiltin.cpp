#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelCreateNetByBuiltin(void* handle, const char* engine_name, const char* identifier,
                                                const char* device, const char* builtin_model_id) {
    frame(handle, [&](kel::MLEngine& e) {
        // The model id, last parameter, is checked before the device on purpose.
        require(engine_name, "engine_name pointer is empty!");
        require(identifier, "identifier pointer is empty!");
        require(builtin_model_id, "builtin_model_id pointer is empty!");
        require(device, "device pointer is empty!");
        e.createNetwork(engine_name, identifier, device, std::string(builtin_model_id), kel::PropertyMap{});
    });
}
