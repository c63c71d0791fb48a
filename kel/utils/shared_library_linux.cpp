// Linux side of plugin loading: dlopen on an absolute path, so that neither the current
// directory nor the library search path is ever consulted.
#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "kel/utils/text.hpp"

namespace kel::utils {

namespace {

std::string currentDirectory() {
    std::error_code ec;
    const auto cwd = std::filesystem::current_path(ec);
    return ec ? std::string() : cwd.string();
}

}  // namespace

std::shared_ptr<void> load_shared_object(const std::wstring& path, const LibraryLoaderSlot& loader) {
    const std::string text = wstringToString(path);
    const std::filesystem::path file(path);
    std::error_code ec;
    if (!std::filesystem::exists(file, ec)) throw std::runtime_error(text + " not exists.");
    if (!checkLibraryImage(path))
        throw std::runtime_error(text + " file is not a valid DLL. load_shared_object failed.");

    void* handle = nullptr;
    std::string reason;
    if (!file.has_parent_path()) {
        // Windows takes the current directory out of the search order; a bare name found
        // there is refused here likewise.
        reason = text + ": a name without a directory is not searched for";
    } else {
        const std::filesystem::path absolute = std::filesystem::absolute(file).lexically_normal();
        dlerror();
        handle = loader ? loader(absolute.wstring().c_str())
                        : dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            const char* error = dlerror();
            reason = error ? error : "0";
        }
    }
    if (!handle)
        throw std::runtime_error("Cannot load library '" + text + "': " + reason +
                                 " from cwd: " + currentDirectory());
    return std::shared_ptr<void>(handle, [](void* h) { dlclose(h); });
}

void* getSymbol(const std::shared_ptr<void>& library, const std::string& name) {
    if (!library)
        throw std::runtime_error("shared_library_handle_object is empty. Please check load kel step.");
    dlerror();
    void* address = dlsym(library.get(), name.c_str());
    if (!address) {
        const char* error = dlerror();
        throw std::runtime_error("GetProcAddress cannot locate method '" + name +
                                 "': " + (error ? error : "0"));
    }
    return address;
}

}  // namespace kel::utils
