// The flat functions by group: the handle and its error channel, index-based lists, check
// orders, layers and properties.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

namespace t = kel::test;
using t::pendingText;
using t::takeText;
constexpr const char* kSelf = "2025.10.23-78560f91(x64)";

int g_lines = 0;
void countLine(const char*) { ++g_lines; }
void throwingLog(const char*) { throw 7; }

TEST(Handle, TextCopiesThePendingTextRuleAndTheCallbackBoundary) {
    void* h = kelCreate();
    std::uint64_t n = 7;
    char buf[8] = "xxxxxxx";
    // Without a handle, or without a pending text, nothing is read or written.
    for (void* handle : {static_cast<void*>(nullptr), h}) {
        EXPECT_EQ(kelGetExceptionStringLength(handle, &n), -1);
        EXPECT_EQ(kelGetExceptionString(handle, buf), -1);
        EXPECT_EQ(kelResetExceptionString(handle), -1);
    }
    kelSelfVersion(nullptr, &n, buf);
    EXPECT_EQ(n, 7u);
    EXPECT_STREQ(buf, "xxxxxxx");

    // The library's version comes without a terminator, the runtime's with one.
    kelSelfVersion(h, &n, nullptr);
    std::string self(n + 4, '#');
    kelSelfVersion(h, nullptr, self.data());
    EXPECT_EQ(self, std::string(kSelf) + "####");
    kelVersion(h, "OpenVINO", &n, nullptr);
    std::string runtime(n + 2, '#');
    kelVersion(h, "OpenVINO", nullptr, runtime.data());
    EXPECT_EQ(runtime.substr(n), std::string("\0#", 2));

    kelVersion(h, "NoSuchEngine", nullptr, nullptr);
    const std::string first = pendingText(h);
    EXPECT_THAT(first, HasSubstr("\nstring_length and version_string are empty!\n"));
    // Later calls, failing or not, do nothing; fetching is exact and does not clear.
    n = 99;
    kelVersion(h, nullptr, &n, nullptr);
    kelSelfVersion(h, &n, nullptr);
    EXPECT_EQ(n, 99u);
    ASSERT_EQ(kelGetExceptionStringLength(h, &n), 0);
    std::string exact(n + 1, '@');
    ASSERT_EQ(kelGetExceptionString(h, exact.data()), 0);
    EXPECT_EQ(exact, first + "@");
    // Destroying with a pending text frees nothing: the handle still answers.
    kelDestory(h);
    EXPECT_EQ(takeText(h), first);

    // A host callback's exception would end the host past kel's extern "C" functions.
    kelSetLogCallback(h, &countLine);
    EXPECT_EQ(g_lines, 2);
    kelSetLogCallback(h, &throwingLog);
    EXPECT_THAT(takeText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    EXPECT_EQ(g_lines, 2);
    kelSetLogCallback(h, nullptr);
    EXPECT_FALSE(kelHasException(h));
    kelDestory(h);
}

class Flat : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        t::capturedStderr([&] {
            kelRegisterModelAsInnerIDwithString(h, "static", t::pluginLibrary("kel_pm_openvino_static").c_str());
            kelCreateNetByFiles(h, "OpenVINO", "net", "CPU", t::openvinoModel("static.xml").c_str(),
                                t::openvinoModel("static.bin").c_str());
        });
        ASSERT_FALSE(kelHasException(h)) << pendingText(h);
    }
    void TearDown() override {
        kelResetExceptionString(h);
        kelDestory(h);
    }
    // Takes the pending text, which must hold `line` as a line of a KEL text or, if `bare`, be it.
    void expectText(const std::string& line, bool bare = false) {
        const std::string text = takeText(h);
        if (bare)
            EXPECT_EQ(text, line);
        else
            EXPECT_THAT(text, HasSubstr("\n" + line + "\n"));
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
            expectText(range);
            char buf[64];
            list.get(h, bad, buf);
            expectText(range, list.bare_texts);
        }
        list.get(h, -1, nullptr);  // the pointer is checked before the index
        expectText(list.null_buffer_text, list.bare_texts);

    }
    // An inner failure while counting is replaced by the range text.
    EXPECT_EQ(kelGetSupportDeviceLength(h, "NoEngine", 0), -1);
    expectText("index 0 is out of range!");
}

TEST_F(Flat, EveryNamedTextHandsOutExactlyItsBytes) {
    struct Text {
        const char* expected;
        std::function<int(void*)> length;
        std::function<void(void*, char*)> get;
    };
    const Text texts[] = {
        {"OpenVINO", [](void* h) { return kelGetNetworkEngineLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkEngine(h, "net", b); }},
        {"CPU", [](void* h) { return kelGetNetworkDeviceLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkDevice(h, "net", b); }},
        {"OpenVINO", kelGetCurrentEngineLength, kelGetCurrentEngine},
        {"net", kelGetCurrentIdentifierLength, kelGetCurrentIdentifier},
        {"CPU", kelGetCurrentNetworkDeviceLength, kelGetCurrentNetworkDevice},
    };
    for (const auto& text : texts) {
        const int n = text.length(h);
        ASSERT_EQ(n, static_cast<int>(std::strlen(text.expected)));
        std::string buf(static_cast<std::size_t>(n) + 2, '#');
        text.get(h, buf.data());
        EXPECT_EQ(buf, std::string(text.expected) + "##");
    }
}

TEST_F(Flat, CreationFormsAndLayerOutputs) {
    // Located at the exported function that checks.
    kelGetInputLayer(h, 0, nullptr);
    EXPECT_THAT(takeText(h), StartsWith("[KEL Exception] kel/c/kelGetInputLayer.cpp:"));

    // A weights buffer of size 0 is left out: a description without weights still loads.
    const std::string description = t::readFile(t::openvinoModel("noweights.xml"));
    kelCreateNetByBuffers(h, "OpenVINO", "b", "CPU", description.data(), description.size(), "<net/>", 0);
    const auto wide = t::openvinoModel("static.xml").wstring();
    kelCreateNetByFilesWithWstring(h, "OpenVINO", "w", "CPU", wide.c_str(), nullptr);
    kelCreateNetByBuiltin(h, "OpenVINO", "builtin", "CPU", "static");
    EXPECT_EQ(takeText(h), "");
    EXPECT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 4);

    // Only the outputs asked for are written, the precision without a terminator.
    std::uint64_t count = 0;
    kelGetLayerDims(h, "prob", nullptr, &count);
    EXPECT_EQ(count, 4u);
    int length = 0;
    char precision[8] = "#######";
    kelGetLayerPrecision(h, "prob", nullptr, &length, precision);
    EXPECT_EQ(length, 4);
    EXPECT_STREQ(precision, "FP32###");

    // The reserved functions touch nothing, even without a handle.
    EXPECT_EQ(kelGetPluginModelVersionLengthWithString(nullptr, nullptr), -1);
    EXPECT_EQ(kelGetPluginModelVersionLengthWithWstring(h, L"x"), -1);
    kelGetPluginModelVersionWithString(h, "x", nullptr);
    kelGetPluginModelVersionWithWstring(nullptr, nullptr, nullptr);
    EXPECT_FALSE(kelHasException(h));
}

TEST_F(Flat, PropertyFunctionsFollowTheirConventions) {
    const char* OV = "OpenVINO";
    int count = 0;
    ASSERT_EQ(kelGetEngineMutableProperties(h, &count, 99, nullptr, nullptr, nullptr, nullptr, OV), 0);
    int kl = 0, vl = 0;
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, &kl, nullptr, &vl, nullptr, OV), 0);
    std::string key(static_cast<std::size_t>(kl), '\0'), value(static_cast<std::size_t>(vl), '\0');
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, 0, nullptr, key.data(), nullptr, value.data(), OV), 0);
    EXPECT_THAT(value, testing::AnyOf("std::string", "std::filesystem::path"));
    EXPECT_EQ(kelGetEngineMutableProperties(h, nullptr, count + 2, &kl, nullptr, nullptr, nullptr, OV), -1);
    expectText("key_index value is " + std::to_string(count + 2) + ", less than " + std::to_string(count - 1) + "!");

    // The type id is the alternative's index: 1 for a text.
    int type = -7;
    ASSERT_EQ(kelGetDevicePropertyTypeID(h, &type, OV, "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_EQ(type, 1);
    int length = 0;
    ASSERT_EQ(kelGetDevicePropertyTypeString(h, &length, nullptr, 1, OV, "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_GT(length, 0);

    // Setting: unknown type names are ignored; known ones reach the network's properties.
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "n", "CACHE_DIR", "std::filesystem::path", L"/tmp/x"), 0);
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "later", "RUNTIME_STREAMS_NUMBER", "std::String", "abc"), 0);
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "again", "RUNTIME_STREAMS_NUMBER", "std::string", "abc"), 0);
    const auto xml = t::openvinoModel("static.xml").string();
    t::capturedStderr([&] { kelCreateNetByFiles(h, OV, "later", "CPU", xml.c_str(), nullptr); });
    EXPECT_EQ(takeText(h), "");
    t::capturedStderr([&] { kelCreateNetByFiles(h, OV, "again", "CPU", xml.c_str(), nullptr); });
    EXPECT_THAT(takeText(h), HasSubstr("invalid stoi argument"));
}

}  // namespace
