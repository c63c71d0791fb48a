// The exception text, the warning line and the log callback's announcements. The fixed texts
// of the checked helpers are pinned where the facade and the back-ends raise them.
#include <gmock/gmock.h>

#include "kel/common/error.hpp"
#include "kel/common/log.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "tests/support/support.hpp"

namespace {

using testing::MatchesRegex;
const std::string kHere = "tests/common/errors_and_logging_test.cpp:";

TEST(KELExceptionText, PrefixCallersLocationAndTheMessageBetweenLineBreaks) {
    const int line = __LINE__ + 1;
    const auto raise = [] { kel::raise("Network id [{}] is exists. Please select {} one.", "n1", 2); };
    EXPECT_EQ(kel::test::thrownText(raise), "[KEL Exception] " + kHere + std::to_string(line) +
                                                "\nNetwork id [n1] is exists. Please select 2 one.\n");
}

TEST(Warning, GoesToStandardErrorAndTheCallbackAndConsumesTheText) {
    std::vector<std::string> lines;
    std::string text = "Not recommend use native engine model";
    const auto here = std::source_location::current();
    const std::string err = kel::test::capturedStderr(
        [&] { kel::warn([&](const std::string& l) { lines.push_back(l); }, text, here); });
    const std::string expected =
        "[" + kHere + std::to_string(here.line()) + "] : (KEL Warning) Not recommend use native engine model";
    EXPECT_EQ(err, expected + "\n");
    EXPECT_EQ(lines, std::vector<std::string>{expected});
    EXPECT_TRUE(text.empty());
    // A throwing callback must not abort the operation that warned.
    kel::LogCallback throwing = [](const std::string&) { throw std::runtime_error("host failure"); };
    EXPECT_NO_THROW(kel::test::capturedStderr([&] { kel::warn(throwing, text = "again"); }));
}

TEST(LogCallback, AnnouncesKelAndRuntimeVersionsWithTheirLocations) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], MatchesRegex("\\[kel/cxx/setLogCallback\\.cpp:[0-9]+\\] : KEL version is "
                                       "2025\\.10\\.23-78560f91\\(x64\\)"));
    EXPECT_THAT(lines[1], MatchesRegex("\\[modules/openvino/vino-api2\\.0\\.cpp:[0-9]+\\] : version is .+"));
}

}  // namespace
