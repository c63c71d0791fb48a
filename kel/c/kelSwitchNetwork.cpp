#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelSwitchNetwork(void* handle, const char* identifier) {
    frame(handle, [&](kel::MLEngine& e) {
        require(identifier, "identifier pointer is empty!");
        e.switchNetwork(identifier);
    });
}
