#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getNetworkDevice(const std::string& network_identifier) {
    auto it = impl_->networks.find(network_identifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", network_identifier);
    return it->second.backend->getNetworkDevice(network_identifier);
}

}  // namespace kel
