#include "kel/c/frame.hpp"

extern "C" KEL_C_API void kelDestory(void* handle) {
    KelHandle* h = kel::c::handleOf(handle);
    // A pending text keeps the handle alive so the host can still read it.
    if (!h || !h->exception_string.empty()) return;
    delete h;
}
