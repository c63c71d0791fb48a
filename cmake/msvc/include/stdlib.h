/* Wine's stdlib.h plus at_quick_exit (UCRT: registered via ucrtbase's
   _crt_at_quick_exit) and quick_exit. */
#pragma once
#include_next <stdlib.h>
#include <errno.h> /* UCRT's stdlib.h makes errno/ERANGE visible; <string> relies on it */
#ifndef KEL_MSVC_STDLIB_EXTRA
#define KEL_MSVC_STDLIB_EXTRA
#ifdef __cplusplus
extern "C" {
#endif
_ACRTIMP int __cdecl _crt_at_quick_exit(void (__cdecl*)(void));
_ACRTIMP __declspec(noreturn) void __cdecl quick_exit(int);
static inline int __cdecl at_quick_exit(void (__cdecl* _F)(void)) { return _crt_at_quick_exit(_F); }
#ifdef __cplusplus
}
#endif
#endif
