#include "kel/cxx/MLEngine.hpp"

#include "kel/cxx/device_info.hpp"
#include "kel/cxx/engine_impl.hpp"
#include "modules/openvino/openvino.hpp"
#include "modules/windows-ml/windows-ml.hpp"

namespace kel {

std::vector<EngineRegistration>& engineRegistry() {
    static std::vector<EngineRegistration> registry{
        engineRegistration<openvino>(kOpenVINO),
        engineRegistration<windows_ml>(kWindowsML),
    };
    return registry;
}

MLEngine::Impl::Impl() {
    networks.max_load_factor(1.0f);
    network_properties.max_load_factor(1.0f);
    inner_models.max_load_factor(1.0f);
    device_info::startOnce();
}

MLEngine::MLEngine(LibraryLoader, LibraryLoader) {
    // The loaders are accepted for hosts that pass them; plugin model libraries are loaded
    // by kel itself. A throwing back-end leaves nothing behind: impl is still local.
    auto impl = std::make_shared<Impl>();
    for (const auto& registration : engineRegistry()) {
        // Map nodes never move: the interface pointer stays valid for the engine's life.
        std::any& held = impl->engines.emplace(registration.name, registration.make()).first->second;
        impl->backends.emplace(registration.name, &registration.view(held));
    }
    impl_ = std::move(impl);
}

MLEngine::~MLEngine() = default;

MLEngine& MLEngine::operator=(const MLEngine& other) {
    impl_ = other.impl_;
    return *this;
}

}  // namespace kel
