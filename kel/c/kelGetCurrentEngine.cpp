#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetCurrentEngine(void* handle, char* engine_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        kel::c::copyOut(e.getCurrentEngine(), engine_name);
    });
}
