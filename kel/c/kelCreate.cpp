#include "kel/c/frame.hpp"

extern "C" KEL_C_API void* kelCreate(void) {
    return kel::c::createHandle([] { return std::make_unique<kel::MLEngine>(nullptr, nullptr); });
}
