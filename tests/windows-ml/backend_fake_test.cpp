// The WindowsML back-end's rules over a scripted runtime.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>

#include "fake_platform.hpp"
#include "kel/cxx/KELException.hpp"
#include "modules/windows-ml/windows-ml.hpp"
#include "tests/support/support.hpp"

namespace kel::test {
namespace {

using namespace wmp::tensor_kind;

template <class F>
std::string kelMessage(F&& call) {
    return kelMessageFrom("modules/windows-ml/windows-ml.cpp", std::forward<F>(call));
}

class WindowsMlFake : public ::testing::Test {
protected:
    std::shared_ptr<FakePlatform> fake = std::make_shared<FakePlatform>();
    windows_ml engine{fake};
    int next_model = 0;

    // Creates a network from a model with these features; the fake knows it by its bytes.
    void create(const std::string& id, const std::string& device, FakeModelFeatures features) {
        const std::string bytes = "model-" + std::to_string(next_model++);
        fake->models[bytes] = std::move(features);
        engine.createNetwork(id, device, std::vector<ModelBuffer>{{bytes.data(), bytes.size()}});
    }

    // One static f32 input x [1, 3] and a dynamic f32 input d [-1, 3]; outputs: static y
    // [1, 3] (x doubled) and dynamic z [-1, 3].
    FakeModelFeatures basic() {
        return {{tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                {tensor("y", Float, {1, 3}), tensor("z", Float, {-1, 3})}};
    }
};

TEST_F(WindowsMlFake, DevicesAreCheckedOnlyOnceTheListExists) {
    create("n1", "NPU", basic());
    EXPECT_EQ(engine.getNetworkDevice("n1"), "NPU");
    EXPECT_EQ(fake->session_device, wmp::Cpu);

    // Before the list exists, "GPU" makes all three DirectX devices and runs on the
    // high-performance one.
    fake->devices_created.clear();
    create("g", "GPU", basic());
    EXPECT_EQ(fake->devices_created,
              (std::vector{wmp::DirectX, wmp::DirectXHighPerformance, wmp::DirectXMinPower}));
    EXPECT_EQ(fake->session_device, wmp::DirectXHighPerformance);

    EXPECT_EQ(engine.getSupportedDevices(), (std::vector<std::string>{"AUTO", "CPU"}));
    EXPECT_EQ(kelMessage([&] { create("n2", "NPU", basic()); }), "NPU is not supported.");
    EXPECT_EQ(kelMessage([&] { create("n2", "cpu", basic()); }), "cpu is not supported.");
    EXPECT_EQ(engine.getInputLayerNames().size(), 2u);  // "g" is still current

    create("a", "AUTO", basic());
    EXPECT_EQ(engine.getNetworkDevice("a"), "CPU");
    EXPECT_EQ(fake->session_device, wmp::Cpu);
}

TEST_F(WindowsMlFake, CreationFormsCountTheirSources) {
    const std::string bytes = "one";
    const ModelBuffer buffer{bytes.data(), bytes.size()};
    EXPECT_EQ(kelMessage([&] { engine.createNetwork("n", "CPU", std::vector<ModelBuffer>{}); }),
              "model buffer number is 0, the number is not supported.");
    EXPECT_EQ(kelMessage([&] { engine.createNetwork("n", "CPU", std::vector{buffer, buffer}); }),
              "model buffer number is 2, the number is not supported.");
    EXPECT_EQ(kelMessage([&] {
                  engine.createNetwork("n", "CPU", std::vector<std::filesystem::path>{});
              }),
              "model file is 0, the number is not supported.");
    EXPECT_THROW(engine.createNetwork("n", "CPU",
                                      std::vector<std::filesystem::path>{"/nonexistent/m.onnx"}),
                 std::filesystem::filesystem_error);

    EXPECT_EQ(kelMessage([&] { engine.createNetwork("n", "CPU", std::string("inner")); }),
              "inner is not a supported plugin model id. Please use getSupportedModelIDs "
              "function check built-in and plugin model ids!");
    engine.registerModelAsInnerID("inner", {buffer, buffer});
    EXPECT_EQ(kelMessage([&] { engine.createNetwork("n", "CPU", std::string("inner")); }),
              "model buffer number is 2, the number is not supported.");
    fake->models["one"] = basic();
    engine.registerModelAsInnerID("inner", {buffer});
    engine.createNetwork("n", "CPU", std::string("inner"));
    EXPECT_EQ(engine.getModelInnerIDs(), std::vector<std::string>{"inner"});
    engine.unregisterInnerID("inner");
    EXPECT_EQ(kelMessage([&] { engine.unregisterInnerID("inner"); }),
              "not found Model Id [inner] for unregister.");
    EXPECT_EQ(engine.getInputLayerNames().size(), 2u);  // the network outlives its inner model
}

TEST_F(WindowsMlFake, FeaturesThatAreNotUsableTensorsAreRefused) {
    const std::vector<std::pair<FakeModelFeatures, std::string>> refused{
        {{{{"img", wmp::Image, Undefined, {}}}, {}}, "imglayer type not Tensor. Current layer type is Image"},
        {{{}, {{"s", wmp::Sequence, Float, {}}}}, "slayer type not Tensor. Current layer type is Sequence"},
        {{{{"m", wmp::Map, Float, {}}}, {}}, "mlayer type not Tensor. Current layer type is Map"},
        {{{{"q", 7, Float, {}}}, {}}, "qlayer type not Tensor. Current layer type is Unknown"},
        {{{tensor("s", String, {1})}, {}}, " Tensor type is String! This type is not supported."},
        {{{tensor("s", Complex64, {1})}, {}}, " Tensor type is C64! This type is not supported."},
        {{{tensor("s", Complex128, {1})}, {}}, " Tensor type is C128! This type is not supported."},
        {{{tensor("s", Undefined, {1})}, {}}, " Tensor type is UNSUPPORTED! This type is not supported."},
        {{{tensor("s", 16, {1})}, {}}, " Tensor type is Unknown! This type is not supported."},
    };
    for (const auto& [features, text] : refused) EXPECT_EQ(kelMessage([&] { create("n", "CPU", features); }), text);
}

TEST_F(WindowsMlFake, DeclaredZeroDimensionFailsAfterTheNetworkBecameCurrent) {
    create("first", "CPU", basic());
    testing::internal::CaptureStderr();
    EXPECT_EQ(kelMessage([&] { create("zero", "CPU", {{tensor("e", Float, {0, 4})}, {}}); }),
              "Please set the valid shape to tensor, the dim should larger than 0!");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("[KEL][Windows-ML] If create network crash, please make sure onnx source "
                       "opset < 16!\n"),
              std::string::npos);
    // The partly built network is current and keeps its entry.
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"e"});
    EXPECT_EQ(engine.getLayerDims("e"), (std::vector<std::uint64_t>{0, 4}));
}

TEST_F(WindowsMlFake, StaticLayersGetZeroedBuffersDynamicOnesNone) {
    create("n", "CPU",
           {{tensor("scalar", Int64, {}), tensor("d", Float, {-1, 3, 224, 224})},
            {tensor("y", UInt16, {2, 2})}});
    EXPECT_EQ(engine.getLayerDims("scalar"), std::vector<std::uint64_t>{1});
    auto* scalar = static_cast<std::int64_t*>(engine.getLayerData("scalar"));
    ASSERT_NE(scalar, nullptr);
    EXPECT_EQ(*scalar, 0);
    auto* y = static_cast<std::uint16_t*>(engine.getLayerData("y"));
    ASSERT_NE(y, nullptr);
    EXPECT_EQ(y[0] | y[1] | y[2] | y[3], 0);

    EXPECT_EQ(kelMessage([&] { engine.getLayerData("d"); }),
              "[d] layer have dynamic shape. Need set by `setLayerData` API first.");
    EXPECT_EQ(kelMessage([&] { engine.getLayerDims("d"); }),
              "d is not static tensor please set layer data first.");
    EXPECT_EQ(engine.getLayerPrecision("y"), std::make_tuple(std::string("U16"), 2ull));
    EXPECT_EQ(kelMessage([&] { engine.getLayerPrecision("nope"); }),
              "nope is not found in output and input layers.");
}

TEST_F(WindowsMlFake, RecreationAddsToTheLayerTables) {
    create("n", "CPU", basic());
    create("n", "CPU", {{tensor("x2", Float, {4})}, {tensor("y2", Float16, {4})}});
    auto inputs = engine.getInputLayerNames();
    std::sort(inputs.begin(), inputs.end());
    EXPECT_EQ(inputs, (std::vector<std::string>{"d", "x", "x2"}));
    EXPECT_EQ(engine.getOutputLayerNames().size(), 3u);
    EXPECT_EQ(engine.getLayerPrecision("y2"), std::make_tuple(std::string("FP16"), 2ull));
}

TEST_F(WindowsMlFake, SetLayerDataChecksInOrder) {
    create("n", "CPU", basic());
    float host[6] = {};
    const std::any p = static_cast<void*>(host);
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("x", std::any(), {}, false); }), "data is null.");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("x", p, {}, false); }), "data_dims is empty.");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("q", p, {0}, false); }),
              "q is not found in input and output layers.");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("x", std::any(7), {1, 0}, false); }),
              "Please set the valid shape to tensor, the dim should larger than 0!");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("x", std::any(static_cast<int*>(nullptr)), {1}, false); }),
              "not support int* as data type! Support type: void* | const void* | uint8_t* | "
              "const uint8_t* ");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("x", std::any(static_cast<void*>(nullptr)), {1}, false); }),
              "data is nullptr.");

    // Static: the host's dims are ignored.
    engine.setLayerData("x", std::any(reinterpret_cast<const std::uint8_t*>(host)), {1, 2, 3}, false);
    EXPECT_EQ(engine.getLayerDims("x"), (std::vector<std::uint64_t>{1, 3}));
    EXPECT_EQ(engine.getLayerData("x"), host);

    // Dynamic: count and bounds; the pointer is stored before the shape is judged.
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("d", p, {2, 3, 4}, false); }),
              "[d] expect dim length is 2, but got 3");
    EXPECT_EQ(kelMessage([&] { engine.setLayerData("d", p, {2, 100000001}, false); }),
              "[d] data_dims the 2 dim is 100000001. The dim num larger than 100'000'000). Please check");
    EXPECT_EQ(kelMessage([&] { engine.getLayerDims("d"); }),
              "d is not static tensor please set layer data first.");
    engine.setLayerData("d", std::any(static_cast<const void*>(host)), {2, 100000000}, false);
    EXPECT_EQ(engine.getLayerDims("d"), (std::vector<std::uint64_t>{2, 100000000}));
    EXPECT_EQ(engine.getLayerData("d"), host);
}

TEST_F(WindowsMlFake, PlatformFailuresPassThroughAndLeaveTheEngineUsable) {
    for (const std::string step : {"createStream", "storeBytes", "createStreamReference",
                                   "loadModel", "createDevice", "createSession",
                                   "createBinding", "inputFeatures", "outputFeatures"}) {
        fake->fail_at = step;
        try {
            create("n", "CPU", basic());
            ADD_FAILURE() << step << " did not fail";
        } catch (const wmp::PlatformError& e) {
            EXPECT_EQ(e.code(), FakePlatform::kFailCode);
            EXPECT_EQ(e.what(), step + " failed");
        }
    }
    fake->fail_at.clear();
    create("n", "CPU", basic());
    fake->compute = [](const auto&) {
        return std::map<std::string, wmp::TensorValues>{{"y", std::vector<float>{1, 2, 3}}};
    };
    float d[3] = {};
    engine.setLayerData("d", std::any(static_cast<void*>(d)), {1, 3}, false);
    for (const std::string step :
         {"writeBuffer", "createTensor", "bind", "evaluate", "lookupOutput", "readValues"}) {
        fake->fail_at = step;
        EXPECT_THROW(engine.infer(), wmp::PlatformError) << step;
    }
    fake->fail_at.clear();
    engine.infer();
    EXPECT_EQ(static_cast<float*>(engine.getLayerData("y"))[2], 3);
}

TEST_F(WindowsMlFake, NetworkBookkeeping) {
    create("a", "CPU", basic());
    create("b", "CPU", {{tensor("only", Int8, {1})}, {}});
    engine.switchNetwork("missing");
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"only"});
    engine.switchNetwork("a");
    EXPECT_EQ(engine.getInputLayerNames().size(), 2u);

    // Removing the current network leaves its name current over an empty record.
    engine.removeNetwork("a");
    engine.removeNetwork("never");
    EXPECT_TRUE(engine.getInputLayerNames().empty());
    EXPECT_EQ(kelMessage([&] { engine.getLayerData("x"); }),
              "x is not found in input and output layers.");
    try {
        engine.getNetworkDevice("never");
        ADD_FAILURE();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
    }
    EXPECT_TRUE(engine.getEngineMutableProperties().empty());
    EXPECT_TRUE(std::regex_match(engine.version(), std::regex(R"(\d+\.\d+\.\d+)")));
}

}  // namespace
}  // namespace kel::test
