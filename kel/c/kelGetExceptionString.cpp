#include "kel/c/frame.hpp"

extern "C" KEL_C_API int kelGetExceptionString(void* handle, char* buffer) {
    KelHandle* h = kel::c::handleOf(handle);
    if (!h || !buffer || h->exception_string.empty()) return -1;
    kel::c::copyOut(h->exception_string, buffer);
    return 0;
}
