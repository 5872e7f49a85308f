// Loading services and providers, and calling a service's entry.
#include "testbed/mapi/ServiceModule.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/mapi/ServiceAdmin.h"
#include "testbed/mapi/ServiceFile.h"
#include "testbed/mapi/SupportObject.h"
#include "testbed/mapi/ThisModule.h"

#include <map>

namespace Testbed
{
namespace
{
Mutex g_modulesLock;
std::map<std::wstring, std::shared_ptr<ServiceModule>>& Loaded()
{
    static std::map<std::wstring, std::shared_ptr<ServiceModule>> modules;
    return modules;
}
} // namespace

std::wstring ServiceModule::FileName(const std::wstring& name)
{
    const size_t period = std::min(name.find(L'.'), name.size());
    return name.substr(0, period) + L"32" + name.substr(period);
}

std::shared_ptr<ServiceModule> ServiceModule::Load(const std::wstring& name)
{
    const std::wstring file = FileName(name);
    const std::lock_guard guard(g_modulesLock);
    if (const auto known = Loaded().find(file); known != Loaded().end())
        return known->second;
    HMODULE module = LoadLibraryW(file.c_str());
    if (!module && std::filesystem::path(file).is_relative())
    {
        const std::filesystem::path beside = ThisModulePath().replace_filename(file);
        module = LoadLibraryExW(beside.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    if (!module)
    {
        const DWORD error = GetLastError();
        Fail(MAPI_E_NOT_FOUND, L"The module \"" + file + L"\", which stands in the profile as \"" + name +
                                   L"\", cannot be loaded (error " + std::to_wstring(error) + L").");
    }
    const std::shared_ptr<ServiceModule> loaded(new ServiceModule(module, file));
    Loaded()[file] = loaded;
    return loaded;
}

void ServiceModule::UnloadAll() noexcept
{
    std::map<std::wstring, std::shared_ptr<ServiceModule>> dropped;
    const std::lock_guard guard(g_modulesLock);
    dropped.swap(Loaded());
}

ServiceModule::~ServiceModule()
{
    FreeLibrary(m_module);
}

FARPROC ServiceModule::FindExport(const std::string& name) const
{
    const FARPROC function = GetProcAddress(m_module, name.c_str());
    if (!function)
        Fail(MAPI_E_VERSION, L"The module \"" + m_name + L"\" does not export \"" + WideFromAnsi(name) + L"\".");
    return function;
}

EntryResult CallServiceEntry(const std::shared_ptr<Profile>& profile, const Uid& service, const EntryCall& call,
                             const MapiMemory& memory)
{
    const PropertyBag section = profile->Section(service);
    const std::wstring dllName = TextOf(section, PR_SERVICE_DLL_NAME);
    const std::wstring entryName = TextOf(section, PR_SERVICE_ENTRY_NAME);
    EntryResult called;
    if (dllName.empty() || entryName.empty())
        return called;
    const auto module = ServiceModule::Load(dllName);
    const auto entry = module->Find<LPMSGSERVICEENTRY>(AnsiFromWide(entryName));

    ComPtr<IMalloc> allocator;
    Check(CoGetMalloc(1, allocator.Put()), L"CoGetMalloc failed.");
    SupportContext context;
    context.kind = SupportKind::Configuration;
    context.profile = profile;
    context.ownSection = service;
    context.dllName = AnsiFromWide(dllName);
    context.memory = memory;
    const ComPtr<IMAPISupport> support = CreateSupportObject(std::move(context));
    // What the entry creates by it is created without asking the entry again.
    const auto definition = ServiceFile::Find(TextOf(section, PR_SERVICE_NAME));
    const ComPtr<IProviderAdmin> admin =
        CreateProviderAdmin(profile, service, definition ? definition->providers : std::vector<ProviderDefinition>(),
                            SectionUser::Entry, memory);

    MapiBlock<MAPIERROR> error(memory);
    called.called = true;
    called.result = entry(module->Handle(), allocator.Get(), support.Get(), call.uiParam, call.flags, call.context,
                          call.valueCount, call.values, admin.Get(), error.Put());
    if (error)
        called.text = TextArgument(error->lpszError, call.flags);
    return called;
}
} // namespace Testbed
