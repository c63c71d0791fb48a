// Before any network: the runtime libraries beside kel, the temporary plugins list each
// network's core is made from, the processor check, and the back-end's log lines.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <optional>
#include <system_error>

#include "kel/common/error.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "modules/openvino/vino_test_hooks.hpp"

namespace kel::vino {

namespace {

std::optional<std::wstring>& libraryDirectoryOverride() {
    static std::optional<std::wstring> value;
    return value;
}

// Module-wide, computed while the library loads.
const std::wstring& moduleLibraryDirectory() {
    static const std::wstring value = utils::currentModuleDirectory();
    return value;
}
[[maybe_unused]] const std::wstring& kLoadTimeDirectory = moduleLibraryDirectory();

constexpr std::string_view kPluginsXml = "<ie><plugins></plugins></ie>";

}  // namespace

std::wstring getLibraryDirectory() {
    if (libraryDirectoryOverride()) return *libraryDirectoryOverride();
    return moduleLibraryDirectory();
}

void overrideLibraryDirectory(std::optional<std::wstring> directory) {
    libraryDirectoryOverride() = std::move(directory);
}

namespace {

std::wstring runtimeLibraryPath(const std::wstring& name) {
    return getLibraryDirectory() + utils::pathSeparator() + utils::libraryPrefix() + name + L"." +
           utils::libraryExtension();
}

std::string notBesideKelText(const std::wstring& name) {
    const std::string narrow = utils::wstringToString(name);
    return fmt::format(
        "{} shared library and kel shared library are not in the same directory. Please put {} shared "
        "library in the same directory with kel shared library.",
        narrow, narrow);
}

}  // namespace

bool checkDynamicLibrary(const std::wstring& name, bool throwOnFailure) {
    const std::wstring path = runtimeLibraryPath(name);
    if (std::filesystem::exists(std::filesystem::path(path)) && utils::checkLibraryImage(path)) return true;
    std::string message = notBesideKelText(name);
    if (throwOnFailure) raiseText(std::move(message));
    std::cerr << message << std::endl;
    return false;
}

// A runtime whose file passes the check but does not load (cut short, or missing a library of
// its own) is refused with the check's text: with kel.dll linking it lazily, the alternative
// is a failure inside the first call into it.
void bindRuntimeLibrary(const std::wstring& name) {
    if (!utils::bindLazilyLinkedLibrary(runtimeLibraryPath(name))) raiseText(notBesideKelText(name));
}

// Log lines name the back-end by its chief file, the name hosts have always read in them;
// the line is the caller's, in whichever of the back-end's files it stands.
std::string makeLogTag(std::source_location location) {
    return fmt::format("modules/openvino/vino-api2.0.cpp:{}", location.line());
}

void logMessage(const vino_InferenceEngine& engine, const std::string& line) {
    if (engine.log_callback) engine.log_callback(line);
}

void remove_xml(const std::filesystem::path& path) {
    std::error_code ec;
    // symlink_status: a link planted at the name is removed itself, never followed.
    if (!std::filesystem::exists(std::filesystem::symlink_status(path, ec))) return;
    std::filesystem::remove(path, ec);
    if (ec) raiseText(ec.message());
}

std::string generateTempOVPluginsXML() {
    using Ticks = std::chrono::duration<long long, std::ratio<1, 10000000>>;
    const auto ticks = std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
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

void checkCPUFeatures(vino_InferenceEngine& engine, const std::string& networkIdentifier, bool (*hasSse42)()) {
    const std::string& device = networkRecord(engine, networkIdentifier).device;
    if (device != "CPU" && device != "AUTO") return;
    if (hasSse42()) return;
    const DevicePropertyValue name = getDeviceProperty(engine, "CPU", "FULL_DEVICE_NAME");
    const std::string* text = std::get_if<std::string>(&name);
    raise("SSE4.2 is not supported on this CPU [{}].", text ? *text : std::string());
}

}  // namespace kel::vino
