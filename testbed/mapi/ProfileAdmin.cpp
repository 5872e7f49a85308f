// Administration of profiles.
#include "testbed/mapi/ProfileAdmin.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Table.h"
#include "testbed/mapi/ProfileStore.h"
#include "testbed/mapi/ServiceAdmin.h"
#include "testbed/mapi/ServiceFile.h"

namespace Testbed
{
namespace
{
// Profiles have no passwords: none is given, or an empty one.
void RequireNoPassword(LPTSTR password, ULONG flags)
{
    if (!TextArgument(password, flags).empty())
        Fail(MAPI_E_INVALID_PARAMETER, L"A profile has no password.");
}

std::shared_ptr<Profile> FindProfile(const std::wstring& name, HRESULT missing)
{
    auto profile = ProfileStore::Find(name);
    if (!profile)
        Fail(missing, L"There is no profile \"" + name + L"\".");
    return profile;
}

class ProfileAdmin final : public ComObject<IProfAdmin, &IID_IProfAdmin>
{
public:
    explicit ProfileAdmin(const MapiMemory& memory) : m_memory(memory) {}

    MAPI_IPROFADMIN_METHODS(override)

private:
    MapiMemory m_memory;
    LastError m_lastError{L"MAPI"};
};

STDMETHODIMP ProfileAdmin::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP ProfileAdmin::GetProfileTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lppTable);
                       RequireFlags(ulFlags, MAPI_UNICODE);
                       const std::wstring chosen = ProfileStore::Default();
                       std::vector<PropertyBag> rows;
                       for (const std::wstring& name : ProfileStore::Names())
                           rows.push_back(PropertyBag({PropValue::String(PR_DISPLAY_NAME_W, name),
                                                       PropValue::Boolean(PR_DEFAULT_PROFILE, name == chosen)}));
                       *lppTable =
                           CreateTable(std::make_shared<MemoryRows>(
                                           std::vector<ULONG>{PR_DISPLAY_NAME, PR_DEFAULT_PROFILE}, std::move(rows)),
                                       m_memory, ulFlags, L"MAPI")
                               .Detach();
                   });
}

STDMETHODIMP ProfileAdmin::CreateProfile(LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG_PTR ulUIParam,
                                         ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszProfileName);
                       RequireFlags(ulFlags, MAPI_DEFAULT_SERVICES | MAPI_DIALOG | MAPI_UNICODE);
                       RequireNoPassword(lpszPassword, ulFlags);
                       const auto profile = ProfileStore::Create(TextArgument(lpszProfileName, ulFlags));
                       if ((ulFlags & MAPI_DEFAULT_SERVICES) == 0)
                           return;
                       const ULONG ui = ulFlags & MAPI_DIALOG ? SERVICE_UI_ALLOWED : 0;
                       for (const std::wstring& service : ServiceFile::DefaultServices())
                           CreateService(profile, service, {}, ulUIParam, ui, m_memory);
                   });
}

STDMETHODIMP ProfileAdmin::DeleteProfile(LPTSTR lpszProfileName, ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszProfileName);
                       RequireFlags(ulFlags, MAPI_UNICODE);
                       const std::wstring name = TextArgument(lpszProfileName, ulFlags);
                       const auto profile = FindProfile(name, MAPI_E_NOT_FOUND);
                       for (const Uid& service : ServicesOf(*profile))
                           TellDeletion(profile, service, m_memory);
                       ProfileStore::Delete(name);
                   });
}

STDMETHODIMP ProfileAdmin::ChangeProfilePassword(LPTSTR, LPTSTR, LPTSTR, ULONG ulFlags)
{
    return Guarded(m_lastError, [&] { RequireFlags(ulFlags, MAPI_UNICODE); });
}

STDMETHODIMP ProfileAdmin::CopyProfile(LPTSTR lpszOldProfileName, LPTSTR lpszOldPassword, LPTSTR lpszNewProfileName,
                                       ULONG_PTR, ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszOldProfileName);
                       Require(lpszNewProfileName);
                       RequireFlags(ulFlags, MAPI_DIALOG | MAPI_UNICODE);
                       RequireNoPassword(lpszOldPassword, ulFlags);
                       const auto from = FindProfile(TextArgument(lpszOldProfileName, ulFlags), MAPI_E_NOT_FOUND);
                       const auto to = ProfileStore::Create(TextArgument(lpszNewProfileName, ulFlags));
                       for (const Uid& uid : from->Sections())
                       {
                           std::vector<PropValue> values;
                           const PropertyBag section = from->Section(uid);
                           for (const auto& [id, value] : section.Values())
                               values.push_back(value);
                           // Of its own has each profile what tells it from all others.
                           if (!to->Section(uid).Find(PROP_ID(PR_SEARCH_KEY)))
                               to->Change(uid, values, {});
                       }
                   });
}

STDMETHODIMP ProfileAdmin::RenameProfile(LPTSTR lpszOldProfileName, LPTSTR lpszOldPassword, LPTSTR lpszNewProfileName,
                                         ULONG_PTR, ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszOldProfileName);
                       Require(lpszNewProfileName);
                       RequireFlags(ulFlags, MAPI_UNICODE);
                       RequireNoPassword(lpszOldPassword, ulFlags);
                       ProfileStore::Rename(TextArgument(lpszOldProfileName, ulFlags),
                                            TextArgument(lpszNewProfileName, ulFlags));
                   });
}

STDMETHODIMP ProfileAdmin::SetDefaultProfile(LPTSTR lpszProfileName, ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       RequireFlags(ulFlags, MAPI_UNICODE);
                       if (lpszProfileName && TextArgument(lpszProfileName, ulFlags).empty())
                           Fail(MAPI_E_NOT_FOUND, L"A profile has a name.");
                       ProfileStore::SetDefault(TextArgument(lpszProfileName, ulFlags));
                   });
}

STDMETHODIMP ProfileAdmin::AdminServices(LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG_PTR, ULONG ulFlags,
                                         LPSERVICEADMIN* lppServiceAdmin)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszProfileName);
                       Require(lppServiceAdmin);
                       RequireFlags(ulFlags, MAPI_DIALOG | MAPI_UNICODE);
                       RequireNoPassword(lpszPassword, ulFlags);
                       *lppServiceAdmin =
                           CreateServiceAdmin(FindProfile(TextArgument(lpszProfileName, ulFlags), MAPI_E_LOGON_FAILED),
                                              m_memory)
                               .Detach();
                   });
}
} // namespace

ComPtr<IProfAdmin> CreateProfileAdmin(const MapiMemory& memory)
{
    return MakeObject<ProfileAdmin>(memory);
}
} // namespace Testbed
