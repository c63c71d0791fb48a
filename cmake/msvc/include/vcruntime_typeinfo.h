/* type_info with MSVC's layout (a vftable pointer, the cached undecorated name, the decorated
   name inline) over vcruntime140.dll's comparison, hash and naming functions, and the bad_cast
   family. Exceptions are matched across DLLs by these decorated names. */
#pragma once
#ifndef _VCRUNTIME_TYPEINFO_H
#define _VCRUNTIME_TYPEINFO_H
#include <vcruntime_exception.h>
#pragma pack(push, 8)
extern "C" {
struct __type_info_node;  /* the head of the list of names __std_type_info_name caches */
extern __type_info_node __type_info_root_node;
struct __std_type_info_data {
    char const* _UndecoratedName;
    char const _DecoratedName[1];
    __std_type_info_data() = delete;
    __std_type_info_data(__std_type_info_data const&) = delete;
    __std_type_info_data& operator=(__std_type_info_data const&) = delete;
};
_VCRTIMP int __cdecl __std_type_info_compare(__std_type_info_data const* _Lhs, __std_type_info_data const* _Rhs);
_VCRTIMP size_t __cdecl __std_type_info_hash(__std_type_info_data const* _Data);
_VCRTIMP char const* __cdecl __std_type_info_name(__std_type_info_data* _Data, __type_info_node* _RootNode);
}

class type_info {
public:
    type_info(type_info const&) = delete;
    type_info& operator=(type_info const&) = delete;
    [[nodiscard]] size_t hash_code() const noexcept { return __std_type_info_hash(&_Data); }
    [[nodiscard]] bool operator==(type_info const& _Other) const noexcept {
        return __std_type_info_compare(&_Data, &_Other._Data) == 0;
    }
    [[nodiscard]] bool before(type_info const& _Other) const noexcept {
        return __std_type_info_compare(&_Data, &_Other._Data) < 0;
    }
    [[nodiscard]] char const* name() const noexcept { return __std_type_info_name(&_Data, &__type_info_root_node); }
    [[nodiscard]] char const* raw_name() const noexcept { return _Data._DecoratedName; }
    virtual ~type_info() noexcept;

private:
    mutable __std_type_info_data _Data;
};

namespace std {
using ::type_info;

class bad_cast : public exception {
public:
    bad_cast() noexcept : exception("bad cast", 1) {}
    static bad_cast __construct_from_string_literal(char const* const _Message) noexcept { return bad_cast(_Message, 1); }

private:
    bad_cast(char const* const _Message, int) noexcept : exception(_Message, 1) {}
};

class bad_typeid : public exception {
public:
    bad_typeid() noexcept : exception("bad typeid", 1) {}
    static bad_typeid __construct_from_string_literal(char const* const _Message) noexcept { return bad_typeid(_Message, 1); }

private:
    friend class __non_rtti_object;
    bad_typeid(char const* const _Message, int) noexcept : exception(_Message, 1) {}
};

class __non_rtti_object : public bad_typeid {
public:
    static __non_rtti_object __construct_from_string_literal(char const* const _Message) noexcept {
        return __non_rtti_object(_Message, 1);
    }

private:
    __non_rtti_object(char const* const _Message, int) noexcept : bad_typeid(_Message, 1) {}
};
}  // namespace std
#pragma pack(pop)
#endif
