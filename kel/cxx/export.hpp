#pragma once
// Marks what a host may name across the library boundary; everything else stays hidden.
#if defined(_WIN32)
#  if defined(KEL_BUILDING)
#    define KEL_API __declspec(dllexport)
#  else
#    define KEL_API __declspec(dllimport)
#  endif
#else
#  define KEL_API __attribute__((visibility("default")))
#endif
