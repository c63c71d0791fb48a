#include "kel/c/frame.hpp"

extern "C" KEL_C_API void kelSelfVersion(void* handle, uint64_t* string_length, char* version_string) {
    kel::c::frame(handle, [&](kel::MLEngine& engine) {
        if (!string_length && !version_string) kel::raise("string_length and version_string are empty!");
        const std::string text = engine.version();
        if (string_length) *string_length = text.size();
        if (version_string) kel::c::copyOut(text, version_string);
    });
}
