// Reference counting and QueryInterface for this module's COM objects, with a count of those that live.
#pragma once

#include "common/ComPtr.h"

#include <atomic>

namespace Common
{
/// The number of objects made with `ComObject` in this module (DLL or program) that have not been destroyed yet.
/// Thread-safe.
long LiveObjects() noexcept;

namespace Detail
{
/// Counts its own lifetime into `LiveObjects`.
class CountedLife
{
public:
    CountedLife() noexcept;
    ~CountedLife();
    CountedLife(const CountedLife&) = delete;
    CountedLife& operator=(const CountedLife&) = delete;
};
} // namespace Detail

/// Base of a COM object that implements `Interface` and answers `Iids` (pointers to identifiers of `Interface` and of
/// its bases) and IID_IUnknown. The count starts at 1, which belongs to the creator (see `MakeObject`); the last
/// Release destroys the object. Example: class Table final : public ComObject<IMAPITable, &IID_IMAPITable>.
template <class Interface, const IID*... Iids>
class ComObject : public Interface
{
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override
    {
        if (!ppvObj)
            return E_INVALIDARG;
        *ppvObj = nullptr;
        if (IsEqualIID(riid, IID_IUnknown) || (IsEqualIID(riid, *Iids) || ...))
        {
            AddRef();
            *ppvObj = static_cast<Interface*>(this);
            return S_OK;
        }
        return E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override { return ++m_count; }

    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG count = --m_count;
        if (count == 0)
            delete this;
        return count;
    }

protected:
    ComObject() noexcept = default;
    virtual ~ComObject() = default;

    /// Adds a reference unless the last one is being released. For those who know of the object without holding it, and
    /// whom its destructor tells of its end.
    bool TryAddRef() noexcept
    {
        ULONG count = m_count;
        while (count != 0 && !m_count.compare_exchange_weak(count, count + 1))
        {
        }
        return count != 0;
    }

private:
    std::atomic<ULONG> m_count{1};
    Detail::CountedLife m_life;
};

/// Creates a COM object and gives the pointer that owns its first reference.
template <class T, class... Args>
ComPtr<T> MakeObject(Args&&... args)
{
    return ComPtr<T>::Attach(new T(std::forward<Args>(args)...));
}
} // namespace Common
