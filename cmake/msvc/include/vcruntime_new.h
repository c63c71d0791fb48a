/* std::nothrow_t / std::align_val_t and the replaceable
   operator new/delete declarations (MSVC signatures and mangling), plus placement new. */
#pragma once
#ifndef _VCRUNTIME_NEW_H
#define _VCRUNTIME_NEW_H
#include <vcruntime.h>
extern "C++" {
#pragma pack(push, 8)
namespace std {
struct nothrow_t { explicit nothrow_t() = default; };
extern nothrow_t const nothrow;   /* defined in crt/dll_startup.cpp, as in MSVC's static CRT */
#ifdef __cpp_aligned_new
enum class align_val_t : size_t {};
#endif
}
#ifndef __NOTHROW_T_DEFINED
#define __NOTHROW_T_DEFINED
#endif
[[nodiscard]] void* __cdecl operator new(size_t _Size);
[[nodiscard]] void* __cdecl operator new(size_t _Size, std::nothrow_t const&) noexcept;
[[nodiscard]] void* __cdecl operator new[](size_t _Size);
[[nodiscard]] void* __cdecl operator new[](size_t _Size, std::nothrow_t const&) noexcept;
void __cdecl operator delete(void* _Block) noexcept;
void __cdecl operator delete(void* _Block, std::nothrow_t const&) noexcept;
void __cdecl operator delete[](void* _Block) noexcept;
void __cdecl operator delete[](void* _Block, std::nothrow_t const&) noexcept;
void __cdecl operator delete(void* _Block, size_t _Size) noexcept;
void __cdecl operator delete[](void* _Block, size_t _Size) noexcept;
#ifdef __cpp_aligned_new
[[nodiscard]] void* __cdecl operator new(size_t _Size, std::align_val_t _Al);
[[nodiscard]] void* __cdecl operator new(size_t _Size, std::align_val_t _Al, std::nothrow_t const&) noexcept;
[[nodiscard]] void* __cdecl operator new[](size_t _Size, std::align_val_t _Al);
[[nodiscard]] void* __cdecl operator new[](size_t _Size, std::align_val_t _Al, std::nothrow_t const&) noexcept;
void __cdecl operator delete(void* _Block, std::align_val_t _Al) noexcept;
void __cdecl operator delete(void* _Block, std::align_val_t _Al, std::nothrow_t const&) noexcept;
void __cdecl operator delete[](void* _Block, std::align_val_t _Al) noexcept;
void __cdecl operator delete[](void* _Block, std::align_val_t _Al, std::nothrow_t const&) noexcept;
void __cdecl operator delete(void* _Block, size_t _Size, std::align_val_t _Al) noexcept;
void __cdecl operator delete[](void* _Block, size_t _Size, std::align_val_t _Al) noexcept;
#endif
#ifndef __PLACEMENT_NEW_INLINE
#define __PLACEMENT_NEW_INLINE
[[nodiscard]] inline void* __cdecl operator new(size_t, void* _Where) noexcept { return _Where; }
inline void __cdecl operator delete(void*, void*) noexcept {}
#endif
#ifndef __PLACEMENT_VEC_NEW_INLINE
#define __PLACEMENT_VEC_NEW_INLINE
[[nodiscard]] inline void* __cdecl operator new[](size_t, void* _Where) noexcept { return _Where; }
inline void __cdecl operator delete[](void*, void*) noexcept {}
#endif
#pragma pack(pop)
}
#endif
