// Profile sections as MAPI objects.
#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/CopyEngine.h"
#include "testbed/mapi/Profile.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr ULONG firstNamedId = 0x8000;

constexpr bool IsSecure(ULONG id)
{
    return id >= PROP_ID_SECURE_MIN && id <= PROP_ID_SECURE_MAX;
}

// A section with the changes of the call that is being carried out.
class SectionProperties final : public PropertySource, public PropertySink
{
public:
    SectionProperties(std::shared_ptr<Profile> profile, const Uid& uid) : m_profile(std::move(profile)), m_uid(uid) {}

    bool Exists() const { return m_profile->HasSection(m_uid); }
    void MakeReadOnly(std::vector<ULONG> ids) { m_readOnly = std::move(ids); }

    std::optional<Description> Describe(ULONG id) const override { return Merged().Describe(id); }
    std::optional<PropValue> Load(ULONG id) const override { return Merged().Load(id); }

    std::vector<ULONG> Tags() const override
    {
        std::vector<ULONG> tags = Merged().Tags();
        std::erase_if(tags, [](ULONG tag) { return IsSecure(PROP_ID(tag)); });
        return tags;
    }

    SCODE Set(const PropValue& value) override
    {
        if (value.Id() >= firstNamedId)
            return MAPI_E_NO_SUPPORT;
        if (IsReadOnly(value.Id()))
            return MAPI_E_COMPUTED;
        m_changes[value.Id()] = value;
        return S_OK;
    }

    SCODE Remove(ULONG tag) override
    {
        if (IsReadOnly(PROP_ID(tag)))
            return MAPI_E_COMPUTED;
        if (!Merged().Find(PROP_ID(tag)))
            return MAPI_E_NOT_FOUND;
        m_changes[PROP_ID(tag)] = std::nullopt;
        return S_OK;
    }

    void Save()
    {
        // Taken out first, so that changes that cannot be written do not turn up with a later call.
        const auto changes = std::exchange(m_changes, {});
        if (!m_profile->HasSection(m_uid))
            Fail(MAPI_E_OBJECT_DELETED, L"The profile section has been deleted.");
        std::vector<PropValue> values;
        std::vector<ULONG> removed;
        for (const auto& [id, value] : changes)
            value ? values.push_back(*value) : removed.push_back(id);
        if (!changes.empty())
            m_profile->Change(m_uid, values, removed);
    }

private:
    bool IsReadOnly(ULONG id) const
    {
        return id == PROP_ID(PR_OBJECT_TYPE) || id == PROP_ID(PR_PROFILE_NAME) ||
               std::find(m_readOnly.begin(), m_readOnly.end(), id) != m_readOnly.end();
    }

    PropertyBag Merged() const
    {
        PropertyBag merged = m_profile->Section(m_uid);
        merged.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_PROFSECT));
        merged.Put(PropValue::String(PR_PROFILE_NAME_W, m_profile->Name()));
        for (const auto& [id, value] : m_changes)
            if (value)
                merged.Put(*value);
            else
                merged.Erase(id);
        return merged;
    }

    std::shared_ptr<Profile> m_profile;
    Uid m_uid;
    std::vector<ULONG> m_readOnly;
    std::map<ULONG, std::optional<PropValue>> m_changes;
};

class ProfileSection final : public ComObject<IProfSect, &IID_IProfSect, &IID_IMAPIProp>
{
public:
    ProfileSection(std::shared_ptr<Profile> profile, const Uid& uid, bool modify, SectionUser user,
                   const MapiMemory& memory, std::shared_ptr<void> lock)
        : m_sectionLock(std::move(lock)),
          m_properties(std::move(profile), uid),
          m_modify(modify),
          m_memory(memory)
    {
        if (user == SectionUser::Provider)
            m_properties.MakeReadOnly({PROP_ID(PR_RESOURCE_FLAGS), PROP_ID(PR_PROVIDER_DLL_NAME)});
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
    std::mutex m_lock;
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
            const HRESULT result = Testbed::SetProps(m_properties, m_memory, cValues, lpPropArray, lppProblems);
            m_properties.Save();
            return result;
        });
}

STDMETHODIMP ProfileSection::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    return Call(
        [&]
        {
            RequireModify();
            const HRESULT result = Testbed::DeleteProps(m_properties, m_memory, lpPropTagArray, lppProblems);
            m_properties.Save();
            return result;
        });
}

STDMETHODIMP ProfileSection::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR,
                                    LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                    LPSPropProblemArray* lppProblems)
{
    // Without the object's lock: the copying calls the object's own methods.
    return Guarded(m_lastError,
                   [&]
                   {
                       CopyToArguments arguments;
                       arguments.sourceInterface = &IID_IProfSect;
                       arguments.source = this;
                       arguments.excludedInterfaceCount = ciidExclude;
                       arguments.excludedInterfaces = rgiidExclude;
                       arguments.excludedTags = lpExcludeProps;
                       arguments.progress = lpProgress;
                       arguments.destinationInterface = lpInterface;
                       arguments.destination = static_cast<IUnknown*>(lpDestObj);
                       arguments.flags = ulFlags;
                       std::vector<SPropProblem> problems;
                       CopyObject(m_memory, arguments, problems);
                       if (lppProblems)
                           *lppProblems = problems.empty() ? nullptr : MakeProblemArray(m_memory, problems);
                   });
}

STDMETHODIMP ProfileSection::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR, LPMAPIPROGRESS lpProgress,
                                       LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                       LPSPropProblemArray* lppProblems)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       CopyToArguments arguments;
                       arguments.sourceInterface = &IID_IProfSect;
                       arguments.source = this;
                       arguments.progress = lpProgress;
                       arguments.destinationInterface = lpInterface;
                       arguments.destination = static_cast<IUnknown*>(lpDestObj);
                       arguments.flags = ulFlags;
                       std::vector<SPropProblem> problems;
                       CopyProperties(m_memory, lpIncludeProps, arguments, problems);
                       if (lppProblems)
                           *lppProblems = problems.empty() ? nullptr : MakeProblemArray(m_memory, problems);
                   });
}

STDMETHODIMP ProfileSection::GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**)
{
    return MAPI_E_NO_SUPPORT;
}

STDMETHODIMP ProfileSection::GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*)
{
    return MAPI_E_NO_SUPPORT;
}
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
