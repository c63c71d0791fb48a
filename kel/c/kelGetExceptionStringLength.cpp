#include "kel/c/frame.hpp"

extern "C" KEL_C_API int kelGetExceptionStringLength(void* handle, uint64_t* string_length) {
    KelHandle* h = kel::c::handleOf(handle);
    if (!h || !string_length || h->exception_string.empty()) return -1;
    *string_length = h->exception_string.size();
    return 0;
}
