#include <chrono>
#include <thread>

#include "kel/cxx/device_info.hpp"
#include "kel/cxx/engine_impl.hpp"

namespace kel {

namespace {

// First row of a class whose description names Intel; other vendors are never consulted.
DeviceDriverInfo firstIntel(const std::vector<DeviceDriverInfo>& rows) {
    for (const auto& row : rows)
        if (row.second.find("Intel") != std::string::npos) return row;
    return {};
}

}  // namespace

std::any MLEngine::waitDeviceInfoInit(const std::string& engine, std::int32_t timeoutSeconds) {
    if (engine.empty() || engine != kOpenVINO) return {};
    auto& shared = device_info::table();
    auto snapshot = [&shared] {
        std::lock_guard<std::mutex> lock(shared.mutex);
        return std::make_pair(shared.rows, shared.ready.load(std::memory_order_seq_cst));
    };
    auto [rows, ready] = snapshot();
    if (!ready) {
        // One sleep to a steady deadline, without the lock; no polling.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
        std::this_thread::sleep_until(deadline);
        std::tie(rows, ready) = snapshot();
    }
    std::unordered_map<std::string, DeviceDriverInfo> drivers;
    drivers.max_load_factor(1.0f);
    if (ready) {
        drivers["GPU"] = firstIntel(rows["GPU"]);
        drivers["NPU"] = firstIntel(rows["NPU"]);
    }
    return drivers;
}

}  // namespace kel
