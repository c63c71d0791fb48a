#include "kel/utils/text.hpp"

#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#endif

namespace kel::utils {

#ifdef _WIN32

std::string wstringToString(const std::wstring& text) {
    int needed = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (needed == 0) throw std::runtime_error("Failed to convert wstring to string (length calculation).");
    std::string out(static_cast<size_t>(needed), '\0');
    if (WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, out.data(), needed, nullptr, nullptr) == 0)
        throw std::runtime_error("Failed to convert wstring to string (conversion).");
    out.resize(static_cast<size_t>(needed) - 1);
    return out;
}

std::wstring stringToWstring(const std::string& text) {
    int needed = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, nullptr, 0);
    if (needed == 0) throw std::runtime_error("Failed to convert string to wstring (length calculation).");
    std::wstring out(static_cast<size_t>(needed), L'\0');
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, out.data(), needed) == 0)
        throw std::runtime_error("Failed to convert string to wstring (conversion).");
    out.resize(static_cast<size_t>(needed) - 1);
    return out;
}

// UTF-8 like all text in kel, not the ANSI code page that path::string() may use.
std::string pathToString(const std::filesystem::path& path) { return wstringToString(path.wstring()); }

std::string utf16ToString(const std::u16string& text) {
    if (text.empty()) return {};
    return wstringToString(std::wstring(text.begin(), text.end()));
}

std::u16string stringToUtf16(const std::string& text) {
    if (text.empty()) return {};
    const std::wstring wide = stringToWstring(text);
    return std::u16string(wide.begin(), wide.end());
}

#else

namespace {
bool validCodePoint(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }
}  // namespace

std::string wstringToString(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t wc : text) {
        auto c = static_cast<char32_t>(wc);
        if (!validCodePoint(c))
            throw std::runtime_error("Failed to convert wstring to string (length calculation).");
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::wstring stringToWstring(const std::string& text) {
    std::wstring out;
    out.reserve(text.size());
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        unsigned char b = s[i];
        size_t len = b < 0x80 ? 1 : (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xE ? 3 : (b >> 3) == 0x1E ? 4 : 0;
        if (len == 0 || i + len > n)
            throw std::runtime_error("Failed to convert string to wstring (conversion).");
        char32_t c = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
        for (size_t k = 1; k < len; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                throw std::runtime_error("Failed to convert string to wstring (conversion).");
            c = (c << 6) | (s[i + k] & 0x3F);
        }
        static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
        if (c < kMin[len] || !validCodePoint(c))
            throw std::runtime_error("Failed to convert string to wstring (conversion).");
        out += static_cast<wchar_t>(c);
        i += len;
    }
    return out;
}

std::string pathToString(const std::filesystem::path& path) { return path.string(); }

std::string utf16ToString(const std::u16string& text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        wide += static_cast<wchar_t>(c);
    }
    return wstringToString(wide);
}

std::u16string stringToUtf16(const std::string& text) {
    std::u16string out;
    out.reserve(text.size());
    for (wchar_t wc : stringToWstring(text)) {
        auto c = static_cast<char32_t>(wc);
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

#endif

}  // namespace kel::utils
