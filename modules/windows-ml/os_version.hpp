#pragma once
#include <array>
#include <cstdint>

namespace kel::windows_ml_platform {

// Major, minor and build number of the running operating system.
std::array<std::uint32_t, 3> osVersion();

}  // namespace kel::windows_ml_platform
