// Linux has no projection error type: every foreign exception gets the fixed text.
#include "kel/c/foreign_exception.hpp"

namespace kel::c {

std::string foreignExceptionText() noexcept { return unknownExceptionText(); }

}  // namespace kel::c
