// Sessions: finding a store's provider, logging on, and sending entry IDs to who knows them.
#include "testbed/mapi/Session.h"

#include "common/MsgServiceAdmin2.h"
#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "testbed/common/AddressNumbers.h"
#include "testbed/common/Table.h"
#include "testbed/mapi/Dispatcher.h"
#include "testbed/mapi/ProfileStore.h"
#include "testbed/mapi/ProviderAdmin.h"
#include "testbed/mapi/SectionLocks.h"
#include "testbed/mapi/ServiceAdmin.h"
#include "testbed/mapi/SupportObject.h"

#include <algorithm>

namespace Testbed
{
namespace
{
// Entry IDs of this subsystem's own: 4 flag bytes, one of these, and the UID of a provider's section.
constexpr MAPIUID sectionMark = {
    {0x3B, 0x60, 0xE7, 0x15, 0x8A, 0x4D, 0x40, 0xF2, 0x9C, 0x71, 0x26, 0xDA, 0x53, 0x0E, 0xB8, 0x94}};
constexpr MAPIUID statusMark = {
    {0x71, 0xC5, 0x02, 0xFA, 0x36, 0xE9, 0x4B, 0x18, 0x8D, 0x5F, 0xA0, 0x4C, 0x19, 0xB2, 0x67, 0xD3}};
constexpr size_t flagSize = sizeof(ENTRYID::abFlags);

Bytes OwnEntryId(const MAPIUID& mark, const Uid& section)
{
    Bytes bytes(flagSize);
    bytes.insert(bytes.end(), std::begin(mark.ab), std::end(mark.ab));
    bytes.insert(bytes.end(), std::begin(section.ab), std::end(section.ab));
    return bytes;
}

std::optional<Uid> SectionIn(const MAPIUID& mark, const Bytes& entryId)
{
    Uid uid;
    if (entryId.size() != flagSize + 2 * sizeof(uid.ab) ||
        std::memcmp(entryId.data() + flagSize, mark.ab, sizeof(mark.ab)) != 0)
        return {};
    std::memcpy(uid.ab, entryId.data() + flagSize + sizeof(mark.ab), sizeof(uid.ab));
    return uid;
}

Bytes BytesAt(ULONG size, const ENTRYID* entryId)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(entryId);
    return Bytes(bytes, bytes + size);
}

LPENTRYID EntryIdIn(const Bytes& bytes)
{
    return bytes.empty() ? nullptr : reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(bytes.data()));
}

// The store's own entry ID in a provider's section; empty when there is none.
Bytes StoredEntryId(const PropertyBag& section)
{
    const PropValue* const value = section.Find(PROP_ID(PR_ENTRYID));
    if (!value)
        return {};
    auto unwrapped = UnwrapStoreEntryId(value->AsBytes().data(), value->AsBytes().size());
    return unwrapped ? std::move(unwrapped->entryId) : Bytes();
}

void RequireEntryId(ULONG size, const ENTRYID* entryId)
{
    if (!entryId)
        Fail(MAPI_E_INVALID_PARAMETER, L"An entry ID is needed.");
    if (size < flagSize)
        Fail(MAPI_E_INVALID_ENTRYID, L"An entry ID is too short.");
}

// Tells a sink for the session's own events that the client logs off.
void TellLogoff(ComPtr<IMAPIAdviseSink> sink) noexcept
{
    try
    {
        Dispatcher::Post(
            [sink = std::move(sink)]
            {
                NOTIFICATION notification{};
                notification.ulEventType = fnevExtended;
                sink->OnNotify(1, &notification);
            });
    }
    catch (const std::exception&)
    {
        // Without memory it is not told.
    }
}

// The rows of the stores table, read anew whenever a profile was changed.
class StoreRows final : public RowSource
{
public:
    explicit StoreRows(std::function<std::vector<PropertyBag>()> read) : m_read(std::move(read)) {}

    size_t RowCount() const override
    {
        Refresh();
        return m_rows.size();
    }
    std::shared_ptr<const PropertySource> Row(size_t index) const override { return m_rows.at(index); }
    std::uint64_t RowKey(size_t index) const override
    {
        std::uint64_t key = 0;
        const Bytes& uid = m_rows.at(index)->Find(PROP_ID(PR_INSTANCE_KEY))->AsBytes();
        std::memcpy(&key, uid.data(), sizeof(key));
        return key;
    }
    std::uint64_t Generation() const override
    {
        Refresh();
        return m_generation;
    }
    std::vector<ULONG> DefaultColumns() const override
    {
        return {PR_DEFAULT_STORE, PR_DISPLAY_NAME,     PR_ENTRYID,    PR_INSTANCE_KEY,   PR_MDB_PROVIDER,
                PR_OBJECT_TYPE,   PR_PROVIDER_DISPLAY, PR_RECORD_KEY, PR_RESOURCE_FLAGS, PR_RESOURCE_TYPE};
    }
    std::vector<ULONG> AllColumns() const override
    {
        std::vector<ULONG> columns = DefaultColumns();
        columns.insert(columns.end(),
                       {PR_STORE_ENTRYID, PR_SERVICE_UID, PR_SERVICE_NAME, PR_PROVIDER_UID, PR_PROVIDER_DLL_NAME});
        return columns;
    }

private:
    void Refresh() const
    {
        const std::uint64_t now = ProfileStore::Generation();
        if (m_seen == now)
            return;
        m_seen = now;
        auto rows = m_read();
        const bool same = rows.size() == m_rows.size() &&
                          std::equal(rows.begin(), rows.end(), m_rows.begin(),
                                     [](const PropertyBag& a, const auto& b) { return a.Values() == b->Values(); });
        if (same)
            return;
        m_rows.clear();
        for (PropertyBag& row : rows)
            m_rows.push_back(std::make_shared<PropertyBag>(std::move(row)));
        ++m_generation;
    }

    std::function<std::vector<PropertyBag>()> m_read;
    mutable std::uint64_t m_seen = 0;
    mutable std::uint64_t m_generation = 1;
    mutable std::vector<std::shared_ptr<const PropertyBag>> m_rows;
};
} // namespace

Session::Session(std::shared_ptr<Profile> profile, ULONG flags, const MapiMemory& memory)
    : m_profile(std::move(profile)),
      m_flags(flags),
      m_memory(memory),
      m_use(ProfileStore::Use(*m_profile))
{
}

Session::~Session()
{
    End();
}

void Session::End() noexcept
{
    if (m_ended.exchange(true))
        return;
    std::vector<std::shared_ptr<StoreLogon>> logons;
    std::map<std::wstring, Provider> providers;
    std::map<ULONG, Connection> connections;
    std::vector<Uid> temporary;
    {
        const std::lock_guard guard(m_lock);
        logons.swap(m_logons);
        providers.swap(m_providers);
        connections.swap(m_connections);
        temporary.swap(m_temporary);
    }
    for (auto& [number, connection] : connections)
        if (connection.sink)
            TellLogoff(std::move(connection.sink));
    for (const auto& logon : logons)
        logon->End();
    for (auto& [name, provider] : providers)
    {
        ULONG reserved = 0;
        provider.object->Shutdown(&reserved);
        provider.object.Reset();
    }
    m_notifications->Clear();
    try
    {
        for (const Uid& section : temporary)
            m_profile->Remove(section);
    }
    catch (const std::exception&)
    {
        // What cannot be removed stays; nobody can be told.
    }
    m_use.reset();
}

// The sections of the store providers that the profile lists, and those that this session made.
std::vector<Uid> Session::StoreSections() const
{
    std::vector<Uid> sections;
    for (const Uid& provider : AllProvidersOf(*m_profile))
        if (LongOf(m_profile->Section(provider), PR_RESOURCE_TYPE) == LONG(MAPI_STORE_PROVIDER))
            sections.push_back(provider);
    return sections;
}

// What clients see of a store: the provider's entry ID, or one that leads to the section.
Bytes Session::RowEntryId(const Uid& section, const PropertyBag& properties) const
{
    const PropValue* const value = properties.Find(PROP_ID(PR_ENTRYID));
    if (value && UnwrapStoreEntryId(value->AsBytes().data(), value->AsBytes().size()))
        return value->AsBytes();
    const Bytes own = OwnEntryId(sectionMark, section);
    return WrapStoreEntryId(AnsiFromWide(TextOf(properties, PR_PROVIDER_DLL_NAME)), own.data(), own.size());
}

Session::Target Session::TargetOf(const Uid& section, const Bytes& entryId) const
{
    const PropertyBag properties = m_profile->Section(section);
    Target target{section, Uid::From(properties.Find(PROP_ID(PR_SERVICE_UID))),
                  TextOf(properties, PR_PROVIDER_DLL_NAME), entryId, false};
    target.temporary = (LongOf(properties, PR_RESOURCE_FLAGS) & STATUS_TEMP_SECTION) != 0;
    return target;
}

// The section among these that belongs to a store, byte by byte or as the providers compare.
std::optional<Session::Target> Session::MatchSection(const std::vector<Uid>& sections, const Bytes& entryId,
                                                     const std::wstring* dllName)
{
    struct Candidate
    {
        Uid section;
        std::wstring dllName;
        Bytes stored;
    };
    std::vector<Candidate> candidates;
    for (const Uid& section : sections)
    {
        const PropertyBag properties = m_profile->Section(section);
        std::wstring name = TextOf(properties, PR_PROVIDER_DLL_NAME);
        if (dllName && !SameName(*dllName, name))
            continue;
        candidates.push_back({section, std::move(name), StoredEntryId(properties)});
    }
    for (const Candidate& candidate : candidates)
        if (!candidate.stored.empty() && candidate.stored == entryId)
            return TargetOf(candidate.section, entryId);
    for (const Candidate& candidate : candidates)
    {
        if (candidate.stored.empty())
            continue;
        ULONG same = FALSE;
        try
        {
            const Provider provider = ProviderOf(candidate.dllName);
            if (SUCCEEDED(provider.object->CompareStoreIDs(static_cast<ULONG>(entryId.size()), EntryIdIn(entryId),
                                                           static_cast<ULONG>(candidate.stored.size()),
                                                           EntryIdIn(candidate.stored), 0, &same)) &&
                same)
                return TargetOf(candidate.section, entryId);
        }
        catch (const Failure&)
        {
            // A provider that is not to be had knows nothing of any store; the logon will tell the client.
        }
    }
    return {};
}

Session::Target Session::FindTarget(ULONG size, const ENTRYID* entryId)
{
    std::vector<Uid> sections = StoreSections();
    {
        const std::lock_guard guard(m_lock);
        sections.insert(sections.end(), m_temporary.begin(), m_temporary.end());
    }
    const auto wrapped = UnwrapStoreEntryId(entryId, size);
    const Bytes own = wrapped ? wrapped->entryId : BytesAt(size, entryId);
    if (const auto section = SectionIn(sectionMark, own))
    {
        if (std::find(sections.begin(), sections.end(), *section) == sections.end())
            Fail(MAPI_E_NOT_FOUND, L"The profile has no such store any more.");
        return TargetOf(*section, StoredEntryId(m_profile->Section(*section)));
    }
    const std::wstring dllName = wrapped ? WideFromAnsi(wrapped->dllName) : std::wstring();
    if (auto target = MatchSection(sections, own, wrapped ? &dllName : nullptr))
        return *target;
    if (!wrapped)
        Fail(MAPI_E_NOT_FOUND, L"No store of the profile has this entry ID.");

    // A store of none of the profile's sections gets one of its own, for as long as the session lasts.
    const Uid section = Uid::Create();
    m_profile->Change(section,
                      {PropValue::Uid(PR_PROVIDER_UID, section), PropValue::String(PR_PROVIDER_DLL_NAME_W, dllName),
                       PropValue::Long(PR_RESOURCE_TYPE, MAPI_STORE_PROVIDER),
                       PropValue::Long(PR_RESOURCE_FLAGS, STATUS_TEMP_SECTION | STATUS_NO_DEFAULT_STORE)});
    const std::lock_guard guard(m_lock);
    m_temporary.push_back(section);
    return {section, {}, dllName, own, true};
}

Session::Provider Session::ProviderOf(const std::wstring& dllName)
{
    const std::lock_guard opening(m_opening);
    {
        const std::lock_guard guard(m_lock);
        if (const auto known = m_providers.find(dllName); known != m_providers.end())
            return known->second;
    }
    Provider provider;
    provider.module = ServiceModule::Load(dllName);
    // The header declares a function type, not a pointer type, for this one.
    const auto init = provider.module->Find<MSPROVIDERINIT*>("MSProviderInit");
    ComPtr<IMalloc> allocator;
    Check(CoGetMalloc(1, allocator.Put()), L"CoGetMalloc failed.");
    ULONG version = 0;
    const HRESULT result = init(provider.module->Handle(), allocator.Get(), m_memory.AllocateBufferRoutine(),
                                m_memory.AllocateMoreRoutine(), m_memory.FreeBufferRoutine(), m_flags & MAPI_NT_SERVICE,
                                CURRENT_SPI_VERSION, &version, provider.object.Put());
    if (FAILED(result))
        Fail(result, L"The initialisation of \"" + dllName + L"\" failed: " + ResultText(result) + L".");
    if (!provider.object)
        Fail(MAPI_E_CALL_FAILED, L"The initialisation of \"" + dllName + L"\" gave no provider object.");
    if (version < CURRENT_SPI_VERSION)
        Fail(MAPI_E_VERSION, L"\"" + dllName + L"\" is a provider of an older version.");
    const std::lock_guard guard(m_lock);
    m_providers[dllName] = provider;
    return provider;
}

std::shared_ptr<void> Session::LockForProvider(const Uid& section, ULONG flags)
{
    if (!LocksProviderSections())
        return nullptr;
    const std::lock_guard guard(m_lock);
    auto lock = m_providerLocks[section].lock();
    if (!lock)
    {
        lock = LockSection(*m_profile, section, flags);
        m_providerLocks[section] = lock;
    }
    return lock;
}

void Session::MakePermanent(const Uid& section)
{
    const LONG flags = LongOf(m_profile->Section(section), PR_RESOURCE_FLAGS);
    if ((flags & STATUS_TEMP_SECTION) == 0)
        return;
    m_profile->Change(section, {PropValue::Long(PR_RESOURCE_FLAGS, flags & ~LONG(STATUS_TEMP_SECTION))});
    std::vector<Uid> outside = ReadUids(m_profile->Section(subsystemSection), PR_STORE_PROVIDERS);
    outside.push_back(section);
    m_profile->Change(subsystemSection, {UidList(PR_STORE_PROVIDERS, outside)});
    const std::lock_guard guard(m_lock);
    std::erase(m_temporary, section);
}

ComPtr<IMAPISupport> Session::MakeSupport(const Target& target, const std::shared_ptr<StoreLogon>& logon)
{
    SupportContext context;
    context.profile = m_profile;
    context.ownSection = target.section;
    context.dllName = AnsiFromWide(target.dllName);
    context.memory = m_memory;
    context.status = m_status;
    context.notifications = m_notifications;
    // It must not keep the session: a provider may keep it longer.
    const std::weak_ptr<Session> weak = weak_from_this();
    context.openEntry = [weak](ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object)
    {
        const auto session = weak.lock();
        return session && !session->Ended() ? session->OpenEntry(size, entryId, iid, flags, type, object)
                                            : MAPI_E_END_OF_SESSION;
    };
    context.compareEntryIds =
        [weak](ULONG size1, LPENTRYID entryId1, ULONG size2, LPENTRYID entryId2, ULONG, ULONG* result)
    {
        const auto session = weak.lock();
        return session && !session->Ended() ? session->CompareEntryIds(size1, entryId1, size2, entryId2, result)
                                            : MAPI_E_END_OF_SESSION;
    };
    context.setProviderUid = [logon](const Uid& uid) { logon->AddUid(uid); };
    context.lockSection = [weak](const Uid& section, ULONG flags)
    {
        const auto session = weak.lock();
        return session ? session->LockForProvider(section, flags) : nullptr;
    };
    context.modifyProfile = [weak, section = target.section]
    {
        if (const auto session = weak.lock())
            session->MakePermanent(section);
    };
    context.released = [weak, logon]
    {
        const auto session = weak.lock();
        if (logon->End() && session)
            session->StoreEnded(*logon);
    };
    return CreateSupportObject(std::move(context));
}

// The store was shut down by its last Release.
void Session::StoreEnded(const StoreLogon& logon)
{
    const Uid section = logon.Section();
    bool last = true;
    {
        const std::lock_guard guard(m_lock);
        std::erase_if(m_logons, [&](const auto& known) { return known.get() == &logon; });
        last = std::none_of(m_logons.begin(), m_logons.end(),
                            [&](const auto& known) { return known->Section() == section; });
    }
    if (last)
        m_status->Remove(section);
}

HRESULT Session::Logon(const Target& target, ULONG_PTR uiParam, LPCIID iid, ULONG flags, IMsgStore** store,
                       std::wstring& text)
{
    const Provider provider = ProviderOf(target.dllName);
    // MAPI hands out a block of its own; the provider may hold on to it for the call only.
    MapiBlock<ENTRYID> entryId(m_memory);
    if (!target.entryId.empty())
    {
        entryId = MapiBlock<ENTRYID>(m_memory, static_cast<ENTRYID*>(m_memory.Allocate(target.entryId.size())));
        std::memcpy(entryId.Get(), target.entryId.data(), target.entryId.size());
    }
    std::wstring name = m_profile->Name();
    const auto logon = std::make_shared<StoreLogon>(target.section);
    const ComPtr<IMAPISupport> support = MakeSupport(target, logon);
    ULONG securitySize = 0;
    MapiBlock<BYTE> security(m_memory);
    MapiBlock<MAPIERROR> error(m_memory);
    ComPtr<IMSLogon> given;
    ComPtr<IMsgStore> opened;
    const HRESULT result =
        provider.object->Logon(support.Get(), uiParam, reinterpret_cast<LPTSTR>(name.data()),
                               static_cast<ULONG>(target.entryId.size()), entryId.Get(), flags | MAPI_UNICODE, iid,
                               &securitySize, security.Put(), error.Put(), given.Put(), opened.Put());
    text = error ? TextArgument(error->lpszError, MAPI_UNICODE) : std::wstring();
    if (FAILED(result))
        return result;
    if (!opened)
    {
        text = L"The provider gave no store.";
        return MAPI_E_CALL_FAILED;
    }
    {
        // Without a logon object, or with one that is known, the store was open already.
        const std::lock_guard guard(m_lock);
        const bool known = std::any_of(m_logons.begin(), m_logons.end(),
                                       [&](const auto& each) { return given && each->Get().Get() == given.Get(); });
        if (given && !known)
        {
            logon->Set(std::move(given));
            m_logons.push_back(logon);
        }
    }
    *store = opened.Detach();
    return result;
}

HRESULT Session::OpenMsgStore(ULONG_PTR uiParam, ULONG size, const ENTRYID* entryId, LPCIID iid, ULONG flags,
                              IMsgStore** store)
{
    RequireEntryId(size, entryId);
    if (!store)
        Fail(MAPI_E_INVALID_PARAMETER, L"OpenMsgStore needs a place for the store.");
    RequireFlags(flags, MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS | MDB_NO_DIALOG | MDB_NO_MAIL | MDB_TEMPORARY |
                            MDB_WRITE | mdbOnline);
    const std::lock_guard opening(m_opening);
    const Target target = FindTarget(size, entryId);
    if (target.service)
    {
        const std::lock_guard guard(m_lock);
        if (std::find(m_disabled.begin(), m_disabled.end(), *target.service) != m_disabled.end())
            Fail(MAPI_E_LOGON_FAILED, L"The store's message service failed before in this session and is off.");
    }
    ULONG logonFlags = flags & (MAPI_DEFERRED_ERRORS | MDB_NO_DIALOG | MDB_NO_MAIL | MDB_TEMPORARY | MDB_WRITE);
    if (flags & MAPI_BEST_ACCESS)
        logonFlags |= MDB_WRITE;
    HRESULT result = S_OK;
    std::wstring text;
    const auto logOn = [&]
    {
        result = Logon(target, uiParam, iid, logonFlags, store, text);
        if (result == MAPI_E_NO_ACCESS && (flags & MAPI_BEST_ACCESS) && (flags & MDB_WRITE) == 0)
            result = Logon(target, uiParam, iid, logonFlags & ~MDB_WRITE, store, text);
    };
    try
    {
        logOn();
        if (result == MAPI_E_UNCONFIGURED && target.service)
        {
            const ULONG ui = flags & MDB_NO_DIALOG ? 0 : SERVICE_UI_ALLOWED;
            CallServiceEntry(m_profile, *target.service,
                             {MSG_SERVICE_CONFIGURE, uiParam, ui | MAPI_UNICODE, 0, nullptr}, m_memory);
            logOn();
        }
    }
    catch (const Failure& failure)
    {
        // The provider is not there, or cannot be initialised.
        result = failure.Result() == MAPI_E_NOT_FOUND ? MAPI_E_FAILONEPROVIDER : failure.Result();
        text = failure.Text();
    }
    if (SUCCEEDED(result))
    {
        if (result != S_OK && !text.empty())
            throw Failure(result, text);
        return result;
    }
    if (target.service && result != MAPI_E_FAILONEPROVIDER && result != MAPI_E_NO_ACCESS &&
        result != MAPI_E_USER_CANCEL)
    {
        const std::lock_guard guard(m_lock);
        m_disabled.push_back(*target.service);
    }
    if (result == MAPI_E_UNCONFIGURED && (flags & MDB_NO_DIALOG))
        result = MAPI_E_LOGON_FAILED;
    Fail(result, L"The logon to the message store failed: " + ResultText(result) +
                     (text.empty() ? L"." : L", \"" + text + L"\"."));
}

std::shared_ptr<StoreLogon> Session::LogonOf(ULONG size, const ENTRYID* entryId) const
{
    RequireEntryId(size, entryId);
    Uid uid;
    if (size >= flagSize + sizeof(uid.ab))
    {
        std::memcpy(uid.ab, entryId->ab, sizeof(uid.ab));
        const std::lock_guard guard(m_lock);
        for (const auto& logon : m_logons)
            if (logon->HasUid(uid))
                return logon;
    }
    Fail(MAPI_E_UNKNOWN_ENTRYID, L"No open provider knows the entry ID.");
}

HRESULT Session::OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object)
{
    if (!type || !object)
        Fail(MAPI_E_INVALID_PARAMETER, L"OpenEntry needs places for its results.");
    RequireEntryId(size, entryId);
    if (UnwrapStoreEntryId(entryId, size))
    {
        ComPtr<IMsgStore> store;
        const ULONG access =
            (flags & MAPI_MODIFY ? MDB_WRITE : 0) | (flags & (MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS));
        const HRESULT result = OpenMsgStore(0, size, entryId, iid, MDB_NO_DIALOG | access, store.Put());
        *type = MAPI_STORE;
        *object = store.Detach();
        return result;
    }
    if (const auto section = SectionIn(statusMark, BytesAt(size, entryId)))
    {
        std::shared_ptr<StoreLogon> found;
        {
            const std::lock_guard guard(m_lock);
            for (const auto& logon : m_logons)
                if (logon->Section() == *section)
                    found = logon;
        }
        const ComPtr<IMSLogon> logon = found ? found->Get() : nullptr;
        if (!logon)
            return MAPI_E_NO_SUPPORT;
        return logon->OpenStatusEntry(iid, flags, type, reinterpret_cast<LPVOID*>(object));
    }
    const ComPtr<IMSLogon> logon = LogonOf(size, entryId)->Get();
    return logon ? logon->OpenEntry(size, entryId, iid, flags, type, object) : MAPI_E_UNKNOWN_ENTRYID;
}

HRESULT Session::CompareEntryIds(ULONG size1, LPENTRYID entryId1, ULONG size2, LPENTRYID entryId2, ULONG* result)
{
    if (!result)
        Fail(MAPI_E_INVALID_PARAMETER, L"CompareEntryIDs needs a place for its result.");
    RequireEntryId(size1, entryId1);
    RequireEntryId(size2, entryId2);
    const auto store1 = UnwrapStoreEntryId(entryId1, size1);
    const auto store2 = UnwrapStoreEntryId(entryId2, size2);
    *result = FALSE;
    if (store1 || store2)
    {
        if (!store1 || !store2 || !SameName(WideFromAnsi(store1->dllName), WideFromAnsi(store2->dllName)))
            return S_OK;
        if (store1->entryId == store2->entryId)
        {
            *result = TRUE;
            return S_OK;
        }
        return ProviderOf(WideFromAnsi(store1->dllName))
            .object->CompareStoreIDs(static_cast<ULONG>(store1->entryId.size()), EntryIdIn(store1->entryId),
                                     static_cast<ULONG>(store2->entryId.size()), EntryIdIn(store2->entryId), 0, result);
    }
    const auto owner = LogonOf(size1, entryId1);
    if (owner != LogonOf(size2, entryId2))
        return S_OK;
    const ComPtr<IMSLogon> logon = owner->Get();
    return logon ? logon->CompareEntryIDs(size1, entryId1, size2, entryId2, 0, result) : MAPI_E_UNKNOWN_ENTRYID;
}

HRESULT Session::Advise(ULONG size, LPENTRYID entryId, ULONG mask, IMAPIAdviseSink* sink, ULONG_PTR* connection)
{
    if (!sink || !connection)
        Fail(MAPI_E_INVALID_PARAMETER, L"Advise needs a sink and a place for the connection.");
    Connection made;
    if (!entryId)
    {
        made.sink = ComPtr<IMAPIAdviseSink>(sink);
    }
    else
    {
        const auto owner = LogonOf(size, entryId);
        const ComPtr<IMSLogon> logon = owner->Get();
        const HRESULT result = logon ? logon->Advise(size, entryId, mask, sink, &made.number) : MAPI_E_UNKNOWN_ENTRYID;
        if (FAILED(result))
            return result;
        made.logon = owner;
    }
    const std::lock_guard guard(m_lock);
    *connection = AddressNumbers::Of(m_nextConnection);
    m_connections[m_nextConnection++] = std::move(made);
    return S_OK;
}

HRESULT Session::Unadvise(ULONG_PTR connection)
{
    Connection found;
    {
        const std::lock_guard guard(m_lock);
        const auto number = AddressNumbers::CountOf(connection);
        const auto known = number ? m_connections.find(*number) : m_connections.end();
        if (known == m_connections.end())
            Fail(MAPI_E_NOT_FOUND, L"There is no such connection.");
        found = std::move(known->second);
        m_connections.erase(known);
    }
    const auto owner = found.logon.lock();
    const ComPtr<IMSLogon> logon = owner ? owner->Get() : nullptr;
    return logon ? logon->Unadvise(found.number) : S_OK;
}

void Session::SetDefaultStore(ULONG size, const ENTRYID* entryId)
{
    std::optional<Uid> chosen;
    if (entryId)
    {
        RequireEntryId(size, entryId);
        const Target target = FindTarget(size, entryId);
        if (target.temporary)
            Fail(MAPI_E_NOT_FOUND, L"The profile does not list the store.");
        chosen = target.section;
    }
    for (const Uid& section : StoreSections())
    {
        const LONG flags = LongOf(m_profile->Section(section), PR_RESOURCE_FLAGS);
        const LONG wanted =
            chosen == section ? flags | LONG(STATUS_DEFAULT_STORE) : flags & ~LONG(STATUS_DEFAULT_STORE);
        if (wanted != flags)
            m_profile->Change(section, {PropValue::Long(PR_RESOURCE_FLAGS, wanted)});
    }
}

ComPtr<IMAPITable> Session::StoresTable(ULONG flags)
{
    const auto read = [weak = weak_from_this()]
    {
        std::vector<PropertyBag> rows;
        const auto session = weak.lock();
        bool hasDefault = false;
        for (const Uid& section : session ? session->StoreSections() : std::vector<Uid>())
        {
            PropertyBag row = session->m_profile->Section(section);
            const Bytes entryId = session->RowEntryId(section, row);
            row.Put(PropValue::Binary(PR_ENTRYID, entryId));
            row.Put(PropValue::Binary(PR_STORE_ENTRYID, entryId));
            row.Put(PropValue::Uid(PR_INSTANCE_KEY, section));
            row.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
            const bool isDefault = !hasDefault && (LongOf(row, PR_RESOURCE_FLAGS) & STATUS_DEFAULT_STORE) != 0;
            hasDefault = hasDefault || isDefault;
            row.Put(PropValue::Boolean(PR_DEFAULT_STORE, isDefault));
            rows.push_back(std::move(row));
        }
        return rows;
    };
    return CreateTable(std::make_shared<StoreRows>(read), m_memory, flags, L"MAPI");
}

ComPtr<IMAPITable> Session::StatusTable(ULONG flags)
{
    std::vector<PropertyBag> rows;
    const auto own = [&](ULONG type, const std::wstring& name, LONG status)
    {
        const Uid key;
        PropertyBag row({PropValue::String(PR_DISPLAY_NAME_W, name), PropValue::Long(PR_RESOURCE_TYPE, LONG(type)),
                         PropValue::Long(PR_STATUS_CODE, status), PropValue::Long(PR_RESOURCE_METHODS, 0),
                         PropValue::Long(PR_RESOURCE_FLAGS, STATUS_NO_DEFAULT_STORE | STATUS_NO_PRIMARY_IDENTITY)});
        row.Put(PropValue::Binary(PR_ENTRYID, OwnEntryId(statusMark, key)));
        rows.push_back(std::move(row));
    };
    own(MAPI_SUBSYSTEM, m_profile->Name(), STATUS_AVAILABLE);
    own(MAPI_SPOOLER, L"MAPI spooler", m_flags & MAPI_NO_MAIL ? STATUS_FAILURE : STATUS_AVAILABLE);
    for (const auto& [section, reported] : m_status->Rows())
    {
        const PropertyBag properties = m_profile->Section(section);
        PropertyBag row = reported;
        for (const ULONG tag : {PR_PROVIDER_DLL_NAME, PR_RESOURCE_FLAGS, PR_RESOURCE_TYPE})
            if (const PropValue* const value = properties.Find(PROP_ID(tag)))
                row.Put(*value);
        row.Put(PropValue::Binary(PR_ENTRYID, OwnEntryId(statusMark, section)));
        rows.push_back(std::move(row));
    }
    LONG number = 0;
    for (PropertyBag& row : rows)
    {
        row.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_STATUS));
        row.Put(PropValue::Binary(PR_INSTANCE_KEY, row.Find(PROP_ID(PR_ENTRYID))->AsBytes()));
        row.Put(PropValue::Long(PR_ROWID, number++));
    }
    const std::vector<ULONG> columns = {PR_PROVIDER_DISPLAY,
                                        PR_PROVIDER_DLL_NAME,
                                        PR_RESOURCE_FLAGS,
                                        PR_RESOURCE_TYPE,
                                        PR_RESOURCE_METHODS,
                                        PR_STATUS_CODE,
                                        PR_STATUS_STRING,
                                        PR_DISPLAY_NAME,
                                        PR_IDENTITY_DISPLAY,
                                        PR_IDENTITY_ENTRYID,
                                        PR_ENTRYID,
                                        PR_INSTANCE_KEY,
                                        PR_OBJECT_TYPE,
                                        PR_ROWID,
                                        PR_IDENTITY_SEARCH_KEY};
    return CreateTable(std::make_shared<MemoryRows>(columns, std::move(rows)), m_memory, flags, L"MAPI");
}
} // namespace Testbed
