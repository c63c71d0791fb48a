#pragma once
// What differs between Windows and Linux for locating and vetting shared libraries, and for
// reading model files.
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace kel::utils {

// Name parts of a runtime library file: prefix + name + "." + extension.
const std::wstring& libraryPrefix();
const std::wstring& libraryExtension();
// The separator used when joining the library directory and a file name.
const std::wstring& pathSeparator();

// Directory of the file that holds this code (kel's shared library, or the program it is
// linked into), without a trailing separator. Throws std::runtime_error when the module
// cannot be identified.
std::wstring currentModuleDirectory();

// Architecture texts: "WIN-AMD64", ... on Windows; "LINUX-AMD64", "LINUX-ARM64",
// "LINUX-UNKNOWN" on Linux.
std::string getSystemArchitecture();
std::string getLibraryArchitecture(const std::wstring& path);
#ifdef _WIN32
// The text of a SYSTEM_INFO processor architecture (PROCESSOR_ARCHITECTURE_*).
std::string processorArchitectureText(unsigned architecture);
#endif

// True when the file is a shared-library image of this platform (DLL / ELF ET_DYN that is
// not a position-independent executable). A foreign architecture only warns.
bool checkLibraryImage(const std::wstring& path);

// Loads a runtime library that kel links lazily (on Windows kel.dll delay-loads openvino.dll)
// from `path`, and binds every function kel takes from it. False when the library does not
// load or lacks one of them: a damaged runtime is found here, not in the first call into it.
// Nothing is linked lazily on Linux.
bool bindLazilyLinkedLibrary(const std::wstring& path);

// Name of the operating system in the architecture warning.
const char* osName();

// The processor's SSE4.2 feature flag (CPUID leaf 1, ECX bit 20).
bool hostHasSse42();

// The calling thread's system-wide id, as decimal text.
std::string currentThreadIdText();

// Creates the file exclusively (never over an existing file or through a link planted at
// its name) and writes `bytes`. `created` tells whether this call made the file, so that a
// caller can remove what a failed write left. False when the file could not be made or
// written.
bool writeNewFile(const std::filesystem::path& path, std::string_view bytes, bool& created);

// Reads `size` bytes from the start of the file into `into`. A model is read this way at
// every creation, so the Linux side goes straight to the system calls.
enum class FileRead { done, cannot_open, cannot_read };
FileRead readFileStart(const std::filesystem::path& path, void* into, std::size_t size);

// Writes text, then the path, to standard error in the platform's width (wide on Windows,
// UTF-8 elsewhere), without an end of line.
void printPathError(const std::string& text, const std::filesystem::path& path);

}  // namespace kel::utils
