// The OpenVINO back-end as the Windows test programs have it, since MinGW cannot link its
// runtime: the engine is built, and any OpenVINO operation fails clearly.
#include "kel/common/error.hpp"
#include "modules/openvino/openvino.hpp"

namespace kel {
namespace vino {
struct vino_InferenceEngine {};
}  // namespace vino

namespace {
[[noreturn]] void unlinked() { raise("OpenVINO is not linked into this MinGW test program."); }
}  // namespace

openvino::openvino() = default;
openvino::openvino(const openvino& other) : EngineBackend(other) {}
openvino::openvino(openvino&&) noexcept = default;
openvino::~openvino() = default;
std::string openvino::version() { unlinked(); }
void openvino::setLogCallback(LogCallback) {}
std::unordered_map<std::string, std::string> openvino::getEngineMutableProperties() { unlinked(); }
void openvino::createNetwork(const std::string&, const std::string&, const std::string&,
                             const PropertyMap&) { unlinked(); }
void openvino::createNetwork(const std::string&, const std::string&, const std::vector<ModelBuffer>&,
                             const PropertyMap&) { unlinked(); }
void openvino::createNetwork(const std::string&, const std::string&, const std::vector<std::filesystem::path>&,
                             const PropertyMap&) { unlinked(); }
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

}  // namespace kel
