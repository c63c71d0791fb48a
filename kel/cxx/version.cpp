#include "kel/cxx/engine_impl.hpp"

namespace kel {

namespace {
constexpr const char* kLibraryVersion = "2025.10.23-78560f91(x64)";
}

std::string MLEngine::version() { return kLibraryVersion; }

std::string MLEngine::version(const std::string& engine) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    // A fresh back-end answers, not the table's instance.
    for (const auto& registration : engineRegistry()) {
        if (registration.name != engine) continue;
        std::any fresh = registration.make();
        return registration.view(fresh).version();
    }
    return impl_->backend(engine).version();
}

}  // namespace kel
