#include "modules/windows-ml/os_version.hpp"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/utsname.h>

#include <cstdlib>
#endif

namespace kel::windows_ml_platform {

#ifdef _WIN32
std::array<std::uint32_t, 3> osVersion() {
    // KUSER_SHARED_DATA: NtMajorVersion at 0x26C, NtMinorVersion at 0x270, NtBuildNumber at 0x260.
    const auto* page = reinterpret_cast<const unsigned char*>(0x7FFE0000);
    return {*reinterpret_cast<const std::uint32_t*>(page + 0x26C),
            *reinterpret_cast<const std::uint32_t*>(page + 0x270),
            *reinterpret_cast<const std::uint32_t*>(page + 0x260) & 0xFFFF};
}
#else
// The kernel release's first three numbers ("6.1.0-18-amd64" gives 6, 1, 0).
std::array<std::uint32_t, 3> osVersion() {
    std::array<std::uint32_t, 3> out{0, 0, 0};
    utsname u{};
    if (uname(&u) != 0) return out;
    const char* p = u.release;
    for (auto& part : out) {
        char* end = nullptr;
        part = static_cast<std::uint32_t>(std::strtoul(p, &end, 10));
        if (end == p || *end != '.') break;
        p = end + 1;
    }
    return out;
}
#endif

}  // namespace kel::windows_ml_platform
