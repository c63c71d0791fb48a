// Network properties: driver versions, the GPU/NPU fallback, the typed configuration and
// the model cache directory. Records are made through the test seam, so devices this
// machine lacks can be used.
#include <fmt/format.h>

#include <openvino/openvino.hpp>
#include <thread>

#include "modules/openvino/openvino_internal.hpp"
#include "support.hpp"

namespace kel {
namespace {

using test::kelMessage;

TEST(OpenvinoVersions, ParsingShapeAndComparison) {
    using V = std::vector<int>;
    EXPECT_EQ(openvino::parseVersionNumbers("32.0.101.2115"), (V{32, 0, 101, 2115}));
    EXPECT_EQ(openvino::parseVersionNumbers("1..2."), (V{1, 0, 2}));
    EXPECT_EQ(openvino::parseVersionNumbers("a.-3.99999999999.+4.5x"), (V{0, -3, 0, 0, 0}));
    EXPECT_TRUE(openvino::isIntelDriverVersion("10.-5.100.1"));
    for (const char* bad : {"9.0.101.1", "100.0.101.1", "32.0.99.9999", "32.0.101.0", "32.0.101", "32.0.101.1.1", ""})
        EXPECT_FALSE(openvino::isIntelDriverVersion(bad)) << bad;

    // {minimum, local, mode, passes}: mode 0 compares Intel driver builds (the first two
    // numbers ignored); any other mode number by number, the shorter padded with zeros.
    const std::tuple<const char*, const char*, int, bool> rows[] = {
        {"32.0.101.2115", "31.0.101.2115", 0, true},  {"32.0.101.2115", "31.0.102.0001", 0, true},
        {"32.0.101.2115", "32.0.101.2114", 0, false}, {"32.0.101.2115", "32.0.99.9999", 0, false},
        {"32.0.101.2115", "", 0, false},              {"", "32.0.101.2115", 0, false},
        {"1.2", "1.2.0", 1, true},                    {"1.9", "1.10", 1, true},
        {"1.10", "1.9.99", 1, false},                 {"1.2.1", "1.2", 1, false},
    };
    for (const auto& [minimum, local, mode, passes] : rows)
        EXPECT_EQ(openvino::compareDriverVersion(minimum, local, mode), passes) << minimum << " vs " << local;
}

class OpenvinoProperties : public ::testing::Test {
protected:
    void SetUp() override {
        backend.setLogCallback([this](const std::string& line) { log.push_back(line); });
    }
    PropertyMap check(const std::string& device, const PropertyMap& properties) {
        openvino_testing::addNetworkRecord(backend, "net", device);
        return backend.checkXPUProperties("net", properties);
    }
    ov::AnyMap parse(const std::string& device, const PropertyMap& properties) {
        openvino_testing::addNetworkRecord(backend, "net", device);
        return std::any_cast<ov::AnyMap>(backend.parseProperties("net", properties));
    }
    static std::vector<std::string> keys(const PropertyMap& map) {
        std::vector<std::string> k;
        for (const auto& entry : map) k.push_back(entry.first);
        return k;
    }
    bool logged(const std::string& part) const {
        for (const auto& line : log)
            if (line.find(part) != std::string::npos) return true;
        return false;
    }

    openvino backend;
    std::vector<std::string> log;
};

TEST_F(OpenvinoProperties, GpuWithoutLocalDriverFallsBackToAutoAndKeepsThrottle) {
    const PropertyMap given = {{"GPU_THROTTLE_HINT_LEVEL", std::string("HIGH")},
                               {"MULTI_DEVICE_PRIORITIES", std::string("CPU")},
                               {"LOCAL_NPU_DRIVER_VERSION", std::string("32.0.100.9999")}};
    const PropertyMap adjusted = check("GPU", given);
    EXPECT_EQ(backend.getNetworkDevice("net"), "AUTO");
    EXPECT_EQ(keys(adjusted),
              (std::vector<std::string>{"GPU_THROTTLE_HINT_LEVEL", "MULTI_DEVICE_PRIORITIES"}));
    EXPECT_EQ(std::any_cast<std::string>(adjusted.at("MULTI_DEVICE_PRIORITIES")), "GPU,CPU");
    EXPECT_TRUE(logged("] : createNetwork : local GPU driver version: [], minimum GPU driver "
                       "version: [32.0.101.2115], so change device from [GPU] to [AUTO] with "
                       "[GPU,CPU] multi-device priorities."));

    // The network is "AUTO" now, so the throttle hint still reaches the configuration.
    const ov::AnyMap config = std::any_cast<ov::AnyMap>(backend.parseProperties("net", adjusted));
    ASSERT_EQ(config.size(), 2u);
    EXPECT_EQ(config.at("GPU_QUEUE_THROTTLE").as<ov::hint::Priority>(), ov::hint::Priority::HIGH);
    EXPECT_EQ(config.at("MULTI_DEVICE_PRIORITIES").as<std::string>(), "GPU,CPU");
    EXPECT_TRUE(logged("] : createNetwork : [GPU_THROTTLE_HINT_LEVEL] is [HIGH]"));
}

TEST_F(OpenvinoProperties, GpuWithRecentDriverStaysAndDropsPriorities) {
    const PropertyMap adjusted =
        check("GPU", {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")},
                      {"MULTI_DEVICE_PRIORITIES", std::string("GPU,CPU")},
                      {"MIN_NPU_DRIVER_VERSION", std::string("1")}});
    EXPECT_EQ(backend.getNetworkDevice("net"), "GPU");
    EXPECT_TRUE(adjusted.empty());
    EXPECT_TRUE(log.size() == 1);  // only the version line of setLogCallback

    // A host minimum above the local driver moves the network after all.
    check("GPU", {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")},
                  {"MIN_GPU_DRIVER_VERSION", std::string("31.0.101.2116")}});
    EXPECT_EQ(backend.getNetworkDevice("net"), "AUTO");
}

TEST_F(OpenvinoProperties, NpuFallbackKeepsTheGpuMinimum) {
    const PropertyMap adjusted =
        check("NPU", {{"LOCAL_NPU_DRIVER_VERSION", std::string("32.0.100.4296")},
                      {"LOCAL_GPU_DRIVER_VERSION", std::string("32.0.101.9999")},
                      {"MIN_GPU_DRIVER_VERSION", std::string("1.2.3.4")}});
    EXPECT_EQ(backend.getNetworkDevice("net"), "AUTO");
    EXPECT_EQ(keys(adjusted),
              (std::vector<std::string>{"MIN_GPU_DRIVER_VERSION", "MULTI_DEVICE_PRIORITIES"}));
    EXPECT_EQ(std::any_cast<std::string>(adjusted.at("MULTI_DEVICE_PRIORITIES")), "NPU,CPU");
    EXPECT_TRUE(logged("local NPU driver version: [32.0.100.4296], minimum NPU driver version: "
                       "[32.0.100.4297], so change device from [NPU] to [AUTO] with [NPU,CPU]"));
    // The leftover minimum is accepted and produces nothing.
    EXPECT_EQ(std::any_cast<ov::AnyMap>(backend.parseProperties("net", adjusted)).size(), 1u);
}

TEST_F(OpenvinoProperties, CpuAutoAndOtherDevicesKeepWhatTheyShould) {
    const PropertyMap all = {{"CACHE_DIR", std::filesystem::path("/nowhere")},
                             {"GPU_THROTTLE_HINT_LEVEL", std::string("LOW")},
                             {"MULTI_DEVICE_PRIORITIES", std::string("CPU")},
                             {"LOCAL_GPU_DRIVER_VERSION", std::string("")},
                             {"LOCAL_NPU_DRIVER_VERSION", std::string("")},
                             {"MIN_GPU_DRIVER_VERSION", std::string("")},
                             {"MIN_NPU_DRIVER_VERSION", std::string("")},
                             {"SOMETHING_ELSE", 5}};
    EXPECT_EQ(keys(check("CPU", all)), std::vector<std::string>{"SOMETHING_ELSE"});
    EXPECT_EQ(keys(check("AUTO", all)),
              (std::vector<std::string>{"CACHE_DIR", "GPU_THROTTLE_HINT_LEVEL",
                                        "MULTI_DEVICE_PRIORITIES", "SOMETHING_ELSE"}));
    // An indexed device is the host's own choice: no fallback, driver keys untouched.
    PropertyMap expected = all;
    expected.erase("MULTI_DEVICE_PRIORITIES");
    EXPECT_EQ(keys(check("GPU.1", all)), keys(expected));
    EXPECT_EQ(backend.getNetworkDevice("net"), "GPU.1");
}

TEST_F(OpenvinoProperties, ConfigurationHasTheRuntimeTypes) {
    const ov::AnyMap config = parse("CPU", {{"CPU_RUNTIME_CACHE_CAPACITY", std::string("50")},
                                            {"DEVICE_PERFORMANCE_MODE", std::string("LATENCY")},
                                            {"RUNTIME_STREAMS_NUMBER", std::string("2")},
                                            {"INFERENCE_THREADS_NUMBER", std::string("1")},
                                            {"GPU_THROTTLE_HINT_LEVEL", std::string("LOW")},
                                            {"NUM_STREAMS", std::string("7")}});
    ASSERT_EQ(config.size(), 4u);
    EXPECT_EQ(config.at("CPU_RUNTIME_CACHE_CAPACITY").as<std::string>(), "50");
    EXPECT_TRUE(config.at("PERFORMANCE_HINT").is<ov::hint::PerformanceMode>());
    EXPECT_EQ(config.at("PERFORMANCE_HINT").as<ov::hint::PerformanceMode>(),
              ov::hint::PerformanceMode::LATENCY);
    ASSERT_TRUE(config.at("NUM_STREAMS").is<ov::streams::Num>());
    EXPECT_EQ(config.at("NUM_STREAMS").as<ov::streams::Num>().num, 2);
    ASSERT_TRUE(config.at("INFERENCE_NUM_THREADS").is<int>());
    EXPECT_EQ(config.at("INFERENCE_NUM_THREADS").as<int>(), 1);
    EXPECT_TRUE(logged("] : createNetwork : [RUNTIME_STREAMS_NUMBER] is [2]"));

    // Device conditions: threads and cache capacity are processor settings only.
    const ov::AnyMap gpu = parse("GPU", {{"INFERENCE_THREADS_NUMBER", std::string("abc")},
                                         {"CPU_RUNTIME_CACHE_CAPACITY", std::string("5")},
                                         {"MULTI_DEVICE_PRIORITIES", std::string("GPU")},
                                         {"GPU_THROTTLE_HINT_LEVEL", std::string("MEDIUM")}});
    ASSERT_EQ(gpu.size(), 1u);
    EXPECT_EQ(gpu.at("GPU_QUEUE_THROTTLE").as<ov::hint::Priority>(), ov::hint::Priority::MEDIUM);
}

TEST_F(OpenvinoProperties, ValidationMessages) {
    auto refuse = [this](const char* key, std::any value) {
        return kelMessage([&] { parse("AUTO", {{key, value}}); });
    };
    EXPECT_EQ(refuse("RUNTIME_STREAMS_NUMBER", std::string("0")),
              "RUNTIME_STREAMS_NUMBER property value [0] is not a supported value. The valid "
              "value is larger than 0.");
    EXPECT_EQ(refuse("RUNTIME_STREAMS_NUMBER", std::string("abc")),
              "invalid stoi argument: RUNTIME_STREAMS_NUMBER type is std::string. Please check "
              "your property value type.");
    EXPECT_EQ(refuse("INFERENCE_THREADS_NUMBER", std::string("0")),
              "INFERENCE_THREADS_NUMBER property value [0] is not a supported value. The valid "
              "value is larger than 0.");
    EXPECT_EQ(refuse("INFERENCE_THREADS_NUMBER", std::string("abc")),
              "invalid stoi argument: INFERENCE_THREADS_NUMBER type is std::string. Please check "
              "your property value type.");
    const unsigned threads = std::thread::hardware_concurrency();
    EXPECT_EQ(refuse("INFERENCE_THREADS_NUMBER", std::to_string(threads + 1)),
              fmt::format("INFERENCE_THREADS_NUMBER property value [{}] is not a supported "
                          "value. The valid value is less than or equal to the number of "
                          "hardware threads({}).",
                          threads + 1, threads));
    EXPECT_EQ(refuse("GPU_THROTTLE_HINT_LEVEL", std::string("low")),
              "GPU_THROTTLE_HINT_LEVEL property value [low] is not a supported value. The valid "
              "value is \"LOW\", \"MEDIUM\" or \"HIGH\".");
    EXPECT_EQ(refuse("DEVICE_PERFORMANCE_MODE", std::string("FAST")),
              "DEVICE_PERFORMANCE_MODE property value [FAST] is not a supported value. The valid "
              "value is \"THROUGHPUT\", \"LATENCY\" or \"CUMULATIVE_THROUGHPUT\".");
    EXPECT_EQ(refuse("DEVICE_PERFORMANCE_MODE", 3),
              "Bad any_cast: DEVICE_PERFORMANCE_MODE type is std::string. Please check your "
              "property value type.");
}

TEST_F(OpenvinoProperties, CacheDirectory) {
    const auto root = std::filesystem::temp_directory_path() /
                      ("kel-cache-test-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    std::filesystem::remove_all(root);
    const auto wanted = root / "a" / "b";

    openvino_testing::addNetworkRecord(backend, "cpu", "CPU");
    backend.setNetworkCacheDir("cpu", {{"CACHE_DIR", wanted}});
    EXPECT_FALSE(std::filesystem::exists(root)) << "a CPU network has no model cache";

    openvino_testing::addNetworkRecord(backend, "auto", "AUTO");
    backend.setNetworkCacheDir("auto", {{"CACHE_DIR", wanted}});
    EXPECT_TRUE(std::filesystem::is_directory(wanted));
    EXPECT_EQ(openvino_testing::networkCacheDir(backend, "auto"), wanted.string());
    EXPECT_TRUE(logged("] : createNetwork : [CACHE_DIR] is [" + wanted.string() + "]"));
    // Each network has its own core: the setting does not leak.
    EXPECT_EQ(openvino_testing::networkCacheDir(backend, "cpu"), "");

    EXPECT_THROW(backend.setNetworkCacheDir("auto", {{"CACHE_DIR", wanted.string()}}),
                 std::bad_any_cast);
    std::filesystem::remove_all(root);
}

TEST(OpenvinoMutableProperties, ListsEveryAcceptedKeyWithItsType) {
    openvino backend;
    const auto table = backend.getEngineMutableProperties();
    EXPECT_EQ(table.size(), 11u);
    EXPECT_EQ(table.at("CACHE_DIR"), "std::filesystem::path");
    EXPECT_EQ(table.at("MIN_NPU_DRIVER_VERSION"), "std::string");
    EXPECT_EQ(table.at("GPU_THROTTLE_HINT_LEVEL"), "std::string");
}

}  // namespace
}  // namespace kel
