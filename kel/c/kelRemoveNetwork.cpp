#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelRemoveNetwork(void* handle, const char* network_id) {
    frame(handle, [&](kel::MLEngine& e) {
        require(network_id, "network_id pointer is empty!");
        e.removeNetwork(network_id);
    });
}
