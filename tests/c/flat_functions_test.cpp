// The flat functions by group: the handle and its error channel, index-based lists, check
// orders, layers and properties.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

namespace t = kel::test;
using t::pendingText;
using t::takeText;
constexpr const char* kSelf = "2025.10.23-78560f91(x64)";

TEST(Handle, WithoutAHandleOrATextNothingIsReadOrWritten) {
    void* h = kelCreate();
    std::uint64_t n = 7;
    char buf[8] = "xxxxxxx";
    for (void* handle : {static_cast<void*>(nullptr), h}) {
        EXPECT_EQ(kelGetExceptionStringLength(handle, &n), -1);
        EXPECT_EQ(kelGetExceptionString(handle, buf), -1);
        EXPECT_EQ(kelResetExceptionString(handle), -1);
    }
    kelSelfVersion(nullptr, &n, buf);
    kelVersion(nullptr, "OpenVINO", &n, buf);
    EXPECT_EQ(n, 7u);
    EXPECT_STREQ(buf, "xxxxxxx");
    kelVersion(h, nullptr, &n, nullptr);  // reported, not dereferenced
    EXPECT_THAT(takeText(h), HasSubstr("Engine Name is empty!"));
    kelDestory(h);
}

TEST(Handle, VersionsAndThePendingTextRules) {
    void* h = kelCreate();
    std::uint64_t n = 0;
    kelSelfVersion(h, &n, nullptr);
    std::string self(n + 4, '#');
    kelSelfVersion(h, nullptr, self.data());
    EXPECT_EQ(self, std::string(kSelf) + "####");  // no terminator
    kelVersion(h, "OpenVINO", &n, nullptr);
    std::string runtime(n + 2, '#');
    kelVersion(h, "OpenVINO", nullptr, runtime.data());
    EXPECT_EQ(runtime.substr(n), std::string("\0#", 2));  // a terminator

    kelVersion(h, "NoSuchEngine", nullptr, nullptr);
    const std::string first = pendingText(h);
    EXPECT_THAT(first, AllOf(HasSubstr("kel/c/kelVersion.cpp:"),
                             HasSubstr("\nstring_length and version_string are empty!\n")));
    // Later calls, failing or not, do nothing; fetching is exact and does not clear.
    n = 99;
    kelSelfVersion(h, nullptr, nullptr);
    kelSelfVersion(h, &n, nullptr);
    EXPECT_EQ(n, 99u);
    ASSERT_EQ(kelGetExceptionStringLength(h, &n), 0);
    std::string buf(n + 1, '@');
    ASSERT_EQ(kelGetExceptionString(h, buf.data()), 0);
    EXPECT_EQ(buf, first + "@");
    // Destroying with a pending text frees nothing: the handle still answers.
    kelDestory(h);
    EXPECT_EQ(takeText(h), first);
    EXPECT_EQ(kelResetExceptionString(h), -1);
    kelDestory(h);
}

std::vector<std::string> g_lines;
void collect(const char* line) { g_lines.push_back(line); }
void throwingLog(const char*) { throw 7; }

TEST(Handle, LogLinesReachTheCallbackAndItsExceptionsStopAtTheBoundary) {
    void* h = kelCreate();
    kelSetLogCallback(h, &collect);
    ASSERT_EQ(g_lines.size(), 2u);
    EXPECT_THAT(g_lines[0], HasSubstr(std::string("KEL version is ") + kSelf));
    // Past kel's extern "C" functions a host's exception would end the host.
    kelSetLogCallback(h, &throwingLog);
    EXPECT_THAT(takeText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    kelSetLogCallback(h, nullptr);
    EXPECT_EQ(kelGetSupportEngineNumber(h), 2);
    EXPECT_EQ(g_lines.size(), 2u);
    EXPECT_FALSE(kelHasException(h));
    kelDestory(h);
}

class Flat : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        ASSERT_FALSE(kelHasException(h)) << pendingText(h);
        const auto xml = t::openvinoModel("static.xml").string();
        const auto bin = t::openvinoModel("static.bin").string();
        t::capturedStderr([&] {
            kelCreateNetByFiles(h, "OpenVINO", "two_inputs", "CPU", t::openvinoModel("multi.xml").c_str(),
                                t::openvinoModel("multi.bin").c_str());
            kelRegisterModelAsInnerIDwithString(h, "static", t::pluginLibrary("kel_pm_openvino_static").c_str());
            kelCreateNetByFiles(h, "OpenVINO", "net", "CPU", xml.c_str(), bin.c_str());
        });
        ASSERT_FALSE(kelHasException(h)) << pendingText(h);
    }
    void TearDown() override {
        kelResetExceptionString(h);
        kelDestory(h);
    }
    void* h = nullptr;
};

// One index-based list: its count, length and copy functions and the copy's null-pointer text.
struct IndexedList {
    const char* name;
    std::function<int(void*)> number;
    std::function<int(void*, int)> length;
    std::function<void(void*, int, char*)> get;
    const char* null_buffer_text;
    bool bare_texts = false;  // kelGetOutputLayer keeps its own texts bare
};

TEST_F(Flat, EveryIndexedListHandsOutExactlyItsBytesAndRefusesBadIndexes) {
    const IndexedList lists[] = {
        {"engines", kelGetSupportEngineNumber, kelGetSupportEngineLength, kelGetSupportEngine,
         "engine_name pointer is empty!"},
        {"devices", [](void* h) { return kelGetSupportDeviceNumber(h, "OpenVINO"); },
         [](void* h, int i) { return kelGetSupportDeviceLength(h, "OpenVINO", i); },
         [](void* h, int i, char* b) { kelGetSupportDevice(h, "OpenVINO", i, b); }, "device_name pointer is empty!"},
        {"inner models", [](void* h) { return kelGetSupportBuiltinModelNumber(h, "OpenVINO"); },
         [](void* h, int i) { return kelGetSupportBuiltinModelLength(h, "OpenVINO", i); },
         [](void* h, int i, char* b) { kelGetSupportBuiltinModelID(h, "OpenVINO", i, b); },
         "builtin_model_id pointer is empty!"},
        {"networks", kelGetCreatedNetworkIdentifiersNumber, kelGetCreatedNetworkIdentifierLength,
         kelGetCreatedNetworkIdentifier, "identifier pointer is empty!"},
        {"inputs", kelGetInputLayerNumber, kelGetInputLayerLength, kelGetInputLayer, "layer_name pointer is empty!"},
        {"outputs", kelGetOutputLayerNumber, kelGetOutputLayerLength, kelGetOutputLayer,
         "layer_name pointer is empty!", true},
    };
    for (const auto& list : lists) {
        SCOPED_TRACE(list.name);
        const int count = list.number(h);
        ASSERT_GT(count, 0) << pendingText(h);
        for (int i = 0; i < count; ++i) {
            const int n = list.length(h, i);
            ASSERT_GT(n, 0);
            std::string buf(static_cast<std::size_t>(n) + 4, '#');
            list.get(h, i, buf.data());
            EXPECT_EQ(buf.substr(static_cast<std::size_t>(n)), "####");
            EXPECT_EQ(buf.find('\0'), std::string::npos);
        }
        for (int bad : {count, -1}) {
            const std::string range = "index " + std::to_string(bad) + " is out of range!";
            EXPECT_EQ(list.length(h, bad), -1);
            EXPECT_THAT(takeText(h), HasSubstr("\n" + range + "\n"));
            char buf[64];
            list.get(h, bad, buf);
            if (list.bare_texts)
                EXPECT_EQ(takeText(h), range);
            else
                EXPECT_THAT(takeText(h), HasSubstr("\n" + range + "\n"));
        }
        // The pointer is checked before the index.
        list.get(h, -1, nullptr);
        if (list.bare_texts)
            EXPECT_EQ(takeText(h), list.null_buffer_text);
        else
            EXPECT_THAT(takeText(h), HasSubstr("\n" + std::string(list.null_buffer_text) + "\n"));

        // While a text is pending nothing runs and nothing is written.
        kelSelfVersion(h, nullptr, nullptr);
        const std::string pending = pendingText(h);
        EXPECT_EQ(list.number(h), -1);
        EXPECT_EQ(list.length(h, 0), -1);
        char untouched[8] = "#######";
        list.get(h, 0, untouched);
        EXPECT_STREQ(untouched, "#######");
        EXPECT_EQ(takeText(h), pending);
    }
    // An inner failure while counting is replaced by the range text.
    EXPECT_EQ(kelGetSupportDeviceLength(h, "NoEngine", 0), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nindex 0 is out of range!\n"));
}

TEST_F(Flat, EveryNamedTextHandsOutExactlyItsBytes) {
    struct Text {
        const char* name;
        std::function<int(void*)> length;
        std::function<void(void*, char*)> get;
        const char* expected;
    };
    const Text texts[] = {
        {"network engine", [](void* h) { return kelGetNetworkEngineLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkEngine(h, "net", b); }, "OpenVINO"},
        {"network device", [](void* h) { return kelGetNetworkDeviceLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkDevice(h, "net", b); }, "CPU"},
        {"current engine", kelGetCurrentEngineLength, kelGetCurrentEngine, "OpenVINO"},
        {"current identifier", kelGetCurrentIdentifierLength, kelGetCurrentIdentifier, "net"},
        {"current device", kelGetCurrentNetworkDeviceLength, kelGetCurrentNetworkDevice, "CPU"},
    };
    for (const auto& text : texts) {
        SCOPED_TRACE(text.name);
        const int n = text.length(h);
        ASSERT_EQ(n, static_cast<int>(std::strlen(text.expected)));
        std::string buf(static_cast<std::size_t>(n) + 2, '#');
        text.get(h, buf.data());
        EXPECT_EQ(buf, std::string(text.expected) + "##");
        text.get(h, nullptr);
        EXPECT_THAT(takeText(h), HasSubstr("pointer is empty!"));
    }
}

TEST_F(Flat, CreationChecksPointersInTheirOwnOrder) {
    const char xml[] = "<net/>";
    const std::pair<std::function<void()>, const char*> refusals[] = {
        {[&] { kelCreateNetByBuiltin(h, "OpenVINO", "n1", nullptr, nullptr); }, "builtin_model_id"},
        {[&] { kelCreateNetByBuiltin(h, "OpenVINO", "n1", nullptr, "static"); }, "device"},
        {[&] { kelCreateNetByFiles(h, "OpenVINO", nullptr, nullptr, nullptr, nullptr); }, "identifier"},
        {[&] { kelCreateNetByFilesWithWstring(h, "OpenVINO", "w", "CPU", nullptr, nullptr); }, "network_file"},
        {[&] { kelCreateNetByBuffers(h, "OpenVINO", "b", "CPU", xml, 0, nullptr, 0); }, "network_buffer"},
        {[&] { kelRegisterModelAsInnerIDwithWString(h, "x", nullptr); }, "model_path"},
    };
    for (const auto& [call, pointer] : refusals) {
        call();
        EXPECT_THAT(takeText(h), HasSubstr("\n" + std::string(pointer) + " pointer is empty!\n"));
    }

    // A weights buffer of size 0 is left out: a description without weights still loads.
    const std::string description = t::readFile(t::openvinoModel("noweights.xml"));
    kelCreateNetByBuffers(h, "OpenVINO", "b", "CPU", description.data(), description.size(), xml, 0);
    EXPECT_EQ(takeText(h), "");
    // Wide paths and a built-in model.
    kelCreateNetByFilesWithWstring(h, "OpenVINO", "w", "CPU", t::openvinoModel("static.xml").wstring().c_str(), nullptr);
    kelCreateNetByBuiltin(h, "OpenVINO", "builtin", "CPU", "static");
    EXPECT_EQ(takeText(h), "");
    char name[16] = {0};
    EXPECT_EQ(kelGetCurrentIdentifierLength(h), 7);
    kelGetCurrentIdentifier(h, name);
    EXPECT_STREQ(name, "builtin");
    kelGetNetworkDevice(h, "w", nullptr);
    EXPECT_THAT(takeText(h), HasSubstr("\nengine_name pointer is empty!\n"));
    kelRemoveNetwork(h, nullptr);
    EXPECT_THAT(takeText(h), HasSubstr("\nnetwork_id pointer is empty!\n"));

    // The reserved functions touch nothing, even without a handle.
    EXPECT_EQ(kelGetPluginModelVersionLengthWithString(nullptr, nullptr), -1);
    EXPECT_EQ(kelGetPluginModelVersionLengthWithWstring(h, L"x"), -1);
    kelGetPluginModelVersionWithString(h, "x", nullptr);
    kelGetPluginModelVersionWithWstring(nullptr, nullptr, nullptr);
    EXPECT_FALSE(kelHasException(h));
}

TEST_F(Flat, LayerFunctionsCheckTheirArgumentsAndWriteOnlyWhatIsAsked) {
    std::uint64_t dims[4] = {1, 3, 4, 5};
    float data[60] = {};
    kelSetLayerData(h, "data", data, dims, 0);
    EXPECT_THAT(takeText(h), HasSubstr("\ndim_length is 0!\n"));
    kelSetLayerData(h, "data", nullptr, nullptr, 4);
    EXPECT_THAT(takeText(h), HasSubstr("\ndim_buffer pointer is empty!\n"));
    kelSetLayerData(h, "data", nullptr, dims, 4);
    EXPECT_THAT(takeText(h), HasSubstr("\ndata pointer is empty!\n"));
    dims[3] = 6;
    kelSetLayerData(h, "data", data, dims, 4);
    EXPECT_THAT(takeText(h), HasSubstr("[data] expect dims is [1, 3, 4, 5], but get dims is [1, 3, 4, 6]"));

    std::uint64_t count = 0;
    kelGetLayerDims(h, "prob", nullptr, &count);
    EXPECT_EQ(count, 4u);
    kelGetLayerPrecision(h, "prob", nullptr, nullptr, nullptr);
    EXPECT_FALSE(kelHasException(h));
    int length = 0;
    char precision[8] = "#######";
    kelGetLayerPrecision(h, "prob", nullptr, &length, precision);
    EXPECT_EQ(length, 4);
    EXPECT_STREQ(precision, "FP32###");

    kelGetInputLayer(h, 0, nullptr);
    EXPECT_THAT(takeText(h), StartsWith("[KEL Exception] kel/c/kelGetInputLayer.cpp:"));
    EXPECT_EQ(kelGetLayerData(h, "nope"), nullptr);
    const std::string text = takeText(h);
    EXPECT_THAT(text, HasSubstr("nope is not found in input and output layers."));
    // With a text pending, no pointer comes back and the text stays.
    kelSelfVersion(h, nullptr, nullptr);
    const std::string pending = pendingText(h);
    EXPECT_EQ(kelGetLayerData(h, "prob"), nullptr);
    EXPECT_EQ(pendingText(h), pending);
}

TEST_F(Flat, PropertyFunctionsFollowTheirConventions) {
    int count = 0;
    ASSERT_EQ(kelGetEngineMutableProperties(h, &count, 99, nullptr, nullptr, nullptr, nullptr, "OpenVINO"), 0);
    ASSERT_GT(count, 2);
    // A key and its value come in two calls; all four outputs at once is refused.
    int key_length = 0, value_length = 0;
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, &key_length, nullptr, &value_length, nullptr, "OpenVINO"), 0);
    std::string key(static_cast<std::size_t>(key_length), '\0'), value(static_cast<std::size_t>(value_length), '\0');
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, nullptr, key.data(), nullptr, value.data(), "OpenVINO"), 0);
    EXPECT_THAT(value, testing::AnyOf("std::string", "std::filesystem::path"));
    EXPECT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, &key_length, key.data(), &value_length, value.data(),
                                            "OpenVINO"),
              -1);
    EXPECT_EQ(takeText(h), "invalid vector subscript");
    EXPECT_EQ(kelGetEngineMutableProperties(h, nullptr, count + 2, &key_length, nullptr, nullptr, nullptr, "OpenVINO"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nkey_index value is " + std::to_string(count + 2) + ", less than " +
                                       std::to_string(count - 1) + "!\n"));
    EXPECT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, nullptr, nullptr, nullptr, nullptr, "OpenVINO"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("value_string pointers both empty!"));

    int names = 0;
    ASSERT_EQ(kelGetDeviceSupportPropertiesNumber(h, &names, "OpenVINO", "CPU"), 0);
    EXPECT_EQ(names, 2);
    EXPECT_EQ(kelGetDeviceSupportPropertiesByIndex(h, nullptr, nullptr, -1, "OpenVINO", "CPU"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nindex value is less than 0!\n"));
    int name_length = 0;
    EXPECT_EQ(kelGetDeviceSupportPropertiesByIndex(h, &name_length, nullptr, 5, "OpenVINO", "CPU"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nindex value is 5, larger than 1!\n"));

    int type = -7;
    ASSERT_EQ(kelGetDevicePropertyTypeID(h, &type, "OpenVINO", "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_EQ(type, 1);
    int text_length = 0;
    ASSERT_EQ(kelGetDevicePropertyTypeString(h, &text_length, nullptr, 1, "OpenVINO", "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_GT(text_length, 0);
    EXPECT_EQ(kelGetDevicePropertyTypeString(h, &text_length, nullptr, 4, "OpenVINO", "CPU", "FULL_DEVICE_NAME"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nverify_type_id(1) is not same with type_id(4)!\n"));
    std::uint64_t general = 0;
    EXPECT_EQ(kelGetDevicePropertyTypeGeneral(h, &general, 1, "OpenVINO", "CPU", "FULL_DEVICE_NAME"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nCan not get this type_id(1) value! Please check.\n"));
    int keys = 0;
    EXPECT_EQ(kelGetDevicePropertyTypeUnorderedMap_String_Float(h, &keys, 0, nullptr, nullptr, nullptr, 2, "OpenVINO",
                                                                "CPU", "FULL_DEVICE_NAME"),
              -1);
    EXPECT_THAT(takeText(h), HasSubstr("verify_type_id(1) is not same with type_id(2)!"));
    // A property the device does not have is the empty alternative; only its id can be read.
    ASSERT_EQ(kelGetDevicePropertyTypeID(h, &type, "OpenVINO", "CPU", "DEVICE_GOPS"), 0);
    EXPECT_EQ(type, 0);
    EXPECT_EQ(kelGetDevicePropertyTypeString(h, &text_length, nullptr, 0, "OpenVINO", "CPU", "DEVICE_GOPS"), -1);
    EXPECT_FALSE(takeText(h).empty());

    // Setting: unknown type names are ignored; known ones reach the network's properties.
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, "OpenVINO", "later", "RUNTIME_STREAMS_NUMBER", "std::String", "abc"), 0);
    EXPECT_FALSE(kelHasException(h));
    const auto xml = t::openvinoModel("static.xml").string();
    t::capturedStderr([&] { kelCreateNetByFiles(h, "OpenVINO", "later", "CPU", xml.c_str(), nullptr); });
    EXPECT_EQ(takeText(h), "");
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, "OpenVINO", "again", "RUNTIME_STREAMS_NUMBER", "std::string", "abc"), 0);
    t::capturedStderr([&] { kelCreateNetByFiles(h, "OpenVINO", "again", "CPU", xml.c_str(), nullptr); });
    EXPECT_THAT(takeText(h), HasSubstr("invalid stoi argument"));
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, "OpenVINO", "n", "CACHE_DIR", "std::filesystem::path", L"/tmp/x"), 0);
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, "OpenVINO", "n", "CACHE_DIR", "std::string", "/tmp/x"), -1);
    EXPECT_THAT(takeText(h), HasSubstr("CACHE_DIR need std::filesystem::path type"));
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, "OpenVINO", "n", "CACHE_DIR", nullptr, nullptr), -1);
    EXPECT_THAT(takeText(h), HasSubstr("\nproperty_type pointer is empty!\n"));
}

}  // namespace
