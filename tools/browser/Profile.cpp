// Administering profiles and message services.
#include "tools/browser/Profile.h"

#include "nst/KivNstCore.h"
#include "tools/browser/MapiTools.h"
#include "tools/setup/Locations.h"
#include "tools/setup/Probe.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>

using namespace Common;

namespace Browser
{
namespace
{
constexpr auto temporaryPrefix = L"archive_browser_temporary_";

bool SameName(const std::wstring& a, const std::wstring& b)
{
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

MAPIUID* Uid(const MAPIUID& uid) noexcept
{
    // MAPI's methods take it without const and do not write to it.
    return const_cast<MAPIUID*>(&uid);
}

// Whether what `result` names may come from a section that somebody else has open.
std::wstring InUse(HRESULT result)
{
    return result == MAPI_E_NO_ACCESS ? L" (another program may have its profile section open)" : L"";
}

bool Runs(DWORD process)
{
    const HANDLE handle = OpenProcess(SYNCHRONIZE, FALSE, process);
    if (!handle)
        return GetLastError() == ERROR_ACCESS_DENIED;
    const bool runs = WaitForSingleObject(handle, 0) == WAIT_TIMEOUT;
    CloseHandle(handle);
    return runs;
}

// Removes the temporary profiles of processes that are no more.
void RemoveLeftovers(const Mapi& mapi)
{
    const std::wstring prefix = temporaryPrefix;
    for (const ProfileRow& row : ListProfiles(mapi))
    {
        if (!row.name.starts_with(prefix))
            continue;
        const unsigned long process = std::wcstoul(row.name.c_str() + prefix.size(), nullptr, 10);
        if (process == GetCurrentProcessId() || Runs(process))
            continue;
        try
        {
            DeleteProfile(mapi, row.name);
        }
        catch (const Failure&)
        {
            // Another browser was quicker, or it will be tried again by the next.
        }
    }
}

std::wstring InfText(const std::wstring& file, const std::wstring& section, const wchar_t* key)
{
    wchar_t text[1024] = {};
    GetPrivateProfileStringW(section.c_str(), key, L"", text, 1024, file.c_str());
    return text;
}

// The names of a list that commas part.
std::vector<std::wstring> Parts(const std::wstring& list)
{
    std::vector<std::wstring> parts;
    for (size_t begin = 0; begin <= list.size();)
    {
        const size_t end = std::min(list.find(L',', begin), list.size());
        const size_t first = list.find_first_not_of(L' ', begin);
        if (first < end)
            parts.push_back(list.substr(first, list.find_last_not_of(L' ', end - 1) + 1 - first));
        begin = end + 1;
    }
    return parts;
}

// What is wrong with a host's module, as far as archive-probe tells; empty when it is nothing.
std::wstring ExplainModule(const std::wstring& path)
{
    try
    {
        const std::vector<Setup::DllProblem> problems = Setup::ProbeDll(path);
        return problems.empty() ? std::wstring() : problems.front().detail + L" (" + problems.front().kind + L")";
    }
    catch (const std::exception&)
    {
        // Without that program there is nothing to say.
        return {};
    }
}

std::wstring FoundOnPath(const std::wstring& name)
{
    wchar_t path[1024] = {};
    return SearchPathW(nullptr, name.c_str(), nullptr, 1024, path, nullptr) != 0 ? path : std::wstring();
}

} // namespace

std::vector<ProfileRow> ListProfiles(const Mapi& mapi)
{
    const auto admin = mapi.Profiles();
    ComPtr<IMAPITable> table;
    CheckCall(mapi.Memory(), *admin, admin->GetProfileTable(0, table.Put()), L"IProfAdmin::GetProfileTable",
              L"MAPI does not list its profiles");
    std::vector<ProfileRow> profiles;
    for (const Row& row : ReadTable(mapi.Memory(), *table, {PR_DISPLAY_NAME_A, PR_DEFAULT_PROFILE}))
        profiles.push_back({row[0].AsText(), !row[1].IsError() && row[1].AsLong() != 0});
    return profiles;
}

std::wstring ProfileOrDefault(const Mapi& mapi, const std::wstring& name)
{
    if (!name.empty())
        return name;
    for (const ProfileRow& row : ListProfiles(mapi))
        if (row.isDefault)
            return row.name;
    return {};
}

bool ProfileExists(const Mapi& mapi, const std::wstring& name)
{
    const auto profiles = ListProfiles(mapi);
    return std::any_of(profiles.begin(), profiles.end(),
                       [&](const ProfileRow& row) { return SameName(row.name, name); });
}

void CreateProfile(const Mapi& mapi, const std::wstring& name)
{
    const auto admin = mapi.Profiles();
    NarrowName narrow(name);
    CheckCall(mapi.Memory(), *admin, admin->CreateProfile(narrow.Get(), nullptr, 0, 0), L"IProfAdmin::CreateProfile",
              L"The profile \"" + name + L"\" cannot be made");
}

void DeleteProfile(const Mapi& mapi, const std::wstring& name)
{
    const auto admin = mapi.Profiles();
    NarrowName narrow(name);
    CheckCall(mapi.Memory(), *admin, admin->DeleteProfile(narrow.Get(), 0), L"IProfAdmin::DeleteProfile",
              L"The profile \"" + name + L"\" cannot be removed");
}

Services::Services(const Mapi& mapi, const std::wstring& profile) : m_memory(mapi.Memory()), m_profile(profile)
{
    const auto admin = mapi.Profiles();
    NarrowName name(profile);
    CheckCall(m_memory, *admin, admin->AdminServices(name.Get(), nullptr, 0, 0, m_admin.Put()),
              L"IProfAdmin::AdminServices", L"The services of the profile \"" + profile + L"\" cannot be administered");
}

std::vector<ServiceRow> Services::List() const
{
    ComPtr<IMAPITable> table;
    CheckCall(m_memory, *m_admin, m_admin->GetMsgServiceTable(0, table.Put()), L"IMsgServiceAdmin::GetMsgServiceTable",
              L"The profile \"" + m_profile + L"\" does not list its services");
    std::vector<ServiceRow> services;
    for (const Row& row : ReadTable(
             m_memory, *table,
             {PR_SERVICE_UID, PR_SERVICE_NAME_A, PR_DISPLAY_NAME_A, PR_SERVICE_DLL_NAME_A, PR_SERVICE_ENTRY_NAME}))
    {
        if (row[0].AsBytes().size() != sizeof(MAPIUID))
            continue;
        ServiceRow service{{}, row[1].AsText(), row[2].AsText(), row[3].AsText(), row[4].AsText()};
        std::memcpy(service.uid.ab, row[0].AsBytes().data(), sizeof(MAPIUID));
        services.push_back(std::move(service));
    }
    return services;
}

std::optional<ServiceRow> Services::Find(const std::wstring& name) const
{
    for (ServiceRow& service : List())
        if (SameName(service.name, name))
            return std::move(service);
    return {};
}

MAPIUID Services::Create(const std::wstring& name)
{
    const auto admin = m_admin.As<IMsgServiceAdmin2>(IID_IMsgServiceAdmin2);
    if (!admin)
        Fail(MAPI_E_NO_SUPPORT, L"This MAPI is too old: its administration has no CreateMsgServiceEx.");
    const auto before = List();
    NarrowName narrow(name);
    MAPIUID uid{};
    const HRESULT result = admin->CreateMsgServiceEx(narrow.Get(), narrow.Get(), 0, 0, &uid);
    if (SUCCEEDED(result))
        return uid;
    const std::wstring said = ExtendedError(m_memory, *admin, result);
    LogCause(L"IMsgServiceAdmin2::CreateMsgServiceEx", result, said);
    // Whether a service whose entry point failed stays behind is nowhere said.
    for (const ServiceRow& row : List())
    {
        if (std::none_of(before.begin(), before.end(),
                         [&](const ServiceRow& old) { return std::memcmp(&old.uid, &row.uid, sizeof(MAPIUID)) == 0; }))
        {
            m_admin->DeleteMsgService(Uid(row.uid));
        }
    }
    std::wstring explained = ExplainService(name);
    if (!explained.empty())
        Fail(result, std::move(explained));
    Fail(result, FailureText(L"The message service \"" + name + L"\" cannot be added to the profile \"" + m_profile +
                                 L"\"" + InUse(result),
                             result, said));
}

void Services::Configure(const ServiceRow& service, const std::vector<PropValue>& values)
{
    const MapiBlock<SPropValue> array(m_memory, MakePropArray(m_memory, values));
    const HRESULT result =
        m_admin->ConfigureMsgService(Uid(service.uid), 0, MAPI_UNICODE, static_cast<ULONG>(values.size()), array.Get());
    if (SUCCEEDED(result))
        return;
    const std::wstring said = ExtendedError(m_memory, *m_admin, result);
    LogCause(L"IMsgServiceAdmin::ConfigureMsgService", result, said);
    std::wstring explained = ExplainService(service.name);
    if (!explained.empty())
        Fail(result, std::move(explained));
    Fail(result, FailureText(L"The message service \"" + service.name + L"\" of the profile \"" + m_profile +
                                 L"\" cannot be configured" + InUse(result),
                             result, said));
}

void Services::Delete(const MAPIUID& uid)
{
    CheckCall(m_memory, *m_admin, m_admin->DeleteMsgService(Uid(uid)), L"IMsgServiceAdmin::DeleteMsgService",
              L"A message service of the profile \"" + m_profile + L"\" cannot be removed");
}

std::vector<PropValue> Services::Read(const ServiceRow& service, const std::vector<ULONG>& tags) const
{
    ComPtr<IProfSect> section;
    const HRESULT result = m_admin->OpenProfileSection(Uid(service.uid), nullptr, 0, section.Put());
    CheckCall(m_memory, *m_admin, result, L"IMsgServiceAdmin::OpenProfileSection",
              L"The profile section of the message service \"" + service.name + L"\" in the profile \"" + m_profile +
                  L"\" cannot be opened" + InUse(result));
    return ReadProps(m_memory, *section, tags, 0);
}

std::wstring ExplainService(const std::wstring& name)
{
    std::wstring file;
    try
    {
        file = Setup::FindMapiSvcInf().path;
    }
    catch (const std::exception& error)
    {
        return Wide(error.what());
    }
    const auto lacks = [&](const std::wstring& what)
    { return L"MAPISVC.INF (\"" + file + L"\") " + what + L"; \"archive-setup register\" writes it."; };
    if (InfText(file, L"Services", name.c_str()).empty())
        return lacks(L"does not list the message service \"" + name + L"\"");
    std::vector<std::wstring> modules = {InfText(file, name, L"PR_SERVICE_DLL_NAME")};
    const auto providers = Parts(InfText(file, name, L"Providers"));
    if (providers.empty())
        return lacks(L"lists the message service \"" + name + L"\", but its section [" + name + L"] names no provider");
    for (const std::wstring& provider : providers)
    {
        modules.push_back(InfText(file, provider, L"PR_PROVIDER_DLL_NAME"));
        if (modules.back().empty())
            return lacks(L"has no section [" + provider + L"] for the provider of \"" + name + L"\"");
    }
    // What registering an archive store writes.
    const bool isArchive = InfText(file, name, L"PR_SERVICE_ENTRY_NAME") == L"ServiceEntry";
    for (const std::wstring& module : modules)
    {
        if (module.empty())
            continue;
        // What lies with the mail client MAPI finds in its own way.
        const std::wstring loaded = Setup::GetLoadedName(module);
        std::wstring path = FoundOnPath(loaded);
        if (path.empty())
            path = Setup::FindProviderDll(module).value_or(std::wstring());
        if (!path.empty())
        {
            std::wstring problem = isArchive ? ExplainModule(path) : std::wstring();
            if (!problem.empty())
                return L"MAPI cannot use the module of the message service \"" + name + L"\": " + problem + L".";
            continue;
        }
        const std::wstring plain = FoundOnPath(module);
        return L"For the message service \"" + name + L"\" MAPI loads \"" + loaded + L"\", which it does not find" +
               (plain.empty() ? std::wstring(L".") : L": \"" + plain + L"\" lacks the \"32\" before its first period.");
    }
    if (isArchive && !Quillon::Nst::GetPstModule())
    {
        return L"The mail client's PST provider, mspst32.dll, is not found or cannot be loaded, and an archive is one "
               L"of "
               L"its stores; repair the mail client.";
    }
    return {};
}

TemporaryProfile::TemporaryProfile(std::shared_ptr<const Mapi> mapi) : m_mapi(std::move(mapi))
{
    static std::atomic<unsigned> number = 0;
    RemoveLeftovers(*m_mapi);
    m_name = temporaryPrefix + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++number);
    CreateProfile(*m_mapi, m_name);
    m_exists = true;
}

TemporaryProfile::~TemporaryProfile()
{
    try
    {
        if (m_exists)
            Delete();
    }
    catch (const std::exception&)
    {
        // The next browser removes it.
    }
}

void TemporaryProfile::Delete()
{
    DeleteProfile(*m_mapi, m_name);
    m_exists = false;
}
} // namespace Browser
