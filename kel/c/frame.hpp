#pragma once
// The frame every flat function runs in: null handle and pending text make a call a no-op;
// any standard exception becomes the handle's text and the function's failure value.
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "kel/c/kel.h"
#include "kel/common/error.hpp"
#include "kel/cxx/MLEngine.hpp"

struct KelHandle {
    std::unique_ptr<kel::MLEngine> engine;  // null only when construction failed
    std::string exception_string;           // non-empty means an error is pending
};

namespace kel::c {

inline KelHandle* handle_of(void* handle) { return static_cast<KelHandle*>(handle); }

// Runs body(engine) for a usable handle; returns `failure` when the call cannot run or fails.
template <class R, class Body>
R frame(void* handle, R failure, Body&& body) {
    KelHandle* h = handle_of(handle);
    if (!h || !h->exception_string.empty()) return failure;
    try {
        if (!h->engine) raise("the kel engine was not created; destroy this handle.");
        if constexpr (std::is_void_v<R>) {
            std::forward<Body>(body)(*h->engine);
        } else {
            return std::forward<Body>(body)(*h->engine);
        }
    } catch (const std::exception& e) {
        h->exception_string = e.what();
    }
    if constexpr (!std::is_void_v<R>) return failure;
}

template <class Body>
void frame(void* handle, Body&& body) {
    KelHandle* h = handle_of(handle);
    if (!h || !h->exception_string.empty()) return;
    try {
        if (!h->engine) raise("the kel engine was not created; destroy this handle.");
        std::forward<Body>(body)(*h->engine);
    } catch (const std::exception& e) {
        h->exception_string = e.what();
    }
}

// Copies exactly text.size() bytes, no terminator.
inline void copy_out(const std::string& text, char* out) {
    if (!text.empty()) std::memcpy(out, text.data(), text.size());
}

// Builds a handle around an engine made by `make`; a failure is kept as the handle's text.
template <class Make>
void* create_handle(Make&& make) {
    auto* h = new KelHandle();
    try {
        h->engine = std::forward<Make>(make)();
    } catch (const std::exception& e) {
        h->exception_string = e.what();
    }
    return h;
}

}  // namespace kel::c
