// Devices, device properties and per-network engine properties through kel::MLEngine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/support.hpp"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace t = kel::test;

TEST(Properties, DevicesAndTheirProperties) {
    kel::MLEngine engine;
    const auto ov = engine.getSupportedDevices("OpenVINO");
    ASSERT_GE(ov.size(), 2u);
    EXPECT_EQ(ov[0], "AUTO");
    EXPECT_THAT(ov, Contains("CPU"));
    EXPECT_THAT(engine.getSupportedDevices("WindowsML"), ElementsAre("AUTO", "CPU"));
    EXPECT_THAT(engine.getDeviceSupportProperties("OpenVINO", "CPU"),
                ElementsAre("FULL_DEVICE_NAME", "DEVICE_ARCHITECTURE"));
    EXPECT_THAT(engine.getDeviceSupportProperties("WindowsML", "CPU"), IsEmpty());

    const auto name = engine.getDeviceProperty("OpenVINO", "CPU", "FULL_DEVICE_NAME");
    ASSERT_TRUE(std::holds_alternative<std::string>(name));
    EXPECT_FALSE(std::get<std::string>(name).empty());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(engine.getDeviceProperty("WindowsML", "CPU", "FULL_DEVICE_NAME")));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(engine.getDeviceProperty("OpenVINO", "GPU", "FULL_DEVICE_NAME")));

    // "AUTO" is refused before the engine name is even looked up.
    EXPECT_THAT(t::thrownText([&] { engine.getDeviceSupportProperties("NoSuchEngine", "AUTO"); }),
                HasSubstr("\ncould not get the property for AUTO device.\n"));
    EXPECT_THAT(t::thrownText([&] { engine.getDeviceSupportProperties("OpenVINO", ""); }),
                HasSubstr("\ndevice is empty! \n"));
    EXPECT_THAT(t::thrownText([&] { engine.getDeviceProperty("OpenVINO", "CPU", ""); }),
                HasSubstr("\nsupported_property is empty! \n"));
    EXPECT_THAT(t::thrownText([&] { engine.getSupportedDevices("openvino"); }),
                HasSubstr("\nNot support openvino engine.\n"));
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
