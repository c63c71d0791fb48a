#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetNetworkEngineLength(void* handle, const char* identifier) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(identifier, "identifier pointer is empty!");
        return kel::c::lengthOf(e.getNetworkEngine(identifier));
    });
}
