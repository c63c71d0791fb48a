// Device queries answered by the engine's own core, and the engine object's own life.
#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;

TEST(OpenvinoDevices, SupportedDevicesAndTheirProperties) {
    openvino backend;
    const auto devices = backend.getSupportedDevices();
    ASSERT_GE(devices.size(), 2u);
    EXPECT_EQ(devices[0], "AUTO");
    EXPECT_THAT(devices, ::testing::Contains("CPU"));
    EXPECT_EQ(std::count(devices.begin(), devices.end(), "AUTO"), 1);
    EXPECT_EQ(backend.getSupportedDevices(), devices);

    EXPECT_EQ(backend.getDeviceSupportProperties("CPU"),
              (std::vector<std::string>{"FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"}));
    EXPECT_TRUE(backend.getDeviceSupportProperties("GPU.7").empty());
    EXPECT_EQ(test::thrownText([&] { backend.getDeviceSupportProperties("AUTO"); }), "invalid unordered_map<K, T> key");

    const DevicePropertyValue name = backend.getDeviceProperty("CPU", "FULL_DEVICE_NAME");
    ASSERT_TRUE(std::holds_alternative<std::string>(name));
    EXPECT_FALSE(std::get<std::string>(name).empty());
    // Not listed by the device, or no such device: nothing, not an error.
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("CPU", "DEVICE_GOPS")));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(backend.getDeviceProperty("GPU.3", "FULL_DEVICE_NAME")));

    const std::pair<std::function<void()>, const char*> refused[] = {
        {[&] { backend.getDeviceSupportProperties(""); }, "device parameter is empty."},
        {[&] { backend.getDeviceProperty("", "X"); }, "device parameter is empty."},
        {[&] { backend.getDeviceProperty("CPU", ""); }, "supported_property parameter is empty."},
        {[&] { backend.getDeviceProperty("AUTO", "FULL_DEVICE_NAME"); }, "could not get the property for AUTO device."},
    };
    for (const auto& [call, message] : refused) EXPECT_EQ(kelMessage(call), message);
}

TEST(OpenvinoEngine, AnEngineWithoutStateFailsEveryOperationAsABadAnyCast) {
    openvino original;
    openvino copy(original);
    EXPECT_EQ(copy.getSupportedDevices(), original.getSupportedDevices());
    openvino moved(std::move(original));
    EXPECT_EQ(moved.getModelInnerIDs(), std::vector<std::string>{});
    const std::function<void()> calls[] = {[&] { original.infer(); }, [&] { original.version(); },
                                           [&] { original.getModelInnerIDs(); }};
    for (const auto& call : calls) {
        EXPECT_THROW(call(), std::bad_any_cast);
        EXPECT_EQ(test::thrownText(call), "Bad any_cast");
    }
}

}  // namespace
}  // namespace kel
