// The engine under Wine through the flat interface: plugin DLLs registered and released,
// wide paths, and the "WindowsML" engine's WinRT seam, whose every activation fails here
// (Wine has no Windows ML): each failure reaches the host as a text, and the engine goes on.
#include <winrt/base.h>

#include <gmock/gmock.h>

#include <fstream>
#include <functional>

#include "kel/cxx/MLEngine.hpp"
#include "tests/windows/support.hpp"

namespace {

namespace fs = std::filesystem;
using kel::wintest::programDir;
using kel::test::takeText;
using testing::HasSubstr;

constexpr const char* kNotRegistered = "\nWindows Runtime error 0x80040154";  // REGDB_E_CLASSNOTREG

class Engine : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        ASSERT_EQ(takeText(h), "");
    }
    void TearDown() override {
        takeText(h);
        kelDestory(h);
    }
    void* h = nullptr;
};

TEST_F(Engine, EveryWindowsMLCreationEndsInThePlatformsErrorAndTheEngineGoesOn) {
    const fs::path model = kel::test::dataDir() / "onnx" / "static_two_io.onnx";
    // The same model under a name with characters outside ASCII: read, then refused by the
    // platform like the other, so the wide path reached the file.
    const fs::path wide = fs::temp_directory_path() / L"kel-mod\u00e8le-\u6a21\u578b.onnx";
    fs::copy_file(model, wide, fs::copy_options::overwrite_existing);
    std::ifstream in(model, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string narrow = model.string();
    const fs::path plugin = programDir() / "kel_pm_windowsml_two_io.dll";

    kelRegisterModelAsInnerIDwithWString(h, "two_io", plugin.c_str());
    ASSERT_EQ(takeText(h), "");
    const std::vector<std::function<void()>> creations{
        [&] { kelCreateNetByFiles(h, "WindowsML", "net", "CPU", narrow.c_str(), nullptr); },
        [&] { kelCreateNetByFilesWithWstring(h, "WindowsML", "net", "CPU", wide.c_str(), nullptr); },
        [&] { kelCreateNetByBuffers(h, "WindowsML", "net", "CPU", bytes.data(), bytes.size(), nullptr, 0); },
        [&] { kelCreateNetByBuiltin(h, "WindowsML", "net", "CPU", "two_io"); },
    };
    for (const auto& create : creations) {
        kel::test::capturedStderr(create);
        EXPECT_THAT(takeText(h), HasSubstr(kNotRegistered));
        EXPECT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 0);
        EXPECT_EQ(kelGetSupportEngineNumber(h), 2);
    }
    fs::remove(wide);

    // The C++ interface passes the platform's own error on, as it stands.
    kel::MLEngine engine;
    try {
        kel::test::capturedStderr([&] {
            engine.createNetwork("WindowsML", "net", "CPU", std::vector<std::string>{narrow}, {});
        });
        FAIL() << "created";
    } catch (const winrt::hresult_error& e) {
        EXPECT_EQ(static_cast<std::uint32_t>(e.code().value), 0x80040154u);
    }
}

TEST_F(Engine, PluginDllsAreRegisteredListedAndReleased) {
    const fs::path plugin = programDir() / "kel_pm_windowsml_two_io.dll";
    kelRegisterModelAsInnerIDwithString(h, "two_io", plugin.string().c_str());
    ASSERT_EQ(takeText(h), "");
    ASSERT_EQ(kelGetSupportBuiltinModelNumber(h, "WindowsML"), 1);
    std::string id(static_cast<std::size_t>(kelGetSupportBuiltinModelLength(h, "WindowsML", 0)), '\0');
    kelGetSupportBuiltinModelID(h, "WindowsML", 0, id.data());
    EXPECT_EQ(id, "two_io");
    EXPECT_NE(GetModuleHandleW(plugin.c_str()), nullptr);
    kelUnregisterInnerID(h, "two_io");
    EXPECT_EQ(takeText(h), "");
    EXPECT_EQ(kelGetSupportBuiltinModelNumber(h, "WindowsML"), 0);
    EXPECT_EQ(GetModuleHandleW(plugin.c_str()), nullptr);

    // A missing library is named in UTF-8, whatever its characters.
    const fs::path missing = programDir() / L"n\u00e9ant-\u6a21\u578b.dll";
    kelRegisterModelAsInnerIDwithWString(h, "missing", missing.c_str());
    EXPECT_THAT(takeText(h), HasSubstr("\nRegister path " + programDir().string() +
                                       "\\n\xc3\xa9" "ant-\xe6\xa8\xa1\xe5\x9e\x8b.dll not exists.\n"));
}

void throwingLog(const char*) { throw 7; }

TEST_F(Engine, ExceptionsOfAnyTypeStopAtTheirBoundaryAndTheHandleGoesOn) {
    // From a plugin DLL: turned into kel's error while the DLL is still loaded.
    const fs::path plugin = programDir() / "kel_pm_throwing.dll";
    kelRegisterModelAsInnerIDwithString(h, "thrower", plugin.string().c_str());
    EXPECT_THAT(takeText(h),
                HasSubstr("\nplugin model library function kelModelCreate threw an exception of unknown type.\n"));
    EXPECT_EQ(GetModuleHandleW(plugin.c_str()), nullptr);
    // From the host's own callback: stopped at the C boundary.
    kelSetLogCallback(h, &throwingLog);
    EXPECT_THAT(takeText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    kelSetLogCallback(h, nullptr);
    EXPECT_EQ(kelGetSupportEngineNumber(h), 2);
}

}  // namespace
