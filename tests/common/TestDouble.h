// What all test doubles share: counted references, and a registry that knows which of them live.
#pragma once

#include "support/ComPtr.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>

namespace Tests
{

/// The base of every test double, and of other counted objects that a test makes. An object whose last reference is
/// gone is not deleted before the test ends, so that a call on it afterwards fails the test instead of crashing it.
class CountedObject
{
public:
    explicit CountedObject(const char* name);
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;
    virtual ~CountedObject();

    /// References held now.
    ULONG References() const noexcept;
    const std::string& Name() const noexcept { return m_name; }

    /// Fails the current test for every object that is still referenced, and deletes all. Gives how many there were.
    static std::size_t EndAll();
    /// How many objects are referenced now.
    static std::size_t CountLive();

protected:
    ULONG Reference() noexcept;
    ULONG Dereference() noexcept;
    /// Called with the last reference gone.
    virtual void OnUnreferenced() {}

private:
    std::string m_name;
    volatile LONG m_references = 1;
};

/// Holds one reference on a test double; Make gives the first.
template <class T>
class DoublePointer
{
public:
    DoublePointer() noexcept = default;
    /// Takes over a reference.
    explicit DoublePointer(T* object) noexcept : m_object(object) {}
    DoublePointer(const DoublePointer& other) noexcept : m_object(other.m_object)
    {
        if (m_object)
            m_object->AddRef();
    }
    DoublePointer(DoublePointer&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~DoublePointer() { Release(); }
    DoublePointer& operator=(DoublePointer other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    T* Get() const noexcept { return m_object; }
    operator T*() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    /// Gives the reference up.
    void Release() noexcept
    {
        if (T* const object = std::exchange(m_object, nullptr))
            object->Release();
    }

private:
    T* m_object = nullptr;
};

/// A test double of a COM interface: real references, QueryInterface that can be told what to do and otherwise answers
/// for the interfaces of `own` with the double itself and for nothing else.
template <class I>
class TestDouble : public I, public CountedObject
{
public:
    TestDouble(const char* name, std::initializer_list<IID> own) : CountedObject(name)
    {
        using testing::_;
        ON_CALL(*this, QueryInterface(_, _))
            .WillByDefault(
                [this, iids = std::vector<IID>(own)](REFIID riid, void** object) -> HRESULT
                {
                    *object = nullptr;
                    for (const IID& iid : iids)
                    {
                        if (riid != iid)
                            continue;
                        *object = static_cast<I*>(this);
                        AddRef();
                        return S_OK;
                    }
                    return E_NOINTERFACE;
                });
    }

    MOCK_METHOD(HRESULT, QueryInterface, (REFIID riid, void** ppvObj), (override, Calltype(STDMETHODCALLTYPE)));
    ULONG STDMETHODCALLTYPE AddRef() override { return Reference(); }
    ULONG STDMETHODCALLTYPE Release() override { return Dereference(); }

protected:
    void OnUnreferenced() override { testing::Mock::VerifyAndClearExpectations(this); }
};

/// Makes a test double that says nothing of calls that no test told of.
template <class Double, class... Arguments>
DoublePointer<testing::NiceMock<Double>> MakeNice(Arguments&&... arguments)
{
    return DoublePointer<testing::NiceMock<Double>>(
        new testing::NiceMock<Double>(std::forward<Arguments>(arguments)...));
}

/// Makes a test double on which every call that no test told of is a failure.
template <class Double, class... Arguments>
DoublePointer<testing::StrictMock<Double>> MakeStrict(Arguments&&... arguments)
{
    return DoublePointer<testing::StrictMock<Double>>(
        new testing::StrictMock<Double>(std::forward<Arguments>(arguments)...));
}

/// An extended error as a GetLastError implementation returns it: one block, wide strings, freed by the receiver.
MAPIERROR* AllocateMapiError(const std::wstring& text, const std::wstring& component, ULONG lowLevelError,
                             ULONG context);

/// Has the double answer GetLastError for `hr`, asked in Unicode, with an extended error; it keeps giving
/// MAPI_E_NO_SUPPORT for everything else.
template <class Double>
void GiveExtendedError(Double& object, HRESULT hr, const std::wstring& text, const std::wstring& component,
                       ULONG lowLevelError, ULONG context)
{
    ON_CALL(object, GetLastError(hr, static_cast<ULONG>(MAPI_UNICODE), testing::_))
        .WillByDefault(
            [=](HRESULT, ULONG, MAPIERROR** error) -> HRESULT
            {
                *error = AllocateMapiError(text, component, lowLevelError, context);
                return S_OK;
            });
}

} // namespace Tests
