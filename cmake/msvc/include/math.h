/* Wine's math.h plus the C99 functions UCRT's math.h declares, which <cmath> brings into std.
   long double is double in MSVC's ABI, so the *l forms ucrtbase lacks forward to the double
   ones; UCRT has no classification macros in C++, <cmath> declares functions by those names. */
#pragma once
#include_next <math.h>
#ifndef KEL_MSVC_MATH_EXTRA
#define KEL_MSVC_MATH_EXTRA
#ifdef __cplusplus
extern "C" {
#endif
typedef double double_t;
typedef float float_t;
_ACRTIMP long double __cdecl acoshl(long double);
static inline long double __cdecl acosl(long double _a0) { return acos(_a0); }
_ACRTIMP long double __cdecl asinhl(long double);
static inline long double __cdecl asinl(long double _a0) { return asin(_a0); }
_ACRTIMP long double __cdecl atanhl(long double);
static inline long double __cdecl atanl(long double _a0) { return atan(_a0); }
_ACRTIMP long double __cdecl cbrtl(long double);
static inline long double __cdecl ceill(long double _a0) { return ceil(_a0); }
_ACRTIMP long double __cdecl copysignl(long double, long double);
static inline long double __cdecl coshl(long double _a0) { return cosh(_a0); }
static inline long double __cdecl cosl(long double _a0) { return cos(_a0); }
_ACRTIMP double __cdecl erfc(double);
_ACRTIMP float __cdecl erfcf(float);
_ACRTIMP long double __cdecl erfcl(long double);
_ACRTIMP long double __cdecl erfl(long double);
_ACRTIMP long double __cdecl exp2l(long double);
static inline long double __cdecl expl(long double _a0) { return exp(_a0); }
_ACRTIMP long double __cdecl expm1l(long double);
static inline long double __cdecl fabsl(long double _a0) { return fabs(_a0); }
_ACRTIMP long double __cdecl fdiml(long double, long double);
static inline long double __cdecl floorl(long double _a0) { return floor(_a0); }
_ACRTIMP long double __cdecl fmal(long double, long double, long double);
_ACRTIMP long double __cdecl fmaxl(long double, long double);
_ACRTIMP long double __cdecl fminl(long double, long double);
static inline long double __cdecl fmodl(long double _a0, long double _a1) { return fmod(_a0, _a1); }
static inline long double __cdecl frexpl(long double _a0, int* _a1) { return frexp(_a0, _a1); }
static inline long double __cdecl hypotl(long double _a0, long double _a1) { return hypot(_a0, _a1); }
_ACRTIMP int __cdecl ilogbl(long double);
static inline long double __cdecl ldexpl(long double _a0, int _a1) { return ldexp(_a0, _a1); }
_ACRTIMP long double __cdecl lgammal(long double);
_ACRTIMP long long __cdecl llrintl(long double);
_ACRTIMP long long __cdecl llroundl(long double);
static inline long double __cdecl log10l(long double _a0) { return log10(_a0); }
_ACRTIMP long double __cdecl log1pl(long double);
_ACRTIMP long double __cdecl log2l(long double);
_ACRTIMP long double __cdecl logbl(long double);
static inline long double __cdecl logl(long double _a0) { return log(_a0); }
_ACRTIMP long __cdecl lrintl(long double);
_ACRTIMP long __cdecl lroundl(long double);
static inline long double __cdecl modfl(long double _a0, long double* _a1) { double _i; double _r = modf(_a0, &_i); *_a1 = _i; return _r; }
_ACRTIMP double __cdecl nan(const char*);
_ACRTIMP float __cdecl nanf(const char*);
_ACRTIMP long double __cdecl nanl(const char*);
_ACRTIMP long double __cdecl nearbyintl(long double);
_ACRTIMP long double __cdecl nextafterl(long double, long double);
_ACRTIMP double __cdecl nexttoward(double, long double);
_ACRTIMP float __cdecl nexttowardf(float, long double);
_ACRTIMP long double __cdecl nexttowardl(long double, long double);
static inline long double __cdecl powl(long double _a0, long double _a1) { return pow(_a0, _a1); }
_ACRTIMP long double __cdecl remainderl(long double, long double);
_ACRTIMP long double __cdecl remquol(long double, long double, int*);
_ACRTIMP long double __cdecl rintl(long double);
_ACRTIMP long double __cdecl roundl(long double);
_ACRTIMP long double __cdecl scalblnl(long double, long);
_ACRTIMP long double __cdecl scalbnl(long double, int);
static inline long double __cdecl sinhl(long double _a0) { return sinh(_a0); }
static inline long double __cdecl sinl(long double _a0) { return sin(_a0); }
static inline long double __cdecl sqrtl(long double _a0) { return sqrt(_a0); }
static inline long double __cdecl tanhl(long double _a0) { return tanh(_a0); }
static inline long double __cdecl tanl(long double _a0) { return tan(_a0); }
_ACRTIMP long double __cdecl tgammal(long double);
_ACRTIMP long double __cdecl truncl(long double);
#ifdef __cplusplus
}
/* C++: UCRT has no comparison/classification macros; <cmath> supplies functions */
#undef isgreater
#undef isgreaterequal
#undef isless
#undef islessequal
#undef islessgreater
#undef isunordered
#undef fpclassify
#undef signbit
#undef isinf
#undef isnan
#undef isnormal
#undef isfinite
extern "C++" {  /* UCRT math.h C++ overloads <cmath> imports with using ::signbit */
inline bool signbit(float _X) noexcept { return __builtin_signbit(_X); }
inline bool signbit(double _X) noexcept { return __builtin_signbit(_X); }
inline bool signbit(long double _X) noexcept { return __builtin_signbit(_X); }
}
#endif
#endif
