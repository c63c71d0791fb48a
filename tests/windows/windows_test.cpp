// kel on Wine's real Win32 and WinRT: the platform seams only, as the rules shared with Linux
// are pinned by the Linux suites. Wine has no Windows ML, so every activation of it fails.
#include <windows.h>
// windows.h first; initguid.h makes devpkey.h define the keys.
#include <initguid.h>
#include <devpkey.h>
#include <setupapi.h>
#include <winternl.h>

#include <gmock/gmock.h>

#include <cstring>
#include <functional>

#include "kel/c/foreign_exception.hpp"
#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "kel/utils/text.hpp"
#include "modules/windows-ml/os_version.hpp"
#include "modules/windows-ml/winrt_views.hpp"
#include "tests/support/support.hpp"

#ifdef __MINGW32__
// MinGW's setupapi.h lacks the declaration; the import library has it.
extern "C" WINSETUPAPI WINBOOL WINAPI SetupDiSetDevicePropertyW(HDEVINFO, PSP_DEVINFO_DATA, const DEVPROPKEY*,
                                                               DEVPROPTYPE, const BYTE*, DWORD, DWORD);
#endif

namespace {

namespace fs = std::filesystem;
using kel::test::capturedStderr;
using kel::test::takeText;
using kel::test::thrownText;
using testing::HasSubstr;

fs::path programDir() {
    wchar_t name[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, name, MAX_PATH);
    return fs::path(name).parent_path();
}
const fs::path kPlugin = programDir() / "kel_pm_windowsml_two_io.dll";

// A device of the class in Wine's device database, described by the property kel reads for
// that class, with a driver version unless it is null.
GUID guidOf(const kel::utils::DeviceClassId& id) {
    GUID guid{id.data1, id.data2, id.data3, {}};
    std::copy(id.data4.begin(), id.data4.end(), guid.Data4);
    return guid;
}

void addDevice(const kel::utils::DeviceClassId& id, const std::string& description, const wchar_t* version) {
    GUID cls = guidOf(id);
    HDEVINFO set = SetupDiCreateDeviceInfoList(&cls, nullptr);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    ASSERT_TRUE(SetupDiCreateDeviceInfoA(set, "KELTEST", &cls, nullptr, nullptr, DICD_GENERATE_ID, &device));
    ASSERT_TRUE(SetupDiRegisterDeviceInfo(set, &device, 0, nullptr, nullptr, nullptr));
    const DWORD property = id == kel::utils::kProcessorClass ? SPDRP_FRIENDLYNAME : SPDRP_DEVICEDESC;
    const auto* text = reinterpret_cast<const BYTE*>(description.c_str());
    ASSERT_TRUE(SetupDiSetDeviceRegistryPropertyA(set, &device, property, text, DWORD(description.size() + 1)));
    const auto* value = reinterpret_cast<const BYTE*>(version);
    const auto size = DWORD((version ? wcslen(version) + 1 : 0) * sizeof(wchar_t));
    ASSERT_TRUE(!version || SetupDiSetDevicePropertyW(set, &device, &DEVPKEY_Device_DriverVersion,
                                                      DEVPROP_TYPE_STRING, const_cast<BYTE*>(value), size, 0));
    SetupDiDestroyDeviceInfoList(set);
}

TEST(SetupDi, RowsOfEachClassComeFromTheDeviceDatabaseInEnumerationOrder) {
    using namespace kel::utils;
    using Rows = std::vector<kel::DeviceDriverInfo>;
    const auto row = [](std::string version, const std::string& description) {
        return kel::DeviceDriverInfo{version, description + std::string(1, '\0')};  // it keeps its NUL
    };
    addDevice(kProcessorClass, "kel processor", L"1.0.0.1");
    addDevice(kDisplayClass, "Intel kel adapter", L"31.0.101.4575");
    addDevice(kDisplayClass, "kel adapter without a driver version", nullptr);
    addDevice(kDisplayClass, "AMD kel adapter", L"23.10.2");
    addDevice(kComputeAcceleratorClass, "Intel kel accelerator", L"32.0.100.4297");
    EXPECT_EQ(GetDeviceInfo("CPU", "", 0), Rows{row("1.0.0.1", "kel processor")});
    // Wine's own adapter has no driver version either.
    EXPECT_EQ(GetDeviceInfo("GPU", "", 0),
              (Rows{row("31.0.101.4575", "Intel kel adapter"), row("23.10.2", "AMD kel adapter")}));
    EXPECT_EQ(GetDeviceInfo("NPU", "", 0), Rows{row("32.0.100.4297", "Intel kel accelerator")});
}

// Images built by MinGW, by Wine and by MSVC pass; a cut image and a program do not.
TEST(ImageCheck, DllsOfThisMachinePassOthersAreRefusedOrWarnedAbout) {
    for (const fs::path& dll : {kPlugin, fs::path(L"C:\\windows\\system32\\kernel32.dll"),
                                fs::path(KEL_OPENVINO_WINDOWS_LIBS) / "openvino.dll"}) {
        SCOPED_TRACE(dll.string());
        EXPECT_TRUE(kel::utils::checkLibraryImage(dll.wstring()));
        EXPECT_EQ(kel::utils::getLibraryArchitecture(dll.wstring()), "WIN-AMD64");
    }
    kel::test::TempDir dir;
    std::string bytes = kel::test::readFile(kPlugin);
    kel::test::writeFile(dir / "cut.dll", bytes.substr(0, 100));
    EXPECT_FALSE(kel::utils::checkLibraryImage((dir / "cut.dll").wstring()));
    EXPECT_FALSE(kel::utils::checkLibraryImage((programDir() / "kel_windows_tests.exe").wstring()));
    for (const char* start : {"XZ", "Mz"}) {  // only "MZ" starts an image
        kel::test::writeFile(dir / "bad.dll", start + bytes.substr(2));
        EXPECT_FALSE(kel::utils::checkLibraryImage((dir / "bad.dll").wstring())) << start;
    }
    // A missing or an empty file has no architecture: each failure on the way says so.
    kel::test::writeFile(dir / "empty.dll", "");
    const std::pair<const char*, const char*> unreadable[] = {
        {"missing.dll", "Failed to open DLL file.\nFailed to get DLL file size.\n"}, {"empty.dll", ""}};
    for (const auto& [name, first] : unreadable)
        EXPECT_EQ(capturedStderr([&] {
                      EXPECT_EQ(kel::utils::getLibraryArchitecture((dir / name).wstring()), "WIN-UNKNOWN");
                  }),
                  std::string(first) + "Failed to create file mapping.\nFailed to map view of file.\n");
    const std::pair<unsigned, const char*> processors[] = {
        {5, "WIN-ARM"}, {6, "WIN-IA64"}, {9, "WIN-AMD64"}, {12, "WIN-ARM64"}, {1, "WIN-UNKNOWN"}};
    for (const auto& [code, text] : processors) EXPECT_EQ(kel::utils::processorArchitectureText(code), text);
    // Another machine's DLL (the PE header's machine field says ARM64) passes with a warning.
    std::uint32_t pe = 0;
    std::memcpy(&pe, bytes.data() + 60, sizeof pe);
    bytes.replace(pe + 4, 2, "\x64\xAA");
    const fs::path arm64 = dir / "arm64.dll";
    kel::test::writeFile(arm64, bytes);
    EXPECT_EQ(capturedStderr([&] { EXPECT_TRUE(kel::utils::checkLibraryImage(arm64.wstring())); }),
              "[KEL Warning]: " + arm64.string() +
                  " architecture is WIN-ARM64, Windows OS architecture is WIN-AMD64. Please notice, two "
                  "architectures not same.");
}

std::wstring dllDirectory() {
    wchar_t dir[MAX_PATH] = {};
    GetDllDirectoryW(MAX_PATH, dir);
    return dir;
}

TEST(Loader, UsesTheDllsDirectoryAsTheDllDirectoryAndRefusesWithItsTexts) {
    // Restored afterwards; an unset one becomes "" (which keeps the current directory out of
    // the search on Windows, not on Wine).
    std::shared_ptr<void> library;
    for (const wchar_t* before : {L"C:\\windows", static_cast<const wchar_t*>(nullptr)}) {
        ASSERT_TRUE(SetDllDirectoryW(before));
        std::wstring during;
        library = kel::utils::load_shared_object(kPlugin.wstring(), [&](const wchar_t* path) {
            during = dllDirectory();
            return static_cast<void*>(LoadLibraryW(path));
        });
        EXPECT_EQ(during, programDir().wstring());
        EXPECT_EQ(dllDirectory(), before ? before : L"");
        EXPECT_NE(kel::utils::getSymbol(library, "kelModelCreate"), nullptr);
    }
    SetDllDirectoryW(nullptr);

    kel::test::TempDir dir;
    kel::test::writeFile(dir / "text.dll", "not a library");
    const auto failing = [](const wchar_t*) { return static_cast<void*>(LoadLibraryW(L"no-such.dll")); };
    const std::pair<std::function<void()>, std::string> cases[] = {  // {call, text}
        {[&] { kel::utils::load_shared_object((dir / "missing.dll").wstring()); },
         (dir / "missing.dll").string() + " not exists."},
        {[&] { kel::utils::load_shared_object((dir / "text.dll").wstring()); },
         (dir / "text.dll").string() + " file is not a valid DLL. load_shared_object failed."},
        {[&] { kel::utils::load_shared_object(kPlugin.wstring(), failing); },  // ERROR_MOD_NOT_FOUND
         "Cannot load library '" + kPlugin.string() + "': 126 from cwd: " + fs::current_path().string()},
        {[&] { kel::utils::getSymbol(library, "noSuchExport"); },
         "GetProcAddress cannot locate method 'noSuchExport': 127"},
        {[] { kel::utils::getSymbol(nullptr, "kelModelCreate"); },
         "shared_library_handle_object is empty. Please check load kel step."},
    };
    for (const auto& [call, text] : cases) EXPECT_EQ(thrownText(call), text);
}

TEST(Text, ConvertsOutsideAsciiBothWaysAndRefusesBrokenUtf8) {
    const std::wstring wide = L"C:\\donn\u00e9es\\\u6a21\u578b-\U0001F642.onnx";  // the last a surrogate pair
    const std::string utf8 = "C:\\donn\xc3\xa9" "es\\\xe6\xa8\xa1\xe5\x9e\x8b-\xf0\x9f\x99\x82.onnx";
    EXPECT_EQ(kel::utils::wstringToString(wide), utf8);
    EXPECT_EQ(kel::utils::stringToWstring(utf8), wide);
    EXPECT_EQ(kel::utils::utf16ToString(std::u16string(wide.begin(), wide.end())), utf8);
    EXPECT_EQ(thrownText([] { kel::utils::stringToWstring("bad \xff byte"); }),
              "Failed to convert string to wstring (length calculation).");
}

TEST(OsVersion, IsTheSystemsOwn) {
    const auto get = reinterpret_cast<LONG(WINAPI*)(RTL_OSVERSIONINFOW*)>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    RTL_OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_EQ(get(&info), 0);
    const std::array<std::uint32_t, 3> os{info.dwMajorVersion, info.dwMinorVersion,
                                          info.dwBuildNumber & 0xFFFF};
    EXPECT_EQ(kel::windows_ml_platform::osVersion(), os);
}

// Tensor values leave Windows ML as vector views: every element, from the first, bools too.
TEST(WinRtViews, EveryElementIsTakenFromTheFirst) {
    using kel::windows_ml_platform::copyAll;
    EXPECT_EQ(copyAll(winrt::single_threaded_vector(std::vector<bool>{true, false, false}).GetView()),
              (std::vector<bool>{true, false, false}));
    EXPECT_EQ(copyAll(winrt::single_threaded_vector(std::vector<float>{1.5f, 2.5f}).GetView()),
              (std::vector<float>{1.5f, 2.5f}));
}

TEST(FlatInterface, PluginDllsAreReleasedAndNoFailureOrExceptionEndsTheHandle) {
    void* h = kelCreate();
    kelRegisterModelAsInnerIDwithWString(h, "two_io", kPlugin.c_str());
    ASSERT_EQ(takeText(h), "");
    // Wine has no Windows ML. The runtime's error, not a missing file, shows that the wide path
    // of a model named outside ASCII reached the file.
    kel::test::TempDir dir;
    const fs::path wide = dir.path() / L"kel-mod\u00e8le-\u6a21\u578b.onnx";
    fs::copy_file(kel::test::dataDir() / "onnx" / "static_two_io.onnx", wide);
    capturedStderr([&] { kelCreateNetByFilesWithWstring(h, "WindowsML", "net", "CPU", wide.c_str(), nullptr); });
    EXPECT_THAT(takeText(h), HasSubstr("\nWindows Runtime error 0x80040154"));  // REGDB_E_CLASSNOTREG
    try {  // (Wine has no message for that code; it has one for this)
        throw winrt::hresult_error(E_FAIL);
    } catch (...) {
        EXPECT_THAT(kel::c::foreignExceptionText(), HasSubstr("\nWindows Runtime error 0x80004005: "));
    }
    EXPECT_NE(GetModuleHandleW(kPlugin.c_str()), nullptr);
    kelUnregisterInnerID(h, "two_io");
    EXPECT_EQ(GetModuleHandleW(kPlugin.c_str()), nullptr);

    const fs::path missing = programDir() / L"n\u00e9ant-\u6a21\u578b.dll";
    kelRegisterModelAsInnerIDwithWString(h, "missing", missing.c_str());
    EXPECT_THAT(takeText(h), HasSubstr("\nRegister path " + programDir().string() +
                                       "\\n\xc3\xa9" "ant-\xe6\xa8\xa1\xe5\x9e\x8b.dll not exists.\n"));
    // The plugin DLL's exception reaches kel's boundary through the one shared C++ runtime DLL.
    const fs::path thrower = programDir() / "kel_pm_throwing.dll";
    kelRegisterModelAsInnerIDwithString(h, "thrower", thrower.string().c_str());
    EXPECT_THAT(takeText(h), HasSubstr("\nplugin model library function kelModelCreate threw an exception"));
    EXPECT_EQ(GetModuleHandleW(thrower.c_str()), nullptr);
    EXPECT_EQ(kelGetSupportEngineNumber(h), 2);
    kelDestory(h);
}

}  // namespace
