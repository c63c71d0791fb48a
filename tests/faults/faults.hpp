#pragma once
// The machine as the adversary: every fault must end in kel's clear error, leave the engine
// usable with its earlier network untouched, and leave nothing behind.
#include <set>
#include <string>
#include <vector>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"
#include "tests/support/process.hpp"

namespace kel::test {

// An engine holding one working network, made before the fault, with a temporary directory
// of its own (the suite's programs run side by side) that must stay empty.
struct EngineWithEarlierNetwork {
    TempDir temporary;
    ScopedEnv tmpdir{"TMPDIR", temporary.path().string()};
    MLEngine engine;
    std::size_t descriptors = 0;
    EngineWithEarlierNetwork() {
        engine.createNetwork("OpenVINO", "earlier", "CPU", staticIr(), {});
        expectCurrentInfers();
        descriptors = openDescriptors();
    }

    // The earlier network is still current and still infers the same; beside it there is
    // only `other`, if given.
    void expectUntouchedBeside(const std::string& other = "") {
        std::set<std::string> expected{"earlier"};
        if (!other.empty()) expected.insert(other);
        const std::vector<std::string> listed = engine.getCreatedNetworkIdentifiers();
        EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), expected);
        EXPECT_EQ(engine.getCurrentIdentifier(), "earlier");
        expectCurrentInfers();
        EXPECT_EQ(filesUnder(temporary.path()), std::vector<std::filesystem::path>{}) << "left behind";
        // A live network may hold its weights file open.
        if (other.empty()) EXPECT_LE(openDescriptors(), descriptors) << "a descriptor leaked";
    }
    // The current network, made from the static IR model, gives its expected outputs.
    void expectCurrentInfers() {
        auto input = readArray<float>(openvinoModel("static.in.data.raw"));
        engine.setLayerData("data", input.data(), {1, 3, 4, 5});
        engine.infer();
        expectNear(static_cast<const float*>(engine.getLayerData("prob")),
                   readArray<float>(openvinoModel("static.out.prob.raw")));
    }
    // The just-made network `other` (of the same model) works beside the untouched earlier
    // one; then it goes, and the earlier one is current again.
    void expectWorksThenRemove(const std::string& other) {
        engine.switchNetwork("earlier");
        expectUntouchedBeside(other);
        engine.switchNetwork(other);
        expectCurrentInfers();
        engine.switchNetwork("earlier");
        engine.removeNetwork(other);
        expectUntouched();
    }
    void expectUntouched() { expectUntouchedBeside(); }
};

}  // namespace kel::test
