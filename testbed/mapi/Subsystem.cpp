// Initialising MAPI, logging on, sharing a session.
#include "testbed/mapi/Subsystem.h"

#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "common/Text.h"
#include "testbed/mapi/Dispatcher.h"
#include "testbed/mapi/ProfileAdmin.h"
#include "testbed/mapi/ProfileStore.h"
#include "testbed/mapi/Session.h"

#include <chrono>

namespace Testbed
{
namespace
{
constexpr ULONG noCoInit = 0x00000008;
constexpr std::chrono::seconds shortTime(3);

Mutex g_subsystemLock;
ULONG g_count = 0;
std::timed_mutex g_logon;

// The session that clients share, and how many have it.
struct Shared
{
    std::shared_ptr<Session> session;
    ULONG clients = 0;
};

Shared& SharedSession()
{
    static Shared shared;
    return shared;
}

// How often this thread's calls have initialised COM.
thread_local ULONG t_coInitialized = 0;

ComPtr<IMAPISession> Join(const std::shared_ptr<Session>& session)
{
    ++SharedSession().clients;
    return CreateSessionObject(session,
                               [session]
                               {
                                   {
                                       const std::lock_guard guard(g_subsystemLock);
                                       Shared& shared = SharedSession();
                                       if (--shared.clients != 0)
                                           return;
                                       shared.session.reset();
                                   }
                                   session->End();
                               });
}

ComPtr<IMAPISession> LogOn(const std::wstring& profileName, ULONG flags, const MapiMemory& memory)
{
    if ((flags & MAPI_NEW_SESSION) == 0)
    {
        const std::lock_guard guard(g_subsystemLock);
        if (SharedSession().session)
            return Join(SharedSession().session);
    }
    std::wstring name = profileName;
    if (name.empty() && (flags & MAPI_USE_DEFAULT))
        name = ProfileStore::Default();
    if (name.empty())
    {
        if (flags & MAPI_LOGON_UI)
            Fail(MAPI_E_NO_SUPPORT, L"There is no dialog to choose a profile by.");
        Fail(MAPI_E_LOGON_FAILED, L"No profile is named, and there is no default profile.");
    }
    auto profile = name.size() <= ProfileStore::longestName ? ProfileStore::Find(name) : nullptr;
    if (!profile)
        Fail(MAPI_E_LOGON_FAILED, L"There is no profile \"" + name + L"\".");
    const auto session = std::make_shared<Session>(std::move(profile), flags, memory);
    if (flags & MAPI_ALLOW_OTHERS)
    {
        const std::lock_guard guard(g_subsystemLock);
        if (!SharedSession().session)
        {
            SharedSession().session = session;
            return Join(session);
        }
    }
    return CreateSessionObject(session, [session] { session->End(); });
}
} // namespace

HRESULT Subsystem::Initialize(const MAPIINIT_0* init) noexcept
{
    if (init && init->ulVersion != MAPI_INIT_VERSION)
        return MAPI_E_INVALID_PARAMETER;
    const ULONG flags = init ? init->ulFlags : 0;
    if (flags & ~ULONG(MAPI_MULTITHREAD_NOTIFICATIONS | MAPI_NT_SERVICE | noCoInit))
        return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & noCoInit) == 0)
    {
        const HRESULT result = CoInitialize(nullptr);
        if (SUCCEEDED(result))
            ++t_coInitialized;
        else if (result != RPC_E_CHANGED_MODE)
            return result;
    }
    LastError lastError(L"MAPI");
    return Guarded(lastError,
                   [&]
                   {
                       const std::lock_guard guard(g_subsystemLock);
                       if (g_count == 0)
                           Dispatcher::Start((flags & MAPI_MULTITHREAD_NOTIFICATIONS) != 0);
                       ++g_count;
                   });
}

void Subsystem::Uninitialize() noexcept
{
    std::shared_ptr<Session> left;
    bool last = false;
    {
        const std::lock_guard guard(g_subsystemLock);
        if (g_count != 0)
        {
            --g_count;
            last = g_count == 0;
        }
        if (last)
            left = std::exchange(SharedSession(), {}).session;
    }
    if (left)
        left->End();
    if (last)
    {
        Dispatcher::Stop();
        ServiceModule::UnloadAll();
    }
    if (t_coInitialized)
    {
        --t_coInitialized;
        CoUninitialize();
    }
}

bool Subsystem::Initialized() noexcept
{
    const std::lock_guard guard(g_subsystemLock);
    return g_count != 0;
}

HRESULT Subsystem::LogonEx(const void* profileName, const void* password, ULONG flags, const MapiMemory& memory,
                           IMAPISession** session) noexcept
{
    constexpr ULONG known = MAPI_LOGON_UI | MAPI_NEW_SESSION | MAPI_ALLOW_OTHERS | MAPI_EXPLICIT_PROFILE |
                            MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_FORCE_DOWNLOAD | MAPI_SERVICE_UI_ALWAYS |
                            MAPI_NO_MAIL | MAPI_NT_SERVICE | MAPI_PASSWORD_UI | MAPI_TIMEOUT_SHORT |
                            mapiBackgroundSession | MAPI_UNICODE;
    LastError lastError(L"MAPI");
    return Guarded(lastError,
                   [&]() -> HRESULT
                   {
                       if (!session)
                           return MAPI_E_INVALID_PARAMETER;
                       *session = nullptr;
                       if (!Initialized())
                           return MAPI_E_NOT_INITIALIZED;
                       RequireFlags(flags, known);
                       if (!TextArgument(password, flags).empty())
                           return MAPI_E_LOGON_FAILED;
                       std::unique_lock turn(g_logon, std::defer_lock);
                       if ((flags & MAPI_TIMEOUT_SHORT) == 0)
                           turn.lock();
                       else if (!turn.try_lock_for(shortTime))
                           return MAPI_E_TIMEOUT;
                       *session = LogOn(TextArgument(profileName, flags), flags, memory).Detach();
                       return S_OK;
                   });
}

HRESULT Subsystem::AdminProfiles(ULONG flags, const MapiMemory& memory, IProfAdmin** admin) noexcept
{
    LastError lastError(L"MAPI");
    return Guarded(lastError,
                   [&]() -> HRESULT
                   {
                       if (!admin)
                           return MAPI_E_INVALID_PARAMETER;
                       *admin = nullptr;
                       if (!Initialized())
                           return MAPI_E_NOT_INITIALIZED;
                       RequireFlags(flags, 0);
                       *admin = CreateProfileAdmin(memory).Detach();
                       return S_OK;
                   });
}
} // namespace Testbed
