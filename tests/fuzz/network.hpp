#pragma once
// Creating a network from model bytes a host passes: a clear error or a working network,
// and either way nothing is left behind in the engine.
#include <exception>
#include <string>
#include <vector>

#include "kel/cxx/MLEngine.hpp"
#include "tests/fuzz/fuzz.hpp"

namespace kel::fuzz {

inline void createFromBuffers(const char* engineName, const std::vector<ModelBuffer>& buffers) {
    static MLEngine engine;
    bool created = false;
    try {
        engine.createNetwork(engineName, "fuzz", "CPU", buffers, PropertyMap{});
        created = true;
        engine.getInputLayerNames();
        engine.getOutputLayerNames();
    } catch (const std::exception&) {
    }
    if (created) engine.removeNetwork("fuzz");
    KEL_FUZZ_CHECK(engine.getCreatedNetworkIdentifiers().empty());
}

}  // namespace kel::fuzz
