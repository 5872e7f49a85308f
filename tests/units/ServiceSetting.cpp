// The resident PST module.
#include "tests/units/ServiceSetting.h"

namespace Tests
{

HMODULE ResidentPstModule()
{
    static const HMODULE module = []
    {
        static const TempFolder folder;
        CopyDouble(L"PstDouble.dll", folder / L"mspst32.dll");
        return LoadLibraryW((folder / L"mspst32.dll").c_str());
    }();
    return module;
}

PstDouble& ResidentPstFunctions()
{
    auto& functions =
        *reinterpret_cast<PstDouble*>(reinterpret_cast<void*>(GetProcAddress(ResidentPstModule(), "pstDouble")));
    functions = PstDouble();
    return functions;
}

} // namespace Tests
