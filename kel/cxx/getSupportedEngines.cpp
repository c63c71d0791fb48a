#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getSupportedEngines() {
    std::vector<std::string> names;
    names.reserve(impl_->engines.size());
    for (const auto& entry : impl_->engines) names.push_back(entry.first);
    return names;
}

}  // namespace kel
