#pragma once
// Helpers of the Windows test programs: those of the other suites, and where this program is.
#include <windows.h>

#include <filesystem>

#include "tests/support/support.hpp"

namespace kel::wintest {

// The directory of this test program, where the plugin DLLs are built.
inline std::filesystem::path programDir() {
    wchar_t name[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, name, MAX_PATH);
    return std::filesystem::path(name).parent_path();
}

}  // namespace kel::wintest
