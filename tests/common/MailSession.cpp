// The calls by which MAPI brings a message service and its store provider to life.
#include "tests/common/MailSession.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/Notifications.h"
#include "testbed/mapi/SupportObject.h"

namespace Tests
{
namespace
{
class InMemory final : public Profile
{
public:
    explicit InMemory(std::wstring name) : Profile(std::move(name), {}) {}

    std::vector<Uid> Sections() const override
    {
        const std::lock_guard guard(m_lock);
        std::vector<Uid> uids;
        for (const auto& [uid, bag] : m_sections)
            uids.push_back(uid);
        return uids;
    }
    bool HasSection(const Uid& uid) const override
    {
        const std::lock_guard guard(m_lock);
        return m_sections.contains(uid);
    }
    PropertyBag Section(const Uid& uid) const override
    {
        const std::lock_guard guard(m_lock);
        const auto found = m_sections.find(uid);
        return found == m_sections.end() ? PropertyBag() : found->second;
    }
    void Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed) override
    {
        const std::lock_guard guard(m_lock);
        PropertyBag& section = m_sections[uid];
        for (const PropValue& value : values)
            section.Put(value);
        for (const ULONG id : removed)
            section.Erase(id);
    }
    void Remove(const Uid& uid) override
    {
        const std::lock_guard guard(m_lock);
        m_sections.erase(uid);
    }

private:
    mutable std::mutex m_lock;
    std::map<Uid, PropertyBag> m_sections;
};

// Holds a provider's module loaded.
class LoadedModule
{
public:
    explicit LoadedModule(const std::filesystem::path& path) : m_path(path), m_module(LoadLibraryW(path.c_str()))
    {
        if (!m_module)
        {
            Fail(MAPI_E_NOT_FOUND, L"The provider module \"" + path.wstring() + L"\" cannot be loaded (error " +
                                       std::to_wstring(::GetLastError()) + L").");
        }
    }
    ~LoadedModule() { FreeLibrary(m_module); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    HMODULE Handle() const noexcept { return m_module; }

    template <class F>
    F Find(const std::string& name) const
    {
        const auto function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m_module, name.c_str())));
        if (!function)
        {
            Fail(MAPI_E_VERSION,
                 L"The provider module \"" + m_path.wstring() + L"\" does not export \"" + WideFromAnsi(name) + L"\".");
        }
        return function;
    }

private:
    std::filesystem::path m_path;
    HMODULE m_module;
};

ComPtr<IMalloc> TaskAllocator()
{
    ComPtr<IMalloc> allocator;
    Check(CoGetMalloc(1, allocator.Put()), L"CoGetMalloc failed.");
    return allocator;
}

// The text of an extended error in the width that `flags` asked for; empty when there is none.
std::wstring ErrorText(const MAPIERROR* error, ULONG flags)
{
    return error ? TextArgument(error->lpszError, flags) : std::wstring();
}

void GiveText(std::wstring* place, std::wstring text)
{
    if (place)
        *place = std::move(text);
}

// Throws for a failing result of a provider's call, with what the provider had to say.
void CheckCall(HRESULT result, const std::wstring& call, const std::wstring& text)
{
    if (FAILED(result))
        Fail(result, call + L" failed: " + ResultText(result) + (text.empty() ? L"." : L", \"" + text + L"\"."));
}

constexpr const wchar_t* ContextName(ULONG context)
{
    switch (context)
    {
    case MSG_SERVICE_CREATE:
        return L"The message service's creation";
    case MSG_SERVICE_CONFIGURE:
        return L"The message service's configuration";
    case MSG_SERVICE_DELETE:
        return L"The message service's deletion";
    default:
        return L"The message service's entry";
    }
}
} // namespace

std::shared_ptr<Profile> MemoryProfile(std::wstring name)
{
    return std::make_shared<InMemory>(std::move(name));
}

struct MailSession::State
{
    ServiceDefinition service;
    std::shared_ptr<Profile> profile;
    std::shared_ptr<LoadedMapi> mapi;
    std::shared_ptr<StatusRows> status = std::make_shared<StatusRows>();
    std::shared_ptr<Notifications> notifications = std::make_shared<Notifications>();

    // Declared before the objects that live in it, so that it goes last.
    std::unique_ptr<LoadedModule> module;
    ComPtr<IMSProvider> provider;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    Bytes spoolerSecurity;
    ULONG providerVersion = 0;

    const MapiMemory& Memory() const { return mapi->Memory(); }

    std::wstring DllName() const { return service.modulePath.filename().wstring(); }

    ProviderDefinition Definition() const
    {
        return {service.serviceName,
                {PropValue::String(PR_DISPLAY_NAME_W, service.displayName),
                 PropValue::String(PR_PROVIDER_DISPLAY_W, service.displayName),
                 PropValue::String(PR_PROVIDER_DLL_NAME_W, DllName()),
                 PropValue::Long(PR_RESOURCE_TYPE, MAPI_STORE_PROVIDER),
                 PropValue::Long(PR_RESOURCE_FLAGS, static_cast<LONG>(service.resourceFlags))}};
    }

    LoadedModule& Module()
    {
        if (!module)
            module = std::make_unique<LoadedModule>(service.modulePath);
        return *module;
    }

    // The service's section: the one of its name that has an entry.
    std::optional<Uid> FindService() const
    {
        for (const Uid& uid : profile->Sections())
        {
            const PropertyBag section = profile->Section(uid);
            const PropValue* const name = section.Find(PROP_ID(PR_SERVICE_NAME));
            if (name && name->AsText() == service.serviceName && section.Find(PROP_ID(PR_SERVICE_ENTRY_NAME)))
                return uid;
        }
        return {};
    }

    Uid RequireService() const
    {
        const auto uid = FindService();
        if (!uid)
        {
            Fail(MAPI_E_UNCONFIGURED,
                 L"The profile \"" + profile->Name() + L"\" has no message service \"" + service.serviceName + L"\".");
        }
        return *uid;
    }

    Uid RequireProvider() const
    {
        const std::vector<Uid> providers = ProvidersOf(*profile, RequireService());
        if (providers.empty())
            Fail(MAPI_E_UNCONFIGURED, L"The message service \"" + service.serviceName + L"\" has no store provider.");
        return providers.front();
    }

    HRESULT OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object) const
    {
        if (!store)
            return MAPI_E_UNKNOWN_ENTRYID;
        const auto wrapped = UnwrapStoreEntryId(entryId, size);
        if (wrapped && _stricmp(wrapped->dllName.c_str(), AnsiFromWide(DllName()).c_str()) == 0)
        {
            const HRESULT result = store->QueryInterface(iid ? *iid : IID_IMsgStore, reinterpret_cast<void**>(object));
            if (SUCCEEDED(result))
                *type = MAPI_STORE;
            return result;
        }
        return logon ? logon->OpenEntry(size, entryId, iid, flags, type, object)
                     : store->OpenEntry(size, entryId, iid, flags, type, object);
    }

    HRESULT CompareEntryIds(ULONG size1, LPENTRYID entryId1, ULONG size2, LPENTRYID entryId2, ULONG flags,
                            ULONG* result) const
    {
        if (!logon)
        {
            *result = FALSE;
            return S_OK;
        }
        return logon->CompareEntryIDs(size1, entryId1, size2, entryId2, flags, result);
    }

    // A support object whose own section is `section`. It must not keep the session: a provider may keep it longer.
    static ComPtr<IMAPISupport> MakeSupport(const std::shared_ptr<State>& state, const Uid& section)
    {
        SupportContext context;
        context.profile = state->profile;
        context.ownSection = section;
        context.dllName = AnsiFromWide(state->DllName());
        context.memory = state->Memory();
        context.status = state->status;
        context.notifications = state->notifications;
        const std::weak_ptr<State> weak = state;
        context.openEntry =
            [weak](ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object)
        {
            const auto session = weak.lock();
            return session ? session->OpenEntry(size, entryId, iid, flags, type, object) : MAPI_E_END_OF_SESSION;
        };
        context.compareEntryIds =
            [weak](ULONG size1, LPENTRYID entryId1, ULONG size2, LPENTRYID entryId2, ULONG flags, ULONG* result)
        {
            const auto session = weak.lock();
            return session ? session->CompareEntryIds(size1, entryId1, size2, entryId2, flags, result)
                           : MAPI_E_END_OF_SESSION;
        };
        return CreateSupportObject(std::move(context));
    }

    static ComPtr<IProviderAdmin> MakeAdmin(const std::shared_ptr<State>& state, const Uid& service)
    {
        return CreateProviderAdmin(state->profile, service, {state->Definition()}, SectionUser::Entry, state->Memory());
    }

    static HRESULT CallEntry(const std::shared_ptr<State>& state, const Uid& service, ULONG context,
                             const std::vector<PropValue>& values, std::wstring* error, bool withAdmin,
                             bool withSupport)
    {
        LoadedModule& module = state->Module();
        const auto entry = module.Find<LPMSGSERVICEENTRY>(state->service.entryName);
        const ComPtr<IMalloc> allocator = TaskAllocator();
        const ComPtr<IMAPISupport> support = withSupport ? MakeSupport(state, service) : nullptr;
        const ComPtr<IProviderAdmin> admin = withAdmin ? MakeAdmin(state, service) : nullptr;
        const MapiBlock<SPropValue> props(state->Memory(),
                                          values.empty() ? nullptr : MakePropArray(state->Memory(), values));
        MapiBlock<MAPIERROR> mapiError(state->Memory());
        const HRESULT result = entry(module.Handle(), allocator.Get(), support.Get(), 0, MAPI_UNICODE, context,
                                     static_cast<ULONG>(values.size()), props.Get(), admin.Get(), mapiError.Put());
        GiveText(error, ErrorText(mapiError.Get(), MAPI_UNICODE));
        return result;
    }

    // The store's own entry ID from the provider's section; empty when the profile has none yet.
    Bytes StoredEntryId(const Uid& section) const
    {
        const PropertyBag properties = profile->Section(section);
        const PropValue* const value = properties.Find(PROP_ID(PR_ENTRYID));
        if (!value)
            return {};
        const auto unwrapped = UnwrapStoreEntryId(value->AsBytes().data(), value->AsBytes().size());
        if (!unwrapped)
            Fail(MAPI_E_INVALID_ENTRYID, L"The store's entry ID in the profile is not wrapped as MAPI wraps it.");
        return unwrapped->entryId;
    }

    void LogoffStore() noexcept
    {
        if (store)
        {
            ULONG flags = LOGOFF_ORDERLY;
            store->StoreLogoff(&flags);
            store.Reset();
        }
        if (logon)
        {
            ULONG flags = 0;
            logon->Logoff(&flags);
            logon.Reset();
        }
    }

    void Unload() noexcept
    {
        LogoffStore();
        if (provider)
        {
            ULONG flags = 0;
            provider->Shutdown(&flags);
            provider.Reset();
        }
        notifications->Clear();
        module.reset();
    }
};

MailSession::MailSession(SessionOptions options) : m_state(std::make_shared<State>())
{
    if (!options.profile)
        Fail(MAPI_E_INVALID_PARAMETER, L"A mail session needs a profile.");
    m_state->service = std::move(options.service);
    m_state->profile = std::move(options.profile);
    m_state->mapi = options.mapi ? std::move(options.mapi) : LoadedMapi::LoadRegistered();
}

MailSession::~MailSession()
{
    Logoff();
}

const MapiMemory& MailSession::Memory() const noexcept
{
    return m_state->Memory();
}

LoadedMapi& MailSession::Mapi() const noexcept
{
    return *m_state->mapi;
}

Profile& MailSession::ProfileOf() const noexcept
{
    return *m_state->profile;
}

bool MailSession::HasService() const
{
    return m_state->FindService().has_value();
}

Uid MailSession::ServiceSection() const
{
    return m_state->RequireService();
}

Uid MailSession::ProviderSection() const
{
    return m_state->RequireProvider();
}

void MailSession::CreateService()
{
    Profile& profile = *m_state->profile;
    const ServiceDefinition& service = m_state->service;
    if (HasService())
    {
        Fail(MAPI_E_COLLISION, L"The profile \"" + profile.Name() + L"\" has a message service \"" +
                                   service.serviceName + L"\" already.");
    }
    // A module that is not there shall leave no trace in the profile.
    m_state->Module();

    const Uid uid = Uid::Create();
    profile.Change(uid, {PropValue::Uid(PR_SERVICE_UID, uid), PropValue::String(PR_SERVICE_NAME_W, service.serviceName),
                         PropValue::String(PR_DISPLAY_NAME_W, service.displayName),
                         PropValue::String(PR_SERVICE_DLL_NAME_W, m_state->DllName()),
                         PropValue::String8(PR_SERVICE_ENTRY_NAME, service.entryName)});
    try
    {
        CreateProviderSection(profile, uid, m_state->Definition(), {});
        std::wstring text;
        const HRESULT result = State::CallEntry(m_state, uid, MSG_SERVICE_CREATE, {}, &text, true, true);
        CheckCall(result, ContextName(MSG_SERVICE_CREATE), text);
    }
    catch (...)
    {
        for (const Uid& provider : ProvidersOf(profile, uid))
            profile.Remove(provider);
        profile.Remove(uid);
        throw;
    }
}

void MailSession::Configure(const std::vector<PropValue>& values)
{
    std::wstring text;
    const HRESULT result = CallEntry(MSG_SERVICE_CONFIGURE, values, &text);
    CheckCall(result, ContextName(MSG_SERVICE_CONFIGURE), text);
}

void MailSession::ConfigurePath(const std::wstring& pstPath)
{
    Configure({PropValue::String(Tags::offlineStorePathW, pstPath)});
}

void MailSession::DeleteService()
{
    m_state->LogoffStore();
    const Uid service = ServiceSection();
    std::wstring text;
    const HRESULT result = CallEntry(MSG_SERVICE_DELETE, {}, &text);
    CheckCall(result, ContextName(MSG_SERVICE_DELETE), text);
    for (const Uid& provider : ProvidersOf(*m_state->profile, service))
    {
        m_state->profile->Remove(provider);
        m_state->status->Remove(provider);
    }
    m_state->profile->Remove(service);
}

HRESULT MailSession::CallEntry(ULONG context, const std::vector<PropValue>& values, std::wstring* error, bool withAdmin,
                               bool withSupport)
{
    return State::CallEntry(m_state, ServiceSection(), context, values, error, withAdmin, withSupport);
}

void MailSession::LoadProvider()
{
    State& state = *m_state;
    if (state.provider)
        return;
    LoadedModule& module = state.Module();
    // The header declares a function type, not a pointer type, for this one.
    const auto init = module.Find<MSPROVIDERINIT*>("MSProviderInit");
    const ComPtr<IMalloc> allocator = TaskAllocator();
    ComPtr<IMSProvider> provider;
    ULONG version = 0;
    const HRESULT result = init(module.Handle(), allocator.Get(), state.Memory().AllocateBufferRoutine(),
                                state.Memory().AllocateMoreRoutine(), state.Memory().FreeBufferRoutine(), 0,
                                CURRENT_SPI_VERSION, &version, provider.Put());
    state.providerVersion = version;
    CheckCall(result, L"The provider's initialisation", {});
    if (!provider)
        Fail(MAPI_E_CALL_FAILED, L"The provider's initialisation gave no provider object.");
    state.provider = std::move(provider);
}

HRESULT MailSession::TryLogon(const LogonOptions& options, std::wstring* error)
{
    State& state = *m_state;
    state.LogoffStore();
    LoadProvider();
    const Uid section = ProviderSection();
    const Bytes entryId = state.StoredEntryId(section);
    // MAPI hands out a block of its own; the provider may hold on to it for the call only.
    MapiBlock<ENTRYID> entryIdBlock(state.Memory());
    if (!entryId.empty())
    {
        entryIdBlock =
            MapiBlock<ENTRYID>(state.Memory(), static_cast<ENTRYID*>(state.Memory().Allocate(entryId.size())));
        std::memcpy(entryIdBlock.Get(), entryId.data(), entryId.size());
    }
    std::wstring wideName = state.profile->Name();
    std::string narrowName = AnsiFromWide(wideName);
    void* const name = options.flags & MAPI_UNICODE ? static_cast<void*>(wideName.data()) : narrowName.data();

    ULONG securitySize = 0;
    MapiBlock<BYTE> security(state.Memory());
    MapiBlock<MAPIERROR> mapiError(state.Memory());
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    const ComPtr<IMAPISupport> support = State::MakeSupport(m_state, section);
    const HRESULT result = state.provider->Logon(
        support.Get(), 0, static_cast<LPTSTR>(name), static_cast<ULONG>(entryId.size()), entryIdBlock.Get(),
        options.flags, options.interfaceId, &securitySize, security.Put(), mapiError.Put(), logon.Put(), store.Put());
    GiveText(error, ErrorText(mapiError.Get(), options.flags));
    if (SUCCEEDED(result))
    {
        state.logon = std::move(logon);
        state.store = std::move(store);
        state.spoolerSecurity.assign(security.Get(), security.Get() + (security ? securitySize : 0));
    }
    return result;
}

void MailSession::Logon(const LogonOptions& options)
{
    std::wstring text;
    CheckCall(TryLogon(options, &text), L"The logon to the message store", text);
    if (!m_state->store)
    {
        Logoff();
        Fail(MAPI_E_LOGON_FAILED, L"The logon to the message store gave no store.");
    }
}

HRESULT MailSession::SpoolerLogon(ULONG flags, ComPtr<IMSLogon>& logon, ComPtr<IMsgStore>& store, std::wstring* error)
{
    State& state = *m_state;
    LoadProvider();
    const Uid section = ProviderSection();
    Bytes entryId = state.StoredEntryId(section);
    std::wstring wideName = state.profile->Name();
    std::string narrowName = AnsiFromWide(wideName);
    void* const name = flags & MAPI_UNICODE ? static_cast<void*>(wideName.data()) : narrowName.data();

    MapiBlock<MAPIERROR> mapiError(state.Memory());
    const ComPtr<IMAPISupport> support = State::MakeSupport(m_state, section);
    const HRESULT result =
        state.provider->SpoolerLogon(support.Get(), 0, static_cast<LPTSTR>(name), static_cast<ULONG>(entryId.size()),
                                     entryId.empty() ? nullptr : reinterpret_cast<ENTRYID*>(entryId.data()), flags,
                                     nullptr, static_cast<ULONG>(state.spoolerSecurity.size()),
                                     state.spoolerSecurity.data(), mapiError.Put(), logon.Put(), store.Put());
    GiveText(error, ErrorText(mapiError.Get(), flags));
    return result;
}

void MailSession::Logoff() noexcept
{
    m_state->Unload();
}

IMSProvider* MailSession::Provider() const noexcept
{
    return m_state->provider.Get();
}

IMSLogon* MailSession::LogonObject() const noexcept
{
    return m_state->logon.Get();
}

IMsgStore* MailSession::Store() const noexcept
{
    return m_state->store.Get();
}

ComPtr<IMsgStore> MailSession::OpenStore() const
{
    if (!m_state->store)
        Fail(MAPI_E_NOT_INITIALIZED, L"The session is not logged on to a message store.");
    return m_state->store;
}

ULONG MailSession::ProviderVersion() const noexcept
{
    return m_state->providerVersion;
}

ComPtr<IMAPISupport> MailSession::MakeSupport() const
{
    return State::MakeSupport(m_state, ProviderSection());
}

ComPtr<IProviderAdmin> MailSession::MakeAdmin()
{
    const std::weak_ptr<State> weak = m_state;
    const Uid service = ServiceSection();
    const auto event = [weak, service](ULONG context, const Uid&)
    {
        const auto state = weak.lock();
        return state ? State::CallEntry(state, service, context, {}, nullptr, true, true) : MAPI_E_END_OF_SESSION;
    };
    return CreateProviderAdmin(m_state->profile, service, {m_state->Definition()}, SectionUser::Entry, Memory(), event);
}

HRESULT MailSession::OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object)
{
    return m_state->OpenEntry(size, entryId, iid, flags, type, object);
}

PropertyBag MailSession::StatusRow() const
{
    return m_state->status->Rows()[ProviderSection()];
}
} // namespace Tests
