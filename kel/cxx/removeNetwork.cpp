#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::removeNetwork(const std::string& network_identifier) {
    if (network_identifier.empty()) raise("network_id is empty.");
    auto it = impl_->networks.find(network_identifier);
    if (it == impl_->networks.end()) raise("not found network Id [{}].", network_identifier);
    if (network_identifier == impl_->current_network)
        raise("Could not remove current using network id [{}].", network_identifier);
    it->second.backend->removeNetwork(network_identifier);
    // The properties stored for the identifier stay: a network created again under it
    // starts from them.
    impl_->networks.erase(it);
}

}  // namespace kel
