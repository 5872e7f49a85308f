// A method table that refuses everything.
#include "testbed/mapi/InvalidObject.h"

#include "common/Boundary.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/Olmapi.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>

namespace Testbed
{
namespace
{
// What is left of an object: its first 16 bytes are overwritten with this.
struct Invalid
{
    const void* const* methods;
    ULONG references;
};
static_assert(sizeof(Invalid) <= 16);

Mutex g_objectsLock;
// With what each object's memory is freed; the object itself has no room for it.
std::map<void*, MapiMemory> g_memory;

HRESULT STDMETHODCALLTYPE RefuseInterface(void*, REFIID, void** object)
{
    if (object)
        *object = nullptr;
    return MAPI_E_INVALID_OBJECT;
}

ULONG STDMETHODCALLTYPE Add(Invalid* object)
{
    const std::lock_guard guard(g_objectsLock);
    return ++object->references;
}

ULONG STDMETHODCALLTYPE Drop(Invalid* object)
{
    const std::lock_guard guard(g_objectsLock);
    const ULONG left = --object->references;
    if (left == 0)
    {
        auto owner = g_memory.extract(object);
        owner.mapped().Free(object);
    }
    return left;
}

// Arguments are passed in registers and cleaned up by the caller, so one function stands for every method.
HRESULT STDMETHODCALLTYPE Refuse(void*)
{
    return MAPI_E_INVALID_OBJECT;
}

const std::array<const void*, maxInvalidMethods>& Methods()
{
    static const std::array<const void*, maxInvalidMethods> methods = []
    {
        std::array<const void*, maxInvalidMethods> table;
        table.fill(reinterpret_cast<const void*>(&Refuse));
        table[0] = reinterpret_cast<const void*>(&RefuseInterface);
        table[1] = reinterpret_cast<const void*>(&Add);
        table[2] = reinterpret_cast<const void*>(&Drop);
        return table;
    }();
    return methods;
}
constexpr size_t mostLostObjects = 256;

[[noreturn]] HRESULT STDMETHODCALLTYPE EndProcess(void*)
{
    std::fputs("MAPI: an object of MAPI's was called after its last reference had been released.\n", stderr);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(OlmapiExit::LostObject));
    std::abort();
}

const std::array<const void*, maxInvalidMethods>& LostMethods()
{
    static const std::array<const void*, maxInvalidMethods> methods = []
    {
        std::array<const void*, maxInvalidMethods> table;
        table.fill(reinterpret_cast<const void*>(&EndProcess));
        return table;
    }();
    return methods;
}
} // namespace

void KeepLostObject(void* object) noexcept
{
    // Never destroyed: others may be released while the process ends.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): without memory for that the process may end.
    static auto* const kept = new std::deque<void*>;
    *static_cast<const void* const* volatile*>(object) = LostMethods().data();
    const std::lock_guard guard(g_objectsLock);
    kept->push_back(object);
    if (kept->size() > mostLostObjects)
    {
        ::operator delete(kept->front());
        kept->pop_front();
    }
}

void MakeObjectInvalid(const MapiMemory& memory, void* object, ULONG references, ULONG methods)
{
    if (methods < 3 || methods > maxInvalidMethods || references == 0)
    {
        Fail(MAPI_E_INVALID_PARAMETER,
             L"An object to be made invalid has an impossible number of methods or references.");
    }
    const std::lock_guard guard(g_objectsLock);
    g_memory.insert_or_assign(object, memory);
    auto* const invalid = static_cast<Invalid*>(object);
    invalid->methods = Methods().data();
    invalid->references = references;
}
} // namespace Testbed
