// The back-end alone: networks from buffers, its refusals, layer binding, dynamic shapes, devices.
#include <gmock/gmock.h>

#include <map>
#include <numeric>

#include "modules/openvino/openvino.hpp"
#include "tests/support/models.hpp"

namespace kel {
namespace {

constexpr const char* kChief = "modules/openvino/vino-api2.0.cpp";

class OpenvinoNetworks : public ::testing::Test {
protected:
    // Buffers are only wrapped: they outlive the back-end (AUTO may still be compiling from them).
    std::vector<std::vector<std::string>> handedOver;
    openvino backend;
    std::map<std::string, std::string> inputs;  // bound, so kept while their network may run
};

// Files are read by the runtime itself (kel-run runs them); from buffers, kel picks the reader.
TEST_F(OpenvinoNetworks, EveryModelFromBuffersGivesTheReferenceNumbers) {
    // {model, device, model file, weights file}; an NPU without its driver runs on "AUTO". The
    // passthrough's one tensor is named "x" and "y": its output is listed as "y", not as the input.
    const std::tuple<std::string, const char*, const char*, const char*> rows[] = {
        {"static", "CPU", "static.onnx", ""},       {"multi", "NPU", "multi.xml", "multi.bin"},
        {"types", "CPU", "types.xml", "types.bin"}, {"noweights", "CPU", "noweights.xml", ""},
        {"passthrough", "CPU", "passthrough.xml", ""},
    };
    for (const auto& [model, device, file, weights] : rows) {
        std::vector<std::string> bytes{test::readFile(test::openvinoModel(file))};
        if (*weights) bytes.push_back(test::readFile(test::openvinoModel(weights)));
        std::vector<ModelBuffer> buffers;
        for (const auto& b : bytes) buffers.emplace_back(b.data(), b.size());
        backend.createNetwork(model, device, buffers, {});
        // The host may free the XML text at once (the weights it may not).
        std::fill(bytes[0].begin(), bytes[0].end(), '\0');
        // Stored "<model>.<in|out>.<layer>.raw" data; the models' 8- and 16-bit arithmetic is exact,
        // FP32 within what reduced-precision kernels may lose.
        for (const auto& layer : backend.getInputLayerNames()) {
            inputs[layer] = test::readFile(test::openvinoModel(model + ".in." + layer + ".raw"));
            backend.setLayerData(layer, static_cast<void*>(inputs[layer].data()), backend.getLayerDims(layer));
        }
        backend.infer();
        for (const auto& layer : backend.getOutputLayerNames()) {
            const auto want = test::openvinoModel(model + ".out." + layer + ".raw");
            const auto* got = static_cast<const char*>(backend.getLayerData(layer));
            SCOPED_TRACE(want);
            if (std::get<0>(backend.getLayerPrecision(layer)) == "FP32")
                test::expectNear(reinterpret_cast<const float*>(got), test::readArray<float>(want), 1e-2f);
            else
                EXPECT_EQ(std::string(got, std::filesystem::file_size(want)), test::readFile(want));
        }
        handedOver.push_back(std::move(bytes));
    }
}

TEST_F(OpenvinoNetworks, RefusalsComeWithTheirTextsInTheOrderOfTheChecks) {
    backend.createNetwork("types", "CPU", std::vector{test::openvinoModel("types.xml")}, {});
    auto fromBuffers = [&](std::vector<ModelBuffer> buffers) { backend.createNetwork("n", "CPU", buffers, {}); };
    std::uint8_t bytes[6] = {};
    const std::vector<std::uint64_t> dims = {6};
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
        {[&] { fromBuffers({{"\x08\x07junk", 6}}); },
         "xml_buffer is neither an XML model description nor an ONNX model. Please check your xml_buffer."},
        {[&] { backend.setLayerData("nope", std::any(), {}); }, "data parameter is null."},
        {[&] { backend.setLayerData("nope", bytes, {}); }, "data_dims parameter is empty."},
        {[&] { backend.setLayerData("nope", bytes, dims); }, "[nope] is not found in input and output layers."},
        {[&] { backend.setLayerData("u8in", 42, {5}); }, "[u8in] expect dims is [6], but get dims is [5]"},
        {[&] { backend.setLayerData("u8in", reinterpret_cast<int*>(bytes), dims); },
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
    backend.createNetwork("bool", "CPU", std::vector{test::openvinoModel("bool.xml")}, {});
    EXPECT_EQ(backend.getLayerPrecision("flag"), std::make_tuple(std::string("BOOL"), std::uint64_t{1}));
    backend.switchNetwork("types");

    // Every accepted pointer type binds, a float one too: the u8 layer reads the first six bytes.
    std::vector<float> packed(2);
    auto* u8 = reinterpret_cast<std::uint8_t*>(packed.data());
    const std::any pointers[] = {static_cast<void*>(u8), static_cast<const void*>(u8),
                                 static_cast<const std::uint8_t*>(u8), u8,
                                 static_cast<const float*>(packed.data()), packed.data()};
    for (const std::any& pointer : pointers) backend.setLayerData("u8in", pointer, {6});
    std::iota(u8, u8 + 6, 10);  // written only after binding
    backend.infer();
    const auto* out = static_cast<const std::uint8_t*>(backend.getLayerData("u8out"));
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{11, 13, 15, 17, 19, 21}));
}

TEST_F(OpenvinoNetworks, DynamicLayersTakeTheHostsDims) {
    backend.createNetwork("dynamic", "CPU", std::vector{test::openvinoModel("dynamic.xml")}, {});
    const std::string need = "\n[x] layer have dynamic shape. Need set by `setLayerData` API first.";
    EXPECT_THAT(test::kelMessageFrom(kChief, [&] { backend.getLayerDims("x"); }),
                ::testing::AllOf(::testing::StartsWith("[OpenVINO Exception]:"), ::testing::EndsWith(need)));

    // The same memory with fewer rows, then all of them again: each inference's own dims.
    std::vector<float> x(12);
    for (std::uint64_t rows : {1, 3}) {
        backend.setLayerData("x", x.data(), {rows, 4});
        EXPECT_EQ(backend.getLayerDims("x"), (std::vector<std::uint64_t>{rows, 4}));
        backend.infer();
        EXPECT_EQ(backend.getLayerDims("y"), (std::vector<std::uint64_t>{rows, 2}));
    }
}

TEST_F(OpenvinoNetworks, DevicesAreAutoFirstUnknownPropertiesAreNothingAndNoStateIsABadCast) {
    EXPECT_EQ(backend.getSupportedDevices().front(), "AUTO");
    for (const auto& [device, checked] : {std::pair{"GPU", true}, {"NPU", true}, {"CPU", false}, {"HETERO:GPU", false}})
        EXPECT_EQ(backend.wantsDriverVersions(device), checked) << device;  // only these compare driver versions
    // Hosts read the properties by index: the order is part of the answer.
    EXPECT_EQ(backend.getDeviceSupportProperties("CPU"), (std::vector<std::string>{"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}));
    // Not listed by the device, or no such device: nothing, not an error.
    for (const auto& [device, property] : {std::pair{"CPU", "DEVICE_GOPS"}, std::pair{"GPU.3", "FULL_DEVICE_NAME"}})
        EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty(device, property)));
    // An engine without state (moved from) fails as a cast of its state would.
    const openvino taken(std::move(backend));
    EXPECT_EQ(test::thrownText([&] { backend.getSupportedDevices(); }), "Bad any_cast");
}

}  // namespace
}  // namespace kel
