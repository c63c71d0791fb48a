#pragma once
#include <any>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "kel/cxx/KELException.hpp"
#include "kel/cxx/export.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

// The object a host owns to run networks on the "OpenVINO" and "WindowsML" engines.
// Not internally synchronised: use one engine object from one thread at a time.
class KEL_API MLEngine {
public:
    explicit MLEngine(LibraryLoader loader = nullptr, LibraryLoader second_loader = nullptr);
    ~MLEngine();
    // Shares the implementation: both objects then refer to the same engine state.
    MLEngine& operator=(const MLEngine& other);
    MLEngine(const MLEngine&) = delete;

    // Engines and versions
    std::string version();
    std::string version(const std::string& engine);
    std::vector<std::string> getSupportedEngines();
    std::string getCurrentEngine();
    std::string getCurrentIdentifier();
    std::string getCurrentNetworkDevice();

    // Networks
    void createNetwork(const std::string& engine, const std::string& networkIdentifier,
                       const std::string& device, const std::string& innerModelIdentifier,
                       const PropertyMap& properties);
    void createNetwork(const std::string& engine, const std::string& networkIdentifier,
                       const std::string& device, const std::vector<ModelBuffer>& modelBuffers,
                       const PropertyMap& properties);
    void createNetwork(const std::string& engine, const std::string& networkIdentifier,
                       const std::string& device, const std::vector<std::string>& modelFiles,
                       const PropertyMap& properties);
    void createNetwork(const std::string& engine, const std::string& networkIdentifier,
                       const std::string& device, const std::vector<std::wstring>& modelFiles,
                       const PropertyMap& properties);
    void createNetwork(const std::string& engine, const std::string& networkIdentifier,
                       const std::string& device,
                       const std::vector<std::filesystem::path>& modelFiles,
                       const PropertyMap& properties);
    void removeNetwork(const std::string& networkIdentifier);
    void switchNetwork(const std::string& networkIdentifier);
    std::vector<std::string> getCreatedNetworkIdentifiers();
    std::string getNetworkEngine(const std::string& networkIdentifier);
    std::string getNetworkDevice(const std::string& networkIdentifier);

    // Inner models from plugin model libraries
    void registerModelAsInnerID(const std::string& innerModelIdentifier,
                                const std::filesystem::path& library_path);
    void unregisterInnerID(const std::string& innerModelIdentifier);
    std::vector<std::string> getModelInnerIDs(const std::string& engine);

    // Layers and inference on the current network
    std::vector<std::string> getInputLayerNames();
    std::vector<std::string> getOutputLayerNames();
    const std::vector<std::uint64_t> getLayerDims(const std::string& layer) const;
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer);
    void* getLayerData(const std::string& layer);
    void setLayerData(const std::string& layer, std::any data,
                      const std::vector<std::uint64_t>& dims);
    void infer();

    // Engine and device properties
    std::vector<std::string> getSupportedDevices(const std::string& engine);
    std::vector<std::string> getDeviceSupportProperties(const std::string& engine,
                                                        const std::string& device);
    DevicePropertyValue getDeviceProperty(const std::string& engine, const std::string& device,
                                          const std::string& supported_property);
    std::unordered_map<std::string, std::string> getEngineMutableProperties(
        const std::string& engine);
    void setEnginePropertyForNetwork(const std::string& engine,
                                     const std::string& networkIdentifier,
                                     const std::string& property_key,
                                     const std::any& propertyValue);
    void processPropertyForEngine(const std::string& engine, PropertyMap& properties);
    std::any waitDeviceInfoInit(const std::string& engine, std::int32_t timeoutSeconds);

    // Logging
    void setLogCallback(LogCallback callback);

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace kel
