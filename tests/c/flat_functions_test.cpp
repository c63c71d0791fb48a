// The flat functions by group: the handle and its error channel, the texts kel-run does not
// read, and properties. Their refusal and range texts are pinned in bad_arguments_test.cpp.
#include <gmock/gmock.h>

#include <cstring>
#include <functional>

#include "kel/c/kel.h"
#include "tests/support/models.hpp"

using testing::HasSubstr;

namespace {

namespace t = kel::test;
using t::pendingText;
using t::takeText;

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
    kelSelfVersion(h, &n, nullptr);
    std::string self(n + 1, '#');
    kelSelfVersion(h, nullptr, self.data());
    EXPECT_EQ(self, "2025.10.23-78560f91(x64)#");
    kelVersion(h, "OpenVINO", &n, nullptr);
    std::string runtime(n + 2, '#');
    kelVersion(h, "OpenVINO", nullptr, runtime.data());
    EXPECT_EQ(runtime.substr(n), std::string("\0#", 2));

    // Fetching is exact and does not clear; destroying with a pending text frees nothing.
    kelSelfVersion(h, nullptr, nullptr);
    const std::string first = pendingText(h);
    std::string exact(first.size() + 1, '@');
    ASSERT_EQ(kelGetExceptionString(h, exact.data()), 0);
    EXPECT_EQ(exact, first + "@");
    kelDestory(h);
    EXPECT_EQ(takeText(h), first);

    // A host callback's exception would end the host past kel's extern "C" functions. An empty
    // callback replaces it without a word.
    kelSetLogCallback(h, &throwingLog);
    EXPECT_THAT(takeText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    kelSetLogCallback(h, nullptr);
    EXPECT_FALSE(kelHasException(h));
    kelDestory(h);
}

class Flat : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        // A weights buffer of size 0 is left out: a description without weights loads.
        const std::string description = t::readFile(t::openvinoModel("noweights.xml"));
        kelCreateNetByBuffers(h, "OpenVINO", "net", "CPU", description.data(), description.size(), "<net/>", 0);
        ASSERT_FALSE(kelHasException(h)) << pendingText(h);
    }
    void TearDown() override {
        kelResetExceptionString(h);
        kelDestory(h);
    }
    void* h = nullptr;
};

// kel-run reads the other lists (engines, devices, inner models, layers) through these same helpers.
TEST_F(Flat, EveryTextHandsOutExactlyItsBytesWithoutATerminator) {
    struct Text {
        const char* expected;
        std::function<int(void*)> length;
        std::function<void(void*, char*)> get;
    };
    const Text texts[] = {
        {"net", [](void* h) { return kelGetCreatedNetworkIdentifierLength(h, 0); },
         [](void* h, char* b) { kelGetCreatedNetworkIdentifier(h, 0, b); }},
        {"OpenVINO", [](void* h) { return kelGetNetworkEngineLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkEngine(h, "net", b); }},
        {"CPU", [](void* h) { return kelGetNetworkDeviceLength(h, "net"); },
         [](void* h, char* b) { kelGetNetworkDevice(h, "net", b); }},
        {"OpenVINO", kelGetCurrentEngineLength, kelGetCurrentEngine},
        {"net", kelGetCurrentIdentifierLength, kelGetCurrentIdentifier},
        {"CPU", kelGetCurrentNetworkDeviceLength, kelGetCurrentNetworkDevice},
    };
    for (const auto& text : texts) {
        SCOPED_TRACE(text.expected);
        const int n = text.length(h);
        ASSERT_EQ(n, static_cast<int>(std::strlen(text.expected))) << pendingText(h);
        std::string buf(static_cast<std::size_t>(n) + 2, '#');
        text.get(h, buf.data());
        EXPECT_EQ(buf, std::string(text.expected) + "##");
    }
}

TEST_F(Flat, PropertyFunctionsFollowTheirConventions) {
    const char* OV = "OpenVINO";
    // The count ignores the index; a key and its value come in separate calls.
    int count = 0, kl = 0, vl = 0;
    ASSERT_EQ(kelGetEngineMutableProperties(h, &count, 99, nullptr, nullptr, nullptr, nullptr, OV), 0);
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, count - 1, &kl, nullptr, &vl, nullptr, OV), 0);
    std::string key(static_cast<std::size_t>(kl), '\0'), value(static_cast<std::size_t>(vl), '\0');
    ASSERT_EQ(kelGetEngineMutableProperties(h, nullptr, count - 1, nullptr, key.data(), nullptr, value.data(), OV),
              0);
    EXPECT_THAT(value, testing::AnyOf("std::string", "std::filesystem::path"));

    // The type id is the alternative's index: 1 for a text.
    int type = -7;
    ASSERT_EQ(kelGetDevicePropertyTypeID(h, &type, OV, "CPU", "FULL_DEVICE_NAME"), 0);
    EXPECT_EQ(type, 1);

    // Unknown type names are ignored; a path arrives as a path (a text for CACHE_DIR is refused).
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "n", "RUNTIME_STREAMS_NUMBER", "std::String", "abc"), 0);
    EXPECT_EQ(kelSetEnginePropertyForNetwork(h, OV, "n", "CACHE_DIR", "std::filesystem::path", L"/tmp/x"), 0);
    EXPECT_EQ(takeText(h), "");
}

}  // namespace
