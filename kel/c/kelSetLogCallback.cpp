#include "kel/c/frame.hpp"

extern "C" KEL_C_API void kelSetLogCallback(void* handle, kelLogCallback callback) {
    kel::c::frame(handle, [&](kel::MLEngine& engine) {
        kel::LogCallback wrapped;
        if (callback) wrapped = [callback](const std::string& line) { callback(line.c_str()); };
        engine.setLogCallback(std::move(wrapped));
    });
}
