#pragma once
// The "OpenVINO" engine back-end. The runtime's types stay inside vino-api2.0.cpp: this
// header exposes only standard types so that the facade compiles without the runtime.
#include <any>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "kel/cxx/engine_backend.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

namespace openvino_testing {
struct Access;
}

class openvino final : public EngineBackend {
public:
    // Checks that the runtime libraries sit beside kel, then builds the engine state.
    openvino();

    // --- bring-up -----------------------------------------------------------------
    static bool checkDynamicLibrary(const std::wstring& name, bool throwOnFailure);
    static bool checkLibraryImage(const std::wstring& path);
    static std::string getLibraryArchitecture(const std::wstring& path);
    static std::string getSystemArchitecture();
    static std::wstring getLibraryDirectory();
    static std::string wstringToString(const std::wstring& text);
    std::string version() override;
    void setLogCallback(LogCallback callback) override;
    static std::string generateTempOVPluginsXML();
    static void remove_xml(const std::filesystem::path& path);
    void checkCPUFeatures(const std::string& networkIdentifier);
    static std::string makeLogTag(std::source_location loc = std::source_location::current());
    void logMessage(const std::string& line);

    // --- network properties -------------------------------------------------------
    PropertyMap checkXPUProperties(const std::string& networkIdentifier,
                                   const PropertyMap& properties);
    void setNetworkCacheDir(const std::string& networkIdentifier, const PropertyMap& properties);
    std::any parseProperties(const std::string& networkIdentifier, const PropertyMap& properties);
    static bool compareDriverVersion(const std::string& minimum, const std::string& local,
                                     int mode);
    static bool isIntelDriverVersion(const std::string& version);
    static std::vector<int> parseVersionNumbers(std::string_view text);
    std::unordered_map<std::string, std::string> getEngineMutableProperties() override;
    // GPU and NPU networks are checked against the local driver versions.
    bool wantsDriverVersions(const std::string& device) const override {
        return device == "GPU" || device == "NPU";
    }

    // --- networks -----------------------------------------------------------------
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::string& innerModelIdentifier, const PropertyMap& properties) override;
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::vector<ModelBuffer>& buffers, const PropertyMap& properties) override;
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::vector<std::filesystem::path>& files,
                       const PropertyMap& properties) override;
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const std::filesystem::path& modelPath,
                       const std::filesystem::path& weightsPath, const PropertyMap& properties);
    void createNetwork(const std::string& networkIdentifier, const std::string& device,
                       const void* xmlBuffer, const std::size_t& xmlSize,
                       const void* weightsBuffer, const std::size_t& weightsSize,
                       const PropertyMap& properties);
    void innerCreateNetwork(const std::string& networkIdentifier, const PropertyMap& properties);
    void registerModelAsInnerID(const std::string& innerModelIdentifier,
                                const std::vector<ModelBuffer>& buffers) override;
    void unregisterInnerID(const std::string& innerModelIdentifier) override;
    std::vector<std::string> getModelInnerIDs() override;
    void removeNetwork(const std::string& networkIdentifier) override;
    void switchNetwork(const std::string& networkIdentifier) override;
    std::string getNetworkDevice(const std::string& networkIdentifier) override;

    // --- layers and inference on the current network -------------------------------
    std::vector<std::string> getInputLayerNames() override;
    std::vector<std::string> getOutputLayerNames() override;
    void setLayerData(const std::string& layer, std::any data,
                      const std::vector<std::uint64_t>& dims) override;
    void* getLayerData(const std::string& layer) override;
    const std::vector<std::uint64_t> getLayerDims(const std::string& layer) override;
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer) override;
    void infer() override;

    // --- devices ------------------------------------------------------------------
    std::vector<std::string> getSupportedDevices() override;
    std::vector<std::string> getDeviceSupportProperties(const std::string& device) override;
    DevicePropertyValue getDeviceProperty(const std::string& device,
                                            const std::string& property) override;

    // Tests point the runtime-library check at a directory of their own; nullopt restores
    // the directory of kel's own file.
    static void overrideLibraryDirectory(std::optional<std::wstring> directory);

private:
    friend struct openvino_testing::Access;
    std::any engine_;  // holds the engine state (runtime types) by value
};

}  // namespace kel
