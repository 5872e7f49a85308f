// The registry of counted objects.
#include "tests/common/TestDouble.h"

#include "tests/common/MapiModule.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

namespace Tests
{
namespace
{

struct Registry
{
    std::mutex lock;
    std::vector<CountedObject*> objects;
};

Registry& GetRegistry()
{
    static Registry registry;
    return registry;
}

} // namespace

CountedObject::CountedObject(const char* name) : m_name(name)
{
    const std::lock_guard lock(GetRegistry().lock);
    GetRegistry().objects.push_back(this);
}

CountedObject::~CountedObject()
{
    const std::lock_guard lock(GetRegistry().lock);
    std::erase(GetRegistry().objects, this);
}

ULONG CountedObject::References() const noexcept
{
    return static_cast<ULONG>(m_references);
}

ULONG CountedObject::Reference() noexcept
{
    const LONG references = InterlockedIncrement(&m_references);
    if (references <= 1)
        ADD_FAILURE() << m_name << ": AddRef after the last Release";
    return static_cast<ULONG>(references);
}

ULONG CountedObject::Dereference() noexcept
{
    const LONG references = InterlockedDecrement(&m_references);
    if (references < 0)
        ADD_FAILURE() << m_name << ": Release after the last Release";
    else if (references == 0)
        OnUnreferenced();
    return static_cast<ULONG>(references);
}

std::size_t CountedObject::EndAll()
{
    std::vector<CountedObject*> objects;
    {
        const std::lock_guard lock(GetRegistry().lock);
        objects = GetRegistry().objects;
    }
    std::size_t live = 0;
    for (CountedObject* const object : objects)
    {
        if (object->References() == 0)
        {
            delete object;
            continue;
        }
        ++live;
        ADD_FAILURE() << object->Name() << ": " << object->References() << " references left";
        // What holds them may still use the object, so it stays; only it is no concern of the next test.
        object->OnUnreferenced();
        const std::lock_guard lock(GetRegistry().lock);
        std::erase(GetRegistry().objects, object);
    }
    return live;
}

std::size_t CountedObject::CountLive()
{
    const std::lock_guard lock(GetRegistry().lock);
    return static_cast<std::size_t>(std::ranges::count_if(GetRegistry().objects, [](const CountedObject* object)
                                                          { return object->References() != 0; }));
}

MAPIERROR* AllocateMapiError(const std::wstring& text, const std::wstring& component, ULONG lowLevelError,
                             ULONG context)
{
    const MapiModule& mapi = MapiModule::Get();
    auto* const error = static_cast<MAPIERROR*>(mapi.Allocate(sizeof(MAPIERROR)));
    const auto copy = [&](const std::wstring& source)
    {
        const std::size_t size = (source.size() + 1) * sizeof(wchar_t);
        void* const block = mapi.AllocateMore(size, error);
        std::memcpy(block, source.c_str(), size);
        return static_cast<LPTSTR>(block);
    };
    *error = {MAPI_ERROR_VERSION, copy(text), copy(component), lowLevelError, context};
    return error;
}

} // namespace Tests
