#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetSupportEngine(void* handle, const int index, char* engine_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        requireIndex(index, kelGetSupportEngineNumber(handle));
        kel::c::copyOut(e.getSupportedEngines().at(index), engine_name);
    });
}
