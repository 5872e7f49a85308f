// Observing calls by way of the method tables.
#include "tests/e2e/Observer.h"

#include "common/Boundary.h"

#include <cstring>
#include <mutex>
#include <utility>

using namespace Common;

namespace Tests
{
namespace
{
// The methods of each interface behind those of IUnknown, in the interface's order.
#define PROP_METHODS(M)                                                                                                \
    M(GetLastError)                                                                                                    \
    M(SaveChanges)                                                                                                     \
    M(GetProps)                                                                                                        \
    M(GetPropList)                                                                                                     \
    M(OpenProperty)                                                                                                    \
    M(SetProps)                                                                                                        \
    M(DeleteProps)                                                                                                     \
    M(CopyTo)                                                                                                          \
    M(CopyProps)                                                                                                       \
    M(GetNamesFromIDs)                                                                                                 \
    M(GetIDsFromNames)
#define STORE_METHODS(M)                                                                                               \
    PROP_METHODS(M)                                                                                                    \
    M(Advise)                                                                                                          \
    M(Unadvise)                                                                                                        \
    M(CompareEntryIDs)                                                                                                 \
    M(OpenEntry)                                                                                                       \
    M(SetReceiveFolder)                                                                                                \
    M(GetReceiveFolder)                                                                                                \
    M(GetReceiveFolderTable)                                                                                           \
    M(StoreLogoff)                                                                                                     \
    M(AbortSubmit)                                                                                                     \
    M(GetOutgoingQueue)                                                                                                \
    M(SetLockState)                                                                                                    \
    M(FinishedMsg)                                                                                                     \
    M(NotifyNewMail)
#define FOLDER_METHODS(M)                                                                                              \
    PROP_METHODS(M)                                                                                                    \
    M(GetContentsTable)                                                                                                \
    M(GetHierarchyTable)                                                                                               \
    M(OpenEntry)                                                                                                       \
    M(SetSearchCriteria)                                                                                               \
    M(GetSearchCriteria)                                                                                               \
    M(CreateMessage)                                                                                                   \
    M(CopyMessages)                                                                                                    \
    M(DeleteMessages)                                                                                                  \
    M(CreateFolder)                                                                                                    \
    M(CopyFolder)                                                                                                      \
    M(DeleteFolder)                                                                                                    \
    M(SetReadFlags)                                                                                                    \
    M(GetMessageStatus)                                                                                                \
    M(SetMessageStatus)                                                                                                \
    M(SaveContentsSort)                                                                                                \
    M(EmptyFolder)
#define MESSAGE_METHODS(M)                                                                                             \
    PROP_METHODS(M)                                                                                                    \
    M(GetAttachmentTable)                                                                                              \
    M(OpenAttach)                                                                                                      \
    M(CreateAttach)                                                                                                    \
    M(DeleteAttach)                                                                                                    \
    M(GetRecipientTable)                                                                                               \
    M(ModifyRecipients)                                                                                                \
    M(SubmitMessage)                                                                                                   \
    M(SetReadFlag)

std::mutex callsLock;
std::vector<std::string> calls;

void Note(const char* name)
{
    const std::lock_guard lock(callsLock);
    calls.emplace_back(name);
}

// One method of one interface: what stands in its slot, and what stood there before.
template <class Interface, size_t Slot, class Method>
struct Hook;

template <class Interface, size_t Slot, class Result, class Declaring, class... Arguments>
struct Hook<Interface, Slot, Result (STDMETHODCALLTYPE Declaring::*)(Arguments...)>
{
    using Function = Result(STDMETHODCALLTYPE*)(void* self, Arguments...);

    static inline Function original = nullptr;
    static inline const char* name = nullptr;

    static Result STDMETHODCALLTYPE Call(void* self, Arguments... arguments)
    {
        Note(name);
        return original(self, arguments...);
    }
};

// Makes a method table writable for as long as it lives.
class WritableTable
{
public:
    WritableTable(void** table, size_t slots) : m_table(table), m_size(slots * sizeof(void*))
    {
        if (!VirtualProtect(m_table, m_size, PAGE_READWRITE, &m_protection))
            Fail(MAPI_E_CALL_FAILED, L"The provider's method tables cannot be observed.");
    }
    ~WritableTable()
    {
        DWORD ignored = 0;
        VirtualProtect(m_table, m_size, m_protection, &ignored);
    }
    WritableTable(const WritableTable&) = delete;
    WritableTable& operator=(const WritableTable&) = delete;

private:
    void** m_table;
    size_t m_size;
    DWORD m_protection = 0;
};

template <class Interface, size_t Slot, class Method>
void Put(void** table, const char* name, Method)
{
    using H = Hook<Interface, Slot, Method>;
    void* const hook = reinterpret_cast<void*>(&H::Call);
    if (table[Slot] == hook)
        return;
    H::name = name;
    H::original = reinterpret_cast<typename H::Function>(table[Slot]);
    table[Slot] = hook;
}

void** TableOf(void* object)
{
    return *static_cast<void***>(object);
}
} // namespace

#define SLOT(name) name,
#define PUT(method) Put<I, static_cast<size_t>(Slot::method)>(table, Name "::" #method, &I::method);
// NOLINTBEGIN(bugprone-macro-parentheses): the interface is a type
#define DEFINE_WATCH(Interface, METHODS)                                                                               \
    void Watch(Interface& object)                                                                                      \
    {                                                                                                                  \
        using I = Interface;                                                                                           \
        enum class Slot : size_t                                                                                       \
        {                                                                                                              \
            QueryInterface,                                                                                            \
            AddRef,                                                                                                    \
            Release,                                                                                                   \
            METHODS(SLOT) End                                                                                          \
        };                                                                                                             \
        void** const table = TableOf(&object);                                                                         \
        const WritableTable writable(table, static_cast<size_t>(Slot::End));                                           \
        METHODS(PUT)                                                                                                   \
    }
// NOLINTEND(bugprone-macro-parentheses)

#define Name "IMsgStore"
DEFINE_WATCH(IMsgStore, STORE_METHODS)
#undef Name
#define Name "IMAPIFolder"
DEFINE_WATCH(IMAPIFolder, FOLDER_METHODS)
#undef Name
#define Name "IMessage"
DEFINE_WATCH(IMessage, MESSAGE_METHODS)
#undef Name
#define Name "IAttach"
DEFINE_WATCH(IAttach, PROP_METHODS)
#undef Name

std::vector<std::string> TakeCalls()
{
    const std::lock_guard lock(callsLock);
    return std::exchange(calls, {});
}
} // namespace Tests
