#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getInputLayerNames() {
    return impl_->onCurrentNetwork([](auto& backend) { return backend.getInputLayerNames(); });
}

}  // namespace kel
