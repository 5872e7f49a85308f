// A module's import table.
#include "tests/common/ImportHook.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Tests
{

void** FindImport(const char* name, const wchar_t* importing)
{
    auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(importing));
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (const auto* module = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports); module->Name != 0;
         ++module)
    {
        const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + module->OriginalFirstThunk);
        auto* functions = reinterpret_cast<IMAGE_THUNK_DATA*>(base + module->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++functions)
        {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            const auto* const entry = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(entry->Name), name) == 0)
                return reinterpret_cast<void**>(&functions->u1.Function);
        }
    }
    std::fprintf(stderr, "tests: %ls does not import %s\n", importing, name);
    std::exit(2);
}

NoMemory::NoMemory()
    : m_hook("malloc", [](std::size_t) -> void* { return nullptr; })
{
}

} // namespace Tests
