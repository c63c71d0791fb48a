#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelRegisterModelAsInnerIDwithString(void* handle, const char* model_id,
                                                              const char* model_path) {
    frame(handle, [&](kel::MLEngine& e) {
        require(model_id, "model_id pointer is empty!");
        require(model_path, "model_path pointer is empty!");
        e.registerModelAsInnerID(model_id, std::filesystem::path(std::string(model_path)));
    });
}
