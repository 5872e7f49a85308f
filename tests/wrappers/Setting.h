// What the tests of the wrapper classes share.
#pragma once

#include "nst/KivNstCore.h"
#include "support/Format.h"
#include "support/MapiErrors.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <string>
#include <typeinfo>

namespace Tests
{

/// Store modification on or off while it lives.
class ModifyStores
{
public:
    explicit ModifyStores(bool on) : m_previous(Quillon::Nst::GetModifyStores()) { Quillon::Nst::SetModifyStores(on); }
    ModifyStores(const ModifyStores&) = delete;
    ModifyStores& operator=(const ModifyStores&) = delete;
    ~ModifyStores() { Quillon::Nst::SetModifyStores(m_previous); }

private:
    bool m_previous;
};

/// Stores are unwrapped while it lives.
class UnwrapStores
{
public:
    UnwrapStores() { Quillon::Nst::SetUnwrapStores(true); }
    UnwrapStores(const UnwrapStores&) = delete;
    UnwrapStores& operator=(const UnwrapStores&) = delete;
    ~UnwrapStores() { Quillon::Nst::SetUnwrapStores(false); }
};

/// A wrapper that a test made, with its first reference.
template <class Wrapper, class... Arguments>
DoublePointer<Wrapper> Wrap(Arguments&&... arguments)
{
    return DoublePointer<Wrapper>(new Wrapper(std::forward<Arguments>(arguments)...));
}

/// Whether the object is of this class and of none derived from it.
template <class Class, class I>
bool IsExactly(I* object)
{
    return object && typeid(*object) == typeid(Class);
}

/// What a MAPI failure without an extended error is logged as.
inline std::wstring MapiText(HRESULT hr, const wchar_t* context = L"")
{
    return Quillon::Mapi::FormatMapiError(hr, context, nullptr).GetString();
}

/// What a COM failure is logged as.
inline std::wstring ComText(HRESULT hr)
{
    return Quillon::FormatComError(hr).GetString();
}

/// The values of one GetProps call, freed at the end.
class Values
{
public:
    Values() = default;
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;
    ~Values()
    {
        if (m_values)
            MapiModule::Get().Free(m_values);
    }

    HRESULT Read(IMAPIProp* object, const SPropTagArray* tags = nullptr)
    {
        return object->GetProps(const_cast<SPropTagArray*>(tags), 0, &m_count, &m_values);
    }
    ULONG Count() const { return m_count; }
    const SPropValue& operator[](std::size_t index) const { return m_values[index]; }
    explicit operator bool() const { return m_values != nullptr; }

private:
    ULONG m_count = 0;
    SPropValue* m_values = nullptr;
};

/// Pointers that no wrapper may look behind, told apart by a number.
template <class Pointer = void*>
Pointer Opaque(std::size_t number)
{
    return reinterpret_cast<Pointer>(0x7200000000000000 + number * 0x11111);
}

/// Gives an object with a reference for its receiver, as a method with an output does.
template <class I>
auto GiveObject(HRESULT hr, I* object)
{
    return [hr, object](auto... arguments) -> HRESULT
    {
        auto** const output = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
        *output = object;
        if (object)
            object->AddRef();
        return hr;
    };
}

/// Expects a call so often, and has it fail each time: `FailTimes(EXPECT_CALL(store, SaveChanges), 0)`.
template <class Expectation>
void FailTimes(Expectation& expectation, int times)
{
    expectation.Times(times);
    if (times > 0)
        expectation.WillRepeatedly(testing::Return(E_FAIL));
}

/// An OpenEntry that gives an object of this type.
inline auto GiveEntry(HRESULT hr, ULONG type, IUnknown* object)
{
    return [=](ULONG, ENTRYID*, const IID*, ULONG, ULONG* typeOutput, IUnknown** output) -> HRESULT
    {
        *typeOutput = type;
        *output = object;
        if (object)
            object->AddRef();
        return hr;
    };
}

} // namespace Tests
