// Device driver information through the real device-setup API: the test registers devices
// of the three classes in Wine's device database (the machine has none with a driver
// version) and reads them back through kel.
#include <windows.h>
// windows.h first; initguid.h makes devpkey.h define the keys.
#include <initguid.h>
#include <devpkey.h>
#include <setupapi.h>

#include <gmock/gmock.h>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"
#include "tests/windows/support.hpp"

// MinGW's setupapi.h lacks the declaration; the import library has it.
extern "C" WINSETUPAPI WINBOOL WINAPI SetupDiSetDevicePropertyW(HDEVINFO, PSP_DEVINFO_DATA, const DEVPROPKEY*,
                                                               DEVPROPTYPE, const BYTE*, DWORD, DWORD);

namespace {

using kel::DeviceDriverInfo;
using kel::utils::GetDeviceInfo;

GUID guidOf(const kel::utils::DeviceClassId& id) {
    GUID guid{id.data1, id.data2, id.data3, {}};
    std::copy(id.data4.begin(), id.data4.end(), guid.Data4);
    return guid;
}

// Registers a device of the class with a description (friendly name for processors, as
// the processor class is read) and, unless null, a driver version.
void addDevice(const kel::utils::DeviceClassId& id, const std::string& description, const wchar_t* version) {
    const GUID cls = guidOf(id);
    HDEVINFO set = SetupDiCreateDeviceInfoList(&cls, nullptr);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    ASSERT_TRUE(SetupDiCreateDeviceInfoA(set, "KELTEST", &cls, nullptr, nullptr, DICD_GENERATE_ID, &device));
    ASSERT_TRUE(SetupDiRegisterDeviceInfo(set, &device, 0, nullptr, nullptr, nullptr));
    const DWORD property = id == kel::utils::kProcessorClass ? SPDRP_FRIENDLYNAME : SPDRP_DEVICEDESC;
    ASSERT_TRUE(SetupDiSetDeviceRegistryPropertyA(set, &device, property,
                                                  reinterpret_cast<const BYTE*>(description.c_str()),
                                                  static_cast<DWORD>(description.size() + 1)));
    if (version) {
        ASSERT_TRUE(SetupDiSetDevicePropertyW(set, &device, &DEVPKEY_Device_DriverVersion, DEVPROP_TYPE_STRING,
                                              reinterpret_cast<const BYTE*>(version),
                                              static_cast<DWORD>((wcslen(version) + 1) * sizeof(wchar_t)), 0));
    }
    SetupDiDestroyDeviceInfoList(set);
}

DeviceDriverInfo row(const std::string& version, const std::string& description) {
    return {version, description + std::string(1, '\0')};  // the description keeps its NUL
}

TEST(SetupDiDevices, RowsComeFromTheDeviceDatabaseInEnumerationOrder) {
    using namespace kel::utils;
    addDevice(kProcessorClass, "kel processor A", L"1.0.0.1");
    addDevice(kProcessorClass, "kel processor B", L"1.0.0.2");
    addDevice(kDisplayClass, "Intel kel adapter", L"31.0.101.4575");
    addDevice(kDisplayClass, "kel adapter without a driver version", nullptr);
    addDevice(kDisplayClass, "AMD kel adapter", L"23.10.2");
    addDevice(kComputeAcceleratorClass, "Intel kel accelerator", L"32.0.100.4297");

    const struct {
        const char* kind;
        const char* filter;
        int max_count;
        std::vector<DeviceDriverInfo> rows;
    } cases[] = {
        {"CPU", "", 0, {row("1.0.0.1", "kel processor A")}},
        {"CPU", "", 5, {row("1.0.0.1", "kel processor A")}},
        {"CPU", "B", 0, {row("1.0.0.2", "kel processor B")}},
        // Wine's own adapter has no driver version: it is left out like the test's.
        {"GPU", "", 0, {row("31.0.101.4575", "Intel kel adapter"), row("23.10.2", "AMD kel adapter")}},
        {"GPU", "", 1, {row("31.0.101.4575", "Intel kel adapter")}},
        {"GPU", "AMD", 0, {row("23.10.2", "AMD kel adapter")}},
        {"GPU", "a description longer than any of the adapters' descriptions", 0, {}},
        {"NPU", "", 0, {row("32.0.100.4297", "Intel kel accelerator")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.kind) + " [" + c.filter + "] " + std::to_string(c.max_count));
        EXPECT_EQ(GetDeviceInfo(c.kind, c.filter, c.max_count), c.rows);
    }
}

}  // namespace
