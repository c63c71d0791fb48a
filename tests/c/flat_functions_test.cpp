// The flat functions: bad arguments get a clear error or a quiet refusal, never a crash.
#include <gmock/gmock.h>

#include <cstring>
#include <functional>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

using testing::HasSubstr;

namespace {

namespace t = kel::test;

void throwingLog(const char*) { throw 7; }

TEST(Handle, ErrorChannelVersionTextsAndTheCallbackBoundary) {
    void* h = kelCreate();
    std::uint64_t n = 0;
    char buf[8];
    // Without a pending text there is nothing to read or reset.
    EXPECT_EQ(kelGetExceptionStringLength(h, &n), -1);
    EXPECT_EQ(kelGetExceptionString(h, buf), -1);
    EXPECT_EQ(kelResetExceptionString(h), -1);

    // The library's version comes without a terminator, the runtime's with one.
    std::string self(64, '#'), runtime(64, '#');
    kelSelfVersion(h, &n, self.data());
    EXPECT_EQ(self.substr(0, n + 1), "2025.10.23-78560f91(x64)#");
    kelVersion(h, "OpenVINO", &n, runtime.data());
    EXPECT_EQ(runtime.substr(n, 2), std::string("\0#", 2));

    // Fetching is exact and does not clear; destroying with a pending text frees nothing.
    kelSelfVersion(h, nullptr, nullptr);
    const std::string first = t::pendingText(h);
    std::string exact(first.size() + 1, '@');
    ASSERT_EQ(kelGetExceptionString(h, exact.data()), 0);
    EXPECT_EQ(exact, first + "@");
    kelDestory(h);
    EXPECT_EQ(t::takeText(h), first);

    // A host callback's exception must not cross kel's extern "C" functions.
    kelSetLogCallback(h, &throwingLog);
    EXPECT_THAT(t::takeText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    kelSetLogCallback(h, nullptr);
    EXPECT_FALSE(kelHasException(h));
    kelDestory(h);
    kelDestory(nullptr);
}

class Flat : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        // A wide path finds the .bin beside it; a weights buffer of size 0 is left out.
        const auto wide = t::openvinoModel("static.xml").wstring();
        t::capturedStderr([&] { kelCreateNetByFilesWithWstring(h, "OpenVINO", "w", "CPU", wide.c_str(), nullptr); });
        const std::string description = t::readFile(t::openvinoModel("noweights.xml"));
        kelCreateNetByBuffers(h, "OpenVINO", "net", "CPU", description.data(), description.size(), "<net/>", 0);
        kelRemoveNetwork(h, "w");
        ASSERT_EQ(t::pendingText(h), "");
    }
    void TearDown() override {
        kelResetExceptionString(h);
        kelDestory(h);
    }
    void* h = nullptr;
};

// kel-run reads the other lists (engines, devices, inner models, layers) through these same helpers.
TEST_F(Flat, EveryTextHandsOutExactlyItsBytesWithoutATerminator) {
    using namespace std::placeholders;
    const std::tuple<std::string, std::function<int(void*)>, std::function<void(void*, char*)>> texts[] = {
        {"net", std::bind(kelGetCreatedNetworkIdentifierLength, _1, 0),
         std::bind(kelGetCreatedNetworkIdentifier, _1, 0, _2)},
        {"OpenVINO", std::bind(kelGetNetworkEngineLength, _1, "net"), std::bind(kelGetNetworkEngine, _1, "net", _2)},
        {"net", kelGetCurrentIdentifierLength, kelGetCurrentIdentifier},
        {"CPU", kelGetCurrentNetworkDeviceLength, kelGetCurrentNetworkDevice},
    };
    for (const auto& [expected, length, get] : texts) {
        ASSERT_EQ(length(h), static_cast<int>(expected.size())) << expected << ": " << t::pendingText(h);
        std::string buf(expected.size() + 2, '#');
        get(h, buf.data());
        EXPECT_EQ(buf, expected + "##");
    }
}

TEST_F(Flat, PropertyFunctionsFollowTheirConventions) {
    const char* OV = "OpenVINO";
    // The count ignores the index; a key and its value come in separate calls.
    int count = 0, kl = 0, vl = 0, type = -7;
    kelGetEngineMutableProperties(h, &count, 99, nullptr, nullptr, nullptr, nullptr, OV);
    kelGetEngineMutableProperties(h, nullptr, count - 1, &kl, nullptr, &vl, nullptr, OV);
    std::string key(static_cast<std::size_t>(kl), '\0'), value(static_cast<std::size_t>(vl), '\0');
    kelGetEngineMutableProperties(h, nullptr, count - 1, nullptr, key.data(), nullptr, value.data(), OV);
    EXPECT_THAT(value, testing::AnyOf("std::string", "std::filesystem::path"));
    // The type id is the alternative's index: 1 for a text.
    kelGetDevicePropertyTypeID(h, &type, OV, "CPU", "FULL_DEVICE_NAME");
    EXPECT_EQ(type, 1);
    // Unknown type names are ignored; a path arrives as a path (a text for CACHE_DIR is refused).
    kelSetEnginePropertyForNetwork(h, OV, "n", "RUNTIME_STREAMS_NUMBER", "std::String", "abc");
    kelSetEnginePropertyForNetwork(h, OV, "n", "CACHE_DIR", "std::filesystem::path", L"/tmp/x");
    EXPECT_EQ(t::takeText(h), "");
}

// A function, a bad call of it, and a line its text must hold (when empty: any clear text, or
// none). The lines pin which pointer each function checks first.
using Row = std::tuple<const char*, std::function<void(void*)>, const char*>;
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
        REFUSED("index -1 is out of range!", kelGetSupportDeviceLength, OV, -1),
        REFUSED("identifier pointer is empty!", kelCreateNetByFiles, OV, nullptr, nullptr, nullptr, nullptr),
        REFUSED("model_path pointer is empty!", kelRegisterModelAsInnerIDwithWString, "m", nullptr),
        REFUSED("network_buffer pointer is empty!", kelCreateNetByBuffers, OV, "x", "CPU", text, 0, nullptr, 0),
        REFUSED("builtin_model_id pointer is empty!", kelCreateNetByBuiltin, OV, "x", nullptr, nullptr),
        REFUSED("network_id pointer is empty!", kelRemoveNetwork, nullptr),
        REFUSED("index 1 is out of range!", kelGetCreatedNetworkIdentifierLength, 1),
        REFUSED("engine_name pointer is empty!", kelGetNetworkEngine, "net", nullptr),
        REFUSED("engine_name pointer is empty!", kelGetNetworkDevice, "net", nullptr),
        REFUSED("engine_name pointer is empty!", kelGetCurrentEngine, nullptr),
        REFUSED("identifier_name pointer is empty!", kelGetCurrentIdentifier, nullptr),
        REFUSED("device_name pointer is empty!", kelGetCurrentNetworkDevice, nullptr),
        REFUSED("dim_length is 0!", kelSetLayerData, "a", values, u64, 0),
        REFUSED("dim_buffer pointer is empty!", kelSetLayerData, "a", nullptr, nullptr, 4),
        REFUSED("data pointer is empty!", kelSetLayerData, "a", nullptr, u64, 4),
        ROW(kelSetLayerData, "a", values, tooMany.data(), tooMany.size()),
        ROW(kelGetLayerDims, "out", nullptr, nullptr),  // writes only what is asked for
        ROW(kelGetLayerPrecision, "out", nullptr, nullptr, nullptr),
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
        REFUSED("index value is 99, larger than 1!", kelGetDeviceSupportPropertiesByIndex, i32, text, 99, OV, "CPU"),
        REFUSED("type_id pointer is empty!", kelGetDevicePropertyTypeID, nullptr, OV, "CPU", name),
        REFUSED("verify_type_id(1) is not same with type_id(4)!", kelGetDevicePropertyTypeString, i32, nullptr, 4, OV,
                "CPU", name),
        REFUSED("verify_type_id(1) is not same with type_id(2)!", kelGetDevicePropertyTypeUnorderedMap_String_Float,
                i32, 0, nullptr, nullptr, nullptr, 2, OV, "CPU", name),
        REFUSED("Can not get this type_id(1) value! Please check.", kelGetDevicePropertyTypeGeneral, u64, 1, OV,
                "CPU", name),
        REFUSED("property_type pointer is empty!", kelSetEnginePropertyForNetwork, OV, "net", "CACHE_DIR", nullptr,
                nullptr),
        REFUSED("CACHE_DIR need std::filesystem::path type", kelSetEnginePropertyForNetwork, OV, "net", "CACHE_DIR",
                "std::string", "/tmp"),
        ROW(kelGetExceptionStringLength, nullptr),
        ROW(kelGetExceptionString, nullptr),
    };
}

TEST_F(Flat, BadArgumentsNothingWithoutAHandleAClearErrorOrNothingWithOneAndNothingLost) {
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
        ASSERT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 1) << t::pendingText(h);
    }
    // The network made before the bad calls still runs.
    kelInfer(h);
    EXPECT_EQ(t::pendingText(h), "");
}

// Each pointer of the creating functions, the only null one, is named: the checks are all
// there, each with its own text.
TEST_F(Flat, EachPointerOfACreationIsCheckedUnderItsName) {
    const char* first[] = {"engine_name", "identifier", "device"};
    for (int k = 0; k < 4; ++k) {
        const auto given = [k](int i, auto value) { return i == k ? decltype(value){} : value; };
        const char *e = given(0, "OpenVINO"), *id = given(1, "x"), *d = given(2, "CPU");
        const std::pair<std::function<void()>, const char*> calls[] = {
            {[&] { kelCreateNetByFiles(h, e, id, d, given(3, "m.xml"), nullptr); }, "network_file"},
            {[&] { kelCreateNetByFilesWithWstring(h, e, id, d, given(3, L"m.xml"), nullptr); }, "network_file"},
            {[&] { kelCreateNetByBuffers(h, e, id, d, given(3, text), 4, nullptr, 0); }, "network_buffer"},
            {[&] { kelCreateNetByBuiltin(h, e, id, d, given(3, "m")); }, "builtin_model_id"},
        };
        for (const auto& [call, model] : calls) {
            call();
            EXPECT_THAT(t::takeText(h), HasSubstr("\n" + std::string(k < 3 ? first[k] : model) + " pointer is empty!\n"));
        }
    }
}

}  // namespace
