#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;
using kel::c::requireIndex;

extern "C" KEL_C_API void kelGetOutputLayer(void* handle, const int index, char* layer_name) {
    frame(handle, [&](kel::MLEngine& e) {
        // Unlike every other function, these two checks leave their bare text, without the
        // exception's prefix and location; hosts that parse texts rely on it.
        KelHandle* h = kel::c::handleOf(handle);
        if (!layer_name) {
            h->exception_string = "layer_name pointer is empty!";
            return;
        }
        const int count = kelGetOutputLayerNumber(handle);
        if (index < 0 || index > count - 1) {
            h->exception_string = fmt::format("index {} is out of range!", index);
            return;
        }
        kel::c::copyOut(e.getOutputLayerNames().at(static_cast<std::size_t>(index)), layer_name);
    });
}
