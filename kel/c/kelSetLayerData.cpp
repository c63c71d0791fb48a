#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelSetLayerData(void* handle, const char* layer_name, const void* data,
                                          const uint64_t* dim_buffer, const uint64_t dim_length) {
    frame(handle, [&](kel::MLEngine& e) {
        // dim_buffer is checked before data, against the parameter order.
        require(layer_name, "layer_name pointer is empty!");
        require(dim_buffer, "dim_buffer pointer is empty!");
        require(data, "data pointer is empty!");
        if (dim_length == 0) kel::raise("dim_length is 0!");
        std::vector<std::uint64_t> dims(dim_buffer, dim_buffer + dim_length);
        e.setLayerData(layer_name, std::any(data), dims);
    });
}
