// Device queries answered by the engine's own core, and the engine object's own life.
#include "support.hpp"

namespace kel {
namespace {

TEST(OpenvinoDevices, SupportedDevicesAndTheirProperties) {
    openvino backend;
    const auto devices = backend.getSupportedDevices();
    EXPECT_EQ(devices.front(), "AUTO");
    EXPECT_THAT(devices, ::testing::Contains("AUTO").Times(1));
    EXPECT_THAT(devices, ::testing::Contains("CPU"));
    EXPECT_EQ(backend.getSupportedDevices(), devices) << "filled once";

    EXPECT_EQ(backend.getDeviceSupportProperties("CPU"),
              (std::vector<std::string>{"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}));
    EXPECT_TRUE(backend.getDeviceSupportProperties("GPU.7").empty());
    // "AUTO" is a device but has no row of properties.
    EXPECT_EQ(test::thrownText([&] { backend.getDeviceSupportProperties("AUTO"); }),
              "invalid unordered_map<K, T> key");

    EXPECT_FALSE(std::get<std::string>(backend.getDeviceProperty("CPU", "FULL_DEVICE_NAME")).empty());
    // Not listed by the device, or no such device: nothing, not an error.
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("CPU", "DEVICE_GOPS")));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("GPU.3", "FULL_DEVICE_NAME")));

    const std::pair<std::function<void()>, const char*> refused[] = {
        {[&] { backend.getDeviceSupportProperties(""); }, "device parameter is empty."},
        {[&] { backend.getDeviceProperty("", "X"); }, "device parameter is empty."},
        {[&] { backend.getDeviceProperty("CPU", ""); }, "supported_property parameter is empty."},
        {[&] { backend.getDeviceProperty("AUTO", "X"); }, "could not get the property for AUTO device."},
    };
    for (const auto& [call, message] : refused) EXPECT_EQ(test::kelMessage(call), message);
}

TEST(OpenvinoEngine, CopiesWorkAndAMovedFromEngineFailsAsABadAnyCast) {
    openvino original;
    EXPECT_NO_THROW(openvino(original).getSupportedDevices());
    openvino moved(std::move(original));
    EXPECT_NO_THROW(moved.getModelInnerIDs());
    EXPECT_THROW(original.infer(), std::bad_any_cast);
    EXPECT_EQ(test::thrownText([&] { original.version(); }), "Bad any_cast");
}

}  // namespace
}  // namespace kel
