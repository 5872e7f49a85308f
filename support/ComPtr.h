// The counted interface pointer ATL::CComQIPtr: the real one under Visual Studio, elsewhere an equivalent of the same
// name, layout (one pointer) and behaviour, as far as this library and its hosts use it.
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
template <class T, const IID* piid = &__uuidof(T)>
class CComQIPtr
{
public:
    CComQIPtr() noexcept = default;
    CComQIPtr(decltype(nullptr)) noexcept {}
    /// Takes a reference of its own on `lp`, which may be null.
    CComQIPtr(T* lp) noexcept : p(lp)
    {
        if (p)
            p->AddRef();
    }
    CComQIPtr(const CComQIPtr& other) noexcept : CComQIPtr(other.p) {}
    CComQIPtr(CComQIPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    /// Asks `lp` for T; null when `lp` is null or does not answer.
    CComQIPtr(IUnknown* lp) noexcept
        requires(!std::is_same_v<T, IUnknown>)
    {
        if (lp && FAILED(lp->QueryInterface(*piid, reinterpret_cast<void**>(&p))))
            p = nullptr;
    }
    ~CComQIPtr()
    {
        if (p)
            p->Release();
    }
    CComQIPtr& operator=(CComQIPtr other) noexcept
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

} // namespace ATL

#endif
