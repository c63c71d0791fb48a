#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelCreateNetByBuffers(void* handle, const char* engine_name, const char* identifier,
                                                const char* device, const void* network_buffer,
                                                const uint64_t network_buffer_size, const void* weights_buffer,
                                                const uint64_t weights_buffer_size) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(identifier, "identifier pointer is empty!");
        require(device, "device pointer is empty!");
        require(network_buffer_size ? network_buffer : nullptr, "network_buffer pointer is empty!");
        std::vector<kel::ModelBuffer> buffers{{network_buffer, static_cast<std::size_t>(network_buffer_size)}};
        // A weights buffer of size 0 is left out: the model is the description alone.
        if (weights_buffer && weights_buffer_size)
            buffers.emplace_back(weights_buffer, static_cast<std::size_t>(weights_buffer_size));
        e.createNetwork(engine_name, identifier, device, buffers, kel::PropertyMap{});
    });
}
