// What MSVC's msvcprt.lib links statically besides the STL sources the sysroot compiles: the
// facet registry, the cache head of undecorated type names, and CopyFile2 where the system
// lacks it.
#include <windows.h>

#include <locale>
#include <typeinfo>

// std::use_facet registers the facets it creates lazily; they are reference counted and live
// as long as the module, so the list is only kept.
namespace {
struct FacetNode {
    std::_Facet_base* facet;
    FacetNode* next;
};
FacetNode* facets = nullptr;
}  // namespace
void __cdecl std::_Facet_Register(std::_Facet_base* facet) { facets = new FacetNode{facet, facets}; }

// vcruntime140's __std_type_info_name caches names in an interlocked list whose head lives
// in each module: an SLIST_HEADER.
extern "C" {
struct __type_info_node {
    SLIST_HEADER head;
};
__type_info_node __type_info_root_node;
}

// std::filesystem::copy_file imports CopyFile2 (Windows 8), which Wine 8's kernel32 lacks:
// the import slot goes through the system's own where there is one, else CopyFileExW.
extern "C" {
static HRESULT WINAPI copyFile2(PCWSTR from, PCWSTR to, COPYFILE2_EXTENDED_PARAMETERS* parameters) {
    using CopyFile2Function = HRESULT(WINAPI*)(PCWSTR, PCWSTR, COPYFILE2_EXTENDED_PARAMETERS*);
    static const auto system = reinterpret_cast<CopyFile2Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CopyFile2")));
    if (system) return system(from, to, parameters);
    const DWORD flags = parameters ? (parameters->dwCopyFlags & COPY_FILE_FAIL_IF_EXISTS) : 0;
    if (CopyFileExW(from, to, nullptr, nullptr, parameters ? parameters->pfCancel : nullptr, flags)) return S_OK;
    return HRESULT_FROM_WIN32(GetLastError());
}
extern void* __imp_CopyFile2;
void* __imp_CopyFile2 = reinterpret_cast<void*>(&copyFile2);
}
