#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetNetworkEngine(void* handle, const char* identifier, char* engine_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(identifier, "identifier pointer is empty!");
        require(engine_name, "engine_name pointer is empty!");
        kel::c::copyOut(e.getNetworkEngine(identifier), engine_name);
    });
}
