#include "kel/c/kel.h"

// Reserved: exported so hosts can link against it; it does nothing on purpose.
extern "C" KEL_C_API void kelGetPluginModelVersionWithWstring(void*, const wchar_t*, char*) {}
