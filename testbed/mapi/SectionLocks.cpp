// Locks on profile sections, kept by the existence of named objects.
#include "testbed/mapi/SectionLocks.h"

#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "testbed/mapi/Turn.h"

namespace Testbed
{
namespace
{
struct HandleCloser
{
    void operator()(void* handle) const noexcept { CloseHandle(handle); }
};

bool Exists(const std::wstring& name)
{
    const HANDLE found = OpenEventW(SYNCHRONIZE, FALSE, name.c_str());
    if (found)
        CloseHandle(found);
    return found != nullptr;
}
} // namespace

std::shared_ptr<void> LockSection(const Profile& profile, const Uid& uid, ULONG flags)
{
    if (profile.Id().empty())
        return nullptr;
    const bool modify = (flags & MAPI_MODIFY) != 0;
    const std::wstring name = L"KivNst testbed: section " + profile.Id() + L" " + uid.Text();
    const Turn turn(L"KivNst testbed: section locks");
    if (Exists(name + L" written") || (modify && Exists(name + L" read")))
        Fail(MAPI_E_NO_ACCESS, L"The profile section " + uid.Text() + L" is open already.");
    const HANDLE mark = CreateEventW(nullptr, TRUE, FALSE, (name + (modify ? L" written" : L" read")).c_str());
    if (!mark)
        Fail(MAPI_E_NOT_ENOUGH_RESOURCES, L"The profile section cannot be taken.");
    return {mark, HandleCloser()};
}

bool LocksProviderSections()
{
    wchar_t value[2] = {};
    return GetEnvironmentVariableW(L"KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS", value, 2) == 1 && value[0] == L'1';
}

ComPtr<IProfSect> OpenLockedSection(const std::shared_ptr<Profile>& profile, const Uid& uid, LPCIID iid, ULONG flags,
                                    SectionUser user, const MapiMemory& memory)
{
    RequireFlags(flags, MAPI_MODIFY | MAPI_DEFERRED_ERRORS | mapiForceAccess);
    if (iid && !IsEqualIID(*iid, IID_IProfSect) && !IsEqualIID(*iid, IID_IMAPIProp))
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A profile section is an IProfSect.");
    return OpenSection(profile, uid, flags, user, memory, LockSection(*profile, uid, flags));
}
} // namespace Testbed
