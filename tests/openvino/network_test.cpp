// Network creation from files, buffers and inner models, real inference on the processor,
// and what creation leaves behind when it fails.
#include <sys/syscall.h>
#include <unistd.h>

#include <set>
#include <sstream>

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
    std::vector<std::filesystem::path> files(const std::string& names) {
        std::vector<std::filesystem::path> paths;
        std::istringstream words(names);
        for (std::string name; words >> name;) paths.push_back(modelDir() / name);
        return paths;
    }
    void check(const std::string& model) { runAndCheck(backend, model, inputs); }

    std::set<std::filesystem::path> before;
    openvino backend;
    std::map<std::string, test::RefTensor> inputs;
};

TEST_F(OpenvinoNetworks, EveryModelFromFilesAndBuffersGivesTheReferenceNumbers) {
    // {model, files, buffers}: one path lets the runtime find the weights beside the model.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"static", "static.xml static.bin", "static.xml static.bin"}, {"multi", "multi.xml", "multi.xml multi.bin"},
        {"types", "types.xml", "types.xml types.bin"},                {"noweights", "noweights.xml", "noweights.xml"},
        {"static", "static.onnx", "static.onnx"},
    };
    for (const auto& [model, fromFiles, fromBuffers] : rows) {
        backend.createNetwork(model, "CPU", files(fromFiles), {});
        check(model);
        std::vector<std::string> bytes;
        std::vector<ModelBuffer> buffers;
        for (const auto& path : files(fromBuffers)) bytes.push_back(readFile(path));
        for (const auto& b : bytes) buffers.emplace_back(b.data(), b.size());
        backend.createNetwork(model + std::string("-buffers"), "CPU", buffers, {});
        // The host may free the XML text at once (the weights it may not).
        std::fill(bytes[0].begin(), bytes[0].end(), '\0');
        bytes[0] = std::string();
        check(model);
    }
    EXPECT_EQ(backend.getOutputLayerNames(), std::vector<std::string>{"prob"});
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
    backend.createNetwork("auto", "AUTO", files("multi.xml multi.bin"),
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
    backend.createNetwork("npu", "NPU", files("static.xml"), {});
    EXPECT_EQ(backend.getNetworkDevice("npu"), "AUTO");
    check("static");
}

TEST_F(OpenvinoNetworks, SwitchAndRemove) {
    std::vector<std::string> log;
    backend.createNetwork("first", "CPU", files("static.xml"), {});
    backend.createNetwork("second", "CPU", files("multi.xml"), {});
    EXPECT_EQ(backend.getInputLayerNames(), (std::vector<std::string>{"a", "b"}));
    backend.setLogCallback([&](const std::string& line) { log.push_back(line); });

    backend.switchNetwork("first");
    EXPECT_THAT(log.back(), HasSubstr("] : switchNetwork : switch [first] as current network."));
    backend.switchNetwork("unknown");  // already refused above this layer; nothing changes
    EXPECT_EQ(backend.getInputLayerNames(), std::vector<std::string>{"data"});

    backend.removeNetwork("second");
    backend.removeNetwork("second");  // silently
    EXPECT_THROW(backend.getNetworkDevice("second"), std::out_of_range);
    check("static");
}

TEST_F(OpenvinoNetworks, RefusedModelSources) {
    const char byte = '<';
    const std::string junk = "\x08\x07junk that is neither XML nor ONNX";
    auto fromBuffers = [&](std::vector<ModelBuffer> buffers) { backend.createNetwork("n", "CPU", buffers, {}); };
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { backend.createNetwork("n", "CPU", std::vector<std::filesystem::path>{}, {}); },
         "model file number is 0, the number is not supported."},
        {[&] { fromBuffers({3, {&byte, 1}}); }, "model buffer number is 3, the number is not supported."},
        {[&] { fromBuffers({{nullptr, 1}}); },
         "xml_buffer must be set. Current buffer is nullptr. Please check your xml_buffer."},
        {[&] { fromBuffers({{&byte, 0}}); }, "xml_size must be set. Current size is 0. Please check your xml_size."},
        {[&] { fromBuffers({{junk.data(), junk.size()}}); },
         "xml_buffer is neither an XML model description nor an ONNX model. Please check your xml_buffer."},
    };
    for (const auto& [call, message] : rows) EXPECT_EQ(kelMessage(call), message);
    EXPECT_THROW(backend.getNetworkDevice("n"), std::out_of_range) << "refused before any record";
}

TEST_F(OpenvinoNetworks, RuntimeFailuresPassThroughAndTheBackendStaysUsable) {
    // A driver new enough keeps "GPU"; this machine has none, so the runtime refuses.
    std::vector<std::string> log;
    backend.setLogCallback([&](const std::string& line) { log.push_back(line); });
    try {
        backend.createNetwork("gpu", "GPU", files("static.xml"),
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
    EXPECT_ANY_THROW(backend.createNetwork("missing", "CPU", files("absent.xml"), {}));
    const std::string broken = "<net><layers>";
    EXPECT_ANY_THROW(backend.createNetwork("broken", "CPU",
                                           std::vector<ModelBuffer>{{broken.data(), broken.size()}}, {}));

    backend.createNetwork("cpu", "CPU", files("static.xml"), {});
    check("static");
}

}  // namespace
}  // namespace kel
