#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetLayerDims(void* handle, const char* layer_name, uint64_t* dim_buffer,
                                          uint64_t* dim_length) {
    frame(handle, [&](kel::MLEngine& e) {
        require(layer_name, "layer_name pointer is empty!");
        const std::vector<std::uint64_t> dims = e.getLayerDims(layer_name);
        if (dim_length) *dim_length = dims.size();
        if (dim_buffer) std::copy(dims.begin(), dims.end(), dim_buffer);
    });
}
