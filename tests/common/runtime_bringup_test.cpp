// What every engine rests on: error and warning texts, log announcements, library and list checks.
#include <elf.h>
#include <gmock/gmock.h>

#include <cstddef>

#include "kel/common/error.hpp"
#include "kel/common/log.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "kel/utils/platform.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "modules/openvino/vino_test_hooks.hpp"
#include "tests/support/models.hpp"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

namespace t = kel::test;
const std::string kHere = "tests/common/runtime_bringup_test.cpp:";

TEST(ErrorsAndWarnings, AnExceptionsTextAndAWarningToStandardErrorAndTheCallback) {
    const int line = __LINE__ + 1;
    const auto raise = [] { kel::raise("Network id [{}] is exists. Please select {} one.", "n1", 2); };
    EXPECT_EQ(t::thrownText(raise),
              "[KEL Exception] " + kHere + std::to_string(line) + "\nNetwork id [n1] is exists. Please select 2 one.\n");

    std::vector<std::string> lines;
    std::string text = "Not recommend use native engine model";
    const auto here = std::source_location::current();
    const std::string expected =
        "[" + kHere + std::to_string(here.line()) + "] : (KEL Warning) Not recommend use native engine model";
    EXPECT_EQ(t::capturedStderr([&] { kel::warn([&](const std::string& l) { lines.push_back(l); }, text, here); }),
              expected + "\n");
    EXPECT_EQ(lines, std::vector<std::string>{expected});
    // A throwing callback must not abort the operation that warned.
    kel::LogCallback throwing = [](const std::string&) { throw std::runtime_error("host failure"); };
    EXPECT_NO_THROW(t::capturedStderr([&] { kel::warn(throwing, text = "again"); }));
}

TEST(LogCallback, AnnouncesKelAndRuntimeVersionsWithTheirLocations) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    EXPECT_THAT(lines, testing::ElementsAre(
                           MatchesRegex("\\[kel/cxx/setLogCallback\\.cpp:[0-9]+\\] : KEL version is "
                                        "2025\\.10\\.23-78560f91\\(x64\\)"),
                           MatchesRegex("\\[modules/openvino/vino-api2\\.0\\.cpp:[0-9]+\\] : version is .+")));
}

TEST(LibraryImage, OnlySixtyFourBitSharedLibrariesPassAndAForeignArchitectureWarns) {
    t::TempDir dir;
    // A real shared library with one byte changed.
    const auto changed = [&](const char* name, std::size_t offset, unsigned char byte) {
        std::string image = t::readFile(t::pluginLibrary("kel_pm_openvino_static"));
        image[offset] = static_cast<char>(byte);
        t::writeFile(dir / name, image);
        return dir / name;
    };
    // {file, accepted, standard error}
    const std::tuple<std::filesystem::path, bool, std::string> rows[] = {
        {t::outputDir() / "kel-run", false, ""},  // a position-independent executable is ET_DYN too
        {changed("exec.so", offsetof(Elf64_Ehdr, e_type), ET_EXEC), false, ""},
        {changed("elf32.so", EI_CLASS, ELFCLASS32), false, ""},
        {changed("arm.so", offsetof(Elf64_Ehdr, e_machine), EM_AARCH64), true,
         "[KEL Warning]: " + (dir / "arm.so").string() + " architecture is LINUX-ARM64, Linux OS architecture is "
             "LINUX-AMD64. Please notice, two architectures not same."},
    };
    for (const auto& [path, accepted, err] : rows) {
        bool ok = !accepted;
        EXPECT_EQ(t::capturedStderr([&] { ok = kel::utils::checkLibraryImage(path.wstring()); }), err) << path;
        EXPECT_EQ(ok, accepted) << path;
    }
}

// Damaged libraries are the faults suite's. The override stays: each test has a process of its own.
TEST(RuntimeCheck, WithoutTheRuntimeBesideKelNoEngineIsMade) {
    t::TempDir dir;
    kel::vino::overrideLibraryDirectory(dir.path().wstring());
    for (void* handle : {kelCreate(), kelCreateWithLibraryLoader(nullptr, nullptr)}) {
        EXPECT_THAT(t::takeText(handle), HasSubstr("\nopenvino shared library and kel shared library are not in "));
        kelSelfVersion(handle, nullptr, nullptr);
        EXPECT_THAT(t::takeText(handle), HasSubstr("\nthe kel engine was not created; destroy this handle.\n"));
        kelDestory(handle);
    }
}

// The list's name is new for each network (O_EXCL), so only a link planted there is a danger.
TEST(PluginsList, ALinkPlantedAtTheNameIsRemovedItselfEvenOneLeadingNowhere) {
    t::TempDir dir;
    std::filesystem::create_symlink(dir / "nowhere", dir / "planted.xml");
    kel::vino::remove_xml(dir / "planted.xml");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "planted.xml"));
    // A name that cannot even be looked up is left alone; what cannot be removed is refused.
    EXPECT_EQ(t::thrownText([&] { kel::vino::remove_xml(dir / std::string(300, 'x')); }), "");
    std::filesystem::create_directories(dir / "full.xml" / "x");
    EXPECT_THAT(t::thrownText([&] { kel::vino::remove_xml(dir / "full.xml"); }), HasSubstr("\nDirectory not empty\n"));
}

}  // namespace
