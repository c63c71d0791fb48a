// Vetting the runtime libraries beside kel and the plugins list file.
#include <elf.h>
#include <gmock/gmock.h>

#include <cstddef>

#include "kel/utils/platform.hpp"
#include "modules/openvino/openvino_internal.hpp"
#include "tests/support/models.hpp"

using testing::HasSubstr;

namespace {

namespace t = kel::test;

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

TEST(RuntimeCheck, EachLibraryMustBeARealImageBesideKelOrNoEngineIsMade) {
    const auto expectMissing = [](const std::string& name) {
        for (void* handle : {kelCreate(), kelCreateWithLibraryLoader(nullptr, nullptr)}) {
            EXPECT_THAT(t::takeText(handle),
                        HasSubstr("\n" + name + " shared library and kel shared library are not in the same directory. "
                                  "Please put " + name + " shared library in the same directory with kel shared "
                                  "library.\n"));
            kelSelfVersion(handle, nullptr, nullptr);
            EXPECT_THAT(t::takeText(handle), HasSubstr("\nthe kel engine was not created; destroy this handle.\n"));
            kelDestory(handle);
        }
    };
    // Each test runs in a process of its own: the directory stays pointed at for the rest of it.
    t::TempDir dir;
    kel::vino::overrideLibraryDirectory(dir.path().wstring());
    expectMissing("openvino");
    t::writeFile(dir / "libopenvino.so", "#!/bin/sh\n");
    expectMissing("openvino");
    std::filesystem::remove(dir / "libopenvino.so");
    std::filesystem::create_symlink(t::outputDir() / "libopenvino.so", dir / "libopenvino.so");
    expectMissing("openvino_ir_frontend");
}

// The list's name is new for each network (O_EXCL), so only a link planted there is a danger.
TEST(PluginsList, ALinkPlantedAtTheNameIsRemovedItselfEvenOneLeadingNowhere) {
    t::TempDir dir;
    std::filesystem::create_symlink(dir / "nowhere", dir / "planted.xml");
    kel::vino::remove_xml(dir / "planted.xml");
    EXPECT_FALSE(std::filesystem::is_symlink(dir / "planted.xml"));
}

}  // namespace
