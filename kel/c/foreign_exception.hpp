#pragma once
// What a flat function keeps when an exception that is not a std::exception reaches it: one
// escaping through the C boundary would end the host. Called inside the catch (...) that
// caught it; each platform's file knows its projection's error type.
#include <string>

namespace kel::c {

// The exception in flight as a KELException text: the platform projection's error with its
// own code and message (winrt::hresult_error on Windows), any other type as a fixed text.
std::string foreignExceptionText() noexcept;

}  // namespace kel::c
