#include <algorithm>

#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::unregisterInnerID(const std::string& inner_model_identifier) {
    auto it = impl_->inner_models.find(inner_model_identifier);
    if (it == impl_->inner_models.end()) raise("not found Model Id [{}] for unregister.", inner_model_identifier);
    const auto users = std::count_if(impl_->networks.begin(), impl_->networks.end(), [&](const auto& entry) {
        return entry.second.inner_model_identifier == inner_model_identifier;
    });
    if (users > 0)
        raise("[{}] network(s) is/are using inner model [{}]. Please delete it/them first.", users,
              inner_model_identifier);
    const std::string& engine = it->second.engine;
    if (engine.empty()) raise("engine_name is empty. Please check");
    if (EngineBackend* backend = impl_->findBackend(engine))
        backend->unregisterInnerID(inner_model_identifier);
    else if (engine != kCoreML)  // a CoreML record has nothing to release in a back-end
        raise("[{}] not supported", engine);
    // Releasing the record destroys the model object, then frees the library with its last owner.
    impl_->inner_models.erase(it);
}

}  // namespace kel
