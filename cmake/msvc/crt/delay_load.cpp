// The delay-load helper MSVC's delayimp.lib provides: lld-link's thunk for each delay-loaded
// import calls __delayLoadHelper2 on first use, which loads the DLL once, resolves the import
// and patches the import address table. __HrLoadAllImportsForDll binds every import of one DLL
// up front, so that a module can find out, at a moment of its choosing, whether a DLL it
// delay-loads is usable, instead of failing inside the first call.
#include <windows.h>

#include <cstring>

#pragma comment(lib, "kernel32")

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// The exception MSVC's helper raises when a DLL or an import cannot be had.
constexpr DWORD kFacilityVisualCpp = 0x6d;
constexpr DWORD vcppException(DWORD code) { return 0xC0000000u | (kFacilityVisualCpp << 16) | code; }

template <class T>
T* at(DWORD rva) {
    return reinterpret_cast<T*>(reinterpret_cast<char*>(&__ImageBase) + rva);
}

const IMAGE_DELAYLOAD_DESCRIPTOR* descriptors() {
    const auto* nt = at<IMAGE_NT_HEADERS64>(__ImageBase.e_lfanew);
    const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT];
    return dir.Size ? at<IMAGE_DELAYLOAD_DESCRIPTOR>(dir.VirtualAddress) : nullptr;
}

// The descriptor's module, loaded on first need. Two threads may race to load it: the loser
// drops its reference.
HMODULE moduleOf(const IMAGE_DELAYLOAD_DESCRIPTOR* d) {
    auto* slot = at<HMODULE>(d->ModuleHandleRVA);
    if (HMODULE loaded = static_cast<HMODULE>(InterlockedCompareExchangePointer(
            reinterpret_cast<void* volatile*>(slot), nullptr, nullptr)))
        return loaded;
    HMODULE module = LoadLibraryExA(at<char>(d->DllNameRVA), nullptr, 0);
    if (!module) return nullptr;
    if (void* earlier = InterlockedCompareExchangePointer(reinterpret_cast<void* volatile*>(slot), module, nullptr)) {
        FreeLibrary(module);
        return static_cast<HMODULE>(earlier);
    }
    return module;
}

FARPROC resolve(HMODULE module, const IMAGE_THUNK_DATA64* name) {
    if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal))
        return GetProcAddress(module, MAKEINTRESOURCEA(IMAGE_ORDINAL64(name->u1.Ordinal)));
    return GetProcAddress(module, at<IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(name->u1.AddressOfData))->Name);
}

}  // namespace

extern "C" FARPROC WINAPI __delayLoadHelper2(const IMAGE_DELAYLOAD_DESCRIPTOR* d, FARPROC* entry) {
    const auto* iat = at<FARPROC>(d->ImportAddressTableRVA);
    const auto* name = at<IMAGE_THUNK_DATA64>(d->ImportNameTableRVA) + (entry - iat);
    HMODULE module = moduleOf(d);
    FARPROC function = module ? resolve(module, name) : nullptr;
    if (!function) {
        const DWORD code = module ? ERROR_PROC_NOT_FOUND : ERROR_MOD_NOT_FOUND;
        RaiseException(vcppException(code), 0, 0, nullptr);
        return nullptr;
    }
    *entry = function;
    return function;
}

extern "C" HRESULT WINAPI __HrLoadAllImportsForDll(LPCSTR dll) {
    for (const auto* d = descriptors(); d && d->DllNameRVA; ++d) {
        if (_stricmp(at<char>(d->DllNameRVA), dll) != 0) continue;
        HMODULE module = moduleOf(d);
        if (!module) return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
        auto* entry = at<FARPROC>(d->ImportAddressTableRVA);
        for (const auto* name = at<IMAGE_THUNK_DATA64>(d->ImportNameTableRVA); name->u1.AddressOfData; ++name, ++entry) {
            FARPROC function = resolve(module, name);
            if (!function) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
            *entry = function;
        }
        return S_OK;
    }
    return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
}
