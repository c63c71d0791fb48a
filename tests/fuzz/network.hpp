#pragma once
// Creating a network from model bytes a host passes: a clear error or a working network,
// and either way nothing is left behind in the engine.
#include <exception>
#include <string>
#include <vector>

#include "kel/cxx/MLEngine.hpp"
#include "tests/fuzz/fuzz.hpp"

namespace kel::fuzz {

// `anchor` is a real model of the engine: the network made from it stays current between
// inputs (the current network cannot be removed), and must survive every input.
inline void createFromBuffers(const char* engineName, const char* anchor,
                              const std::vector<ModelBuffer>& buffers) {
    static MLEngine engine;
    static const bool anchored = [&] {
        engine.createNetwork(engineName, "anchor", "CPU",
                             std::vector<std::string>{std::string(KEL_TEST_DATA_DIR) + "/" + anchor},
                             PropertyMap{});
        return true;
    }();
    bool created = false;
    try {
        engine.createNetwork(engineName, "fuzz", "CPU", buffers, PropertyMap{});
        created = true;
        engine.getInputLayerNames();
        engine.getOutputLayerNames();
    } catch (const std::exception&) {
    }
    if (created) {
        engine.switchNetwork("anchor");
        engine.removeNetwork("fuzz");
    }
    KEL_FUZZ_CHECK(anchored && engine.getCurrentIdentifier() == "anchor");
    KEL_FUZZ_CHECK(engine.getCreatedNetworkIdentifiers() == std::vector<std::string>{"anchor"});
}

}  // namespace kel::fuzz
