#pragma once
// Loading plugin libraries by path, shared by everything that holds on to them.
#include <functional>
#include <memory>
#include <string>

namespace kel::utils {

// A host-supplied loader: wide path in, native library handle out (null on failure).
using LibraryLoaderSlot = std::function<void*(const wchar_t*)>;

// Loads the library at path (through loader when it is set) after checking that the file
// exists and is a library image. The last owner of the result frees the library. Failures
// are std::runtime_error.
std::shared_ptr<void> load_shared_object(const std::wstring& path,
                                         const LibraryLoaderSlot& loader = nullptr);

// Address of the export called name; std::runtime_error when the handle is empty or the
// library has no such export.
void* getSymbol(const std::shared_ptr<void>& library, const std::string& name);

}  // namespace kel::utils
