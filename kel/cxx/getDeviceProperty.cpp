#include "kel/cxx/engine_impl.hpp"

namespace kel {

DevicePropertyValue MLEngine::getDeviceProperty(const std::string& engine, const std::string& device,
                                                const std::string& supported_property) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (device.empty()) raise("device is empty! ");
    if (supported_property.empty()) raise("supported_property is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (engine == kOpenVINO) return impl_->openvinoBackend().get_device_property(device, supported_property);
    return std::monostate{};
}

}  // namespace kel
