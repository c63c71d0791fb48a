#pragma once
// The repository's test models and their expected numbers.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/support.hpp"

namespace kel::test {

inline std::filesystem::path openvinoModel(const std::string& file) { return dataDir() / "openvino" / file; }
inline std::filesystem::path onnxModel(const std::string& file) { return dataDir() / "onnx" / file; }
inline std::vector<std::filesystem::path> staticIr() { return {openvinoModel("static.xml"), openvinoModel("static.bin")}; }
// A plugin model library built by the tests (tests/plugins).
inline std::filesystem::path pluginLibrary(const std::string& target) { return outputDir() / ("lib" + target + ".so"); }

template <class T>
std::vector<T> readArray(const std::filesystem::path& path) {
    const std::string bytes = readFile(path);
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

inline void expectNear(const float* actual, const std::vector<float>& expected, float tolerance = 1e-5f) {
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_NEAR(actual[i], expected[i], tolerance) << "at element " << i;
}

}  // namespace kel::test
