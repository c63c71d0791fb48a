#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getCurrentEngine() {
    return checkedAt(impl_->networks, impl_->current_network).engine;
}

}  // namespace kel
