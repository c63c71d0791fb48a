#include "kel/common/error.hpp"

#include <fmt/format.h>

#include <cstdlib>
#include <memory>

#ifdef __GNUG__
#include <cxxabi.h>
#endif

#include "kel/common/log.hpp"

namespace kel {

KELException::KELException(std::string message, std::source_location location)
    : location_(location) {
    std::string text = locationText(location);
    text += '\n';
    text += message;
    text += '\n';
    message_ = "[KEL Exception] ";
    message_ += text;
}

KELException::~KELException() = default;

const char* KELException::what() const noexcept { return message_.c_str(); }

std::string typeName(const std::type_info& type) {
#ifdef __GNUG__
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                std::free);
    if (status == 0 && name) return name.get();
#endif
    return type.name();
}

int stoiChecked(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(kStoiText);
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoi argument out of range");
    }
}

}  // namespace kel
