#include "kel/cxx/engine_impl.hpp"

namespace kel {

DevicePropertyValue MLEngine::getDeviceProperty(const std::string& engine, const std::string& device,
                                                const std::string& supported_property) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (device.empty()) raise("device is empty! ");
    if (supported_property.empty()) raise("supported_property is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    return impl_->backend(engine).getDeviceProperty(device, supported_property);
}

}  // namespace kel
