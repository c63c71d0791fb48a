#pragma once
// What the facade asks of an engine. Each engine is one class deriving from EngineBackend
// and one line in the registry (engineRegistry); the facade never names an engine to
// choose its code.
#include <any>
#include <cstdint>
#include <filesystem>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kel/common/error.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

class EngineBackend {
public:
    virtual ~EngineBackend() = default;

    // Networks; the back-end keeps its own current network, set by creation and switch.
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::string& innerModelIdentifier, const PropertyMap& properties) = 0;
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::vector<ModelBuffer>& buffers, const PropertyMap& properties) = 0;
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::vector<std::filesystem::path>& files,
                               const PropertyMap& properties) = 0;
    virtual void removeNetwork(const std::string& networkIdentifier) = 0;
    virtual void switchNetwork(const std::string& networkIdentifier) = 0;
    virtual std::string getNetworkDevice(const std::string& networkIdentifier) = 0;

    // Inner models.
    virtual void registerModelAsInnerID(const std::string& innerModelIdentifier,
                                        const std::vector<ModelBuffer>& buffers) = 0;
    virtual void unregisterInnerID(const std::string& innerModelIdentifier) = 0;
    virtual std::vector<std::string> getModelInnerIDs() = 0;

    // Layers and inference on the back-end's current network.
    virtual std::vector<std::string> getInputLayerNames() = 0;
    virtual std::vector<std::string> getOutputLayerNames() = 0;
    virtual void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) = 0;
    virtual void* getLayerData(const std::string& layer) = 0;
    virtual const std::vector<std::uint64_t> getLayerDims(const std::string& layer) = 0;
    virtual std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer) = 0;
    virtual void infer() = 0;

    // Devices, properties, version, logging.
    virtual std::vector<std::string> getSupportedDevices() = 0;
    virtual std::unordered_map<std::string, std::string> getEngineMutableProperties() = 0;
    virtual std::vector<std::string> getDeviceSupportProperties(const std::string&) { return {}; }
    virtual DevicePropertyValue getDeviceProperty(const std::string&, const std::string&) { return {}; }
    virtual std::string version() = 0;
    virtual void setLogCallback(LogCallback) {}

    // Engine-specific steps of the facade's operations, with the common behaviour as default.
    // Whether a network for `device` gets the local driver versions among its properties.
    virtual bool wantsDriverVersions(const std::string& /*device*/) const { return false; }
    // Drops what a failed creation left; `facade_current` is the facade's current network if
    // it belongs to this back-end, else empty. Must not throw further than the caller allows.
    virtual void forgetFailedCreation(const std::string& networkIdentifier, const std::string& /*facade_current*/) {
        removeNetwork(networkIdentifier);
    }
};

// How the engine table makes an engine and reaches it: the back-end object by value in a
// std::any, seen through EngineBackend.
struct EngineRegistration {
    std::string name;
    std::any (*make)();
    EngineBackend& (*view)(std::any&);
};

template <class Backend>
EngineRegistration engineRegistration(std::string name) {
    return {std::move(name), [] { return std::any(Backend()); },
            [](std::any& held) -> EngineBackend& { return anyAs<Backend>(held); }};
}

// The engines each new MLEngine constructs, in this order (MLEngine.cpp).
std::vector<EngineRegistration>& engineRegistry();

}  // namespace kel
