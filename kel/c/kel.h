/*
 * kel: the flat C interface.
 *
 * Conventions shared by every function below:
 * - The first argument is the handle from kelCreate. A null handle makes a call do nothing.
 * - No exception ever leaves a kel function. A failure stores its text in the handle and the
 *   function returns -1 (int results), NULL (pointer results) or nothing.
 * - While a text is pending (kelHasException is true) every other call is a no-op that writes
 *   nothing; fetch the text with kelGetExceptionStringLength + kelGetExceptionString, then clear
 *   it with kelResetExceptionString. The first failure is kept, later ones are not recorded.
 * - Strings handed out are raw bytes without a terminating zero unless the function says so:
 *   ask for the length first and allocate length + 1 bytes, zeroed, for a C string.
 * - Strings passed in are NUL-terminated UTF-8; wide strings are NUL-terminated wchar_t.
 */
#ifndef KEL_C_KEL_H
#define KEL_C_KEL_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#if defined(_WIN32)
#  if defined(KEL_BUILDING)
#    define KEL_C_API __declspec(dllexport)
#  else
#    define KEL_C_API __declspec(dllimport)
#  endif
#else
#  define KEL_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A host-supplied library loader: wide path in, library handle out. */
typedef void *(*kelLibraryLoader)(const wchar_t *);
/* Receives one log line, valid only during the call. */
typedef void (*kelLogCallback)(const char *);

/* ---- Handle lifecycle and error channel --------------------------------------------- */

/* Creates a handle. Always returns one: if the engine could not be built, the handle has a
 * pending text explaining why; read it, reset it, then kelDestory the handle. */
KEL_C_API void *kelCreate(void);
/* As kelCreate; the two loaders are accepted for hosts that have them and may be NULL. */
KEL_C_API void *kelCreateWithLibraryLoader(kelLibraryLoader loader, kelLibraryLoader second_loader);
/* Frees the handle and its engine. Does nothing while a text is pending: reset it first. */
KEL_C_API void kelDestory(void *handle);
/* True when a text is pending, or when handle is NULL. */
KEL_C_API bool kelHasException(void *handle);
/* Writes the pending text's byte count (no terminator) to *string_length; 0 on success, -1
 * when handle or string_length is NULL or nothing is pending. */
KEL_C_API int kelGetExceptionStringLength(void *handle, uint64_t *string_length);
/* Copies exactly the pending text's bytes into buffer, without terminator; the text stays
 * pending. 0 on success, -1 when handle or buffer is NULL or nothing is pending. */
KEL_C_API int kelGetExceptionString(void *handle, char *buffer);
/* Clears the pending text: 0, or -1 when handle is NULL or nothing was pending. */
KEL_C_API int kelResetExceptionString(void *handle);
/* Installs (or, with NULL, removes) the log callback; the version line is delivered at once. */
KEL_C_API void kelSetLogCallback(void *handle, kelLogCallback callback);
/* kel's own version: byte count to *string_length and/or the bytes to version_string, each
 * when non-NULL; no terminator is written. Both NULL is an error. */
KEL_C_API void kelSelfVersion(void *handle, uint64_t *string_length, char *version_string);
/* The runtime version of engine_name ("OpenVINO", "WindowsML"): byte count to *string_length
 * and/or the bytes plus ONE terminating zero to version_string (length + 1 bytes). */
KEL_C_API void kelVersion(void *handle, const char *engine_name, uint64_t *string_length,
                          char *version_string);

#ifdef __cplusplus
}
#endif

#endif /* KEL_C_KEL_H */
