#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::require_index;

extern "C" KEL_C_API int kelGetSupportEngineLength(void* handle, const int index) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require_index(index, kelGetSupportEngineNumber(handle));
        return kel::c::length_of(e.getSupportedEngines().at(index));
    });
}
