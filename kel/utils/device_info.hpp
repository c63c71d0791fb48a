#pragma once
#include <string>
#include <vector>

#include "kel/cxx/types.hpp"

namespace kel::utils {

class DeviceEnumerator;

// The devices of one kind ("CPU", "GPU" or "NPU") present now, as (driver version,
// description) rows in enumeration order. Never throws for a missing device.
std::vector<DeviceDriverInfo> GetDeviceInfo(std::string deviceName, const std::string& name_filter,
                                            int max_count);

// The same over a given enumerator.
std::vector<DeviceDriverInfo> GetDeviceInfo(std::string deviceName, const std::string& name_filter,
                                            int max_count, DeviceEnumerator& enumerator);

}  // namespace kel::utils
