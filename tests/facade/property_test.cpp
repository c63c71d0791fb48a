// Devices, device properties and per-network engine properties through kel::MLEngine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/support.hpp"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace t = kel::test;

// The facade's own rules; the devices and their properties belong to the back-end's suite.
TEST(Properties, DeviceQueriesCheckTheirArgumentsInOrder) {
    kel::MLEngine engine;
    EXPECT_THAT(engine.getSupportedDevices("WindowsML"), ElementsAre("AUTO", "CPU"));
    EXPECT_THAT(engine.getDeviceSupportProperties("WindowsML", "CPU"), IsEmpty());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(engine.getDeviceProperty("WindowsML", "CPU", "FULL_DEVICE_NAME")));
    const std::pair<std::function<void()>, const char*> refusals[] = {
        // "AUTO" is refused before the engine name is even looked up.
        {[&] { engine.getDeviceSupportProperties("NoSuchEngine", "AUTO"); }, "could not get the property for AUTO device."},
        {[&] { engine.getDeviceSupportProperties("OpenVINO", ""); }, "device is empty! "},
        {[&] { engine.getDeviceProperty("OpenVINO", "CPU", ""); }, "supported_property is empty! "},
        {[&] { engine.getSupportedDevices("openvino"); }, "Not support openvino engine."},
    };
    for (const auto& [call, text] : refusals)
        EXPECT_THAT(t::thrownText(call), HasSubstr("\n" + std::string(text) + "\n"));
}

TEST(Properties, MutablePropertiesAreTypeChecked) {
    kel::MLEngine engine;
    const auto ov = engine.getEngineMutableProperties("OpenVINO");
    EXPECT_EQ(ov.at("CACHE_DIR"), "std::filesystem::path");
    EXPECT_EQ(ov.at("RUNTIME_STREAMS_NUMBER"), "std::string");
    EXPECT_THAT(engine.getEngineMutableProperties("WindowsML"), IsEmpty());
    EXPECT_THAT(t::thrownText([&] { engine.getEngineMutableProperties("X"); }),
                HasSubstr("\nEngine [X] Not supported!\n"));

    EXPECT_THAT(t::thrownText([&] {
                    engine.setEnginePropertyForNetwork("OpenVINO", "n", "RUNTIME_STREAMS_NUMBER", "2");
                }),
                HasSubstr("\nRUNTIME_STREAMS_NUMBER need std::string type, but the property_value is not! Please check.\n"));
    EXPECT_THAT(t::thrownText([&] {
                    engine.setEnginePropertyForNetwork("OpenVINO", "n", "CACHE_DIR", std::string("/tmp"));
                }),
                HasSubstr("need std::filesystem::path type"));
    EXPECT_THAT(t::thrownText([&] {
                    engine.setEnginePropertyForNetwork("OpenVINO", "n", "RUNTIME_STREAMS_NUMBER", std::any());
                }),
                HasSubstr("need std::string type"));
    EXPECT_THAT(t::thrownText([&] {
                    engine.setEnginePropertyForNetwork("OpenVINO", "n", "NUM_STREAMS", std::string("2"));
                }),
                HasSubstr("\nOpenVINO no NUM_STREAMS property! Please check.\n"));
    EXPECT_THAT(t::thrownText([&] {
                    engine.setEnginePropertyForNetwork("WindowsML", "n", "CACHE_DIR", std::filesystem::path("/tmp"));
                }),
                HasSubstr("\nWindowsML no CACHE_DIR property! Please check.\n"));
    EXPECT_NO_THROW(engine.setEnginePropertyForNetwork("OpenVINO", "n", "CACHE_DIR", std::filesystem::path("/tmp")));
}

TEST(Properties, HostDriverVersionsAreReplacedByTheLibrarysOwn) {
    kel::MLEngine engine;
    kel::PropertyMap props = {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")},
                              {"LOCAL_NPU_DRIVER_VERSION", std::string("32.0.100.9999")},
                              {"MIN_GPU_DRIVER_VERSION", std::string("1.0.100.1")}};
    engine.processPropertyForEngine("OpenVINO", props);
    // This machine has no Intel GPU or NPU: nothing replaces the host's values.
    EXPECT_EQ(props.count("LOCAL_GPU_DRIVER_VERSION"), 0u);
    EXPECT_EQ(props.count("LOCAL_NPU_DRIVER_VERSION"), 0u);
    EXPECT_EQ(props.count("MIN_GPU_DRIVER_VERSION"), 1u);

    kel::PropertyMap other = {{"LOCAL_GPU_DRIVER_VERSION", std::string("x")}};
    engine.processPropertyForEngine("WindowsML", other);
    EXPECT_TRUE(other.empty());

    // Through creation: the host's GPU driver version never reaches the back-end, so the
    // network moves to "AUTO" for want of a local GPU driver.
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    const std::vector<std::filesystem::path> model = {t::dataDir() / "openvino" / "static.xml"};
    t::capturedStderr([&] {
        t::thrownText([&] {
            engine.createNetwork("OpenVINO", "g", "GPU", model,
                                 {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")}});
        });
    });
    EXPECT_THAT(lines, Contains(HasSubstr("local GPU driver version: [], minimum GPU driver version: "
                                          "[32.0.101.2115], so change device from [GPU] to [AUTO]")));
}

}  // namespace
