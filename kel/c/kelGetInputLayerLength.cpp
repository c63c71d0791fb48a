#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetInputLayerLength(void* handle, const int index) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        requireIndex(index, kelGetInputLayerNumber(handle));
        return kel::c::lengthOf(e.getInputLayerNames().at(static_cast<std::size_t>(index)));
    });
}
