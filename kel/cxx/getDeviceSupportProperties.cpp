#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getDeviceSupportProperties(const std::string& engine,
                                                              const std::string& device) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (device.empty()) raise("device is empty! ");
    if (device == "AUTO") raise("could not get the property for AUTO device.");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    return impl_->backend(engine).getDeviceSupportProperties(device);
}

}  // namespace kel
