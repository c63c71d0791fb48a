#include "kel/utils/device_info.hpp"

#include <algorithm>
#include <iostream>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/text.hpp"

namespace kel::utils {

std::vector<DeviceDriverInfo> GetDeviceInfo(std::string deviceName, const std::string& name_filter,
                                            int max_count) {
    auto enumerator = makeDeviceEnumerator();
    return GetDeviceInfo(std::move(deviceName), name_filter, max_count, *enumerator);
}

std::vector<DeviceDriverInfo> GetDeviceInfo(std::string deviceName, const std::string& name_filter,
                                            int max_count, DeviceEnumerator& enumerator) {
    std::vector<DeviceDriverInfo> rows;
    rows.reserve(static_cast<std::size_t>(std::max(max_count, 1)));

    std::size_t limit = 1;
    DeviceClassId deviceClass{};
    if (deviceName == "CPU") {
        deviceClass = kProcessorClass;
    } else if (deviceName == "GPU") {
        deviceClass = kDisplayClass;
        limit = static_cast<std::size_t>(std::max(max_count, 0));
    } else if (deviceName == "NPU") {
        deviceClass = kComputeAcceleratorClass;
        limit = static_cast<std::size_t>(std::max(max_count, 0));
    } else {
        std::cerr << "kel::utils::GetDeviceInfo not support device_name:" << deviceName << std::endl;
        return {};
    }

    if (!enumerator.open(deviceClass)) return {};

    const auto property = deviceClass == kProcessorClass ? DescriptionProperty::FriendlyName
                                                          : DescriptionProperty::DeviceDescription;
    for (std::uint32_t index = 0; enumerator.device(index); ++index) {
        const SizeQuery description_size = enumerator.descriptionSize(index, property);
        // The set is deliberately left open on this path.
        if (description_size.status != SizeQuery::InsufficientBuffer) return {};
        std::string description(description_size.required_bytes, '\0');
        enumerator.readDescription(index, property, description);

        if (!name_filter.empty() && description.find(name_filter) == std::string::npos) continue;

        const SizeQuery version_size = enumerator.driverVersionSize(index);
        if (version_size.status != SizeQuery::InsufficientBuffer) continue;
        std::u16string version(version_size.required_bytes / 2, u'\0');
        enumerator.readDriverVersion(index, version);
        version.resize(std::min(version.find(u'\0'), version.size()));

        rows.emplace_back(utf16ToString(version), std::move(description));
        if (limit >= 1 && rows.size() >= limit) break;
    }
    enumerator.close();
    return rows;
}

}  // namespace kel::utils
