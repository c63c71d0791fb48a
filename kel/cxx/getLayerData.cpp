#include "kel/cxx/engine_impl.hpp"

namespace kel {

void* MLEngine::getLayerData(const std::string& layer) {
    return impl_->currentBackend().getLayerData(layer);
}

}  // namespace kel
