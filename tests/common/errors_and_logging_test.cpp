// The exception text, the warning line and the log callback's announcements.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "kel/common/error.hpp"
#include "kel/common/log.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "tests/support/support.hpp"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

TEST(KELExceptionText, PrefixLocationLineBreaksAndMessage) {
    const auto here = std::source_location::current();
    kel::KELException e("Network id [net1] not exists or created. Please check.", here);
    EXPECT_EQ(std::string(e.what()),
              "[KEL Exception] tests/common/errors_and_logging_test.cpp:" + std::to_string(here.line()) +
                  "\nNetwork id [net1] not exists or created. Please check.\n");
    // An empty message still has both line breaks.
    kel::KELException empty("", here);
    EXPECT_EQ(std::string(empty.what()),
              "[KEL Exception] tests/common/errors_and_logging_test.cpp:" + std::to_string(here.line()) + "\n\n");
}

TEST(KELExceptionText, RaiseFormatsPositionallyAndLocatesTheCaller) {
    int line = 0;
    try {
        line = __LINE__ + 1;
        kel::raise("Network id [{}] is exists. Please select {} one.", "n1", 2);
    } catch (const kel::KELException& e) {
        EXPECT_EQ(std::string(e.what()), "[KEL Exception] tests/common/errors_and_logging_test.cpp:" +
                                             std::to_string(line) +
                                             "\nNetwork id [n1] is exists. Please select 2 one.\n");
        EXPECT_THAT(e.location().function_name(), HasSubstr("TestBody"));
        return;
    }
    FAIL() << "nothing thrown";
}

TEST(StandardTexts, HelpersKeepTheFixedTexts) {
    std::unordered_map<std::string, int> map;
    EXPECT_EQ(kel::test::thrownText([&] { kel::checked_at(map, std::string("x")); }),
              "invalid unordered_map<K, T> key");
    std::any holder = 3;
    EXPECT_EQ(kel::test::thrownText([&] { kel::any_as<std::string>(holder); }), "Bad any_cast");
    EXPECT_EQ(kel::test::thrownText([] { kel::stoi_checked("abc"); }), "invalid stoi argument");
    EXPECT_EQ(kel::stoi_checked("12"), 12);
}

TEST(Warning, GoesToStandardErrorAndTheCallbackAndConsumesTheText) {
    std::vector<std::string> lines;
    kel::LogCallback cb = [&](const std::string& l) { lines.push_back(l); };
    std::string text = "Not recommend use native engine model";
    const auto here = std::source_location::current();
    const std::string err = kel::test::capturedStderr([&] { kel::warn(cb, text, here); });
    const std::string expected = "[tests/common/errors_and_logging_test.cpp:" + std::to_string(here.line()) +
                                 "] : (KEL Warning) Not recommend use native engine model";
    EXPECT_EQ(err, expected + "\n");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], expected);
    EXPECT_TRUE(text.empty());

    // Without a callback the line appears only on standard error; a throwing callback is contained.
    std::string again = "again";
    EXPECT_THAT(kel::test::capturedStderr([&] { kel::warn(nullptr, again); }), HasSubstr("(KEL Warning) again"));
    std::string third = "third";
    kel::LogCallback throwing = [](const std::string&) { throw std::runtime_error("host failure"); };
    EXPECT_NO_THROW(kel::test::capturedStderr([&] { kel::warn(throwing, third); }));
}

TEST(LogCallback, AnnouncesKelAndRuntimeVersionsAndCanBeCleared) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], MatchesRegex("\\[kel/cxx/setLogCallback\\.cpp:[0-9]+\\] : KEL version is "
                                       "2025\\.10\\.23-78560f91\\(x64\\)"));
    EXPECT_THAT(lines[1], MatchesRegex("\\[modules/openvino/vino-api2\\.0\\.cpp:[0-9]+\\] : version is .+"));
    EXPECT_THAT(lines[1], HasSubstr(engine.version("OpenVINO")));

    // An empty callback removes the earlier one and is announced nowhere.
    lines.clear();
    const std::string err = kel::test::capturedStderr([&] { engine.setLogCallback(nullptr); });
    EXPECT_TRUE(err.empty());
    EXPECT_TRUE(lines.empty());
    EXPECT_THROW(engine.version(""), kel::KELException);
    EXPECT_TRUE(lines.empty());
}

}  // namespace
