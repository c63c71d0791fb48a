// Text conversion through the platform's converters, and the OS version triple.
#include <winternl.h>

#include <gmock/gmock.h>

#include "kel/utils/text.hpp"
#include "modules/windows-ml/os_version.hpp"
#include "tests/windows/support.hpp"

namespace {

TEST(Text, ConvertsNonAsciiBothWaysAndRefusesBrokenUtf8) {
    const struct {
        std::wstring wide;
        std::string utf8;
    } cases[] = {
        {L"plain.onnx", "plain.onnx"},
        {L"C:\\donn\u00e9es\\\u6a21\u578b.onnx", "C:\\donn\xc3\xa9" "es\\\xe6\xa8\xa1\xe5\x9e\x8b.onnx"},
        {L"\U0001F642", "\xf0\x9f\x99\x82"},  // a surrogate pair
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kel::utils::wstringToString(c.wide), c.utf8);
        EXPECT_EQ(kel::utils::stringToWstring(c.utf8), c.wide);
        EXPECT_EQ(kel::utils::utf16ToString(std::u16string(c.wide.begin(), c.wide.end())), c.utf8);
    }
    try {
        kel::utils::stringToWstring("bad \xff byte");
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failed to convert string to wstring (length calculation).");
    }
}

TEST(OsVersion, IsTheSystemsOwn) {
    using RtlGetVersionFn = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    auto get = reinterpret_cast<RtlGetVersionFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    RTL_OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_EQ(get(&info), 0);
    const auto version = kel::windows_ml_platform::osVersion();
    EXPECT_EQ(version[0], info.dwMajorVersion);
    EXPECT_EQ(version[1], info.dwMinorVersion);
    EXPECT_EQ(version[2], info.dwBuildNumber & 0xFFFF);
}

}  // namespace
