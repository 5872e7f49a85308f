// type_info as the compiler lays its objects out and vcruntime140.dll reads them.
#pragma once

#include <vcruntime_exception.h>

extern "C"
{
    struct __std_type_info_data
    {
        const char* _UndecoratedName;
        char _DecoratedName[1];
    };

    /// The names that this module had made, for its end; as large and aligned as an SLIST_HEADER.
    struct alignas(16) __type_info_node
    {
        void* _Words[2];
    };
    extern __type_info_node __type_info_root_node;

    int __cdecl __std_type_info_compare(const __std_type_info_data*, const __std_type_info_data*);
    size_t __cdecl __std_type_info_hash(const __std_type_info_data*);
    const char* __cdecl __std_type_info_name(__std_type_info_data*, __type_info_node*);
}

class type_info
{
public:
    type_info(const type_info&) = delete;
    type_info& operator=(const type_info&) = delete;
    virtual ~type_info() noexcept;

    [[nodiscard]] size_t hash_code() const noexcept { return __std_type_info_hash(&_Data); }
    [[nodiscard]] bool operator==(const type_info& other) const noexcept
    {
        return __std_type_info_compare(&_Data, &other._Data) == 0;
    }
    [[nodiscard]] bool before(const type_info& other) const noexcept
    {
        return __std_type_info_compare(&_Data, &other._Data) < 0;
    }
    [[nodiscard]] const char* name() const noexcept { return __std_type_info_name(&_Data, &__type_info_root_node); }
    [[nodiscard]] const char* raw_name() const noexcept { return _Data._DecoratedName; }

private:
    mutable __std_type_info_data _Data;
};

namespace std
{

using ::type_info;

class bad_cast : public exception
{
public:
    bad_cast() noexcept : exception("bad cast", 1) {}
};

class bad_typeid : public exception
{
public:
    bad_typeid() noexcept : exception("bad typeid", 1) {}
};

} // namespace std
