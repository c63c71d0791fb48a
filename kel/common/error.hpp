#pragma once
// One way to raise errors: kel::raise("text {}", arg) throws KELException located at the call.
#include <any>
#include <fmt/format.h>
#include <source_location>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>

#include "kel/cxx/KELException.hpp"

namespace kel {

// A format string that also remembers where it was written, so that the location
// default argument can sit before a parameter pack.
template <class... Args>
struct located_format {
    fmt::format_string<Args...> text;
    std::source_location location;

    template <class S>
    consteval located_format(const S& s,
                             std::source_location loc = std::source_location::current())
        : text(s), location(loc) {}
};

template <class... Args>
[[noreturn]] void raise(located_format<std::type_identity_t<Args>...> f, Args&&... args) {
    throw KELException(fmt::format(f.text, std::forward<Args>(args)...), f.location);
}

// A message composed at run time (a caught exception's text, for example).
[[noreturn]] inline void raiseText(std::string message,
                                    std::source_location loc = std::source_location::current()) {
    throw KELException(std::move(message), loc);
}

// The standard library failures that hosts see by their text keep one text on every platform.
inline constexpr const char* kMapKeyText = "invalid unordered_map<K, T> key";
inline constexpr const char* kOrderedMapKeyText = "invalid map<K, T> key";
inline constexpr const char* kVectorSubscriptText = "invalid vector subscript";
inline constexpr const char* kStoiText = "invalid stoi argument";

struct badAnyCastText : std::bad_any_cast {
    const char* what() const noexcept override { return "Bad any_cast"; }
};

// Checked map lookup with the standard out-of-range text.
template <class Map, class Key>
auto& checkedAt(Map& map, const Key& key, const char* text = kMapKeyText) {
    auto it = map.find(key);
    if (it == map.end()) throw std::out_of_range(text);
    return it->second;
}

template <class Vec>
auto& checkedIndex(Vec& v, std::size_t i) {
    if (i >= v.size()) throw std::out_of_range(kVectorSubscriptText);
    return v[i];
}

// std::any_cast on a reference, failing with the fixed "Bad any_cast" text.
template <class T>
T& anyAs(std::any& value) {
    T* p = std::any_cast<T>(&value);
    if (!p) throw badAnyCastText();
    return *p;
}
template <class T>
const T& anyAs(const std::any& value) {
    const T* p = std::any_cast<T>(&value);
    if (!p) throw badAnyCastText();
    return *p;
}

// A type's name as a reader would write it ("int*"), for messages.
std::string typeName(const std::type_info& type);

// std::stoi with the fixed texts for both of its failures.
int stoiChecked(const std::string& text);

}  // namespace kel
