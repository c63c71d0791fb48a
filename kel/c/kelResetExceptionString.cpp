#include "kel/c/frame.hpp"

extern "C" KEL_C_API int kelResetExceptionString(void* handle) {
    KelHandle* h = kel::c::handleOf(handle);
    if (!h || h->exception_string.empty()) return -1;
    h->exception_string.clear();
    return 0;
}
