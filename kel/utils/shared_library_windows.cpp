// Windows side of plugin loading: LoadLibraryW with the library's own directory as the
// DLL directory, and the current directory kept out of the search order.
#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "kel/utils/text.hpp"

namespace kel::utils {

namespace {

using GetDllDirectoryWFn = DWORD(WINAPI*)(DWORD, LPWSTR);

// Not offered by every Windows release; looked up once.
GetDllDirectoryWFn getDllDirectoryW() {
    static const GetDllDirectoryWFn fn = [] {
        HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
        // Through void (*)(): the generic function pointer type, which converts to any other.
        return kernel ? reinterpret_cast<GetDllDirectoryWFn>(reinterpret_cast<void (*)()>(
                            GetProcAddress(kernel, "GetDllDirectoryW")))
                      : nullptr;
    }();
    return fn;
}

std::wstring dllDirectory(GetDllDirectoryWFn get) {
    const DWORD length = get(0, nullptr);
    std::wstring dir(length, L'\0');
    if (length) dir.resize(get(length, dir.data()));
    return dir;
}

std::string currentDirectory() {
    std::error_code ec;
    const auto cwd = std::filesystem::current_path(ec);
    return ec ? std::string() : wstringToString(cwd.wstring());
}

}  // namespace

std::shared_ptr<void> load_shared_object(const std::wstring& path, const LibraryLoaderSlot& loader) {
    const std::string text = wstringToString(path);
    std::error_code ec;
    if (!std::filesystem::exists(std::filesystem::path(path), ec))
        throw std::runtime_error(text + " not exists.");
    if (!checkLibraryImage(path))
        throw std::runtime_error(text + " file is not a valid DLL. load_shared_object failed.");

    auto load = [&] {
        return loader ? static_cast<HMODULE>(loader(path.c_str())) : LoadLibraryW(path.c_str());
    };
    HMODULE handle = nullptr;
    if (GetDllDirectoryWFn get = getDllDirectoryW()) {
        if (get(0, nullptr) < 2) SetDllDirectoryW(L"");
        const std::wstring saved = dllDirectory(get);
        const auto slash = path.rfind(L'\\');
        const std::wstring dir = slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
        SetDllDirectoryW(dir.c_str());
        handle = load();
        SetDllDirectoryW(saved.c_str());
    }
    if (!handle) handle = load();
    if (!handle) {
        const DWORD error = GetLastError();
        throw std::runtime_error("Cannot load library '" + text + "': " + std::to_string(error) +
                                 " from cwd: " + currentDirectory());
    }
    return std::shared_ptr<void>(handle, [](void* h) { FreeLibrary(static_cast<HMODULE>(h)); });
}

void* getSymbol(const std::shared_ptr<void>& library, const std::string& name) {
    if (!library)
        throw std::runtime_error("shared_library_handle_object is empty. Please check load kel step.");
    FARPROC address = GetProcAddress(static_cast<HMODULE>(library.get()), name.c_str());
    if (!address)
        throw std::runtime_error("GetProcAddress cannot locate method '" + name +
                                 "': " + std::to_string(GetLastError()));
    return reinterpret_cast<void*>(address);
}

}  // namespace kel::utils
