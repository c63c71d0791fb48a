// Device queries answered by the engine's own core.
#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;

TEST(OpenvinoDevices, SupportedDevicesStartWithAutoAndAreCached) {
    openvino backend;
    const auto first = backend.getSupportedDevices();
    ASSERT_GE(first.size(), 2u);
    EXPECT_EQ(first[0], "AUTO");
    EXPECT_THAT(first, ::testing::Contains("CPU"));
    EXPECT_EQ(std::count(first.begin(), first.end(), "AUTO"), 1);
    EXPECT_EQ(backend.getSupportedDevices(), first);
}

TEST(OpenvinoDevices, PropertyNamesPerFamily) {
    openvino backend;
    EXPECT_EQ(kelMessage([&] { backend.getDeviceSupportProperties(""); }), "device parameter is empty.");
    EXPECT_EQ(backend.getDeviceSupportProperties("CPU"),
              (std::vector<std::string>{"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}));
    EXPECT_TRUE(backend.getDeviceSupportProperties("GPU.7").empty());
    try {
        backend.getDeviceSupportProperties("AUTO");
        ADD_FAILURE() << "AUTO has no property row";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
    }
}

TEST(OpenvinoDevices, PropertyValues) {
    openvino backend;
    EXPECT_EQ(kelMessage([&] { backend.getDeviceProperty("", "X"); }), "device parameter is empty.");
    EXPECT_EQ(kelMessage([&] { backend.getDeviceProperty("CPU", ""); }),
              "supported_property parameter is empty.");
    EXPECT_EQ(kelMessage([&] { backend.getDeviceProperty("AUTO", "FULL_DEVICE_NAME"); }),
              "could not get the property for AUTO device.");

    const DevicePropertyValue name = backend.getDeviceProperty("CPU", "FULL_DEVICE_NAME");
    ASSERT_TRUE(std::holds_alternative<std::string>(name));
    EXPECT_FALSE(std::get<std::string>(name).empty());
    // Not listed by the device, or no such device: nothing, not an error.
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("CPU", "DEVICE_GOPS")));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("GPU.3", "FULL_DEVICE_NAME")));
}

}  // namespace
}  // namespace kel
