/* MSVC exposes the SEH intrinsics through excpt.h unconditionally;
   Wine's windows/excpt.h only does so under USE_COMPILER_EXCEPTIONS. */
#pragma once
#ifndef USE_COMPILER_EXCEPTIONS
#define USE_COMPILER_EXCEPTIONS
#endif
#include_next <excpt.h>
