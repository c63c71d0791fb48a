#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "kel/cxx/MLEngine.hpp"
#include "kel/cxx/device_info.hpp"

namespace {

using kel::DeviceDriverInfo;
using DriverMap = std::unordered_map<std::string, DeviceDriverInfo>;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::vector<DeviceDriverInfo> heldBackRows(const std::string& device_class) {
    if (device_class == "GPU")
        return {{"546.17", std::string("NVIDIA GeForce RTX 3080\0", 24)},
                {"31.0.101.5186", std::string("Intel(R) Arc(TM) A770 Graphics\0", 31)},
                {"31.0.101.4502", std::string("Intel(R) Iris(R) Xe Graphics\0", 29)}};
    if (device_class == "NPU") return {{"1.0", std::string("AMD NPU\0", 8)}};
    return {{"6.1", std::string("Intel CPU\0", 10)}};
}

TEST(WaitDeviceInfoInit, WaitsAboutTheTimeOutWhileGatheringIsHeldBackAndNotOnceItIsDone) {
    kel::MLEngine engine;
    auto release = std::make_shared<std::promise<void>>();
    std::shared_future<void> gate = release->get_future().share();
    kel::device_info::restartForTesting([gate](const std::string& device_class) {
        gate.wait();
        return heldBackRows(device_class);
    });

    auto start = Clock::now();
    std::any pending = engine.waitDeviceInfoInit("OpenVINO", 1);
    const double waited = secondsSince(start);
    EXPECT_GE(waited, 0.9);
    EXPECT_LT(waited, 5.0);
    ASSERT_EQ(pending.type(), typeid(DriverMap));
    EXPECT_TRUE(std::any_cast<DriverMap>(pending).empty());

    release->set_value();
    auto& table = kel::device_info::table();
    for (auto deadline = Clock::now() + std::chrono::seconds(10); !table.ready && Clock::now() < deadline;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(table.ready);

    start = Clock::now();
    std::any ready = engine.waitDeviceInfoInit("OpenVINO", 1);
    EXPECT_LT(secondsSince(start), 0.5);
    const auto& drivers = std::any_cast<const DriverMap&>(ready);
    EXPECT_EQ(drivers.size(), 2u);
    EXPECT_EQ(drivers.at("GPU").first, "31.0.101.5186");
    EXPECT_EQ(drivers.at("NPU"), DeviceDriverInfo());
}

TEST(WaitDeviceInfoInit, OtherEnginesGetAnEmptyValueAtOnce) {
    kel::MLEngine engine;
    kel::device_info::restartForTesting([](const std::string&) -> std::vector<DeviceDriverInfo> {
        std::this_thread::sleep_for(std::chrono::hours(1));
        return {};
    });
    const auto start = Clock::now();
    EXPECT_FALSE(engine.waitDeviceInfoInit("WindowsML", 1).has_value());
    EXPECT_FALSE(engine.waitDeviceInfoInit("", 5).has_value());
    EXPECT_FALSE(engine.waitDeviceInfoInit("openvino", 5).has_value());
    EXPECT_LT(secondsSince(start), 0.5);
}

}  // namespace
