/* Wine's wchar.h plus what UCRT's wchar.h provides inline:
   fwide, mbsinit, vfwscanf, vswscanf, vwscanf, swprintf_s(array). */
#pragma once
#include_next <wchar.h>
#ifndef KEL_MSVC_WCHAR_EXTRA
#define KEL_MSVC_WCHAR_EXTRA
#ifdef __cplusplus
extern "C" {
#endif
static inline int __cdecl fwide(FILE* _F, int _M) { (void)_F; return _M; }
static inline int __cdecl mbsinit(const mbstate_t* _P) { return _P == NULL || _P->_Wchar == 0; }
static inline int __cdecl vfwscanf(FILE* _F, const wchar_t* _Fmt, va_list _A)
{ return __stdio_common_vfwscanf(_CRT_INTERNAL_LOCAL_SCANF_OPTIONS, _F, _Fmt, NULL, _A); }
static inline int __cdecl vwscanf(const wchar_t* _Fmt, va_list _A) { return vfwscanf(stdin, _Fmt, _A); }
static inline int __cdecl vswscanf(const wchar_t* _B, const wchar_t* _Fmt, va_list _A)
{ return __stdio_common_vswscanf(_CRT_INTERNAL_LOCAL_SCANF_OPTIONS, _B, (size_t)-1, _Fmt, NULL, _A); }
#ifdef __cplusplus
}
#endif
#ifdef __cplusplus
/* UCRT's C++ "secure template overloads" for array destinations */
extern "C++" template <size_t _Sz>
inline int __cdecl swprintf_s(wchar_t (&_B)[_Sz], const wchar_t* _Fmt, ...)
{ va_list _A; va_start(_A, _Fmt); int _R = vswprintf_s(_B, _Sz, _Fmt, _A); va_end(_A); return _R; }
#endif
#endif
