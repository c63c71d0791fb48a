// Network properties: the keys a host may give, the driver-version rule that moves a GPU or
// NPU network to "AUTO", the model cache directory and the runtime configuration.
#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <thread>

#include "kel/common/error.hpp"
#include "kel/utils/text.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "modules/openvino/vino_test_hooks.hpp"

namespace kel::vino {

namespace {

// The devices a rule applies to. Device texts compare exactly: "GPU.1" is none of these.
enum DeviceSet : unsigned { kNoDevice = 0, kCpu = 1, kGpu = 2, kAuto = 4, kAnyDevice = ~0u };

unsigned deviceBit(const std::string& device) {
    if (device == "CPU") return kCpu;
    if (device == "GPU") return kGpu;
    if (device == "AUTO") return kAuto;
    return 8;
}

struct PropertyRule;
using Converter = ov::Any (*)(const std::string& text, const PropertyRule& rule);

struct PropertyRule {
    std::string_view name;        // the host's key
    std::string_view type;        // what the host's std::any must hold
    unsigned devices;             // networks parseProperties applies it to; none: used elsewhere
    std::string_view runtimeKey;  // where the value goes in the runtime's configuration
    Converter convert;            // validates the host's text and makes the runtime's value
};

[[noreturn]] void refuse(const PropertyRule& rule, const std::string& text, std::string_view valid) {
    raise("{} property value [{}] is not a supported value. The valid value is {}.", rule.name, text, valid);
}

[[noreturn]] void refuseType(const std::exception& e, const PropertyRule& rule) {
    raise("{}: {} type is {}. Please check your property value type.", e.what(), rule.name, rule.type);
}

ov::Any asText(const std::string& text, const PropertyRule&) { return text; }

// The text must name one of the choices; the message lists them as `"A", "B" or "C"`.
template <class Value, std::size_t N>
ov::Any oneOf(const std::string& text, const PropertyRule& rule,
              const std::pair<std::string_view, Value> (&choices)[N]) {
    std::string valid;
    for (std::size_t i = 0; i < N; ++i) {
        if (choices[i].first == text) return choices[i].second;
        valid += fmt::format("{}\"{}\"", i == 0 ? "" : i + 1 == N ? " or " : ", ", choices[i].first);
    }
    refuse(rule, text, valid);
}

ov::Any priority(const std::string& text, const PropertyRule& rule) {
    using P = ov::hint::Priority;
    static constexpr std::pair<std::string_view, P> choices[] = {{"LOW", P::LOW}, {"MEDIUM", P::MEDIUM}, {"HIGH", P::HIGH}};
    return oneOf(text, rule, choices);
}

ov::Any performanceMode(const std::string& text, const PropertyRule& rule) {
    using M = ov::hint::PerformanceMode;
    static constexpr std::pair<std::string_view, M> choices[] = {
        {"THROUGHPUT", M::THROUGHPUT}, {"LATENCY", M::LATENCY}, {"CUMULATIVE_THROUGHPUT", M::CUMULATIVE_THROUGHPUT}};
    return oneOf(text, rule, choices);
}

int positiveNumber(const std::string& text, const PropertyRule& rule) {
    int n = 0;
    try {
        n = stoiChecked(text);
    } catch (const std::exception& e) {
        refuseType(e, rule);
    }
    if (n < 1) refuse(rule, text, "larger than 0");
    return n;
}

ov::Any streams(const std::string& text, const PropertyRule& rule) {
    return ov::streams::Num(positiveNumber(text, rule));
}

std::optional<unsigned>& hardwareThreadsOverride() {
    static std::optional<unsigned> count;
    return count;
}

ov::Any threads(const std::string& text, const PropertyRule& rule) {
    const int n = positiveNumber(text, rule);
    // 0 means the machine's count is unknown: any positive count passes and the runtime has
    // the last word, where comparing with 0 would refuse every count and leave the key unusable.
    const unsigned hardware = hardwareThreadsOverride().value_or(std::thread::hardware_concurrency());
    if (hardware != 0 && static_cast<unsigned>(n) > hardware)
        refuse(rule, text, fmt::format("less than or equal to the number of hardware threads({})", hardware));
    return n;
}

// One row per key a host may give. The order is the order in which parseProperties checks
// them, so it decides which of several bad properties is reported.
constexpr PropertyRule kPropertyRules[] = {
    {"CACHE_DIR", "std::filesystem::path", kNoDevice, "", nullptr},  // setNetworkCacheDir
    {"CPU_RUNTIME_CACHE_CAPACITY", "std::string", kCpu | kAuto, "CPU_RUNTIME_CACHE_CAPACITY", asText},
    {"GPU_THROTTLE_HINT_LEVEL", "std::string", kGpu | kAuto, "GPU_QUEUE_THROTTLE", priority},
    {"MULTI_DEVICE_PRIORITIES", "std::string", kAuto, "MULTI_DEVICE_PRIORITIES", asText},
    {"DEVICE_PERFORMANCE_MODE", "std::string", kAnyDevice, "PERFORMANCE_HINT", performanceMode},
    {"RUNTIME_STREAMS_NUMBER", "std::string", kAnyDevice, "NUM_STREAMS", streams},
    {"INFERENCE_THREADS_NUMBER", "std::string", kCpu | kAuto, "INFERENCE_NUM_THREADS", threads},
    // checkXPUProperties consumes the driver versions.
    {"LOCAL_GPU_DRIVER_VERSION", "std::string", kNoDevice, "", nullptr},
    {"LOCAL_NPU_DRIVER_VERSION", "std::string", kNoDevice, "", nullptr},
    {"MIN_GPU_DRIVER_VERSION", "std::string", kNoDevice, "", nullptr},
    {"MIN_NPU_DRIVER_VERSION", "std::string", kNoDevice, "", nullptr},
};

[[maybe_unused]] const auto& kLoadTimePropertyTypes = PropertyTypeTable();

// What the driver-version rule needs of an accelerator.
struct Accelerator {
    std::string_view device;
    std::string_view localKey;    // the driver found on this machine (filled in by the facade)
    std::string_view minimumKey;  // the host's minimum, if it gives one
    std::string_view defaultMinimum;
    std::string_view keptKey;  // a driver key left in the properties: parseProperties ignores it
};

constexpr Accelerator kAccelerators[] = {
    {"GPU", "LOCAL_GPU_DRIVER_VERSION", "MIN_GPU_DRIVER_VERSION", "32.0.101.2115", ""},
    {"NPU", "LOCAL_NPU_DRIVER_VERSION", "MIN_NPU_DRIVER_VERSION", "32.0.100.4297", "MIN_GPU_DRIVER_VERSION"},
};

constexpr std::string_view kDriverKeys[] = {"LOCAL_GPU_DRIVER_VERSION", "LOCAL_NPU_DRIVER_VERSION",
                                            "MIN_GPU_DRIVER_VERSION", "MIN_NPU_DRIVER_VERSION"};

std::string pathToUtf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

}  // namespace

void overrideHardwareThreads(std::optional<unsigned> count) { hardwareThreadsOverride() = count; }

const std::unordered_map<std::string, std::string>& PropertyTypeTable() {
    static const std::unordered_map<std::string, std::string> table = [] {
        std::unordered_map<std::string, std::string> types;
        for (const PropertyRule& rule : kPropertyRules) types.emplace(rule.name, rule.type);
        return types;
    }();
    return table;
}

std::vector<int> parseVersionNumbers(std::string_view text) {
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

bool isIntelDriverVersion(const std::string& version) {
    const std::vector<int> v = parseVersionNumbers(version);
    return v.size() == 4 && v[0] >= 10 && v[0] <= 99 && v[2] >= 100 && v[3] >= 1;
}

bool compareDriverVersion(const std::string& minimum, const std::string& local, int mode) {
    if (local.empty() || minimum.empty()) return false;
    std::vector<int> min = parseVersionNumbers(minimum);
    std::vector<int> loc = parseVersionNumbers(local);
    if (mode == 0) {
        // Intel drivers: only the last two numbers carry the driver build.
        if (!isIntelDriverVersion(minimum) || !isIntelDriverVersion(local)) return false;
        return loc[2] * 10000LL + loc[3] >= min[2] * 10000LL + min[3];
    }
    const std::size_t length = std::max(min.size(), loc.size());
    min.resize(length, 0);
    loc.resize(length, 0);
    for (std::size_t i = 0; i < length; ++i)
        if (loc[i] != min[i]) return loc[i] > min[i];
    return true;
}

PropertyMap checkXPUProperties(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                               const PropertyMap& properties) {
    VinoNetworkRecord& record = networkRecord(engine, networkIdentifier);
    const std::string device = record.device;
    PropertyMap copy = properties;
    if (device == "CPU") {
        copy.erase("CACHE_DIR");
        copy.erase("GPU_THROTTLE_HINT_LEVEL");
    }
    if (device != "AUTO") copy.erase("MULTI_DEVICE_PRIORITIES");
    if (device == "AUTO" || device == "CPU") {
        for (std::string_view key : kDriverKeys) copy.erase(std::string(key));
        return copy;
    }
    const Accelerator* accelerator = nullptr;
    for (const Accelerator& candidate : kAccelerators)
        if (candidate.device == device) accelerator = &candidate;
    // Indexed and composite device names are the host's explicit choice: left alone.
    if (!accelerator) return copy;

    auto read = [&](std::string_view key) {
        const auto it = copy.find(std::string(key));
        return it == copy.end() ? std::string() : anyAs<std::string>(it->second);
    };
    const std::string local = read(accelerator->localKey);
    std::string minimum = read(accelerator->minimumKey);
    if (minimum.empty()) minimum = accelerator->defaultMinimum;
    for (std::string_view key : kDriverKeys)
        if (key != accelerator->keptKey) copy.erase(std::string(key));

    if (!compareDriverVersion(minimum, local, 0)) {
        record.device = "AUTO";
        copy.insert_or_assign("MULTI_DEVICE_PRIORITIES", fmt::format("{},CPU", device));
        logMessage(engine, fmt::format("[{0}] : createNetwork : local {1} driver version: [{2}], minimum {1} driver "
                                       "version: [{3}], so change device from [{1}] to [AUTO] with [{1},CPU] "
                                       "multi-device priorities.",
                                       makeLogTag(), device, local, minimum));
    }
    return copy;
}

void setNetworkCacheDir(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                        const PropertyMap& properties) {
    VinoNetworkRecord& record = networkRecord(engine, networkIdentifier);
    // Compiling for the processor is quick; a cache would only cost disk.
    if (record.device == "CPU") return;
    std::filesystem::path directory = std::filesystem::temp_directory_path() / record.device / "ov-model-cache";
    if (auto it = properties.find("CACHE_DIR"); it != properties.end())
        directory = anyAs<std::filesystem::path>(it->second);
    logMessage(engine, fmt::format("[{}] : createNetwork : [CACHE_DIR] is [{}]", makeLogTag(),
                                   utils::pathToString(directory)));
    try {
        std::filesystem::create_directories(directory);
    } catch (const std::filesystem::filesystem_error& e) {
        raiseText(e.what());
    }
    record.core.set_property(ov::AnyMap{{ov::cache_dir.name(), pathToUtf8(directory)}});
}

ov::AnyMap parseProperties(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                           const PropertyMap& properties) {
    const unsigned device = deviceBit(networkRecord(engine, networkIdentifier).device);
    ov::AnyMap config;
    if (properties.empty()) return config;
    // Kept as it always was: the key is looked up where it came from, so nothing is refused
    // here and unknown keys simply find no rule below.
    for (const auto& entry : properties)
        if (properties.find(entry.first) == properties.end())
            raise("property name [{}] is not supported in OpenVINO. Please check your property name.", entry.first);

    for (const PropertyRule& rule : kPropertyRules) {
        if (!(rule.devices & device)) continue;
        const auto it = properties.find(std::string(rule.name));
        if (it == properties.end()) continue;
        std::string text;
        try {
            text = anyAs<std::string>(it->second);
        } catch (const std::exception& e) {
            refuseType(e, rule);
        }
        config.emplace(rule.runtimeKey, rule.convert(text, rule));
        logMessage(engine, fmt::format("[{}] : createNetwork : [{}] is [{}]", makeLogTag(), rule.name, text));
    }
    return config;
}

}  // namespace kel::vino
