// Windows side of the device database: the device-setup API.
#include <windows.h>
// windows.h first: the setup API headers need its types. initguid.h makes devpkey.h define
// the property keys it declares (DEVPKEY_Device_DriverVersion), not only declare them.
#include <initguid.h>
#include <devpkey.h>
#include <setupapi.h>

#include "kel/utils/device_enumerator.hpp"

namespace kel::utils {

namespace {

GUID toGuid(const DeviceClassId& id) {
    GUID guid{id.data1, id.data2, id.data3, {}};
    for (int i = 0; i < 8; ++i) guid.Data4[i] = id.data4[i];
    return guid;
}

SizeQuery sizeOutcome(BOOL ok, DWORD required) {
    if (ok) return {SizeQuery::Succeeded, required};
    if (GetLastError() == ERROR_INSUFFICIENT_BUFFER) return {SizeQuery::InsufficientBuffer, required};
    return {SizeQuery::Failed, required};
}

class SetupDiDeviceEnumerator final : public DeviceEnumerator {
public:
    bool open(const DeviceClassId& deviceClass) override {
        const GUID guid = toGuid(deviceClass);
        set_ = SetupDiGetClassDevsA(&guid, nullptr, nullptr, DIGCF_PRESENT);
        if (set_ == INVALID_HANDLE_VALUE) {
            (void)GetLastError();
            return false;
        }
        return true;
    }

    bool device(std::uint32_t index) override {
        data_ = SP_DEVINFO_DATA{};
        data_.cbSize = sizeof(SP_DEVINFO_DATA);
        return SetupDiEnumDeviceInfo(set_, index, &data_) != FALSE;
    }

    SizeQuery descriptionSize(std::uint32_t, DescriptionProperty property) override {
        DWORD required = 0;
        const BOOL ok = SetupDiGetDeviceRegistryPropertyA(
            set_, &data_, static_cast<DWORD>(property), nullptr, nullptr, 0, &required);
        return sizeOutcome(ok, required);
    }

    void readDescription(std::uint32_t, DescriptionProperty property, std::string& buffer) override {
        SetupDiGetDeviceRegistryPropertyA(set_, &data_, static_cast<DWORD>(property), nullptr,
                                          reinterpret_cast<PBYTE>(buffer.data()),
                                          static_cast<DWORD>(buffer.size()), nullptr);
    }

    SizeQuery driverVersionSize(std::uint32_t) override {
        DEVPROPTYPE type = 0;
        DWORD required = 0;
        const BOOL ok = SetupDiGetDevicePropertyW(set_, &data_, &DEVPKEY_Device_DriverVersion, &type,
                                                  nullptr, 0, &required, 0);
        return sizeOutcome(ok, required);
    }

    void readDriverVersion(std::uint32_t, std::u16string& buffer) override {
        DEVPROPTYPE type = 0;
        SetupDiGetDevicePropertyW(set_, &data_, &DEVPKEY_Device_DriverVersion, &type,
                                  reinterpret_cast<PBYTE>(buffer.data()),
                                  static_cast<DWORD>(buffer.size() * sizeof(char16_t)), nullptr, 0);
    }

    void close() override {
        SetupDiDestroyDeviceInfoList(set_);
        set_ = INVALID_HANDLE_VALUE;
    }

private:
    HDEVINFO set_ = INVALID_HANDLE_VALUE;
    SP_DEVINFO_DATA data_{};
};

}  // namespace

std::unique_ptr<DeviceEnumerator> makeDeviceEnumerator() {
    return std::make_unique<SetupDiDeviceEnumerator>();
}

}  // namespace kel::utils
