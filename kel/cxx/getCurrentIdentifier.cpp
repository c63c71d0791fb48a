#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getCurrentIdentifier() { return impl_->current_network; }

}  // namespace kel
