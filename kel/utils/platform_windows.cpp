// Windows side of the platform seam: PE images, module names, CPUID, CREATE_NEW files.
#include <windows.h>
#include <intrin.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"

// The delay-load helper's (delayimp.lib; MinGW-w64 has it in libmingwex).
extern "C" HRESULT WINAPI __HrLoadAllImportsForDll(LPCSTR dll);

namespace kel::utils {

const std::wstring& libraryPrefix() {
    static const std::wstring v;
    return v;
}
const std::wstring& libraryExtension() {
    static const std::wstring v = L"dll";
    return v;
}
const std::wstring& pathSeparator() {
    static const std::wstring v = L"\\";
    return v;
}
const char* osName() { return "Windows"; }

bool bindLazilyLinkedLibrary(const std::wstring& path) {
    // Loaded by its full path first, so that it is the one beside kel (and its own libraries
    // those beside it); the delay-load helper then finds it among the loaded modules by name.
    HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) return false;
    const std::string name = wstringToString(std::filesystem::path(path).filename().wstring());
    const bool bound = SUCCEEDED(__HrLoadAllImportsForDll(name.c_str()));
    FreeLibrary(module);  // the helper keeps a reference of its own
    return bound;
}

std::wstring currentModuleDirectory() {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&currentModuleDirectory), &module))
        throw std::runtime_error("GetModuleHandle returned " + std::to_string(GetLastError()));
    wchar_t name[MAX_PATH] = {};
    GetModuleFileNameW(module, name, MAX_PATH);
    std::wstring full = name;
    auto pos = full.rfind(L'\\');
    return pos == std::wstring::npos ? std::wstring() : full.substr(0, pos);
}

std::string processorArchitectureText(unsigned architecture) {
    switch (architecture) {
        case 5: return "WIN-ARM";
        case 6: return "WIN-IA64";
        case 9: return "WIN-AMD64";
        case 12: return "WIN-ARM64";
        default: return "WIN-UNKNOWN";
    }
}

std::string getSystemArchitecture() {
    SYSTEM_INFO info{};
    GetNativeSystemInfo(&info);
    return processorArchitectureText(info.wProcessorArchitecture);
}

std::string getLibraryArchitecture(const std::wstring& path) {
    // Each failure only reports and carries on; callers have validated the headers before.
    // A handle closed on the way is forgotten at once: closed again, its number may by then
    // be another thread's handle.
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const auto closeFile = [&file] {
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
        file = INVALID_HANDLE_VALUE;
    };
    if (file == INVALID_HANDLE_VALUE) std::cerr << "Failed to open DLL file." << std::endl;
    DWORD size = GetFileSize(file, nullptr);
    if (size == INVALID_FILE_SIZE) {
        closeFile();
        std::cerr << "Failed to get DLL file size." << std::endl;
    }
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (!mapping) {
        closeFile();
        std::cerr << "Failed to create file mapping." << std::endl;
    }
    auto* view = static_cast<const unsigned char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    if (!view) {
        if (mapping) CloseHandle(mapping);
        closeFile();
        std::cerr << "Failed to map view of file." << std::endl;
        return "WIN-UNKNOWN";
    }
    const DWORD pe = *reinterpret_cast<const DWORD*>(view + 60);
    std::string text = "WIN-UNKNOWN";
    if (std::memcmp(view + pe, "PE\0\0", 4) != 0) {
        std::cerr << "Not a valid PE image." << std::endl;
    } else {
        switch (*reinterpret_cast<const WORD*>(view + pe + 4)) {
            case 0x01C0: text = "WIN-ARM"; break;
            case 0x0200: text = "WIN-IA64"; break;
            case 0x8664: text = "WIN-AMD64"; break;
            case 0xAA64: text = "WIN-ARM64"; break;
            default: break;
        }
    }
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    closeFile();
    return text;
}

FileRead readFileStart(const std::filesystem::path& path, void* into, std::size_t size) {
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) return FileRead::cannot_open;
    if (!file.read(static_cast<char*>(into), static_cast<std::streamsize>(size)))
        return FileRead::cannot_read;
    return FileRead::done;
}

bool checkLibraryImage(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    if (!in) {
        std::wcerr << L"Failed to open file: " << path << std::endl;
        return false;
    }
    unsigned char dos[64] = {};
    if (!in.read(reinterpret_cast<char*>(dos), 64)) return false;
    if (dos[0] != 'M' || dos[1] != 'Z') return false;
    const auto offset = *reinterpret_cast<const std::uint32_t*>(dos + 60);
    in.seekg(offset);
    char sig[4] = {};
    if (!in.read(sig, 4) || std::memcmp(sig, "PE\0\0", 4) != 0) return false;
    unsigned char coff[20] = {};
    if (!in.read(reinterpret_cast<char*>(coff), 20)) return false;
    const auto characteristics = *reinterpret_cast<const std::uint16_t*>(coff + 18);
    if ((characteristics & 0x2000) == 0) return false;
    const std::string system = getSystemArchitecture();
    const std::string library = getLibraryArchitecture(path);
    if (system != library) {
        std::wcerr << L"[KEL Warning]: " << path << L" architecture is ";
        std::cerr << library << ", Windows OS architecture is " << system << ". "
                  << "Please notice, two architectures not same.";
    }
    return true;
}

bool hostHasSse42() {
    int regs[4] = {};
    __cpuid(regs, 1);
    return (regs[2] & (1 << 20)) != 0;
}

std::string currentThreadIdText() { return std::to_string(GetCurrentThreadId()); }

bool writeNewFile(const std::filesystem::path& path, std::string_view bytes, bool& created) {
    created = false;
    // CREATE_NEW fails on any existing name, a planted link included: nothing is written
    // through one.
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    created = true;
    DWORD written = 0;
    const BOOL ok = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    return ok && written == bytes.size();
}

void printPathError(const std::string& text, const std::filesystem::path& path) {
    std::wcerr << stringToWstring(text) << path.wstring();
}

}  // namespace kel::utils
