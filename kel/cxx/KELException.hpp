#pragma once
#include <exception>
#include <source_location>
#include <string>

#include "kel/cxx/export.hpp"

namespace kel {

// The library's one exception type. Its text reads
// "[KEL Exception] <file>:<line>\n<message>\n", composed once at construction.
class KEL_API KELException : public std::exception {
public:
    explicit KELException(std::string message,
                          std::source_location location = std::source_location::current());
    ~KELException() override;
    const char* what() const noexcept override;
    const std::source_location& location() const noexcept { return location_; }

private:
    std::string message_;
    std::source_location location_;
};

}  // namespace kel
