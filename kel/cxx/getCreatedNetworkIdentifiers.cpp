#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getCreatedNetworkIdentifiers() {
    std::vector<std::string> identifiers;
    identifiers.reserve(impl_->networks.size());
    for (const auto& entry : impl_->networks) identifiers.push_back(entry.first);
    return identifiers;
}

}  // namespace kel
