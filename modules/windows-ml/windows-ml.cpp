// The "WindowsML" engine back-end.
#include "modules/windows-ml/windows-ml.hpp"

#include <fmt/format.h>

#include <stdexcept>

#include "modules/windows-ml/os_version.hpp"

namespace kel {

struct windows_ml_InferenceEngine {
    std::string current_network;
    std::vector<std::string> supported_devices;
};

windows_ml::windows_ml() : state_(std::make_shared<windows_ml_InferenceEngine>()) {}

std::string windows_ml::version() {
    const auto v = windows_ml_platform::osVersion();
    return fmt::format("{}.{}.{}", v[0], v[1], v[2]);
}

std::string windows_ml::getNetworkDevice(const std::string&) {
    throw std::out_of_range("invalid unordered_map<K, T> key");
}

}  // namespace kel
