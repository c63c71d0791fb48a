#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetCurrentIdentifier(void* handle, char* identifier_name) {
    frame(handle, [&](kel::MLEngine& e) {
        require(identifier_name, "identifier_name pointer is empty!");
        kel::c::copyOut(e.getCurrentIdentifier(), identifier_name);
    });
}
