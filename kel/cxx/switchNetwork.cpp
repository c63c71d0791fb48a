#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::switchNetwork(const std::string& network_identifier) {
    auto it = impl_->networks.find(network_identifier);
    if (it == impl_->networks.end())
        raise("Network id [{}] not exists or created. Please check.", network_identifier);
    if (network_identifier == impl_->current_network)
        raise("Network id [{}] is current running Network, no need to switch.", network_identifier);
    it->second.backend->switchNetwork(network_identifier);
    impl_->current_network = network_identifier;
    if (impl_->log_callback)
        impl_->log_callback(fmt::format("[KEL switchNetwork]: network_identifier is {}", network_identifier));
}

}  // namespace kel
