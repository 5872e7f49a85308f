// Eight threads use one wrapped store, folder, table and message, while others release what they are handed, replace
// wrappers that are in use, flip the switches and redirect the log.
#include "nst/KivNstCore.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/CallWrapping.h"
#include "support/Log.h"
#include "support/MapiErrors.h"
#include "support/com_wrap.h"
#include "tests/common/ImportHook.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Setting.h"
#include "tests/threads/Doubles.h"
#include "tests/threads/Watchdog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace Quillon;
using Tests::CheapFolder;
using Tests::CheapMessage;
using Tests::CheapStore;
using Tests::CheapTable;
using Tests::EntryKind;
using Tests::MapiModule;

namespace
{

constexpr auto duration = std::chrono::seconds(6);
constexpr std::size_t workers = 8;

/// The library's own heap: blocks that it has allocated and not freed since this was set up.
std::atomic<long long> heapBlocks = 0;

void* CountedMalloc(std::size_t size)
{
    ++heapBlocks;
    return std::malloc(size);
}

void CountedFree(void* block)
{
    if (block)
        --heapBlocks;
    std::free(block);
}

/// A host's store: its folders and messages refuse changes.
class HostStore : public Nst::CNstMsgStore
{
public:
    explicit HostStore(IMsgStore* store) : CNstMsgStore(store, nullptr) {}

protected:
    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        return com_wrap<IMAPIFolder>(new Nst::CReadOnlyFolder(folder, this, nullptr));
    }
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        return com_wrap<IMessage>(new Nst::CReadOnlyMessage(message));
    }
};

/// A wrapper over a new double, with the one reference of the caller.
template <class I, class Double, class Make>
ATL::CComQIPtr<I> MakeWrapper(Make make)
{
    ATL::CComQIPtr<Double, &IID_IUnknown> object;
    object.Attach(new Double);
    return com_wrap<I>(make(object.p));
}

ATL::CComQIPtr<IMsgStore> MakeStore()
{
    return MakeWrapper<IMsgStore, CheapStore>([](CheapStore* store) { return new HostStore(store); });
}

ATL::CComQIPtr<IMAPIFolder> MakeFolder(IMsgStore* store)
{
    return MakeWrapper<IMAPIFolder, CheapFolder>([store](CheapFolder* folder)
                                                 { return new Nst::CReadOnlyFolder(folder, store, nullptr); });
}

ATL::CComQIPtr<IMAPITable> MakeTable()
{
    return MakeWrapper<IMAPITable, CheapTable>([](CheapTable* table) { return new Nst::CNstMapiTable(table); });
}

ATL::CComQIPtr<IMessage> MakeMessage()
{
    return MakeWrapper<IMessage, CheapMessage>([](CheapMessage* message)
                                               { return new Nst::CReadOnlyMessage(message); });
}

/// The objects that a thread uses at a time.
struct Objects
{
    ATL::CComQIPtr<IMsgStore> store = MakeStore();
    ATL::CComQIPtr<IMAPIFolder> folder = MakeFolder(store);
    ATL::CComQIPtr<IMAPITable> table = MakeTable();
    ATL::CComQIPtr<IMessage> message = MakeMessage();
};

/// Objects that are replaced while they are used: whoever is last with the old ones releases them.
class SharedObjects
{
public:
    std::shared_ptr<const Objects> Get()
    {
        const std::lock_guard lock(m_lock);
        return m_objects;
    }
    void Replace()
    {
        auto fresh = std::make_shared<const Objects>();
        const std::lock_guard lock(m_lock);
        m_objects.swap(fresh);
    }

private:
    std::mutex m_lock;
    std::shared_ptr<const Objects> m_objects = std::make_shared<const Objects>();
};

/// Hands objects over to threads that release them.
class Mailbox
{
public:
    /// Takes the caller's reference; an object that was waiting is released here.
    void Put(IUnknown* object)
    {
        ATL::CComPtr<IUnknown> old;
        old.Attach(m_slots[m_next++ % m_slots.size()].exchange(object));
    }
    /// The object that waits longest or thereabouts, with its reference; null when there is none.
    IUnknown* Take() { return m_slots[m_nextTaken++ % m_slots.size()].exchange(nullptr); }
    void Empty()
    {
        for (std::size_t index = 0; index < m_slots.size(); ++index)
            Put(nullptr);
    }

private:
    std::array<std::atomic<IUnknown*>, 16> m_slots = {};
    std::atomic<std::size_t> m_next = 0;
    std::atomic<std::size_t> m_nextTaken = 0;
};

/// What the threads saw that must not be. The first few are told.
class Faults
{
public:
    void Add(const std::string& text)
    {
        const std::lock_guard lock(m_lock);
        if (m_count++ < 10)
            m_text += "  " + text + "\n";
    }
    int Count() const { return m_count; }
    const std::string& Text() const { return m_text; }

private:
    std::mutex m_lock;
    int m_count = 0;
    std::string m_text;
};

/// A destination of log lines.
struct Destination
{
    std::atomic<bool> isClosed = false;
    std::atomic<long long> lines = 0;
    std::atomic<long long> late = 0;
    std::atomic<long long> bad = 0;
};

void CALLBACK CountLine(void* context, const Logging::LogLine& line)
{
    auto& destination = *static_cast<Destination*>(context);
    ++destination.lines;
    if (destination.isClosed)
        ++destination.late;
    const auto level = static_cast<int>(line.level);
    if (!line.text || level < 0 || level > 4 || line.threadId != GetCurrentThreadId() || line.time.wYear < 2000)
        ++destination.bad;
}

struct World
{
    Objects fixed;
    SharedObjects shared;
    Mailbox mailbox;
    Faults faults;
    std::atomic<bool> isOver = false;
    std::atomic<long long> allowedWrites = 0;
    std::atomic<long long> refusedWrites = 0;
    std::atomic<long long> archiveReads = 0;
    std::atomic<long long> modifiableReads = 0;
    std::atomic<long long> exceptions = 0;
    std::atomic<long long> handedOver = 0;
    std::atomic<long long> replaced = 0;
    std::atomic<long long> flips = 0;
    std::array<std::atomic<const char*>, workers> doing = {};
};

using Random = std::minstd_rand;

ENTRYID* EntryIdOf(EntryKind kind, BYTE (&bytes)[Tests::entryIdSize])
{
    std::memset(bytes, Tests::anyByte, sizeof(bytes));
    bytes[0] = static_cast<BYTE>(kind);
    return reinterpret_cast<ENTRYID*>(bytes);
}

/// A modifying call ends in one of two ways.
void CountWrite(World& world, const char* name, HRESULT hr)
{
    if (hr == S_OK)
        ++world.allowedWrites;
    else if (hr == MAPI_E_NO_ACCESS)
        ++world.refusedWrites;
    else
        world.faults.Add(std::string(name) + " gave another result: " + std::to_string(hr));
}

/// A reading call works or fails as the double was made to.
bool Worked(World& world, const char* name, HRESULT hr, HRESULT failure)
{
    if (hr != S_OK && hr != failure)
        world.faults.Add(std::string(name) + " gave another result: " + std::to_string(hr));
    return hr == S_OK;
}

// What a worker does at a time.

void ReadStoreProps(World& world, const Objects& objects, Random&)
{
    SizedSPropTagArray(6, tags) = {6,
                                   {PR_ACCESS, PR_STORE_SUPPORT_MASK, PR_STORE_UNICODE_MASK, PR_IPM_SUBTREE_ENTRYID,
                                    PR_ACCESS_LEVEL, PR_DISPLAY_NAME_W}};
    ULONG count = 0;
    Mapi::PropValuePointer values;
    const HRESULT hr = objects.store->GetProps(reinterpret_cast<SPropTagArray*>(&tags), 0, &count, values.Put());
    // The PST store may fail in the call itself or when it is asked for the archive's root.
    if (hr == E_FAIL || hr == MAPI_E_CALL_FAILED)
        return;
    if (hr != S_OK || count != 6)
        return world.faults.Add("GetProps gave another result: " + std::to_string(hr));
    constexpr LONG writable = STORE_MODIFY_OK | STORE_CREATE_OK | static_cast<LONG>(STORE_ITEMPROC);
    constexpr LONG archiveMask = (Tests::everyBit & ~writable) | STORE_READONLY;
    constexpr LONG modifiableMask = Tests::everyBit & ~static_cast<LONG>(STORE_ITEMPROC);
    const auto isAll = [&](LONG access, LONG mask, LONG level)
    {
        return values[0].Value.l == access && values[1].Value.l == mask && values[2].Value.l == mask &&
               values[4].Value.l == level;
    };
    if (isAll(MAPI_ACCESS_READ, archiveMask, 0))
        ++world.archiveReads;
    else if (isAll(Tests::everyBit, modifiableMask, Tests::everyBit))
        ++world.modifiableReads;
    else
        world.faults.Add("GetProps gave values of neither kind of store");
    const SBinary& root = values[3].Value.bin;
    if (root.cb != Tests::entryIdSize ||
        !std::all_of(root.lpb, root.lpb + root.cb, [](BYTE byte) { return byte == Tests::archiveByte; }))
        world.faults.Add("GetProps gave another subtree");
    if (values[5].ulPropTag != PR_DISPLAY_NAME_W || std::wstring_view(values[5].Value.lpszW) != L"100% %s %n")
        world.faults.Add("GetProps gave another display name");
}

void OpenEntries(World& world, const Objects& objects, Random& random)
{
    const auto kind = static_cast<EntryKind>(random() % static_cast<unsigned>(EntryKind::Count));
    BYTE bytes[Tests::entryIdSize];
    ENTRYID* const entryId = EntryIdOf(kind, bytes);
    ULONG type = 0;
    IUnknown* object = nullptr;
    const bool isThroughFolder = random() % 2 != 0;
    const HRESULT hr = isThroughFolder ? objects.folder->OpenEntry(sizeof(bytes), entryId, nullptr, 0, &type, &object)
                                       : objects.store->OpenEntry(sizeof(bytes), entryId, nullptr, 0, &type, &object);
    if (hr == MAPI_E_CORRUPT_DATA)
        return;
    HRESULT expected = S_OK;
    if (kind == EntryKind::Missing)
        expected = MAPI_E_NOT_FOUND;
    else if (kind == EntryKind::FalseFolder || kind == EntryKind::FalseMessage)
        expected = E_NOINTERFACE;
    if (hr != expected || (hr == S_OK) != (object != nullptr))
        world.faults.Add("OpenEntry gave another result: " + std::to_string(hr));
    if (!object)
        return;
    ++world.handedOver;
    world.mailbox.Put(object);
}

void ReadTables(World& world, const Objects& objects, Random& random)
{
    ATL::CComQIPtr<IMAPITable> table;
    const HRESULT hr =
        random() % 2 ? objects.folder->GetContentsTable(0, &table) : objects.folder->GetHierarchyTable(0, &table);
    if (!Worked(world, "GetContentsTable", hr, MAPI_E_CALL_FAILED))
        return;
    SRowSet* rows = nullptr;
    if (Worked(world, "QueryRows", table->QueryRows(3, 0, &rows), MAPI_E_CALL_FAILED))
        Tests::FreeRows(rows);
    ++world.handedOver;
    world.mailbox.Put(table.Detach());
}

void UseTable(World& world, const Objects& objects, Random&)
{
    SRowSet* rows = nullptr;
    if (Worked(world, "QueryRows", objects.table->QueryRows(2, 0, &rows), MAPI_E_CALL_FAILED))
    {
        // The array is declared with one element.
        const SRow* const row = rows->aRow;
        if (rows->cRows != 2 || row[1].lpProps[0].ulPropTag != PR_ENTRYID)
            world.faults.Add("QueryRows gave other rows");
        Tests::FreeRows(rows);
    }
    ULONG count = 0;
    if (Worked(world, "GetRowCount", objects.table->GetRowCount(0, &count), MAPI_E_BUSY) && count != 3)
        world.faults.Add("GetRowCount gave another count");
    if (const HRESULT hr = objects.table->FindRow(nullptr, BOOKMARK_BEGINNING, 0);
        hr != MAPI_E_NOT_FOUND && hr != MAPI_E_TOO_COMPLEX)
        world.faults.Add("FindRow gave another result: " + std::to_string(hr));
}

void ReadProps(World& world, IMAPIProp* object)
{
    SizedSPropTagArray(3, tags) = {3, {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_CREATION_TIME}};
    ULONG count = 0;
    Mapi::PropValuePointer values;
    const HRESULT hr = object->GetProps(reinterpret_cast<SPropTagArray*>(&tags), 0, &count, values.Put());
    if (hr == MAPI_E_CALL_FAILED)
        return;
    if (hr != MAPI_W_ERRORS_RETURNED || count != 3 || values[2].Value.err != MAPI_E_NOT_FOUND)
        world.faults.Add("GetProps of a folder or message gave another result: " + std::to_string(hr));
}

void ReadFolderAndMessage(World& world, const Objects& objects, Random&)
{
    ReadProps(world, objects.folder);
    ReadProps(world, objects.message);
    ATL::CComPtr<IUnknown> property;
    const HRESULT hr = objects.message->OpenProperty(PR_BODY_W, &IID_IUnknown, 0, 0, &property);
    if (hr != MAPI_E_NOT_FOUND && hr != MAPI_E_CALL_FAILED)
        world.faults.Add("OpenProperty gave another result: " + std::to_string(hr));
    ATL::CComQIPtr<IMAPITable> attachments;
    Worked(world, "GetAttachmentTable", objects.message->GetAttachmentTable(0, &attachments), MAPI_E_CALL_FAILED);
}

void WriteStore(World& world, const Objects& objects, Random&)
{
    wchar_t text[] = L"%n%n";
    SPropValue value = {};
    value.ulPropTag = PR_DISPLAY_NAME_W;
    value.Value.lpszW = text;
    CountWrite(world, "IMsgStore::SetProps", objects.store->SetProps(1, &value, nullptr));
    SPropTagArray tags = {1, {PR_COMMENT_W}};
    CountWrite(world, "IMsgStore::DeleteProps", objects.store->DeleteProps(&tags, nullptr));
    CountWrite(world, "IMsgStore::SetReceiveFolder", objects.store->SetReceiveFolder(nullptr, 0, 0, nullptr));
}

/// A read-only folder names itself in its refusal, and throws when its name cannot be read.
template <class Call>
void WriteFolder(World& world, const char* name, Call call)
{
    try
    {
        CountWrite(world, name, call());
    }
    catch (const CException& exception)
    {
        ++world.exceptions;
        if (exception.GetHResult() != MAPI_E_CALL_FAILED)
            world.faults.Add(std::string(name) + " threw another exception");
    }
}

void WriteFolderAndMessage(World& world, const Objects& objects, Random&)
{
    SPropValue value = {};
    value.ulPropTag = PR_PRIORITY;
    CountWrite(world, "IMessage::SetProps", objects.message->SetProps(1, &value, nullptr));
    SPropTagArray tags = {1, {PR_SUBJECT_W}};
    CountWrite(world, "IMessage::DeleteProps", objects.message->DeleteProps(&tags, nullptr));
    WriteFolder(world, "IMAPIFolder::SetProps", [&] { return objects.folder->SetProps(1, &value, nullptr); });
    WriteFolder(world, "IMAPIFolder::DeleteProps", [&] { return objects.folder->DeleteProps(&tags, nullptr); });
    ATL::CComQIPtr<IMessage> message;
    WriteFolder(world, "IMAPIFolder::CreateMessage",
                [&] { return objects.folder->CreateMessage(nullptr, 0, &message); });
    if (message)
    {
        ++world.handedOver;
        world.mailbox.Put(message.Detach());
    }
    ATL::CComQIPtr<IMAPIFolder> folder;
    WriteFolder(world, "IMAPIFolder::CreateFolder",
                [&] { return objects.folder->CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, 0, &folder); });
    if (folder)
    {
        ++world.handedOver;
        world.mailbox.Put(folder.Detach());
    }
}

void CountReferences(World& world, const Objects& objects, Random& random)
{
    IUnknown* const all[] = {objects.store.p, objects.folder.p, objects.table.p, objects.message.p};
    for (IUnknown* const object : all)
    {
        for (unsigned left = random() % 8; left > 0; --left)
        {
            const ATL::CComPtr<IUnknown> reference(object);
            ATL::CComPtr<IUnknown> self;
            if (object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&self)) != S_OK)
                world.faults.Add("QueryInterface for IUnknown failed");
            ATL::CComPtr<IUnknown> none;
            if (object->QueryInterface(IID_IMSProvider, reinterpret_cast<void**>(&none)) != E_NOINTERFACE || none)
                world.faults.Add("QueryInterface gave an interface that no object has");
        }
    }
    ATL::CComQIPtr<IMsgStore> unwrapped;
    if (const HRESULT hr =
            objects.store->QueryInterface(Nst::IID_UnwrappedMsgStore, reinterpret_cast<void**>(&unwrapped));
        hr != S_OK && hr != E_NOINTERFACE) // the second while stores are unwrapped
        world.faults.Add("QueryInterface for the PST store gave another result");
    ATL::CComQIPtr<IMsgStore> store;
    if (objects.store->QueryInterface(IID_IMsgStore, reinterpret_cast<void**>(&store)) != S_OK)
        world.faults.Add("QueryInterface for the store failed");
}

void AskForErrors(World& world, const Objects& objects, Random&)
{
    Mapi::MapiErrorPointer error;
    if (objects.store->GetLastError(MAPI_E_CALL_FAILED, MAPI_UNICODE, error.Put()) != S_OK ||
        error->ulLowLevelError != 112)
        world.faults.Add("GetLastError gave another error");
    BYTE first[Tests::entryIdSize];
    BYTE second[Tests::entryIdSize];
    ULONG result = 0;
    const HRESULT hr =
        objects.store->CompareEntryIDs(sizeof(first), EntryIdOf(EntryKind::Folder, first), sizeof(second),
                                       EntryIdOf(EntryKind::Message, second), 0, &result);
    if (hr != MAPI_E_INVALID_ENTRYID && (hr != S_OK || result != 0))
        world.faults.Add("CompareEntryIDs gave another result");
}

struct Action
{
    const char* name;
    void (*run)(World& world, const Objects& objects, Random& random);
};

constexpr Action actions[] = {
    {"properties of the store", ReadStoreProps},
    {"entries opened", OpenEntries},
    {"tables of the folder", ReadTables},
    {"rows of the table", UseTable},
    {"properties of folder and message", ReadFolderAndMessage},
    {"writes to the store", WriteStore},
    {"writes to folder and message", WriteFolderAndMessage},
    {"references", CountReferences},
    {"extended errors", AskForErrors},
};

std::array<std::atomic<long long>, std::size(actions)> actionCounts;

void Work(World& world, std::size_t number)
{
    Random random(static_cast<unsigned>(number) + 1);
    while (!world.isOver)
    {
        const std::size_t chosen = random() % std::size(actions);
        world.doing[number] = actions[chosen].name;
        // Three times of four the objects that live throughout.
        if (random() % 4)
            actions[chosen].run(world, world.fixed, random);
        else
            actions[chosen].run(world, *world.shared.Get(), random);
        ++actionCounts[chosen];
    }
    world.doing[number] = "done";
}

/// Uses and releases what the workers handed over: with it the last reference goes.
void ReleaseHandedOver(World& world)
{
    while (!world.isOver)
    {
        ATL::CComPtr<IUnknown> object;
        object.Attach(world.mailbox.Take());
        if (!object)
        {
            std::this_thread::yield();
            continue;
        }
        const ATL::CComQIPtr<IMAPIProp> prop(object.p);
        if (prop)
            ReadProps(world, prop);
    }
}

void ReplaceObjects(World& world)
{
    while (!world.isOver)
    {
        world.shared.Replace();
        ++world.replaced;
        std::this_thread::yield();
    }
}

/// No double fails with a code that ends the process, so the switches that would end it are safe to flip.
void FlipSwitches(World& world)
{
    Random random(99);
    while (!world.isOver)
    {
        Nst::SetModifyStores(random() % 2 != 0);
        Nst::SetUnwrapStores(random() % 4 == 0);
        Mapi::GetDieOnNetworkErrors() = random() % 2 != 0;
        Mapi::GetDieOnOutOfMemoryErrors() = random() % 2 != 0;
        Mapi::GetDieOnCorruptStore() = random() % 2 != 0;
        Mapi::GetOpenMapiObjectFlags() = random() % 2 != 0 ? MAPI_BEST_ACCESS : 0;
        Logging::EnableTraceLogging(random() % 2 != 0);
        ++world.flips;
        std::this_thread::yield();
    }
    Nst::SetModifyStores(false);
    Nst::SetUnwrapStores(false);
    Mapi::GetDieOnNetworkErrors() = false;
    Mapi::GetDieOnOutOfMemoryErrors() = false;
    Mapi::GetDieOnCorruptStore() = false;
    Mapi::GetOpenMapiObjectFlags() = 0;
    Logging::EnableTraceLogging(false);
}

/// What the log thread did.
struct LogReport
{
    std::vector<std::unique_ptr<Destination>> destinations;
    long long redirections = 0;
};

void RedirectLog(const World& world, const Tests::TempFolder& folder, LogReport& report)
{
    while (!world.isOver)
    {
        auto& destination = *report.destinations.emplace_back(std::make_unique<Destination>());
        Logging::SetLogSink(CountLine, &destination);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        switch (report.redirections % 3)
        {
        case 0:
            Logging::LogToFile((folder / L"one.log").c_str());
            break;
        case 1:
            Logging::LogToFile((folder / L"two.log").c_str());
            break;
        default:
            Logging::SetLogSink(nullptr, nullptr);
            break;
        }
        // No line may get there any more.
        destination.isClosed = true;
        if (report.redirections % 3 != 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        Logging::FlushLog();
        ++report.redirections;
    }
    Logging::SetLogSink(nullptr, nullptr);
}

/// How many lines a log file has; fails the test when one of them is not whole.
long long CountFileLines(const std::wstring& path)
{
    std::ifstream file{std::filesystem::path(path)};
    long long count = 0;
    long long bad = 0;
    for (std::string line; std::getline(file, line); ++count)
    {
        // "2026-01-31 09:05:07.125 [1a2c] error: text"
        const std::size_t bracket = line.find(']');
        const std::size_t colon = line.find(": ", bracket);
        const bool isWhole = line.size() > 30 && line[4] == '-' && line[13] == ':' && line[19] == '.' &&
                             line[24] == '[' && bracket < 36 && colon < bracket + 12 &&
                             line.find(line.substr(0, 8), 8) == std::string::npos;
        if (!isWhole && bad++ == 0)
            ADD_FAILURE() << "the first line that is not whole: " << line;
    }
    EXPECT_EQ(bad, 0);
    return count;
}

} // namespace

TEST(Hammer, EightThreadsUseOneStoreFolderTableAndMessage)
{
    MapiModule& mapi = MapiModule::Get();
    const ULONG blocksBefore = mapi.LiveBlocks();
    const Tests::Tally& tally = Tests::GetTally();
    const long long madeBefore = tally.made;
    const long long endedBefore = tally.ended;
    const long long callsBefore = tally.calls;
    const long long writesBefore = tally.writes;
    const Tests::TempFolder folder;
    LogReport log;
    long long heapLeft = 0;
    {
        const Tests::ImportHook<void*(std::size_t)> allocate("malloc", CountedMalloc);
        const Tests::ImportHook<void(void*)> free("free", CountedFree);
        World world;
        const auto describe = [&world]
        {
            std::string text;
            for (std::size_t number = 0; number < workers; ++number)
                text += "  thread " + std::to_string(number) + ": " + world.doing[number].load() + "\n";
            return text;
        };
        for (auto& doing : world.doing)
            doing = "not started";
        const Tests::Watchdog watchdog(40, describe);

        std::vector<std::thread> threads;
        for (std::size_t number = 0; number < workers; ++number)
            threads.emplace_back(Work, std::ref(world), number);
        threads.emplace_back(ReleaseHandedOver, std::ref(world));
        threads.emplace_back(ReleaseHandedOver, std::ref(world));
        threads.emplace_back(ReplaceObjects, std::ref(world));
        threads.emplace_back(FlipSwitches, std::ref(world));
        threads.emplace_back(RedirectLog, std::cref(world), std::cref(folder), std::ref(log));
        std::this_thread::sleep_for(duration);
        world.isOver = true;
        for (std::thread& thread : threads)
            thread.join();
        world.mailbox.Empty();

        EXPECT_EQ(world.faults.Count(), 0) << world.faults.Text();
        EXPECT_EQ(tally.writes - writesBefore, world.allowedWrites)
            << "a refused call must not reach the PST object, an allowed one must";
        EXPECT_GT(world.allowedWrites, 0);
        EXPECT_GT(world.refusedWrites, 0);
        EXPECT_GT(world.archiveReads, 0);
        EXPECT_GT(world.modifiableReads, 0);
        EXPECT_GT(world.exceptions, 0);
        EXPECT_GT(world.handedOver, 0);
        EXPECT_GT(world.replaced, 0);
        EXPECT_GT(world.flips, 0);
        EXPECT_GT(tally.failed, 0);
        std::printf(
            "writes refused: %lld, allowed: %lld; reads of the store as an archive: %lld, as modifiable: %lld\n",
            world.refusedWrites.load(), world.allowedWrites.load(), world.archiveReads.load(),
            world.modifiableReads.load());
        std::printf("objects released by other threads: %lld; sets of objects replaced in use: %lld; flips of the "
                    "switches: %lld; exceptions out of methods: %lld\n",
                    world.handedOver.load(), world.replaced.load(), world.flips.load(), world.exceptions.load());
        for (std::size_t index = 0; index < std::size(actions); ++index)
        {
            EXPECT_GT(actionCounts[index], 0) << actions[index].name;
            std::printf("  %-34s %9lld times\n", actions[index].name, actionCounts[index].load());
        }
    }
    heapLeft = heapBlocks;
    Tests::CheapObject::DeleteEnded();

    EXPECT_EQ(tally.misused, 0) << "calls on objects whose last reference was gone";
    EXPECT_EQ(tally.made - madeBefore, tally.ended - endedBefore) << "references left on provider objects, or given "
                                                                     "up too often";
    EXPECT_EQ(heapLeft, 0) << "blocks of the library's heap left";
    EXPECT_EQ(mapi.LiveBlocks(), blocksBefore);

    long long lines = 0;
    for (const auto& destination : log.destinations)
    {
        EXPECT_EQ(destination->late, 0) << "lines for a sink that had been replaced";
        EXPECT_EQ(destination->bad, 0);
        lines += destination->lines;
    }
    const long long fileLines = CountFileLines(folder / L"one.log") + CountFileLines(folder / L"two.log");
    EXPECT_GT(lines, 0);
    EXPECT_GT(fileLines, 0);
    EXPECT_GT(log.redirections, 0);
    std::printf(
        "calls on provider objects: %lld, on %lld of them; log redirected %lld times: %lld lines to sinks, %lld "
        "to files\n",
        tally.calls.load() - callsBefore, tally.made.load() - madeBefore, log.redirections, lines, fileLines);
}
