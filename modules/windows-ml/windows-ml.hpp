#pragma once
// The "WindowsML" engine back-end: ONNX models through the platform's machine-learning
// runtime (Windows ML on Windows, ONNX Runtime elsewhere). No runtime types appear here.
#include <any>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "kel/cxx/engine_backend.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

namespace windows_ml_platform {
class Platform;
struct Stream;
}

struct windows_ml_InferenceEngine;

class windows_ml final : public EngineBackend {
public:
    windows_ml();
    // Over another machine-learning runtime than the platform's own (tests use a fake).
    explicit windows_ml(std::shared_ptr<windows_ml_platform::Platform> platform);

    std::vector<std::string> getSupportedDevices() override;
    void registerModelAsInnerID(const std::string& inner_id, const std::vector<ModelBuffer>& buffers) override;
    void unregisterInnerID(const std::string& inner_id) override;
    std::vector<std::string> getModelInnerIDs() override;

    // Network properties are OpenVINO's; this engine takes none.
    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::string& inner_id, const PropertyMap& = {}) override;
    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::vector<ModelBuffer>& buffers, const PropertyMap& = {}) override;
    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::vector<std::filesystem::path>& files, const PropertyMap& = {}) override;
    void createNetwork(const std::string& network_id, const std::string& device, const void* data,
                       const std::size_t& size);
    void switchNetwork(const std::string& network_id) override;
    void removeNetwork(const std::string& network_id) override;
    std::string getNetworkDevice(const std::string& network_id) override;
    // A failed creation may have made the failed network current: the facade's is restored.
    void forgetFailedCreation(const std::string& network_id, const std::string& facade_current) override;

    std::vector<std::string> getInputLayerNames() override;
    std::vector<std::string> getOutputLayerNames() override;
    void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) override {
        setLayerData(layer, std::move(data), dims, false);
    }
    void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims,
                      bool internal);
    void* getLayerData(const std::string& layer) override;
    const std::vector<std::uint64_t> getLayerDims(const std::string& layer) override;
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer) override;
    void infer() override;

    std::unordered_map<std::string, std::string> getEngineMutableProperties() override;
    std::string version() override;

private:
    // The common creation step, with `store` writing the model bytes into the new stream.
    void createFromStream(
        const std::string& network_id, const std::string& device,
        const std::function<void(windows_ml_platform::Platform&, windows_ml_platform::Stream&)>& store);

    std::shared_ptr<windows_ml_InferenceEngine> state_;
};

}  // namespace kel
