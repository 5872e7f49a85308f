// Replacing what the library, or another module, calls of the system.
#pragma once

#include <windows.h>

namespace Tests
{

/// The address in a module's import table that holds the function `name`. Ends the test program when the module does
/// not import it: a hook that hooks nothing would make its test worthless.
void** FindImport(const char* name, const wchar_t* module = L"KivNst.dll");

/// Lets `module`, and it alone, call `replacement` instead of the function `name` of the system, as long as it lives.
template <class Function>
class ImportHook
{
public:
    ImportHook(const char* name, Function* replacement, const wchar_t* module = L"KivNst.dll")
        : m_slot(FindImport(name, module)),
          m_original(Exchange(reinterpret_cast<void*>(replacement)))
    {
    }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook() { Exchange(m_original); }

    /// The system's function.
    Function* Original() const noexcept { return reinterpret_cast<Function*>(m_original); }

private:
    void* Exchange(void* function) noexcept
    {
        DWORD protection = 0;
        VirtualProtect(m_slot, sizeof(*m_slot), PAGE_READWRITE, &protection);
        return InterlockedExchangePointer(m_slot, function);
    }

    void** m_slot;
    void* m_original;
};

// What the C runtime exports behind _vscwprintf and _vsnwprintf_s, by which the library formats. A list of arguments is
// a plain address here.
#if defined(_MSC_VER)
using CountFormatted = int(unsigned long long, wchar_t*, std::size_t, const wchar_t*, void*, char*);
using WriteFormatted = int(unsigned long long, wchar_t*, std::size_t, std::size_t, const wchar_t*, void*, char*);
inline constexpr auto countFormattedName = "__stdio_common_vswprintf";
inline constexpr auto writeFormattedName = "__stdio_common_vsnwprintf_s";
#else
using CountFormatted = int(const wchar_t*, char*);
using WriteFormatted = int(wchar_t*, std::size_t, std::size_t, const wchar_t*, char*);
inline constexpr auto countFormattedName = "_vscwprintf";
inline constexpr auto writeFormattedName = "_vsnwprintf_s";
#endif

/// While it lives, the library gets no memory from its heap.
class NoMemory
{
public:
    NoMemory();

private:
    ImportHook<void*(std::size_t)> m_hook;
};

} // namespace Tests
