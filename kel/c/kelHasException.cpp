#include "kel/c/frame.hpp"

extern "C" KEL_C_API bool kelHasException(void* handle) {
    KelHandle* h = kel::c::handleOf(handle);
    return !h || !h->exception_string.empty();
}
