/* std::exception and its allocation-free kin with MSVC's layout: a vftable pointer, then the
   message and whether the object owns it. vcruntime140.dll copies and frees the message
   (__std_exception_copy/_destroy), so an exception thrown in any MSVC-built DLL (openvino.dll,
   a plugin) reads the same here. */
#pragma once
#ifndef _VCRUNTIME_EXCEPTION_H
#define _VCRUNTIME_EXCEPTION_H
#include <eh.h>
#include <vcruntime.h>
#pragma pack(push, 8)
extern "C" {
struct __std_exception_data {
    char const* _What;
    bool _DoFree;
};
_VCRTIMP void __cdecl __std_exception_copy(__std_exception_data const* _From, __std_exception_data* _To);
_VCRTIMP void __cdecl __std_exception_destroy(__std_exception_data* _Data);
}
namespace std {
class exception {
public:
    exception() noexcept : _Data() {}
    explicit exception(char const* const _Message) noexcept : _Data() {
        __std_exception_data const _Init = {_Message, true};
        __std_exception_copy(&_Init, &_Data);
    }
    /* a static text, kept by pointer */
    exception(char const* const _Message, int) noexcept : _Data() { _Data._What = _Message; }
    exception(exception const& _Other) noexcept : _Data() { __std_exception_copy(&_Other._Data, &_Data); }
    exception& operator=(exception const& _Other) noexcept {
        if (this != &_Other) {
            __std_exception_destroy(&_Data);
            __std_exception_copy(&_Other._Data, &_Data);
        }
        return *this;
    }
    virtual ~exception() noexcept { __std_exception_destroy(&_Data); }
    [[nodiscard]] virtual char const* what() const { return _Data._What ? _Data._What : "Unknown exception"; }

private:
    __std_exception_data _Data;
};

class bad_exception : public exception {
public:
    bad_exception() noexcept : exception("bad exception", 1) {}
};

class bad_array_new_length;
class bad_alloc : public exception {
public:
    bad_alloc() noexcept : exception("bad allocation", 1) {}

private:
    friend class bad_array_new_length;
    bad_alloc(char const* const _Message) noexcept : exception(_Message, 1) {}
};

class bad_array_new_length : public bad_alloc {
public:
    bad_array_new_length() noexcept : bad_alloc("bad array new length") {}
};
}  // namespace std
#pragma pack(pop)
#endif
