// Network creation from files and buffers, real inference on the processor, what creation
// leaves behind when it fails, and layer binding, dims, precisions and dynamic shapes.
#include <cstdlib>
#include <openvino/core/except.hpp>

#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;

class OpenvinoNetworks : public ::testing::Test {
protected:
    // A temporary directory of the test's own, where no plugins file may outlive a creation.
    void SetUp() override {
        ::setenv("TMPDIR", tmp.path().c_str(), 1);
        backend.setLogCallback([this](const std::string& line) { log.push_back(line); });
    }
    void TearDown() override {
        for (const auto& entry : std::filesystem::directory_iterator(tmp.path()))
            EXPECT_NE(entry.path().extension(), ".xml") << entry.path();
        ::setenv("TMPDIR", tmp.path().parent_path().c_str(), 1);
    }
    std::vector<std::filesystem::path> files(const std::string& names) {
        std::vector<std::filesystem::path> paths;
        std::istringstream words(names);
        for (std::string name; words >> name;) paths.push_back(test::modelDir() / name);
        return paths;
    }
    // Binds every stored input of `model`, infers, and checks every stored output.
    void check(const std::string& model) {
        for (const auto& layer : backend.getInputLayerNames()) {
            inputs[layer] = test::reference(model, "in", layer);
            backend.setLayerData(layer, static_cast<void*>(inputs[layer].bytes.data()), inputs[layer].dims);
        }
        backend.infer();
        for (const auto& layer : backend.getOutputLayerNames())
            test::expectMatches(backend.getLayerData(layer), test::reference(model, "out", layer), layer);
    }

    test::TempDir tmp;
    openvino backend;
    std::map<std::string, test::RefTensor> inputs;  // bound, so kept until the next check
    std::vector<std::string> log;
};
// The layer cases keep a suite name of their own.
class OpenvinoLayers : public OpenvinoNetworks {};

TEST_F(OpenvinoNetworks, EveryModelFromFilesAndBuffersGivesTheReferenceNumbers) {
    // {model, files, buffers}: one path lets the runtime find the weights beside the model.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"static", "static.xml static.bin", "static.xml static.bin"}, {"static", "static.onnx", "static.onnx"},
        {"multi", "multi.xml", "multi.xml multi.bin"},               {"types", "types.xml", "types.xml types.bin"},
        {"noweights", "noweights.xml", "noweights.xml"},
    };
    for (const auto& [model, fromFiles, fromBuffers] : rows) {
        backend.createNetwork(model, "CPU", files(fromFiles), {});
        check(model);
        std::vector<std::string> bytes;
        std::vector<ModelBuffer> buffers;
        for (const auto& path : files(fromBuffers)) bytes.push_back(test::readFile(path));
        for (const auto& b : bytes) buffers.emplace_back(b.data(), b.size());
        backend.createNetwork(model + std::string("-buffers"), "CPU", buffers, {});
        // The host may free the XML text at once (the weights it may not).
        std::fill(bytes[0].begin(), bytes[0].end(), '\0');
        check(model);
    }
}

TEST_F(OpenvinoNetworks, NpuWithoutDriverRunsOnAutoAndLogsItsSteps) {
    backend.createNetwork("npu", "NPU", files("multi.xml multi.bin"),
                          {{"DEVICE_PERFORMANCE_MODE", std::string("LATENCY")}});
    check("multi");
    EXPECT_EQ(backend.getNetworkDevice("npu"), "AUTO");

    // In this order; the lines between them are pinned by the properties tests.
    const char* steps[] = {
        "] : createNetwork : (Begin) ov api read_model for [npu] network.",
        "] : createNetwork : (Cease) ov api read_model for [npu] network.",
        "] : createNetwork : network_identifier is [npu], device is [NPU]",
        "] : createNetwork : (Cease) ov api create_infer_request for [npu] network.",
        "] : createNetwork : [npu] network have 2 input layer(s) [a] [b] ",
        "] : createNetwork : [npu] network have 2 output layer(s) [sum] [mm] ",
    };
    auto at = log.begin();
    for (const char* step : steps) {
        at = std::find_if(at, log.end(), [&](const std::string& line) { return line.ends_with(step); });
        ASSERT_NE(at, log.end()) << step;
    }
}

TEST_F(OpenvinoNetworks, RefusedModelSources) {
    const std::string junk = "\x08\x07junk that is neither XML nor ONNX";
    auto fromBuffers = [&](std::vector<ModelBuffer> buffers) { backend.createNetwork("n", "CPU", buffers, {}); };
    const std::pair<std::function<void()>, const char*> rows[] = {
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
    };
    for (const auto& [call, message] : rows) EXPECT_EQ(kelMessage(call), message);
    EXPECT_THROW(backend.getNetworkDevice("n"), std::out_of_range) << "refused before any record";
}

TEST_F(OpenvinoNetworks, SwitchRemoveAndRuntimeFailuresLeaveTheCurrentNetwork) {
    backend.createNetwork("first", "CPU", files("static.xml"), {});
    backend.createNetwork("second", "CPU", files("multi.xml"), {});
    backend.switchNetwork("first");
    backend.switchNetwork("unknown");  // already refused above this layer; nothing changes
    EXPECT_THAT(log.back(), ::testing::HasSubstr("] : switchNetwork : switch [first] as current network."));
    backend.removeNetwork("second");
    backend.removeNetwork("second");  // silently
    EXPECT_THROW(backend.getNetworkDevice("second"), std::out_of_range);

    // The runtime's own failures pass through: a device it lacks, a file it cannot read, broken XML.
    EXPECT_THROW(backend.createNetwork("gpu", "GPU.7", files("static.xml"), {}), ov::Exception);
    EXPECT_THAT(log.back(), ::testing::HasSubstr("(Begin) ov api compile_model for [gpu] network."));
    EXPECT_ANY_THROW(backend.createNetwork("missing", "CPU", files("absent.xml"), {}));
    EXPECT_ANY_THROW(backend.createNetwork("broken", "CPU", std::vector<ModelBuffer>{{"<net><layers>", 13}}, {}));
    check("static");
}

TEST_F(OpenvinoLayers, RefusalsComeInTheOrderOfTheChecks) {
    backend.createNetwork("types", "CPU", files("types.xml"), {});
    std::uint8_t bytes[6] = {};
    const std::vector<std::uint64_t> dims = {6};
    int* wrong = reinterpret_cast<int*>(bytes);
    const std::pair<std::function<void()>, std::string> rows[] = {
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
    };
    for (const auto& [call, message] : rows) EXPECT_EQ(kelMessage(call), message);
}

TEST_F(OpenvinoLayers, InputsAreBoundNotCopiedAndReadAsTheLayersOwnType) {
    backend.createNetwork("types", "CPU", files("types.xml"), {});
    using P = std::tuple<std::string, std::uint64_t>;
    EXPECT_EQ(backend.getLayerPrecision("u8in"), (P{"U8", 1}));
    EXPECT_EQ(backend.getLayerPrecision("i8out"), (P{"I8", 1}));
    EXPECT_EQ(backend.getLayerPrecision("f16in"), (P{"FP16", 2}));

    // Every accepted pointer type binds, a float one too: the u8 layer reads the first six bytes.
    std::vector<float> packed(2);
    auto* u8 = reinterpret_cast<std::uint8_t*>(packed.data());
    const std::any pointers[] = {static_cast<void*>(u8), static_cast<const void*>(u8),
                                 static_cast<const std::uint8_t*>(u8), u8,
                                 static_cast<const float*>(packed.data()), packed.data()};
    for (const std::any& pointer : pointers) backend.setLayerData("u8in", pointer, {6});
    EXPECT_EQ(backend.getLayerData("u8in"), packed.data());
    // Written only after binding.
    const std::uint8_t values[6] = {10, 20, 30, 40, 50, 60};
    std::memcpy(u8, values, 6);
    backend.infer();
    const auto* out = static_cast<const std::uint8_t*>(backend.getLayerData("u8out"));
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{11, 22, 33, 44, 55, 66}));
}

TEST_F(OpenvinoLayers, DynamicLayersTakeTheHostsDims) {
    backend.createNetwork("dynamic", "CPU", files("dynamic.xml"), {});
    // No other test reads a 32-bit float layer's element size.
    EXPECT_EQ(backend.getLayerPrecision("y"), (std::tuple<std::string, std::uint64_t>{"FP32", 4}));
    const std::string need = "\n[x] layer have dynamic shape. Need set by `setLayerData` API first.";
    EXPECT_THAT(kelMessage([&] { backend.getLayerDims("x"); }),
                ::testing::AllOf(::testing::StartsWith("[OpenVINO Exception]:"), ::testing::EndsWith(need)));
    EXPECT_THAT(kelMessage([&] { backend.getLayerData("x"); }), ::testing::EndsWith(need));

    // The same memory with fewer rows, then all of them again: each inference's own dims.
    test::RefTensor x = test::reference("dynamic", "in", "x");
    for (std::uint64_t rows : {1, 3}) {
        backend.setLayerData("x", static_cast<void*>(x.bytes.data()), {rows, 4});
        EXPECT_EQ(backend.getLayerDims("x"), (std::vector<std::uint64_t>{rows, 4}));
        backend.infer();
        EXPECT_EQ(backend.getLayerDims("y"), (std::vector<std::uint64_t>{rows, 2}));
    }
    test::expectMatches(backend.getLayerData("y"), test::reference("dynamic", "out", "y"), "dynamic/y");
    // A rank the model cannot take is the runtime's refusal.
    EXPECT_ANY_THROW(backend.setLayerData("x", static_cast<void*>(x.bytes.data()), {12}));
}

}  // namespace
}  // namespace kel
