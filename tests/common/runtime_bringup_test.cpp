// Vetting the runtime libraries beside kel and the plugins list file.
#include <elf.h>
#include <gmock/gmock.h>

#include <cstring>

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
        {dir / "exec.so", elfImage(ET_EXEC, EM_X86_64), false, ""},
        {dir / "elf32.so", elfImage(ET_DYN, EM_X86_64, ELFCLASS32), false, ""},
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

TEST(RuntimeCheck, EachLibraryMustBeARealImageBesideKelOrNoEngineIsMade) {
    const auto missing = [](const std::string& name) {
        return "\n" + name + " shared library and kel shared library are not in the same directory. Please put " +
               name + " shared library in the same directory with kel shared library.\n";
    };
    // {what is put at libopenvino.so, the library creation then misses}
    const std::pair<std::function<void(const std::filesystem::path&)>, std::string> rows[] = {
        {[](const auto&) {}, "openvino"},
        {[](const auto& p) { t::writeFile(p, "#!/bin/sh\n"); }, "openvino"},
        {[](const auto& p) { std::filesystem::create_symlink(t::outputDir() / "libopenvino.so", p); },
         "openvino_ir_frontend"},
    };
    for (const auto& [make, name] : rows) {
        t::TempDir dir;
        RuntimeDirectory guard(dir.path());
        make(dir / "libopenvino.so");
        EXPECT_THAT(t::thrownText([] { kel::MLEngine engine; }), HasSubstr(missing(name)));
        for (void* handle : {kelCreate(), kelCreateWithLibraryLoader(nullptr, nullptr)}) {
            EXPECT_THAT(t::takeText(handle), HasSubstr(missing(name)));
            kelSelfVersion(handle, nullptr, nullptr);
            EXPECT_THAT(t::takeText(handle), HasSubstr("\nthe kel engine was not created; destroy this handle.\n"));
            kelDestory(handle);
        }
    }
}

// The list's name is new for each network (O_EXCL), so only a link planted there is a danger.
TEST(PluginsList, ALinkPlantedAtTheNameIsRemovedItselfEvenOneLeadingNowhere) {
    t::TempDir dir;
    std::filesystem::create_symlink(dir / "nowhere", dir / "planted.xml");
    kel::vino::remove_xml(dir / "planted.xml");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "planted.xml"));
}

}  // namespace
