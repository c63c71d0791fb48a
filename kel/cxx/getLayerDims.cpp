#include "kel/cxx/engine_impl.hpp"

namespace kel {

const std::vector<std::uint64_t> MLEngine::getLayerDims(const std::string& layer) const {
    return impl_->currentBackend().getLayerDims(layer);
}

}  // namespace kel
