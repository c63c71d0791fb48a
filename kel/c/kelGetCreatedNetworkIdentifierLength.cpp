#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API int kelGetCreatedNetworkIdentifierLength(void* handle, const int index) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        const auto identifiers = e.getCreatedNetworkIdentifiers();
        requireIndex(index, static_cast<int>(identifiers.size()));
        return kel::c::lengthOf(identifiers[static_cast<std::size_t>(index)]);
    });
}
