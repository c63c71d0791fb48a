#include "kel/utils/device_info.hpp"

namespace kel::utils {

// Placeholder until the platform enumerators land: no devices are reported.
std::vector<DeviceDriverInfo> GetDeviceInfo(std::string, const std::string&, int) { return {}; }

}  // namespace kel::utils
