#include "kel/cxx/engine_impl.hpp"

namespace kel {

std::vector<std::string> MLEngine::getModelInnerIDs(const std::string& engine) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    return impl_->backend(engine).getModelInnerIDs();
}

}  // namespace kel
