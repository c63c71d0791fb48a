// The machine-learning seam over ONNX Runtime, for systems without Windows ML. Every
// device kind runs on ONNX Runtime's CPU provider.
#ifndef _WIN32
#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "modules/windows-ml/platform.hpp"

namespace kel::windows_ml_platform {
namespace {

// Runtime failures keep ONNX Runtime's error code and text.
template <class F>
auto guarded(F&& f) -> decltype(f()) {
    try {
        return f();
    } catch (const Ort::Exception& e) {
        throw PlatformError(static_cast<std::int32_t>(e.GetOrtErrorCode()), e.what());
    }
}

[[noreturn]] void fail(const std::string& text) {
    throw PlatformError(static_cast<std::int32_t>(ORT_INVALID_ARGUMENT), text);
}

// Kept for the whole process: sessions may outlive any one back-end object, and
// destroying the environment during static destruction races with them. Failures reach
// the host as exceptions, so the runtime's own log stays quiet. Telemetry is off: a host
// embedding kel has not asked for events to be sent, nor for the session and log files
// the runtime's sender leaves in the temporary directory. Only the environment variable
// keeps the sender from starting; a host that sets it itself is left its choice.
Ort::Env& environment() {
    static Ort::Env* env = [] {
        ::setenv("ORT_DISABLE_TELEMETRY", "1", 0);
        auto* created = new Ort::Env(ORT_LOGGING_LEVEL_FATAL, "kel");
        created->DisableTelemetryEvents();
        return created;
    }();
    return *env;
}

// ONNX element types to TensorKind. The numbers coincide for 0 to 15; the newer ONNX
// types (bfloat16, float8, int4, ...) have no TensorKind.
std::uint32_t tensorKindOf(ONNXTensorElementDataType type) {
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT: return tensor_kind::Float;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8: return tensor_kind::UInt8;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8: return tensor_kind::Int8;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16: return tensor_kind::UInt16;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16: return tensor_kind::Int16;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32: return tensor_kind::Int32;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64: return tensor_kind::Int64;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING: return tensor_kind::String;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL: return tensor_kind::Boolean;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16: return tensor_kind::Float16;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE: return tensor_kind::Double;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32: return tensor_kind::UInt32;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64: return tensor_kind::UInt64;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX64: return tensor_kind::Complex64;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX128: return tensor_kind::Complex128;
        default: return tensor_kind::Undefined;
    }
}

ONNXTensorElementDataType elementTypeOf(std::uint32_t kind) {
    switch (kind) {
        case tensor_kind::Float: return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
        case tensor_kind::UInt8: return ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8;
        case tensor_kind::Int8: return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8;
        case tensor_kind::UInt16: return ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16;
        case tensor_kind::Int16: return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16;
        case tensor_kind::Int32: return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32;
        case tensor_kind::Int64: return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64;
        case tensor_kind::Boolean: return ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL;
        case tensor_kind::Float16: return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16;
        case tensor_kind::Double: return ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE;
        case tensor_kind::UInt32: return ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32;
        case tensor_kind::UInt64: return ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64;
        default: fail("no tensor class for tensor kind " + std::to_string(kind));
    }
}

std::size_t elementSize(std::uint32_t kind) {
    switch (kind) {
        case tensor_kind::UInt8:
        case tensor_kind::Int8:
        case tensor_kind::Boolean: return 1;
        case tensor_kind::UInt16:
        case tensor_kind::Int16:
        case tensor_kind::Float16: return 2;
        case tensor_kind::Float:
        case tensor_kind::Int32:
        case tensor_kind::UInt32: return 4;
        case tensor_kind::Int64:
        case tensor_kind::Double:
        case tensor_kind::UInt64: return 8;
        default: fail("no tensor class for tensor kind " + std::to_string(kind));
    }
}

std::int32_t featureKindOf(ONNXType type) {
    switch (type) {
        case ONNX_TYPE_TENSOR: return Tensor;
        case ONNX_TYPE_SEQUENCE: return Sequence;
        case ONNX_TYPE_MAP: return Map;
        default: return 0x100 + static_cast<std::int32_t>(type);  // no feature kind of its own
    }
}

FeatureDescription describe(const std::string& name, const Ort::TypeInfo& info) {
    FeatureDescription d;
    d.name = name;
    d.kind = featureKindOf(info.GetONNXType());
    if (d.kind == Tensor) {
        auto tensor = info.GetTensorTypeAndShapeInfo();
        d.tensor_kind = tensorKindOf(tensor.GetElementType());
        d.shape = tensor.GetShape();
    }
    return d;
}

struct OrtStream : Stream {
    std::vector<std::uint8_t> bytes;
};
struct OrtStreamReference : StreamReference {
    std::shared_ptr<OrtStream> stream;
};
struct OrtBuffer : Buffer {
    std::vector<std::uint8_t> bytes;
};
// Loading parses the model into a CPU session; sessions made from the model share it,
// since every device kind runs on the same provider.
struct OrtModel : Model {
    std::shared_ptr<Ort::Session> session;
    std::vector<std::string> input_names, output_names;
    std::vector<const char*> output_name_pointers;  // what Run takes, made once
    std::vector<std::string> scalar_inputs;  // declared with rank 0
};
struct OrtDevice : Device {
    DeviceKind kind;
};
struct OrtSession : Session {
    std::shared_ptr<OrtModel> model;
    std::shared_ptr<OrtDevice> device;
};
struct OrtBinding : Binding {
    std::shared_ptr<OrtSession> session;
    std::map<std::string, std::shared_ptr<Value>> values;
};
// A created tensor is its buffer, element type and shape: evaluate makes the runtime's
// view of it, so no Ort::Value is made twice. An evaluated one holds the runtime's value.
struct OrtValue : Value {
    std::shared_ptr<OrtBuffer> buffer;
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    std::vector<std::int64_t> shape;
    Ort::Value value{nullptr};
};

const Ort::MemoryInfo& cpuMemory() {
    static const Ort::MemoryInfo* memory =
        new Ort::MemoryInfo(Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault));
    return *memory;
}

template <class T>
void copyTensor(const Ort::Value& value, std::size_t count, void* out) {
    std::memcpy(out, value.GetTensorData<T>(), count * sizeof(T));
}
struct OrtResult : EvaluationResult {
    std::map<std::string, std::shared_ptr<OrtValue>> outputs;
};

template <class T>
TensorValues valuesAs(const Ort::Value& value, std::size_t count) {
    const T* p = value.GetTensorData<T>();
    return std::vector<T>(p, p + count);
}

class OnnxRuntimePlatform final : public Platform {
public:
    std::shared_ptr<Stream> createStream() override { return std::make_shared<OrtStream>(); }

    void storeBytes(Stream& stream, const std::uint8_t* data, std::size_t size) override {
        auto& bytes = handle_as<OrtStream>(stream).bytes;
        if (size) bytes.insert(bytes.end(), data, data + size);
    }

    std::shared_ptr<Buffer> writeBuffer(const std::uint8_t* data, std::size_t size) override {
        auto buffer = std::make_shared<OrtBuffer>();
        if (size) buffer->bytes.assign(data, data + size);
        return buffer;
    }

    std::shared_ptr<StreamReference> createStreamReference(
        const std::shared_ptr<Stream>& stream) override {
        auto ref = std::make_shared<OrtStreamReference>();
        ref->stream = std::dynamic_pointer_cast<OrtStream>(stream);
        if (!ref->stream) fail("stream of another runtime");
        return ref;
    }

    std::shared_ptr<Model> loadModel(StreamReference& reference) override {
        const auto& bytes = handle_as<OrtStreamReference>(reference).stream->bytes;
        return guarded([&] {
            Ort::SessionOptions options;
            auto model = std::make_shared<OrtModel>();
            model->session = std::make_shared<Ort::Session>(environment(), bytes.data(),
                                                            bytes.size(), options);
            Ort::AllocatorWithDefaultOptions allocator;
            for (std::size_t i = 0; i < model->session->GetInputCount(); ++i) {
                model->input_names.push_back(
                    model->session->GetInputNameAllocated(i, allocator).get());
                auto info = model->session->GetInputTypeInfo(i);
                if (info.GetONNXType() == ONNX_TYPE_TENSOR &&
                    info.GetTensorTypeAndShapeInfo().GetDimensionsCount() == 0)
                    model->scalar_inputs.push_back(model->input_names.back());
            }
            for (std::size_t i = 0; i < model->session->GetOutputCount(); ++i)
                model->output_names.push_back(
                    model->session->GetOutputNameAllocated(i, allocator).get());
            for (const auto& name : model->output_names) model->output_name_pointers.push_back(name.c_str());
            return model;
        });
    }

    std::vector<FeatureDescription> inputFeatures(Model& model) override {
        auto& m = handle_as<OrtModel>(model);
        return guarded([&] {
            std::vector<FeatureDescription> out;
            for (std::size_t i = 0; i < m.input_names.size(); ++i)
                out.push_back(describe(m.input_names[i], m.session->GetInputTypeInfo(i)));
            return out;
        });
    }

    std::vector<FeatureDescription> outputFeatures(Model& model) override {
        auto& m = handle_as<OrtModel>(model);
        return guarded([&] {
            std::vector<FeatureDescription> out;
            for (std::size_t i = 0; i < m.output_names.size(); ++i)
                out.push_back(describe(m.output_names[i], m.session->GetOutputTypeInfo(i)));
            return out;
        });
    }

    std::shared_ptr<Device> createDevice(DeviceKind kind) override {
        auto device = std::make_shared<OrtDevice>();
        device->kind = kind;
        return device;
    }

    std::shared_ptr<Session> createSession(const std::shared_ptr<Model>& model,
                                           const std::shared_ptr<Device>& device) override {
        auto session = std::make_shared<OrtSession>();
        session->model = std::dynamic_pointer_cast<OrtModel>(model);
        session->device = std::dynamic_pointer_cast<OrtDevice>(device);
        if (!session->model || !session->device) fail("model or device of another runtime");
        return session;
    }

    std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>& session) override {
        auto binding = std::make_shared<OrtBinding>();
        binding->session = std::dynamic_pointer_cast<OrtSession>(session);
        if (!binding->session) fail("session of another runtime");
        return binding;
    }

    std::shared_ptr<Value> createTensor(std::uint32_t kind, const std::vector<std::int64_t>& shape,
                                        const std::shared_ptr<Buffer>& buffer) override {
        auto value = std::make_shared<OrtValue>();
        value->buffer = std::dynamic_pointer_cast<OrtBuffer>(buffer);
        if (!value->buffer) fail("buffer of another runtime");
        value->type = elementTypeOf(kind);
        value->shape = shape;
        // Checked now, as the runtime would when making the tensor, not at evaluation.
        std::size_t count = 1;
        for (auto d : shape) {
            if (d < 0) fail("a tensor dimension is negative");
            count *= static_cast<std::size_t>(d);
        }
        if (count * elementSize(kind) != value->buffer->bytes.size())
            fail("the buffer size does not match the tensor's shape");
        return value;
    }

    void bind(Binding& binding, const std::string& name,
              const std::shared_ptr<Value>& value) override {
        auto& b = handle_as<OrtBinding>(binding);
        const auto& inputs = b.session->model->input_names;
        if (std::find(inputs.begin(), inputs.end(), name) == inputs.end())
            fail("the model has no input named " + name);
        b.values[name] = value;
    }

    std::shared_ptr<EvaluationResult> evaluate(Session& session, Binding& binding,
                                               const std::string&) override {
        auto& s = handle_as<OrtSession>(session);
        auto& b = handle_as<OrtBinding>(binding);
        auto outputs = guarded([&] {
            std::vector<const char*> input_names;
            std::vector<Ort::Value> inputs;
            input_names.reserve(b.values.size());
            inputs.reserve(b.values.size());
            for (auto& [name, value] : b.values) {
                auto& v = handle_as<OrtValue>(*value);
                std::vector<std::int64_t> shape = v.shape;
                // The layer table shows a scalar as one element of one dimension; the
                // runtime checks ranks, so it gets the scalar back.
                const auto& scalars = s.model->scalar_inputs;
                if (shape.size() == 1 && shape[0] == 1 &&
                    std::find(scalars.begin(), scalars.end(), name) != scalars.end())
                    shape.clear();
                input_names.push_back(name.c_str());
                inputs.push_back(Ort::Value::CreateTensor(cpuMemory(), v.buffer->bytes.data(),
                                                          v.buffer->bytes.size(), shape.data(),
                                                          shape.size(), v.type));
            }
            const auto& output_names = s.model->output_name_pointers;
            return s.model->session->Run(Ort::RunOptions{nullptr}, input_names.data(),
                                         inputs.data(), inputs.size(), output_names.data(),
                                         output_names.size());
        });
        auto result = std::make_shared<OrtResult>();
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            auto value = std::make_shared<OrtValue>();
            value->value = std::move(outputs[i]);
            result->outputs[s.model->output_names[i]] = value;
        }
        return result;
    }

    std::shared_ptr<Value> lookupOutput(EvaluationResult& result,
                                        const std::string& name) override {
        auto& r = handle_as<OrtResult>(result);
        auto it = r.outputs.find(name);
        if (it == r.outputs.end()) fail("the evaluation has no output named " + name);
        return it->second;
    }

    // Straight from the runtime's output memory into the host's.
    void copyValues(Value& value, std::uint32_t kind, void* out, std::uint64_t capacity) override {
        const auto& v = handle_as<OrtValue>(value).value;
        guarded([&] {
            if (!v.IsTensor()) fail("the value is not a tensor");
            // The element type is the model's, as in the layer table; the count comes from the
            // tensor's byte size, which needs no type-information object per inference.
            const std::size_t n = v.GetTensorSizeInBytes() / elementSize(kind);
            checkCapacity(n, capacity);
            switch (kind) {
                case tensor_kind::Float16: {
                    const auto* p = v.GetTensorData<Ort::Float16_t>();
                    auto* f = static_cast<float*>(out);
                    for (std::size_t i = 0; i < n; ++i) f[i] = p[i].ToFloat();
                    return;
                }
                case tensor_kind::Boolean: return copyTensor<bool>(v, n, out);
                default: std::memcpy(out, v.GetTensorRawData(), n * elementSize(kind)); return;
            }
        });
    }

    TensorValues readValues(Value& value, std::uint32_t kind) override {
        const auto& v = handle_as<OrtValue>(value).value;
        return guarded([&]() -> TensorValues {
            if (!v.IsTensor()) fail("the value is not a tensor");
            auto info = v.GetTensorTypeAndShapeInfo();
            if (info.GetElementType() != elementTypeOf(kind))
                fail("the value is not a tensor of kind " + std::to_string(kind));
            const std::size_t n = info.GetElementCount();
            switch (kind) {
                case tensor_kind::Float: return valuesAs<float>(v, n);
                case tensor_kind::UInt8: return valuesAs<std::uint8_t>(v, n);
                case tensor_kind::Int8: return valuesAs<std::int8_t>(v, n);
                case tensor_kind::UInt16: return valuesAs<std::uint16_t>(v, n);
                case tensor_kind::Int16: return valuesAs<std::int16_t>(v, n);
                case tensor_kind::Int32: return valuesAs<std::int32_t>(v, n);
                case tensor_kind::Int64: return valuesAs<std::int64_t>(v, n);
                case tensor_kind::Boolean: return valuesAs<bool>(v, n);
                case tensor_kind::Double: return valuesAs<double>(v, n);
                case tensor_kind::UInt32: return valuesAs<std::uint32_t>(v, n);
                case tensor_kind::UInt64: return valuesAs<std::uint64_t>(v, n);
                case tensor_kind::Float16: {
                    const auto* p = v.GetTensorData<Ort::Float16_t>();
                    std::vector<float> out(n);
                    for (std::size_t i = 0; i < n; ++i) out[i] = p[i].ToFloat();
                    return out;
                }
                default: fail("no tensor class for tensor kind " + std::to_string(kind));
            }
        });
    }
};

}  // namespace

std::shared_ptr<Platform> makeDefaultPlatform() { return std::make_shared<OnnxRuntimePlatform>(); }

}  // namespace kel::windows_ml_platform
#endif  // !_WIN32
