#include "kel/c/frame.hpp"

extern "C" KEL_C_API bool kelHasException(void* handle) {
    KelHandle* h = kel::c::handle_of(handle);
    return !h || !h->exception_string.empty();
}
