#include "kel/c/frame.hpp"

extern "C" KEL_C_API void* kelCreateWithLibraryLoader(kelLibraryLoader loader,
                                                      kelLibraryLoader second_loader) {
    return kel::c::createHandle(
        [&] { return std::make_unique<kel::MLEngine>(loader, second_loader); });
}
