// The WindowsML back-end's rules over a scripted runtime: models are looked up by their
// bytes, so a test can declare what ONNX Runtime cannot express (image, sequence and map
// features, any tensor kind, zero dimensions) and make any runtime step fail.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "modules/windows-ml/platform.hpp"
#include "modules/windows-ml/windows-ml.hpp"
#include "tests/support/support.hpp"

namespace kel::test {
namespace {

namespace wmp = kel::windows_ml_platform;
using namespace wmp::tensor_kind;
using Features = std::pair<std::vector<wmp::FeatureDescription>, std::vector<wmp::FeatureDescription>>;

wmp::FeatureDescription tensor(std::string name, std::uint32_t kind, std::vector<std::int64_t> shape) {
    return {std::move(name), wmp::Tensor, kind, std::move(shape)};
}

class FakePlatform : public wmp::Platform {
public:
    std::map<std::string, Features> models;  // by model bytes
    std::string failAt;                      // the step that fails
    std::vector<wmp::DeviceKind> devicesCreated;
    wmp::DeviceKind sessionDevice = wmp::Default;
    std::map<std::string, wmp::TensorValues> outputs;  // what every evaluation yields

    std::shared_ptr<wmp::Stream> createStream() override { return step<Bytes>("createStream"); }
    void storeBytes(wmp::Stream& s, const std::uint8_t* data, std::size_t size) override {
        step<Bytes>("storeBytes");
        static_cast<Bytes&>(s).bytes.append(reinterpret_cast<const char*>(data), size);
    }
    std::shared_ptr<wmp::Buffer> writeBuffer(const std::uint8_t*, std::size_t) override {
        return step<Bytes>("writeBuffer");
    }
    std::shared_ptr<wmp::StreamReference> createStreamReference(const std::shared_ptr<wmp::Stream>& s) override {
        auto r = step<Bytes>("createStreamReference");
        r->bytes = static_cast<Bytes&>(*s).bytes;
        return r;
    }
    std::shared_ptr<wmp::Model> loadModel(wmp::StreamReference& r) override {
        auto m = step<Model>("loadModel");
        m->features = models.at(static_cast<Bytes&>(r).bytes);
        return m;
    }
    std::vector<wmp::FeatureDescription> inputFeatures(wmp::Model& m) override {
        step<Bytes>("inputFeatures");
        return static_cast<Model&>(m).features.first;
    }
    std::vector<wmp::FeatureDescription> outputFeatures(wmp::Model& m) override {
        step<Bytes>("outputFeatures");
        return static_cast<Model&>(m).features.second;
    }
    std::shared_ptr<wmp::Device> createDevice(wmp::DeviceKind kind) override {
        devicesCreated.push_back(kind);
        auto d = step<Device>("createDevice");
        d->kind = kind;
        return d;
    }
    std::shared_ptr<wmp::Session> createSession(const std::shared_ptr<wmp::Model>&,
                                                const std::shared_ptr<wmp::Device>& d) override {
        sessionDevice = static_cast<Device&>(*d).kind;
        return step<Bytes>("createSession");
    }
    std::shared_ptr<wmp::Binding> createBinding(const std::shared_ptr<wmp::Session>&) override {
        return step<Bytes>("createBinding");
    }
    std::shared_ptr<wmp::Value> createTensor(std::uint32_t, const std::vector<std::int64_t>&,
                                             const std::shared_ptr<wmp::Buffer>&) override {
        return step<Value>("createTensor");
    }
    void bind(wmp::Binding&, const std::string&, const std::shared_ptr<wmp::Value>&) override { step<Bytes>("bind"); }
    std::shared_ptr<wmp::EvaluationResult> evaluate(wmp::Session&, wmp::Binding&, const std::string&) override {
        return step<Bytes>("evaluate");
    }
    std::shared_ptr<wmp::Value> lookupOutput(wmp::EvaluationResult&, const std::string& name) override {
        auto v = step<Value>("lookupOutput");
        v->values = outputs.at(name);
        return v;
    }
    wmp::TensorValues readValues(wmp::Value& v, std::uint32_t) override {
        step<Bytes>("readValues");
        return static_cast<Value&>(v).values;
    }

private:
    // One handle type per role the back-end tells apart.
    struct Bytes : wmp::Stream, wmp::StreamReference, wmp::Buffer, wmp::Session, wmp::Binding,
                   wmp::EvaluationResult {
        std::string bytes;
    };
    struct Model : wmp::Model { Features features; };
    struct Device : wmp::Device { wmp::DeviceKind kind{}; };
    struct Value : wmp::Value { wmp::TensorValues values; };

    template <class T>
    std::shared_ptr<T> step(const std::string& name) {
        if (failAt == name) throw wmp::PlatformError(-2147467259, name + " failed");
        return std::make_shared<T>();
    }
};

class WindowsMlFake : public ::testing::Test {
protected:
    std::shared_ptr<FakePlatform> fake = std::make_shared<FakePlatform>();
    windows_ml engine{fake};
    int nextModel = 0;

    void create(const std::string& id, const std::string& device, Features features) {
        const std::string bytes = "model-" + std::to_string(nextModel++);
        fake->models[bytes] = std::move(features);
        engine.createNetwork(id, device, std::vector<ModelBuffer>{{bytes.data(), bytes.size()}});
    }
    // Static f32 input x [1, 3], dynamic d [-1, 3]; static output y [1, 3], dynamic z [-1, 3].
    static Features basic() {
        return {{tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                {tensor("y", Float, {1, 3}), tensor("z", Float, {-1, 3})}};
    }
    template <class F>
    static std::string kelMessage(F&& call) {
        return kelMessageFrom("modules/windows-ml/windows-ml.cpp", std::forward<F>(call));
    }
};

TEST_F(WindowsMlFake, DevicesAreCheckedOnlyOnceTheListExists) {
    create("n1", "NPU", basic());
    EXPECT_EQ(engine.getNetworkDevice("n1"), "NPU");
    EXPECT_EQ(fake->sessionDevice, wmp::Cpu);
    // Before the list exists, "GPU" makes all three DirectX devices and runs on the
    // high-performance one.
    fake->devicesCreated.clear();
    create("g", "GPU", basic());
    EXPECT_EQ(fake->devicesCreated, (std::vector{wmp::DirectX, wmp::DirectXHighPerformance, wmp::DirectXMinPower}));
    EXPECT_EQ(fake->sessionDevice, wmp::DirectXHighPerformance);

    EXPECT_EQ(engine.getSupportedDevices(), (std::vector<std::string>{"AUTO", "CPU"}));
    EXPECT_EQ(kelMessage([&] { create("n2", "NPU", basic()); }), "NPU is not supported.");
    EXPECT_EQ(kelMessage([&] { create("n2", "cpu", basic()); }), "cpu is not supported.");
    create("a", "AUTO", basic());
    EXPECT_EQ(engine.getNetworkDevice("a"), "CPU");
    EXPECT_EQ(fake->sessionDevice, wmp::Cpu);
}

TEST_F(WindowsMlFake, CreationRefusalsAndInnerModels) {
    const std::string bytes = "one";
    const ModelBuffer buffer{bytes.data(), bytes.size()};
    const std::string innerText = "inner is not a supported plugin model id. Please use getSupportedModelIDs "
                                  "function check built-in and plugin model ids!";
    const std::pair<std::function<void()>, std::string> refusals[] = {
        {[&] { engine.createNetwork("n", "CPU", std::vector<ModelBuffer>{}); },
         "model buffer number is 0, the number is not supported."},
        {[&] { engine.createNetwork("n", "CPU", std::vector{buffer, buffer}); },
         "model buffer number is 2, the number is not supported."},
        {[&] { engine.createNetwork("n", "CPU", std::vector<std::filesystem::path>{}); },
         "model file is 0, the number is not supported."},
        {[&] { engine.createNetwork("n", "CPU", std::string("inner")); }, innerText},
        {[&] { engine.unregisterInnerID("inner"); }, "not found Model Id [inner] for unregister."},
        {[&] { create("n", "CPU", {{{"img", wmp::Image, Undefined, {}}}, {}}); },
         "imglayer type not Tensor. Current layer type is Image"},
        {[&] { create("n", "CPU", {{}, {{"s", wmp::Sequence, Float, {}}}}); },
         "slayer type not Tensor. Current layer type is Sequence"},
        {[&] { create("n", "CPU", {{{"m", wmp::Map, Float, {}}}, {}}); },
         "mlayer type not Tensor. Current layer type is Map"},
        {[&] { create("n", "CPU", {{{"q", 7, Float, {}}}, {}}); }, "qlayer type not Tensor. Current layer type is Unknown"},
        {[&] { create("n", "CPU", {{tensor("s", String, {1})}, {}}); }, " Tensor type is String! This type is not supported."},
        {[&] { create("n", "CPU", {{tensor("s", Complex64, {1})}, {}}); }, " Tensor type is C64! This type is not supported."},
        {[&] { create("n", "CPU", {{tensor("s", Complex128, {1})}, {}}); }, " Tensor type is C128! This type is not supported."},
        {[&] { create("n", "CPU", {{tensor("s", Undefined, {1})}, {}}); },
         " Tensor type is UNSUPPORTED! This type is not supported."},
        {[&] { create("n", "CPU", {{tensor("s", 16, {1})}, {}}); }, " Tensor type is Unknown! This type is not supported."},
    };
    for (const auto& [call, text] : refusals) EXPECT_EQ(kelMessage(call), text);
    EXPECT_THROW(engine.createNetwork("n", "CPU", std::vector<std::filesystem::path>{"/nonexistent/m.onnx"}),
                 std::filesystem::filesystem_error);

    engine.registerModelAsInnerID("inner", {buffer, buffer});
    EXPECT_EQ(kelMessage([&] { engine.createNetwork("n", "CPU", std::string("inner")); }),
              "model buffer number is 2, the number is not supported.");
    fake->models["one"] = basic();
    engine.registerModelAsInnerID("inner", {buffer});
    engine.createNetwork("n", "CPU", std::string("inner"));
    EXPECT_EQ(engine.getModelInnerIDs(), std::vector<std::string>{"inner"});
    engine.unregisterInnerID("inner");
    EXPECT_EQ(engine.getInputLayerNames().size(), 2u);  // the network outlives its inner model
}

TEST_F(WindowsMlFake, DeclaredZeroDimensionFailsAfterTheNetworkBecameCurrent) {
    create("first", "CPU", basic());
    const std::string err = capturedStderr([&] {
        EXPECT_EQ(kelMessage([&] { create("zero", "CPU", {{tensor("e", Float, {0, 4})}, {}}); }),
                  "Please set the valid shape to tensor, the dim should larger than 0!");
    });
    EXPECT_NE(err.find("[KEL][Windows-ML] If create network crash, please make sure onnx source opset < 16!\n"),
              std::string::npos);
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"e"});
    EXPECT_EQ(engine.getLayerDims("e"), (std::vector<std::uint64_t>{0, 4}));
}

TEST_F(WindowsMlFake, LayerRulesInTheirOrder) {
    create("n", "CPU", {{tensor("scalar", Int64, {}), tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                        {tensor("y", UInt16, {2, 2})}});
    // Static layers get zeroed buffers of their own; a scalar counts as one value.
    EXPECT_EQ(engine.getLayerDims("scalar"), std::vector<std::uint64_t>{1});
    EXPECT_EQ(*static_cast<std::int64_t*>(engine.getLayerData("scalar")), 0);
    const auto* y = static_cast<std::uint16_t*>(engine.getLayerData("y"));
    EXPECT_EQ(y[0] | y[1] | y[2] | y[3], 0);
    EXPECT_EQ(engine.getLayerPrecision("y"), std::make_tuple(std::string("U16"), 2ull));

    float host[6] = {};
    const std::any p = static_cast<void*>(host);
    const std::pair<std::function<void()>, std::string> refusals[] = {
        {[&] { engine.getLayerData("d"); }, "[d] layer have dynamic shape. Need set by `setLayerData` API first."},
        {[&] { engine.getLayerDims("d"); }, "d is not static tensor please set layer data first."},
        {[&] { engine.getLayerPrecision("nope"); }, "nope is not found in output and input layers."},
        {[&] { engine.setLayerData("x", std::any(), {}, false); }, "data is null."},
        {[&] { engine.setLayerData("x", p, {}, false); }, "data_dims is empty."},
        {[&] { engine.setLayerData("q", p, {0}, false); }, "q is not found in input and output layers."},
        {[&] { engine.setLayerData("x", std::any(7), {1, 0}, false); },
         "Please set the valid shape to tensor, the dim should larger than 0!"},
        {[&] { engine.setLayerData("x", std::any(static_cast<int*>(nullptr)), {1}, false); },
         "not support int* as data type! Support type: void* | const void* | uint8_t* | const uint8_t* "},
        {[&] { engine.setLayerData("x", std::any(static_cast<void*>(nullptr)), {1}, false); }, "data is nullptr."},
        {[&] { engine.setLayerData("d", p, {2, 3, 4}, false); }, "[d] expect dim length is 2, but got 3"},
        {[&] { engine.setLayerData("d", p, {2, 100000001}, false); },
         "[d] data_dims the 2 dim is 100000001. The dim num larger than 100'000'000). Please check"},
        // The pointer was stored before the shape was judged; the shape was not.
        {[&] { engine.getLayerDims("d"); }, "d is not static tensor please set layer data first."},
    };
    for (const auto& [call, text] : refusals) EXPECT_EQ(kelMessage(call), text);

    // Static: the host's dims are ignored. Dynamic: up to 100,000,000 a dimension.
    engine.setLayerData("x", std::any(reinterpret_cast<const std::uint8_t*>(host)), {1, 2, 3}, false);
    EXPECT_EQ(engine.getLayerDims("x"), (std::vector<std::uint64_t>{1, 3}));
    EXPECT_EQ(engine.getLayerData("x"), host);
    engine.setLayerData("d", std::any(static_cast<const void*>(host)), {2, 100000000}, false);
    EXPECT_EQ(engine.getLayerDims("d"), (std::vector<std::uint64_t>{2, 100000000}));

    // Recreating an identifier adds to its layer tables.
    create("n", "CPU", {{tensor("x2", Float, {4})}, {tensor("y2", Float16, {4})}});
    auto inputs = engine.getInputLayerNames();
    std::sort(inputs.begin(), inputs.end());
    EXPECT_EQ(inputs, (std::vector<std::string>{"d", "scalar", "x", "x2"}));
    EXPECT_EQ(engine.getLayerPrecision("y2"), std::make_tuple(std::string("FP16"), 2ull));
}

TEST_F(WindowsMlFake, RuntimeFailuresPassThroughAndLeaveTheEngineUsable) {
    for (const std::string step : {"createStream", "storeBytes", "createStreamReference", "loadModel",
                                   "createDevice", "createSession", "createBinding", "inputFeatures",
                                   "outputFeatures"}) {
        fake->failAt = step;
        try {
            create("n", "CPU", basic());
            ADD_FAILURE() << step << " did not fail";
        } catch (const wmp::PlatformError& e) {
            EXPECT_EQ(e.code(), -2147467259);
            EXPECT_EQ(e.what(), step + " failed");
        }
    }
    fake->failAt.clear();
    create("n", "CPU", basic());
    fake->outputs["y"] = std::vector<float>{1, 2, 3};
    float d[3] = {};
    engine.setLayerData("d", std::any(static_cast<void*>(d)), {1, 3}, false);
    for (const std::string step : {"writeBuffer", "createTensor", "bind", "evaluate", "lookupOutput", "readValues"}) {
        fake->failAt = step;
        EXPECT_THROW(engine.infer(), wmp::PlatformError) << step;
    }
    fake->failAt.clear();
    engine.infer();
    EXPECT_EQ(static_cast<float*>(engine.getLayerData("y"))[2], 3);
}

TEST_F(WindowsMlFake, NetworkBookkeeping) {
    create("a", "CPU", basic());
    create("b", "CPU", {{tensor("only", Int8, {1})}, {}});
    engine.switchNetwork("missing");  // ignored
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"only"});
    engine.switchNetwork("a");
    // Removing the current network leaves its name current over an empty record.
    engine.removeNetwork("a");
    engine.removeNetwork("never");
    EXPECT_TRUE(engine.getInputLayerNames().empty());
    EXPECT_EQ(kelMessage([&] { engine.getLayerData("x"); }), "x is not found in input and output layers.");
    EXPECT_EQ(thrownText([&] { engine.getNetworkDevice("never"); }), "invalid unordered_map<K, T> key");
}

}  // namespace
}  // namespace kel::test
