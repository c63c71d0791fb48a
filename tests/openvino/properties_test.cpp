// Network properties and the processor check, run on records of a bare engine state, so that
// devices this machine lacks can be used.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sstream>

#include "modules/openvino/openvino_internal.hpp"
#include "modules/openvino/vino_test_hooks.hpp"
#include "tests/support/support.hpp"

namespace kel::vino {
namespace {

TEST(OpenvinoVersions, IntelDriverBuildsCompareByTheirLastTwoNumbers) {
    // {minimum, local, passes}: both must be Intel driver versions: four numbers, the first of
    // two digits, the last two at least 100 and 1; a piece that is no number or overflows is 0.
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"32.0.101.2115", "31.0.102.0001", true}, {"32.0.101.2115", "32.0.99.9999", false},
        {"10.-5.100.1", "99..100.1", true},       {"10.0.100.1", "9.0.101.1", false},
        {"10.0.100.1", "32.0.101.0", false},      {"10.0.100.1", "32.0.101.1.1", false},
        {"10.0.100.1", "32.0.+101.1", false},     {"10.0.100.1", "32.0.99999999999.1", false},
    };
    for (const auto& [minimum, local, passes] : rows)
        EXPECT_EQ(compareDriverVersion(minimum, local, 0), passes) << minimum << " vs " << local;
}

class OpenvinoProperties : public ::testing::Test {
protected:
    // "<device compiled for>: <runtime configuration>" (texts quoted: the runtime insists on its
    // own types), or the refusal, for `given` "KEY=text" texts and bare "KEY" numbers.
    std::string configure(const std::string& device, const std::string& given, bool sse42 = true) {
        engine.networks["net"].device = device;
        PropertyMap properties;
        std::istringstream words(given);
        for (std::string word; words >> word;) {
            const auto eq = word.find('=');
            properties[word.substr(0, eq)] = eq == std::string::npos ? std::any(0) : std::any(word.substr(eq + 1));
        }
        try {
            checkCPUFeatures(engine, "net", sse42 ? +[] { return true; } : +[] { return false; });
            const ov::AnyMap config = parseProperties(engine, "net", checkXPUProperties(engine, "net", properties));
            std::string text = engine.networks.at("net").device + ":";
            for (const auto& [key, value] : config)
                text += " " + key + (value.is<std::string>() ? "='" + value.as<std::string>() + "'"
                                                             : "=" + value.as<std::string>());
            return text;
        } catch (const KELException& e) {
            const std::string text = e.what();
            return text.substr(text.find('\n') + 1, text.size() - text.find('\n') - 2);
        }
    }

    vino_InferenceEngine engine;
};

TEST_F(OpenvinoProperties, EachKeyReachesTheDevicesItIsForAndOldAcceleratorDriversMoveToAuto) {
    const std::string all =
        "CACHE_DIR GPU_THROTTLE_HINT_LEVEL=LOW LOCAL_GPU_DRIVER_VERSION= LOCAL_NPU_DRIVER_VERSION= "
        "MIN_GPU_DRIVER_VERSION= MIN_NPU_DRIVER_VERSION= MULTI_DEVICE_PRIORITIES=CPU SOMETHING_ELSE";
    // {device, properties given, what creation makes of them}
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"CPU", "CPU_RUNTIME_CACHE_CAPACITY=50 DEVICE_PERFORMANCE_MODE=LATENCY RUNTIME_STREAMS_NUMBER=2 "
                "INFERENCE_THREADS_NUMBER=1 NUM_STREAMS=7 " + all,
         "CPU: CPU_RUNTIME_CACHE_CAPACITY='50' INFERENCE_NUM_THREADS=1 NUM_STREAMS=2 PERFORMANCE_HINT=LATENCY"},
        {"AUTO", all, "AUTO: GPU_QUEUE_THROTTLE=LOW MULTI_DEVICE_PRIORITIES='CPU'"},
        // A GPU or NPU without a local driver of at least the minimum (the host's, else the
        // library's) runs on "AUTO", the accelerator first; then the "AUTO" rules apply.
        {"GPU", "GPU_THROTTLE_HINT_LEVEL=HIGH MULTI_DEVICE_PRIORITIES=CPU LOCAL_NPU_DRIVER_VERSION=32.0.100.9999",
         "AUTO: GPU_QUEUE_THROTTLE=HIGH MULTI_DEVICE_PRIORITIES='GPU,CPU'"},
        {"GPU", "LOCAL_GPU_DRIVER_VERSION=31.0.101.2115 MIN_NPU_DRIVER_VERSION=1 INFERENCE_THREADS_NUMBER=abc "
                "CPU_RUNTIME_CACHE_CAPACITY=5 MULTI_DEVICE_PRIORITIES=GPU GPU_THROTTLE_HINT_LEVEL=MEDIUM",
         "GPU: GPU_QUEUE_THROTTLE=MEDIUM"},
        {"GPU", "LOCAL_GPU_DRIVER_VERSION=31.0.101.2115 MIN_GPU_DRIVER_VERSION=31.0.101.2116",
         "AUTO: MULTI_DEVICE_PRIORITIES='GPU,CPU'"},
        {"NPU", "LOCAL_NPU_DRIVER_VERSION=32.0.100.4296 LOCAL_GPU_DRIVER_VERSION=1 MIN_GPU_DRIVER_VERSION=1",
         "AUTO: MULTI_DEVICE_PRIORITIES='NPU,CPU'"},
        {"NPU", "LOCAL_NPU_DRIVER_VERSION=32.0.100.4297 GPU_THROTTLE_HINT_LEVEL=LOW RUNTIME_STREAMS_NUMBER=3",
         "NPU: NUM_STREAMS=3"},
        // Indexed and composite devices are the host's own choice: no fallback, no device rules.
        {"GPU.1", all + " DEVICE_PERFORMANCE_MODE=THROUGHPUT", "GPU.1: PERFORMANCE_HINT=THROUGHPUT"},
        {"AUTO", "RUNTIME_STREAMS_NUMBER=0",
         "RUNTIME_STREAMS_NUMBER property value [0] is not a supported value. The valid value is larger than 0."},
        {"AUTO", "GPU_THROTTLE_HINT_LEVEL=low",
         "GPU_THROTTLE_HINT_LEVEL property value [low] is not a supported value. The valid value is \"LOW\", "
         "\"MEDIUM\" or \"HIGH\"."},
        {"AUTO", "DEVICE_PERFORMANCE_MODE=FAST",
         "DEVICE_PERFORMANCE_MODE property value [FAST] is not a supported value. The valid value is "
         "\"THROUGHPUT\", \"LATENCY\" or \"CUMULATIVE_THROUGHPUT\"."},
        {"AUTO", "DEVICE_PERFORMANCE_MODE",
         "Bad any_cast: DEVICE_PERFORMANCE_MODE type is std::string. Please check your property value type."},
        {"AUTO", "RUNTIME_STREAMS_NUMBER=99999999999",
         "stoi argument out of range: RUNTIME_STREAMS_NUMBER type is std::string. Please check your property value type."},
    };
    for (const auto& [device, given, want] : rows) EXPECT_EQ(configure(device, given), want) << given;
}

TEST_F(OpenvinoProperties, ThreadsAreBoundedByTheMachinesCountWhereItIsKnown) {
    // {hardware threads, 0 for unknown; INFERENCE_THREADS_NUMBER; what creation makes of it}
    const std::tuple<unsigned, const char*, std::string> rows[] = {
        {4, "4", "AUTO: INFERENCE_NUM_THREADS=4"},
        {4, "5",
         "INFERENCE_THREADS_NUMBER property value [5] is not a supported value. The valid value is less than or "
         "equal to the number of hardware threads(4)."},
        {0, "4096", "AUTO: INFERENCE_NUM_THREADS=4096"},
    };
    for (const auto& [hardware, given, want] : rows) {
        overrideHardwareThreads(hardware);
        EXPECT_EQ(configure("AUTO", std::string("INFERENCE_THREADS_NUMBER=") + given), want) << hardware;
    }
    overrideHardwareThreads(std::nullopt);
}

TEST_F(OpenvinoProperties, Sse42IsRequiredOnlyForProcessorCompilation) {
    const std::string name = std::get<std::string>(getDeviceProperty(engine, "CPU", "FULL_DEVICE_NAME"));
    const std::string refused = "SSE4.2 is not supported on this CPU [" + name + "].";
    const std::pair<const char*, std::string> rows[] = {
        {"CPU", refused}, {"AUTO", refused}, {"GPU.1", "GPU.1:"}, {"HETERO:CPU", "HETERO:CPU:"}};
    for (const auto& [device, want] : rows) EXPECT_EQ(configure(device, "", false), want);
}

TEST_F(OpenvinoProperties, CacheDirectoryOnlyForAcceleratorsAndOnTheNetworksOwnCore) {
    test::TempDir root;
    // Each network has its own core: the accelerator's setting must not reach the processor's.
    for (const auto& [device, dir] : {std::pair{"AUTO", root.path().string()}, std::pair{"CPU", std::string()}}) {
        engine.networks[device].device = device;
        setNetworkCacheDir(engine, device, {{"CACHE_DIR", root.path()}});
        EXPECT_EQ(engine.networks.at(device).core.get_property(ov::cache_dir.name()).as<std::string>(), dir);
    }
}

}  // namespace
}  // namespace kel::vino
