#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetLayerPrecision(void* handle, const char* layer_name, uint64_t* precision_size,
                                               int* precision_length, char* precision) {
    frame(handle, [&](kel::MLEngine& e) {
        require(layer_name, "layer_name pointer is empty!");
        const auto [name, size] = e.getLayerPrecision(layer_name);
        if (precision_size) *precision_size = size;
        if (precision_length) *precision_length = kel::c::lengthOf(name);
        if (precision) kel::c::copyOut(name, precision);
    });
}
