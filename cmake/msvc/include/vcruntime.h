/* the macros/types microsoft/STL expects from MSVC's vcruntime.h,
   layered on Wine's corecrt.h. No declarations of CRT functions live here. */
#pragma once
#ifndef _VCRUNTIME_H
#define _VCRUNTIME_H
#include <corecrt.h>
#include <vadefs.h>
#include <sal.h>

#ifndef _VCRTIMP
#define _VCRTIMP __declspec(dllimport)
#endif
#ifndef __CLR_OR_THIS_CALL
#define __CLR_OR_THIS_CALL
#endif
#ifndef __CLRCALL_PURE_OR_CDECL
#define __CLRCALL_PURE_OR_CDECL __cdecl
#endif
#ifndef __CLRCALL_OR_CDECL
#define __CLRCALL_OR_CDECL __cdecl
#endif
#ifndef _CRTIMP2
#define _CRTIMP2 __declspec(dllimport)
#endif
#ifndef _CRTDATA2
#define _CRTDATA2 __declspec(dllimport)
#endif
#ifndef _CRT_BEGIN_C_HEADER
#ifdef __cplusplus
#define _CRT_BEGIN_C_HEADER __pragma(pack(push, 8)) extern "C" {
#define _CRT_END_C_HEADER } __pragma(pack(pop))
#else
#define _CRT_BEGIN_C_HEADER __pragma(pack(push, 8))
#define _CRT_END_C_HEADER __pragma(pack(pop))
#endif
#endif
/* functions living in the msvcp140_1/_2/_codecvt_ids satellite DLLs (dynamic CRT, /MD) */
#ifndef _CRT_SATELLITE_1
#define _CRT_SATELLITE_1 __declspec(dllimport)
#endif
#ifndef _CRT_SATELLITE_2
#define _CRT_SATELLITE_2 __declspec(dllimport)
#endif
#ifndef _CRT_SATELLITE_CODECVT_IDS
#define _CRT_SATELLITE_CODECVT_IDS __declspec(dllimport)
#endif
#ifndef _MSVC_CONSTEXPR
#if defined(__cplusplus) && defined(__has_cpp_attribute)
#if __has_cpp_attribute(msvc::constexpr)
#define _MSVC_CONSTEXPR [[msvc::constexpr]]
#endif
#endif
#ifndef _MSVC_CONSTEXPR
#define _MSVC_CONSTEXPR
#endif
#endif
#ifndef _PGLOBAL
#define _PGLOBAL            /* __declspec(process) under /clr only */
#endif
#ifndef _MRTIMP2
#define _MRTIMP2 __declspec(dllimport)   /* msvcp140.dll exports used by <iomanip>/<xlocale> */
#endif
#ifndef _CRT_SATELLITE_CODECVT_IDS_NOIMPORT
#define _CRT_SATELLITE_CODECVT_IDS_NOIMPORT
#endif
#ifndef _USE_DETAILED_FUNCTION_NAME_IN_SOURCE_LOCATION
#if defined(__has_builtin)
#if __has_builtin(__builtin_FUNCSIG)
#define _USE_DETAILED_FUNCTION_NAME_IN_SOURCE_LOCATION 1
#endif
#endif
#ifndef _USE_DETAILED_FUNCTION_NAME_IN_SOURCE_LOCATION
#define _USE_DETAILED_FUNCTION_NAME_IN_SOURCE_LOCATION 0
#endif
#endif
#ifndef _HAS_CXX17
#if defined(_MSVC_LANG) && _MSVC_LANG > 201402L
#define _HAS_CXX17 1
#else
#define _HAS_CXX17 0
#endif
#endif
#ifndef _HAS_CXX20
#if _HAS_CXX17 && _MSVC_LANG > 201703L
#define _HAS_CXX20 1
#else
#define _HAS_CXX20 0
#endif
#endif
#ifndef _HAS_CXX23
#if _HAS_CXX20 && _MSVC_LANG > 202002L
#define _HAS_CXX23 1
#else
#define _HAS_CXX23 0
#endif
#endif
#ifndef _HAS_EXCEPTIONS
#define _HAS_EXCEPTIONS 1
#endif
#ifndef _CRT_PACKING
#define _CRT_PACKING 8
#endif
#define _CRT_STRINGIZE_(x) #x
#define _CRT_STRINGIZE(x) _CRT_STRINGIZE_(x)
#define _CRT_WIDE_(s) L ## s
#define _CRT_WIDE(s) _CRT_WIDE_(s)
#define _CRT_CONCATENATE_(a, b) a ## b
#define _CRT_CONCATENATE(a, b) _CRT_CONCATENATE_(a, b)
#define _CRT_UNPARENTHESIZE_(...) __VA_ARGS__
#define _CRT_UNPARENTHESIZE(...) _CRT_UNPARENTHESIZE_ __VA_ARGS__
#ifndef _VCRT_COMPILER_PREPROCESSOR
#define _VCRT_COMPILER_PREPROCESSOR 1
#endif
#ifndef _CRT_GUARDOVERFLOW
#define _CRT_GUARDOVERFLOW
#endif
#ifndef _VCRT_ALLOCATOR
#define _VCRT_ALLOCATOR __declspec(allocator)
#endif
#ifndef _VCRT_RESTRICT
#define _VCRT_RESTRICT __declspec(restrict)
#endif
#ifndef _VCRT_NOALIAS
#define _VCRT_NOALIAS __declspec(noalias)
#endif
#ifndef __CRTDECL
#define __CRTDECL __cdecl
#endif
#ifndef _CRT_INSECURE_DEPRECATE
#define _CRT_INSECURE_DEPRECATE(r)
#endif
#ifndef _CRT_DEPRECATE_TEXT
#define _CRT_DEPRECATE_TEXT(t) __declspec(deprecated(t))
#endif
#ifndef _HAS_NODISCARD
#define _HAS_NODISCARD 1
#endif
#ifndef _NODISCARD
#define _NODISCARD [[nodiscard]]
#endif
#ifndef _CRT_HYBRIDPATCHABLE
#define _CRT_HYBRIDPATCHABLE
#endif
#ifndef _VCRUNTIME_DISABLED_WARNINGS
#define _VCRUNTIME_DISABLED_WARNINGS 4514 4820
#endif
#ifndef _UCRT_DISABLED_WARNINGS
#define _UCRT_DISABLED_WARNINGS 4324 4514 4574 4710 4793 4820 4995 4996 28719 28726 28727
#endif
#ifndef _CRT_NOEXCEPT
#define _CRT_NOEXCEPT noexcept
#endif
#ifdef __cplusplus
extern "C++" {
template <typename _CountofType, size_t _SizeOfArray>
char (*__countof_helper(_CountofType (&_Array)[_SizeOfArray]))[_SizeOfArray];
}
#define __crt_countof(_Array) (sizeof(*__countof_helper(_Array)) + 0)
#else
#define __crt_countof(_Array) (sizeof(_Array) / sizeof(_Array[0]))
#endif
#ifndef _CRT_SECURE_CPP_NOTHROW
#define _CRT_SECURE_CPP_NOTHROW throw()
#endif
#ifdef __cplusplus
extern "C" {
#endif
/* implemented by vcruntime140.dll / ucrtbase.dll (also exported by Wine's builds) */
_VCRTIMP void __cdecl __security_init_cookie(void);
#ifdef __cplusplus
}
#endif
#endif /* _VCRUNTIME_H */
