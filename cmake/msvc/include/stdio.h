/* Wine's stdio.h plus the C99 v*scanf and C11 vsnprintf_s, sprintf_s(array) that UCRT's stdio.h provides inline
   (routed to ucrtbase's __stdio_common_vfscanf/__stdio_common_vsscanf). */
#pragma once
#include_next <stdio.h>
#ifndef KEL_MSVC_STDIO_EXTRA
#define KEL_MSVC_STDIO_EXTRA
#ifdef __cplusplus
extern "C" {
#endif
_ACRTIMP errno_t __cdecl _get_stream_buffer_pointers(FILE*, char***, char***, int**); /* used by <fstream> */
static inline int __cdecl vfscanf(FILE* _F, const char* _Fmt, va_list _A)
{ return __stdio_common_vfscanf(_CRT_INTERNAL_LOCAL_SCANF_OPTIONS, _F, _Fmt, NULL, _A); }
static inline int __cdecl vscanf(const char* _Fmt, va_list _A) { return vfscanf(stdin, _Fmt, _A); }
static inline int __cdecl vsscanf(const char* _B, const char* _Fmt, va_list _A)
{ return __stdio_common_vsscanf(_CRT_INTERNAL_LOCAL_SCANF_OPTIONS, _B, (size_t)-1, _Fmt, NULL, _A); }
static inline int __cdecl vsnprintf_s(char* _B, size_t _Sz, size_t _Cnt, const char* _Fmt, va_list _A)
{ int _R = __stdio_common_vsnprintf_s(_CRT_INTERNAL_LOCAL_PRINTF_OPTIONS, _B, _Sz, _Cnt, _Fmt, NULL, _A); return _R < 0 ? -1 : _R; }
#ifdef __cplusplus
}
#endif
#ifdef __cplusplus
extern "C++" template <size_t _Sz>
inline int __cdecl sprintf_s(char (&_B)[_Sz], const char* _Fmt, ...)
{ va_list _A; va_start(_A, _Fmt); int _R = vsprintf_s(_B, _Sz, _Fmt, _A); va_end(_A); return _R; }
#endif
#endif
