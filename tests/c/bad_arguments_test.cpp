// Every flat function with null and out-of-range arguments: a clear error (or a quiet
// refusal where the contract says so), never a crash, and the handle keeps working with
// nothing it held lost.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "kel/c/kel.h"
#include "tests/concurrency/road.hpp"

namespace t = kel::test;

namespace {

struct Named {
    const char* name;
    std::function<void(void*)> call;
};

// Buffers large enough for any answer, so that only the argument under test is wrong.
char text[4096];
float values[4096];
std::uint64_t u64[64];
int i32[64];

std::vector<Named> badCalls() {
    const char* OV = "OpenVINO";
    const std::vector<std::uint64_t> tooMany(8, 1);
    const std::uint64_t wrongShape[4] = {1, 3, 4, 6};
    std::vector<Named> calls = {
        {"kelSetLogCallback", [](void* h) { kelSetLogCallback(h, nullptr); }},
        {"kelSelfVersion", [](void* h) { kelSelfVersion(h, nullptr, nullptr); }},
        {"kelVersion", [](void* h) { kelVersion(h, nullptr, u64, text); }},
        {"kelVersion", [](void* h) { kelVersion(h, "NoSuchEngine", u64, text); }},
        {"kelGetSupportEngineNumber", [](void* h) { kelGetSupportEngineNumber(h); }},
        {"kelGetSupportEngineLength", [](void* h) { kelGetSupportEngineLength(h, -1); }},
        {"kelGetSupportEngine", [](void* h) { kelGetSupportEngine(h, 0, nullptr); }},
        {"kelGetSupportEngine", [](void* h) { kelGetSupportEngine(h, INT_MIN, text); }},
        {"kelGetSupportDeviceNumber", [](void* h) { kelGetSupportDeviceNumber(h, nullptr); }},
        {"kelGetSupportDeviceLength", [=](void* h) { kelGetSupportDeviceLength(h, OV, 1000); }},
        {"kelGetSupportDevice", [=](void* h) { kelGetSupportDevice(h, OV, 0, nullptr); }},
        {"kelRegisterModelAsInnerIDwithString", [](void* h) { kelRegisterModelAsInnerIDwithString(h, nullptr, nullptr); }},
        {"kelRegisterModelAsInnerIDwithString", [](void* h) { kelRegisterModelAsInnerIDwithString(h, "m", "/proc/self/status"); }},
        {"kelRegisterModelAsInnerIDwithWString", [](void* h) { kelRegisterModelAsInnerIDwithWString(h, "m", nullptr); }},
        {"kelUnregisterInnerID", [](void* h) { kelUnregisterInnerID(h, nullptr); }},
        {"kelUnregisterInnerID", [](void* h) { kelUnregisterInnerID(h, "never"); }},
        {"kelGetSupportBuiltinModelNumber", [](void* h) { kelGetSupportBuiltinModelNumber(h, nullptr); }},
        {"kelGetSupportBuiltinModelLength", [=](void* h) { kelGetSupportBuiltinModelLength(h, OV, 0); }},
        {"kelGetSupportBuiltinModelID", [=](void* h) { kelGetSupportBuiltinModelID(h, OV, -1, text); }},
        {"kelCreateNetByFiles", [](void* h) { kelCreateNetByFiles(h, nullptr, nullptr, nullptr, nullptr, nullptr); }},
        {"kelCreateNetByFiles", [=](void* h) { kelCreateNetByFiles(h, OV, "x", "CPU", "/no/such.xml", nullptr); }},
        {"kelCreateNetByFilesWithWstring", [=](void* h) { kelCreateNetByFilesWithWstring(h, OV, "x", "CPU", nullptr, nullptr); }},
        {"kelCreateNetByBuffers", [=](void* h) { kelCreateNetByBuffers(h, OV, "x", "CPU", nullptr, 10, nullptr, 0); }},
        {"kelCreateNetByBuffers", [=](void* h) { kelCreateNetByBuffers(h, OV, "x", "CPU", text, 0, nullptr, 0); }},
        {"kelCreateNetByBuffers", [](void* h) { kelCreateNetByBuffers(h, "WindowsML", "x", "CPU", text, 16, nullptr, 0); }},
        {"kelCreateNetByBuffers", [=](void* h) { kelCreateNetByBuffers(h, OV, "x", "NoSuchDevice", text, 16, text, 16); }},
        {"kelCreateNetByBuiltin", [=](void* h) { kelCreateNetByBuiltin(h, OV, "x", "CPU", nullptr); }},
        {"kelCreateNetByBuiltin", [=](void* h) { kelCreateNetByBuiltin(h, OV, "x", "CPU", "never"); }},
        {"kelRemoveNetwork", [](void* h) { kelRemoveNetwork(h, nullptr); }},
        {"kelSwitchNetwork", [](void* h) { kelSwitchNetwork(h, nullptr); }},
        {"kelGetCreatedNetworkIdentifiersNumber", [](void* h) { kelGetCreatedNetworkIdentifiersNumber(h); }},
        {"kelGetCreatedNetworkIdentifierLength", [](void* h) { kelGetCreatedNetworkIdentifierLength(h, 7); }},
        {"kelGetCreatedNetworkIdentifier", [](void* h) { kelGetCreatedNetworkIdentifier(h, 0, nullptr); }},
        {"kelGetNetworkEngineLength", [](void* h) { kelGetNetworkEngineLength(h, nullptr); }},
        {"kelGetNetworkEngine", [](void* h) { kelGetNetworkEngine(h, "keep", nullptr); }},
        {"kelGetNetworkDeviceLength", [](void* h) { kelGetNetworkDeviceLength(h, "never"); }},
        {"kelGetNetworkDevice", [](void* h) { kelGetNetworkDevice(h, "keep", nullptr); }},
        {"kelGetCurrentEngineLength", [](void* h) { kelGetCurrentEngineLength(h); }},
        {"kelGetCurrentEngine", [](void* h) { kelGetCurrentEngine(h, nullptr); }},
        {"kelGetCurrentIdentifierLength", [](void* h) { kelGetCurrentIdentifierLength(h); }},
        {"kelGetCurrentIdentifier", [](void* h) { kelGetCurrentIdentifier(h, nullptr); }},
        {"kelGetCurrentNetworkDeviceLength", [](void* h) { kelGetCurrentNetworkDeviceLength(h); }},
        {"kelGetCurrentNetworkDevice", [](void* h) { kelGetCurrentNetworkDevice(h, nullptr); }},
        {"kelGetPluginModelVersionLengthWithString", [](void* h) { kelGetPluginModelVersionLengthWithString(h, nullptr); }},
        {"kelGetPluginModelVersionLengthWithWstring", [](void* h) { kelGetPluginModelVersionLengthWithWstring(h, nullptr); }},
        {"kelGetPluginModelVersionWithString", [](void* h) { kelGetPluginModelVersionWithString(h, "/no/such.so", text); }},
        {"kelGetPluginModelVersionWithWstring", [](void* h) { kelGetPluginModelVersionWithWstring(h, L"/no/such.so", nullptr); }},
        {"kelSetLayerData", [](void* h) { kelSetLayerData(h, nullptr, values, u64, 4); }},
        {"kelSetLayerData", [](void* h) { kelSetLayerData(h, "data", nullptr, u64, 4); }},
        {"kelSetLayerData", [](void* h) { kelSetLayerData(h, "never", values, u64, 4); }},
        {"kelSetLayerData", [=](void* h) { kelSetLayerData(h, "data", values, tooMany.data(), tooMany.size()); }},
        {"kelSetLayerData", [=](void* h) { kelSetLayerData(h, "data", values, wrongShape, 4); }},
        {"kelGetLayerData", [](void* h) { kelGetLayerData(h, nullptr); }},
        {"kelGetLayerData", [](void* h) { kelGetLayerData(h, "never"); }},
        {"kelGetLayerDims", [](void* h) { kelGetLayerDims(h, nullptr, u64, u64 + 8); }},
        {"kelGetLayerDims", [](void* h) { kelGetLayerDims(h, "prob", nullptr, nullptr); }},
        {"kelGetLayerPrecision", [](void* h) { kelGetLayerPrecision(h, "never", u64, i32, text); }},
        {"kelGetLayerPrecision", [](void* h) { kelGetLayerPrecision(h, "prob", nullptr, nullptr, nullptr); }},
        {"kelGetInputLayerNumber", [](void* h) { kelGetInputLayerNumber(h); }},
        {"kelGetOutputLayerNumber", [](void* h) { kelGetOutputLayerNumber(h); }},
        {"kelGetInputLayerLength", [](void* h) { kelGetInputLayerLength(h, 99); }},
        {"kelGetOutputLayerLength", [](void* h) { kelGetOutputLayerLength(h, -1); }},
        {"kelGetInputLayer", [](void* h) { kelGetInputLayer(h, 0, nullptr); }},
        {"kelGetOutputLayer", [](void* h) { kelGetOutputLayer(h, INT_MAX, text); }},
        {"kelGetEngineMutableProperties", [](void* h) { kelGetEngineMutableProperties(h, nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr); }},
        {"kelGetEngineMutableProperties", [=](void* h) { kelGetEngineMutableProperties(h, nullptr, 10000, i32, text, i32 + 1, text, OV); }},
        {"kelGetDeviceSupportPropertiesNumber", [](void* h) { kelGetDeviceSupportPropertiesNumber(h, nullptr, nullptr, nullptr); }},
        {"kelGetDeviceSupportPropertiesNumber", [=](void* h) { kelGetDeviceSupportPropertiesNumber(h, i32, OV, "NoSuchDevice"); }},
        {"kelGetDeviceSupportPropertiesByIndex", [=](void* h) { kelGetDeviceSupportPropertiesByIndex(h, i32, text, 100000, OV, "CPU"); }},
        {"kelGetDevicePropertyTypeID", [=](void* h) { kelGetDevicePropertyTypeID(h, nullptr, OV, "CPU", "FULL_DEVICE_NAME"); }},
        {"kelGetDevicePropertyTypeString", [=](void* h) { kelGetDevicePropertyTypeString(h, nullptr, nullptr, 1, OV, "CPU", "FULL_DEVICE_NAME"); }},
        {"kelGetDevicePropertyTypeString", [=](void* h) { kelGetDevicePropertyTypeString(h, i32, text, 99, OV, "CPU", "FULL_DEVICE_NAME"); }},
        {"kelGetDevicePropertyTypeUnorderedMap_String_Float", [=](void* h) { kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, -3, nullptr, nullptr, nullptr, 2, OV, "CPU", "FULL_DEVICE_NAME"); }},
        {"kelGetDevicePropertyTypeGeneral", [=](void* h) { kelGetDevicePropertyTypeGeneral(h, nullptr, 3, OV, "CPU", "OPTIMAL_NUMBER_OF_INFER_REQUESTS"); }},
        {"kelGetDevicePropertyTypeGeneral", [=](void* h) { kelGetDevicePropertyTypeGeneral(h, u64, 5, OV, "CPU", "FULL_DEVICE_NAME"); }},
        {"kelSetEnginePropertyForNetwork", [=](void* h) { kelSetEnginePropertyForNetwork(h, OV, "keep", nullptr, nullptr, nullptr); }},
        {"kelSetEnginePropertyForNetwork", [=](void* h) { kelSetEnginePropertyForNetwork(h, OV, "keep", "PERFORMANCE_HINT", "string", nullptr); }},
        {"kelSetEnginePropertyForNetwork", [=](void* h) { kelSetEnginePropertyForNetwork(h, OV, "never", "PERFORMANCE_HINT", "no-such-type", text); }},
        {"kelInfer", [](void* h) { kelInfer(h); }},
        {"kelGetExceptionStringLength", [](void* h) { kelGetExceptionStringLength(h, nullptr); }},
        {"kelGetExceptionString", [](void* h) { kelGetExceptionString(h, nullptr); }},
        {"kelResetExceptionString", [](void* h) { kelResetExceptionString(h); }},
        {"kelHasException", [](void* h) { kelHasException(h); }},
    };
    return calls;
}

TEST(BadArguments, ANullHandleMakesEveryFunctionDoNothing) {
    for (const auto& [name, call] : badCalls()) {
        SCOPED_TRACE(name);
        call(nullptr);
    }
    kelDestory(nullptr);
    kelCreateNetByBuiltin(nullptr, "OpenVINO", "x", "CPU", "m");
    EXPECT_TRUE(kelHasException(nullptr));
}

TEST(BadArguments, EachEndsInAClearErrorOrNothingAndTheHandleKeepsWorking) {
    const t::RoadModel model = t::openvinoRoad();
    void* h = kelCreate();
    ASSERT_EQ(t::pendingText(h), "");
    kelCreateNetByBuffers(h, "OpenVINO", "keep", "CPU", model.model.data(), model.model.size(),
                          model.weights.data(), model.weights.size());
    ASSERT_EQ(t::pendingText(h), "");

    for (const auto& [name, call] : badCalls()) {
        SCOPED_TRACE(name);
        call(h);
        if (kelHasException(h)) {
            EXPECT_GT(t::pendingText(h).size(), 20u) << "a failure says what went wrong";
            kelResetExceptionString(h);
        }
        // Nothing the handle held is lost.
        ASSERT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 1) << t::pendingText(h);
    }

    // The network made before the bad calls still runs, and a new one can be made.
    const auto inputs = t::roadInputs(model, 1);
    kelSetLayerData(h, "data", inputs[0].data(), model.inputs.at("data").data(), 4);
    kelInfer(h);
    EXPECT_NE(kelGetLayerData(h, "prob"), nullptr);
    kelCreateNetByBuffers(h, "OpenVINO", "again", "CPU", model.model.data(), model.model.size(),
                          model.weights.data(), model.weights.size());
    kelRemoveNetwork(h, "keep");
    EXPECT_EQ(t::pendingText(h), "");
    std::string error;
    EXPECT_EQ(t::runRoad(model, inputs, "road", error).size(), 2u);
    EXPECT_EQ(error, "");
    kelDestory(h);
}

}  // namespace
