#pragma once
// Helpers of the Windows test programs.
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kel/c/kel.h"

namespace kel::wintest {

// The directory of this test program, where the plugin DLLs are built.
inline std::filesystem::path programDir() {
    wchar_t name[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, name, MAX_PATH);
    return std::filesystem::path(name).parent_path();
}

inline std::filesystem::path dataDir() { return KEL_TEST_DATA_DIR; }

// The handle's pending text, cleared; empty when there is none.
inline std::string takeText(void* handle) {
    std::uint64_t n = 0;
    if (kelGetExceptionStringLength(handle, &n) != 0) return {};
    std::string text(n, '\0');
    kelGetExceptionString(handle, text.data());
    kelResetExceptionString(handle);
    return text;
}

// Everything written to standard error while `f` runs.
template <class F>
std::string capturedStderr(F&& f) {
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

}  // namespace kel::wintest
