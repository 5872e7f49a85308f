// The search service's objects.
#include "tests/setup/SearchDouble.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

namespace Tests
{
namespace
{

// The platform's numbers, not the library's.
constexpr CLSID searchManagerClass = {0x7D096C5F, 0xAC08, 0x4F1F, {0xBE, 0xB7, 0x5C, 0x22, 0xC5, 0x17, 0xCE, 0x39}};
constexpr IID searchManagerInterface = {0xAB310581, 0xAC80, 0x11D1, {0x8D, 0xF3, 0x00, 0xC0, 0x4F, 0xB6, 0xEF, 0x69}};

SearchService* g_service = nullptr;

/// What a caller sees of an object: a pointer to a table of functions; and the object's references.
struct Object
{
    const void* const* slots;
    const wchar_t* name;
    LONG references;
    LONG taken;

    void Take()
    {
        ++references;
        ++taken;
    }
};

extern Object g_manager;
extern Object g_catalog;
extern Object g_scope;

HRESULT Call(SearchStep step, const std::wstring& text)
{
    g_service->calls.push_back(text);
    return g_service->Result(step);
}

/// Hands out `object` with a reference, as the step's result says.
HRESULT Give(SearchStep step, const std::wstring& text, Object& object, void** result)
{
    const HRESULT hr = Call(step, text);
    if (FAILED(hr) || step == g_service->givingNothing)
    {
        *result = nullptr;
        return hr;
    }
    object.Take();
    *result = &object;
    return hr;
}

HRESULT STDMETHODCALLTYPE QueryInterface(Object* self, const IID&, void** result)
{
    g_service->calls.push_back(std::wstring(self->name) + L"::QueryInterface");
    *result = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE AddRef(Object* self)
{
    self->Take();
    return static_cast<ULONG>(self->references);
}

ULONG STDMETHODCALLTYPE Release(Object* self)
{
    return static_cast<ULONG>(--self->references);
}

HRESULT STDMETHODCALLTYPE GetCatalog(Object*, const wchar_t* name, void** catalog)
{
    return Give(SearchStep::GetCatalog, std::wstring(L"GetCatalog ") + name, g_catalog, catalog);
}

HRESULT STDMETHODCALLTYPE GetCrawlScopeManager(Object*, void** scope)
{
    return Give(SearchStep::GetCrawlScopeManager, L"GetCrawlScopeManager", g_scope, scope);
}

HRESULT STDMETHODCALLTYPE IncludedInCrawlScope(Object*, const wchar_t* url, BOOL* included)
{
    const HRESULT hr = Call(SearchStep::IncludedInCrawlScope, std::wstring(L"IncludedInCrawlScope ") + url);
    if (SUCCEEDED(hr))
        *included = g_service->included;
    return hr;
}

HRESULT STDMETHODCALLTYPE AddUserScopeRule(Object*, const wchar_t* url, BOOL include, BOOL overrideChildren,
                                           DWORD followFlags)
{
    return Call(SearchStep::AddUserScopeRule, std::wstring(L"AddUserScopeRule ") + url + L" " +
                                                  std::to_wstring(include) + L" " + std::to_wstring(overrideChildren) +
                                                  L" " + std::to_wstring(followFlags));
}

HRESULT STDMETHODCALLTYPE SaveAll(Object*)
{
    return Call(SearchStep::SaveAll, L"SaveAll");
}

/// Every slot that is not to be called; it says which it was.
template <std::size_t Slot>
HRESULT STDMETHODCALLTYPE Unexpected(Object* self)
{
    g_service->calls.push_back(std::wstring(self->name) + L" slot " + std::to_wstring(Slot));
    return E_UNEXPECTED;
}

template <class Function>
const void* Slot(Function* function)
{
    return reinterpret_cast<const void*>(function);
}

template <std::size_t Count>
using Slots = std::array<const void*, Count>;

/// A table of `Count` slots: IUnknown's three, the given ones, and for the others one that complains.
template <std::size_t Count>
Slots<Count> MakeSlots(std::initializer_list<std::pair<std::size_t, const void*>> given)
{
    Slots<Count> slots = []<std::size_t... Index>(std::index_sequence<Index...>)
    { return Slots<Count>{Slot(&Unexpected<Index>)...}; }(std::make_index_sequence<Count>());
    slots[0] = Slot(&QueryInterface);
    slots[1] = Slot(&AddRef);
    slots[2] = Slot(&Release);
    for (const auto& [index, function] : given)
        slots[index] = function;
    return slots;
}

// IUnknown has slots 0 to 2.
const Slots<16> managerSlots = MakeSlots<16>({{10, Slot(&GetCatalog)}});
const Slots<29> catalogSlots = MakeSlots<29>({{28, Slot(&GetCrawlScopeManager)}});
const Slots<19> scopeSlots =
    MakeSlots<19>({{8, Slot(&AddUserScopeRule)}, {13, Slot(&IncludedInCrawlScope)}, {16, Slot(&SaveAll)}});

Object g_manager = {managerSlots.data(), L"ISearchManager", 0, 0};
Object g_catalog = {catalogSlots.data(), L"ISearchCatalogManager", 0, 0};
Object g_scope = {scopeSlots.data(), L"ISearchCrawlScopeManager", 0, 0};

/// What a caller must ask for: the service may live in another process.
constexpr DWORD anyServer = 0x15;

HRESULT WINAPI CreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID riid, void** object)
{
    *object = nullptr;
    if (!g_service || classId != searchManagerClass)
        return REGDB_E_CLASSNOTREG;
    EXPECT_EQ(outer, nullptr);
    EXPECT_EQ(context, anyServer);
    EXPECT_EQ(riid, searchManagerInterface);
    return Give(SearchStep::CreateInstance, L"CreateInstance", g_manager, object);
}

} // namespace

NoSearchService::NoSearchService() : m_hook("CoCreateInstance", &CreateInstance) {}

SearchService::SearchService()
{
    for (Object* const object : {&g_manager, &g_catalog, &g_scope})
        object->references = object->taken = 0;
    g_service = this;
}

SearchService::~SearchService()
{
    for (const Object* const object : {&g_manager, &g_catalog, &g_scope})
        EXPECT_EQ(object->references, 0) << "references are left";
    g_service = nullptr;
}

LONG SearchService::References() const
{
    return g_manager.references + g_catalog.references + g_scope.references;
}

LONG SearchService::ReferencesTaken() const
{
    return g_manager.taken + g_catalog.taken + g_scope.taken;
}

} // namespace Tests
