// Windows: the WinRT projection's errors (winrt::hresult_error, not a std::exception) keep
// their HRESULT and message; any other foreign type gets the fixed text.
#include <winrt/base.h>

#include <fmt/format.h>

#include <cstdint>

#include "kel/c/foreign_exception.hpp"

namespace kel::c {

std::string foreignExceptionText() noexcept {
    try {
        try {
            throw;
        } catch (const winrt::hresult_error& e) {
            const std::string message = winrt::to_string(e.message());
            return KELException(fmt::format("Windows Runtime error 0x{:08X}{}{}",
                                            static_cast<std::uint32_t>(e.code().value),
                                            message.empty() ? "" : ": ", message))
                .what();
        }
    } catch (...) {  // any other type, or building the text failed
        return unknownExceptionText();
    }
}

}  // namespace kel::c
