// The WindowsML back-end running the repository's ONNX models on ONNX Runtime.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "modules/windows-ml/platform.hpp"
#include "modules/windows-ml/windows-ml.hpp"
#include "tests/support/models.hpp"

namespace kel::test {
namespace {

const std::filesystem::path kDir = dataDir() / "onnx";

template <class T>
std::vector<T> data(const std::string& name) {
    return readArray<T>(kDir / name);
}

template <class T>
std::vector<T> layer(windows_ml& engine, const std::string& name, std::size_t count) {
    const auto* p = static_cast<const T*>(engine.getLayerData(name));
    return std::vector<T>(p, p + count);
}

void create(windows_ml& engine, const std::string& id, const std::string& model) {
    engine.createNetwork(id, "CPU", std::vector<std::filesystem::path>{kDir / (model + ".onnx")});
}

TEST(WindowsMlOnnxRuntime, StaticModelInfersIntoItsOwnOutputBuffers) {
    windows_ml engine;
    create(engine, "s", "static_two_io");
    EXPECT_EQ(engine.getLayerDims("sum"), (std::vector<std::uint64_t>{1, 2, 3}));
    EXPECT_EQ(layer<float>(engine, "sum", 6), std::vector<float>(6, 0.0f));

    // One input filled in place, one from the host's own memory.
    const auto a = data<float>("static_two_io.a.in.bin");
    auto b = data<float>("static_two_io.b.in.bin");
    std::memcpy(engine.getLayerData("a"), a.data(), 24);
    engine.setLayerData("b", std::any(static_cast<void*>(b.data())), {1, 2, 3}, false);
    engine.infer();
    EXPECT_EQ(layer<float>(engine, "sum", 6), data<float>("static_two_io.sum.out.bin"));
    EXPECT_EQ(layer<float>(engine, "product", 6), data<float>("static_two_io.product.out.bin"));
}

TEST(WindowsMlOnnxRuntime, IntegerAndBooleanLayers) {
    windows_ml engine;
    const auto model = readFile(kDir / "mixed_types.onnx");
    engine.registerModelAsInnerID("mixed", {{model.data(), model.size()}});
    engine.createNetwork("m", "CPU", std::string("mixed"));
    EXPECT_EQ(engine.getLayerPrecision("pix"), std::make_tuple(std::string("U8"), 1ull));
    EXPECT_EQ(engine.getLayerPrecision("offset"), std::make_tuple(std::string("I64"), 8ull));
    EXPECT_EQ(engine.getLayerPrecision("positive"), std::make_tuple(std::string("BOOL"), 1ull));
    EXPECT_EQ(engine.getLayerDims("pix_t"), (std::vector<std::uint64_t>{3, 2}));

    auto pix = data<std::uint8_t>("mixed_types.pix.in.bin");
    auto offset = data<std::int64_t>("mixed_types.offset.in.bin");
    auto flag = data<std::uint8_t>("mixed_types.flag.in.bin");
    engine.setLayerData("pix", std::any(pix.data()), {2, 3}, false);
    engine.setLayerData("offset", std::any(static_cast<const void*>(offset.data())), {2, 3}, false);
    engine.setLayerData("flag", std::any(static_cast<const std::uint8_t*>(flag.data())), {2, 3},
                        false);
    engine.infer();
    EXPECT_EQ(layer<std::int64_t>(engine, "sum", 6), data<std::int64_t>("mixed_types.sum.out.bin"));
    EXPECT_EQ(layer<std::uint8_t>(engine, "positive", 6),
              data<std::uint8_t>("mixed_types.positive.out.bin"));
    EXPECT_EQ(layer<std::uint8_t>(engine, "pix_t", 6),
              data<std::uint8_t>("mixed_types.pix_t.out.bin"));
}

TEST(WindowsMlOnnxRuntime, HalfPrecisionComesOutAsFloats) {
    windows_ml engine;
    create(engine, "h", "half");
    EXPECT_EQ(engine.getLayerPrecision("doubled"), std::make_tuple(std::string("FP16"), 2ull));
    auto h = data<std::uint16_t>("half.h.in.bin");
    std::vector<float> out(4);  // four bytes a value, not two
    engine.setLayerData("h", std::any(static_cast<void*>(h.data())), {1, 4}, false);
    engine.setLayerData("doubled", std::any(static_cast<void*>(out.data())), {1, 4}, false);
    engine.infer();
    EXPECT_EQ(out, data<float>("half.doubled.out.bin"));

    // The output's own buffer, made at creation, has room for the floats too.
    create(engine, "own", "half");
    engine.setLayerData("h", std::any(static_cast<void*>(h.data())), {1, 4}, false);
    engine.infer();
    const auto* own = static_cast<const float*>(engine.getLayerData("doubled"));
    EXPECT_EQ(std::vector<float>(own, own + 4), data<float>("half.doubled.out.bin"));
}

// The runtime's tensors outlive one inference: each run must still see this run's inputs
// and leave this run's outputs, whatever changed in between.
TEST(WindowsMlOnnxRuntime, EveryRunSeesItsOwnInputsAndShapes) {
    windows_ml engine;
    create(engine, "s", "static_two_io");
    auto a = data<float>("static_two_io.a.in.bin");
    auto b = data<float>("static_two_io.b.in.bin");
    engine.setLayerData("a", std::any(static_cast<void*>(a.data())), {1, 2, 3}, false);
    engine.setLayerData("b", std::any(static_cast<void*>(b.data())), {1, 2, 3}, false);
    engine.infer();
    a[0] += 1.0f;  // changed in place, then a buffer of its own
    std::vector<float> b2(6, 2.0f);
    engine.setLayerData("b", std::any(static_cast<void*>(b2.data())), {1, 2, 3}, false);
    engine.infer();
    EXPECT_EQ(layer<float>(engine, "sum", 6)[0], a[0] + 2.0f);
    EXPECT_EQ(layer<float>(engine, "product", 6)[5], a[5] * 2.0f);

    // A dynamic batch from buffers on "AUTO": first without its input (the runtime's own
    // error), without its output (nothing to copy), then shrinking and growing again.
    const auto model = readFile(kDir / "dynamic_batch.onnx");
    engine.createNetwork("d", "AUTO", std::vector<ModelBuffer>{{model.data(), model.size()}});
    EXPECT_EQ(engine.getNetworkDevice("d"), "CPU");
    EXPECT_THROW(engine.infer(), windows_ml_platform::PlatformError);
    auto x = data<float>("dynamic_batch.x.in.bin");
    engine.setLayerData("x", std::any(static_cast<void*>(x.data())), {3, 4}, false);
    engine.infer();
    const auto expected = data<float>("dynamic_batch.y.out.bin");
    std::vector<float> y(12, -99.0f);
    for (std::uint64_t batch : {3, 1, 3}) {
        engine.setLayerData("x", std::any(static_cast<void*>(x.data())), {batch, 4}, false);
        engine.setLayerData("y", std::any(static_cast<void*>(y.data())), {batch, 4}, false);
        engine.infer();
        EXPECT_TRUE(std::equal(y.begin(), y.begin() + 4 * batch, expected.begin())) << batch;
    }

    // A model whose output is not the shape it declares still runs, run after run.
    create(engine, "m", "misdeclared");
    auto mx = data<float>("misdeclared.x.in.bin");
    std::vector<std::int64_t> n{2};
    engine.setLayerData("x", std::any(static_cast<void*>(mx.data())), {1, 4}, false);
    engine.setLayerData("n", std::any(static_cast<void*>(n.data())), {1}, false);
    engine.infer();
    const auto two = data<float>("misdeclared.y.out.bin");
    EXPECT_EQ(layer<float>(engine, "y", 4), (std::vector<float>{two[0], two[1], 0.0f, 0.0f}));
    n[0] = 4;
    engine.infer();
    EXPECT_EQ(layer<float>(engine, "y", 4), mx);
}

}  // namespace
}  // namespace kel::test
