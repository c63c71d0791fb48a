#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getNetworkDevice(const std::string& networkIdentifier) {
    auto it = impl_->networks.find(networkIdentifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", networkIdentifier);
    return it->second.backend->getNetworkDevice(networkIdentifier);
}

}  // namespace kel
