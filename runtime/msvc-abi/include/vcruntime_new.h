// The allocation functions of the language; runtime/msvc-abi/New.cpp defines those that are not inline.
#pragma once

#include <vcruntime_exception.h>

namespace std
{

struct nothrow_t
{
    explicit nothrow_t() = default;
};
extern const nothrow_t nothrow;

enum class align_val_t : size_t
{
};

using new_handler = void(__cdecl*)();
new_handler __cdecl set_new_handler(new_handler) noexcept;
new_handler __cdecl get_new_handler() noexcept;

} // namespace std

[[nodiscard]] void* operator new(size_t);
[[nodiscard]] void* operator new(size_t, const std::nothrow_t&) noexcept;
[[nodiscard]] void* operator new(size_t, std::align_val_t);
[[nodiscard]] void* operator new(size_t, std::align_val_t, const std::nothrow_t&) noexcept;
[[nodiscard]] void* operator new[](size_t);
[[nodiscard]] void* operator new[](size_t, const std::nothrow_t&) noexcept;
[[nodiscard]] void* operator new[](size_t, std::align_val_t);
[[nodiscard]] void* operator new[](size_t, std::align_val_t, const std::nothrow_t&) noexcept;
void operator delete(void*) noexcept;
void operator delete(void*, size_t) noexcept;
void operator delete(void*, const std::nothrow_t&) noexcept;
void operator delete(void*, std::align_val_t) noexcept;
void operator delete(void*, size_t, std::align_val_t) noexcept;
void operator delete(void*, std::align_val_t, const std::nothrow_t&) noexcept;
void operator delete[](void*) noexcept;
void operator delete[](void*, size_t) noexcept;
void operator delete[](void*, const std::nothrow_t&) noexcept;
void operator delete[](void*, std::align_val_t) noexcept;
void operator delete[](void*, size_t, std::align_val_t) noexcept;
void operator delete[](void*, std::align_val_t, const std::nothrow_t&) noexcept;

[[nodiscard]] inline void* operator new(size_t, void* place) noexcept
{
    return place;
}
[[nodiscard]] inline void* operator new[](size_t, void* place) noexcept
{
    return place;
}
inline void operator delete(void*, void*) noexcept {}
inline void operator delete[](void*, void*) noexcept {}
