#pragma once
#include <filesystem>
#include <string>

namespace kel::utils {

// Wide text (UTF-16 on Windows, UTF-32 elsewhere) to UTF-8. Fails with
// std::runtime_error "Failed to convert wstring to string (...)." on invalid input.
std::string wstringToString(const std::wstring& text);

// UTF-8 to wide text; invalid sequences fail with std::runtime_error.
std::wstring stringToWstring(const std::string& text);

// UTF-16 to UTF-8. Unpaired surrogates become U+FFFD, as the platform's converter does.
std::string utf16ToString(const std::u16string& text);
// UTF-8 to UTF-16; invalid sequences fail with std::runtime_error.
std::u16string stringToUtf16(const std::string& text);

// A path as UTF-8 text.
std::string pathToString(const std::filesystem::path& path);

}  // namespace kel::utils
