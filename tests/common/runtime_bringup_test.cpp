// Vetting the runtime libraries beside kel, the plugins list file and the processor check.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <openvino/core/version.hpp>
#include <regex>

#include "kel/c/kel.h"
#include "kel/cxx/MLEngine.hpp"
#include "kel/utils/platform.hpp"
#include "modules/openvino/openvino.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "tests/support/support.hpp"

using testing::HasSubstr;

namespace {

std::string elfImage(std::uint16_t type, std::uint16_t machine, unsigned char elfClass = ELFCLASS64) {
    Elf64_Ehdr h{};
    std::memcpy(h.e_ident, ELFMAG, SELFMAG);
    h.e_ident[EI_CLASS] = elfClass;
    h.e_ident[EI_DATA] = ELFDATA2LSB;
    h.e_ident[EI_VERSION] = EV_CURRENT;
    h.e_type = type;
    h.e_machine = machine;
    h.e_version = EV_CURRENT;
    h.e_ehsize = sizeof(Elf64_Ehdr);
    h.e_phentsize = sizeof(Elf64_Phdr);
    return std::string(reinterpret_cast<const char*>(&h), sizeof(h));
}

bool checkImage(const std::filesystem::path& p) { return kel::utils::checkLibraryImage(p.wstring()); }

TEST(LibraryImage, AcceptsSharedLibrariesAndRejectsEverythingElse) {
    kel::test::TempDir dir;
    EXPECT_TRUE(checkImage(kel::test::outputDir() / "libopenvino.so"));  // a link to the real one
    EXPECT_TRUE(checkImage(kel::test::outputDir() / "libkel.so"));

    kel::test::writeFile(dir / "text.so", "this is not a library\n");
    kel::test::writeFile(dir / "truncated.so", elfImage(ET_DYN, EM_X86_64).substr(0, 20));
    kel::test::writeFile(dir / "exec.so", elfImage(ET_EXEC, EM_X86_64));
    kel::test::writeFile(dir / "elf32.so", elfImage(ET_DYN, EM_X86_64, ELFCLASS32));
    kel::test::writeFile(dir / "empty.so", "");
    EXPECT_FALSE(checkImage(dir / "text.so"));
    EXPECT_FALSE(checkImage(dir / "truncated.so"));
    EXPECT_FALSE(checkImage(dir / "exec.so"));
    EXPECT_FALSE(checkImage(dir / "elf32.so"));
    EXPECT_FALSE(checkImage(dir / "empty.so"));
    // A position-independent executable is ET_DYN too, but not a library.
    EXPECT_FALSE(checkImage(kel::test::outputDir() / "kel-run"));
    const std::string err = kel::test::capturedStderr([&] { EXPECT_FALSE(checkImage(dir / "missing.so")); });
    EXPECT_THAT(err, HasSubstr("Failed to open file: "));
}

TEST(LibraryImage, ForeignArchitecturePassesWithAWarningNamingBoth) {
    kel::test::TempDir dir;
    kel::test::writeFile(dir / "arm.so", elfImage(ET_DYN, EM_AARCH64));
    EXPECT_EQ(kel::utils::getLibraryArchitecture((dir / "arm.so").wstring()), "LINUX-ARM64");
    EXPECT_EQ(kel::utils::getSystemArchitecture(), "LINUX-AMD64");
    bool ok = false;
    const std::string err = kel::test::capturedStderr([&] { ok = checkImage(dir / "arm.so"); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(err, "[KEL Warning]: " + (dir / "arm.so").string() +
                       " architecture is LINUX-ARM64, Linux OS architecture is LINUX-AMD64. "
                       "Please notice, two architectures not same.");
    kel::test::writeFile(dir / "odd.so", elfImage(ET_DYN, EM_RISCV));
    EXPECT_EQ(kel::utils::getLibraryArchitecture((dir / "odd.so").wstring()), "LINUX-UNKNOWN");
}

// Points the runtime check at a directory of the test's own for the life of the object.
struct RuntimeDirectory {
    explicit RuntimeDirectory(const std::filesystem::path& p) { kel::vino::overrideLibraryDirectory(p.wstring()); }
    ~RuntimeDirectory() { kel::vino::overrideLibraryDirectory(std::nullopt); }
};

const std::string kMissingOpenvino =
    "openvino shared library and kel shared library are not in the same directory. Please put openvino "
    "shared library in the same directory with kel shared library.";

TEST(RuntimeCheck, LooksBesideKelAndFailsConstructionCleanly) {
    EXPECT_EQ(kel::vino::getLibraryDirectory(), kel::test::outputDir().wstring());
    kel::test::TempDir dir;
    RuntimeDirectory guard(dir.path());

    // Missing entirely.
    std::string text = kel::test::thrownText([] { kel::MLEngine engine; });
    EXPECT_THAT(text, HasSubstr("modules/openvino/vino_bringup.cpp:"));
    EXPECT_THAT(text, HasSubstr("\n" + kMissingOpenvino + "\n"));

    // Present but not a shared-library image: the same message.
    kel::test::writeFile(dir / "libopenvino.so", "#!/bin/sh\n");
    EXPECT_THAT(kel::test::thrownText([] { kel::MLEngine engine; }), HasSubstr(kMissingOpenvino));
    std::filesystem::remove(dir / "libopenvino.so");
    std::filesystem::copy_file(kel::test::outputDir() / "kel-run", dir / "libopenvino.so");
    EXPECT_THAT(kel::test::thrownText([] { kel::MLEngine engine; }), HasSubstr(kMissingOpenvino));

    // The runtime present, its IR reader missing.
    std::filesystem::remove(dir / "libopenvino.so");
    std::filesystem::create_symlink(kel::test::outputDir() / "libopenvino.so", dir / "libopenvino.so");
    EXPECT_THAT(kel::test::thrownText([] { kel::MLEngine engine; }),
                HasSubstr("openvino_ir_frontend shared library and kel shared library are not in the same "
                          "directory. Please put openvino_ir_frontend shared library in the same directory "
                          "with kel shared library."));

    // Without throwing, the check only reports.
    std::string err = kel::test::capturedStderr([] {
        EXPECT_FALSE(kel::vino::checkDynamicLibrary(L"openvino_ir_frontend", false));
    });
    EXPECT_THAT(err, HasSubstr("openvino_ir_frontend shared library and kel"));
    EXPECT_TRUE(kel::vino::checkDynamicLibrary(L"openvino", false));
}

TEST(RuntimeCheck, FailedCreationThroughTheFlatInterfaceKeepsTheText) {
    kel::test::TempDir dir;
    RuntimeDirectory guard(dir.path());
    void* handle = kelCreate();
    ASSERT_NE(handle, nullptr);
    ASSERT_TRUE(kelHasException(handle));
    std::uint64_t length = 0;
    ASSERT_EQ(kelGetExceptionStringLength(handle, &length), 0);
    std::string text(length, '\0');
    ASSERT_EQ(kelGetExceptionString(handle, text.data()), 0);
    EXPECT_THAT(text, HasSubstr(kMissingOpenvino));
    // Framed calls on the engine-less handle stay harmless after a reset.
    ASSERT_EQ(kelResetExceptionString(handle), 0);
    std::uint64_t n = 0;
    kelSelfVersion(handle, &n, nullptr);
    EXPECT_TRUE(kelHasException(handle));
    ASSERT_EQ(kelResetExceptionString(handle), 0);
    kelDestory(handle);

    void* second = kelCreateWithLibraryLoader(nullptr, nullptr);
    EXPECT_TRUE(kelHasException(second));
    ASSERT_EQ(kelResetExceptionString(second), 0);
    kelDestory(second);
}

TEST(PluginsList, IsExactlyTheEmptyListAndIsRemoved) {
    const std::string path = kel::vino::generateTempOVPluginsXML();
    const std::filesystem::path file(path);
    EXPECT_EQ(file.parent_path(), std::filesystem::temp_directory_path());
    EXPECT_TRUE(std::regex_match(file.filename().string(), std::regex("[0-9]+-[0-9]+\\.xml")));
    EXPECT_EQ(std::filesystem::file_size(file), 28u);
    EXPECT_EQ(kel::test::readFile(file), "<ie><plugins></plugins></ie>");
    kel::vino::remove_xml(file);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_NO_THROW(kel::vino::remove_xml(file));  // absent is fine

    // A link planted at the name is removed, never written through.
    kel::test::TempDir dir;
    kel::test::writeFile(dir / "target", "keep");
    std::filesystem::create_symlink(dir / "target", dir / "planted.xml");
    kel::vino::remove_xml(dir / "planted.xml");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "planted.xml"));
    EXPECT_EQ(kel::test::readFile(dir / "target"), "keep");
}

TEST(RuntimeVersion, IsTheRuntimeBuildNumber) {
    kel::openvino backend;
    EXPECT_EQ(backend.version(), ov::get_openvino_version().buildNumber);
}

}  // namespace
