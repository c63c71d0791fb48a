// The flat functions with null and out-of-range arguments: a clear error (or a quiet refusal
// where the contract says so), never a crash, and the handle keeps working with nothing it
// held lost.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

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
        REFUSED("string_length and version_string are empty!", kelVersion, "NoSuchEngine", nullptr, nullptr),
        REFUSED("index 2 is out of range!", kelGetSupportEngineLength, 2),
        REFUSED("engine_name pointer is empty!", kelGetSupportEngine, -1, nullptr),
        REFUSED("index -1 is out of range!", kelGetSupportDeviceLength, OV, -1),
        // An inner failure while counting is replaced by the range text.
        REFUSED("index 0 is out of range!", kelGetSupportDeviceLength, "NoEngine", 0),
        REFUSED("device_name pointer is empty!", kelGetSupportDevice, OV, -1, nullptr),
        REFUSED("model_path pointer is empty!", kelRegisterModelAsInnerIDwithWString, "m", nullptr),
        REFUSED("builtin_model_id pointer is empty!", kelGetSupportBuiltinModelID, OV, -1, nullptr),
        REFUSED("identifier pointer is empty!", kelCreateNetByFiles, OV, nullptr, nullptr, nullptr, nullptr),
        REFUSED("network_file pointer is empty!", kelCreateNetByFilesWithWstring, OV, "x", "CPU", nullptr, nullptr),
        REFUSED("network_buffer pointer is empty!", kelCreateNetByBuffers, OV, "x", "CPU", text, 0, nullptr, 0),
        REFUSED("builtin_model_id pointer is empty!", kelCreateNetByBuiltin, OV, "x", nullptr, nullptr),
        REFUSED("device pointer is empty!", kelCreateNetByBuiltin, OV, "x", nullptr, "m"),
        REFUSED("network_id pointer is empty!", kelRemoveNetwork, nullptr),
        REFUSED("index 1 is out of range!", kelGetCreatedNetworkIdentifierLength, 1),
        REFUSED("identifier pointer is empty!", kelGetCreatedNetworkIdentifier, -1, nullptr),
        REFUSED("engine_name pointer is empty!", kelGetNetworkEngine, "keep", nullptr),
        REFUSED("engine_name pointer is empty!", kelGetNetworkDevice, "keep", nullptr),
        REFUSED("engine_name pointer is empty!", kelGetCurrentEngine, nullptr),
        REFUSED("identifier_name pointer is empty!", kelGetCurrentIdentifier, nullptr),
        REFUSED("device_name pointer is empty!", kelGetCurrentNetworkDevice, nullptr),
        REFUSED("dim_length is 0!", kelSetLayerData, "data", values, u64, 0),
        REFUSED("dim_buffer pointer is empty!", kelSetLayerData, "data", nullptr, nullptr, 4),
        REFUSED("data pointer is empty!", kelSetLayerData, "data", nullptr, u64, 4),
        ROW(kelSetLayerData, "data", values, tooMany.data(), tooMany.size()),
        ROW(kelGetLayerDims, "prob", nullptr, nullptr),  // writes only what is asked for
        ROW(kelGetLayerPrecision, "prob", nullptr, nullptr, nullptr),  // writes only what is asked for
        REFUSED("index 1 is out of range!", kelGetInputLayerLength, 1),
        REFUSED("layer_name pointer is empty!", kelGetInputLayer, -1, nullptr),
        REFUSED("[KEL Exception] kel/c/kelGetInputLayer.cpp:", kelGetInputLayer, 0, nullptr),  // where it checks
        REFUSED("layer_name pointer is empty!", kelGetOutputLayer, -1, nullptr),
        REFUSED("index 1 is out of range!", kelGetOutputLayer, 1, text),  // its own check, not the shared one
        REFUSED("pointers both empty!", kelGetEngineMutableProperties, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                OV),
        // Hosts fetch a key and its value in two calls: all four outputs at once are refused.
        REFUSED("invalid vector subscript", kelGetEngineMutableProperties, nullptr, 0, i32, text, i32 + 1, text, OV),
        REFUSED("key_index value is 11, less than 10!", kelGetEngineMutableProperties, nullptr, 11, i32, nullptr,
                nullptr, nullptr, OV),
        REFUSED("properties_number pointer is empty!", kelGetDeviceSupportPropertiesNumber, nullptr, OV, "CPU"),
        REFUSED("index value is less than 0!", kelGetDeviceSupportPropertiesByIndex, nullptr, nullptr, -1, OV, "CPU"),
        REFUSED("index value is 100000, larger than 1!", kelGetDeviceSupportPropertiesByIndex, i32, text, 100000, OV,
                "CPU"),
        REFUSED("type_id pointer is empty!", kelGetDevicePropertyTypeID, nullptr, OV, "CPU", name),
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
        ROW(kelGetExceptionStringLength, nullptr),
        ROW(kelGetExceptionString, nullptr),
    };
}

TEST(BadArguments, NothingWithoutAHandleAClearErrorOrNothingWithOneAndNothingLost) {
    void* h = kelCreate();
    const auto wide = t::openvinoModel("static.xml").wstring();  // the weights: the .bin beside it
    t::capturedStderr([&] { kelCreateNetByFilesWithWstring(h, "OpenVINO", "keep", "CPU", wide.c_str(), nullptr); });
    ASSERT_EQ(t::pendingText(h), "");

    for (const auto& [name, call, line] : badCalls()) {
        SCOPED_TRACE(name);
        call(nullptr);
        // While a text is pending nothing runs; only the reset clears it.
        kelSelfVersion(h, nullptr, nullptr);
        const std::string pending = t::pendingText(h);
        call(h);
        EXPECT_EQ(t::takeText(h), pending);

        call(h);
        const std::string text = t::takeText(h);
        EXPECT_NE(text.find(line), std::string::npos) << text;
        EXPECT_TRUE(text.empty() || text.size() > 20) << "a failure says what went wrong: " << text;
        ASSERT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 1) << t::pendingText(h);
    }

    // The network made before the bad calls still runs.
    kelInfer(h);
    EXPECT_EQ(t::pendingText(h), "");
    kelDestory(h);
    kelDestory(nullptr);
    EXPECT_TRUE(kelHasException(nullptr));
}

}  // namespace
