#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::tuple<std::string, std::uint64_t> MLEngine::getLayerPrecision(const std::string& layer) {
    // No check for a created network: the lookup of the current one reports it.
    return impl_->currentBackend(false).getLayerPrecision(layer);
}

}  // namespace kel
