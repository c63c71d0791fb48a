// The flat functions: bad arguments get a clear error or a quiet refusal, never a crash.
#include <gmock/gmock.h>

#include <malloc.h>

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
    // A destroyed handle gives back all it took (once the allocator's thread caches are full).
    for (int k = 0; k < 16; ++k) kelDestory(kelCreate());
    const std::size_t taken = mallinfo2().uordblks;
    for (int k = 0; k < 4; ++k) kelDestory(kelCreate());
    EXPECT_EQ(mallinfo2().uordblks, taken);

    // Every count, length and status is -1 when the call cannot run.
    const char* OV = "OpenVINO";
    int i = 0;
    const int failures[] = {
        kelGetSupportEngineNumber(nullptr), kelGetSupportEngineLength(nullptr, 0),
        kelGetSupportDeviceNumber(nullptr, OV), kelGetSupportDeviceLength(nullptr, OV, 0),
        kelGetSupportBuiltinModelNumber(nullptr, OV), kelGetSupportBuiltinModelLength(nullptr, OV, 0),
        kelGetCreatedNetworkIdentifiersNumber(nullptr), kelGetCreatedNetworkIdentifierLength(nullptr, 0),
        kelGetNetworkEngineLength(nullptr, "n"), kelGetNetworkDeviceLength(nullptr, "n"),
        kelGetCurrentEngineLength(nullptr), kelGetCurrentIdentifierLength(nullptr),
        kelGetCurrentNetworkDeviceLength(nullptr), kelGetInputLayerNumber(nullptr), kelGetOutputLayerNumber(nullptr),
        kelGetInputLayerLength(nullptr, 0), kelGetOutputLayerLength(nullptr, 0),
        kelGetEngineMutableProperties(nullptr, &i, 0, nullptr, nullptr, nullptr, nullptr, OV),
        kelGetDeviceSupportPropertiesNumber(nullptr, &i, OV, "CPU"),
        kelGetDeviceSupportPropertiesByIndex(nullptr, &i, nullptr, 0, OV, "CPU"),
        kelGetDevicePropertyTypeID(nullptr, &i, OV, "CPU", "P"),
        kelGetDevicePropertyTypeString(nullptr, &i, nullptr, 1, OV, "CPU", "P"),
        kelGetDevicePropertyTypeUnorderedMap_String_Float(nullptr, &i, 0, nullptr, nullptr, nullptr, 2, OV, "CPU", "P"),
        kelGetDevicePropertyTypeGeneral(nullptr, &i, 4, OV, "CPU", "P"),
        kelSetEnginePropertyForNetwork(nullptr, OV, "n", "CACHE_DIR", "std::string", "x"),
        // Reserved: -1 always.
        kelGetPluginModelVersionLengthWithString(nullptr, "m"), kelGetPluginModelVersionLengthWithWstring(nullptr, L"m"),
    };
    for (int result : failures) EXPECT_EQ(result, -1) << i++;
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
    EXPECT_EQ(kelGetEngineMutableProperties(h, &count, 99, nullptr, nullptr, nullptr, nullptr, OV), 0);
    kelGetEngineMutableProperties(h, nullptr, count - 1, &kl, nullptr, &vl, nullptr, OV);
    std::string key(static_cast<std::size_t>(kl), '\0'), value(static_cast<std::size_t>(vl), '\0');
    kelGetEngineMutableProperties(h, nullptr, count - 1, nullptr, key.data(), nullptr, value.data(), OV);
    EXPECT_THAT(value, testing::AnyOf("std::string", "std::filesystem::path"));
    // The type id is the alternative's index: 1 for a text.
    EXPECT_EQ(kelGetDevicePropertyTypeID(h, &type, OV, "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(kelGetDevicePropertyTypeString(h, &kl, nullptr, 1, OV, "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_EQ(kelGetDeviceSupportPropertiesByIndex(h, &kl, nullptr, 0, OV, "CPU"), 0);
    // Unknown type names are ignored; a path arrives as a path (a text for CACHE_DIR is refused).
    kelSetEnginePropertyForNetwork(h, OV, "n", "RUNTIME_STREAMS_NUMBER", "std::String", "abc");
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "n", "CACHE_DIR", "std::filesystem::path", L"/tmp/x"), 0);
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
const std::vector<std::string> texts{"/tmp"};

std::vector<Row> badCalls() {
    const char* OV = "OpenVINO";
    const char* name = "FULL_DEVICE_NAME";
    const std::vector<std::uint64_t> tooMany(8, 1);
    return {
        REFUSED("string_length and version_string are empty!", kelVersion, "NoSuchEngine", nullptr, nullptr),
        REFUSED("engine_name pointer is empty!", kelGetCurrentEngine, nullptr),
        REFUSED("identifier_name pointer is empty!", kelGetCurrentIdentifier, nullptr),
        REFUSED("device_name pointer is empty!", kelGetCurrentNetworkDevice, nullptr),
        REFUSED("dim_length is 0!", kelSetLayerData, "a", values, u64, 0),
        ROW(kelSetLayerData, "a", values, tooMany.data(), tooMany.size()),
        ROW(kelGetLayerDims, "out", nullptr, nullptr),  // writes only what is asked for
        ROW(kelGetLayerPrecision, "out", nullptr, nullptr, nullptr),
        REFUSED("[KEL Exception] kel/c/kelGetInputLayer.cpp:", kelGetInputLayer, 0, nullptr),  // where it checks
        REFUSED("layer_name pointer is empty!", kelGetOutputLayer, -1, nullptr),
        REFUSED("pointers both empty!", kelGetEngineMutableProperties, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                OV),
        // Hosts fetch a key and its value in two calls: all four outputs at once are refused.
        REFUSED("invalid vector subscript", kelGetEngineMutableProperties, nullptr, 0, i32, text, i32 + 1, text, OV),
        REFUSED("key_index value is 11, less than 10!", kelGetEngineMutableProperties, nullptr, 11, i32, nullptr,
                nullptr, nullptr, OV),
        REFUSED("index value is less than 0!", kelGetDeviceSupportPropertiesByIndex, nullptr, nullptr, -1, OV, "CPU"),
        REFUSED("index value is 99, larger than 1!", kelGetDeviceSupportPropertiesByIndex, i32, text, 99, OV, "CPU"),
        REFUSED("verify_type_id(1) is not same with type_id(4)!", kelGetDevicePropertyTypeString, i32, nullptr, 4, OV,
                "CPU", name),
        REFUSED("verify_type_id(1) is not same with type_id(2)!", kelGetDevicePropertyTypeUnorderedMap_String_Float,
                i32, 0, nullptr, nullptr, nullptr, 2, OV, "CPU", name),
        REFUSED("Can not get this type_id(1) value! Please check.", kelGetDevicePropertyTypeGeneral, u64, 1, OV,
                "CPU", name),
        REFUSED("CACHE_DIR need std::filesystem::path type", kelSetEnginePropertyForNetwork, OV, "net", "CACHE_DIR",
                "std::string", "/tmp"),
        REFUSED("CACHE_DIR need std::filesystem::path type", kelSetEnginePropertyForNetwork, OV, "net", "CACHE_DIR",
                "std::vector<std::string>", &texts),
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

// Every index a flat function takes is checked against its list: -1 and one past the end are
// refused. {function, the list's length, the call with an index}
TEST_F(Flat, EveryIndexIsCheckedAgainstItsList) {
    const char* OV = "OpenVINO";
    kelGetSupportDeviceNumber(h, OV);
    const std::tuple<const char*, int, std::function<void(int)>> rows[] = {
        {"SupportEngineLength", kelGetSupportEngineNumber(h), [&](int i) { kelGetSupportEngineLength(h, i); }},
        {"SupportEngine", kelGetSupportEngineNumber(h), [&](int i) { kelGetSupportEngine(h, i, text); }},
        {"SupportDeviceLength", kelGetSupportDeviceNumber(h, OV), [&](int i) { kelGetSupportDeviceLength(h, OV, i); }},
        {"SupportDevice", kelGetSupportDeviceNumber(h, OV), [&](int i) { kelGetSupportDevice(h, OV, i, text); }},
        {"BuiltinModelLength", kelGetSupportBuiltinModelNumber(h, OV),
         [&](int i) { kelGetSupportBuiltinModelLength(h, OV, i); }},
        {"BuiltinModelID", kelGetSupportBuiltinModelNumber(h, OV), [&](int i) { kelGetSupportBuiltinModelID(h, OV, i, text); }},
        {"IdentifierLength", kelGetCreatedNetworkIdentifiersNumber(h),
         [&](int i) { kelGetCreatedNetworkIdentifierLength(h, i); }},
        {"Identifier", kelGetCreatedNetworkIdentifiersNumber(h), [&](int i) { kelGetCreatedNetworkIdentifier(h, i, text); }},
        {"InputLayerLength", kelGetInputLayerNumber(h), [&](int i) { kelGetInputLayerLength(h, i); }},
        {"InputLayer", kelGetInputLayerNumber(h), [&](int i) { kelGetInputLayer(h, i, text); }},
        {"OutputLayerLength", kelGetOutputLayerNumber(h), [&](int i) { kelGetOutputLayerLength(h, i); }},
        {"OutputLayer", kelGetOutputLayerNumber(h), [&](int i) { kelGetOutputLayer(h, i, text); }},
    };
    for (const auto& [function, count, call] : rows)
        for (int i : {-1, count}) {
            call(i);
            // kelGetOutputLayer's own check is the bare standard text, the others kel's.
            const std::string line = "index " + std::to_string(i) + " is out of range!", got = t::takeText(h);
            EXPECT_TRUE(std::string(function) == "OutputLayer" ? got == line : got.find("\n" + line + "\n") != std::string::npos)
                << function << ": " << got;
        }
}

// Every pointer a flat function checks, when it is the only null one, is refused under its own
// name: {function, its pointers in the order it checks them, its call with the k-th null}.
TEST_F(Flat, EachCheckedPointerIsRefusedUnderItsOwnName) {
    const char *OV = "OpenVINO", *name = "FULL_DEVICE_NAME";
    int k = 0;
    const auto p = [&k](int i, auto value) { return i == k ? decltype(value){} : value; };
    const void* cvalues = values;
    const std::uint64_t* dims = u64;
    using Names = std::vector<const char*>;
    const std::tuple<const char*, Names, std::function<void()>> rows[] = {
        {"ByFiles", {"engine_name", "identifier", "device", "network_file"},
         [&] { kelCreateNetByFiles(h, p(0, OV), p(1, "x"), p(2, "CPU"), p(3, "m.xml"), nullptr); }},
        {"ByFilesWithWstring", {"engine_name", "identifier", "device", "network_file"},
         [&] { kelCreateNetByFilesWithWstring(h, p(0, OV), p(1, "x"), p(2, "CPU"), p(3, L"m.xml"), nullptr); }},
        {"ByBuffers", {"engine_name", "identifier", "device", "network_buffer"},
         [&] { kelCreateNetByBuffers(h, p(0, OV), p(1, "x"), p(2, "CPU"), p(3, cvalues), 4, nullptr, 0); }},
        {"ByBuiltin", {"engine_name", "identifier", "builtin_model_id", "device"},
         [&] { kelCreateNetByBuiltin(h, p(0, OV), p(1, "x"), p(3, "CPU"), p(2, "m")); }},
        {"CreatedNetworkIdentifier", {"identifier"}, [&] { kelGetCreatedNetworkIdentifier(h, 0, p(0, text)); }},
        {"TypeGeneral", {"engine_name", "device", "supported_property", "value"},
         [&] { kelGetDevicePropertyTypeGeneral(h, p(3, static_cast<void*>(u64)), 3, p(0, OV), p(1, "CPU"), p(2, name)); }},
        {"TypeID", {"engine_name", "device", "supported_property", "type_id"},
         [&] { kelGetDevicePropertyTypeID(h, p(3, i32), p(0, OV), p(1, "CPU"), p(2, name)); }},
        {"TypeString", {"engine_name", "device", "supported_property"},
         [&] { kelGetDevicePropertyTypeString(h, i32, text, 1, p(0, OV), p(1, "CPU"), p(2, name)); }},
        {"TypeMap", {"engine_name", "device", "supported_property"},
         [&] { kelGetDevicePropertyTypeUnorderedMap_String_Float(h, i32, 0, nullptr, nullptr, nullptr, 2, p(0, OV),
                                                                 p(1, "CPU"), p(2, name)); }},
        {"PropertiesByIndex", {"engine_name", "device"},
         [&] { kelGetDeviceSupportPropertiesByIndex(h, i32, text, 0, p(0, OV), p(1, "CPU")); }},
        {"PropertiesNumber", {"engine_name", "device", "properties_number"},
         [&] { kelGetDeviceSupportPropertiesNumber(h, p(2, i32), p(0, OV), p(1, "CPU")); }},
        {"MutableProperties", {"engine_name"},
         [&] { kelGetEngineMutableProperties(h, i32, 0, nullptr, nullptr, nullptr, nullptr, p(0, OV)); }},
        {"InputLayer", {"layer_name"}, [&] { kelGetInputLayer(h, 0, p(0, text)); }},
        {"LayerData", {"layer_name"}, [&] { kelGetLayerData(h, p(0, "a")); }},
        {"LayerDims", {"layer_name"}, [&] { kelGetLayerDims(h, p(0, "a"), u64, u64); }},
        {"LayerPrecision", {"layer_name"}, [&] { kelGetLayerPrecision(h, p(0, "a"), u64, i32, text); }},
        {"SetLayerData", {"layer_name", "dim_buffer", "data"},
         [&] { kelSetLayerData(h, p(0, "a"), p(2, cvalues), p(1, dims), 1); }},
        {"NetworkDevice", {"identifier", "engine_name"}, [&] { kelGetNetworkDevice(h, p(0, "net"), p(1, text)); }},
        {"NetworkDeviceLength", {"identifier"}, [&] { kelGetNetworkDeviceLength(h, p(0, "net")); }},
        {"NetworkEngine", {"identifier", "engine_name"}, [&] { kelGetNetworkEngine(h, p(0, "net"), p(1, text)); }},
        {"NetworkEngineLength", {"identifier"}, [&] { kelGetNetworkEngineLength(h, p(0, "net")); }},
        {"BuiltinModelID", {"engine_name", "builtin_model_id"},
         [&] { kelGetSupportBuiltinModelID(h, p(0, OV), 0, p(1, text)); }},
        {"BuiltinModelLength", {"engine_name"}, [&] { kelGetSupportBuiltinModelLength(h, p(0, OV), 0); }},
        {"BuiltinModelNumber", {"engine_name"}, [&] { kelGetSupportBuiltinModelNumber(h, p(0, OV)); }},
        {"SupportDevice", {"engine_name", "device_name"}, [&] { kelGetSupportDevice(h, p(0, OV), 0, p(1, text)); }},
        {"SupportDeviceLength", {"engine_name"}, [&] { kelGetSupportDeviceLength(h, p(0, OV), 0); }},
        {"SupportDeviceNumber", {"engine_name"}, [&] { kelGetSupportDeviceNumber(h, p(0, OV)); }},
        {"SupportEngine", {"engine_name"}, [&] { kelGetSupportEngine(h, 0, p(0, text)); }},
        {"RegisterWithString", {"model_id", "model_path"},
         [&] { kelRegisterModelAsInnerIDwithString(h, p(0, "m"), p(1, "/x.so")); }},
        {"RegisterWithWString", {"model_id", "model_path"},
         [&] { kelRegisterModelAsInnerIDwithWString(h, p(0, "m"), p(1, L"/x.so")); }},
        {"SetEngineProperty", {"engine_name", "network_identifier", "property_name", "property_type", "property_value"},
         [&] { kelSetEnginePropertyForNetwork(h, p(0, OV), p(1, "n"), p(2, "CACHE_DIR"), p(3, "std::filesystem::path"),
                                              p(4, static_cast<const void*>(L"/tmp"))); }},
        {"SwitchNetwork", {"identifier"}, [&] { kelSwitchNetwork(h, p(0, "x")); }},
        {"RemoveNetwork", {"network_id"}, [&] { kelRemoveNetwork(h, p(0, "x")); }},
        {"UnregisterInnerID", {"model_id"}, [&] { kelUnregisterInnerID(h, p(0, "m")); }},
    };
    for (const auto& [function, names, call] : rows)
        for (k = 0; k < static_cast<int>(names.size()); ++k) {
            call();
            EXPECT_THAT(t::takeText(h), HasSubstr(std::string("\n") + names[k] + " pointer is empty!\n"))
                << function << " " << names[k];
        }
}

}  // namespace
