// A plugin model library whose code throws what is not a std::exception, as foreign C++
// code may: kel's C interface must stop it at its boundary, and its host live on.
#include <cstdint>

#include "kel/c/kel_plugin_model.h"

#if defined(_WIN32)
#define EXPORT extern "C" __declspec(dllexport)
#else
#define EXPORT extern "C" __attribute__((visibility("default")))
#endif

struct NotAStdException {
    int code;
};

EXPORT void* kelModelCreate() { throw NotAStdException{42}; }
EXPORT void kelModelDestory(void*) {}
EXPORT int kelModelGetEngineNumber(void*) { return 0; }
EXPORT int kelModelGetEngineNameLength(void*, int) { return 0; }
EXPORT void kelModelGetEngineName(void*, char*, int) {}
EXPORT int kelModelGetVersionNumber(void*, const char*) { return 0; }
EXPORT int kelModelGetVersionNameLength(void*, const char*, int) { return 0; }
EXPORT void kelModelGetVersionName(void*, char*, const char*, int) {}
EXPORT int kelModelGetModelNumber(void*, const char*, const char*) { return 0; }
EXPORT std::uint64_t kelModelGetModelSize(void*, const char*, const char*, int) { return 0; }
EXPORT const void* kelModelGetModelBuffer(void*, const char*, const char*, int) { return nullptr; }
