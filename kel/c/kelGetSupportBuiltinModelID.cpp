#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetSupportBuiltinModelID(void* handle, const char* engine_name, const int index,
                                                      char* builtin_model_id) {
    frame(handle, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(builtin_model_id, "builtin_model_id pointer is empty!");
        requireIndex(index, kelGetSupportBuiltinModelNumber(handle, engine_name));
        kel::c::copyOut(e.getModelInnerIDs(engine_name).at(index), builtin_model_id);
    });
}
