#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelCreateNetByFiles(void* handle, const char* engine_name, const char* identifier,
                                              const char* device, const char* network_file,
                                              const char* weights_file) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(identifier, "identifier pointer is empty!");
        require(device, "device pointer is empty!");
        require(network_file, "network_file pointer is empty!");
        std::vector<std::filesystem::path> files{std::string(network_file)};
        if (weights_file) files.emplace_back(std::string(weights_file));
        e.createNetwork(engine_name, identifier, device, files, kel::PropertyMap{});
    });
}
