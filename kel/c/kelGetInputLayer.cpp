#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetInputLayer(void* handle, const int index, char* layer_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(layer_name, "layer_name pointer is empty!");
        requireIndex(index, kelGetInputLayerNumber(handle));
        kel::c::copyOut(e.getInputLayerNames().at(static_cast<std::size_t>(index)), layer_name);
    });
}
