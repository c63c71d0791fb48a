// Vetting the runtime libraries beside kel and the plugins list file.
#include <elf.h>
#include <gmock/gmock.h>

#include <cstring>
#include <regex>

#include "kel/cxx/MLEngine.hpp"
#include "kel/utils/platform.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "tests/support/support.hpp"

using testing::HasSubstr;

namespace {

namespace t = kel::test;

std::string elfImage(std::uint16_t type, std::uint16_t machine, unsigned char elfClass = ELFCLASS64) {
    Elf64_Ehdr h{};
    std::memcpy(h.e_ident, ELFMAG, SELFMAG);
    h.e_ident[EI_CLASS] = elfClass;
    h.e_ident[EI_DATA] = ELFDATA2LSB;
    h.e_type = type;
    h.e_machine = machine;
    return std::string(reinterpret_cast<const char*>(&h), sizeof(h));
}

TEST(LibraryImage, OnlySixtyFourBitSharedLibrariesPassAndAForeignArchitectureWarns) {
    t::TempDir dir;
    // {file, its bytes (none: not written), accepted, standard error}
    const std::tuple<std::filesystem::path, std::optional<std::string>, bool, std::string> rows[] = {
        {t::outputDir() / "kel-run", std::nullopt, false, ""},  // a position-independent executable is ET_DYN too
        {dir / "text.so", "this is not a library\n", false, ""},
        {dir / "truncated.so", elfImage(ET_DYN, EM_X86_64).substr(0, 20), false, ""},
        {dir / "exec.so", elfImage(ET_EXEC, EM_X86_64), false, ""},
        {dir / "elf32.so", elfImage(ET_DYN, EM_X86_64, ELFCLASS32), false, ""},
        {dir / "missing.so", std::nullopt, false, "Failed to open file: " + (dir / "missing.so").string() + "\n"},
        {dir / "arm.so", elfImage(ET_DYN, EM_AARCH64), true,
         "[KEL Warning]: " + (dir / "arm.so").string() + " architecture is LINUX-ARM64, Linux OS architecture is "
             "LINUX-AMD64. Please notice, two architectures not same."},
    };
    for (const auto& [path, bytes, accepted, err] : rows) {
        if (bytes) t::writeFile(path, *bytes);
        bool ok = !accepted;
        EXPECT_EQ(t::capturedStderr([&] { ok = kel::utils::checkLibraryImage(path.wstring()); }), err) << path;
        EXPECT_EQ(ok, accepted) << path;
    }
}

// Points the runtime check at a directory of the test's own for the life of the object.
struct RuntimeDirectory {
    explicit RuntimeDirectory(const std::filesystem::path& p) { kel::vino::overrideLibraryDirectory(p.wstring()); }
    ~RuntimeDirectory() { kel::vino::overrideLibraryDirectory(std::nullopt); }
};

TEST(RuntimeCheck, EachLibraryMustBeARealImageBesideKelOrCreationFailsWithItsLine) {
    const std::string missing =
        "openvino shared library and kel shared library are not in the same directory. Please put openvino "
        "shared library in the same directory with kel shared library.";
    using Make = std::function<void(const std::filesystem::path&)>;
    // {what is put at libopenvino.so, the line creation then fails with}
    const std::pair<Make, std::string> rows[] = {
        {[](const auto&) {}, missing},
        {[](const auto& p) { t::writeFile(p, "#!/bin/sh\n"); }, missing},
        {[](const auto& p) { std::filesystem::create_symlink(t::outputDir() / "libopenvino.so", p); },
         "openvino_ir_frontend shared library and kel shared library are not in the same directory. Please put "
         "openvino_ir_frontend shared library in the same directory with kel shared library."},
    };
    for (const auto& [make, line] : rows) {
        t::TempDir dir;
        RuntimeDirectory guard(dir.path());
        make(dir / "libopenvino.so");
        const std::string text = t::thrownText([] { kel::MLEngine engine; });
        EXPECT_THAT(text, HasSubstr("modules/openvino/vino_bringup.cpp:"));
        EXPECT_THAT(text, HasSubstr("\n" + line + "\n"));
        for (void* handle : {kelCreate(), kelCreateWithLibraryLoader(nullptr, nullptr)}) {
            EXPECT_THAT(t::takeText(handle), HasSubstr("\n" + line + "\n"));
            // A framed call on the engine-less handle fails harmlessly.
            std::uint64_t n = 0;
            kelSelfVersion(handle, &n, nullptr);
            EXPECT_TRUE(kelHasException(handle));
            kelResetExceptionString(handle);  // a pending text keeps the handle alive
            kelDestory(handle);
        }
        // Without throwing, the check only reports.
        const auto report = [] { EXPECT_FALSE(kel::vino::checkDynamicLibrary(L"openvino_ir_frontend", false)); };
        EXPECT_THAT(t::capturedStderr(report), HasSubstr("openvino_ir_frontend shared library and kel"));
    }
}

TEST(PluginsList, IsExactlyTheEmptyListAndIsRemoved) {
    const std::filesystem::path file(kel::vino::generateTempOVPluginsXML());
    EXPECT_EQ(file.parent_path(), std::filesystem::temp_directory_path());
    // The thread's id and the time make the name: no two threads share one.
    EXPECT_TRUE(std::regex_match(file.filename().string(), std::regex("[0-9]+-[0-9]+\\.xml")));
    EXPECT_EQ(t::readFile(file), "<ie><plugins></plugins></ie>");
    kel::vino::remove_xml(file);
    EXPECT_FALSE(std::filesystem::exists(file));

    // A link planted at the name is removed, never followed.
    t::TempDir dir;
    t::writeFile(dir / "target", "keep");
    std::filesystem::create_symlink(dir / "target", dir / "planted.xml");
    kel::vino::remove_xml(dir / "planted.xml");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "planted.xml"));
    EXPECT_EQ(t::readFile(dir / "target"), "keep");
}

}  // namespace
