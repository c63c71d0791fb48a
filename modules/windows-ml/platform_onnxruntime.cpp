// The machine-learning seam over ONNX Runtime, for systems without Windows ML. Every
// device kind runs on ONNX Runtime's CPU provider.
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

struct RtStream : Stream {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t size = 0;
};
// The session holds its own copy of the model, so the stream, which the network's record
// keeps for its life, lets the bytes go (a model's size each). Where the runtime can make a
// session in two steps, they go between parsing and preparing: a creation's peak then holds
// the bytes and the parsed model, not the bytes and all that preparing adds (302 MB against
// 218 MB for a 109 MB model).
std::shared_ptr<Ort::Session> sessionFrom(RtStream& stream) {
    const auto release = [&] {
        stream.bytes.reset();
        stream.size = 0;
    };
    Ort::SessionOptions options;
    const OrtModelEditorApi* editor = Ort::GetApi().GetModelEditorApi();
    if (!editor) {
        auto session = std::make_shared<Ort::Session>(environment(), stream.bytes.get(), stream.size, options);
        release();
        return session;
    }
    OrtSession* parsed = nullptr;
    Ort::ThrowOnError(editor->CreateModelEditorSessionFromArray(environment(), stream.bytes.get(),
                                                                stream.size, options, &parsed));
    auto session = std::make_shared<Ort::Session>(parsed);
    release();
    Ort::ThrowOnError(editor->FinalizeModelEditorSession(*session, options, nullptr));
    return session;
}

struct RtStreamReference : StreamReference {
    std::shared_ptr<RtStream> stream;
};
struct RtBuffer : Buffer {
    std::vector<std::uint8_t> bytes;
};
// Loading parses the model into a CPU session; sessions made from the model share it,
// since every device kind runs on the same provider.
struct RtModel : Model {
    std::shared_ptr<Ort::Session> session;
    // Read once at load: every type query asks the runtime for a fresh copy.
    std::vector<FeatureDescription> inputs, outputs;
    std::vector<std::string> input_names, output_names;
    std::vector<const char*> output_name_pointers;  // what Run takes, made once
    std::vector<std::string> scalar_inputs;  // declared with rank 0
    // Per output: its element type when its declared shape (in `outputs`) and type are both
    // fixed and numeric, so that its memory can be made once and reused by every run;
    // undefined otherwise.
    std::vector<ONNXTensorElementDataType> fixed_types;
};
struct RtDevice : Device {
    DeviceKind kind;
};
struct RtSession : Session {
    std::shared_ptr<RtModel> model;
    std::shared_ptr<RtDevice> device;
};
// A created tensor is its buffer, element type and shape. An evaluated one is an output
// of a result, which it keeps alive.
struct RtResult;
struct RtValue : Value {
    std::shared_ptr<RtBuffer> buffer;
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    std::vector<std::int64_t> shape;
    std::shared_ptr<const RtResult> result;
    std::size_t index = 0;
};
// The outputs of one run. Outputs of a fixed shape get memory of their own that the runtime
// writes into, made once and kept while the result is recycled for the next run; the others
// the runtime allocates each time.
struct RtResult : EvaluationResult, std::enable_shared_from_this<RtResult> {
    std::shared_ptr<RtModel> model;
    std::vector<Ort::Value> values;
    std::vector<std::vector<std::uint8_t>> memory;
    std::vector<::OrtValue*> raw;  // what Run fills in
    bool use_fixed = true;         // cleared for a model whose outputs break their declaration
};
// One bound input: the runtime's tensor over memory the binding keeps, either a copy of the
// host's bytes made by bindCopy (reused while kind and dims stay) or a created tensor's buffer.
struct InputSlot {
    std::string name;
    std::uint32_t kind = tensor_kind::Undefined;
    std::vector<std::uint64_t> dims;
    std::vector<std::uint8_t> own;
    std::shared_ptr<RtValue> source;
    Ort::Value tensor{nullptr};
};
struct RtBinding : Binding {
    std::shared_ptr<RtSession> session;
    std::vector<InputSlot> inputs;
    std::vector<const char*> input_names;  // what Run takes, kept in step with `inputs`
    std::vector<const ::OrtValue*> input_values;
    std::shared_ptr<RtResult> last;  // recycled when nobody else holds it
};

const Ort::MemoryInfo& cpuMemory() {
    static const Ort::MemoryInfo* memory =
        new Ort::MemoryInfo(Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault));
    return *memory;
}

template <class T>
TensorValues valuesAs(const Ort::Value& value, std::size_t count) {
    const T* p = value.GetTensorData<T>();
    return std::vector<T>(p, p + count);
}

const Ort::Value& outputOf(const RtValue& value) {
    if (!value.result) fail("the value is not an evaluated output");
    return value.result->values[value.index];
}

// The slot bound under `name`, made if there is none; the model must have that input.
InputSlot& slotFor(RtBinding& b, const std::string& name) {
    for (auto& slot : b.inputs)
        if (slot.name == name) return slot;
    const auto& inputs = b.session->model->input_names;
    if (std::find(inputs.begin(), inputs.end(), name) == inputs.end())
        fail("the model has no input named " + name);
    b.inputs.emplace_back().name = name;
    return b.inputs.back();
}

// The runtime's tensor for input `name` over `data`.
Ort::Value inputTensor(const RtBinding& b, const std::string& name, void* data, std::size_t bytes,
                       std::vector<std::int64_t> shape, ONNXTensorElementDataType type) {
    // The layer table shows a scalar as one element of one dimension; the runtime checks
    // ranks, so it gets the scalar back.
    const auto& scalars = b.session->model->scalar_inputs;
    if (shape.size() == 1 && shape[0] == 1 &&
        std::find(scalars.begin(), scalars.end(), name) != scalars.end())
        shape.clear();
    return guarded([&] {
        return Ort::Value::CreateTensor(cpuMemory(), data, bytes, shape.data(), shape.size(), type);
    });
}

// Brings Run's arrays in step with the slots.
void indexInputs(RtBinding& b) {
    b.input_names.clear();
    b.input_values.clear();
    for (const auto& s : b.inputs) {
        b.input_names.push_back(s.name.c_str());
        b.input_values.push_back(s.tensor);
    }
}

// A shape's element count, after checking it as the runtime would when making the tensor.
std::size_t checkedCount(const std::vector<std::int64_t>& shape, std::uint32_t kind, std::size_t bytes) {
    std::size_t count = 1;
    for (auto d : shape) {
        if (d < 0) fail("a tensor dimension is negative");
        count *= static_cast<std::size_t>(d);
    }
    if (count * elementSize(kind) != bytes) fail("the buffer size does not match the tensor's shape");
    return count;
}

// Fresh output slots for a result: fixed-shape outputs get their memory now.
void prepareOutputs(RtResult& r) {
    const RtModel& m = *r.model;
    const std::size_t n = m.output_names.size();
    r.values.clear();
    r.memory.assign(n, {});
    r.raw.assign(n, nullptr);
    for (std::size_t i = 0; i < n; ++i) {
        r.values.emplace_back(nullptr);
        if (!r.use_fixed || m.fixed_types[i] == ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED) continue;
        const auto& shape = m.outputs[i].shape;
        std::size_t count = 1;
        for (auto d : shape) count *= static_cast<std::size_t>(d);
        if (count == 0) continue;
        r.memory[i].resize(count * elementSize(m.outputs[i].tensor_kind));
        r.values[i] = guarded([&] {
            return Ort::Value::CreateTensor(cpuMemory(), r.memory[i].data(), r.memory[i].size(),
                                            shape.data(), shape.size(), m.fixed_types[i]);
        });
    }
}

// One run into the result's outputs: kept ones are written in place, the others allocated.
void runInto(RtBinding& b, RtResult& r) {
    const RtModel& m = *r.model;
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        if (r.memory[i].empty()) r.values[i] = Ort::Value{nullptr};
        r.raw[i] = r.values[i];
    }
    guarded([&] {
        Ort::ThrowOnError(Ort::GetApi().Run(*m.session, nullptr, b.input_names.data(),
                                            b.input_values.data(), b.input_names.size(),
                                            m.output_name_pointers.data(), r.raw.size(), r.raw.data()));
    });
    for (std::size_t i = 0; i < r.values.size(); ++i)
        if (r.memory[i].empty()) r.values[i] = Ort::Value{r.raw[i]};
}

std::size_t outputIndex(const RtResult& r, const std::string& name) {
    const auto& names = r.model->output_names;
    const auto it = std::find(names.begin(), names.end(), name);
    if (it == names.end()) fail("the evaluation has no output named " + name);
    return static_cast<std::size_t>(it - names.begin());
}

// Straight from the output's memory into the host's. The element type is the model's, as in
// the layer table; the count comes from the byte size.
void copyBytes(const void* from, std::size_t bytes, std::uint32_t kind, void* out,
               std::uint64_t capacity) {
    const std::size_t n = bytes / elementSize(kind);
    checkCapacity(n, capacity);
    if (kind == tensor_kind::Float16) {
        const auto* p = static_cast<const Ort::Float16_t*>(from);
        auto* f = static_cast<float*>(out);
        for (std::size_t i = 0; i < n; ++i) f[i] = p[i].ToFloat();
    } else if (n) {
        std::memcpy(out, from, n * elementSize(kind));
    }
}

void copyInto(const Ort::Value& v, std::uint32_t kind, void* out, std::uint64_t capacity) {
    guarded([&] {
        if (!v || !v.IsTensor()) fail("the value is not a tensor");
        copyBytes(v.GetTensorRawData(), v.GetTensorSizeInBytes(), kind, out, capacity);
    });
}

class OnnxRuntimePlatform final : public Platform {
public:
    std::shared_ptr<Stream> createStream() override { return std::make_shared<RtStream>(); }

    void storeBytes(Stream& stream, const std::uint8_t* data, std::size_t size) override {
        auto copy = std::make_unique_for_overwrite<std::uint8_t[]>(size);
        if (size) std::memcpy(copy.get(), data, size);
        storeOwnedBytes(stream, std::move(copy), size);
    }

    // The first bytes become the stream's own; later ones are appended.
    void storeOwnedBytes(Stream& stream, std::unique_ptr<std::uint8_t[]> data,
                         std::size_t size) override {
        auto& s = handle_as<RtStream>(stream);
        if (!size) return;
        if (s.size) {
            auto joined = std::make_unique_for_overwrite<std::uint8_t[]>(s.size + size);
            std::memcpy(joined.get(), s.bytes.get(), s.size);
            std::memcpy(joined.get() + s.size, data.get(), size);
            data = std::move(joined);
        }
        s.bytes = std::move(data);
        s.size += size;
    }

    std::shared_ptr<Buffer> writeBuffer(const std::uint8_t* data, std::size_t size) override {
        auto buffer = std::make_shared<RtBuffer>();
        if (size) buffer->bytes.assign(data, data + size);
        return buffer;
    }

    std::shared_ptr<StreamReference> createStreamReference(
        const std::shared_ptr<Stream>& stream) override {
        auto ref = std::make_shared<RtStreamReference>();
        ref->stream = std::dynamic_pointer_cast<RtStream>(stream);
        if (!ref->stream) fail("stream of another runtime");
        return ref;
    }

    std::shared_ptr<Model> loadModel(StreamReference& reference) override {
        RtStream& stream = *handle_as<RtStreamReference>(reference).stream;
        return guarded([&] {
            auto model = std::make_shared<RtModel>();
            model->session = sessionFrom(stream);
            Ort::AllocatorWithDefaultOptions allocator;
            for (std::size_t i = 0; i < model->session->GetInputCount(); ++i) {
                model->input_names.push_back(
                    model->session->GetInputNameAllocated(i, allocator).get());
                const auto& d = model->inputs.emplace_back(
                    describe(model->input_names.back(), model->session->GetInputTypeInfo(i)));
                if (d.kind == Tensor && d.shape.empty())
                    model->scalar_inputs.push_back(model->input_names.back());
            }
            for (std::size_t i = 0; i < model->session->GetOutputCount(); ++i) {
                model->output_names.push_back(
                    model->session->GetOutputNameAllocated(i, allocator).get());
                const auto& d = model->outputs.emplace_back(
                    describe(model->output_names.back(), model->session->GetOutputTypeInfo(i)));
                auto type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
                const bool fixed = std::none_of(d.shape.begin(), d.shape.end(),
                                                [](std::int64_t n) { return n < 0; });
                if (d.kind == Tensor && fixed && d.tensor_kind != tensor_kind::Undefined &&
                    d.tensor_kind != tensor_kind::String && d.tensor_kind != tensor_kind::Complex64 &&
                    d.tensor_kind != tensor_kind::Complex128)
                    type = elementTypeOf(d.tensor_kind);
                model->fixed_types.push_back(type);
            }
            for (const auto& name : model->output_names) model->output_name_pointers.push_back(name.c_str());
            return model;
        });
    }

    std::vector<FeatureDescription> inputFeatures(Model& model) override {
        return handle_as<RtModel>(model).inputs;
    }

    std::vector<FeatureDescription> outputFeatures(Model& model) override {
        return handle_as<RtModel>(model).outputs;
    }

    std::shared_ptr<Device> createDevice(DeviceKind kind) override {
        auto device = std::make_shared<RtDevice>();
        device->kind = kind;
        return device;
    }

    std::shared_ptr<Session> createSession(const std::shared_ptr<Model>& model,
                                           const std::shared_ptr<Device>& device) override {
        auto session = std::make_shared<RtSession>();
        session->model = std::dynamic_pointer_cast<RtModel>(model);
        session->device = std::dynamic_pointer_cast<RtDevice>(device);
        if (!session->model || !session->device) fail("model or device of another runtime");
        return session;
    }

    std::shared_ptr<Binding> createBinding(const std::shared_ptr<Session>& session) override {
        auto binding = std::make_shared<RtBinding>();
        binding->session = std::dynamic_pointer_cast<RtSession>(session);
        if (!binding->session) fail("session of another runtime");
        return binding;
    }

    std::shared_ptr<Value> createTensor(std::uint32_t kind, const std::vector<std::int64_t>& shape,
                                        const std::shared_ptr<Buffer>& buffer) override {
        auto value = std::make_shared<RtValue>();
        value->buffer = std::dynamic_pointer_cast<RtBuffer>(buffer);
        if (!value->buffer) fail("buffer of another runtime");
        value->type = elementTypeOf(kind);
        // Checked now, as the runtime would when making the tensor, not at evaluation.
        checkedCount(shape, kind, value->buffer->bytes.size());
        value->shape = shape;
        return value;
    }

    void bind(Binding& binding, const std::string& name,
              const std::shared_ptr<Value>& value) override {
        auto& b = handle_as<RtBinding>(binding);
        auto& v = handle_as<RtValue>(*value);
        if (!v.buffer) fail("only created tensors can be bound");
        Ort::Value tensor = inputTensor(b, name, v.buffer->bytes.data(), v.buffer->bytes.size(),
                                        v.shape, v.type);
        // The slot changes only once everything that can fail has succeeded.
        InputSlot& slot = slotFor(b, name);
        slot.kind = tensor_kind::Undefined;  // not reused by bindCopy
        slot.own.clear();
        slot.source = std::static_pointer_cast<RtValue>(value);
        slot.tensor = std::move(tensor);
        indexInputs(b);
    }

    // The copy goes into memory the binding keeps for the input, so an unchanged input costs
    // one memcpy and no allocation.
    void bindCopy(Binding& binding, const std::string& name, std::uint32_t kind,
                  const std::vector<std::uint64_t>& dims, const void* data,
                  std::size_t bytes) override {
        auto& b = handle_as<RtBinding>(binding);
        InputSlot* slot = nullptr;
        for (auto& s : b.inputs)
            if (s.name == name) slot = &s;
        if (!slot || slot->source || slot->kind != kind || slot->dims != dims) {
            const ONNXTensorElementDataType type = elementTypeOf(kind);
            const std::vector<std::int64_t> shape(dims.begin(), dims.end());
            checkedCount(shape, kind, bytes);
            std::vector<std::uint8_t> memory(bytes);
            Ort::Value tensor = inputTensor(b, name, memory.data(), bytes, shape, type);
            // The slot changes only once everything that can fail has succeeded; the
            // memory moves with its address, so the tensor stays over it.
            slot = &slotFor(b, name);
            slot->source.reset();
            slot->own = std::move(memory);
            slot->tensor = std::move(tensor);
            slot->kind = kind;
            slot->dims = dims;
            indexInputs(b);
        }
        if (bytes) std::memcpy(slot->own.data(), data, bytes);
    }

    std::shared_ptr<EvaluationResult> evaluate(Session& session, Binding& binding,
                                               const std::string&) override {
        auto& s = handle_as<RtSession>(session);
        auto& b = handle_as<RtBinding>(binding);
        // A result still held elsewhere keeps its values; the next run gets a new one.
        if (!b.last || b.last.use_count() > 1 || b.last->model != s.model) {
            auto fresh = std::make_shared<RtResult>();
            fresh->model = s.model;
            if (b.last) fresh->use_fixed = b.last->use_fixed;
            prepareOutputs(*fresh);
            b.last = std::move(fresh);
        }
        RtResult& r = *b.last;
        try {
            runInto(b, r);
        } catch (const PlatformError&) {
            bool any_fixed = false;
            for (const auto& m : r.memory) any_fixed |= !m.empty();
            if (!any_fixed) throw;
            // A model may compute outputs of other shapes than it declares: run again with
            // the runtime allocating them, and keep to that if it was what it took.
            r.use_fixed = false;
            prepareOutputs(r);
            try {
                runInto(b, r);
            } catch (const PlatformError&) {
                r.use_fixed = true;
                prepareOutputs(r);
                throw;
            }
        }
        return b.last;
    }

    std::shared_ptr<Value> lookupOutput(EvaluationResult& result,
                                        const std::string& name) override {
        auto& r = handle_as<RtResult>(result);
        auto value = std::make_shared<RtValue>();
        value->index = outputIndex(r, name);
        value->result = std::static_pointer_cast<const RtResult>(r.shared_from_this());
        return value;
    }

    void copyOutput(EvaluationResult& result, const std::string& name, std::uint32_t kind,
                    void* out, std::uint64_t capacity) override {
        auto& r = handle_as<RtResult>(result);
        const std::size_t i = outputIndex(r, name);
        // An output in memory of its own needs no questions to the runtime.
        if (r.memory[i].empty())
            copyInto(r.values[i], kind, out, capacity);
        else
            copyBytes(r.memory[i].data(), r.memory[i].size(), kind, out, capacity);
    }

    void copyValues(Value& value, std::uint32_t kind, void* out, std::uint64_t capacity) override {
        copyInto(outputOf(handle_as<RtValue>(value)), kind, out, capacity);
    }

    TensorValues readValues(Value& value, std::uint32_t kind) override {
        const auto& v = outputOf(handle_as<RtValue>(value));
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
