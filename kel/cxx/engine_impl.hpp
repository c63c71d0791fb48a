#pragma once
// The facade's implementation record and the helpers every MLEngine operation shares.
#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "kel/common/error.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "modules/openvino/openvino.hpp"
#include "modules/windows-ml/windows-ml.hpp"

namespace kel {

inline constexpr const char* kOpenVINO = "OpenVINO";
inline constexpr const char* kWindowsML = "WindowsML";
inline constexpr const char* kCoreML = "CoreML";

struct NetworkRecord {
    std::optional<std::string> inner_model_identifier;
    std::string engine;
};

struct InnerModelRecord {
    std::shared_ptr<void> library;  // the last owner frees the library
    std::shared_ptr<void> model;    // released through the library's kelModelDestory
    std::string engine;
    std::string version;
};

// Members are destroyed in reverse order: log callback, inner models, current identifier,
// network properties, networks and, last, the engine back-ends.
struct KEL_HIDDEN MLEngine::Impl {
    Impl();

    // Ordered by name, which lists "OpenVINO" before "WindowsML".
    std::map<std::string, std::any> engines;
    std::unordered_map<std::string, NetworkRecord> networks;
    std::unordered_map<std::string, PropertyMap> network_properties;
    std::string current_network;
    std::unordered_map<std::string, InnerModelRecord> inner_models;
    LogCallback log_callback;
    std::function<void*(const wchar_t*)> library_loaders[2];

    bool hasEngine(const std::string& name) const { return engines.count(name) != 0; }

    // The steps every createNetwork form shares once its own checks have passed.
    template <class Source>
    void createChecked(MLEngine& self, const std::string& engine,
                       const std::string& network_identifier, const std::string& device,
                       const Source& source, const PropertyMap& properties,
                       std::optional<std::string> inner_model_identifier);

    // Runs a back-end creation; if it fails, drops what the back-end kept of the attempt so
    // that the engine stays as it was, and lets the failure through unchanged.
    template <class Create>
    void guardedCreate(const std::string& engine, const std::string& network_identifier,
                       Create&& create) {
        try {
            create();
        } catch (...) {
            forgetFailedCreation(engine, network_identifier);
            throw;
        }
    }
    void forgetFailedCreation(const std::string& engine, const std::string& network_identifier) noexcept;

    // Runs `call` on the back-end of the current network; most layer operations first
    // require that a network was created.
    template <class Call>
    decltype(auto) onCurrentNetwork(Call&& call, bool require_network = true) {
        if (require_network && current_network.empty())
            raise("Please Create a network with craeteNetwork API first.");
        const std::string& engine = currentEngine();
        if (engine == kWindowsML) return call(windowsMlBackend());
        if (engine == kOpenVINO) return call(openvinoBackend());
        raise("{} Not supported!", engine);
    }

    // The engine of the current network, with the standard out-of-range failure.
    const std::string& currentEngine() const { return checked_at(networks, current_network).engine; }
    openvino& openvinoBackend() { return *openvino_backend; }
    windows_ml& windowsMlBackend() { return *windows_ml_backend; }

    // Resolved once the back-ends exist (they live in `engines`, whose nodes never move):
    // every layer call and inference goes through them.
    openvino* openvino_backend = nullptr;
    windows_ml* windows_ml_backend = nullptr;
};

}  // namespace kel
