#pragma once
// The whole road of one request through the flat interface, on a handle of its own:
// create from buffers, set inputs, infer, read, remove, destroy.
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

namespace kel::test {

struct RoadModel {
    std::string engine;
    std::string model;    // bytes of the model
    std::string weights;  // empty for ONNX
    std::map<std::string, std::vector<std::uint64_t>> inputs;
    std::vector<std::string> outputs;
    std::size_t elements;  // per layer; all layers of these models are float and the same size
};

inline RoadModel openvinoRoad() {
    return {"OpenVINO", readFile(openvinoModel("static.xml")), readFile(openvinoModel("static.bin")),
            {{"data", {1, 3, 4, 5}}}, {"prob"}, 60};
}

inline RoadModel onnxRoad() {
    return {"WindowsML", readFile(onnxModel("static_two_io.onnx")), {},
            {{"a", {1, 2, 3}}, {"b", {1, 2, 3}}}, {"sum", "product"}, 6};
}

// Inputs that differ per seed, so a mix-up between concurrent requests shows in the results.
inline std::vector<std::vector<float>> roadInputs(const RoadModel& m, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    std::vector<std::vector<float>> inputs;
    for (std::size_t i = 0; i < m.inputs.size(); ++i) {
        inputs.emplace_back(m.elements);
        for (float& v : inputs.back()) v = value(random);
    }
    return inputs;
}

inline void request(void* handle, const RoadModel& m, const std::vector<std::vector<float>>& inputs,
                    const std::string& identifier, std::vector<std::vector<float>>& results) {
    kelCreateNetByBuffers(handle, m.engine.c_str(), identifier.c_str(), "CPU", m.model.data(), m.model.size(),
                          m.weights.empty() ? nullptr : m.weights.data(), m.weights.size());
    std::size_t i = 0;
    for (const auto& [name, dims] : m.inputs)
        kelSetLayerData(handle, name.c_str(), inputs[i++].data(), dims.data(), dims.size());
    kelInfer(handle);
    for (const auto& name : m.outputs) {
        const auto* data = static_cast<const float*>(kelGetLayerData(handle, name.c_str()));
        results.emplace_back(data ? std::vector<float>(data, data + m.elements) : std::vector<float>());
    }
}

// The outputs of one road, or the first error's text in `error`. The current network cannot
// be removed, so a second request on the same handle makes the first one removable.
inline std::vector<std::vector<float>> runRoad(const RoadModel& m, const std::vector<std::vector<float>>& inputs,
                                               const std::string& identifier, std::string& error) {
    std::vector<std::vector<float>> results;
    void* handle = kelCreate();
    request(handle, m, inputs, identifier, results);
    request(handle, m, inputs, identifier + "-second", results);
    kelRemoveNetwork(handle, identifier.c_str());
    if (kelGetCreatedNetworkIdentifiersNumber(handle) != 1 && !kelHasException(handle))
        error = "the removed network is still listed";
    if (error.empty()) error = pendingText(handle);
    kelResetExceptionString(handle);
    kelDestory(handle);
    return results;
}

}  // namespace kel::test
