#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelInfer(void* handle) {
    frame(handle, [&](kel::MLEngine& e) { e.infer(); });
}
