// What libc++'s std::exception_ptr is made of, which Visual Studio has in a DLL of its own: a counted copy of the
// thrown object, made and thrown again by what the compiler wrote about its type.
#include <windows.h>

#include <malloc.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace
{

// The compiler's description of a throw; the numbers but the first of each are relative to the module that threw.
struct ThrowInfo
{
    uint32_t attributes;
    int32_t destructor;
    int32_t forwardCompatible;
    int32_t catchableTypes;
};

struct CatchableType
{
    uint32_t properties;
    int32_t type;
    int32_t displacements[3];
    int32_t size;
    int32_t copyConstructor;
};

struct CatchableTypes
{
    int32_t count;
    int32_t types[1];
};

constexpr uint32_t simpleType = 1;
constexpr uint32_t hasVirtualBase = 4;
constexpr DWORD cppException = 0xE06D7363;

// The first type in the list is the object's own.
class Description
{
public:
    explicit Description(const ThrowInfo* info) : m_info(info)
    {
        PVOID module = nullptr;
        RtlPcToFileHeader(const_cast<ThrowInfo*>(info), &module);
        m_module = static_cast<const char*>(module);
        m_type = At<CatchableType>(At<CatchableTypes>(info->catchableTypes)->types[0]);
    }

    const ThrowInfo* Info() const { return m_info; }
    size_t Size() const { return static_cast<size_t>(m_type->size); }
    void Copy(void* to, const void* from) const
    {
        if ((m_type->properties & simpleType) || !m_type->copyConstructor)
            memcpy(to, from, Size());
        else if (m_type->properties & hasVirtualBase)
            Function<void (*)(void*, const void*, int)>(m_type->copyConstructor)(to, from, 1);
        else
            Function<void (*)(void*, const void*)>(m_type->copyConstructor)(to, from);
    }
    void Destroy(void* object) const
    {
        if (m_info->destructor)
            Function<void (*)(void*)>(m_info->destructor)(object);
    }

private:
    template <class T>
    const T* At(int32_t offset) const
    {
        return reinterpret_cast<const T*>(m_module + offset);
    }
    template <class T>
    T Function(int32_t offset) const
    {
        return reinterpret_cast<T>(reinterpret_cast<uintptr_t>(m_module + offset));
    }

    const ThrowInfo* m_info;
    const char* m_module;
    const CatchableType* m_type;
};

struct alignas(16) Held
{
    LONG count;
    const ThrowInfo* info;

    void* Object() { return this + 1; }
};

/// std::exception_ptr, as libc++ declares it: two words, of which this uses the first.
struct Pointer
{
    Held* held;
    void* unused;
};

Pointer& PointerAt(void* place)
{
    return *static_cast<Pointer*>(place);
}

const Pointer& PointerAt(const void* place)
{
    return *static_cast<const Pointer*>(place);
}

// Nobody could be told of a copy that fails; the exception must not be lost.
Held* Hold(const void* object, const ThrowInfo* info) noexcept
{
    const Description description(info);
    auto* const held = static_cast<Held*>(malloc(sizeof(Held) + description.Size()));
    if (!held)
        abort();
    held->count = 1;
    held->info = info;
    description.Copy(held->Object(), object);
    return held;
}

Held* Share(Held* held)
{
    if (held)
        InterlockedIncrement(&held->count);
    return held;
}

void LetGo(Held* held)
{
    if (!held || InterlockedDecrement(&held->count) != 0)
        return;
    Description(held->info).Destroy(held->Object());
    free(held);
}

} // namespace

extern "C" void** __cdecl __current_exception();
extern "C" [[noreturn]] void __stdcall _CxxThrowException(void* object, ThrowInfo* info);

namespace
{

void __cdecl __ExceptionPtrCreate(void* place)
{
    PointerAt(place) = {};
}

void __cdecl __ExceptionPtrDestroy(void* place)
{
    LetGo(PointerAt(place).held);
}

void __cdecl __ExceptionPtrCopy(void* place, const void* other)
{
    PointerAt(place) = {Share(PointerAt(other).held), nullptr};
}

void __cdecl __ExceptionPtrAssign(void* place, const void* other)
{
    Held* const old = PointerAt(place).held;
    PointerAt(place).held = Share(PointerAt(other).held);
    LetGo(old);
}

bool __cdecl __ExceptionPtrCompare(const void* one, const void* other)
{
    return PointerAt(one).held == PointerAt(other).held;
}

bool __cdecl __ExceptionPtrToBool(const void* place)
{
    return PointerAt(place).held != nullptr;
}

void __cdecl __ExceptionPtrSwap(void* one, void* other)
{
    Held* const held = PointerAt(one).held;
    PointerAt(one).held = PointerAt(other).held;
    PointerAt(other).held = held;
}

void __cdecl __ExceptionPtrCurrentException(void* place)
{
    PointerAt(place) = {};
    const auto* const record = static_cast<const EXCEPTION_RECORD*>(*__current_exception());
    if (record && record->ExceptionCode == cppException && record->NumberParameters >= 3)
        PointerAt(place).held = Hold(reinterpret_cast<const void*>(record->ExceptionInformation[1]),
                                     reinterpret_cast<const ThrowInfo*>(record->ExceptionInformation[2]));
}

void __cdecl __ExceptionPtrCopyException(void* place, const void* object, const void* info)
{
    PointerAt(place) = {Hold(object, static_cast<const ThrowInfo*>(info)), nullptr};
}

[[noreturn]] void __cdecl __ExceptionPtrRethrow(const void* place)
{
    Held* const held = PointerAt(place).held;
    if (!held)
        abort();
    // Whoever catches it destroys it, so it gets an object of its own; that lives as long as this frame, which the
    // handler runs above.
    const Description description(held->info);
    void* const object = _alloca(description.Size());
    description.Copy(object, held->Object());
    _CxxThrowException(object, const_cast<ThrowInfo*>(held->info));
}

} // namespace

// libc++ takes them for imported, and calls by these addresses.
#define KIVNST_IMPORTED(function, name)                                                                                \
    extern "C" void* const imported##function __asm__("__imp_?" #function "@@" name);                                  \
    extern "C" void* const imported##function = reinterpret_cast<void*>(&(function));

KIVNST_IMPORTED(__ExceptionPtrAssign, "YAXPEAXPEBX@Z")
KIVNST_IMPORTED(__ExceptionPtrCompare, "YA_NPEBX0@Z")
KIVNST_IMPORTED(__ExceptionPtrCopy, "YAXPEAXPEBX@Z")
KIVNST_IMPORTED(__ExceptionPtrCopyException, "YAXPEAXPEBX1@Z")
KIVNST_IMPORTED(__ExceptionPtrCreate, "YAXPEAX@Z")
KIVNST_IMPORTED(__ExceptionPtrCurrentException, "YAXPEAX@Z")
KIVNST_IMPORTED(__ExceptionPtrDestroy, "YAXPEAX@Z")
KIVNST_IMPORTED(__ExceptionPtrRethrow, "YAXPEBX@Z")
KIVNST_IMPORTED(__ExceptionPtrSwap, "YAXPEAX0@Z")
KIVNST_IMPORTED(__ExceptionPtrToBool, "YA_NPEBX@Z")
