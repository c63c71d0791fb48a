#pragma once
// Shared helpers of the OpenVINO back-end tests: test models, reference tensors, messages.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>

#include "modules/openvino/openvino.hpp"
#include "tests/support/support.hpp"

namespace kel::test {

inline std::filesystem::path modelDir() { return dataDir() / "openvino"; }

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
    for (std::string name, type, dims; manifest >> name >> type >> dims;) {
        if (name != file) continue;
        RefTensor t{type, {}, readFile(modelDir() / file)};
        std::replace(dims.begin(), dims.end(), ',', ' ');
        std::istringstream d(dims);
        for (std::uint64_t n; d >> n;) t.dims.push_back(n);
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

// The message of a KELException that `call` throws from the back-end's file `file`.
template <class F>
std::string kelMessage(F&& call, const std::string& file = "vino-api2.0") {
    return kelMessageFrom(("modules/openvino/" + file + ".cpp").c_str(), std::forward<F>(call));
}

}  // namespace kel::test
