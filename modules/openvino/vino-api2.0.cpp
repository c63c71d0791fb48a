// The "OpenVINO" engine back-end: runtime bring-up, network properties, creation, layer
// data, inference and device queries over the OpenVINO runtime.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <openvino/frontend/manager.hpp>
#include <openvino/openvino.hpp>
#include <sstream>
#include <system_error>
#include <thread>
#include <typeinfo>
#include <unordered_map>


#include "kel/common/error.hpp"
#include "kel/common/log.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"
#include "modules/openvino/openvino.hpp"
#include "modules/openvino/openvino_internal.hpp"

namespace kel {

namespace {

// One compiled form of a network and its request.
struct CompiledSlot {
    ov::CompiledModel compiled_model;
    ov::InferRequest request;
};

// What the layer calls need of a port, worked out once when the network is compiled: the
// per-call lookups by name cost more than a small network's inference.
struct LayerPort {
    ov::Output<const ov::Node> port;
    ov::element::Type type;
    bool dynamic = false;
    bool output = false;              // the name is an output's (and no input's)
    std::vector<std::uint64_t> dims;  // the declared dims of a static layer
    // The last two tensors bound to the layer: a host that alternates two buffers (state fed
    // back) gets the same tensors again, which the runtime takes faster than new ones.
    struct Bound {
        ov::Tensor tensor;
        void* data = nullptr;
        std::vector<std::uint64_t> dims;
    };
    Bound recent[2];
    int next = 0;
};

struct VinoNetworkRecord {
    VinoNetworkRecord() = default;
    explicit VinoNetworkRecord(ov::Core networkCore) : core(std::move(networkCore)) {}

    ov::Core core;
    std::string device;
    std::shared_ptr<char[]> model_text;  // private copy of the XML text plus one zero byte
    std::uint64_t model_text_size = 0;
    std::vector<std::string> input_names;
    std::vector<std::string> output_names;
    std::unordered_map<std::string, std::vector<std::uint64_t>> layer_data_state;
    std::shared_ptr<ov::Model> model;
    std::uint64_t slot_key = 0;
    std::map<std::uint64_t, CompiledSlot> slots;
    std::unordered_map<std::string, LayerPort> layers;  // inputs win over outputs of a name
    bool inferred = false;  // dynamic outputs have the dims of the last inference from now on
};

struct vino_InferenceEngine {
    ov::Core core;
    std::string current_network;
    std::map<std::string, VinoNetworkRecord> networks;
    std::vector<std::string> supported_devices;
    LogCallback log_callback;
    std::map<std::string, std::vector<ModelBuffer>> inner_models;
};

vino_InferenceEngine& state(std::any& engine) { return any_as<vino_InferenceEngine>(engine); }

// Module-wide, computed while the library loads.
std::optional<std::wstring>& libraryDirectoryOverride() {
    static std::optional<std::wstring> value;
    return value;
}
const std::wstring& moduleLibraryDirectory() {
    static const std::wstring value = utils::currentModuleDirectory();
    return value;
}
[[maybe_unused]] const std::wstring& kLoadTimeDirectory = moduleLibraryDirectory();

bool (*g_sse42Probe)() = &utils::hostHasSse42;

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

constexpr std::string_view kPluginsXml = "<ie><plugins></plugins></ie>";

// The keys a host may give an OpenVINO network, with the type its value must hold. The
// array fixes the order in which properties are validated; the hash map is the lookup.
constexpr std::pair<std::string_view, std::string_view> kPropertyTypes[] = {
    {"CACHE_DIR", "std::filesystem::path"},
    {"CPU_RUNTIME_CACHE_CAPACITY", "std::string"},
    {"GPU_THROTTLE_HINT_LEVEL", "std::string"},
    {"MULTI_DEVICE_PRIORITIES", "std::string"},
    {"DEVICE_PERFORMANCE_MODE", "std::string"},
    {"RUNTIME_STREAMS_NUMBER", "std::string"},
    {"INFERENCE_THREADS_NUMBER", "std::string"},
    {"LOCAL_GPU_DRIVER_VERSION", "std::string"},
    {"LOCAL_NPU_DRIVER_VERSION", "std::string"},
    {"MIN_GPU_DRIVER_VERSION", "std::string"},
    {"MIN_NPU_DRIVER_VERSION", "std::string"},
};

const std::unordered_map<std::string, std::string>& PropertyTypeTable() {
    static const std::unordered_map<std::string, std::string> table = [] {
        std::unordered_map<std::string, std::string> t;
        for (const auto& [key, type] : kPropertyTypes) t.emplace(key, type);
        return t;
    }();
    return table;
}
[[maybe_unused]] const auto& kLoadTimePropertyTypes = PropertyTypeTable();

constexpr const char* kDefaultMinGpuDriver = "32.0.101.2115";
constexpr const char* kDefaultMinNpuDriver = "32.0.100.4297";

std::string dimsText(const std::vector<std::uint64_t>& dims) {
    return fmt::format("[{}]", fmt::join(dims, ", "));
}

std::vector<std::uint64_t> toDims(const ov::Shape& shape) {
    return std::vector<std::uint64_t>(shape.begin(), shape.end());
}

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

// Reads a property's value as the text it must be; a wrong type becomes the type message.
std::string propertyText(const PropertyMap& properties, const std::string& name,
                         std::string_view type) {
    try {
        return any_as<std::string>(properties.at(name));
    } catch (const std::exception& e) {
        raise("{}: {} type is {}. Please check your property value type.", e.what(), name, type);
    }
}

int propertyNumber(const std::string& text, const std::string& name, std::string_view type) {
    try {
        return stoi_checked(text);
    } catch (const std::exception& e) {
        raise("{}: {} type is {}. Please check your property value type.", e.what(), name, type);
    }
}

std::string pathToUtf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

VinoNetworkRecord& currentRecord(vino_InferenceEngine& engine) {
    return checked_at(engine.networks, engine.current_network, kOrderedMapKeyText);
}

ov::InferRequest& currentRequest(VinoNetworkRecord& record) {
    return checked_at(record.slots, record.slot_key, kOrderedMapKeyText).request;
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
// core is being made.
VinoNetworkRecord& storeNewRecord(vino_InferenceEngine& engine, const std::string& networkIdentifier) {
    const std::string xml = openvino::generateTempOVPluginsXML();
    try {
        VinoNetworkRecord record(ov::Core{xml});
        auto& stored = engine.networks.insert_or_assign(networkIdentifier, std::move(record)).first->second;
        openvino::remove_xml(xml);
        return stored;
    } catch (...) {
        try {
            openvino::remove_xml(xml);
        } catch (...) {
        }
        throw;
    }
}

}  // namespace

// Grants the test seams access to the engine state.
struct openvino_testing::Access {
    static vino_InferenceEngine& engine(openvino& backend) { return state(backend.engine_); }
};

namespace openvino_testing {
void setSse42Probe(bool (*probe)()) { g_sse42Probe = probe ? probe : &utils::hostHasSse42; }

void addNetworkRecord(openvino& backend, const std::string& networkIdentifier,
                      const std::string& device) {
    VinoNetworkRecord record;
    record.device = device;
    Access::engine(backend).networks.insert_or_assign(networkIdentifier, std::move(record));
}

std::string networkCacheDir(openvino& backend, const std::string& networkIdentifier) {
    auto& record = checked_at(Access::engine(backend).networks, networkIdentifier,
                              kOrderedMapKeyText);
    return record.core.get_property(ov::cache_dir.name()).as<std::string>();
}

std::string currentNetwork(openvino& backend) { return Access::engine(backend).current_network; }
}  // namespace openvino_testing

// ---------------------------------------------------------------------------------
// Bring-up
// ---------------------------------------------------------------------------------

openvino::openvino() {
    checkDynamicLibrary(L"openvino", true);
    checkDynamicLibrary(L"openvino_ir_frontend", true);
    vino_InferenceEngine engine{ov::Core(std::string()), {}, {}, {}, {}, {}};
    engine_ = std::move(engine);
}

void openvino::overrideLibraryDirectory(std::optional<std::wstring> directory) {
    libraryDirectoryOverride() = std::move(directory);
}

std::wstring openvino::getLibraryDirectory() {
    if (libraryDirectoryOverride()) return *libraryDirectoryOverride();
    return moduleLibraryDirectory();
}

std::string openvino::wstringToString(const std::wstring& text) {
    return utils::wstringToString(text);
}

bool openvino::checkLibraryImage(const std::wstring& path) { return utils::checkLibraryImage(path); }

std::string openvino::getLibraryArchitecture(const std::wstring& path) {
    return utils::getLibraryArchitecture(path);
}

std::string openvino::getSystemArchitecture() { return utils::getSystemArchitecture(); }

bool openvino::checkDynamicLibrary(const std::wstring& name, bool throwOnFailure) {
    const std::wstring path = getLibraryDirectory() + utils::pathSeparator() +
                              utils::libraryPrefix() + name + L"." + utils::libraryExtension();
    const bool ok = std::filesystem::exists(std::filesystem::path(path)) && checkLibraryImage(path);
    if (ok) return true;
    const std::string narrow = wstringToString(name);
    if (throwOnFailure)
        raise("{} shared library and kel shared library are not in the same directory. Please put "
              "{} shared library in the same directory with kel shared library.",
              narrow, narrow);
    std::cerr << fmt::format(
                     "{} shared library and kel shared library are not in the same directory. "
                     "Please put {} shared library in the same directory with kel shared library.",
                     narrow, narrow)
              << std::endl;
    return false;
}

std::string openvino::version() {
    state(engine_);
    return ov::get_openvino_version().buildNumber;
}

std::string openvino::makeLogTag(std::source_location loc) { return location_text(loc); }

void openvino::logMessage(const std::string& line) {
    auto& log = state(engine_).log_callback;
    if (log) log(line);
}

void openvino::setLogCallback(LogCallback callback) {
    state(engine_).log_callback = std::move(callback);
    logMessage(fmt::format("[{}] : version is {}", makeLogTag(), version()));
}

void openvino::remove_xml(const std::filesystem::path& path) {
    std::error_code ec;
    // symlink_status: a link planted at the name is removed itself, never followed.
    if (!std::filesystem::exists(std::filesystem::symlink_status(path, ec))) return;
    std::filesystem::remove(path, ec);
    if (ec) raise_text(ec.message());
}

std::string openvino::generateTempOVPluginsXML() {
    const auto ticks = std::chrono::duration_cast<std::chrono::duration<long long, std::ratio<1, 10000000>>>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    const std::string name = fmt::format("{}-{}.xml", utils::currentThreadIdText(), ticks);
    const std::filesystem::path path = std::filesystem::temp_directory_path() / name;
    // Only a file this call made is removed on failure: one that won the race to the name
    // (O_EXCL refused it) is not ours.
    bool created = false;
    try {
        remove_xml(path);
        // Created exclusively and never through a link, so nothing planted at the name is
        // written to.
        if (!utils::writeNewFile(path, kPluginsXml, created))
            raise("Could not open file at {}", utils::pathToString(path));
    } catch (...) {
        try {
            if (created) remove_xml(path);
        } catch (...) {
        }
        throw;
    }
    return utils::pathToString(path);
}

void openvino::checkCPUFeatures(const std::string& networkIdentifier) {
    auto& record = checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText);
    if (record.device != "CPU" && record.device != "AUTO") return;
    if (g_sse42Probe()) return;
    const DevicePropertyValue name = getDeviceProperty("CPU", "FULL_DEVICE_NAME");
    const std::string* text = std::get_if<std::string>(&name);
    raise("SSE4.2 is not supported on this CPU [{}].", text ? *text : std::string());
}

std::string openvino::getNetworkDevice(const std::string& networkIdentifier) {
    return checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText).device;
}

// ---------------------------------------------------------------------------------
// Network properties
// ---------------------------------------------------------------------------------

std::unordered_map<std::string, std::string> openvino::getEngineMutableProperties() {
    state(engine_);
    return PropertyTypeTable();
}

std::vector<int> openvino::parseVersionNumbers(std::string_view text) {
    std::vector<int> numbers;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t dot = text.find('.', start);
        const std::string_view piece =
            text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
        int value = 0;
        const char* end = piece.data() + piece.size();
        // from_chars takes an optional minus only, and reports overflow: both as wanted.
        const auto [ptr, ec] = std::from_chars(piece.data(), end, value);
        numbers.push_back(ec == std::errc() && ptr == end ? value : 0);
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    return numbers;
}

bool openvino::isIntelDriverVersion(const std::string& version) {
    const std::vector<int> v = parseVersionNumbers(version);
    return v.size() == 4 && v[0] >= 10 && v[0] <= 99 && v[2] >= 100 && v[3] >= 1;
}

bool openvino::compareDriverVersion(const std::string& minimum, const std::string& local,
                                    int mode) {
    if (local.empty() || minimum.empty()) return false;
    std::vector<int> min = parseVersionNumbers(minimum);
    std::vector<int> loc = parseVersionNumbers(local);
    if (mode == 0) {
        // Intel drivers: only the last two numbers carry the driver build.
        if (!isIntelDriverVersion(minimum) || !isIntelDriverVersion(local)) return false;
        const long long minBuild = min[2] * 10000LL + min[3];
        const long long localBuild = loc[2] * 10000LL + loc[3];
        return localBuild >= minBuild;
    }
    const std::size_t length = std::max(min.size(), loc.size());
    min.resize(length, 0);
    loc.resize(length, 0);
    for (std::size_t i = 0; i < length; ++i)
        if (loc[i] != min[i]) return loc[i] > min[i];
    return true;
}

PropertyMap openvino::checkXPUProperties(const std::string& networkIdentifier,
                                         const PropertyMap& properties) {
    auto& record = checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText);
    const std::string device = record.device;
    PropertyMap copy = properties;
    if (device == "CPU") {
        copy.erase("CACHE_DIR");
        copy.erase("GPU_THROTTLE_HINT_LEVEL");
    }
    if (device != "AUTO") copy.erase("MULTI_DEVICE_PRIORITIES");
    if (device == "AUTO" || device == "CPU") {
        for (const char* key : {"LOCAL_GPU_DRIVER_VERSION", "LOCAL_NPU_DRIVER_VERSION",
                                "MIN_GPU_DRIVER_VERSION", "MIN_NPU_DRIVER_VERSION"})
            copy.erase(key);
        return copy;
    }

    std::string localGpu, minGpu, localNpu, minNpu;
    if (device == "GPU") {
        if (auto it = copy.find("LOCAL_GPU_DRIVER_VERSION"); it != copy.end()) {
            localGpu = any_as<std::string>(it->second);
            copy.erase(it);
        }
        if (auto it = copy.find("MIN_GPU_DRIVER_VERSION"); it != copy.end()) {
            minGpu = any_as<std::string>(it->second);
            copy.erase(it);
        }
        if (minGpu.empty()) minGpu = kDefaultMinGpuDriver;
        copy.erase("LOCAL_NPU_DRIVER_VERSION");
        copy.erase("MIN_NPU_DRIVER_VERSION");
    } else if (device == "NPU") {
        if (auto it = copy.find("LOCAL_NPU_DRIVER_VERSION"); it != copy.end()) {
            localNpu = any_as<std::string>(it->second);
            copy.erase("LOCAL_GPU_DRIVER_VERSION");
        }
        if (auto it = copy.find("MIN_NPU_DRIVER_VERSION"); it != copy.end()) {
            minNpu = any_as<std::string>(it->second);
            copy.erase(it);
        }
        if (minNpu.empty()) minNpu = kDefaultMinNpuDriver;
        // MIN_GPU_DRIVER_VERSION stays: parseProperties accepts and ignores it.
        copy.erase("LOCAL_GPU_DRIVER_VERSION");
        copy.erase("LOCAL_NPU_DRIVER_VERSION");
    } else {
        // Indexed and composite device names are the host's explicit choice: left alone.
        return copy;
    }

    if (device == "GPU" && !compareDriverVersion(minGpu, localGpu, 0)) {
        record.device = "AUTO";
        copy.insert_or_assign("MULTI_DEVICE_PRIORITIES", std::string("GPU,CPU"));
        logMessage(fmt::format(
            "[{}] : createNetwork : local GPU driver version: [{}], minimum GPU driver version: "
            "[{}], so change device from [GPU] to [AUTO] with [GPU,CPU] multi-device priorities.",
            makeLogTag(), localGpu, minGpu));
    } else if (device == "NPU" && !compareDriverVersion(minNpu, localNpu, 0)) {
        record.device = "AUTO";
        copy.insert_or_assign("MULTI_DEVICE_PRIORITIES", std::string("NPU,CPU"));
        logMessage(fmt::format(
            "[{}] : createNetwork : local NPU driver version: [{}], minimum NPU driver version: "
            "[{}], so change device from [NPU] to [AUTO] with [NPU,CPU] multi-device priorities.",
            makeLogTag(), localNpu, minNpu));
    }
    return copy;
}

void openvino::setNetworkCacheDir(const std::string& networkIdentifier,
                                  const PropertyMap& properties) {
    auto& record = checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText);
    // Compiling for the processor is quick; a cache would only cost disk.
    if (record.device == "CPU") return;
    std::filesystem::path directory =
        std::filesystem::temp_directory_path() / record.device / "ov-model-cache";
    if (auto it = properties.find("CACHE_DIR"); it != properties.end())
        directory = any_as<std::filesystem::path>(it->second);
    logMessage(fmt::format("[{}] : createNetwork : [CACHE_DIR] is [{}]", makeLogTag(),
                           utils::pathToString(directory)));
    try {
        std::filesystem::create_directories(directory);
    } catch (const std::filesystem::filesystem_error& e) {
        raise_text(e.what());
    }
    record.core.set_property(ov::AnyMap{{ov::cache_dir.name(), pathToUtf8(directory)}});
}

std::any openvino::parseProperties(const std::string& networkIdentifier,
                                   const PropertyMap& properties) {
    const std::string device =
        checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText).device;
    ov::AnyMap config;
    if (properties.empty()) return config;
    // Kept as it always was: the key is looked up where it came from, so nothing is refused
    // here and unknown keys simply find no rule below.
    for (const auto& entry : properties)
        if (properties.find(entry.first) == properties.end())
            raise("property name [{}] is not supported in OpenVINO. Please check your property "
                  "name.",
                  entry.first);

    const bool cpu = device == "CPU", gpu = device == "GPU", autoDevice = device == "AUTO";
    for (const auto& [keyView, type] : kPropertyTypes) {
        const std::string key(keyView);
        if (!properties.contains(key)) continue;
        auto logA = [&](const std::string& text) {
            logMessage(fmt::format("[{}] : createNetwork : [{}] is [{}]", makeLogTag(), key, text));
        };

        if (key == "CPU_RUNTIME_CACHE_CAPACITY" && (cpu || autoDevice)) {
            const std::string text = propertyText(properties, key, type);
            config.emplace("CPU_RUNTIME_CACHE_CAPACITY", text);
            logA(text);
        } else if (key == "GPU_THROTTLE_HINT_LEVEL" && (gpu || autoDevice)) {
            const std::string text = propertyText(properties, key, type);
            ov::hint::Priority level;
            if (text == "LOW") level = ov::hint::Priority::LOW;
            else if (text == "MEDIUM") level = ov::hint::Priority::MEDIUM;
            else if (text == "HIGH") level = ov::hint::Priority::HIGH;
            else
                raise("GPU_THROTTLE_HINT_LEVEL property value [{}] is not a supported value. The "
                      "valid value is \"LOW\", \"MEDIUM\" or \"HIGH\".",
                      text);
            config.emplace("GPU_QUEUE_THROTTLE", level);
            logMessage(fmt::format("[{}] : createNetwork : [GPU_THROTTLE_HINT_LEVEL] is [{}]",
                                   makeLogTag(), text));
        } else if (key == "MULTI_DEVICE_PRIORITIES" && autoDevice) {
            const std::string text = propertyText(properties, key, type);
            config.emplace(ov::device::priorities.name(), text);
            logA(text);
        } else if (key == "DEVICE_PERFORMANCE_MODE") {
            const std::string text = propertyText(properties, key, type);
            ov::hint::PerformanceMode mode;
            if (text == "THROUGHPUT") mode = ov::hint::PerformanceMode::THROUGHPUT;
            else if (text == "LATENCY") mode = ov::hint::PerformanceMode::LATENCY;
            else if (text == "CUMULATIVE_THROUGHPUT")
                mode = ov::hint::PerformanceMode::CUMULATIVE_THROUGHPUT;
            else
                raise("DEVICE_PERFORMANCE_MODE property value [{}] is not a supported value. The "
                      "valid value is \"THROUGHPUT\", \"LATENCY\" or \"CUMULATIVE_THROUGHPUT\".",
                      text);
            config.emplace(ov::hint::performance_mode.name(), mode);
            logA(text);
        } else if (key == "RUNTIME_STREAMS_NUMBER") {
            const std::string text = propertyText(properties, key, type);
            const int n = propertyNumber(text, key, type);
            if (n < 1)
                raise("RUNTIME_STREAMS_NUMBER property value [{}] is not a supported value. The "
                      "valid value is larger than 0.",
                      text);
            config.emplace(ov::num_streams.name(), ov::streams::Num(n));
            logA(text);
        } else if (key == "INFERENCE_THREADS_NUMBER" && (cpu || autoDevice)) {
            const std::string text = propertyText(properties, key, type);
            const int n = propertyNumber(text, key, type);
            if (n < 1)
                raise("INFERENCE_THREADS_NUMBER property value [{}] is not a supported value. The "
                      "valid value is larger than 0.",
                      text);
            // 0 means the count is unknown; the runtime then has the last word.
            const unsigned threads = std::thread::hardware_concurrency();
            if (threads != 0 && static_cast<unsigned>(n) > threads)
                raise("INFERENCE_THREADS_NUMBER property value [{}] is not a supported value. The "
                      "valid value is less than or equal to the number of hardware threads({}).",
                      text, threads);
            config.emplace(ov::inference_num_threads.name(), n);
            logA(text);
        }
    }
    return config;
}

// ---------------------------------------------------------------------------------
// Networks
// ---------------------------------------------------------------------------------

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::string& innerModelIdentifier,
                             const PropertyMap& properties) {
    auto& inner = state(engine_).inner_models;
    const auto it = inner.find(innerModelIdentifier);
    if (it == inner.end())
        raise("{} is not a supported plugin model id. Please use getSupportedModelIDs function "
              "check built-in and plugin model ids!",
              innerModelIdentifier);
    const std::vector<ModelBuffer> buffers = it->second;
    createNetwork(networkIdentifier, device, buffers, properties);
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::vector<ModelBuffer>& buffers,
                             const PropertyMap& properties) {
    if (buffers.size() == 1) {
        const std::size_t noWeights = 0;
        createNetwork(networkIdentifier, device, buffers[0].first, buffers[0].second, nullptr,
                      noWeights, properties);
    } else if (buffers.size() == 2) {
        createNetwork(networkIdentifier, device, buffers[0].first, buffers[0].second,
                      buffers[1].first, buffers[1].second, properties);
    } else {
        raise("model buffer number is {}, the number is not supported.", buffers.size());
    }
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::vector<std::filesystem::path>& files,
                             const PropertyMap& properties) {
    if (files.size() == 1)
        createNetwork(networkIdentifier, device, files[0], std::filesystem::path(), properties);
    else if (files.size() == 2)
        createNetwork(networkIdentifier, device, files[0], files[1], properties);
    else
        raise("model file number is {}, the number is not supported.", files.size());
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const std::filesystem::path& modelPath,
                             const std::filesystem::path& weightsPath,
                             const PropertyMap& properties) {
    auto& engine = state(engine_);
    auto& record = storeNewRecord(engine, networkIdentifier);
    record.device = device;
    logMessage(fmt::format("[{}] : createNetwork : (Begin) ov api read_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    // An empty weights path lets the runtime look beside the model; the file's extension
    // picks the reader (IR, ONNX, ...).
    record.model = record.core.read_model(modelPath, weightsPath, ov::AnyMap{});
    logMessage(fmt::format("[{}] : createNetwork : (Cease) ov api read_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    innerCreateNetwork(networkIdentifier, properties);
    engine.current_network = networkIdentifier;
}

void openvino::createNetwork(const std::string& networkIdentifier, const std::string& device,
                             const void* xmlBuffer, const std::size_t& xmlSize,
                             const void* weightsBuffer, const std::size_t& weightsSize,
                             const PropertyMap& properties) {
    if (xmlBuffer == nullptr)
        raise("xml_buffer must be set. Current buffer is nullptr. Please check your xml_buffer.");
    if (xmlSize == 0)
        raise("xml_size must be set. Current size is 0. Please check your xml_size.");
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
    auto& engine = state(engine_);
    auto& record = storeNewRecord(engine, networkIdentifier);
    record.device = device;
    // IR: the host may free its XML text as soon as this returns, so the record keeps a copy;
    // the weights are only wrapped and must outlive the network.
    auto readIr = [&] {
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
    };
    logMessage(fmt::format("[{}] : createNetwork : (Begin) ov api read_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    record.model = onnx ? onnx->read() : readIr();
    logMessage(fmt::format("[{}] : createNetwork : (Cease) ov api read_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    innerCreateNetwork(networkIdentifier, properties);
    engine.current_network = networkIdentifier;
}

void openvino::innerCreateNetwork(const std::string& networkIdentifier,
                                  const PropertyMap& properties) {
    auto& engine = state(engine_);
    auto& record = checked_at(engine.networks, networkIdentifier, kOrderedMapKeyText);
    CompiledSlot& slot = record.slots[record.slot_key];
    logMessage(fmt::format("[{}] : createNetwork : network_identifier is [{}], device is [{}]",
                           makeLogTag(), networkIdentifier, record.device));
    checkCPUFeatures(networkIdentifier);
    const PropertyMap adjusted = checkXPUProperties(networkIdentifier, properties);
    setNetworkCacheDir(networkIdentifier, adjusted);
    const ov::AnyMap config = std::any_cast<ov::AnyMap>(parseProperties(networkIdentifier, adjusted));

    logMessage(fmt::format("[{}] : createNetwork : (Begin) ov api compile_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    slot.compiled_model = record.core.compile_model(record.model, record.device, config);
    logMessage(fmt::format("[{}] : createNetwork : (Cease) ov api compile_model for [{}] network.",
                           makeLogTag(), networkIdentifier));
    logMessage(fmt::format(
        "[{}] : createNetwork : (Begin) ov api create_infer_request for [{}] network.",
        makeLogTag(), networkIdentifier));
    slot.request = slot.compiled_model.create_infer_request();
    logMessage(fmt::format(
        "[{}] : createNetwork : (Cease) ov api create_infer_request for [{}] network.",
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
        logMessage(fmt::format("[{}] : createNetwork : [{}] network have {} input layer(s) {}",
                               makeLogTag(), networkIdentifier, record.input_names.size(),
                               listText(record.input_names)));
        logMessage(fmt::format("[{}] : createNetwork : [{}] network have {} output layer(s) {}",
                               makeLogTag(), networkIdentifier, record.output_names.size(),
                               listText(record.output_names)));
    }
}

void openvino::registerModelAsInnerID(const std::string& innerModelIdentifier,
                                      const std::vector<ModelBuffer>& buffers) {
    state(engine_).inner_models[innerModelIdentifier] = buffers;
    logMessage(fmt::format("[{}] : registerModelAsInnerID : register [{}] as inner model",
                           makeLogTag(), innerModelIdentifier));
}

void openvino::unregisterInnerID(const std::string& innerModelIdentifier) {
    state(engine_).inner_models.erase(innerModelIdentifier);
}

std::vector<std::string> openvino::getModelInnerIDs() {
    std::vector<std::string> ids;
    for (const auto& entry : state(engine_).inner_models) ids.push_back(entry.first);
    return ids;
}

void openvino::removeNetwork(const std::string& networkIdentifier) {
    state(engine_).networks.erase(networkIdentifier);
}

void openvino::switchNetwork(const std::string& networkIdentifier) {
    auto& engine = state(engine_);
    if (!engine.networks.contains(networkIdentifier)) return;
    engine.current_network = networkIdentifier;
    logMessage(fmt::format("[{}] : switchNetwork : switch [{}] as current network.", makeLogTag(),
                           networkIdentifier));
}

// ---------------------------------------------------------------------------------
// Layers and inference
// ---------------------------------------------------------------------------------

std::vector<std::string> openvino::getInputLayerNames() {
    return currentRecord(state(engine_)).input_names;
}

std::vector<std::string> openvino::getOutputLayerNames() {
    return currentRecord(state(engine_)).output_names;
}

void openvino::setLayerData(const std::string& layer, std::any data,
                            const std::vector<std::uint64_t>& dims) {
    if (!data.has_value()) raise("data parameter is null.");
    if (dims.empty()) raise("data_dims parameter is empty.");
    auto& record = currentRecord(state(engine_));
    LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("[{}] is not found in input and output layers.", layer);

    // A dynamic layer takes its dims from the host.
    if (!entry->dynamic && entry->dims != dims)
        raise("[{}] expect dims is {}, but get dims is {}", layer, dimsText(entry->dims),
              dimsText(dims));

    const std::optional<void*> pointer = hostPointer(data);
    if (!pointer)
        raise(" not support {} as data type! Support type: void* | const void* | uint8_t* | const "
              "uint8_t* | float* | const float* ",
              type_name(data.type()));
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

namespace {

// A dynamic layer whose dims nobody has given yet fails with the runtime's own text. An
// output has them once an inference has run.
void requireKnownDims(const VinoNetworkRecord& record, const LayerPort& entry, const std::string& layer) {
    if (!entry.dynamic || record.layer_data_state.contains(layer)) return;
    if (entry.output && record.inferred) return;
    try {
        entry.port.get_shape();
    } catch (const ov::Exception& e) {
        raise("[OpenVINO Exception]:{}\n[{}] layer have dynamic shape. Need set by "
              "`setLayerData` API first.",
              e.what(), layer);
    }
}

}  // namespace

void* openvino::getLayerData(const std::string& layer) {
    auto& record = currentRecord(state(engine_));
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    requireKnownDims(record, *entry, layer);
    return currentRequest(record).get_tensor(layer).data();
}

const std::vector<std::uint64_t> openvino::getLayerDims(const std::string& layer) {
    auto& record = currentRecord(state(engine_));
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    if (!entry->dynamic) return entry->dims;
    requireKnownDims(record, *entry, layer);
    // A dynamic output's dims are the last inference's, asked when wanted rather than
    // recorded by every inference.
    if (entry->output && record.inferred)
        return toDims(currentRequest(record).get_tensor(layer).get_shape());
    return record.layer_data_state.at(layer);
}

std::tuple<std::string, std::uint64_t> openvino::getLayerPrecision(const std::string& layer) {
    auto& record = currentRecord(state(engine_));
    const LayerPort* entry = findLayer(record, layer);
    if (!entry) raise("{} is not found in input and output layers.", layer);
    const auto& table = precisionTable();
    const auto it = table.find(entry->type);
    if (it == table.end()) raise("{} layer Precision is unknown.", layer);
    return {it->second.first, it->second.second};
}

void openvino::infer() {
    auto& record = currentRecord(state(engine_));
    currentRequest(record).infer();
    record.inferred = true;
}

// ---------------------------------------------------------------------------------
// Device queries
// ---------------------------------------------------------------------------------

std::vector<std::string> openvino::getSupportedDevices() {
    auto& engine = state(engine_);
    fillDeviceCache(engine);
    if (engine.supported_devices.empty()) raise("Not device is not supported.");
    return engine.supported_devices;
}

std::vector<std::string> openvino::getDeviceSupportProperties(const std::string& device) {
    if (device.empty()) raise("device parameter is empty.");
    const std::vector<std::string> devices = getSupportedDevices();
    if (!contains(devices, device)) return {};
    const std::string family = device.find("GPU") != std::string::npos ? "GPU" : device;
    return checked_at(devicePropertyTable(), family);
}

DevicePropertyValue openvino::getDeviceProperty(const std::string& device,
                                                  const std::string& property) {
    if (device.empty()) raise("device parameter is empty.");
    if (property.empty()) raise("supported_property parameter is empty.");
    if (device == "AUTO") raise("could not get the property for AUTO device.");
    auto& engine = state(engine_);
    fillDeviceCache(engine);
    std::string queried = device;
    if (queried == "GPU" && contains(engine.supported_devices, "GPU.0")) queried = "GPU.0";
    if (!contains(engine.supported_devices, queried)) return std::monostate{};

    const auto supported = engine.core.get_property(queried, ov::supported_properties);
    if (std::find(supported.begin(), supported.end(), property) == supported.end())
        return std::monostate{};
    const ov::Any value = engine.core.get_property(queried, property, ov::AnyMap{});
    if (property == "DEVICE_GOPS" && !value.empty() &&
        value.is<std::map<ov::element::Type, float>>()) {
        std::unordered_map<std::string, float> gops;
        for (const auto& [type, number] : value.as<std::map<ov::element::Type, float>>())
            gops[type.c_type_string()] = number;
        return gops;
    }
    if (value.empty()) return std::monostate{};
    return value.as<std::string>();
}

}  // namespace kel
