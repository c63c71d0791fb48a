// Network creation from files and buffers with real inference on the processor, the refused
// model sources, layer binding, dims, precisions and dynamic shapes, and device queries.
#include <gmock/gmock.h>

#include <cstdlib>
#include <map>
#include <numeric>

#include "modules/openvino/openvino.hpp"
#include "tests/support/models.hpp"

namespace kel {
namespace {

// A stored tensor's raw little-endian bytes: "<model>.<in|out>.<layer>".
std::string stored(const std::string& name) { return test::readFile(test::openvinoModel(name + ".raw")); }

// Compares an output with its stored values: 8- and 16-bit types exactly (the models'
// arithmetic is exact there), FP32 within what the processor's reduced-precision kernels may lose.
void expectMatches(const void* got, const std::string& name, const std::string& precision) {
    SCOPED_TRACE(name);
    ASSERT_NE(got, nullptr);
    const std::string want = stored(name);
    if (precision == "FP32")
        test::expectNear(static_cast<const float*>(got), test::readArray<float>(test::openvinoModel(name + ".raw")),
                         1e-2f);
    else
        EXPECT_EQ(std::string(static_cast<const char*>(got), want.size()), want);
}

// The back-end's chief file, where its refusals are raised.
constexpr const char* kChief = "modules/openvino/vino-api2.0.cpp";

class OpenvinoNetworks : public ::testing::Test {
protected:
    // A temporary directory of the test's own for what creation writes there (model caches).
    void SetUp() override {
        ::setenv("TMPDIR", tmp.path().c_str(), 1);
        backend.setLogCallback([this](const std::string& line) { log.push_back(line); });
    }
    void TearDown() override { ::setenv("TMPDIR", tmp.path().parent_path().c_str(), 1); }
    // Binds every stored input of the current `model`, infers, and checks every stored output.
    void check(const std::string& model) {
        for (const auto& layer : backend.getInputLayerNames()) {
            inputs[layer] = stored(model + ".in." + layer);
            backend.setLayerData(layer, static_cast<void*>(inputs[layer].data()), backend.getLayerDims(layer));
        }
        backend.infer();
        for (const auto& layer : backend.getOutputLayerNames())
            expectMatches(backend.getLayerData(layer), model + ".out." + layer,
                          std::get<0>(backend.getLayerPrecision(layer)));
    }

    test::TempDir tmp;
    // Weights handed over as buffers are only wrapped: they outlive the back-end (an AUTO
    // network may still be compiling from them on the runtime's threads).
    std::vector<std::vector<std::string>> handedOver;
    openvino backend;
    std::map<std::string, std::string> inputs;  // bound, so kept until the next check
    std::vector<std::string> log;
};

TEST_F(OpenvinoNetworks, EveryModelFromFilesAndBuffersGivesTheReferenceNumbers) {
    // {model, device, model file, weights file}: from files, the runtime finds the weights beside
    // the model. An NPU without its driver runs on "AUTO", or its creation would fail here.
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"static", "CPU", "static.onnx", ""},       {"multi", "NPU", "multi.xml", "multi.bin"},
        {"types", "CPU", "types.xml", "types.bin"}, {"noweights", "CPU", "noweights.xml", ""},
    };
    for (const auto& [model, device, file, weights] : rows) {
        backend.createNetwork(model, device, std::vector{test::openvinoModel(file)}, {});
        check(model);
        std::vector<std::string> bytes{test::readFile(test::openvinoModel(file))};
        if (*weights) bytes.push_back(test::readFile(test::openvinoModel(weights)));
        std::vector<ModelBuffer> buffers;
        for (const auto& b : bytes) buffers.emplace_back(b.data(), b.size());
        backend.createNetwork(model + std::string("-buffers"), device, buffers, {});
        // The host may free the XML text at once (the weights it may not).
        std::fill(bytes[0].begin(), bytes[0].end(), '\0');
        check(model);
        handedOver.push_back(std::move(bytes));
    }
    for (const std::string layers : {"2 input layer(s) [a] [b] ", "2 output layer(s) [sum] [mm] "})
        EXPECT_THAT(log, testing::Contains(testing::EndsWith("] : createNetwork : [multi] network have " + layers)));
}

TEST_F(OpenvinoNetworks, RefusalsComeWithTheirTextsInTheOrderOfTheChecks) {
    backend.createNetwork("types", "CPU", std::vector{test::openvinoModel("types.xml")}, {});
    const std::string junk = "\x08\x07junk that is neither XML nor ONNX";
    auto fromBuffers = [&](std::vector<ModelBuffer> buffers) { backend.createNetwork("n", "CPU", buffers, {}); };
    std::uint8_t bytes[6] = {};
    const std::vector<std::uint64_t> dims = {6};
    int* wrong = reinterpret_cast<int*>(bytes);
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[&] { backend.createNetwork("n", "CPU", std::string("none"), {}); },
         "none is not a supported plugin model id. Please use getSupportedModelIDs function check built-in and "
         "plugin model ids!"},
        {[&] { backend.createNetwork("n", "CPU", std::vector<std::filesystem::path>{}, {}); },
         "model file number is 0, the number is not supported."},
        {[&] { fromBuffers({3, {"<", 1}}); }, "model buffer number is 3, the number is not supported."},
        {[&] { fromBuffers({{nullptr, 1}}); },
         "xml_buffer must be set. Current buffer is nullptr. Please check your xml_buffer."},
        {[&] { fromBuffers({{"<", 0}}); }, "xml_size must be set. Current size is 0. Please check your xml_size."},
        {[&] { fromBuffers({{junk.data(), junk.size()}}); },
         "xml_buffer is neither an XML model description nor an ONNX model. Please check your xml_buffer."},
        {[&] { backend.setLayerData("nope", std::any(), {}); }, "data parameter is null."},
        {[&] { backend.setLayerData("nope", bytes, {}); }, "data_dims parameter is empty."},
        {[&] { backend.setLayerData("nope", bytes, dims); }, "[nope] is not found in input and output layers."},
        {[&] { backend.setLayerData("u8in", 42, {5}); }, "[u8in] expect dims is [6], but get dims is [5]"},
        {[&] { backend.setLayerData("u8in", wrong, dims); },
         " not support int* as data type! Support type: void* | const void* | uint8_t* | const uint8_t* "
         "| float* | const float* "},
        {[&] { backend.setLayerData("u8in", static_cast<float*>(nullptr), dims); }, "data parameter is null."},
        {[&] { backend.getLayerPrecision("x"); }, "x is not found in input and output layers."},
        {[&] { backend.getLayerDims("x"); }, "x is not found in input and output layers."},
        {[&] { backend.getDeviceProperty("AUTO", "X"); }, "could not get the property for AUTO device."},
    };
    for (const auto& [call, message] : rows) EXPECT_EQ(test::kelMessageFrom(kChief, call), message);
    EXPECT_THROW(backend.getNetworkDevice("n"), std::out_of_range) << "refused before any record";
}

TEST_F(OpenvinoNetworks, InputsAreBoundNotCopiedAndReadAsTheLayersOwnType) {
    backend.createNetwork("types", "CPU", std::vector{test::openvinoModel("types.xml")}, {});
    const std::tuple<const char*, std::string, std::uint64_t> precisions[] = {
        {"u8in", "U8", 1}, {"i8out", "I8", 1}, {"f16in", "FP16", 2}};
    for (const auto& [layer, name, size] : precisions)
        EXPECT_EQ(backend.getLayerPrecision(layer), std::make_tuple(name, size));

    // Every accepted pointer type binds, a float one too: the u8 layer reads the first six bytes.
    std::vector<float> packed(2);
    auto* u8 = reinterpret_cast<std::uint8_t*>(packed.data());
    const std::any pointers[] = {static_cast<void*>(u8), static_cast<const void*>(u8),
                                 static_cast<const std::uint8_t*>(u8), u8,
                                 static_cast<const float*>(packed.data()), packed.data()};
    for (const std::any& pointer : pointers) backend.setLayerData("u8in", pointer, {6});
    EXPECT_EQ(backend.getLayerData("u8in"), packed.data());
    std::iota(u8, u8 + 6, 10);  // written only after binding
    backend.infer();
    const auto* out = static_cast<const std::uint8_t*>(backend.getLayerData("u8out"));
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{11, 13, 15, 17, 19, 21}));
}

TEST_F(OpenvinoNetworks, DynamicLayersTakeTheHostsDims) {
    backend.createNetwork("dynamic", "CPU", std::vector{test::openvinoModel("dynamic.xml")}, {});
    // No other test reads a 32-bit float layer's element size.
    EXPECT_EQ(backend.getLayerPrecision("y"), (std::tuple<std::string, std::uint64_t>{"FP32", 4}));
    const std::string need = "\n[x] layer have dynamic shape. Need set by `setLayerData` API first.";
    EXPECT_THAT(test::kelMessageFrom(kChief, [&] { backend.getLayerDims("x"); }),
                ::testing::AllOf(::testing::StartsWith("[OpenVINO Exception]:"), ::testing::EndsWith(need)));
    EXPECT_THAT(test::kelMessageFrom(kChief, [&] { backend.getLayerData("x"); }), ::testing::EndsWith(need));

    // The same memory with fewer rows, then all of them again: each inference's own dims.
    std::string x = stored("dynamic.in.x");
    for (std::uint64_t rows : {1, 3}) {
        backend.setLayerData("x", static_cast<void*>(x.data()), {rows, 4});
        EXPECT_EQ(backend.getLayerDims("x"), (std::vector<std::uint64_t>{rows, 4}));
        backend.infer();
        EXPECT_EQ(backend.getLayerDims("y"), (std::vector<std::uint64_t>{rows, 2}));
    }
    expectMatches(backend.getLayerData("y"), "dynamic.out.y", "FP32");
}

TEST_F(OpenvinoNetworks, DevicesAreAutoFirstThenTheRuntimesWithPropertiesByFamily) {
    const auto devices = backend.getSupportedDevices();
    EXPECT_EQ(devices.front(), "AUTO");
    EXPECT_EQ(backend.getSupportedDevices(), devices) << "filled once";
    EXPECT_EQ(backend.getDeviceSupportProperties("CPU"),
              (std::vector<std::string>{"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}));
    EXPECT_TRUE(backend.getDeviceSupportProperties("GPU.7").empty());
    // Not listed by the device, or no such device: nothing, not an error.
    for (const auto& [device, property] : {std::pair{"CPU", "DEVICE_GOPS"}, std::pair{"GPU.3", "FULL_DEVICE_NAME"}})
        EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty(device, property)));
}

}  // namespace
}  // namespace kel
