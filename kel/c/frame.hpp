#pragma once
// The frame every flat function runs in: null handle and pending text make a call a no-op;
// any exception becomes the handle's text and the function's failure value. Exceptions of
// other types than std::exception are caught too: past an extern "C" function they would
// end the host.
#include <cstdint>
#include <cstring>
#include <source_location>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "kel/c/foreign_exception.hpp"
#include "kel/c/kel.h"
#include "kel/common/error.hpp"
#include "kel/cxx/MLEngine.hpp"

struct KelHandle {
    std::unique_ptr<kel::MLEngine> engine;  // null only when construction failed
    std::string exception_string;           // non-empty means an error is pending
};

namespace kel::c {

inline KelHandle* handleOf(void* handle) { return static_cast<KelHandle*>(handle); }

// Runs body(); an exception of any type becomes the handle's text. False when one did.
template <class Body>
bool guarded(KelHandle& h, Body&& body) {
    try {
        std::forward<Body>(body)();
        return true;
    } catch (const std::exception& e) {
        h.exception_string = e.what();
    } catch (...) {
        h.exception_string = foreignExceptionText();
    }
    return false;
}

// Runs body(engine) for a usable handle; returns `failure` when the call cannot run or fails.
template <class R, class Body>
R frame(void* handle, R failure, Body&& body) {
    KelHandle* h = handleOf(handle);
    if (!h || !h->exception_string.empty()) return failure;
    R result = failure;
    guarded(*h, [&] {
        if (!h->engine) raise("the kel engine was not created; destroy this handle.");
        result = std::forward<Body>(body)(*h->engine);
    });
    return result;
}

template <class Body>
void frame(void* handle, Body&& body) {
    frame(handle, 0, [&](MLEngine& engine) {
        std::forward<Body>(body)(engine);
        return 0;
    });
}

// Raises `message` unless `pointer` is set; located at the exported function that checks.
inline void require(const void* pointer, const char* message,
                    std::source_location loc = std::source_location::current()) {
    if (!pointer) raiseText(message, loc);
}

// Raises "index {} is out of range!" unless 0 <= index <= count - 1.
inline void requireIndex(int index, int count,
                          std::source_location loc = std::source_location::current()) {
    if (index < 0 || index > count - 1) raiseText(fmt::format("index {} is out of range!", index), loc);
}

// Byte length of a text as the int the flat interface hands out.
inline int lengthOf(const std::string& text) { return static_cast<int>(text.size()); }

// Copies exactly text.size() bytes, no terminator.
inline void copyOut(const std::string& text, char* out) {
    if (!text.empty()) std::memcpy(out, text.data(), text.size());
}

// The flat interface's type id of a device property: the alternative's index, -1 for none.
inline int typeIdOf(const DevicePropertyValue& value) {
    return value.valueless_by_exception() ? -1 : static_cast<int>(value.index());
}

// A device property whose type the host has confirmed; located at the reading function.
inline DevicePropertyValue verifiedProperty(MLEngine& engine, const char* engine_name, const char* device,
                                             const char* property, int verify_type_id,
                                             std::source_location loc = std::source_location::current()) {
    DevicePropertyValue value = engine.getDeviceProperty(engine_name, device, property);
    const int type_id = typeIdOf(value);
    if (type_id == -1) raiseText("No value in property!", loc);
    // The actual type first, then the host's: the order hosts have always seen.
    if (type_id != verify_type_id)
        raiseText(fmt::format("verify_type_id({}) is not same with type_id({})!", type_id, verify_type_id), loc);
    return value;
}

// Builds a handle around an engine made by `make`; a failure is kept as the handle's text.
template <class Make>
void* createHandle(Make&& make) {
    auto* h = new KelHandle();
    guarded(*h, [&] { h->engine = std::forward<Make>(make)(); });
    return h;
}

}  // namespace kel::c
