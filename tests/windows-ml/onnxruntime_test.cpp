// The WindowsML back-end running the repository's ONNX models on ONNX Runtime.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "modules/windows-ml/platform.hpp"
#include "modules/windows-ml/windows-ml.hpp"
#include "tests/support/models.hpp"

namespace kel::test {
namespace {

class WindowsMlOnnxRuntime : public ::testing::Test {
protected:
    windows_ml engine;

    void create(const std::string& model) {
        engine.createNetwork(model, "CPU", std::vector<std::filesystem::path>{onnxModel(model + ".onnx")});
    }
    void set(const std::string& layer, void* data, const std::vector<std::uint64_t>& dims) {
        engine.setLayerData(layer, std::any(data), dims, false);
    }
};

// Inputs written into the buffers made at creation, outputs read from theirs, in every
// element type the models use.
TEST_F(WindowsMlOnnxRuntime, StaticModelsInferInTheirOwnBuffers) {
    const std::tuple<std::string, std::vector<std::string>, std::vector<std::string>> models[] = {
        {"static_two_io", {"a", "b"}, {"sum", "product"}},
        {"mixed_types", {"pix", "offset", "flag"}, {"sum", "positive", "pix_t"}},
        // Half precision comes out as 32-bit floats: the output's buffer has room for them.
        {"half", {"h"}, {"doubled"}},
    };
    for (const auto& [model, inputs, outputs] : models) {
        create(model);
        for (const auto& name : inputs) {
            const std::string in = readFile(onnxModel(model + "." + name + ".in.bin"));
            std::memcpy(engine.getLayerData(name), in.data(), in.size());
        }
        engine.infer();
        for (const auto& name : outputs) {
            const std::string expected = readFile(onnxModel(model + "." + name + ".out.bin"));
            EXPECT_EQ(std::string(static_cast<const char*>(engine.getLayerData(name)), expected.size()), expected)
                << model << " " << name;
        }
    }
}

// The runtime's tensors outlive one inference, yet each run must see its own inputs and
// shapes: y = 3x - 1 over a dynamic batch, with the input changed in place or moved and the
// batch shrinking and growing.
TEST_F(WindowsMlOnnxRuntime, EveryRunSeesItsOwnInputsAndShapes) {
    // Another runtime's objects, and a tensor no evaluation produced, are refused, not used.
    namespace wmp = windows_ml_platform;
    const auto platform = wmp::makeDefaultPlatform();
    struct Foreign : wmp::Stream {} foreign;
    const auto made = platform->createTensor(wmp::tensor_kind::Float, {0}, platform->writeBuffer(nullptr, 0));
    const std::function<void()> refused[] = {
        [&] { platform->storeBytes(foreign, nullptr, 0); },
        [&] { platform->createBinding(std::make_shared<wmp::Session>()); },
        [&] { platform->readValues(*made, wmp::tensor_kind::Float); },
    };
    for (const auto& call : refused) EXPECT_THROW(call(), wmp::PlatformError);
    // A missing input is the runtime's error; without its output there is nothing to copy.
    create("dynamic_batch");
    EXPECT_THROW(engine.infer(), windows_ml_platform::PlatformError);
    std::vector<float> x(12, 1.0f), moved(12, 5.0f);
    engine.setLayerData("x", std::any(reinterpret_cast<std::uint8_t*>(x.data())), {3, 4}, false);
    engine.infer();
    for (auto [batch, input] : {std::pair{3u, &x}, {3u, &moved}, {1u, &moved}, {3u, &x}}) {
        (*input)[0] += 1.0f;
        std::vector<float> y(4 * batch);
        set("x", input->data(), {batch, 4});
        set("y", y.data(), {batch, 4});
        engine.infer();
        EXPECT_EQ(y.front(), 3 * input->front() - 1) << batch;
        EXPECT_EQ(y.back(), 3 * (*input)[4 * batch - 1] - 1) << batch;
    }

    // An output of another size than declared (a slice of n values), run after run.
    create("misdeclared");
    std::vector<float> mx{1, 2, 3, 4};
    std::vector<std::int64_t> n{2};
    set("x", mx.data(), {1, 4});
    set("n", n.data(), {1});
    engine.infer();
    const auto* y = static_cast<const float*>(engine.getLayerData("y"));
    EXPECT_EQ(std::vector<float>(y, y + 4), (std::vector<float>{1, 2, 0, 0}));
    n[0] = 4;
    engine.infer();
    EXPECT_EQ(std::vector<float>(y, y + 4), mx);
}

}  // namespace
}  // namespace kel::test
