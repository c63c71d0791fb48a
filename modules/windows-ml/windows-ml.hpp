#pragma once
// The "WindowsML" engine back-end: ONNX models through the platform's machine-learning
// runtime (Windows ML on Windows, ONNX Runtime elsewhere). No runtime types appear here.
#include <any>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "kel/cxx/types.hpp"

namespace kel {

namespace windows_ml_platform {
class Platform;
}

struct windows_ml_InferenceEngine;

class windows_ml {
public:
    windows_ml();
    // Over another machine-learning runtime than the platform's own (tests use a fake).
    explicit windows_ml(std::shared_ptr<windows_ml_platform::Platform> platform);

    std::vector<std::string> getSupportedDevices();
    void registerModelAsInnerID(const std::string& inner_id, const std::vector<ModelBuffer>& buffers);
    void unregisterInnerID(const std::string& inner_id);
    std::vector<std::string> getModelInnerIDs();

    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::string& inner_id);
    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::vector<ModelBuffer>& buffers);
    void createNetwork(const std::string& network_id, const std::string& device,
                       const std::vector<std::filesystem::path>& files);
    void createNetwork(const std::string& network_id, const std::string& device, const void* data,
                       const std::size_t& size);
    void switchNetwork(const std::string& network_id);
    void removeNetwork(const std::string& network_id);
    std::string getNetworkDevice(const std::string& network_id);

    std::vector<std::string> getInputLayerNames();
    std::vector<std::string> getOutputLayerNames();
    void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims,
                      bool internal);
    void* getLayerData(const std::string& layer);
    const std::vector<std::uint64_t> getLayerDims(const std::string& layer);
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer);
    void infer();

    std::unordered_map<std::string, std::string> getEngineMutableProperties();
    std::string version();

private:
    std::shared_ptr<windows_ml_InferenceEngine> state_;
};

}  // namespace kel
