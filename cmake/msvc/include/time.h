/* Wine's time.h plus C11 timespec_get (UCRT: inline over ucrtbase's _timespec64_get). */
#pragma once
#include_next <time.h>
#ifndef KEL_MSVC_TIME_EXTRA
#define KEL_MSVC_TIME_EXTRA
#ifndef TIME_UTC
#define TIME_UTC 1
#endif
#ifdef __cplusplus
extern "C" {
#endif
_ACRTIMP int __cdecl _timespec64_get(struct _timespec64*, int);
static inline int __cdecl timespec_get(struct timespec* _Ts, int _Base) { return _timespec64_get((struct _timespec64*)_Ts, _Base); }
#ifdef __cplusplus
}
#endif
#endif
