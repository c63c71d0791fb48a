// The engine object: its engine table, versions, "current" queries and shared copies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/support.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

TEST(Engine, FreshEngineListsBothEnginesAndHasNoCurrentNetwork) {
    kel::MLEngine engine;
    EXPECT_THAT(engine.getSupportedEngines(), ElementsAre("OpenVINO", "WindowsML"));
    EXPECT_EQ(engine.getCurrentIdentifier(), "");
    try {
        engine.getCurrentEngine();
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
    }
    EXPECT_THAT(kel::test::thrownText([&] { engine.getCurrentNetworkDevice(); }),
                HasSubstr("\nNetwork id [] not exists or created. Please check.\n"));
}

TEST(Engine, VersionsAndTheirRefusals) {
    kel::MLEngine engine;
    EXPECT_EQ(engine.version(), "2025.10.23-78560f91(x64)");
    EXPECT_THAT(engine.version("OpenVINO"), MatchesRegex("20[0-9][0-9]\\.[0-9]+\\.[0-9]+-.*"));
    EXPECT_THAT(engine.version("WindowsML"), MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
    EXPECT_THAT(kel::test::thrownText([&] { engine.version(""); }), HasSubstr("\nEngine Name is empty!\n"));
    EXPECT_THAT(kel::test::thrownText([&] { engine.version("openvino"); }),
                HasSubstr("\nNot support openvino engine.\n"));
    EXPECT_THAT(kel::test::thrownText([&] { engine.version("CoreML"); }),
                HasSubstr("\nNot support CoreML engine.\n"));
}

TEST(Engine, LoadersAreAcceptedAndIgnored) {
    auto loader = +[](const wchar_t*) -> void* { return nullptr; };
    kel::MLEngine with(loader, loader);
    kel::MLEngine without;
    EXPECT_EQ(with.getSupportedEngines(), without.getSupportedEngines());
}

TEST(Engine, AssignmentSharesTheImplementation) {
    kel::MLEngine a;
    std::vector<std::string> lines;
    {
        kel::MLEngine b;
        b = a;
        b.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    }
    // a kept the callback installed through b, and outlives b without harm.
    lines.clear();
    a.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    EXPECT_EQ(lines.size(), 2u);
}

TEST(Engine, WaitForDeviceInformationIsOnlyForOpenVINO) {
    kel::MLEngine engine;
    EXPECT_FALSE(engine.waitDeviceInfoInit("WindowsML", 5).has_value());
    EXPECT_FALSE(engine.waitDeviceInfoInit("", 5).has_value());
    const std::any drivers = engine.waitDeviceInfoInit("OpenVINO", 1);
    const auto* map = std::any_cast<std::unordered_map<std::string, kel::DeviceDriverInfo>>(&drivers);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->size(), 2u);
    EXPECT_EQ(map->count("GPU"), 1u);
    EXPECT_EQ(map->count("NPU"), 1u);
}

}  // namespace
