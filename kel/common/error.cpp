#include "kel/common/error.hpp"

#include <fmt/format.h>

#include "kel/common/log.hpp"

namespace kel {

KELException::KELException(std::string message, std::source_location location)
    : location_(location) {
    std::string text = location_text(location);
    text += '\n';
    text += message;
    text += '\n';
    message_ = "[KEL Exception] ";
    message_ += text;
}

KELException::~KELException() = default;

const char* KELException::what() const noexcept { return message_.c_str(); }

int stoi_checked(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(kStoiText);
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoi argument out of range");
    }
}

}  // namespace kel
