#pragma once
// Marks what a host may name across the library boundary (KEL_API); everything else stays
// hidden, and KEL_HIDDEN keeps a member type of an exported class so too.
#if defined(_WIN32)
#  if defined(KEL_BUILDING)
#    define KEL_API __declspec(dllexport)
#  else
#    define KEL_API __declspec(dllimport)
#  endif
#  define KEL_HIDDEN
#elif defined(__GNUC__)
#  define KEL_API __attribute__((visibility("default")))
#  define KEL_HIDDEN __attribute__((visibility("hidden")))
#else
#  define KEL_API
#  define KEL_HIDDEN
#endif
