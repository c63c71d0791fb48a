#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getNetworkDevice(const std::string& network_identifier) {
    auto it = impl_->networks.find(network_identifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", network_identifier);
    const std::string& engine = it->second.engine;
    if (engine.empty()) raise("Engine Name is empty!");
    if (engine == kWindowsML) return impl_->windowsMlBackend().getNetworkDevice(network_identifier);
    if (engine == kOpenVINO) return impl_->openvinoBackend().getNetworkDevice(network_identifier);
    raise("{} Not supported!", engine);
}

}  // namespace kel
