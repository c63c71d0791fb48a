#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::unordered_map<std::string, std::string> MLEngine::getEngineMutableProperties(const std::string& engine) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (EngineBackend* backend = impl_->findBackend(engine)) return backend->getEngineMutableProperties();
    raise("Engine [{}] Not supported!", engine);
}

}  // namespace kel
