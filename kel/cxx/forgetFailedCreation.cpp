#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::Impl::forgetFailedCreation(const std::string& engine,
                                          const std::string& network_identifier) noexcept {
    try {
        if (engine == kOpenVINO) {
            openvinoBackend().removeNetwork(network_identifier);
        } else if (engine == kWindowsML) {
            auto& backend = windowsMlBackend();
            backend.removeNetwork(network_identifier);
            // The back-end may have made the failed network its current one.
            auto it = networks.find(current_network);
            if (it != networks.end() && it->second.engine == kWindowsML) backend.switchNetwork(current_network);
        }
    } catch (...) {
        // The creation's own failure is what the host needs to see.
    }
}

}  // namespace kel
