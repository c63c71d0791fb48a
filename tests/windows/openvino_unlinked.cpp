// Stands in for the OpenVINO back-end in the Windows test programs: OpenVINO's Windows C++
// library has MSVC's C++ ABI, which MinGW cannot link (the back-end itself is compiled, not
// linked, in this build). The engine is built; any OpenVINO operation fails clearly.
#include "kel/common/error.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"
#include "modules/openvino/openvino.hpp"

namespace kel {
namespace {
[[noreturn]] void unlinked() { raise("OpenVINO is not linked into this MinGW test program."); }
}  // namespace

openvino::openvino() = default;
bool openvino::checkDynamicLibrary(const std::wstring&, bool) { unlinked(); }
bool openvino::checkLibraryImage(const std::wstring& path) { return utils::checkLibraryImage(path); }
std::string openvino::getLibraryArchitecture(const std::wstring& path) {
    return utils::getLibraryArchitecture(path);
}
std::string openvino::getSystemArchitecture() { return utils::getSystemArchitecture(); }
std::wstring openvino::getLibraryDirectory() { return utils::currentModuleDirectory(); }
std::string openvino::wstringToString(const std::wstring& text) { return utils::wstringToString(text); }
std::string openvino::version() { unlinked(); }
void openvino::setLogCallback(LogCallback) {}
std::string openvino::generateTempOVPluginsXML() { unlinked(); }
void openvino::remove_xml(const std::filesystem::path&) { unlinked(); }
void openvino::checkCPUFeatures(const std::string&) { unlinked(); }
std::string openvino::makeLogTag(std::source_location) { unlinked(); }
void openvino::logMessage(const std::string&) {}
PropertyMap openvino::checkXPUProperties(const std::string&, const PropertyMap&) { unlinked(); }
void openvino::setNetworkCacheDir(const std::string&, const PropertyMap&) { unlinked(); }
std::any openvino::parseProperties(const std::string&, const PropertyMap&) { unlinked(); }
bool openvino::compareDriverVersion(const std::string&, const std::string&, int) { unlinked(); }
bool openvino::isIntelDriverVersion(const std::string&) { unlinked(); }
std::vector<int> openvino::parseVersionNumbers(std::string_view) { unlinked(); }
std::unordered_map<std::string, std::string> openvino::getEngineMutableProperties() { unlinked(); }
void openvino::createNetwork(const std::string&, const std::string&, const std::string&, const PropertyMap&) {
    unlinked();
}
void openvino::createNetwork(const std::string&, const std::string&, const std::vector<ModelBuffer>&,
                             const PropertyMap&) {
    unlinked();
}
void openvino::createNetwork(const std::string&, const std::string&, const std::vector<std::filesystem::path>&,
                             const PropertyMap&) {
    unlinked();
}
void openvino::createNetwork(const std::string&, const std::string&, const std::filesystem::path&,
                             const std::filesystem::path&, const PropertyMap&) {
    unlinked();
}
void openvino::createNetwork(const std::string&, const std::string&, const void*, const std::size_t&, const void*,
                             const std::size_t&, const PropertyMap&) {
    unlinked();
}
void openvino::innerCreateNetwork(const std::string&, const PropertyMap&) { unlinked(); }
void openvino::registerModelAsInnerID(const std::string&, const std::vector<ModelBuffer>&) { unlinked(); }
void openvino::unregisterInnerID(const std::string&) { unlinked(); }
std::vector<std::string> openvino::getModelInnerIDs() { return {}; }
void openvino::removeNetwork(const std::string&) { unlinked(); }
void openvino::switchNetwork(const std::string&) { unlinked(); }
std::string openvino::getNetworkDevice(const std::string&) { unlinked(); }
std::vector<std::string> openvino::getInputLayerNames() { unlinked(); }
std::vector<std::string> openvino::getOutputLayerNames() { unlinked(); }
void openvino::setLayerData(const std::string&, std::any, const std::vector<std::uint64_t>&) { unlinked(); }
void* openvino::getLayerData(const std::string&) { unlinked(); }
const std::vector<std::uint64_t> openvino::getLayerDims(const std::string&) { unlinked(); }
std::tuple<std::string, std::uint64_t> openvino::getLayerPrecision(const std::string&) { unlinked(); }
void openvino::infer() { unlinked(); }
std::vector<std::string> openvino::getSupportedDevices() { unlinked(); }
std::vector<std::string> openvino::getDeviceSupportProperties(const std::string&) { unlinked(); }
DevicePropertyValue openvino::getDeviceProperty(const std::string&, const std::string&) { unlinked(); }
void openvino::overrideLibraryDirectory(std::optional<std::wstring>) {}

}  // namespace kel
