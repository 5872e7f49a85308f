// A host of the kit in which everything that it calls, and everything that its own functions do, fails in turn: no
// exception leaves, nothing is left behind, no output of a failed call is touched, and the PST is not written to.
#include "hostkit/HostKit.h"
#include "support/Format.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/OwnMemory.h"
#include "tests/faults/Surroundings.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

using namespace Quillon;
using KivNstHostKit::ArchiveSettings;
using KivNstHostKit::ArchiveValue;
using KivNstHostKit::CSubject;

namespace Tests
{
namespace
{

/// What the kit, which is compiled into this program, allocates in a run.
struct KitHeap
{
    std::size_t allocations = 0;
    /// The number of the one that fails; 0: none.
    std::size_t failing = 0;
    bool staysEmpty = false;
    /// Blocks that live, of those allocated in a run.
    std::unordered_set<void*> blocks;
};

KitHeap g_kitHeap;

constexpr ULONG ownTag = PROP_TAG(PT_UNICODE, 0x7C31);

enum Slot
{
    GetPropListSlot = 6,
    OpenPropertySlot = 7,
    OpenAttachSlot = 15,
    CopyMessagesSlot = 25,
    DoCopyToSlot = 27
};

/// The planned fault of a host's function, whatever it is.
void PassHook(const char* hook)
{
    Faults::Get().PassHook(hook);
}

KivNstHostKit::ValueFunction FaultyValue(const char* hook)
{
    return [hook](const CSubject& subject) -> ArchiveValue
    {
        PassHook(hook);
        return FormatString(L"%Iu bytes", subject.GetEntryId().GetSize());
    };
}

class FaultyHost : public KivNstHostKit::CArchiveHost
{
public:
    StringW GetModuleName() const override
    {
        PassHook("GetModuleName");
        return L"FaultyHost.dll";
    }
    ArchiveSettings GetSettings(IProfSect*) const override
    {
        PassHook("GetSettings");
        ArchiveSettings settings;
        settings.displayName = L"Archive";
        settings.storeValues.Add(ownTag, FaultyValue("store value"));
        settings.folderValues.Add(ownTag, FaultyValue("folder value"));
        settings.messageValues.Add(ownTag, FaultyValue("message value"));
        settings.attachmentValues.Add(ownTag, FaultyValue("attachment value"));
        return settings;
    }
    void CheckConfiguration(const SPropValue*, ULONG) const override { PassHook("CheckConfiguration"); }
    Mapi::SPropValueVector GetFirstSettings(SPropValue*, ULONG) const override
    {
        PassHook("GetFirstSettings");
        Mapi::SPropValueVector settings;
        settings.AddLong(PROP_TAG(PT_LONG, 0x67C0), 1);
        return settings;
    }
    ATL::CComQIPtr<IMsgStore> CreateStore(const KivNstHostKit::ArchivePointer& archive) const override
    {
        return MakeByHost<IMsgStore>("CreateStore", [&] { return CArchiveHost::CreateStore(archive); });
    }
};

KivNstHostKit::ArchivePointer MakeArchive(Surroundings& surroundings)
{
    return std::make_shared<const KivNstHostKit::CArchive>(
        FaultyHost().GetSettings(nullptr), ATL::CComQIPtr<IMsgStore>(surroundings.store.As<IMsgStore>()),
        ATL::CComQIPtr<IMAPISupport>(surroundings.support.As<IMAPISupport>()));
}

ATL::CComQIPtr<IMsgStore> WrapStore(Surroundings& surroundings)
{
    return KivNstHostKit::MakeStore(MakeArchive(surroundings));
}

ATL::CComQIPtr<IMAPIFolder> WrapFolder(Surroundings& surroundings)
{
    return KivNstHostKit::MakeFolder(MakeArchive(surroundings),
                                     ATL::CComQIPtr<IMAPIFolder>(surroundings.folder.As<IMAPIFolder>()),
                                     ATL::CComQIPtr<IMsgStore>(surroundings.store.As<IMsgStore>()));
}

ATL::CComQIPtr<IMessage> WrapMessage(Surroundings& surroundings)
{
    return KivNstHostKit::MakeMessage(MakeArchive(surroundings),
                                      ATL::CComQIPtr<IMessage>(surroundings.message.As<IMessage>()));
}

ATL::CComQIPtr<IAttach> WrapAttachment(Surroundings& surroundings)
{
    return KivNstHostKit::MakeAttachment(MakeArchive(surroundings),
                                         ATL::CComQIPtr<IAttach>(surroundings.attachment.As<IAttach>()));
}

template <class T>
T* Pattern()
{
    return reinterpret_cast<T*>(0x5A5A5A5A);
}

/// What a call gave for an interface pointer that held the pattern before: the object in success; else nothing.
template <class I>
void Take(HRESULT hr, I* given)
{
    if (FAILED(hr))
        EXPECT_EQ(given, Pattern<I>());
    else if (given && given != Pattern<I>())
        given->Release();
}

HRESULT ReadProps(Surroundings& surroundings, IMAPIProp* object, bool all)
{
    SizedSPropTagArray(3, tags) = {3, {PR_ACCESS, PR_DISPLAY_NAME_W, ownTag}};
    ULONG count = 0x5A5A5A5A;
    SPropValue* values = Pattern<SPropValue>();
    const HRESULT hr = surroundings.Run(
        [&]
        {
            return object->GetProps(all ? nullptr : reinterpret_cast<SPropTagArray*>(&tags), MAPI_UNICODE, &count,
                                    &values);
        });
    if (FAILED(hr))
    {
        EXPECT_EQ(count, 0x5A5A5A5Au);
        EXPECT_EQ(values, Pattern<SPropValue>());
    }
    else if (values)
    {
        for (ULONG index = 0; index < count; ++index)
            if (values[index].ulPropTag == PR_ACCESS)
                EXPECT_EQ(values[index].Value.l, LONG{MAPI_ACCESS_READ});
        MapiModule::Get().Free(values);
    }
    return hr;
}

template <class Wrap>
auto Reading(Wrap wrap, bool all = false)
{
    return [wrap, all](Surroundings& surroundings)
    {
        for (FaultyObject* const object :
             {&surroundings.store, &surroundings.folder, &surroundings.message, &surroundings.attachment})
        {
            object->properties[PR_ACCESS] = NumberValue(PR_ACCESS, 0x3F);
            object->properties[PR_ENTRYID] = BinaryValue(PR_ENTRYID, {1, 2, 3});
            object->On(GetPropListSlot, "GetPropList",
                       [](const RawArguments& arguments)
                       {
                           const Faults::OwnAllocations own;
                           auto* const tags = static_cast<ULONG*>(MapiModule::Get().Allocate(2 * sizeof(ULONG)));
                           tags[0] = 1;
                           tags[1] = PR_ACCESS;
                           *reinterpret_cast<ULONG**>(arguments[1]) = tags;
                       });
        }
        const auto object = wrap(surroundings);
        return ReadProps(surroundings, object.p, all);
    };
}

template <class Open>
HRESULT OpenWith(Surroundings& surroundings, Open&& open)
{
    IUnknown* object = Pattern<IUnknown>();
    ULONG type = 0x5A5A5A5A;
    const HRESULT hr = surroundings.Run([&] { return open(&type, &object); });
    if (FAILED(hr))
        EXPECT_EQ(type, 0x5A5A5A5Au);
    else
        EXPECT_NE(object, surroundings.opened->As<IUnknown>()) << "not wrapped";
    Take(hr, object);
    return hr;
}

template <class Method>
auto Opening(Method method)
{
    return [method](Surroundings& surroundings)
    {
        const auto store = WrapStore(surroundings);
        return OpenWith(surroundings,
                        [&](ULONG* type, IUnknown** object) { return method(surroundings, store, type, object); });
    };
}

HRESULT Enter(Surroundings& surroundings, ULONG context)
{
    wchar_t name[] = L"Archive";
    SPropValue value = {};
    value.ulPropTag = PR_COMMENT_W;
    value.Value.lpszW = name;
    MAPIERROR* error = Pattern<MAPIERROR>();
    const HRESULT hr = surroundings.Run(
        [&]
        {
            return KivNstHostKit::EnterService<FaultyHost>(
                L"ServiceEntry", nullptr, surroundings.support.As<IMAPISupport>(), 0, MAPI_UNICODE, context, 1, &value,
                surroundings.admin.As<IProviderAdmin>(), &error);
        });
    EXPECT_TRUE(FAILED(hr) || !error);
    if (error)
        MapiModule::Get().Free(error);
    return hr;
}

HRESULT Initialise(Surroundings& surroundings)
{
    ULONG version = 0;
    IMSProvider* provider = Pattern<IMSProvider>();
    const HRESULT hr = surroundings.Run(
        [&]
        {
            return KivNstHostKit::InitialiseProvider<FaultyHost>(L"MSProviderInit", nullptr, nullptr, nullptr, nullptr,
                                                                 0, CURRENT_SPI_VERSION, &version, &provider);
        });
    EXPECT_EQ(provider == nullptr, FAILED(hr));
    if (provider)
        provider->Release();
    return hr;
}

HRESULT LogOn(Surroundings& surroundings, bool isSpooler)
{
    surroundings.serviceSection.properties[PR_SERVICE_UID] = BinaryValue(PR_SERVICE_UID, Bytes(16, 1));
    const auto provider = KivNstHostKit::MakeProvider(
        std::make_shared<const FaultyHost>(), ATL::CComQIPtr<IMSProvider>(surroundings.provider.As<IMSProvider>()));
    IMSLogon* logon = Pattern<IMSLogon>();
    IMsgStore* store = Pattern<IMsgStore>();
    const HRESULT hr = surroundings.Run(
        [&]
        {
            auto* const support = surroundings.support.As<IMAPISupport>();
            return isSpooler ? provider->SpoolerLogon(support, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, nullptr,
                                                      &logon, &store)
                             : provider->Logon(support, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                                               &logon, &store);
        });
    if (FAILED(hr))
    {
        EXPECT_EQ(logon, nullptr);
        EXPECT_EQ(store, nullptr);
    }
    EXPECT_NE(store, surroundings.store.As<IMsgStore>()) << "not wrapped";
    if (logon)
        logon->Release();
    if (store)
        store->Release();
    return hr;
}

template <class I, class Call>
auto FolderCall(Call call)
{
    return [call](Surroundings& surroundings)
    {
        const auto folder = WrapFolder(surroundings);
        I* given = Pattern<I>();
        const HRESULT hr = surroundings.Run([&] { return call(surroundings, folder.p, &given); });
        Take(hr, given);
        return hr;
    };
}

struct Operation
{
    const char* name;
    std::function<HRESULT(Surroundings&)> run;
    /// What it comes to without a fault.
    HRESULT base = S_OK;
    /// It writes into the PST, or into the profile, by design.
    bool writes = false;
};

std::vector<Operation> MakeOperations()
{
    return {
        {"service entry to create", [](Surroundings& s) { return Enter(s, MSG_SERVICE_CREATE); }, S_OK, true},
        {"service entry to configure", [](Surroundings& s) { return Enter(s, MSG_SERVICE_CONFIGURE); }, S_OK, true},
        {"provider initialisation", Initialise},
        {"logon", [](Surroundings& s) { return LogOn(s, false); }, S_OK, true},
        {"first logon",
         [](Surroundings& s)
         {
             s.store.properties.erase(Nst::archiveSubtreeEntryIdTag);
             return LogOn(s, false);
         },
         S_OK, true},
        {"spooler logon", [](Surroundings& s) { return LogOn(s, true); }},
        {"store properties", Reading(WrapStore)},
        {"folder properties", Reading(WrapFolder)},
        {"message properties", Reading(WrapMessage)},
        {"attachment properties", Reading(WrapAttachment)},
        {"all properties", Reading(WrapMessage, true)},
        {"open folder", Opening([](Surroundings&, IMsgStore* store, ULONG* type, IUnknown** object)
                                { return store->OpenEntry(0, nullptr, nullptr, 0, type, object); })},
        {"open folder for writing",
         Opening([](Surroundings&, IMsgStore* store, ULONG* type, IUnknown** object)
                 { return store->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, type, object); })},
        {"open message",
         [](Surroundings& s)
         {
             s.openedType = MAPI_MESSAGE;
             s.opened = &s.message;
             return Opening([](Surroundings&, IMsgStore* store, ULONG* type, IUnknown** object)
                            { return store->OpenEntry(0, nullptr, nullptr, 0, type, object); })(s);
         }},
        {"contents table", FolderCall<IMAPITable>([](Surroundings&, IMAPIFolder* folder, IMAPITable** table)
                                                  { return folder->GetContentsTable(0, table); })},
        {"hierarchy table", FolderCall<IMAPITable>([](Surroundings&, IMAPIFolder* folder, IMAPITable** table)
                                                   { return folder->GetHierarchyTable(0, table); })},
        {"table rows",
         [](Surroundings& s)
         {
             const auto table = KivNstHostKit::MakeTable(
                 MakeArchive(s), ATL::CComQIPtr<IMAPITable>(s.table.As<IMAPITable>()), MAPI_MESSAGE);
             SRowSet* rows = Pattern<SRowSet>();
             const HRESULT hr = s.Run([&] { return table->QueryRows(10, 0, &rows); });
             if (FAILED(hr))
                 EXPECT_EQ(rows, Pattern<SRowSet>());
             else if (rows)
                 MapiModule::Get().Free(rows);
             return hr;
         }},
        {"refusal that names the folder",
         [](Surroundings& s)
         {
             s.folder.properties[PR_DISPLAY_NAME_W] = TextValue(PR_DISPLAY_NAME_W, L"100% full");
             const auto folder = WrapFolder(s);
             const HRESULT hr = s.Run([&] { return folder->DeleteMessages(nullptr, 0, nullptr, 0); });
             return hr;
         },
         MAPI_E_NO_ACCESS},
        {"refused search folder",
         FolderCall<IMAPIFolder>([](Surroundings&, IMAPIFolder* folder, IMAPIFolder** made)
                                 { return folder->CreateFolder(FOLDER_SEARCH, nullptr, nullptr, nullptr, 0, made); }),
         MAPI_E_NO_ACCESS},
        {"refused properties",
         [](Surroundings& s)
         {
             const auto folder = WrapFolder(s);
             SPropValue value = {};
             value.ulPropTag = PR_COMMENT_W;
             const HRESULT hr = s.Run([&] { return folder->SetProps(1, &value, nullptr); });
             return hr;
         },
         MAPI_E_NO_ACCESS},
        {"copy of messages",
         [](Surroundings& s)
         {
             s.support.On(CopyMessagesSlot, "CopyMessages", [](const RawArguments&) {});
             const auto folder = WrapFolder(s);
             return s.Run([&]
                          { return folder->CopyMessages(nullptr, nullptr, s.table.As<IUnknown>(), 0, nullptr, 0); });
         }},
        {"copy of a message",
         [](Surroundings& s)
         {
             s.support.On(DoCopyToSlot, "DoCopyTo", [](const RawArguments&) {});
             const auto message = WrapMessage(s);
             return s.Run(
                 [&]
                 {
                     return message->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, s.table.As<IUnknown>(), 0,
                                            nullptr);
                 });
         }},
        {"open property",
         [](Surroundings& s)
         {
             s.message.On(OpenPropertySlot, "OpenProperty",
                          [&s](const RawArguments& arguments) { s.attachment.GiveTo(arguments, 4); });
             const auto message = WrapMessage(s);
             IUnknown* object = Pattern<IUnknown>();
             const HRESULT hr = s.Run(
                 [&] { return message->OpenProperty(PR_BODY_W, &KivNstHostKit::iidStream, 0, MAPI_MODIFY, &object); });
             Take(hr, object);
             return hr;
         }},
        {"open attachment",
         [](Surroundings& s)
         {
             s.message.On(OpenAttachSlot, "OpenAttach",
                          [&s](const RawArguments& arguments) { s.attachment.GiveTo(arguments, 3); });
             const auto message = WrapMessage(s);
             IAttach* attachment = Pattern<IAttach>();
             const HRESULT hr = s.Run([&] { return message->OpenAttach(0, nullptr, MAPI_MODIFY, &attachment); });
             EXPECT_NE(attachment, s.attachment.As<IAttach>()) << "not wrapped";
             Take(hr, attachment);
             return hr;
         }},
    };
}

const std::vector<Operation>& Operations()
{
    static const std::vector<Operation> operations = MakeOperations();
    return operations;
}

// The codes, errors and exceptions of the library's own fault tests.
constexpr HRESULT codes[] = {
    MAPI_E_NETWORK_ERROR, MAPI_E_TOO_BIG,   MAPI_E_NOT_ENOUGH_MEMORY, MAPI_E_CORRUPT_STORE,
    MAPI_E_CALL_FAILED,   MAPI_E_NOT_FOUND, MAPI_E_CORRUPT_DATA,      static_cast<HRESULT>(0x8004FFFF),
    MAPI_E_NO_ACCESS,     0x0004FFFF,       MAPI_W_ERRORS_RETURNED,
};
constexpr long systemErrors[] = {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, 0xDEAD};
constexpr Effect exceptions[] = {Effect::ThrowComError, Effect::ThrowRuntimeError, Effect::ThrowWinError,
                                 Effect::ThrowForeignError};

bool Writes(const std::string& call)
{
    for (const char* const method : {"::SetProps", "::DeleteProps", "::SaveChanges", "::Create", "::Delete"})
        if (call.find(method) != std::string::npos)
            return true;
    return false;
}

struct Outcome
{
    std::size_t kitAllocations = 0;
    HRESULT result = S_OK;
    bool happened = false;
    std::vector<LogLine> lines;
    std::vector<std::string> calls;
    std::size_t allocations = 0;
    std::size_t mapiAllocations = 0;
};

std::size_t g_faults = 0;

Outcome Execute(const Operation& operation, const Fault& fault, const KitHeap& kitHeap = {})
{
    g_kitHeap = kitHeap;
    Faults& faults = Faults::Get();
    faults.Plan(fault);
    const std::size_t heapBlocks = faults.LiveHeapBlocks();
    const ULONG mapiBlocks = MapiModule::Get().LiveBlocks();
    Outcome outcome;
    {
        Surroundings surroundings;
        LogCapture log;
        outcome.result = operation.run(surroundings);
        EXPECT_FALSE(surroundings.endedForeign) << "an exception left";
        outcome.lines = log.Take();
        surroundings.ExpectNoReferences();
    }
    outcome.kitAllocations = g_kitHeap.allocations;
    outcome.happened = faults.Happened() || (kitHeap.failing != 0 && outcome.kitAllocations >= kitHeap.failing);
    EXPECT_TRUE(g_kitHeap.blocks.empty()) << "blocks of the kit's heap are left";
    outcome.calls = faults.Calls();
    outcome.allocations = faults.Allocations();
    outcome.mapiAllocations = faults.MapiAllocations();
    EXPECT_EQ(faults.LiveHeapBlocks(), heapBlocks) << "blocks of the library's heap are left";
    EXPECT_EQ(MapiModule::Get().LiveBlocks(), mapiBlocks) << "MAPI blocks are left";
    if (operation.base == MAPI_E_NO_ACCESS)
        EXPECT_EQ(outcome.result, MAPI_E_NO_ACCESS) << "a refusal is always one";
    if (!operation.writes)
        EXPECT_TRUE(std::none_of(outcome.calls.begin(), outcome.calls.end(), Writes)) << "the PST was written to";
    g_faults += outcome.happened ? 1 : 0;
    return outcome;
}

/// The code that an exception of a host's function comes to.
HRESULT CodeOf(const Fault& fault)
{
    switch (fault.effect)
    {
    case Effect::ThrowComError:
        return static_cast<HRESULT>(fault.code);
    case Effect::ThrowWinError:
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    default:
        return E_FAIL;
    }
}

class HostFaultTest : public testing::TestWithParam<const Operation*>
{
protected:
    const Operation& operation = *GetParam();
};

TEST_P(HostFaultTest, NoFault)
{
    const Outcome outcome = Execute(operation, {});
    EXPECT_EQ(outcome.result, operation.base) << testing::PrintToString(outcome.lines);
}

TEST_P(HostFaultTest, EachCallFails)
{
    const Outcome base = Execute(operation, {});
    for (std::size_t call = 1; call <= base.calls.size(); ++call)
    {
        const std::string& name = base.calls[call - 1];
        SCOPED_TRACE(name);
        const bool isMethod = name.find("::") != std::string::npos;
        const bool isFunction = isMethod || name == "NSTServiceEntry" || name == "MSProviderInit" ||
                                name == "WrapStoreEntryID" || name == "CoCreateGuid";
        if (isFunction)
        {
            for (const bool givesErrors : {true, false})
            {
                for (const HRESULT code : codes)
                    EXPECT_TRUE(Execute(operation, {call, Effect::Code, code, givesErrors}).happened);
                if (isMethod)
                    Execute(operation, {call, Effect::Nothing, 0, givesErrors});
            }
            continue;
        }
        if (name == "GetProcAddress")
        {
            for (const long error : systemErrors)
                EXPECT_TRUE(FAILED(Execute(operation, {call, Effect::Code, error}).result));
            continue;
        }
        // A function of the host's.
        for (const Effect effect : exceptions)
        {
            const Fault fault = {call, effect, MAPI_E_CORRUPT_DATA};
            const Outcome outcome = Execute(operation, fault);
            EXPECT_EQ(outcome.result, CodeOf(fault));
            EXPECT_TRUE(std::any_of(outcome.lines.begin(), outcome.lines.end(),
                                    [](const LogLine& line) { return line.text.starts_with(L"Caught exception at "); }))
                << testing::PrintToString(outcome.lines);
        }
        if (name == "CreateStore")
            EXPECT_EQ(Execute(operation, {call, Effect::Nothing}).result, E_POINTER);
    }
}

TEST_P(HostFaultTest, EachAllocationFails)
{
    const Outcome base = Execute(operation, {});
    for (const bool staysEmpty : {false, true})
    {
        for (std::size_t allocation = 1; allocation <= base.allocations; ++allocation)
        {
            Fault fault;
            fault.allocation = allocation;
            fault.staysEmpty = staysEmpty;
            SCOPED_TRACE(allocation);
            EXPECT_TRUE(Execute(operation, fault).happened);
        }
    }
    for (const bool staysEmpty : {false, true})
    {
        for (std::size_t allocation = 1; allocation <= base.kitAllocations; ++allocation)
        {
            SCOPED_TRACE(allocation);
            const Outcome outcome = Execute(operation, {}, {0, allocation, staysEmpty, {}});
            EXPECT_TRUE(outcome.happened);
            if (operation.base == S_OK)
                EXPECT_EQ(outcome.result, E_OUTOFMEMORY);
        }
    }
    for (ULONG allocation = 1; allocation <= base.mapiAllocations; ++allocation)
    {
        Fault fault;
        fault.mapiAllocation = allocation;
        SCOPED_TRACE(allocation);
        EXPECT_EQ(Execute(operation, fault).result, MAPI_E_NOT_ENOUGH_MEMORY);
    }
}

class Report : public testing::Environment
{
public:
    void TearDown() override
    {
        std::printf("faults injected into hosts of the kit: %zu\n", g_faults);
        EXPECT_GT(g_faults, 0u);
    }
};

const auto* const report = testing::AddGlobalTestEnvironment(new Report);

INSTANTIATE_TEST_SUITE_P(All, HostFaultTest,
                         testing::ValuesIn(
                             []
                             {
                                 std::vector<const Operation*> all;
                                 for (const Operation& operation : Operations())
                                     all.push_back(&operation);
                                 return all;
                             }()),
                         [](const testing::TestParamInfo<const Operation*>& parameter)
                         {
                             std::string name;
                             for (const char* at = parameter.param->name; *at; ++at)
                                 if (*at != ' ')
                                     name += *at;
                             return name;
                         });

} // namespace
} // namespace Tests

// The kit's memory is that of this program; the library's is its own.
void* operator new(std::size_t size)
{
    Tests::KitHeap& heap = Tests::g_kitHeap;
    const bool isKits = Tests::Faults::IsArmed() && !Tests::OwnMemory::IsAllocated();
    if (isKits)
    {
        const std::size_t number = ++heap.allocations;

        if (heap.failing != 0 && (number == heap.failing || (heap.staysEmpty && number > heap.failing)))
            throw std::bad_alloc();
    }
    void* const block = std::malloc(size);
    if (!block)
        throw std::bad_alloc();
    if (isKits)
    {
        const Tests::OwnMemory own;
        heap.blocks.insert(block);
    }
    return block;
}

void operator delete(void* block) noexcept
{
    if (!Tests::g_kitHeap.blocks.empty() && !Tests::OwnMemory::IsAllocated())
    {
        const Tests::OwnMemory own;
        Tests::g_kitHeap.blocks.erase(block);
    }
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
