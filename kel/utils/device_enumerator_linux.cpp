// Linux side of the device database: the processor from /proc/cpuinfo, display adapters
// and neural accelerators from their sysfs classes, named through the PCI ID list.
#include <sys/utsname.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <vector>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/text.hpp"

namespace kel::utils {

namespace {

namespace fs = std::filesystem;

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::optional<std::string> readFirstLine(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    return trim(line);
}

std::optional<unsigned> parseHex(const std::string& text) {
    try {
        std::size_t used = 0;
        const unsigned long value = std::stoul(text, &used, 16);
        if (used != text.size() || value > 0xFFFF) return std::nullopt;
        return static_cast<unsigned>(value);
    } catch (...) {
        return std::nullopt;
    }
}

// For machines without the PCI ID list: enough to tell the vendors apart.
const char* builtInVendorName(unsigned vendor) {
    switch (vendor) {
        case 0x8086: return "Intel Corporation";
        case 0x1002: return "Advanced Micro Devices, Inc. [AMD/ATI]";
        case 0x1022: return "Advanced Micro Devices, Inc. [AMD]";
        case 0x10de: return "NVIDIA Corporation";
        case 0x1af4: return "Red Hat, Inc.";
        case 0x1234: return "QEMU";
        case 0x1414: return "Microsoft Corporation";
        case 0x15ad: return "VMware";
        case 0x17cb: return "Qualcomm Technologies, Inc";
        case 0x1e0f: return "KIOXIA Corporation";
        default: return nullptr;
    }
}

// "<vendor> <device>" as lspci prints it, "<vendor> Device <id>" for an unlisted device.
std::string pciName(const fs::path& pciIds, unsigned vendor, std::optional<unsigned> device) {
    std::string vendorName, deviceName;
    std::ifstream in(pciIds);
    bool inVendor = false;
    for (std::string line; in && std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (line.rfind("C ", 0) == 0) break;  // the device class list follows the vendors
        const bool deviceLine = line[0] == '\t' && line.size() > 1 && line[1] != '\t';
        if (!deviceLine && line[0] != '\t') {
            if (inVendor) break;
            if (line.size() > 6 && parseHex(line.substr(0, 4)) == vendor) {
                inVendor = true;
                vendorName = trim(line.substr(4));
            }
        } else if (deviceLine && inVendor && device && line.size() > 7 &&
                   parseHex(line.substr(1, 4)) == *device) {
            deviceName = trim(line.substr(5));
            break;
        }
    }
    if (vendorName.empty()) {
        const char* known = builtInVendorName(vendor);
        vendorName = known ? known : fmt::format("Vendor {:04x}", vendor);
    }
    if (!deviceName.empty()) return vendorName + " " + deviceName;
    return device ? vendorName + " " + fmt::format("Device {:04x}", *device) : vendorName;
}

struct Device {
    std::string description;
    std::optional<std::u16string> driver_version;
};

class SysfsDeviceEnumerator final : public DeviceEnumerator {
public:
    SysfsDeviceEnumerator(fs::path root, fs::path pciIds)
        : root_(std::move(root)), pci_ids_(std::move(pciIds)) {}

    bool open(const DeviceClassId& deviceClass) override {
        devices_.clear();
        if (deviceClass == kProcessorClass) {
            openProcessors();
        } else if (deviceClass == kDisplayClass) {
            openClass("sys/class/drm", [](const std::string& name) {
                // cardN only: cardN-<connector> entries are outputs of the same adapter.
                return name.size() > 4 && name.rfind("card", 0) == 0 &&
                       std::all_of(name.begin() + 4, name.end(),
                                   [](unsigned char c) { return std::isdigit(c); });
            });
        } else if (deviceClass == kComputeAcceleratorClass) {
            openClass("sys/class/accel", [](const std::string&) { return true; });
        } else {
            return false;
        }
        return true;
    }

    bool device(std::uint32_t index) override { return index < devices_.size(); }

    SizeQuery descriptionSize(std::uint32_t index, DescriptionProperty) override {
        if (index >= devices_.size()) return {};
        return {SizeQuery::InsufficientBuffer,
                static_cast<std::uint32_t>(devices_[index].description.size() + 1)};
    }

    void readDescription(std::uint32_t index, DescriptionProperty, std::string& buffer) override {
        if (index >= devices_.size()) return;
        const std::string& text = devices_[index].description;
        std::memcpy(buffer.data(), text.c_str(), std::min(buffer.size(), text.size() + 1));
    }

    SizeQuery driverVersionSize(std::uint32_t index) override {
        if (index >= devices_.size() || !devices_[index].driver_version) return {};
        return {SizeQuery::InsufficientBuffer,
                static_cast<std::uint32_t>((devices_[index].driver_version->size() + 1) * 2)};
    }

    void readDriverVersion(std::uint32_t index, std::u16string& buffer) override {
        if (index >= devices_.size() || !devices_[index].driver_version) return;
        const std::u16string& text = *devices_[index].driver_version;
        std::copy_n(text.begin(), std::min(buffer.size(), text.size()), buffer.begin());
    }

    void close() override { devices_.clear(); }

private:
    std::optional<std::string> kernelRelease() const {
        if (root_ == "/") {
            utsname u{};
            if (uname(&u) != 0) return std::nullopt;
            return std::string(u.release);
        }
        return readFirstLine(root_ / "proc/sys/kernel/osrelease");
    }

    static std::optional<std::u16string> toUtf16(const std::optional<std::string>& text) {
        if (!text || text->empty()) return std::nullopt;
        try {
            return stringToUtf16(*text);
        } catch (const std::runtime_error&) {
            return std::nullopt;
        }
    }

    // One row is enough: every core reports the same model.
    void openProcessors() {
        std::ifstream in(root_ / "proc/cpuinfo");
        for (std::string line; in && std::getline(in, line);) {
            const auto colon = line.find(':');
            if (colon == std::string::npos || trim(line.substr(0, colon)) != "model name") continue;
            devices_.push_back({trim(line.substr(colon + 1)), toUtf16(kernelRelease())});
            return;
        }
    }

    template <class Filter>
    void openClass(const char* classDir, Filter accept) {
        std::error_code ec;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(root_ / classDir, ec)) {
            const std::string name = entry.path().filename().string();
            if (accept(name) && fs::exists(entry.path() / "device", ec)) names.push_back(name);
        }
        // card2 before card10, as the kernel numbered them.
        std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
            return std::make_pair(a.size(), a) < std::make_pair(b.size(), b);
        });
        for (const auto& name : names) {
            const fs::path device = root_ / classDir / name / "device";
            std::optional<std::string> version = readFirstLine(device / "driver/module/version");
            if (!version || version->empty()) version = kernelRelease();
            devices_.push_back({describe(device, name), toUtf16(version)});
        }
    }

    std::string describe(const fs::path& device, const std::string& entryName) const {
        if (auto vendor = readFirstLine(device / "vendor"); vendor && vendor->rfind("0x", 0) == 0) {
            if (auto vendorId = parseHex(vendor->substr(2))) {
                std::optional<unsigned> deviceId;
                if (auto id = readFirstLine(device / "device"); id && id->rfind("0x", 0) == 0)
                    deviceId = parseHex(id->substr(2));
                return pciName(pci_ids_, *vendorId, deviceId);
            }
        }
        // Not a PCI device: its driver's name is the best description there is.
        std::error_code ec;
        const fs::path driver = fs::canonical(device / "driver", ec);
        return ec ? entryName : driver.filename().string();
    }

    fs::path root_;
    fs::path pci_ids_;
    std::vector<Device> devices_;
};

}  // namespace

std::unique_ptr<DeviceEnumerator> makeSysfsDeviceEnumerator(fs::path root, fs::path pciIds) {
    return std::make_unique<SysfsDeviceEnumerator>(std::move(root), std::move(pciIds));
}

std::unique_ptr<DeviceEnumerator> makeDeviceEnumerator() { return makeSysfsDeviceEnumerator(); }

}  // namespace kel::utils
