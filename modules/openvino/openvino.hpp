#pragma once
// The "OpenVINO" engine back-end. The runtime's types stay in the back-end's own files: this
// header exposes only standard types so that the facade compiles without the runtime.
#include <any>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "kel/cxx/engine_backend.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

namespace vino {
struct vino_InferenceEngine;
}

class openvino final : public EngineBackend {
public:
    // Checks that the runtime libraries sit beside kel, then builds the engine state.
    openvino();
    // The facade holds engines by value in a std::any, which insists on a copy constructor.
    // Nothing copies an engine at run time; a copy copies the state, as it did when the
    // state itself sat in a std::any.
    openvino(const openvino& other);
    openvino(openvino&& other) noexcept;
    ~openvino() override;

    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::string& innerModelIdentifier, const PropertyMap& properties) override;
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::vector<ModelBuffer>& buffers, const PropertyMap& properties) override;
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::vector<std::filesystem::path>& files, const PropertyMap& properties) override;
    void removeNetwork(const std::string& networkIdentifier) override;
    void switchNetwork(const std::string& networkIdentifier) override;
    std::string getNetworkDevice(const std::string& networkIdentifier) override;

    void registerModelAsInnerID(const std::string& innerModelIdentifier,
                                const std::vector<ModelBuffer>& buffers) override;
    void unregisterInnerID(const std::string& innerModelIdentifier) override;
    std::vector<std::string> getModelInnerIDs() override;

    std::vector<std::string> getInputLayerNames() override;
    std::vector<std::string> getOutputLayerNames() override;
    void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) override;
    void* getLayerData(const std::string& layer) override;
    const std::vector<std::uint64_t> getLayerDims(const std::string& layer) override;
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer) override;
    void infer() override;

    std::vector<std::string> getSupportedDevices() override;
    std::unordered_map<std::string, std::string> getEngineMutableProperties() override;
    std::vector<std::string> getDeviceSupportProperties(const std::string& device) override;
    DevicePropertyValue getDeviceProperty(const std::string& device, const std::string& property) override;
    std::string version() override;
    void setLogCallback(LogCallback callback) override;
    // GPU and NPU networks are checked against the local driver versions.
    bool wantsDriverVersions(const std::string& device) const override {
        return device == "GPU" || device == "NPU";
    }

private:
    // The state, failing as an empty std::any would (a moved-from engine has none).
    vino::vino_InferenceEngine& engine();

    std::unique_ptr<vino::vino_InferenceEngine> engine_;
};

}  // namespace kel
