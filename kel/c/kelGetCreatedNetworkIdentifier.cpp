#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetCreatedNetworkIdentifier(void* handle, const int index, char* identifier) {
    frame(handle, [&](kel::MLEngine& e) {
        require(identifier, "identifier pointer is empty!");
        const auto identifiers = e.getCreatedNetworkIdentifiers();
        requireIndex(index, static_cast<int>(identifiers.size()));
        kel::c::copyOut(identifiers[static_cast<std::size_t>(index)], identifier);
    });
}
