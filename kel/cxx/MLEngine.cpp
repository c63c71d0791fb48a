#include "kel/cxx/MLEngine.hpp"

#include "kel/cxx/device_info.hpp"
#include "kel/cxx/engine_impl.hpp"

namespace kel {

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
    impl->engines.emplace(kOpenVINO, std::any(openvino()));
    impl->engines.emplace(kWindowsML, std::any(windows_ml()));
    impl->openvino_backend = &any_as<openvino>(impl->engines.at(kOpenVINO));
    impl->windows_ml_backend = &any_as<windows_ml>(impl->engines.at(kWindowsML));
    impl_ = std::move(impl);
}

MLEngine::~MLEngine() = default;

MLEngine& MLEngine::operator=(const MLEngine& other) {
    impl_ = other.impl_;
    return *this;
}

}  // namespace kel
