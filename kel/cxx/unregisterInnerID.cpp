#include <algorithm>

#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::unregisterInnerID(const std::string& innerModelIdentifier) {
    auto it = impl_->inner_models.find(innerModelIdentifier);
    if (it == impl_->inner_models.end()) raise("not found Model Id [{}] for unregister.", innerModelIdentifier);
    const auto users = std::count_if(impl_->networks.begin(), impl_->networks.end(), [&](const auto& entry) {
        return entry.second.inner_model_identifier == innerModelIdentifier;
    });
    if (users > 0)
        raise("[{}] network(s) is/are using inner model [{}]. Please delete it/them first.", users,
              innerModelIdentifier);
    const std::string& engine = it->second.engine;  // never empty: registration refuses that
    if (EngineBackend* backend = impl_->findBackend(engine))
        backend->unregisterInnerID(innerModelIdentifier);
    else if (engine != kCoreML)  // a CoreML record has nothing to release in a back-end
        raise("[{}] not supported", engine);
    // Releasing the record destroys the model object, then frees the library with its last owner.
    impl_->inner_models.erase(it);
}

}  // namespace kel
