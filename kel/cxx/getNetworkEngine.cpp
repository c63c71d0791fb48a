#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getNetworkEngine(const std::string& network_identifier) {
    if (network_identifier.empty()) raise("identifier is empty.");
    auto it = impl_->networks.find(network_identifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", network_identifier);
    return it->second.engine;
}

}  // namespace kel
