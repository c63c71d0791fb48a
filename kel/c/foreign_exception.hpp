#pragma once
// What a flat function keeps when an exception that is not a std::exception reaches it: one
// escaping through the C boundary would end the host. Called inside the catch (...) that
// caught it; each platform's file knows its projection's error type.
#include <string>

#include "kel/cxx/KELException.hpp"

namespace kel::c {

// The KELException text kept for an exception of a type no platform knows. Its fallback
// (composing the text may fail too) leaves the location out.
inline std::string unknownExceptionText() noexcept {
    static constexpr const char* kMessage = "An exception of unknown type ended the call.";
    try {
        return KELException(kMessage).what();
    } catch (...) {
        return std::string("[KEL Exception]\n") + kMessage + "\n";
    }
}

// The exception in flight as a KELException text: the platform projection's error with its
// own code and message (winrt::hresult_error on Windows), any other type as a fixed text.
std::string foreignExceptionText() noexcept;

}  // namespace kel::c
