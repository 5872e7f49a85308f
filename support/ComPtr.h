// The counted interface pointers ATL::CComPtr and ATL::CComQIPtr: the real ones under Visual Studio, elsewhere
// equivalents of the same names, layout (one pointer) and behaviour, as far as this library and its hosts use them.
#pragma once

#include "support/MapiHeaders.h"

#if defined(_MSC_VER)

#include <atlbase.h>
#include <atlcomcli.h>

#else

#include <utility>

namespace ATL
{

/// Holds one counted reference on an interface, or null. A pointer is not to be used from two threads at once; copies
/// of it may be.
template <class T>
class CComPtr
{
public:
    CComPtr() noexcept = default;
    /// Takes a reference of its own on `lp`, which may be null.
    CComPtr(T* lp) noexcept : p(lp)
    {
        if (p)
            p->AddRef();
    }
    CComPtr(const CComPtr& other) noexcept : CComPtr(other.p) {}
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    ~CComPtr()
    {
        if (p)
            p->Release();
    }
    CComPtr& operator=(CComPtr other) noexcept
    {
        std::swap(p, other.p);
        return *this;
    }

    operator T*() const noexcept { return p; }
    T& operator*() const noexcept { return *p; }
    T* operator->() const noexcept { return p; }
    bool operator!() const noexcept { return p == nullptr; }
    /// The address to hand to a call that gives an interface; the pointer must be null then.
    T** operator&() noexcept { return &p; }
    /// Takes over a reference that the caller owns.
    void Attach(T* other) noexcept
    {
        if (p)
            p->Release();
        p = other;
    }
    /// Hands the reference to the caller.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(p, nullptr); }
    void Release() noexcept
    {
        if (T* const old = std::exchange(p, nullptr))
            old->Release();
    }
    template <class Q>
    HRESULT QueryInterface(Q** pp) const noexcept
    {
        return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
    }

    T* p = nullptr;
};

/// The same, which asks an object for T where it is given another interface. IUnknown has CComPtr alone: the two
/// constructors from a pointer would be one.
template <class T, const IID* piid = &__uuidof(T)>
class CComQIPtr : public CComPtr<T>
{
public:
    CComQIPtr() noexcept = default;
    CComQIPtr(decltype(nullptr)) noexcept {}
    CComQIPtr(T* lp) noexcept : CComPtr<T>(lp) {}
    /// Asks `lp` for T; null when `lp` is null or does not answer.
    CComQIPtr(IUnknown* lp) noexcept
    {
        if (lp && FAILED(lp->QueryInterface(*piid, reinterpret_cast<void**>(&this->p))))
            this->p = nullptr;
    }
};

} // namespace ATL

#endif
