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
struct __attribute__((visibility("hidden"))) MLEngine::Impl {
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
    openvino& openvinoBackend() { return any_as<openvino>(checked_at(engines, std::string(kOpenVINO))); }
    windows_ml& windowsMlBackend() {
        return any_as<windows_ml>(checked_at(engines, std::string(kWindowsML)));
    }
};

}  // namespace kel
