// Layer binding, dims, precisions and dynamic shapes on the current network.
#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;
using test::modelDir;
using test::reference;
using ::testing::HasSubstr;

class OpenvinoLayers : public ::testing::Test {
protected:
    void create(const std::string& model) {
        backend.createNetwork(model, "CPU",
                              std::vector<std::filesystem::path>{modelDir() / (model + ".xml")}, {});
    }
    openvino backend;
};

TEST_F(OpenvinoLayers, SetLayerDataChecksInOrder) {
    create("wide");
    std::vector<float> image(3 * 224 * 225);
    const std::vector<std::uint64_t> dims = {1, 3, 224, 225};
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("nope", std::any(), {}); }), "data parameter is null.");
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("nope", image.data(), {}); }),
              "data_dims parameter is empty.");
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("nope", image.data(), dims); }),
              "[nope] is not found in input and output layers.");
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("image", 42, {1, 3, 224, 224}); }),
              "[image] expect dims is [1, 3, 224, 225], but get dims is [1, 3, 224, 224]");
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("image", image.data(), {1, 3, 224}); }),
              "[image] expect dims is [1, 3, 224, 225], but get dims is [1, 3, 224]");
    int* wrong = reinterpret_cast<int*>(image.data());
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("image", wrong, dims); }),
              std::string(" not support int*") +
                  " as data type! Support type: void* | const void* | uint8_t* | const uint8_t* "
                  "| float* | const float* ");
    EXPECT_EQ(kelMessage([&] { backend.setLayerData("image", static_cast<const float*>(nullptr), dims); }),
              "data parameter is null.");
}

TEST_F(OpenvinoLayers, InputsAreBoundNotCopied) {
    create("noweights");
    std::vector<float> a(6, 1.0f), b(6, 0.0f);
    // Every accepted pointer type binds; the last binding of a layer wins.
    backend.setLayerData("a", static_cast<void*>(a.data()), {2, 3});
    backend.setLayerData("a", static_cast<const void*>(a.data()), {2, 3});
    backend.setLayerData("a", reinterpret_cast<std::uint8_t*>(a.data()), {2, 3});
    backend.setLayerData("a", reinterpret_cast<const std::uint8_t*>(a.data()), {2, 3});
    backend.setLayerData("a", static_cast<const float*>(a.data()), {2, 3});
    backend.setLayerData("a", a.data(), {2, 3});
    backend.setLayerData("b", b.data(), {2, 3});
    EXPECT_EQ(backend.getLayerData("a"), a.data());

    // Changing the host memory after binding changes the result.
    a.assign({1, 2, 3, 4, 5, 6});
    b.assign({0, 3, 0, 5, 0, 7});
    backend.infer();
    const float* out = static_cast<const float*>(backend.getLayerData("out"));
    EXPECT_EQ(std::vector<float>(out, out + 6), (std::vector<float>{1, 0, 9, 0, 25, 0}));
}

TEST_F(OpenvinoLayers, PrecisionsDimsAndAFloatPointerOnAnEightBitLayer) {
    create("types");
    using P = std::tuple<std::string, std::uint64_t>;
    EXPECT_EQ(backend.getLayerPrecision("u8in"), (P{"U8", 1}));
    EXPECT_EQ(backend.getLayerPrecision("i8out"), (P{"I8", 1}));
    EXPECT_EQ(backend.getLayerPrecision("f16in"), (P{"FP16", 2}));
    EXPECT_EQ(backend.getLayerDims("f16out"), std::vector<std::uint64_t>{6});
    // Six u8 values packed into the first bytes of a float array are read as bytes.
    const test::RefTensor i8 = reference("types", "in", "i8in"), f16 = reference("types", "in", "f16in");
    std::vector<float> packed(2);
    const std::uint8_t values[6] = {10, 20, 30, 40, 50, 60};
    std::memcpy(packed.data(), values, 6);
    backend.setLayerData("u8in", packed.data(), {6});
    backend.setLayerData("i8in", static_cast<const void*>(i8.bytes.data()), {6});
    backend.setLayerData("f16in", static_cast<const void*>(f16.bytes.data()), {6});
    backend.infer();
    const auto* out = static_cast<const std::uint8_t*>(backend.getLayerData("u8out"));
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{11, 22, 33, 44, 55, 66}));

    create("static");
    EXPECT_EQ(backend.getLayerPrecision("prob"), (P{"FP32", 4}));
    EXPECT_EQ(backend.getLayerDims("data"), (std::vector<std::uint64_t>{1, 3, 4, 5}));
    EXPECT_EQ(kelMessage([&] { backend.getLayerPrecision("u8in"); }), "u8in is not found in input and output layers.");
    EXPECT_EQ(kelMessage([&] { backend.getLayerData("x"); }), "x is not found in input and output layers.");
}

TEST_F(OpenvinoLayers, DynamicLayersTakeTheHostsDims) {
    create("dynamic");
    const std::string need = "[x] layer have dynamic shape. Need set by `setLayerData` API first.";
    const std::string dimsMessage = kelMessage([&] { backend.getLayerDims("x"); });
    EXPECT_EQ(dimsMessage.rfind("[OpenVINO Exception]:", 0), 0u) << dimsMessage;
    EXPECT_THAT(dimsMessage, ::testing::EndsWith("\n" + need));
    EXPECT_THAT(kelMessage([&] { backend.getLayerData("x"); }), ::testing::EndsWith("\n" + need));

    test::RefTensor x = reference("dynamic", "in", "x");
    backend.setLayerData("x", static_cast<void*>(x.bytes.data()), {3, 4});
    EXPECT_EQ(backend.getLayerDims("x"), (std::vector<std::uint64_t>{3, 4}));
    EXPECT_EQ(backend.getLayerData("x"), x.bytes.data());

    backend.infer();
    EXPECT_EQ(backend.getLayerDims("y"), (std::vector<std::uint64_t>{3, 2}));
    test::expectMatches(backend.getLayerData("y"), reference("dynamic", "out", "y"), "dynamic/y");

    // The same memory with fewer rows, then all of them again: each inference's own dims.
    for (std::uint64_t rows : {1, 3}) {
        backend.setLayerData("x", static_cast<void*>(x.bytes.data()), {rows, 4});
        backend.infer();
        EXPECT_EQ(backend.getLayerDims("y"), (std::vector<std::uint64_t>{rows, 2}));
    }
    test::expectMatches(backend.getLayerData("y"), reference("dynamic", "out", "y"), "dynamic/y");

    // A rank the model cannot take is the runtime's refusal.
    EXPECT_ANY_THROW(backend.setLayerData("x", static_cast<void*>(x.bytes.data()), {12}));
}

}  // namespace
}  // namespace kel
