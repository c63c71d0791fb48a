/* the two helpers microsoft/STL's src/filesystem.cpp takes from the
   VCRuntime-internal header of this name: an owning malloc'd pointer and a typed malloc. */
#pragma once
#include <stdlib.h>
template <typename T>
class __crt_unique_heap_ptr {
public:
    __crt_unique_heap_ptr() noexcept = default;
    explicit __crt_unique_heap_ptr(T* p) noexcept : p_(p) {}
    __crt_unique_heap_ptr(const __crt_unique_heap_ptr&) = delete;
    __crt_unique_heap_ptr& operator=(const __crt_unique_heap_ptr&) = delete;
    __crt_unique_heap_ptr& operator=(__crt_unique_heap_ptr&& o) noexcept { if (this != &o) { free(p_); p_ = o.p_; o.p_ = nullptr; } return *this; }
    __crt_unique_heap_ptr(__crt_unique_heap_ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    ~__crt_unique_heap_ptr() { free(p_); }
    T* get() const noexcept { return p_; }
    T* detach() noexcept { T* p = p_; p_ = nullptr; return p; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
private:
    T* p_ = nullptr;
};
#define _malloc_crt_t(t, n) (__crt_unique_heap_ptr<t>(static_cast<t*>(malloc((n) * sizeof(t)))))
