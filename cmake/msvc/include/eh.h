/* Wine's eh.h plus _get_terminate/_get_unexpected (exported by ucrtbase/vcruntime140). */
#pragma once
#include_next <eh.h>
#ifndef KEL_MSVC_EH_EXTRA
#define KEL_MSVC_EH_EXTRA
#ifdef __cplusplus
extern "C" {
#endif
typedef void (__cdecl *unexpected_function)(void);
_ACRTIMP terminate_function __cdecl _get_terminate(void);
_VCRTIMP unexpected_function __cdecl _get_unexpected(void);
#ifdef __cplusplus
}
#endif
#endif
