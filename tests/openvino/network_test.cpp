// Network creation from files, buffers and inner models, real inference on the processor,
// and what creation leaves behind when it fails.
#include <sys/syscall.h>
#include <unistd.h>

#include <set>

#include "modules/openvino/openvino_internal.hpp"
#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;
using test::modelDir;
using test::readFile;
using test::runAndCheck;
using ::testing::HasSubstr;

// The temporary plugins files ("<thread>-<ticks>.xml") of this thread present right now;
// other test processes create their own at the same time.
std::set<std::filesystem::path> pluginFiles() {
    const std::string prefix = std::to_string(static_cast<long>(syscall(SYS_gettid))) + "-";
    std::set<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() == ".xml" && name.rfind(prefix, 0) == 0) found.insert(entry.path());
    }
    return found;
}

class OpenvinoNetworks : public ::testing::Test {
protected:
    void SetUp() override { before = pluginFiles(); }
    void TearDown() override {
        // Whatever happened in the test, no plugins file may outlive a creation.
        for (const auto& path : pluginFiles()) EXPECT_TRUE(before.contains(path)) << path;
    }
    std::vector<std::filesystem::path> files(std::initializer_list<const char*> names) {
        std::vector<std::filesystem::path> paths;
        for (const char* name : names) paths.push_back(modelDir() / name);
        return paths;
    }
    void check(const std::string& model) { runAndCheck(backend, model, inputs); }

    std::set<std::filesystem::path> before;
    openvino backend;
    std::map<std::string, test::RefTensor> inputs;
};

TEST_F(OpenvinoNetworks, EveryModelFromFilesGivesTheReferenceNumbers) {
    backend.createNetwork("static", "CPU", files({"static.xml", "static.bin"}), {});
    EXPECT_EQ(backend.getInputLayerNames(), std::vector<std::string>{"data"});
    EXPECT_EQ(backend.getOutputLayerNames(), std::vector<std::string>{"prob"});
    check("static");

    // One path: the runtime finds the weights beside the model, or needs none.
    for (const char* model : {"multi", "types", "noweights"}) {
        backend.createNetwork(model, "CPU", files({(std::string(model) + ".xml").c_str()}), {});
        check(model);
    }
    EXPECT_EQ(backend.getInputLayerNames(), (std::vector<std::string>{"a", "b"}));

    backend.createNetwork("onnx", "CPU", files({"static.onnx"}), {});
    check("static");
    EXPECT_EQ(backend.getNetworkDevice("onnx"), "CPU");
}

TEST_F(OpenvinoNetworks, FromBuffersTheXmlCanBeFreedAtOnce) {
    for (const char* model : {"static", "multi", "types"}) {
        const std::string weights = readFile(modelDir() / (std::string(model) + ".bin"));
        auto xml = std::make_unique<std::string>(readFile(modelDir() / (std::string(model) + ".xml")));
        backend.createNetwork(model, "CPU",
                              std::vector<ModelBuffer>{{xml->data(), xml->size()},
                                                       {weights.data(), weights.size()}},
                              {});
        std::fill(xml->begin(), xml->end(), '\0');
        xml.reset();
        check(model);
    }
    // A single buffer: no weights at all.
    const std::string xml = readFile(modelDir() / "noweights.xml");
    backend.createNetwork("noweights", "CPU", std::vector<ModelBuffer>{{xml.data(), xml.size()}}, {});
    check("noweights");
    // An ONNX model in memory reads as from its file.
    const std::string onnx = readFile(modelDir() / "static.onnx");
    backend.createNetwork("onnx", "CPU", std::vector<ModelBuffer>{{onnx.data(), onnx.size()}}, {});
    check("static");
}

TEST_F(OpenvinoNetworks, FromRegisteredInnerModels) {
    const std::string xml = readFile(modelDir() / "multi.xml");
    const std::string weights = readFile(modelDir() / "multi.bin");
    const std::string bare = readFile(modelDir() / "noweights.xml");
    backend.registerModelAsInnerID("multi-model", {{xml.data(), xml.size()}, {weights.data(), weights.size()}});
    backend.registerModelAsInnerID("bare-model", {{bare.data(), bare.size()}});
    EXPECT_EQ(backend.getModelInnerIDs(), (std::vector<std::string>{"bare-model", "multi-model"}));

    backend.createNetwork("one", "CPU", std::string("multi-model"), {});
    check("multi");
    backend.createNetwork("two", "AUTO", std::string("bare-model"), {});
    check("noweights");

    backend.unregisterInnerID("bare-model");
    EXPECT_EQ(backend.getModelInnerIDs(), std::vector<std::string>{"multi-model"});
    EXPECT_EQ(kelMessage([&] { backend.createNetwork("three", "CPU", std::string("bare-model"), {}); }),
              "bare-model is not a supported plugin model id. Please use getSupportedModelIDs "
              "function check built-in and plugin model ids!");
}

TEST_F(OpenvinoNetworks, AutoRunsAndLogsItsSteps) {
    std::vector<std::string> log;
    backend.setLogCallback([&](const std::string& line) { log.push_back(line); });
    backend.createNetwork("auto", "AUTO", files({"multi.xml", "multi.bin"}),
                          {{"DEVICE_PERFORMANCE_MODE", std::string("LATENCY")}});
    check("multi");
    EXPECT_EQ(backend.getNetworkDevice("auto"), "AUTO");

    auto line = [&](std::size_t i) { return i < log.size() ? log[i] : std::string(); };
    const std::string tag = "[modules/openvino/vino-api2.0.cpp:";
    ASSERT_GE(log.size(), 12u);
    EXPECT_EQ(line(1).rfind(tag, 0), 0u);
    EXPECT_THAT(line(1), HasSubstr("] : createNetwork : (Begin) ov api read_model for [auto] network."));
    EXPECT_THAT(line(2), HasSubstr("] : createNetwork : (Cease) ov api read_model for [auto] network."));
    EXPECT_THAT(line(3), HasSubstr("] : createNetwork : network_identifier is [auto], device is [AUTO]"));
    EXPECT_THAT(line(4), HasSubstr("] : createNetwork : [CACHE_DIR] is ["));
    EXPECT_THAT(line(5), HasSubstr("] : createNetwork : [DEVICE_PERFORMANCE_MODE] is [LATENCY]"));
    EXPECT_THAT(line(6), HasSubstr("(Begin) ov api compile_model for [auto] network."));
    EXPECT_THAT(line(9), HasSubstr("(Cease) ov api create_infer_request for [auto] network."));
    EXPECT_THAT(line(10), HasSubstr("] : createNetwork : [auto] network have 2 input layer(s) [a] [b] "));
    EXPECT_THAT(line(11), HasSubstr("] : createNetwork : [auto] network have 2 output layer(s) [sum] [mm] "));
}

TEST_F(OpenvinoNetworks, NpuWithoutDriverRunsOnAuto) {
    backend.createNetwork("npu", "NPU", files({"static.xml"}), {});
    EXPECT_EQ(backend.getNetworkDevice("npu"), "AUTO");
    check("static");
}

TEST_F(OpenvinoNetworks, SwitchAndRemove) {
    std::vector<std::string> log;
    backend.createNetwork("first", "CPU", files({"static.xml"}), {});
    backend.createNetwork("second", "CPU", files({"multi.xml"}), {});
    EXPECT_EQ(openvino_testing::currentNetwork(backend), "second");
    backend.setLogCallback([&](const std::string& line) { log.push_back(line); });

    backend.switchNetwork("first");
    EXPECT_EQ(backend.getInputLayerNames(), std::vector<std::string>{"data"});
    EXPECT_THAT(log.back(), HasSubstr("] : switchNetwork : switch [first] as current network."));
    backend.switchNetwork("unknown");  // already refused above this layer; nothing changes
    EXPECT_EQ(openvino_testing::currentNetwork(backend), "first");

    backend.removeNetwork("second");
    backend.removeNetwork("second");  // silently
    EXPECT_THROW(backend.getNetworkDevice("second"), std::out_of_range);
    check("static");
}

TEST_F(OpenvinoNetworks, RefusedModelSources) {
    EXPECT_EQ(kelMessage([&] { backend.createNetwork("n", "CPU", std::vector<std::filesystem::path>{}, {}); }),
              "model file number is 0, the number is not supported.");
    const char byte = '<';
    EXPECT_EQ(kelMessage([&] {
                  backend.createNetwork("n", "CPU",
                                        std::vector<ModelBuffer>{{&byte, 1}, {&byte, 1}, {&byte, 1}}, {});
              }),
              "model buffer number is 3, the number is not supported.");
    const std::size_t one = 1, none = 0;
    EXPECT_EQ(kelMessage([&] { backend.createNetwork("n", "CPU", nullptr, one, nullptr, none, {}); }),
              "xml_buffer must be set. Current buffer is nullptr. Please check your xml_buffer.");
    const std::string junk = "\x08\x07junk that is neither XML nor ONNX";
    EXPECT_EQ(kelMessage([&] { backend.createNetwork("n", "CPU", std::vector<ModelBuffer>{{junk.data(), junk.size()}}, {}); }),
              "xml_buffer is neither an XML model description nor an ONNX model. Please check your xml_buffer.");
    EXPECT_THROW(backend.getNetworkDevice("n"), std::out_of_range) << "refused before any record";
}

TEST_F(OpenvinoNetworks, RuntimeFailuresPassThroughAndTheBackendStaysUsable) {
    // A driver new enough keeps "GPU"; this machine has none, so the runtime refuses.
    std::vector<std::string> log;
    backend.setLogCallback([&](const std::string& line) { log.push_back(line); });
    try {
        backend.createNetwork("gpu", "GPU", files({"static.xml"}),
                              {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2200")},
                               {"GPU_THROTTLE_HINT_LEVEL", std::string("LOW")}});
        GTEST_SKIP() << "this machine has a GPU";
    } catch (const KELException& e) {
        FAIL() << "expected the runtime's own error, got " << e.what();
    } catch (const std::exception&) {
    }
    EXPECT_EQ(backend.getNetworkDevice("gpu"), "GPU");
    EXPECT_THAT(log.back(), HasSubstr("(Begin) ov api compile_model for [gpu] network."));
    EXPECT_THAT(log[log.size() - 2], HasSubstr("[GPU_THROTTLE_HINT_LEVEL] is [LOW]"));

    // A file the runtime cannot read and a broken XML buffer fail the same way.
    EXPECT_ANY_THROW(backend.createNetwork("missing", "CPU", files({"absent.xml"}), {}));
    const std::string broken = "<net><layers>";
    EXPECT_ANY_THROW(backend.createNetwork("broken", "CPU",
                                           std::vector<ModelBuffer>{{broken.data(), broken.size()}}, {}));

    backend.createNetwork("cpu", "CPU", files({"static.xml"}), {});
    check("static");
}

}  // namespace
}  // namespace kel
