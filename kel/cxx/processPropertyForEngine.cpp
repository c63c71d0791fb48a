#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::processPropertyForEngine(const std::string& engine, PropertyMap& properties) {
    // The local driver versions are always the library's own findings, never the host's.
    properties.erase("LOCAL_GPU_DRIVER_VERSION");
    properties.erase("LOCAL_NPU_DRIVER_VERSION");
    if (engine != kOpenVINO) return;
    const std::any info = waitDeviceInfoInit(engine, 1);
    const auto* drivers = std::any_cast<std::unordered_map<std::string, DeviceDriverInfo>>(&info);
    if (!drivers) return;
    if (auto gpu = drivers->find("GPU"); gpu != drivers->end() && !gpu->second.first.empty())
        properties["LOCAL_GPU_DRIVER_VERSION"] = gpu->second.first;
    if (auto npu = drivers->find("NPU"); npu != drivers->end() && !npu->second.first.empty())
        properties["LOCAL_NPU_DRIVER_VERSION"] = npu->second.first;
}

}  // namespace kel
