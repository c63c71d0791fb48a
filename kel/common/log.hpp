#pragma once
#include <source_location>
#include <string>

#include "kel/cxx/types.hpp"

namespace kel {

// "<file>:<line>", the location text shared by exceptions, warnings and log tags.
std::string locationText(const std::source_location& loc);

// Writes "[<file>:<line>] : (KEL Warning) <text>" to standard error and, when one is
// installed, to the log callback. Never throws; the text is consumed.
void warn(const LogCallback& callback, std::string& text,
          std::source_location loc = std::source_location::current());

}  // namespace kel
