#pragma once
// The machine-learning runtime as the "WindowsML" back-end sees it: the stream, model,
// device, session, binding and tensor operations of Windows ML, with no runtime type in
// sight. Windows ML implements it on Windows, ONNX Runtime elsewhere, and tests fake it.
//
// Platform objects are opaque handles; each implementation derives its own and only
// accepts handles that it made. Names are UTF-8 here; an implementation whose runtime
// wants UTF-16 converts at its edge.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <variant>
#include <vector>

namespace kel::windows_ml_platform {

// A failing runtime call (ONNX Runtime's code and text; on Windows the projection's own
// winrt::hresult_error passes instead). Deliberately not a KELException: hosts see the
// runtime's own error.
class PlatformError : public std::runtime_error {
public:
    PlatformError(std::int32_t code, const std::string& text)
        : std::runtime_error(text), code_(code) {}
    std::int32_t code() const noexcept { return code_; }

private:
    std::int32_t code_;
};

// LearningModelFeatureKind values.
enum FeatureKind : std::int32_t { Tensor = 0, Sequence = 1, Map = 2, Image = 3 };

// LearningModelDeviceKind values.
enum DeviceKind : std::int32_t {
    Default = 0,
    Cpu = 1,
    DirectX = 2,
    DirectXHighPerformance = 3,
    DirectXMinPower = 4
};

// TensorKind values (the same numbers as ONNX element types 0 to 15).
namespace tensor_kind {
inline constexpr std::uint32_t Undefined = 0, Float = 1, UInt8 = 2, Int8 = 3, UInt16 = 4,
                               Int16 = 5, Int32 = 6, Int64 = 7, String = 8, Boolean = 9,
                               Float16 = 10, Double = 11, UInt32 = 12, UInt64 = 13,
                               Complex64 = 14, Complex128 = 15;
}

// One entry of a model's InputFeatures / OutputFeatures. tensor_kind and shape are
// meaningful only for Tensor features.
struct FeatureDescription {
    std::string name;
    std::int32_t kind = Tensor;
    std::uint32_t tensor_kind = tensor_kind::Undefined;
    std::vector<std::int64_t> shape;
};

// What a tensor's GetAsVectorView yields, by tensor class. Half-precision tensors are
// viewed as 32-bit floats, as Windows ML does.
using TensorValues =
    std::variant<std::vector<float>, std::vector<std::uint8_t>, std::vector<std::int8_t>,
                 std::vector<std::uint16_t>, std::vector<std::int16_t>, std::vector<std::int32_t>,
                 std::vector<std::int64_t>, std::vector<bool>, std::vector<double>,
                 std::vector<std::uint32_t>, std::vector<std::uint64_t>>;

struct Handle {
    virtual ~Handle() = default;
};
struct Stream : Handle {};            // InMemoryRandomAccessStream
struct StreamReference : Handle {};   // RandomAccessStreamReference
struct Buffer : Handle {};            // IBuffer detached from a DataWriter
struct Model : Handle {};             // LearningModel
struct Device : Handle {};            // LearningModelDevice
struct Session : Handle {};           // LearningModelSession
struct Binding : Handle {};           // LearningModelBinding
struct Value : Handle {};             // a bound or evaluated tensor
struct EvaluationResult : Handle {};  // LearningModelEvaluationResult

// An output of `count` values written where `capacity` fit is an error, never an overrun.
inline void checkCapacity(std::uint64_t count, std::uint64_t capacity) {
    if (count > capacity)
        throw PlatformError(-1, "the output has " + std::to_string(count) + " values, its layer holds " +
                                    std::to_string(capacity));
}

class Platform {
public:
    virtual ~Platform() = default;

    // A new InMemoryRandomAccessStream.
    virtual std::shared_ptr<Stream> createStream() = 0;
    // DataWriter on the stream's output stream: WriteBytes, StoreAsync, wait.
    virtual void storeBytes(Stream& stream, const std::uint8_t* data, std::size_t size) = 0;
    // storeBytes for bytes the caller gives up. A runtime whose stream can keep them where
    // they are overrides this: a model read from a file is then never copied.
    virtual void storeOwnedBytes(Stream& stream, std::unique_ptr<std::uint8_t[]> data,
                                 std::size_t size) {
        storeBytes(stream, data.get(), size);
    }
    // DataWriter on a fresh in-memory stream: WriteBytes, DetachBuffer.
    virtual std::shared_ptr<Buffer> writeBuffer(const std::uint8_t* data, std::size_t size) = 0;
    // RandomAccessStreamReference::CreateFromStream.
    virtual std::shared_ptr<StreamReference> createStreamReference(
        const std::shared_ptr<Stream>& stream) = 0;

    // LearningModel::LoadFromStream.
    virtual std::shared_ptr<Model> loadModel(StreamReference& reference) = 0;
    virtual std::vector<FeatureDescription> inputFeatures(Model& model) = 0;
    virtual std::vector<FeatureDescription> outputFeatures(Model& model) = 0;

    // LearningModelDevice(kind).
    virtual std::shared_ptr<Device> createDevice(DeviceKind kind) = 0;
    // LearningModelSession(model, device).
    virtual std::shared_ptr<Session> createSession(const std::shared_ptr<Model>& model,
                                                   const std::shared_ptr<Device>& device) = 0;
    // LearningModelBinding(session).
    virtual std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>& session) = 0;

    // Tensor<kind>::CreateFromBuffer(shape, buffer).
    virtual std::shared_ptr<Value> createTensor(std::uint32_t kind,
                                                const std::vector<std::int64_t>& shape,
                                                const std::shared_ptr<Buffer>& buffer) = 0;
    // LearningModelBinding::Bind(name, value); replaces an earlier value of that name.
    virtual void bind(Binding& binding, const std::string& name,
                      const std::shared_ptr<Value>& value) = 0;
    // LearningModelSession::Evaluate(binding, correlation id), synchronously.
    virtual std::shared_ptr<EvaluationResult> evaluate(Session& session, Binding& binding,
                                                       const std::string& correlation_id) = 0;
    // EvaluationResult::Outputs().Lookup(name).
    virtual std::shared_ptr<Value> lookupOutput(EvaluationResult& result,
                                                const std::string& name) = 0;
    // The value viewed as the kind's tensor class, GetAsVectorView, GetMany from 0.
    virtual TensorValues readValues(Value& value, std::uint32_t kind) = 0;

    // readValues written straight into `out`, which holds `capacity` values: more than that
    // is an error, never an overrun. A runtime that can read its tensor memory in place
    // overrides this to spare the intermediate copy.
    virtual void copyValues(Value& value, std::uint32_t kind, void* out, std::uint64_t capacity) {
        const TensorValues values = readValues(value, kind);
        std::visit(
            [&](const auto& v) {
                using T = typename std::decay_t<decltype(v)>::value_type;
                checkCapacity(v.size(), capacity);
                std::copy(v.begin(), v.end(), static_cast<T*>(out));
            },
            values);
    }

    // The bytes at `data` as a new tensor of `kind` and `dims` bound under `name`:
    // writeBuffer, createTensor and bind. A runtime that can keep the tensor's memory from
    // one inference to the next overrides this and copies into it.
    virtual void bindCopy(Binding& binding, const std::string& name, std::uint32_t kind,
                          const std::vector<std::uint64_t>& dims, const void* data,
                          std::size_t bytes) {
        auto buffer = writeBuffer(static_cast<const std::uint8_t*>(data), bytes);
        auto tensor = createTensor(kind, std::vector<std::int64_t>(dims.begin(), dims.end()), buffer);
        bind(binding, name, tensor);
    }
    // lookupOutput, then copyValues.
    virtual void copyOutput(EvaluationResult& result, const std::string& name, std::uint32_t kind,
                            void* out, std::uint64_t capacity) {
        auto value = lookupOutput(result, name);
        copyValues(*value, kind, out, capacity);
    }
};

// The runtime of the platform this library was built for.
std::shared_ptr<Platform> makeDefaultPlatform();

// A handle's concrete type, or a PlatformError when it came from another implementation.
template <class T, class H>
T& handle_as(H& handle) {
    // Exact types are the rule and cost a pointer comparison; dynamic_cast covers the rest.
    if (typeid(handle) == typeid(T)) return static_cast<T&>(handle);
    auto* p = dynamic_cast<T*>(&handle);
    if (!p) throw PlatformError(-1, "platform object of another runtime");
    return *p;
}

}  // namespace kel::windows_ml_platform
