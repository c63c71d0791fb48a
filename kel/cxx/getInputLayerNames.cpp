#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getInputLayerNames() {
    return impl_->currentBackend().getInputLayerNames();
}

}  // namespace kel
