#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getCurrentEngine() {
    return checked_at(impl_->networks, impl_->current_network).engine;
}

}  // namespace kel
