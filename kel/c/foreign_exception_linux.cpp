// Linux has no projection error type: every foreign exception gets the fixed text.
#include "kel/c/foreign_exception.hpp"

#include "kel/cxx/KELException.hpp"

namespace kel::c {

std::string foreignExceptionText() noexcept {
    try {
        return KELException("An exception of unknown type ended the call.").what();
    } catch (...) {
        return "[KEL Exception]\nAn exception of unknown type ended the call.\n";
    }
}

}  // namespace kel::c
