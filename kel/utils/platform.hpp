#pragma once
// What differs between Windows and Linux for locating and vetting shared libraries.
#include <filesystem>
#include <string>

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

// True when the file is a shared-library image of this platform (DLL / ELF ET_DYN that is
// not a position-independent executable). A foreign architecture only warns.
bool checkLibraryImage(const std::wstring& path);

// Name of the operating system in the architecture warning.
const char* osName();

}  // namespace kel::utils
