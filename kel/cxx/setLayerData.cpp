#include <stdexcept>

#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) {
    // Deliberately unlike the other layer operations: no created-network check, and an
    // unknown engine is a plain runtime error.
    const std::string& engine = impl_->currentEngine();
    if (engine == kWindowsML) {
        impl_->windowsMlBackend().setLayerData(layer, data, dims, false);
    } else if (engine == kOpenVINO) {
        impl_->openvinoBackend().setLayerData(layer, data, dims);
    } else {
        throw std::runtime_error(fmt::format("{} Not supported!", engine));
    }
}

}  // namespace kel
