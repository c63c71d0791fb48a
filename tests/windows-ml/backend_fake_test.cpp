// The WindowsML back-end's rules over a scripted runtime, which declares what ONNX Runtime
// cannot: image, sequence and map features, any tensor kind, zero dimensions.
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
    static std::shared_ptr<H> handle() { return std::make_shared<H>(); }

public:
    Features features;  // of the next model loaded
    DeviceKind sessionDevice = Default;

    std::shared_ptr<Stream> createStream() override { return handle(); }
    void storeBytes(Stream&, const std::uint8_t*, std::size_t) override {}
    std::shared_ptr<Buffer> writeBuffer(const std::uint8_t*, std::size_t) override { return handle(); }
    std::shared_ptr<StreamReference> createStreamReference(const std::shared_ptr<Stream>&) override {
        return handle();
    }
    std::shared_ptr<Model> loadModel(StreamReference&) override { return handle(); }
    std::vector<FeatureDescription> inputFeatures(Model&) override { return features.first; }
    std::vector<FeatureDescription> outputFeatures(Model&) override { return features.second; }
    std::shared_ptr<Device> createDevice(DeviceKind kind) override {
        auto device = handle();
        device->kind = kind;
        return device;
    }
    std::shared_ptr<Session> createSession(const std::shared_ptr<Model>&, const std::shared_ptr<Device>& d) override {
        sessionDevice = static_cast<H&>(*d).kind;
        return handle();
    }
    std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>&) override { return handle(); }
    std::shared_ptr<Value> createTensor(std::uint32_t, const std::vector<std::int64_t>&,
                                        const std::shared_ptr<Buffer>&) override {
        return handle();
    }
    void bind(Binding&, const std::string&, const std::shared_ptr<Value>&) override {}
    std::shared_ptr<EvaluationResult> evaluate(Session&, Binding&, const std::string&) override { return handle(); }
    std::shared_ptr<Value> lookupOutput(EvaluationResult&, const std::string&) override { return handle(); }
    TensorValues readValues(Value&, std::uint32_t) override { return {}; }
};

const char* const kSource = "modules/windows-ml/windows-ml.cpp";  // where the back-end's refusals are raised

class WindowsMlFake : public ::testing::Test {
protected:
    std::shared_ptr<FakePlatform> fake = std::make_shared<FakePlatform>();
    windows_ml engine{fake};

    void create(const std::string& id, const std::string& device, Features features) {
        fake->features = std::move(features);
        engine.createNetwork(id, device, std::vector<ModelBuffer>{{"model", 5}});
    }
};

TEST_F(WindowsMlFake, DevicesAreCheckedOnlyOnceTheListExists) {
    const Features basic = {{tensor("x", Float, {1, 3})}, {tensor("y", Float, {1, 3})}};
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
    EXPECT_EQ(kelMessageFrom(kSource, [&] { engine.createNetwork("n", "CPU", std::string("inner")); }),
              "inner is not a supported plugin model id. Please use getSupportedModelIDs function check built-in and "
              "plugin model ids!");
    // Layers that are not tensors, and tensors of kinds without a tensor class.
    const std::pair<FeatureDescription, std::string> layers[] = {
        {{"f", Image, Float, {}}, "flayer type not Tensor. Current layer type is Image"},
        {{"f", Sequence, Float, {}}, "flayer type not Tensor. Current layer type is Sequence"},
        {{"f", Map, Float, {}}, "flayer type not Tensor. Current layer type is Map"},
        {{"f", 7, Float, {}}, "flayer type not Tensor. Current layer type is Unknown"},
        {tensor("t", Undefined, {1}), " Tensor type is UNSUPPORTED! This type is not supported."},
        {tensor("t", String, {1}), " Tensor type is String! This type is not supported."},
        {tensor("t", Complex64, {1}), " Tensor type is C64! This type is not supported."},
        {tensor("t", Complex128, {1}), " Tensor type is C128! This type is not supported."},
        {tensor("t", 16, {1}), " Tensor type is Unknown! This type is not supported."},
    };
    for (const auto& [layer, text] : layers)
        EXPECT_EQ(kelMessageFrom(kSource, [&] { create("n", "CPU", {{layer}, {}}); }), text);
    // A declared zero dimension is refused only once the network became current.
    EXPECT_EQ(kelMessageFrom(kSource, [&] { create("zero", "CPU", {{tensor("e", Float, {0, 4})}, {}}); }),
              "Please set the valid shape to tensor, the dim should larger than 0!");
    EXPECT_EQ(engine.getInputLayerNames(), std::vector<std::string>{"e"});
    EXPECT_EQ(engine.getLayerDims("e"), (std::vector<std::uint64_t>{0, 4}));
}

TEST_F(WindowsMlFake, LayerRulesInTheirOrder) {
    create("n", "CPU", {{tensor("scalar", Int64, {}), tensor("x", Float, {1, 3}), tensor("d", Float, {-1, 3})},
                        {tensor("y", Float16, {2, 2})}});
    // Static layers get zeroed buffers of their own; a scalar counts as one value.
    EXPECT_EQ(engine.getLayerDims("scalar"), std::vector<std::uint64_t>{1});
    EXPECT_EQ(*static_cast<std::int64_t*>(engine.getLayerData("scalar")), 0);
    // Half precision is named by its own size, though handed out as 32-bit floats.
    EXPECT_EQ(engine.getLayerPrecision("y"), std::make_tuple(std::string("FP16"), 2ull));
    // The layer's own buffer handed back stays the layer's (freed, it would still be bound).
    void* own = engine.getLayerData("x");
    engine.setLayerData("x", std::any(own), {1, 3}, false);
    static_cast<float*>(engine.getLayerData("x"))[2] = 1.5f;

    float host[6] = {};
    const std::any p = static_cast<void*>(host);
    const std::pair<std::function<void()>, std::string> refusals[] = {
        {[&] { engine.getLayerData("d"); }, "[d] layer have dynamic shape. Need set by `setLayerData` API first."},
        {[&] { engine.getLayerDims("d"); }, "d is not static tensor please set layer data first."},
        {[&] { engine.getLayerPrecision("nope"); }, "nope is not found in output and input layers."},
        {[&] { engine.getLayerDims("nope"); }, "nope is not found in output and input layers."},
        {[&] { engine.setLayerData("x", std::any(), {}, false); }, "data is null."},
        {[&] { engine.setLayerData("x", p, {}, false); }, "data_dims is empty."},
        {[&] { engine.setLayerData("q", p, {0}, false); }, "q is not found in input and output layers."},
        {[&] { engine.setLayerData("x", std::any(7), {1, 0}, false); },
         "Please set the valid shape to tensor, the dim should larger than 0!"},
        {[&] { engine.setLayerData("x", std::any(static_cast<int*>(nullptr)), {1}, false); },
         "not support int* as data type! Support type: void* | const void* | uint8_t* | const uint8_t* "},
        {[&] { engine.setLayerData("x", std::any(static_cast<void*>(nullptr)), {1}, false); }, "data is nullptr."},
        {[&] { engine.setLayerData("d", p, {2, 3, 4}, false); }, "[d] expect dim length is 2, but got 3"},
        {[&] { engine.setLayerData("d", p, {100000001, 3}, false); },
         "[d] data_dims the 1 dim is 100000001. The dim num larger than 100'000'000). Please check"},
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

}  // namespace
}  // namespace kel::test
