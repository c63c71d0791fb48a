#pragma once
// The operations GetDeviceInfo needs from the platform's device database, shaped after the
// Windows device-setup calls so that the row rules stay the same on every platform.
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace kel::utils {

// A device setup class GUID.
struct DeviceClassId {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::array<std::uint8_t, 8> data4;
    bool operator==(const DeviceClassId&) const = default;
};

inline constexpr DeviceClassId kProcessorClass{
    0x50127DC3, 0x0F36, 0x415E, {0xA6, 0xCC, 0x4C, 0xB3, 0xBE, 0x91, 0x0B, 0x65}};
inline constexpr DeviceClassId kDisplayClass{
    0x4D36E968, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr DeviceClassId kComputeAcceleratorClass{
    0xF01A9D53, 0x3FF6, 0x48D2, {0x9F, 0x97, 0xC8, 0xA7, 0x00, 0x4B, 0xE1, 0x0C}};

// Registry property codes of the two descriptions.
enum class DescriptionProperty : std::uint32_t { DeviceDescription = 0, FriendlyName = 12 };

// Outcome of a sizing query made with an empty buffer. The expected outcome is
// InsufficientBuffer (the platform's "buffer too small", 122) with the required byte size.
struct SizeQuery {
    enum Status { InsufficientBuffer, Succeeded, Failed };
    Status status = Failed;
    std::uint32_t required_bytes = 0;
};

// One open set of devices at a time; the caller opens, walks indexes 0, 1, ... and closes.
class DeviceEnumerator {
public:
    virtual ~DeviceEnumerator() = default;
    // The devices of the class present now; false when the class cannot be opened.
    virtual bool open(const DeviceClassId& deviceClass) = 0;
    // False once index is past the last device.
    virtual bool device(std::uint32_t index) = 0;
    virtual SizeQuery descriptionSize(std::uint32_t index, DescriptionProperty property) = 0;
    // Fills buffer (already sized) with the 8-bit description; the outcome is not reported.
    virtual void readDescription(std::uint32_t index, DescriptionProperty property,
                                 std::string& buffer) = 0;
    // Size in bytes of the UTF-16 driver version, terminator included.
    virtual SizeQuery driverVersionSize(std::uint32_t index) = 0;
    virtual void readDriverVersion(std::uint32_t index, std::u16string& buffer) = 0;
    virtual void close() = 0;
};

// The platform's enumerator: the device-setup calls on Windows, sysfs elsewhere.
std::unique_ptr<DeviceEnumerator> makeDeviceEnumerator();

// Reads a sysfs-like tree under root; with the default root "/", the kernel release comes
// from uname, otherwise from <root>/proc/sys/kernel/osrelease. PCI names come from pciIds
// when that file exists, else from a built-in list of vendors.
std::unique_ptr<DeviceEnumerator> makeSysfsDeviceEnumerator(
    std::filesystem::path root = "/", std::filesystem::path pciIds = "/usr/share/misc/pci.ids");

}  // namespace kel::utils
