#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void* kelGetLayerData(void* handle, const char* layer_name) {
    return frame(handle, static_cast<void*>(nullptr), [&](kel::MLEngine& e) {
        require(layer_name, "layer_name pointer is empty!");
        return e.getLayerData(layer_name);
    });
}
