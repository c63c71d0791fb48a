#include <stdexcept>

#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) {
    // Deliberately unlike the other layer operations: no created-network check.
    impl_->currentBackend(false).setLayerData(layer, std::move(data), dims);
}

}  // namespace kel
