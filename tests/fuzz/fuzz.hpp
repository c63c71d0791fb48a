#pragma once
// Shared by the fuzz targets: a scratch file per process, and a check that stops the run.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kel::fuzz {

// A broken invariant is a finding: abort, so libFuzzer keeps the input.
#define KEL_FUZZ_CHECK(cond)                                                        \
    do {                                                                            \
        if (!(cond)) {                                                              \
            std::fprintf(stderr, "fuzz invariant failed: %s (%s:%d)\n", #cond,      \
                         __FILE__, __LINE__);                                       \
            std::abort();                                                           \
        }                                                                           \
    } while (0)

// One file per process under the temporary directory, rewritten for every input.
inline const std::filesystem::path& scratchFile(const char* suffix) {
    static const std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        ("kel-fuzz-" + std::to_string(::getpid()) + suffix);
    return path;
}

inline void writeScratch(const std::filesystem::path& path, const std::uint8_t* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace kel::fuzz
