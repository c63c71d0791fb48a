#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getOutputLayerNames() {
    return impl_->currentBackend().getOutputLayerNames();
}

}  // namespace kel
