#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::string MLEngine::getCurrentNetworkDevice() { return getNetworkDevice(impl_->current_network); }

}  // namespace kel
