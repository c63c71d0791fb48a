// Network properties and the processor check, run on records of a bare engine state, so that
// devices this machine lacks can be used.
#include <fmt/format.h>

#include <thread>
#include <type_traits>

#include "modules/openvino/openvino_internal.hpp"
#include "support.hpp"

namespace kel::vino {
namespace {

using test::kelMessage;

TEST(OpenvinoVersions, ParsingShapeAndComparison) {
    EXPECT_EQ(parseVersionNumbers("1..2."), (std::vector<int>{1, 0, 2}));
    EXPECT_EQ(parseVersionNumbers("a.-3.99999999999.+4.5x"), (std::vector<int>{0, -3, 0, 0, 0}));
    EXPECT_TRUE(isIntelDriverVersion("10.-5.100.1"));
    for (const char* bad : {"9.0.101.1", "100.0.101.1", "32.0.99.9999", "32.0.101.0", "32.0.101", "32.0.101.1.1"})
        EXPECT_FALSE(isIntelDriverVersion(bad)) << bad;

    // {minimum, local, mode, passes}: mode 0 compares Intel driver builds (the first two
    // numbers ignored; the driver table below has the rest); any other mode number by number,
    // the shorter padded with zeros.
    const std::tuple<const char*, const char*, int, bool> rows[] = {
        {"32.0.101.2115", "31.0.102.0001", 0, true}, {"32.0.101.2115", "32.0.99.9999", 0, false},
        {"", "32.0.101.2115", 0, false},             {"1.2", "1.2.0", 1, true},
        {"1.9", "1.10", 1, true},                    {"1.2.1", "1.2", 1, false},
    };
    for (const auto& [minimum, local, mode, passes] : rows)
        EXPECT_EQ(compareDriverVersion(minimum, local, mode), passes) << minimum << " vs " << local;
}

class OpenvinoProperties : public ::testing::Test {
protected:
    void SetUp() override {
        engine.log_callback = [this](const std::string& line) {
            // Every back-end file logs under the chief file's name.
            EXPECT_EQ(line.rfind("[modules/openvino/vino-api2.0.cpp:", 0), 0u) << line;
            log.push_back(line.substr(line.find("] ") + 2));
        };
    }
    void add(const std::string& device, const std::string& name = "net") { engine.networks[name].device = device; }
    // "KEY=text" is a string value; a bare "KEY" holds a number.
    static PropertyMap properties(const std::string& text) {
        PropertyMap map;
        std::istringstream words(text);
        for (std::string word; words >> word;) {
            const auto eq = word.find('=');
            map[word.substr(0, eq)] = eq == std::string::npos ? std::any(0) : std::any(word.substr(eq + 1));
        }
        return map;
    }
    // The runtime's values in quotes when they are text: it insists on its own types for most.
    template <class Map>
    static std::string describe(const Map& map) {
        std::string text;
        for (const auto& [key, value] : map) {
            text += (text.empty() ? "" : " ") + key;
            if constexpr (std::is_same_v<Map, ov::AnyMap>)
                text += value.template is<std::string>() ? "='" + value.template as<std::string>() + "'"
                                                          : "=" + value.template as<std::string>();
            else if (const auto* s = std::any_cast<std::string>(&value)) text += "=" + *s;
        }
        return text;
    }

    vino_InferenceEngine engine;
    std::vector<std::string> log;  // each line without its tag
};

TEST_F(OpenvinoProperties, DriverVersionsMoveOldAcceleratorsToAuto) {
    const std::string all =
        "CACHE_DIR GPU_THROTTLE_HINT_LEVEL=LOW LOCAL_GPU_DRIVER_VERSION= LOCAL_NPU_DRIVER_VERSION= "
        "MIN_GPU_DRIVER_VERSION= MIN_NPU_DRIVER_VERSION= MULTI_DEVICE_PRIORITIES=CPU SOMETHING_ELSE";
    auto fallback = [](const char* device, const char* local, const char* minimum) {
        return fmt::format(": createNetwork : local {0} driver version: [{1}], minimum {0} driver version: [{2}], "
                           "so change device from [{0}] to [AUTO] with [{0},CPU] multi-device priorities.",
                           device, local, minimum);
    };
    // {device, properties given, properties left, the fallback to "AUTO" logged (none: the device stays)}
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        // The network is "AUTO" afterwards, so parseProperties still applies the throttle hint.
        {"GPU", "GPU_THROTTLE_HINT_LEVEL=HIGH MULTI_DEVICE_PRIORITIES=CPU LOCAL_NPU_DRIVER_VERSION=32.0.100.9999",
         "GPU_THROTTLE_HINT_LEVEL=HIGH MULTI_DEVICE_PRIORITIES=GPU,CPU", fallback("GPU", "", "32.0.101.2115")},
        {"GPU", "LOCAL_GPU_DRIVER_VERSION=31.0.101.2115 MULTI_DEVICE_PRIORITIES=GPU,CPU MIN_NPU_DRIVER_VERSION=1",
         "", ""},
        {"GPU", "LOCAL_GPU_DRIVER_VERSION=31.0.101.2115 MIN_GPU_DRIVER_VERSION=31.0.101.2116",
         "MULTI_DEVICE_PRIORITIES=GPU,CPU", fallback("GPU", "31.0.101.2115", "31.0.101.2116")},
        // An NPU network keeps the GPU minimum (parseProperties ignores it).
        {"NPU", "LOCAL_NPU_DRIVER_VERSION=32.0.100.4296 LOCAL_GPU_DRIVER_VERSION=1 MIN_GPU_DRIVER_VERSION=1",
         "MIN_GPU_DRIVER_VERSION=1 MULTI_DEVICE_PRIORITIES=NPU,CPU",
         fallback("NPU", "32.0.100.4296", "32.0.100.4297")},
        {"NPU", "LOCAL_NPU_DRIVER_VERSION=32.0.100.4297", "", ""},
        {"CPU", all, "SOMETHING_ELSE", ""},
        {"AUTO", all, "CACHE_DIR GPU_THROTTLE_HINT_LEVEL=LOW MULTI_DEVICE_PRIORITIES=CPU SOMETHING_ELSE", ""},
        // Indexed and composite devices are the host's own choice: no fallback, driver keys kept.
        {"GPU.1", all, "CACHE_DIR GPU_THROTTLE_HINT_LEVEL=LOW LOCAL_GPU_DRIVER_VERSION= LOCAL_NPU_DRIVER_VERSION= "
                       "MIN_GPU_DRIVER_VERSION= MIN_NPU_DRIVER_VERSION= SOMETHING_ELSE", ""},
    };
    for (const auto& [device, given, left, logged] : rows) {
        log.clear();
        add(device);
        EXPECT_EQ(describe(checkXPUProperties(engine, "net", properties(given))), left) << given;
        EXPECT_EQ(engine.networks.at("net").device, logged.empty() ? device : "AUTO") << given;
        EXPECT_EQ(log, logged.empty() ? std::vector<std::string>{} : std::vector<std::string>{logged});
    }
}

TEST_F(OpenvinoProperties, ConfigurationRulesAndMessages) {
    const unsigned threads = std::thread::hardware_concurrency();
    // {device, properties given, the runtime's configuration or the refusal}
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"CPU", "CPU_RUNTIME_CACHE_CAPACITY=50 DEVICE_PERFORMANCE_MODE=LATENCY RUNTIME_STREAMS_NUMBER=2 "
                "INFERENCE_THREADS_NUMBER=1 GPU_THROTTLE_HINT_LEVEL=LOW NUM_STREAMS=7",
         "CPU_RUNTIME_CACHE_CAPACITY='50' INFERENCE_NUM_THREADS=1 NUM_STREAMS=2 PERFORMANCE_HINT=LATENCY"},
        // Threads and cache capacity are processor settings only; unknown keys do nothing.
        {"GPU", "INFERENCE_THREADS_NUMBER=abc CPU_RUNTIME_CACHE_CAPACITY=5 MULTI_DEVICE_PRIORITIES=GPU "
                "GPU_THROTTLE_HINT_LEVEL=MEDIUM",
         "GPU_QUEUE_THROTTLE=MEDIUM"},
        {"AUTO", "MIN_GPU_DRIVER_VERSION=1 MULTI_DEVICE_PRIORITIES=NPU,CPU", "MULTI_DEVICE_PRIORITIES='NPU,CPU'"},
        {"AUTO", "RUNTIME_STREAMS_NUMBER=0",
         "RUNTIME_STREAMS_NUMBER property value [0] is not a supported value. The valid value is larger than 0."},
        {"AUTO", "RUNTIME_STREAMS_NUMBER=abc",
         "invalid stoi argument: RUNTIME_STREAMS_NUMBER type is std::string. Please check your property value "
         "type."},
        {"AUTO", fmt::format("INFERENCE_THREADS_NUMBER={}", threads + 1),
         fmt::format("INFERENCE_THREADS_NUMBER property value [{}] is not a supported value. The valid value is "
                     "less than or equal to the number of hardware threads({}).", threads + 1, threads)},
        // Several bad values: the first in the property table's order is reported.
        {"AUTO", "DEVICE_PERFORMANCE_MODE=FAST GPU_THROTTLE_HINT_LEVEL=low",
         "GPU_THROTTLE_HINT_LEVEL property value [low] is not a supported value. The valid value is \"LOW\", "
         "\"MEDIUM\" or \"HIGH\"."},
        {"AUTO", "DEVICE_PERFORMANCE_MODE=FAST",
         "DEVICE_PERFORMANCE_MODE property value [FAST] is not a supported value. The valid value is "
         "\"THROUGHPUT\", \"LATENCY\" or \"CUMULATIVE_THROUGHPUT\"."},
        {"AUTO", "DEVICE_PERFORMANCE_MODE",
         "Bad any_cast: DEVICE_PERFORMANCE_MODE type is std::string. Please check your property value type."},
    };
    for (const auto& [device, given, want] : rows) {
        add(device);
        const auto parse = [&] { return describe(parseProperties(engine, "net", properties(given))); };
        EXPECT_EQ(test::thrownText(parse).empty() ? parse() : kelMessage(parse, "vino_properties"), want);
    }
    EXPECT_EQ(log.front(), ": createNetwork : [CPU_RUNTIME_CACHE_CAPACITY] is [50]");
    EXPECT_EQ(PropertyTypeTable().size(), 11u);
}

TEST_F(OpenvinoProperties, CacheDirectoryOnlyForAcceleratorsAndOnTheNetworksOwnCore) {
    test::TempDir root;
    const auto wanted = root / "a" / "b";
    add("CPU", "cpu");
    setNetworkCacheDir(engine, "cpu", {{"CACHE_DIR", wanted}});
    EXPECT_FALSE(std::filesystem::exists(root / "a"));
    add("AUTO", "auto");
    setNetworkCacheDir(engine, "auto", {{"CACHE_DIR", wanted}});
    EXPECT_TRUE(std::filesystem::is_directory(wanted));
    EXPECT_EQ(log, std::vector<std::string>{": createNetwork : [CACHE_DIR] is [" + wanted.string() + "]"});
    // Each network has its own core: the setting does not leak.
    for (const auto& [name, dir] : {std::pair{"auto", wanted.string()}, std::pair{"cpu", std::string()}})
        EXPECT_EQ(engine.networks.at(name).core.get_property(ov::cache_dir.name()).as<std::string>(), dir);
    EXPECT_THROW(setNetworkCacheDir(engine, "auto", {{"CACHE_DIR", wanted.string()}}), std::bad_any_cast);
}

TEST_F(OpenvinoProperties, Sse42IsRequiredOnlyForProcessorCompilation) {
    const std::string name = std::get<std::string>(getDeviceProperty(engine, "CPU", "FULL_DEVICE_NAME"));
    const std::pair<const char*, bool> rows[] = {
        {"CPU", true}, {"AUTO", true}, {"GPU", false}, {"HETERO:CPU", false}};
    for (const auto& [device, refused] : rows) {
        add(device);
        EXPECT_NO_THROW(checkCPUFeatures(engine, "net", [] { return true; }));
        const auto withoutSse42 = [&] { checkCPUFeatures(engine, "net", [] { return false; }); };
        EXPECT_EQ(refused ? kelMessage(withoutSse42, "vino_bringup") : test::thrownText(withoutSse42),
                  refused ? "SSE4.2 is not supported on this CPU [" + name + "]." : "") << device;
    }
}

}  // namespace
}  // namespace kel::vino
