// The shared-library loader and the library-image check on real DLLs and Wine's loader.
#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "tests/windows/support.hpp"

namespace {

namespace fs = std::filesystem;
using kel::wintest::programDir;
using testing::HasSubstr;

const fs::path kPlugin = programDir() / "kel_pm_windowsml_two_io.dll";

using kel::test::TempDir;

template <class F>
std::string errorOf(F&& f) {
    return kel::test::thrownText(std::forward<F>(f));
}

std::wstring dllDirectory() {
    wchar_t dir[MAX_PATH] = {};
    GetDllDirectoryW(MAX_PATH, dir);
    return dir;
}

fs::path copyWithBytes(const fs::path& from, const fs::path& to, std::size_t keep, std::size_t patch_at = 0,
                       std::uint16_t patch = 0) {
    std::ifstream in(from, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (keep) bytes.resize(keep);
    if (patch_at) std::memcpy(bytes.data() + patch_at, &patch, sizeof patch);
    std::ofstream(to, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return to;
}

std::uint32_t peOffset(const fs::path& dll) {
    std::ifstream in(dll, std::ios::binary);
    std::uint32_t offset = 0;
    in.seekg(60);
    in.read(reinterpret_cast<char*>(&offset), 4);
    return offset;
}

TEST(ImageCheck, RealDllsPassAndTheirMachineIsNamed) {
    EXPECT_EQ(kel::utils::getSystemArchitecture(), "WIN-AMD64");
    const fs::path openvino = KEL_OPENVINO_WINDOWS_LIBS;
    for (const fs::path& dll : {kPlugin, fs::path(L"C:\\windows\\system32\\kernel32.dll"), openvino / "openvino.dll",
                                openvino / "openvino_ir_frontend.dll", openvino / "openvino_onnx_frontend.dll"}) {
        SCOPED_TRACE(dll.string());
        EXPECT_TRUE(kel::utils::checkLibraryImage(dll.wstring()));
        EXPECT_EQ(kel::utils::getLibraryArchitecture(dll.wstring()), "WIN-AMD64");
    }
}

TEST(ImageCheck, WhatIsNotADllOfThisMachineIsRefusedOrWarnedAbout) {
    TempDir dir;
    std::ofstream(dir / "text.dll") << "not a library";
    const fs::path arm = copyWithBytes(kPlugin, dir / "arm64.dll", 0, peOffset(kPlugin) + 4, 0xAA64);
    for (const fs::path& refused : {dir / "text.dll", copyWithBytes(kPlugin, dir / "cut.dll", 100),
                                    programDir() / "kel_windows_tests.exe", dir / "missing.dll"}) {
        SCOPED_TRACE(refused.string());
        EXPECT_FALSE(kel::utils::checkLibraryImage(refused.wstring()));
    }
    // Another machine's DLL passes with a warning.
    bool passed = false;
    const std::string warning =
        kel::test::capturedStderr([&] { passed = kel::utils::checkLibraryImage(arm.wstring()); });
    EXPECT_TRUE(passed);
    EXPECT_EQ(warning, "[KEL Warning]: " + arm.string() +
                           " architecture is WIN-ARM64, Windows OS architecture is WIN-AMD64. Please notice, two "
                           "architectures not same.");
}

TEST(Loader, LoadsByPathWithItsDirectoryAsTheDllDirectoryAndRestoresIt) {
    // Set before: restored afterwards.
    ASSERT_TRUE(SetDllDirectoryW(L"C:\\windows"));
    std::wstring during;
    auto library = kel::utils::load_shared_object(kPlugin.wstring(), [&](const wchar_t* path) {
        during = dllDirectory();
        return static_cast<void*>(LoadLibraryW(path));
    });
    EXPECT_EQ(during, programDir().wstring());
    EXPECT_EQ(dllDirectory(), L"C:\\windows");
    EXPECT_NE(kel::utils::get_symbol(library, "kelModelCreate"), nullptr);
    EXPECT_EQ(errorOf([&] { kel::utils::get_symbol(library, "noSuchExport"); }),
              "GetProcAddress cannot locate method 'noSuchExport': 127");
    EXPECT_EQ(errorOf([] { kel::utils::get_symbol(nullptr, "kelModelCreate"); }),
              "shared_library_handle_object is empty. Please check load kel step.");

    // Unset before: kel sets it to "" (Windows then leaves the current directory out of the
    // search; Wine does not, so that part is not observable here) and leaves it so.
    ASSERT_TRUE(SetDllDirectoryW(nullptr));
    library = kel::utils::load_shared_object(kPlugin.wstring(), [&](const wchar_t* path) {
        during = dllDirectory();
        return static_cast<void*>(LoadLibraryW(path));
    });
    EXPECT_EQ(during, programDir().wstring());
    EXPECT_EQ(dllDirectory(), L"");
    SetDllDirectoryW(nullptr);
}

TEST(Loader, RefusesWhatItCannotLoadWithItsTexts) {
    TempDir dir;
    std::ofstream(dir / "text.dll") << "not a library";
    const std::string missing = (dir / "missing.dll").string();
    const std::string text = (dir / "text.dll").string();
    EXPECT_EQ(errorOf([&] { kel::utils::load_shared_object((dir / "missing.dll").wstring()); }),
              missing + " not exists.");
    EXPECT_EQ(errorOf([&] { kel::utils::load_shared_object((dir / "text.dll").wstring()); }),
              text + " file is not a valid DLL. load_shared_object failed.");
    const std::string refused = errorOf([] {
        kel::utils::load_shared_object(kPlugin.wstring(), [](const wchar_t*) {
            SetLastError(ERROR_ACCESS_DENIED);
            return static_cast<void*>(nullptr);
        });
    });
    EXPECT_EQ(refused, "Cannot load library '" + kPlugin.string() + "': 5 from cwd: " + fs::current_path().string());
}

}  // namespace
