#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetOutputLayerLength(void* handle, const int index) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        requireIndex(index, kelGetOutputLayerNumber(handle));
        return kel::c::lengthOf(e.getOutputLayerNames().at(static_cast<std::size_t>(index)));
    });
}
