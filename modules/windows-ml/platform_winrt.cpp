// The machine-learning seam over Windows ML, through C++/WinRT. Runtime errors surface
// as winrt::hresult_error, carrying the HRESULT.
#include <winrt/Windows.AI.MachineLearning.h>
#include <winrt/Windows.Foundation.Collections.h>
#include <winrt/Windows.Foundation.h>
#include <winrt/Windows.Storage.Streams.h>

#include "modules/windows-ml/platform.hpp"
#include "modules/windows-ml/winrt_views.hpp"

namespace kel::windows_ml_platform {
namespace {

using namespace winrt::Windows::AI::MachineLearning;
using namespace winrt::Windows::Storage::Streams;

struct WinStream : Stream {
    InMemoryRandomAccessStream stream;
};
struct WinStreamReference : StreamReference {
    RandomAccessStreamReference reference{nullptr};
};
struct WinBuffer : Buffer {
    IBuffer buffer{nullptr};
};
struct WinModel : Model {
    LearningModel model{nullptr};
};
struct WinDevice : Device {
    LearningModelDevice device{nullptr};
};
struct WinSession : Session {
    LearningModelSession session{nullptr};
};
struct WinBinding : Binding {
    LearningModelBinding binding{nullptr};
};
struct WinValue : Value {
    winrt::Windows::Foundation::IInspectable value{nullptr};
};
struct WinResult : EvaluationResult {
    LearningModelEvaluationResult result{nullptr};
};

std::vector<FeatureDescription> describe(
    const winrt::Windows::Foundation::Collections::IVectorView<ILearningModelFeatureDescriptor>&
        features) {
    std::vector<FeatureDescription> out;
    for (const auto& feature : features) {
        FeatureDescription d;
        d.name = winrt::to_string(feature.Name());
        d.kind = static_cast<std::int32_t>(feature.Kind());
        if (feature.Kind() == LearningModelFeatureKind::Tensor) {
            auto tensor = feature.as<TensorFeatureDescriptor>();
            d.tensor_kind = static_cast<std::uint32_t>(tensor.TensorKind());
            for (auto dim : tensor.Shape()) d.shape.push_back(dim);
        }
        out.push_back(std::move(d));
    }
    return out;
}

template <class TensorClass>
auto create(const std::vector<std::int64_t>& shape, const IBuffer& buffer) {
    return TensorClass::CreateFromBuffer(shape, buffer);
}

template <class TensorClass>
TensorValues read(const winrt::Windows::Foundation::IInspectable& value) {
    return copyAll(value.as<TensorClass>().GetAsVectorView());
}

class WindowsMlPlatform final : public Platform {
public:
    std::shared_ptr<Stream> createStream() override { return std::make_shared<WinStream>(); }

    void storeBytes(Stream& stream, const std::uint8_t* data, std::size_t size) override {
        auto& s = handle_as<WinStream>(stream).stream;
        DataWriter writer(s.GetOutputStreamAt(0));
        writer.WriteBytes(winrt::array_view<const std::uint8_t>(data, data + size));
        writer.StoreAsync().get();
    }

    std::shared_ptr<Buffer> writeBuffer(const std::uint8_t* data, std::size_t size) override {
        InMemoryRandomAccessStream stream;
        DataWriter writer(stream);
        writer.WriteBytes(winrt::array_view<const std::uint8_t>(data, data + size));
        auto buffer = std::make_shared<WinBuffer>();
        buffer->buffer = writer.DetachBuffer();
        return buffer;
    }

    std::shared_ptr<StreamReference> createStreamReference(
        const std::shared_ptr<Stream>& stream) override {
        auto ref = std::make_shared<WinStreamReference>();
        ref->reference =
            RandomAccessStreamReference::CreateFromStream(handle_as<WinStream>(*stream).stream);
        return ref;
    }

    std::shared_ptr<Model> loadModel(StreamReference& reference) override {
        auto model = std::make_shared<WinModel>();
        model->model = LearningModel::LoadFromStream(handle_as<WinStreamReference>(reference).reference);
        return model;
    }

    std::vector<FeatureDescription> inputFeatures(Model& model) override {
        return describe(handle_as<WinModel>(model).model.InputFeatures());
    }

    std::vector<FeatureDescription> outputFeatures(Model& model) override {
        return describe(handle_as<WinModel>(model).model.OutputFeatures());
    }

    std::shared_ptr<Device> createDevice(DeviceKind kind) override {
        auto device = std::make_shared<WinDevice>();
        device->device = LearningModelDevice(static_cast<LearningModelDeviceKind>(kind));
        return device;
    }

    std::shared_ptr<Session> createSession(const std::shared_ptr<Model>& model,
                                           const std::shared_ptr<Device>& device) override {
        auto session = std::make_shared<WinSession>();
        session->session = LearningModelSession(handle_as<WinModel>(*model).model,
                                                handle_as<WinDevice>(*device).device);
        return session;
    }

    std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>& session) override {
        auto binding = std::make_shared<WinBinding>();
        binding->binding = LearningModelBinding(handle_as<WinSession>(*session).session);
        return binding;
    }

    std::shared_ptr<Value> createTensor(std::uint32_t kind, const std::vector<std::int64_t>& shape,
                                        const std::shared_ptr<Buffer>& buffer) override {
        const auto& b = handle_as<WinBuffer>(*buffer).buffer;
        auto value = std::make_shared<WinValue>();
        switch (kind) {
            case tensor_kind::Float: value->value = create<TensorFloat>(shape, b); break;
            case tensor_kind::UInt8: value->value = create<TensorUInt8Bit>(shape, b); break;
            case tensor_kind::Int8: value->value = create<TensorInt8Bit>(shape, b); break;
            case tensor_kind::UInt16: value->value = create<TensorUInt16Bit>(shape, b); break;
            case tensor_kind::Int16: value->value = create<TensorInt16Bit>(shape, b); break;
            case tensor_kind::Int32: value->value = create<TensorInt32Bit>(shape, b); break;
            case tensor_kind::Int64: value->value = create<TensorInt64Bit>(shape, b); break;
            case tensor_kind::Boolean: value->value = create<TensorBoolean>(shape, b); break;
            case tensor_kind::Float16: value->value = create<TensorFloat16Bit>(shape, b); break;
            case tensor_kind::Double: value->value = create<TensorDouble>(shape, b); break;
            case tensor_kind::UInt32: value->value = create<TensorUInt32Bit>(shape, b); break;
            case tensor_kind::UInt64: value->value = create<TensorUInt64Bit>(shape, b); break;
            default: throw winrt::hresult_invalid_argument();
        }
        return value;
    }

    void bind(Binding& binding, const std::string& name,
              const std::shared_ptr<Value>& value) override {
        handle_as<WinBinding>(binding).binding.Bind(winrt::to_hstring(name),
                                                    handle_as<WinValue>(*value).value);
    }

    std::shared_ptr<EvaluationResult> evaluate(Session& session, Binding& binding,
                                               const std::string& correlation_id) override {
        auto result = std::make_shared<WinResult>();
        result->result = handle_as<WinSession>(session).session.Evaluate(
            handle_as<WinBinding>(binding).binding, winrt::to_hstring(correlation_id));
        return result;
    }

    std::shared_ptr<Value> lookupOutput(EvaluationResult& result,
                                        const std::string& name) override {
        auto value = std::make_shared<WinValue>();
        value->value =
            handle_as<WinResult>(result).result.Outputs().Lookup(winrt::to_hstring(name));
        return value;
    }

    TensorValues readValues(Value& value, std::uint32_t kind) override {
        const auto& v = handle_as<WinValue>(value).value;
        switch (kind) {
            case tensor_kind::Float: return read<TensorFloat>(v);
            case tensor_kind::UInt8: return read<TensorUInt8Bit>(v);
            case tensor_kind::Int8: return read<TensorInt8Bit>(v);
            case tensor_kind::UInt16: return read<TensorUInt16Bit>(v);
            case tensor_kind::Int16: return read<TensorInt16Bit>(v);
            case tensor_kind::Int32: return read<TensorInt32Bit>(v);
            case tensor_kind::Int64: return read<TensorInt64Bit>(v);
            case tensor_kind::Boolean: return read<TensorBoolean>(v);
            case tensor_kind::Float16: return read<TensorFloat16Bit>(v);
            case tensor_kind::Double: return read<TensorDouble>(v);
            case tensor_kind::UInt32: return read<TensorUInt32Bit>(v);
            case tensor_kind::UInt64: return read<TensorUInt64Bit>(v);
            default: throw winrt::hresult_invalid_argument();
        }
    }
};

}  // namespace

std::shared_ptr<Platform> makeDefaultPlatform() { return std::make_shared<WindowsMlPlatform>(); }

}  // namespace kel::windows_ml_platform
