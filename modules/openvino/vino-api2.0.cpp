// The "OpenVINO" engine back-end: networks, layer data, inference and device queries over
// the OpenVINO runtime. Bring-up and network properties have files of their own.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <openvino/frontend/manager.hpp>
#include <openvino/openvino.hpp>
#include <sstream>
#include <typeinfo>
#include <unordered_map>

#include "kel/common/error.hpp"
#include "modules/openvino/openvino.hpp"
#include "modules/openvino/openvino_internal.hpp"

namespace kel {

using vino::CompiledSlot;
using vino::LayerPort;
using vino::logMessage;
using vino::makeLogTag;
using vino::vino_InferenceEngine;
using vino::VinoNetworkRecord;

namespace {

// Device family -> the properties a host may read for it.
const std::unordered_map<std::string, std::vector<std::string>>& devicePropertyTable() {
    static const std::unordered_map<std::string, std::vector<std::string>> table = {
        {"CPU", {"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}},
        {"GPU", {"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE", "DEVICE_GOPS"}},
        {"NPU", {"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}},
    };
    return table;
}

// Fills the device cache once: "AUTO" first, then what the runtime reports.
void fillDeviceCache(vino_InferenceEngine& engine) {
    if (!engine.supported_devices.empty()) return;
    std::vector<std::string> devices = engine.core.get_available_devices();
    if (devices.empty()) return;
    engine.supported_devices.reserve(devices.size() + 1);
    engine.supported_devices.push_back("AUTO");
    engine.supported_devices.insert(engine.supported_devices.end(), devices.begin(), devices.end());
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string dimsText(const std::vector<std::uint64_t>& dims) { return fmt::format("[{}]", fmt::join(dims, ", ")); }

std::vector<std::uint64_t> toDims(const ov::Shape& shape) { return std::vector<std::uint64_t>(shape.begin(), shape.end()); }

// The precision names hosts see, with the element size in bytes (0 for sub-byte types).
const std::map<ov::element::Type_t, std::pair<const char*, std::uint64_t>>& precisionTable() {
    using T = ov::element::Type_t;
    static const std::map<T, std::pair<const char*, std::uint64_t>> table = {
        {T::dynamic, {"DYNAMIC", 0}}, {T::boolean, {"BOOL", 1}}, {T::bf16, {"BF16", 2}},
        {T::f16, {"FP16", 2}},        {T::f32, {"FP32", 4}},     {T::f64, {"FP64", 8}},
        {T::i4, {"I4", 0}},           {T::i8, {"I8", 1}},        {T::i16, {"I16", 2}},
        {T::i32, {"I32", 4}},         {T::i64, {"I64", 8}},      {T::u1, {"U1", 0}},
        {T::u4, {"U4", 0}},           {T::u8, {"U8", 1}},        {T::u16, {"U16", 2}},
        {T::u32, {"U32", 4}},         {T::u64, {"U64", 8}},
    };
    return table;
}

// The layer's port facts; null when the network has no such layer.
LayerPort* findLayer(VinoNetworkRecord& record, const std::string& layer) {
    const auto it = record.layers.find(layer);
    return it == record.layers.end() ? nullptr : &it->second;
}

// The host pointer inside `data`, if it holds one of the accepted pointer types.
std::optional<void*> hostPointer(const std::any& data) {
    const std::type_info& type = data.type();
    if (type == typeid(void*)) return std::any_cast<void*>(data);
    if (type == typeid(const void*)) return const_cast<void*>(std::any_cast<const void*>(data));
    if (type == typeid(std::uint8_t*)) return std::any_cast<std::uint8_t*>(data);
    if (type == typeid(const std::uint8_t*))
        return const_cast<std::uint8_t*>(std::any_cast<const std::uint8_t*>(data));
    if (type == typeid(float*)) return std::any_cast<float*>(data);
    if (type == typeid(const float*)) return const_cast<float*>(std::any_cast<const float*>(data));
    return std::nullopt;
}

VinoNetworkRecord& currentRecord(vino_InferenceEngine& engine) {
    return vino::networkRecord(engine, engine.current_network);
}

ov::InferRequest& currentRequest(VinoNetworkRecord& record) {
    return checkedAt(record.slots, record.slot_key, kOrderedMapKeyText).request;
}

// A dynamic layer whose dims nobody has given yet fails with the runtime's own text. An
// output has them once an inference has run.
void requireKnownDims(const VinoNetworkRecord& record, const LayerPort& entry, const std::string& layer) {
    if (!entry.dynamic || record.layer_data_state.contains(layer)) return;
    if (entry.output && record.inferred) return;
    try {
        entry.port.get_shape();
    } catch (const ov::Exception& e) {
        raise("[OpenVINO Exception]:{}\n[{}] layer have dynamic shape. Need set by `setLayerData` API first.",
              e.what(), layer);
    }
}

// XML text starts, after an optional UTF-8 byte order mark and white space, with '<'.
bool looksLikeXml(const char* text, std::size_t size) {
    std::size_t i = 0;
    if (size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) i = 3;
    while (i < size && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n')) ++i;
    return i < size && text[i] == '<';
}

// An ONNX model in memory, for the ONNX front end alone: no other reader sees the bytes (see
// looksLikeXml's caller).
class OnnxBytes {
public:
    OnnxBytes(const char* bytes, std::size_t size)
        : frontEnd_(ov::frontend::FrontEndManager().load_by_framework("onnx")),
          stream_(std::string(bytes, size), std::ios::binary) {}
    // Whether the front end takes the bytes for a model.
    bool supported() {
        std::istream* stream = &stream_;
        const bool taken = frontEnd_ && frontEnd_->supported(stream);
        stream_.clear();
        stream_.seekg(0);
        return taken;
    }
    std::shared_ptr<ov::Model> read() {
        std::istream* stream = &stream_;
        return frontEnd_->convert(frontEnd_->load(stream));
    }

private:
    ov::frontend::FrontEnd::Ptr frontEnd_;
    std::istringstream stream_;
};

// Each network gets a core of its own, made from a plugins file that exists only while the
// core is being made. The record is stored with the device, before the model is read.
VinoNetworkRecord& storeNewRecord(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                                  const std::string& device) {
    const std::string xml = vino::generateTempOVPluginsXML();
    VinoNetworkRecord* stored = nullptr;
    try {
        VinoNetworkRecord record(ov::Core{xml});
        stored = &engine.networks.insert_or_assign(networkIdentifier, std::move(record)).first->second;
        vino::remove_xml(xml);
    } catch (...) {
        try {
            vino::remove_xml(xml);
        } catch (...) {
        }
        throw;
    }
    stored->device = device;
    return *stored;
}

// Properties, compilation, the request and the layer tables of a network whose model is read.
void innerCreateNetwork(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                        const PropertyMap& properties) {
    VinoNetworkRecord& record = vino::networkRecord(engine, networkIdentifier);
    CompiledSlot& slot = record.slots[record.slot_key];
    logMessage(engine, fmt::format("[{}] : createNetwork : network_identifier is [{}], device is [{}]",
                                   makeLogTag(), networkIdentifier, record.device));
    vino::checkCPUFeatures(engine, networkIdentifier);
    const PropertyMap adjusted = vino::checkXPUProperties(engine, networkIdentifier, properties);
    vino::setNetworkCacheDir(engine, networkIdentifier, adjusted);
    const ov::AnyMap config = vino::parseProperties(engine, networkIdentifier, adjusted);

    logMessage(engine, fmt::format("[{}] : createNetwork : (Begin) ov api compile_model for [{}] network.",
                                   makeLogTag(), networkIdentifier));
    slot.compiled_model = record.core.compile_model(record.model, record.device, config);
    logMessage(engine, fmt::format("[{}] : createNetwork : (Cease) ov api compile_model for [{}] network.",
                                   makeLogTag(), networkIdentifier));
    logMessage(engine, fmt::format("[{}] : createNetwork : (Begin) ov api create_infer_request for [{}] network.",
                                   makeLogTag(), networkIdentifier));
    slot.request = slot.compiled_model.create_infer_request();
    logMessage(engine, fmt::format("[{}] : createNetwork : (Cease) ov api create_infer_request for [{}] network.",
                                   makeLogTag(), networkIdentifier));

    record.input_names.clear();
    record.output_names.clear();
    for (const auto& input : record.model->inputs()) record.input_names.push_back(input.get_any_name());
    for (const auto& output : record.model->outputs()) {
        // A graph that hands an input straight out gives that tensor both names; the
        // output is known by the one that is not an input's.
        std::string name = output.get_any_name();
        if (contains(record.input_names, name))
            for (const auto& other : output.get_names())
                if (!contains(record.input_names, other)) {
                    name = other;
                    break;
                }
        record.output_names.push_back(name);
    }
    record.layers.clear();
    record.inferred = false;
    auto addLayer = [&](const std::string& name, ov::Output<const ov::Node> port, bool output) {
        LayerPort entry;
        entry.port = port;
        entry.type = port.get_element_type();
        entry.dynamic = port.get_partial_shape().is_dynamic();
        entry.output = output;
        if (!entry.dynamic) entry.dims = toDims(port.get_shape());
        record.layers.emplace(name, std::move(entry));  // an input keeps a name it shares
    };
    const std::shared_ptr<const ov::Model> model = record.model;
    for (const auto& name : record.input_names) addLayer(name, model->input(name), false);
    for (const auto& name : record.output_names) addLayer(name, model->output(name), true);

    if (engine.log_callback) {
        auto listText = [](const std::vector<std::string>& names) {
            std::string text;
            for (const auto& name : names) text += fmt::format("[{}] ", name);
            return text;
        };
        logMessage(engine, fmt::format("[{}] : createNetwork : [{}] network have {} input layer(s) {}", makeLogTag(),
                                       networkIdentifier, record.input_names.size(), listText(record.input_names)));
        logMessage(engine, fmt::format("[{}] : createNetwork : [{}] network have {} output layer(s) {}", makeLogTag(),
                                       networkIdentifier, record.output_names.size(), listText(record.output_names)));
    }
}

// Reads the model with `read` on the new record's own core, then compiles it; the network is
// current only once all of that has worked.
template <class Read>
void createAndRead(vino_InferenceEngine& engine, const std::string& networkIdentifier, const std::string& device,
                   const PropertyMap& properties, Read read) {
    VinoNetworkRecord& record = storeNewRecord(engine, networkIdentifier, device);
    logMessage(engine, fmt::format("[{}] : createNetwork : (Begin) ov api read_model for [{}] network.",
                                   makeLogTag(), networkIdentifier));
    record.model = read(record);
    logMessage(engine, fmt::format("[{}] : createNetwork : (Cease) ov api read_model for [{}] network.",
                                   makeLogTag(), networkIdentifier));
    innerCreateNetwork(engine, networkIdentifier, properties);
    engine.current_network = networkIdentifier;
}

void createFromFiles(vino_InferenceEngine& engine, const std::string& networkIdentifier, const std::string& device,
                     const std::filesystem::path& modelPath, const std::filesystem::path& weightsPath,
                     const PropertyMap& properties) {
    // An empty weights path lets the runtime look beside the model; the file's extension
    // picks the reader (IR, ONNX, ...).
    createAndRead(engine, networkIdentifier, device, properties, [&](VinoNetworkRecord& record) {
        return record.core.read_model(modelPath, weightsPath, ov::AnyMap{});
    });
}

void createFromMemory(vino_InferenceEngine& engine, const std::string& networkIdentifier, const std::string& device,
                      const void* xmlBuffer, std::size_t xmlSize, const void* weightsBuffer, std::size_t weightsSize,
                      const PropertyMap& properties) {
    if (xmlBuffer == nullptr) raise("xml_buffer must be set. Current buffer is nullptr. Please check your xml_buffer.");
    if (xmlSize == 0) raise("xml_size must be set. Current size is 0. Please check your xml_size.");
    // The runtime offers a buffer to every model reader it has, and some read out of bounds
    // on arbitrary bytes (Paddle's reader, found by fuzzing): the reader is chosen here from
    // the bytes. XML text is the IR's form and goes to the runtime; an ONNX model goes to the
    // ONNX front end; anything else is refused.
    const char* bytes = static_cast<const char*>(xmlBuffer);
    std::optional<OnnxBytes> onnx;
    if (!looksLikeXml(bytes, xmlSize)) {
        onnx.emplace(bytes, xmlSize);
        if (!onnx->supported())
            raise("xml_buffer is neither an XML model description nor an ONNX model. Please check your "
                  "xml_buffer.");
    }
    createAndRead(engine, networkIdentifier, device, properties, [&](VinoNetworkRecord& record) {
        if (onnx) return onnx->read();
        // IR: the host may free its XML text as soon as this returns, so the record keeps a
        // copy; the weights are only wrapped and must outlive the network.
        if (!record.model_text) {
            std::shared_ptr<char[]> text(new char[xmlSize + 1]());
            std::memcpy(text.get(), xmlBuffer, xmlSize);
            record.model_text = std::move(text);
            record.model_text_size = xmlSize;
        }
        const ov::Tensor weights =
            weightsBuffer != nullptr
                ? ov::Tensor(ov::element::u8, ov::Shape{weightsSize}, const_cast<void*>(weightsBuffer))
                : ov::Tensor(ov::element::u8, ov::Shape{0});
        return record.core.read_model(std::string(record.model_text.get(), record.model_text_size), weights);
    });
}

}  // namespace

openvino::openvino() {
    vino::checkDynamicLibrary(L"openvino", true);
    vino::checkDynamicLibrary(L"openvino_ir_frontend", true);
    vino::bindRuntimeLibrary(L"openvino");
    engine_ = std::make_unique<vino_InferenceEngine>();
}

openvino::openvino(const openvino& other)
    : EngineBackend(other), engine_(other.engine_ ? std::make_unique<vino_InferenceEngine>(*other.engine_) : nullptr) {}
openvino::openvino(openvino&& other) noexcept = default;
openvino::~openvino() = default;

vino_InferenceEngine& openvino::engine() {
    if (!engine_) throw badAnyCastText();
    return *engine_;
}

std::string openvino::version() {
    engine();
    return ov::get_openvino_version().buildNumber;
}

void openvino::setLogCallback(LogCallback callback) {
    engine().log_callback = std::move(callback);
    logMessage(engine(), fmt::format("[{}] : version is {}", makeLogTag(), version()));
}

std::unordered_map<std::string, std::string> openvino::getEngineMutableProperties() {
    engine();
    return vino::PropertyTypeTable();
}

// ---------------------------------------------------------------------------------
// Networks
// ---------------------------------------------------------------------------------

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::string& innerModelIdentifier, const PropertyMap& properties) {
    auto& inner = engine().inner_models;
    const auto it = inner.find(innerModelIdentifier);
    if (it == inner.end())
        raise("{} is not a supported plugin model id. Please use getSupportedModelIDs function check built-in and "
              "plugin model ids!",
              innerModelIdentifier);
    const std::vector<ModelBuffer> buffers = it->second;
    createNetwork(networkIdentifier, device, buffers, properties);
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::vector<ModelBuffer>& buffers, const PropertyMap& properties) {
    if (buffers.size() != 1 && buffers.size() != 2)
        raise("model buffer number is {}, the number is not supported.", buffers.size());
    const ModelBuffer weights = buffers.size() == 2 ? buffers[1] : ModelBuffer{nullptr, 0};
    createFromMemory(engine(), networkIdentifier, device, buffers[0].first, buffers[0].second, weights.first,
                     weights.second, properties);
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::vector<std::filesystem::path>& files, const PropertyMap& properties) {
    if (files.size() != 1 && files.size() != 2)
        raise("model file number is {}, the number is not supported.", files.size());
    createFromFiles(engine(), networkIdentifier, device, files[0],
                    files.size() == 2 ? files[1] : std::filesystem::path(), properties);
}

void openvino::registerModelAsInnerID(const std::string& innerModelIdentifier,
                                      const std::vector<ModelBuffer>& buffers) {
    engine().inner_models[innerModelIdentifier] = buffers;
    logMessage(engine(), fmt::format("[{}] : registerModelAsInnerID : register [{}] as inner model", makeLogTag(),
                                     innerModelIdentifier));
}

void openvino::unregisterInnerID(const std::string& innerModelIdentifier) {
    engine().inner_models.erase(innerModelIdentifier);
}

std::vector<std::string> openvino::getModelInnerIDs() {
    std::vector<std::string> ids;
    for (const auto& entry : engine().inner_models) ids.push_back(entry.first);
    return ids;
}

void openvino::removeNetwork(const std::string& networkIdentifier) { engine().networks.erase(networkIdentifier); }

void openvino::switchNetwork(const std::string& networkIdentifier) {
    vino_InferenceEngine& state = engine();
    if (!state.networks.contains(networkIdentifier)) return;
    state.current_network = networkIdentifier;
    logMessage(state, fmt::format("[{}] : switchNetwork : switch [{}] as current network.", makeLogTag(),
                                  networkIdentifier));
}

std::string openvino::getNetworkDevice(const std::string& networkIdentifier) {
    return vino::networkRecord(engine(), networkIdentifier).device;
}

// ---------------------------------------------------------------------------------
// Layers and inference
// ---------------------------------------------------------------------------------

std::vector<std::string> openvino::getInputLayerNames() { return currentRecord(engine()).input_names; }

std::vector<std::string> openvino::getOutputLayerNames() { return currentRecord(engine()).output_names; }

void openvino::setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) {
    if (!data.has_value()) raise("data parameter is null.");
    if (dims.empty()) raise("data_dims parameter is empty.");
    VinoNetworkRecord& record = currentRecord(engine());
    LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("[{}] is not found in input and output layers.", layer);

    // A dynamic layer takes its dims from the host.
    if (!entry->dynamic && entry->dims != dims)
        raise("[{}] expect dims is {}, but get dims is {}", layer, dimsText(entry->dims), dimsText(dims));

    const std::optional<void*> pointer = hostPointer(data);
    if (!pointer)
        raise(" not support {} as data type! Support type: void* | const void* | uint8_t* | const uint8_t* | float* "
              "| const float* ",
              typeName(data.type()));
    if (*pointer == nullptr) raise("data parameter is null.");

    // Bound, not copied: the layer's own element type, whatever the pointer's type says.
    LayerPort::Bound* bound = nullptr;
    for (auto& recent : entry->recent)
        if (recent.tensor && recent.data == *pointer && recent.dims == dims) bound = &recent;
    if (!bound) {
        bound = &entry->recent[entry->next];
        entry->next ^= 1;
        *bound = {ov::Tensor(entry->type, ov::Shape(dims.begin(), dims.end()), *pointer), *pointer, dims};
    }
    currentRequest(record).set_tensor(layer, bound->tensor);
    if (entry->dynamic) record.layer_data_state[layer] = dims;
}

void* openvino::getLayerData(const std::string& layer) {
    VinoNetworkRecord& record = currentRecord(engine());
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    requireKnownDims(record, *entry, layer);
    return currentRequest(record).get_tensor(layer).data();
}

const std::vector<std::uint64_t> openvino::getLayerDims(const std::string& layer) {
    VinoNetworkRecord& record = currentRecord(engine());
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    if (!entry->dynamic) return entry->dims;
    requireKnownDims(record, *entry, layer);
    // A dynamic output's dims are the last inference's, asked when wanted rather than
    // recorded by every inference.
    if (entry->output && record.inferred) return toDims(currentRequest(record).get_tensor(layer).get_shape());
    return record.layer_data_state.at(layer);
}

std::tuple<std::string, std::uint64_t> openvino::getLayerPrecision(const std::string& layer) {
    VinoNetworkRecord& record = currentRecord(engine());
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    const auto& table = precisionTable();
    const auto it = table.find(entry->type);
    if (it == table.end()) raise("{} layer Precision is unknown.", layer);
    return {it->second.first, it->second.second};
}

void openvino::infer() {
    VinoNetworkRecord& record = currentRecord(engine());
    currentRequest(record).infer();
    record.inferred = true;
}

// ---------------------------------------------------------------------------------
// Device queries
// ---------------------------------------------------------------------------------

std::vector<std::string> openvino::getSupportedDevices() {
    vino_InferenceEngine& state = engine();
    fillDeviceCache(state);
    if (state.supported_devices.empty()) raise("Not device is not supported.");
    return state.supported_devices;
}

std::vector<std::string> openvino::getDeviceSupportProperties(const std::string& device) {
    if (device.empty()) raise("device parameter is empty.");
    const std::vector<std::string> devices = getSupportedDevices();
    if (!contains(devices, device)) return {};
    const std::string family = device.find("GPU") != std::string::npos ? "GPU" : device;
    return checkedAt(devicePropertyTable(), family);
}

DevicePropertyValue openvino::getDeviceProperty(const std::string& device, const std::string& property) {
    return vino::getDeviceProperty(engine(), device, property);
}

DevicePropertyValue vino::getDeviceProperty(vino_InferenceEngine& engine, const std::string& device,
                                            const std::string& property) {
    if (device.empty()) raise("device parameter is empty.");
    if (property.empty()) raise("supported_property parameter is empty.");
    if (device == "AUTO") raise("could not get the property for AUTO device.");
    fillDeviceCache(engine);
    std::string queried = device;
    if (queried == "GPU" && contains(engine.supported_devices, "GPU.0")) queried = "GPU.0";
    if (!contains(engine.supported_devices, queried)) return std::monostate{};

    const auto supported = engine.core.get_property(queried, ov::supported_properties);
    if (std::find(supported.begin(), supported.end(), property) == supported.end()) return std::monostate{};
    const ov::Any value = engine.core.get_property(queried, property, ov::AnyMap{});
    if (property == "DEVICE_GOPS" && !value.empty() && value.is<std::map<ov::element::Type, float>>()) {
        std::unordered_map<std::string, float> gops;
        for (const auto& [type, number] : value.as<std::map<ov::element::Type, float>>())
            gops[type.c_type_string()] = number;
        return gops;
    }
    if (value.empty()) return std::monostate{};
    return value.as<std::string>();
}

}  // namespace kel
