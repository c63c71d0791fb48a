#pragma once
// Process-wide device information, gathered once on a detached thread by the first engine.
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "kel/cxx/types.hpp"

namespace kel::device_info {

struct Table {
    std::mutex mutex;
    std::atomic<bool> ready{false};
    std::unordered_map<std::string, std::vector<DeviceDriverInfo>> rows;  // "CPU", "GPU", "NPU"
};

// The one table of the process.
Table& table();

// Starts the gathering thread the first time it is called in a process; later calls return.
void startOnce();

// Gathers one device class; the default asks kel::utils::GetDeviceInfo.
using Gatherer = std::function<std::vector<DeviceDriverInfo>(const std::string& deviceClass)>;

}  // namespace kel::device_info
