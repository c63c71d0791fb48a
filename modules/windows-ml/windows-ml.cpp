// The "WindowsML" engine back-end: ONNX models through the platform's machine-learning
// runtime, reached only through the seam in platform.hpp.
#include "modules/windows-ml/windows-ml.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <new>
#include <typeinfo>
#include <utility>


#include "kel/common/error.hpp"
#include "kel/utils/device_info.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"
#include "modules/windows-ml/os_version.hpp"
#include "modules/windows-ml/platform.hpp"

namespace kel {

namespace wmp = windows_ml_platform;

struct onnxLayerInfo {
    bool is_static = true;
    std::uint32_t kind = wmp::tensor_kind::Undefined;
    std::vector<std::uint64_t> dims;
    std::shared_ptr<void> owned_buffer;
    void* data = nullptr;
};

struct WinMLNetwork {
    std::string device;
    std::shared_ptr<wmp::StreamReference> stream_reference;
    std::unordered_map<std::string, onnxLayerInfo> inputs;
    std::unordered_map<std::string, onnxLayerInfo> outputs;
    std::shared_ptr<wmp::Model> model;
    std::shared_ptr<wmp::Device> learning_device;
    std::shared_ptr<wmp::Session> session;
    std::shared_ptr<wmp::Binding> binding;
    std::shared_ptr<wmp::EvaluationResult> evaluation_result;
};

struct windows_ml_InferenceEngine {
    std::string current_network;
    std::vector<std::string> supported_devices;
    std::unordered_map<std::string, WinMLNetwork> networks;
    std::unordered_map<std::string, std::vector<ModelBuffer>> inner_models;
    std::shared_ptr<wmp::Platform> platform;
};

namespace {

struct TensorPrecision {
    std::uint64_t size;
    std::string name;
};

const TensorPrecision& TensorPrecisionTable(std::uint32_t kind) {
    using namespace wmp::tensor_kind;
    static const std::unordered_map<std::uint32_t, TensorPrecision> table{
        {Undefined, {0, "UNSUPPORTED"}}, {Float, {4, "FP32"}},    {UInt8, {1, "U8"}},
        {Int8, {1, "I8"}},               {UInt16, {2, "U16"}},    {Int16, {2, "I16"}},
        {Int32, {4, "I32"}},             {Int64, {8, "I64"}},     {String, {0, "String"}},
        {Boolean, {1, "BOOL"}},          {Float16, {2, "FP16"}},  {Double, {8, "FP64"}},
        {UInt32, {4, "U32"}},            {UInt64, {8, "U64"}},    {Complex64, {0, "C64"}},
        {Complex128, {0, "C128"}},
    };
    static const TensorPrecision unknown{0, "Unknown"};
    auto it = table.find(kind);
    return it == table.end() ? unknown : it->second;
}

const std::string& FeatureKindNames(std::int32_t kind) {
    static const std::unordered_map<std::int32_t, std::string> names{
        {wmp::Tensor, "Tensor"}, {wmp::Sequence, "Sequence"}, {wmp::Map, "Map"},
        {wmp::Image, "Image"}};
    static const std::string unknown = "Unknown";
    auto it = names.find(kind);
    return it == names.end() ? unknown : it->second;
}

// Kinds that have a tensor class to create and read: all but undefined, string and complex.
bool isHandledKind(std::uint32_t kind) {
    return (kind >= 1 && kind <= 7) || (kind >= 9 && kind <= 13);
}

// The host pointer inside data, or false when its type is not one of the accepted four.
bool heldPointer(const std::any& data, void*& out) {
    if (auto p = std::any_cast<void*>(&data)) {
        out = *p;
    } else if (auto p = std::any_cast<const void*>(&data)) {
        out = const_cast<void*>(*p);
    } else if (auto p = std::any_cast<std::uint8_t*>(&data)) {
        out = *p;
    } else if (auto p = std::any_cast<const std::uint8_t*>(&data)) {
        out = const_cast<std::uint8_t*>(*p);
    } else {
        return false;
    }
    return true;
}

std::uint64_t elementCount(const std::vector<std::uint64_t>& dims) {
    std::uint64_t n = 1;
    for (auto d : dims) n *= d;
    return n;
}

// A layer of the network: an input of that name first, else an output; null if neither.
onnxLayerInfo* findLayer(WinMLNetwork& record, const std::string& layer) {
    if (auto it = record.inputs.find(layer); it != record.inputs.end()) return &it->second;
    if (auto it = record.outputs.find(layer); it != record.outputs.end()) return &it->second;
    return nullptr;
}

void buildLayerTable(windows_ml& self, const std::vector<wmp::FeatureDescription>& features,
                     std::unordered_map<std::string, onnxLayerInfo>& table, bool outputs) {
    for (const auto& feature : features) {
        if (feature.kind != wmp::Tensor)
            raise("{}layer type not Tensor. Current layer type is {}", feature.name,
                  FeatureKindNames(feature.kind));

        onnxLayerInfo info;
        info.kind = feature.tensor_kind;
        for (auto d : feature.shape) {
            if (d < 0) info.is_static = false;
            info.dims.push_back(static_cast<std::uint64_t>(d));
        }
        if (info.dims.empty()) info.dims.push_back(1);

        if (!isHandledKind(info.kind))
            raise(" Tensor type is {}! This type is not supported.",
                  TensorPrecisionTable(info.kind).name);

        auto& entry = table[feature.name] = std::move(info);
        if (!entry.is_static) continue;  // the host supplies these before infer

        // Static layers get a zeroed buffer now, so fully static models infer at once. A
        // half-precision output is handed out as 32-bit floats: its buffer has room for them.
        const std::uint64_t element = outputs && entry.kind == wmp::tensor_kind::Float16
                                          ? sizeof(float)
                                          : TensorPrecisionTable(entry.kind).size;
        const std::size_t bytes = elementCount(entry.dims) * element;
        void* buffer = std::calloc(std::max<std::size_t>(bytes, 1), 1);
        if (!buffer) throw std::bad_alloc();
        entry.owned_buffer = std::shared_ptr<void>(buffer, std::free);
        const auto dims = entry.dims;
        self.setLayerData(feature.name, std::any(buffer), dims, true);
    }
}

}  // namespace

windows_ml::windows_ml() : windows_ml(wmp::makeDefaultPlatform()) {}

windows_ml::windows_ml(std::shared_ptr<wmp::Platform> platform)
    : state_(std::make_shared<windows_ml_InferenceEngine>()) {
    state_->platform = std::move(platform);
}

std::vector<std::string> windows_ml::getSupportedDevices() {
    auto& devices = state_->supported_devices;
    if (devices.empty()) {
        // Built once: enumerating the display adapters is slow. Neural accelerators are
        // never offered here.
        devices.push_back("CPU");
        if (!utils::GetDeviceInfo("GPU", "", 1).empty()) devices.push_back("GPU");
        devices.insert(devices.begin(), "AUTO");
    }
    if (!devices.empty()) return devices;
    raise("No deviec supported.");
}

void windows_ml::registerModelAsInnerID(const std::string& inner_id,
                                        const std::vector<ModelBuffer>& buffers) {
    state_->inner_models[inner_id] = buffers;
}

void windows_ml::unregisterInnerID(const std::string& inner_id) {
    if (state_->inner_models.erase(inner_id) == 0)
        raise("not found Model Id [{}] for unregister.", inner_id);
}

std::vector<std::string> windows_ml::getModelInnerIDs() {
    std::vector<std::string> ids;
    for (const auto& [id, buffers] : state_->inner_models) ids.push_back(id);
    return ids;
}

void windows_ml::createNetwork(const std::string& network_id, const std::string& device,
                               const std::string& inner_id, const PropertyMap&) {
    auto it = state_->inner_models.find(inner_id);
    if (it == state_->inner_models.end())
        raise("{} is not a supported plugin model id. Please use getSupportedModelIDs function "
              "check built-in and plugin model ids!",
              inner_id);
    createNetwork(network_id, device, std::vector<ModelBuffer>(it->second));
}

void windows_ml::createNetwork(const std::string& network_id, const std::string& device,
                               const std::vector<ModelBuffer>& buffers, const PropertyMap&) {
    if (buffers.size() != 1)
        raise("model buffer number is {}, the number is not supported.", buffers.size());
    createNetwork(network_id, device, buffers[0].first, buffers[0].second);
}

void windows_ml::createNetwork(const std::string& network_id, const std::string& device,
                               const std::vector<std::filesystem::path>& files, const PropertyMap&) {
    if (files.size() != 1) raise("model file is {}, the number is not supported.", files.size());
    const auto& path = files[0];
    const std::size_t size = static_cast<std::size_t>(std::filesystem::file_size(path));
    // Not zero-filled first: the read overwrites it, and a large model pays for every byte.
    auto storage = std::make_unique_for_overwrite<std::uint8_t[]>(size + 1);
    storage[size] = 0;
    switch (utils::readFileStart(path, storage.get(), size)) {
        case utils::FileRead::done: break;
        case utils::FileRead::cannot_open:
            utils::printPathError("cannot open file ", path);
            raise("cannot open file {}", utils::pathToString(path));
        case utils::FileRead::cannot_read:
            utils::printPathError(fmt::format("cannot read {} bytes from file ", size), path);
            raise("cannot read {} bytes from file ", size);
    }
    // The read buffer itself goes to the model's stream: on a runtime that can keep it, a
    // large model's bytes are not copied a second time during creation.
    createFromStream(network_id, device, [&](wmp::Platform& platform, wmp::Stream& stream) {
        platform.storeOwnedBytes(stream, std::move(storage), size);
    });
}

void windows_ml::createNetwork(const std::string& network_id, const std::string& device,
                               const void* data, const std::size_t& size) {
    createFromStream(network_id, device, [&](wmp::Platform& platform, wmp::Stream& stream) {
        platform.storeBytes(stream, static_cast<const std::uint8_t*>(data), size);
    });
}

void windows_ml::createFromStream(
    const std::string& network_id, const std::string& device,
    const std::function<void(wmp::Platform&, wmp::Stream&)>& store) {
    auto& state = *state_;
    auto& platform = *state.platform;

    // Devices are checked only once the list exists; before that any text passes and
    // runs on the processor. Hosts rely on this order.
    if (!state.supported_devices.empty()) {
        const auto devices = getSupportedDevices();
        if (std::find(devices.begin(), devices.end(), device) == devices.end())
            raise("{} is not supported.", device);
    }

    // A record under an existing identifier is reused: its objects are replaced one by
    // one and its layer tables only added to.
    auto& record = state.networks[network_id];

    auto stream = platform.createStream();
    store(platform, *stream);
    record.stream_reference = platform.createStreamReference(stream);
    record.model = platform.loadModel(*record.stream_reference);

    // Newer operator sets load but may fail in the steps after loading. The line goes out
    // whole, in one write: standard error is unbuffered, and every creation writes it.
    std::cerr << "[KEL][Windows-ML] If create network crash, please make sure onnx source opset < 16!\n"
              << std::flush;

    record.device = device == "AUTO" ? getSupportedDevices().back() : device;
    if (record.device == "GPU") {
        auto directx = platform.createDevice(wmp::DirectX);
        auto high_performance = platform.createDevice(wmp::DirectXHighPerformance);
        auto min_power = platform.createDevice(wmp::DirectXMinPower);
        record.learning_device = high_performance;
    } else {
        record.learning_device = platform.createDevice(wmp::Cpu);
    }
    record.session = platform.createSession(record.model, record.learning_device);
    record.binding = platform.createBinding(record.session);

    state.current_network = network_id;

    buildLayerTable(*this, platform.inputFeatures(*record.model), record.inputs, false);
    buildLayerTable(*this, platform.outputFeatures(*record.model), record.outputs, true);
}

void windows_ml::switchNetwork(const std::string& network_id) {
    if (state_->networks.contains(network_id)) state_->current_network = network_id;
}

void windows_ml::removeNetwork(const std::string& network_id) {
    state_->networks.erase(network_id);
}

void windows_ml::forgetFailedCreation(const std::string& network_id, const std::string& facade_current) {
    removeNetwork(network_id);
    if (!facade_current.empty()) switchNetwork(facade_current);
}

std::string windows_ml::getNetworkDevice(const std::string& network_id) {
    return checkedAt(state_->networks, network_id).device;
}

std::vector<std::string> windows_ml::getInputLayerNames() {
    std::vector<std::string> names;
    for (const auto& [name, info] : state_->networks[state_->current_network].inputs)
        names.push_back(name);
    return names;
}

std::vector<std::string> windows_ml::getOutputLayerNames() {
    std::vector<std::string> names;
    for (const auto& [name, info] : state_->networks[state_->current_network].outputs)
        names.push_back(name);
    return names;
}

std::tuple<std::string, std::uint64_t> windows_ml::getLayerPrecision(const std::string& layer) {
    const onnxLayerInfo* entry = findLayer(state_->networks[state_->current_network], layer);
    if (!entry) raise("{} is not found in output and input layers.", layer);
    const auto& precision = TensorPrecisionTable(entry->kind);
    return {precision.name, precision.size};
}

const std::vector<std::uint64_t> windows_ml::getLayerDims(const std::string& layer) {
    const onnxLayerInfo* entry = findLayer(state_->networks[state_->current_network], layer);
    if (!entry) raise("{} is not found in output and input layers.", layer);
    if (!entry->is_static) {
        for (auto d : entry->dims)
            if (static_cast<std::int64_t>(d) < 0)
                raise("{} is not static tensor please set layer data first.", layer);
    }
    return entry->dims;
}

void windows_ml::setLayerData(const std::string& layer, std::any data,
                              const std::vector<std::uint64_t>& dims, bool internal) {
    if (!data.has_value()) raise("data is null.");
    if (dims.empty()) raise("data_dims is empty.");

    onnxLayerInfo* found = findLayer(state_->networks[state_->current_network], layer);
    if (!found) raise("{} is not found in input and output layers.", layer);

    if (std::find(dims.begin(), dims.end(), 0) != dims.end())
        raise("Please set the valid shape to tensor, the dim should larger than 0!");

    auto& entry = *found;

    void* pointer = nullptr;
    if (!heldPointer(data, pointer))
        raise("not support {} as data type! Support type: void* | const void* | uint8_t* | "
              "const uint8_t* ",
              typeName(data.type()));
    if (!pointer) raise("data is nullptr.");

    entry.data = pointer;
    // Released after the pointer is stored; kept if the host handed back this very buffer,
    // which would otherwise be bound after it was freed.
    if (!internal && entry.owned_buffer && entry.owned_buffer.get() != pointer) entry.owned_buffer.reset();

    // A static layer keeps its declared shape whatever the host passes.
    if (entry.is_static) return;

    if (dims.size() != entry.dims.size())
        raise("[{}] expect dim length is {}, but got {}", layer, entry.dims.size(), dims.size());
    for (std::size_t i = 0; i < dims.size(); ++i) {
        if (dims[i] == 0 || dims[i] > 100000000)
            raise("[{}] data_dims the {} dim is {}.{}", layer, i + 1, dims[i],
                  dims[i] == 0 ? " The dim num can not be 0. Please check"
                               : " The dim num larger than 100'000'000). Please check");
    }
    entry.dims = dims;
}

void* windows_ml::getLayerData(const std::string& layer) {
    const onnxLayerInfo* found = findLayer(state_->networks[state_->current_network], layer);
    if (!found) raise("{} is not found in input and output layers.", layer);
    const auto& entry = *found;
    if (!entry.is_static) {
        for (auto d : entry.dims)
            if (static_cast<std::int64_t>(d) < 1)
                raise("[{}] layer have dynamic shape. Need set by `setLayerData` API first.",
                      layer);
    }
    return entry.data;
}

void windows_ml::infer() {
    auto& platform = *state_->platform;
    auto& record = state_->networks[state_->current_network];
    if (!record.session || !record.binding)
        throw wmp::PlatformError(static_cast<std::int32_t>(0x80004003),
                                 "the current network has no session");

    for (const auto& [name, entry] : record.inputs) {
        if (!isHandledKind(entry.kind)) raise("tensor type is not supported.");
        if (!entry.data) continue;
        // The platform tensor gets its own copy: host memory is never aliased.
        const std::size_t bytes = elementCount(entry.dims) * TensorPrecisionTable(entry.kind).size;
        platform.bindCopy(*record.binding, name, entry.kind, entry.dims, entry.data, bytes);
    }

    // Success is not examined here: a failed evaluation surfaces when outputs are read. The
    // previous result is let go first, so that a runtime may reuse its memory for this one.
    record.evaluation_result.reset();
    record.evaluation_result = platform.evaluate(*record.session, *record.binding, "");

    for (const auto& [name, entry] : record.outputs) {
        if (!entry.data) continue;  // dynamic outputs the host did not set up
        if (!isHandledKind(entry.kind)) raise("tensor type is not supported.");
        // Written in the element type of the kind's tensor view; a model whose output exceeds
        // the layer's dims gets an error, not an overrun.
        platform.copyOutput(*record.evaluation_result, name, entry.kind, entry.data,
                            elementCount(entry.dims));
    }
}

std::unordered_map<std::string, std::string> windows_ml::getEngineMutableProperties() {
    return {};
}

std::string windows_ml::version() {
    const auto v = windows_ml_platform::osVersion();
    return fmt::format("{}.{}.{}", v[0], v[1], v[2]);
}

}  // namespace kel
