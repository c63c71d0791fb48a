// The handle's lifecycle, its error channel and the version functions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "kel/c/kel.h"
#include "tests/support/support.hpp"

using testing::HasSubstr;

namespace {

using kel::test::pendingText;


class Handle : public testing::Test {
protected:
    void SetUp() override {
        h = kelCreate();
        ASSERT_FALSE(kelHasException(h)) << pendingText(h);
    }
    void TearDown() override {
        kelResetExceptionString(h);
        kelDestory(h);
    }
    void* h = nullptr;
};

TEST_F(Handle, NullHandlesAndNullPointersAreRefusedQuietly) {
    std::uint64_t n = 7;
    char buf[8] = "xxxxxxx";
    // Every function's null-handle sweep is the bad-argument suite's; these are the values.
    EXPECT_EQ(kelGetExceptionStringLength(nullptr, &n), -1);
    EXPECT_EQ(kelGetExceptionString(nullptr, buf), -1);
    EXPECT_EQ(kelResetExceptionString(nullptr), -1);
    kelSelfVersion(nullptr, &n, buf);
    kelVersion(nullptr, "OpenVINO", &n, buf);
    EXPECT_EQ(n, 7u);
    EXPECT_STREQ(buf, "xxxxxxx");

    // On a clean handle: nothing to read, nothing to reset.
    EXPECT_EQ(kelGetExceptionStringLength(h, &n), -1);
    EXPECT_EQ(kelGetExceptionString(h, buf), -1);
    EXPECT_EQ(kelResetExceptionString(h), -1);
    EXPECT_EQ(kelGetExceptionStringLength(h, nullptr), -1);
    // A null engine name is reported, not dereferenced.
    kelVersion(h, nullptr, &n, nullptr);
    EXPECT_THAT(pendingText(h), HasSubstr("Engine Name is empty!"));
}

TEST_F(Handle, SelfVersionWritesNoTerminatorAndVersionDoes) {
    std::uint64_t n = 0;
    kelSelfVersion(h, &n, nullptr);
    ASSERT_EQ(n, std::strlen("2025.10.23-78560f91(x64)"));
    std::string buf(n + 4, '#');
    kelSelfVersion(h, nullptr, buf.data());
    EXPECT_EQ(buf, "2025.10.23-78560f91(x64)####");

    std::uint64_t m = 0;
    kelVersion(h, "OpenVINO", &m, nullptr);
    ASSERT_GT(m, 0u);
    std::string vbuf(m + 3, '#');
    kelVersion(h, "OpenVINO", nullptr, vbuf.data());
    EXPECT_EQ(vbuf[m], '\0');
    EXPECT_EQ(vbuf.substr(m + 1), "##");
    EXPECT_FALSE(kelHasException(h));

    kelSelfVersion(h, nullptr, nullptr);
    EXPECT_THAT(pendingText(h), HasSubstr("kel/c/kelSelfVersion.cpp:"));
    EXPECT_THAT(pendingText(h), HasSubstr("\nstring_length and version_string are empty!\n"));
    kelResetExceptionString(h);
    kelVersion(h, "OpenVINO", nullptr, nullptr);
    EXPECT_THAT(pendingText(h), HasSubstr("kel/c/kelVersion.cpp:"));
}

TEST_F(Handle, APendingErrorMakesCallsNoOpsAndKeepsTheFirstText) {
    kelVersion(h, "NoSuchEngine", nullptr, nullptr);
    const std::string first = pendingText(h);
    EXPECT_THAT(first, HasSubstr("string_length and version_string are empty!"));

    // A second failing call and a call that would succeed both do nothing.
    std::uint64_t n = 99;
    kelVersion(h, "", &n, nullptr);
    kelSelfVersion(h, &n, nullptr);
    EXPECT_EQ(n, 99u);
    EXPECT_EQ(pendingText(h), first);

    // The text is fetched exactly: the byte after it keeps what it held, and fetching
    // does not clear it.
    std::uint64_t len = 0;
    ASSERT_EQ(kelGetExceptionStringLength(h, &len), 0);
    EXPECT_EQ(len, first.size());
    std::string buf(len + 1, '@');
    ASSERT_EQ(kelGetExceptionString(h, buf.data()), 0);
    EXPECT_EQ(buf.back(), '@');
    EXPECT_TRUE(kelHasException(h));

    // Destroying with a pending error frees nothing: the handle still answers.
    kelDestory(h);
    EXPECT_TRUE(kelHasException(h));
    EXPECT_EQ(pendingText(h), first);

    EXPECT_EQ(kelResetExceptionString(h), 0);
    EXPECT_FALSE(kelHasException(h));
    EXPECT_EQ(kelResetExceptionString(h), -1);
    kelSelfVersion(h, &n, nullptr);
    EXPECT_EQ(n, std::strlen("2025.10.23-78560f91(x64)"));
}

// A host's callback may throw anything; past kel's extern "C" functions it would end the host.
void throwingLog(const char*) { throw 7; }

TEST_F(Handle, AnExceptionOfAnyTypeStopsAtTheBoundaryAndTheHandleGoesOn) {
    kelSetLogCallback(h, &throwingLog);  // the version line is delivered at once
    EXPECT_THAT(pendingText(h), HasSubstr("\nAn exception of unknown type ended the call.\n"));
    ASSERT_EQ(kelResetExceptionString(h), 0);
    kelSetLogCallback(h, nullptr);
    EXPECT_EQ(kelGetSupportEngineNumber(h), 2);
    EXPECT_FALSE(kelHasException(h));
}

std::vector<std::string>* g_lines = nullptr;
void collect(const char* line) { g_lines->push_back(line); }

TEST_F(Handle, LogCallbackReceivesLinesAndNullClearsIt) {
    std::vector<std::string> lines;
    g_lines = &lines;
    kelSetLogCallback(h, &collect);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], HasSubstr("KEL version is 2025.10.23-78560f91(x64)"));
    kelSetLogCallback(h, nullptr);
    EXPECT_FALSE(kelHasException(h));
    EXPECT_EQ(lines.size(), 2u);
    g_lines = nullptr;
}

TEST(HandleIndependence, ErrorTextsArePerHandle) {
    void* a = kelCreate();
    void* b = kelCreate();
    kelSelfVersion(a, nullptr, nullptr);
    EXPECT_TRUE(kelHasException(a));
    EXPECT_FALSE(kelHasException(b));
    kelResetExceptionString(a);
    kelDestory(a);
    kelDestory(b);
}

}  // namespace
