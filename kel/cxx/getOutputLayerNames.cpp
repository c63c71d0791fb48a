#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getOutputLayerNames() {
    return impl_->onCurrentNetwork([](auto& backend) { return backend.getOutputLayerNames(); });
}

}  // namespace kel
