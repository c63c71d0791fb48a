#include "kel/c/frame.hpp"

extern "C" KEL_C_API void* kelCreate(void) {
    return kel::c::create_handle([] { return std::make_unique<kel::MLEngine>(nullptr, nullptr); });
}
