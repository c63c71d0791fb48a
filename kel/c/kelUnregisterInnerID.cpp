#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelUnregisterInnerID(void* handle, const char* model_id) {
    frame(handle, [&](kel::MLEngine& e) {
        require(model_id, "model_id pointer is empty!");
        e.unregisterInnerID(model_id);
    });
}
