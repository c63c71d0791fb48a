#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::removeNetwork(const std::string& networkIdentifier) {
    if (networkIdentifier.empty()) raise("network_id is empty.");
    auto it = impl_->networks.find(networkIdentifier);
    if (it == impl_->networks.end()) raise("not found network Id [{}].", networkIdentifier);
    if (networkIdentifier == impl_->current_network)
        raise("Could not remove current using network id [{}].", networkIdentifier);
    it->second.backend->removeNetwork(networkIdentifier);
    // The properties stored for the identifier stay: a network created again under it
    // starts from them.
    impl_->networks.erase(it);
}

}  // namespace kel
