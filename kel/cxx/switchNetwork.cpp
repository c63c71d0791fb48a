#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::switchNetwork(const std::string& networkIdentifier) {
    auto it = impl_->networks.find(networkIdentifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", networkIdentifier);
    if (networkIdentifier == impl_->current_network)
        raise("Network id [{}] is current running Network, no need to switch.", networkIdentifier);
    it->second.backend->switchNetwork(networkIdentifier);
    impl_->current_network = networkIdentifier;
    if (impl_->log_callback)
        impl_->log_callback(fmt::format("[KEL switchNetwork]: network_identifier is {}", networkIdentifier));
}

}  // namespace kel
