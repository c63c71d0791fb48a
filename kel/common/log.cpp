#include "kel/common/log.hpp"

#include <fmt/format.h>

#include <iostream>

namespace kel {

std::string locationText(const std::source_location& loc) {
    return fmt::format("{}:{}", loc.file_name(), loc.line());
}

void warn(const LogCallback& callback, std::string& text, std::source_location loc) {
    try {
        std::string line =
            fmt::format("[{}:{}] : (KEL Warning) {}\n", loc.file_name(), loc.line(), text);
        // One write for the whole line: standard error is unbuffered.
        std::cerr << line << std::flush;
        line.pop_back();
        if (callback) callback(line);
    } catch (...) {
        // A warning must never abort the operation that issued it.
    }
    text.clear();
}

}  // namespace kel
