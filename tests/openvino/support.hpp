#pragma once
// Shared helpers of the OpenVINO back-end tests: test models, reference tensors, messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kel/cxx/KELException.hpp"
#include "modules/openvino/openvino.hpp"
#include "tests/support/support.hpp"

namespace kel::test {

inline std::filesystem::path modelDir() {
    return std::filesystem::path(KEL_TEST_DATA_DIR) / "openvino";
}

// A stored tensor: raw little-endian bytes plus what manifest.txt says about them.
struct RefTensor {
    std::string type;  // numpy's name: float32, float16, uint8, int8
    std::vector<std::uint64_t> dims;
    std::string bytes;
};

inline RefTensor reference(const std::string& model, const std::string& kind,
                           const std::string& layer) {
    const std::string file = model + "." + kind + "." + layer + ".raw";
    std::ifstream manifest(modelDir() / "manifest.txt");
    std::string line;
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        std::string name, type, dims;
        fields >> name >> type >> dims;
        if (name != file) continue;
        RefTensor t{type, {}, readFile(modelDir() / file)};
        std::istringstream d(dims);
        for (std::string n; std::getline(d, n, ',');) t.dims.push_back(std::stoull(n));
        return t;
    }
    ADD_FAILURE() << "no reference tensor " << file;
    return {};
}

// Compares an output with its reference: 8- and 16-bit types exactly (the models' arithmetic
// is exact there), f32 within what the processor's reduced-precision kernels may lose.
inline void expectMatches(const void* got, const RefTensor& want, const std::string& what) {
    ASSERT_NE(got, nullptr) << what;
    if (want.type != "float32") {
        EXPECT_EQ(0, std::memcmp(got, want.bytes.data(), want.bytes.size())) << what;
        return;
    }
    const auto* g = static_cast<const float*>(got);
    const auto* w = reinterpret_cast<const float*>(want.bytes.data());
    for (std::size_t i = 0; i < want.bytes.size() / 4; ++i)
        EXPECT_NEAR(g[i], w[i], 1e-2f * std::max(1.0f, std::fabs(w[i]))) << what << " element " << i;
}

// Binds every stored input of `model`, infers, and checks every stored output, on the
// back-end's current network. The inputs live in `keep` until the caller is done.
inline void runAndCheck(openvino& backend, const std::string& model,
                        std::map<std::string, RefTensor>& keep) {
    for (const auto& layer : backend.getInputLayerNames()) {
        keep[layer] = reference(model, "in", layer);
        backend.setLayerData(layer, static_cast<void*>(keep[layer].bytes.data()), keep[layer].dims);
    }
    backend.infer();
    for (const auto& layer : backend.getOutputLayerNames())
        expectMatches(backend.getLayerData(layer), reference(model, "out", layer), model + "/" + layer);
}

// The message of a KELException that `call` throws from the back-end's file `file`.
template <class F>
std::string kelMessage(F&& call, const std::string& file = "vino-api2.0") {
    return kelMessageFrom(("modules/openvino/" + file + ".cpp").c_str(), std::forward<F>(call));
}

}  // namespace kel::test
