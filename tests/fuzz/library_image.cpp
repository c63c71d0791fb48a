// The image check reads whatever file a host names before anything is loaded from it.
#include <cstring>
#include <elf.h>

#include "kel/utils/platform.hpp"
#include "tests/fuzz/fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto& path = kel::fuzz::scratchFile(".img");
    kel::fuzz::writeScratch(path, data, size);
    const bool accepted = kel::utils::checkLibraryImage(path.wstring());
    kel::utils::getLibraryArchitecture(path.wstring());
    if (accepted) {
        // Only 64-bit little-endian ELF shared objects pass.
        Elf64_Ehdr eh{};
        KEL_FUZZ_CHECK(size >= sizeof(eh));
        std::memcpy(&eh, data, sizeof(eh));
        KEL_FUZZ_CHECK(std::memcmp(eh.e_ident, ELFMAG, SELFMAG) == 0);
        KEL_FUZZ_CHECK(eh.e_ident[EI_CLASS] == ELFCLASS64 && eh.e_type == ET_DYN);
    }
    return 0;
}
