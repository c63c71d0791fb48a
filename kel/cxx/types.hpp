#pragma once
#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

namespace kel {

// Property name -> value; ordered so that validation reports are reproducible.
using PropertyMap = std::map<std::string, std::any>;

// Result of a device-property query; the alternatives' indexes are the flat interface's type ids.
using DevicePropertyValue = std::variant<std::monostate, std::string,
                                         std::unordered_map<std::string, float>, std::size_t,
                                         float, bool>;

// One model file held in memory: (bytes, byte count).
using ModelBuffer = std::pair<const void*, std::size_t>;

using LogCallback = std::function<void(const std::string&)>;

// (driver version, device description).
using DeviceDriverInfo = std::pair<std::string, std::string>;

// A host-supplied library loader: wide path in, library handle out.
using LibraryLoader = void* (*)(const wchar_t*);

}  // namespace kel
