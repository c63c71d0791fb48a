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

// A call of one function with bad arguments, and a line its text must hold (any clear text,
// or none, when empty). The lines pin which pointer each function checks first.
struct Row {
    const char* name;
    std::function<void(void*)> call;
    const char* line;
};
#define REFUSED(line, function, ...) Row{#function, [=](void* h) { function(h __VA_OPT__(, ) __VA_ARGS__); }, line}
#define ROW(function, ...) REFUSED("", function __VA_OPT__(, ) __VA_ARGS__)

// Buffers large enough for any answer, so that only the argument under test is wrong.
char text[4096];
float values[4096];
std::uint64_t u64[64];
int i32[64];

std::vector<Row> badCalls() {
    const char* OV = "OpenVINO";
    const char* name = "FULL_DEVICE_NAME";
    const std::vector<std::uint64_t> tooMany(8, 1);
    return {
        ROW(kelSetLogCallback, nullptr),
        ROW(kelSelfVersion, nullptr, nullptr),
        ROW(kelVersion, nullptr, u64, text),
        ROW(kelGetSupportEngineNumber),
        ROW(kelGetSupportEngineLength, -1),
        ROW(kelGetSupportEngine, INT_MIN, text),
        ROW(kelGetSupportDeviceNumber, nullptr),
        ROW(kelGetSupportDeviceLength, OV, 1000),
        ROW(kelGetSupportDevice, OV, 0, nullptr),
        ROW(kelRegisterModelAsInnerIDwithString, nullptr, nullptr),
        REFUSED("model_path pointer is empty!", kelRegisterModelAsInnerIDwithWString, "m", nullptr),
        ROW(kelUnregisterInnerID, nullptr),
        ROW(kelGetSupportBuiltinModelNumber, nullptr),
        ROW(kelGetSupportBuiltinModelLength, OV, 0),
        ROW(kelGetSupportBuiltinModelID, OV, -1, text),
        REFUSED("identifier pointer is empty!", kelCreateNetByFiles, OV, nullptr, nullptr, nullptr, nullptr),
        REFUSED("network_file pointer is empty!", kelCreateNetByFilesWithWstring, OV, "x", "CPU", nullptr, nullptr),
        REFUSED("network_buffer pointer is empty!", kelCreateNetByBuffers, OV, "x", "CPU", text, 0, nullptr, 0),
        REFUSED("builtin_model_id pointer is empty!", kelCreateNetByBuiltin, OV, "x", nullptr, nullptr),
        REFUSED("device pointer is empty!", kelCreateNetByBuiltin, OV, "x", nullptr, "m"),
        REFUSED("network_id pointer is empty!", kelRemoveNetwork, nullptr),
        ROW(kelSwitchNetwork, nullptr),
        ROW(kelGetCreatedNetworkIdentifiersNumber),
        ROW(kelGetCreatedNetworkIdentifierLength, 7),
        ROW(kelGetCreatedNetworkIdentifier, 0, nullptr),
        ROW(kelGetNetworkEngineLength, nullptr),
        ROW(kelGetNetworkEngine, "keep", nullptr),
        ROW(kelGetNetworkDeviceLength, "never"),
        REFUSED("engine_name pointer is empty!", kelGetNetworkDevice, "keep", nullptr),
        ROW(kelGetCurrentEngineLength),
        ROW(kelGetCurrentEngine, nullptr),
        ROW(kelGetCurrentIdentifierLength),
        ROW(kelGetCurrentIdentifier, nullptr),
        ROW(kelGetCurrentNetworkDeviceLength),
        ROW(kelGetCurrentNetworkDevice, nullptr),
        ROW(kelGetPluginModelVersionLengthWithString, nullptr),
        ROW(kelGetPluginModelVersionLengthWithWstring, nullptr),
        ROW(kelGetPluginModelVersionWithString, "/no/such.so", text),
        ROW(kelGetPluginModelVersionWithWstring, L"/no/such.so", nullptr),
        REFUSED("dim_length is 0!", kelSetLayerData, "data", values, u64, 0),
        REFUSED("dim_buffer pointer is empty!", kelSetLayerData, "data", nullptr, nullptr, 4),
        REFUSED("data pointer is empty!", kelSetLayerData, "data", nullptr, u64, 4),
        ROW(kelSetLayerData, "data", values, tooMany.data(), tooMany.size()),
        ROW(kelGetLayerData, nullptr),
        ROW(kelGetLayerDims, nullptr, u64, u64 + 8),
        ROW(kelGetLayerDims, "prob", nullptr, nullptr),
        ROW(kelGetLayerPrecision, "never", u64, i32, text),
        ROW(kelGetInputLayerNumber),
        ROW(kelGetOutputLayerNumber),
        ROW(kelGetInputLayerLength, 99),
        ROW(kelGetOutputLayerLength, -1),
        ROW(kelGetInputLayer, 0, nullptr),
        ROW(kelGetOutputLayer, INT_MAX, text),
        REFUSED("pointers both empty!", kelGetEngineMutableProperties, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                OV),
        // Hosts fetch a key and its value in two calls: all four outputs at once are refused.
        REFUSED("invalid vector subscript", kelGetEngineMutableProperties, nullptr, 0, i32, text, i32 + 1, text, OV),
        ROW(kelGetDeviceSupportPropertiesNumber, nullptr, nullptr, nullptr),
        REFUSED("index value is less than 0!", kelGetDeviceSupportPropertiesByIndex, nullptr, nullptr, -1, OV, "CPU"),
        REFUSED("index value is 100000, larger than 1!", kelGetDeviceSupportPropertiesByIndex, i32, text, 100000, OV,
                "CPU"),
        ROW(kelGetDevicePropertyTypeID, nullptr, OV, "CPU", name),
        REFUSED("verify_type_id(1) is not same with type_id(4)!", kelGetDevicePropertyTypeString, i32, nullptr, 4, OV,
                "CPU", name),
        REFUSED("verify_type_id(1) is not same with type_id(2)!", kelGetDevicePropertyTypeUnorderedMap_String_Float,
                i32, 0, nullptr, nullptr, nullptr, 2, OV, "CPU", name),
        REFUSED("Can not get this type_id(1) value! Please check.", kelGetDevicePropertyTypeGeneral, u64, 1, OV,
                "CPU", name),
        REFUSED("property_type pointer is empty!", kelSetEnginePropertyForNetwork, OV, "keep", "CACHE_DIR", nullptr,
                nullptr),
        REFUSED("CACHE_DIR need std::filesystem::path type", kelSetEnginePropertyForNetwork, OV, "keep", "CACHE_DIR",
                "std::string", "/tmp"),
        ROW(kelInfer),
        ROW(kelGetExceptionStringLength, nullptr),
        ROW(kelGetExceptionString, nullptr),
        ROW(kelResetExceptionString),
        ROW(kelHasException),
    };
}

TEST(BadArguments, NothingWithoutAHandleAClearErrorOrNothingWithOneAndNothingLost) {
    const t::RoadModel model = t::openvinoRoad();
    void* h = kelCreate();
    kelCreateNetByBuffers(h, "OpenVINO", "keep", "CPU", model.model.data(), model.model.size(),
                          model.weights.data(), model.weights.size());
    ASSERT_EQ(t::pendingText(h), "");

    for (const auto& [name, call, line] : badCalls()) {
        SCOPED_TRACE(name);
        call(nullptr);
        // While a text is pending nothing runs; only the reset clears it.
        kelSelfVersion(h, nullptr, nullptr);
        const std::string pending = t::pendingText(h);
        call(h);
        if (std::string(name) != "kelResetExceptionString") EXPECT_EQ(t::takeText(h), pending);
        kelResetExceptionString(h);

        call(h);
        const std::string text = t::takeText(h);
        EXPECT_NE(text.find(line), std::string::npos) << text;
        EXPECT_TRUE(text.empty() || text.size() > 20) << "a failure says what went wrong: " << text;
        ASSERT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 1) << t::pendingText(h);
    }

    // The network made before the bad calls still runs.
    const auto inputs = t::roadInputs(model, 1);
    kelSetLayerData(h, "data", inputs[0].data(), model.inputs.at("data").data(), 4);
    kelInfer(h);
    EXPECT_NE(kelGetLayerData(h, "prob"), nullptr);
    EXPECT_EQ(t::pendingText(h), "");
    kelDestory(h);
    kelDestory(nullptr);
    EXPECT_TRUE(kelHasException(nullptr));
}

}  // namespace
