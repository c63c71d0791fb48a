// The "OpenVINO" engine back-end: runtime bring-up, network properties, creation, layer
// data, inference and device queries over the OpenVINO runtime.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <openvino/openvino.hpp>
#include <system_error>
#include <unordered_map>

#ifdef _WIN32
#include <windows.h>

#include <fstream>
#include <intrin.h>
#else
#include <cpuid.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

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

struct VinoNetworkRecord {
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

bool hostHasSse42() {
#ifdef _WIN32
    int regs[4] = {};
    __cpuid(regs, 1);
    return (regs[2] & (1 << 20)) != 0;
#else
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
    return (c & bit_SSE4_2) != 0;
#endif
}

bool (*g_sse42Probe)() = &hostHasSse42;

std::string currentThreadIdText() {
#ifdef _WIN32
    return std::to_string(GetCurrentThreadId());
#else
    return std::to_string(static_cast<long>(syscall(SYS_gettid)));
#endif
}

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

}  // namespace

namespace openvino_testing {
void setSse42Probe(bool (*probe)()) { g_sse42Probe = probe ? probe : &hostHasSse42; }
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
    const std::string name = fmt::format("{}-{}.xml", currentThreadIdText(), ticks);
    const std::filesystem::path path = std::filesystem::temp_directory_path() / name;
    try {
        remove_xml(path);
#ifdef _WIN32
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!out) raise("Could not open file at {}", utils::pathToString(path));
        out.write(kPluginsXml.data(), static_cast<std::streamsize>(kPluginsXml.size()));
        out.close();
#else
        // Created exclusively and never through a link, so nothing planted at the name is
        // written to.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) raise("Could not open file at {}", utils::pathToString(path));
        const ssize_t written = ::write(fd, kPluginsXml.data(), kPluginsXml.size());
        ::close(fd);
        if (written != static_cast<ssize_t>(kPluginsXml.size()))
            raise("Could not open file at {}", utils::pathToString(path));
#endif
    } catch (...) {
        try {
            remove_xml(path);
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
    const DevicePropertyValue name = get_device_property("CPU", "FULL_DEVICE_NAME");
    const std::string* text = std::get_if<std::string>(&name);
    raise("SSE4.2 is not supported on this CPU [{}].", text ? *text : std::string());
}

std::string openvino::getNetworkDevice(const std::string& networkIdentifier) {
    return checked_at(state(engine_).networks, networkIdentifier, kOrderedMapKeyText).device;
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

DevicePropertyValue openvino::get_device_property(const std::string& device,
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
