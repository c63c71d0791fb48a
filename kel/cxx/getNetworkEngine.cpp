#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getNetworkEngine(const std::string& networkIdentifier) {
    if (networkIdentifier.empty()) raise("identifier is empty.");
    auto it = impl_->networks.find(networkIdentifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", networkIdentifier);
    return it->second.engine;
}

}  // namespace kel
