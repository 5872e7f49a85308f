// Profile sections as MAPI objects.
#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/NotOffered.h"
#include "testbed/mapi/CopyEngine.h"
#include "testbed/mapi/Profile.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr bool IsSecure(ULONG id)
{
    return id >= PROP_ID_SECURE_MIN && id <= PROP_ID_SECURE_MAX;
}

// A section's properties, which change with each call.
class SectionProperties final : public PropertySource, public PropertySink
{
public:
    SectionProperties(std::shared_ptr<Profile> profile, const Uid& uid, std::set<ULONG> readOnly)
        : m_profile(std::move(profile)),
          m_uid(uid),
          m_readOnly(std::move(readOnly))
    {
        m_readOnly.insert({PROP_ID(PR_OBJECT_TYPE), PROP_ID(PR_PROFILE_NAME)});
    }

    std::optional<Description> Describe(ULONG id) const override { return All().Describe(id); }
    std::optional<PropValue> Load(ULONG id) const override { return All().Load(id); }

    std::vector<ULONG> Tags() const override
    {
        std::vector<ULONG> tags = All().Tags();
        std::erase_if(tags, [](ULONG tag) { return IsSecure(PROP_ID(tag)); });
        return tags;
    }

    SCODE Set(const PropValue& value) override
    {
        if (value.Id() >= firstNamedId)
            return MAPI_E_NO_SUPPORT;
        if (m_readOnly.contains(value.Id()))
            return MAPI_E_COMPUTED;
        RequireSection();
        m_profile->Change(m_uid, {value});
        return S_OK;
    }

    SCODE Remove(ULONG tag) override
    {
        if (m_readOnly.contains(PROP_ID(tag)))
            return MAPI_E_COMPUTED;
        RequireSection();
        if (!m_profile->Section(m_uid).Find(PROP_ID(tag)))
            return MAPI_E_NOT_FOUND;
        m_profile->Change(m_uid, {}, {PROP_ID(tag)});
        return S_OK;
    }

private:
    void RequireSection() const
    {
        if (!m_profile->HasSection(m_uid))
            Fail(MAPI_E_OBJECT_DELETED, L"The profile section has been deleted.");
    }

    PropertyBag All() const
    {
        PropertyBag all = m_profile->Section(m_uid);
        all.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_PROFSECT));
        all.Put(PropValue::String(PR_PROFILE_NAME_W, m_profile->Name()));
        return all;
    }

    std::shared_ptr<Profile> m_profile;
    Uid m_uid;
    std::set<ULONG> m_readOnly;
};

class ProfileSection final : public ComObject<IProfSect, &IID_IProfSect, &IID_IMAPIProp>
{
public:
    ProfileSection(std::shared_ptr<Profile> profile, const Uid& uid, bool modify, SectionUser user,
                   const MapiMemory& memory, std::shared_ptr<void> lock)
        : m_sectionLock(std::move(lock)),
          m_properties(std::move(profile), uid,
                       user == SectionUser::Provider
                           ? std::set<ULONG>{PROP_ID(PR_RESOURCE_FLAGS), PROP_ID(PR_PROVIDER_DLL_NAME)}
                           : std::set<ULONG>()),
          m_modify(modify),
          m_memory(memory)
    {
    }

    MAPI_IMAPIPROP_METHODS(override)

private:
    template <class F>
    HRESULT Call(F&& body) noexcept
    {
        const std::lock_guard guard(m_lock);
        return Guarded(m_lastError, body);
    }

    void RequireModify() const
    {
        if (!m_modify)
            Fail(MAPI_E_NO_ACCESS, L"The profile section is not open for writing.");
    }

    std::shared_ptr<void> m_sectionLock;
    Mutex m_lock;
    SectionProperties m_properties;
    const bool m_modify;
    MapiMemory m_memory;
    LastError m_lastError{L"MAPI profile"};
};

STDMETHODIMP ProfileSection::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP ProfileSection::SaveChanges(ULONG ulFlags)
{
    // Nothing is left to save: a section's changes take effect, and are kept, with the call that makes them.
    return Call([&] { RequireFlags(ulFlags, KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE); });
}

STDMETHODIMP ProfileSection::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                      LPSPropValue* lppPropArray)
{
    return Call(
        [&] { return Testbed::GetProps(m_properties, m_memory, lpPropTagArray, ulFlags, lpcValues, lppPropArray); });
}

STDMETHODIMP ProfileSection::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    return Call([&] { return Testbed::GetPropList(m_properties, m_memory, ulFlags, lppPropTagArray); });
}

STDMETHODIMP ProfileSection::OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*)
{
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

STDMETHODIMP ProfileSection::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    return Call(
        [&]
        {
            RequireModify();
            return Testbed::SetProps(m_properties, m_memory, cValues, lpPropArray, lppProblems);
        });
}

STDMETHODIMP ProfileSection::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    return Call(
        [&]
        {
            RequireModify();
            return Testbed::DeleteProps(m_properties, m_memory, lpPropTagArray, lppProblems);
        });
}

STDMETHODIMP ProfileSection::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR,
                                    LPMAPIPROGRESS, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                    LPSPropProblemArray* lppProblems)
{
    // Without the object's lock: the copying calls the object's own methods.
    return Guarded(m_lastError,
                   [&]
                   {
                       CopyObject(m_memory,
                                  {&IID_IProfSect, this, lpInterface, static_cast<IUnknown*>(lpDestObj), ulFlags},
                                  {ciidExclude, rgiidExclude, lpExcludeProps}, lppProblems);
                   });
}

STDMETHODIMP ProfileSection::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR, LPMAPIPROGRESS, LPCIID lpInterface,
                                       LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       CopyProperties(m_memory, lpIncludeProps,
                                      {&IID_IProfSect, this, lpInterface, static_cast<IUnknown*>(lpDestObj), ulFlags},
                                      lppProblems);
                   });
}

NOT_OFFERED(ProfileSection, GetNamesFromIDs, LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**);
NOT_OFFERED(ProfileSection, GetIDsFromNames, ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*);
} // namespace

ComPtr<IProfSect> OpenSection(const std::shared_ptr<Profile>& profile, const Uid& uid, ULONG flags, SectionUser user,
                              const MapiMemory& memory, std::shared_ptr<void> lock)
{
    const bool modify = (flags & MAPI_MODIFY) != 0;
    if (!profile->HasSection(uid))
    {
        if (!modify)
            Fail(MAPI_E_NOT_FOUND, L"The profile has no section " + uid.Text() + L".");
        profile->Change(uid, {});
    }
    if (user == SectionUser::Client && (flags & mapiForceAccess) == 0 &&
        profile->Section(uid).Find(PROP_ID(PR_PROVIDER_UID)))
        Fail(MAPI_E_NO_ACCESS, L"The section " + uid.Text() + L" is a provider's own.");
    return MakeObject<ProfileSection>(profile, uid, modify, user, memory, std::move(lock));
}
} // namespace Testbed
