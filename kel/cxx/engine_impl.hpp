#pragma once
// The facade's implementation record and the helpers every MLEngine operation shares.
#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <unordered_map>
#include <vector>

#include "kel/common/error.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "kel/cxx/engine_backend.hpp"

namespace kel {

inline constexpr const char* kOpenVINO = "OpenVINO";
inline constexpr const char* kWindowsML = "WindowsML";
inline constexpr const char* kCoreML = "CoreML";

struct NetworkRecord {
    std::optional<std::string> inner_model_identifier;
    std::string engine;
    EngineBackend* backend = nullptr;  // the engine's, resolved once at creation
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

    // Ordered by name, which lists "OpenVINO" before "WindowsML". Each value holds its
    // back-end by value; `backends` reaches the same objects through their interface.
    std::map<std::string, std::any> engines;
    std::unordered_map<std::string, NetworkRecord> networks;
    std::unordered_map<std::string, PropertyMap> network_properties;
    std::string current_network;
    std::unordered_map<std::string, InnerModelRecord> inner_models;
    LogCallback log_callback;
    std::function<void*(const wchar_t*)> library_loaders[2];
    std::unordered_map<std::string, EngineBackend*> backends;  // made once at construction

    bool hasEngine(const std::string& name) const { return engines.count(name) != 0; }
    // The back-end of an engine in the table; null for any other name.
    EngineBackend* findBackend(const std::string& name) const {
        auto it = backends.find(name);
        return it == backends.end() ? nullptr : it->second;
    }
    // The back-end of a name the caller has checked, with the standard out-of-range failure.
    EngineBackend& backend(const std::string& name) const { return *checkedAt(backends, name); }

    // The steps every createNetwork form shares once its own checks have passed.
    template <class Source>
    void createChecked(MLEngine& self, const std::string& engine,
                       const std::string& networkIdentifier, const std::string& device,
                       const Source& source, const PropertyMap& properties,
                       std::optional<std::string> innerModelIdentifier);

    // The back-end of the current network. Most layer operations first require that a
    // network was created; that failure is located at the operation that asked.
    EngineBackend& currentBackend(bool requireNetwork = true,
                                  std::source_location caller = std::source_location::current()) {
        if (requireNetwork && current_network.empty())
            raiseText("Please Create a network with craeteNetwork API first.", caller);
        return *checkedAt(networks, current_network).backend;
    }
};

}  // namespace kel
