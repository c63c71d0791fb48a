// The WindowsML back-end's rules over a scripted runtime: a test declares what ONNX Runtime
// cannot express (image, sequence and map features, any tensor kind, zero dimensions) and
// makes any runtime step fail.
#include <gtest/gtest.h>

#include <functional>

#include "modules/windows-ml/platform.hpp"
#include "modules/windows-ml/windows-ml.hpp"
#include "tests/support/support.hpp"

namespace kel::test {
namespace {

using namespace kel::windows_ml_platform;
using namespace tensor_kind;
using Features = std::pair<std::vector<FeatureDescription>, std::vector<FeatureDescription>>;

FeatureDescription tensor(std::string name, std::uint32_t kind, std::vector<std::int64_t> shape) {
    return {std::move(name), Tensor, kind, std::move(shape)};
}

class FakePlatform : public Platform {
    // One handle type serves every role.
    struct H : Stream, StreamReference, Buffer, Model, Device, Session, Binding, Value, EvaluationResult {
        DeviceKind kind{};
    };

public:
    Features features;  // of the next model loaded
    std::string failAt;  // the step that fails
    DeviceKind sessionDevice = Default;

    std::shared_ptr<Stream> createStream() override { return step("createStream"); }
    void storeBytes(Stream&, const std::uint8_t*, std::size_t) override { step("storeBytes"); }
    std::shared_ptr<Buffer> writeBuffer(const std::uint8_t*, std::size_t) override { return step("writeBuffer"); }
    std::shared_ptr<StreamReference> createStreamReference(const std::shared_ptr<Stream>&) override {
        return step("createStreamReference");
    }
    std::shared_ptr<Model> loadModel(StreamReference&) override { return step("loadModel"); }
    std::vector<FeatureDescription> inputFeatures(Model&) override { return step("inputFeatures", features.first); }
    std::vector<FeatureDescription> outputFeatures(Model&) override { return step("outputFeatures", features.second); }
    std::shared_ptr<Device> createDevice(DeviceKind kind) override {
        auto device = step("createDevice");
        device->kind = kind;
        return device;
    }
    std::shared_ptr<Session> createSession(const std::shared_ptr<Model>&, const std::shared_ptr<Device>& d) override {
        sessionDevice = static_cast<H&>(*d).kind;
        return step("createSession");
    }
    std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>&) override { return step("createBinding"); }
    std::shared_ptr<Value> createTensor(std::uint32_t, const std::vector<std::int64_t>&,
                                        const std::shared_ptr<Buffer>&) override {
        return step("createTensor");
    }
    void bind(Binding&, const std::string&, const std::shared_ptr<Value>&) override { step("bind"); }
    std::shared_ptr<EvaluationResult> evaluate(Session&, Binding&, const std::string&) override {
        return step("evaluate");
    }
    std::shared_ptr<Value> lookupOutput(EvaluationResult&, const std::string&) override { return step("lookupOutput"); }
    // Every output holds 1, 2, 3.
    TensorValues readValues(Value&, std::uint32_t) override {
        return step("readValues", TensorValues(std::vector<float>{1, 2, 3}));
    }

private:
    template <class T = std::shared_ptr<H>>
    T step(const std::string& name, T result = std::make_shared<H>()) {
        if (failAt == name) throw PlatformError(-2147467259, name + " failed");
        return result;
    }
};

const char* const kSource = "modules/windows-ml/windows-ml.cpp";  // where the back-end's refusals are raised

class WindowsMlFake : public ::testing::Test {
protected:
    std::shared_ptr<FakePlatform> fake = std::make_shared<FakePlatform>();
    windows_ml engine{fake};
    // Static f32 input x [1, 3], dynamic d [-1, 3]; static output y [1, 3], dynamic z [-1, 3].
    const Features basic = {{tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                            {tensor("y", Float, {1, 3}), tensor("z", Float, {-1, 3})}};

    void create(const std::string& id, const std::string& device, Features features) {
        fake->features = std::move(features);
        engine.createNetwork(id, device, std::vector<ModelBuffer>{{"model", 5}});
    }
};

TEST_F(WindowsMlFake, DevicesAreCheckedOnlyOnceTheListExists) {
    // Every creation warns about newer operator sets, in one line.
    EXPECT_EQ(capturedStderr([&] { create("n1", "NPU", basic); }),
              "[KEL][Windows-ML] If create network crash, please make sure onnx source opset < 16!\n");
    EXPECT_EQ(engine.getNetworkDevice("n1"), "NPU");
    EXPECT_EQ(fake->sessionDevice, Cpu);
    // Before the list exists, "GPU" runs on the high-performance DirectX device.
    create("g", "GPU", basic);
    EXPECT_EQ(fake->sessionDevice, DirectXHighPerformance);

    EXPECT_EQ(engine.getSupportedDevices(), (std::vector<std::string>{"AUTO", "CPU"}));
    EXPECT_EQ(kelMessageFrom(kSource, [&] { create("n2", "NPU", basic); }), "NPU is not supported.");
    create("a", "AUTO", basic);
    EXPECT_EQ(engine.getNetworkDevice("a"), "CPU");
    EXPECT_EQ(fake->sessionDevice, Cpu);
}

TEST_F(WindowsMlFake, CreationRefusalsInTheirOrder) {
    for (std::size_t n : {0, 2})
        EXPECT_EQ(kelMessageFrom(kSource, [&] { engine.createNetwork("n", "CPU", std::vector<ModelBuffer>(n)); }),
                  "model buffer number is " + std::to_string(n) + ", the number is not supported.");
    const std::pair<std::function<void()>, std::string> refusals[] = {
        {[&] { engine.createNetwork("n", "CPU", std::string("inner")); },
         "inner is not a supported plugin model id. Please use getSupportedModelIDs function check built-in and "
         "plugin model ids!"},
        // A declared zero dimension is refused only once the network became current.
        {[&] { create("zero", "CPU", {{tensor("e", Float, {0, 4})}, {}}); },
         "Please set the valid shape to tensor, the dim should larger than 0!"},
    };
    for (const auto& [call, text] : refusals) EXPECT_EQ(kelMessageFrom(kSource, call), text);
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"e"});
    EXPECT_EQ(engine.getLayerDims("e"), (std::vector<std::uint64_t>{0, 4}));

    // Layers of other kinds than tensors, and tensors of kinds without a tensor class.
    const std::pair<std::int32_t, std::string> features[] = {
        {Image, "Image"}, {Sequence, "Sequence"}, {Map, "Map"}, {7, "Unknown"}};
    for (const auto& [kind, name] : features)
        EXPECT_EQ(kelMessageFrom(kSource, [&] { create("n", "CPU", {{{"f", kind, Float, {}}}, {}}); }),
                  "flayer type not Tensor. Current layer type is " + name);
    const std::pair<std::uint32_t, std::string> kinds[] = {
        {String, "String"}, {Complex64, "C64"}, {Complex128, "C128"}, {Undefined, "UNSUPPORTED"}, {16, "Unknown"}};
    for (const auto& [kind, name] : kinds)
        EXPECT_EQ(kelMessageFrom(kSource, [&] { create("n", "CPU", {{tensor("t", kind, {1})}, {}}); }),
                  " Tensor type is " + name + "! This type is not supported.");
}

TEST_F(WindowsMlFake, LayerRulesInTheirOrder) {
    create("n", "CPU", {{tensor("scalar", Int64, {}), tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                        {tensor("y", Float16, {2, 2})}});
    // Static layers get zeroed buffers of their own; a scalar counts as one value.
    EXPECT_EQ(engine.getLayerDims("scalar"), std::vector<std::uint64_t>{1});
    EXPECT_EQ(*static_cast<std::int64_t*>(engine.getLayerData("scalar")), 0);
    // Half precision is named by its own size, though handed out as 32-bit floats.
    EXPECT_EQ(engine.getLayerPrecision("y"), std::make_tuple(std::string("FP16"), 2ull));

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
    for (const auto& [call, text] : refusals) EXPECT_EQ(kelMessageFrom(kSource, call), text);

    // Static: the host's dims are ignored. Dynamic: up to 100,000,000 a dimension.
    engine.setLayerData("x", std::any(reinterpret_cast<const std::uint8_t*>(host)), {1, 2, 3}, false);
    EXPECT_EQ(engine.getLayerDims("x"), (std::vector<std::uint64_t>{1, 3}));
    EXPECT_EQ(engine.getLayerData("x"), host);
    engine.setLayerData("d", std::any(static_cast<const void*>(host)), {2, 100000000}, false);
    EXPECT_EQ(engine.getLayerDims("d"), (std::vector<std::uint64_t>{2, 100000000}));
}

// Runtime errors reach the host as the runtime's own, not as kel's.
TEST_F(WindowsMlFake, RuntimeFailuresPassThroughAndLeaveTheEngineUsable) {
    for (const std::string step : {"createStream", "storeBytes", "createStreamReference", "loadModel", "createDevice",
                                   "createSession", "createBinding", "inputFeatures", "outputFeatures"}) {
        fake->failAt = step;
        EXPECT_EQ(thrownText([&] { create("n", "CPU", basic); }), step + " failed");
    }
    fake->failAt.clear();
    create("n", "CPU", basic);
    float d[3] = {};
    engine.setLayerData("d", std::any(static_cast<void*>(d)), {1, 3}, false);
    for (const std::string step : {"writeBuffer", "createTensor", "bind", "evaluate", "lookupOutput", "readValues"}) {
        fake->failAt = step;
        EXPECT_EQ(thrownText([&] { engine.infer(); }), step + " failed");
    }
    fake->failAt.clear();
    engine.infer();
    EXPECT_EQ(static_cast<float*>(engine.getLayerData("y"))[2], 3);
}

}  // namespace
}  // namespace kel::test
