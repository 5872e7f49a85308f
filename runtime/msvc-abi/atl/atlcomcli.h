// ATL's counted interface pointers as they are publicly documented, for builds that have no ATL: what compiles with
// these compiles with the real ones. Left out are SetSite, Advise, and CoCreateInstance by a program's name.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <stdio.h>
#include <stdlib.h>

// The real one asserts in debug builds alone; here nothing is shipped, so it always does.
#ifndef ATLASSERT
#define ATLASSERT(condition)                                                                                           \
    ((condition) ? static_cast<void>(0) : ::ATL::Detail::AssertionFailed(#condition, __FILE__, __LINE__))
#endif

namespace ATL
{

namespace Detail
{

[[noreturn]] inline void AssertionFailed(const char* condition, const char* file, int line)
{
    fprintf(stderr, "%s(%d): ATL's assertion failed: %s\n", file, line, condition);
    abort();
}

} // namespace Detail

/// What the operator -> gives: the interface without the two methods that are the pointer's own business.
template <class T>
class _NoAddRefReleaseOnCComPtr : public T
{
private:
    STDMETHOD_(ULONG, AddRef)() = 0;
    STDMETHOD_(ULONG, Release)() = 0;
};

/// Puts `lp` in the place of what `*pp` holds, counted.
inline IUnknown* AtlComPtrAssign(IUnknown** pp, IUnknown* lp)
{
    if (!pp)
        return nullptr;
    if (lp)
        lp->AddRef();
    if (*pp)
        (*pp)->Release();
    *pp = lp;
    return lp;
}

/// Puts what `lp` answers when asked for `riid` in the place of what `*pp` holds; null where it does not answer.
inline IUnknown* AtlComQIPtrAssign(IUnknown** pp, IUnknown* lp, REFIID riid)
{
    if (!pp)
        return nullptr;
    IUnknown* const old = *pp;
    *pp = nullptr;
    if (lp && FAILED(lp->QueryInterface(riid, reinterpret_cast<void**>(pp))))
        *pp = nullptr;
    if (old)
        old->Release();
    return *pp;
}

/// What both pointers have.
template <class T>
class CComPtrBase
{
protected:
    CComPtrBase() throw() : p(nullptr) {}
    CComPtrBase(T* lp) throw() : p(lp)
    {
        if (p)
            p->AddRef();
    }
    void Swap(CComPtrBase& other)
    {
        T* const own = p;
        p = other.p;
        other.p = own;
    }

public:
    using _PtrClass = T;

    ~CComPtrBase() throw()
    {
        if (p)
            p->Release();
    }

    operator T*() const throw() { return p; }
    T& operator*() const
    {
        ATLASSERT(p != nullptr);
        return *p;
    }
    // The one who takes the address wants something put there, which would leak what is there.
    T** operator&() throw()
    {
        ATLASSERT(p == nullptr);
        return &p;
    }
    _NoAddRefReleaseOnCComPtr<T>* operator->() const throw()
    {
        ATLASSERT(p != nullptr);
        return static_cast<_NoAddRefReleaseOnCComPtr<T>*>(p);
    }
    bool operator!() const throw() { return p == nullptr; }
    bool operator<(T* other) const throw() { return p < other; }
    bool operator==(T* other) const throw() { return p == other; }
    bool operator!=(T* other) const throw() { return p != other; }

    void Release() throw()
    {
        T* const old = p;
        if (old)
        {
            p = nullptr;
            old->Release();
        }
    }
    /// Whether both are interfaces of one object.
    bool IsEqualObject(IUnknown* other) throw()
    {
        if (!p && !other)
            return true;
        if (!p || !other)
            return false;
        IUnknown* mine = nullptr;
        IUnknown* theirs = nullptr;
        p->QueryInterface(__uuidof(IUnknown), reinterpret_cast<void**>(&mine));
        other->QueryInterface(__uuidof(IUnknown), reinterpret_cast<void**>(&theirs));
        const bool equal = mine == theirs;
        if (mine)
            mine->Release();
        if (theirs)
            theirs->Release();
        return equal;
    }
    /// Takes over a reference that the caller owns.
    void Attach(T* other) throw()
    {
        if (p)
        {
            const ULONG left = p->Release();
            ATLASSERT(left != 0 || p != other);
            static_cast<void>(left);
        }
        p = other;
    }
    /// Hands the reference to the caller.
    T* Detach() throw()
    {
        T* const own = p;
        p = nullptr;
        return own;
    }
    HRESULT CopyTo(T** other) throw()
    {
        ATLASSERT(other != nullptr);
        if (!other)
            return E_POINTER;
        *other = p;
        if (p)
            p->AddRef();
        return S_OK;
    }
    HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer = nullptr, DWORD context = CLSCTX_ALL) throw()
    {
        ATLASSERT(p == nullptr);
        return ::CoCreateInstance(clsid, outer, context, __uuidof(T), reinterpret_cast<void**>(&p));
    }
    template <class Q>
    HRESULT QueryInterface(Q** other) const throw()
    {
        ATLASSERT(other != nullptr);
        return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(other));
    }

    T* p;
};

/// A counted interface pointer.
template <class T>
class CComPtr : public CComPtrBase<T>
{
public:
    CComPtr() throw() {}
    CComPtr(T* lp) throw() : CComPtrBase<T>(lp) {}
    CComPtr(const CComPtr<T>& lp) throw() : CComPtrBase<T>(lp.p) {}
    CComPtr(CComPtr<T>&& lp) throw() { this->Swap(lp); }

    T* operator=(T* lp) throw()
    {
        if (*this != lp)
            CComPtr(lp).Swap(*this);
        return *this;
    }
    template <class Q>
    T* operator=(const CComPtr<Q>& lp) throw()
    {
        if (!this->IsEqualObject(lp))
            AtlComQIPtrAssign(reinterpret_cast<IUnknown**>(&this->p), lp, __uuidof(T));
        return *this;
    }
    T* operator=(const CComPtr<T>& lp) throw()
    {
        if (*this != lp)
            CComPtr(lp).Swap(*this);
        return *this;
    }
    T* operator=(CComPtr<T>&& lp) throw()
    {
        if (*this != lp)
            CComPtr(static_cast<CComPtr&&>(lp)).Swap(*this);
        return *this;
    }
};

/// A counted interface pointer that asks what it is given for its own interface. Of IUnknown there is none: its
/// constructors from T* and from IUnknown* would be one.
template <class T, const IID* piid = &__uuidof(T)>
class CComQIPtr : public CComPtr<T>
{
public:
    CComQIPtr() throw() {}
    CComQIPtr(decltype(nullptr)) throw() {}
    CComQIPtr(T* lp) throw() : CComPtr<T>(lp) {}
    CComQIPtr(const CComQIPtr<T, piid>& lp) throw() : CComPtr<T>(lp.p) {}
    CComQIPtr(IUnknown* lp) throw()
    {
        if (lp && FAILED(lp->QueryInterface(*piid, reinterpret_cast<void**>(&this->p))))
            this->p = nullptr;
    }

    T* operator=(decltype(nullptr)) throw()
    {
        CComQIPtr(nullptr).Swap(*this);
        return nullptr;
    }
    T* operator=(T* lp) throw()
    {
        if (*this != lp)
            CComQIPtr(lp).Swap(*this);
        return *this;
    }
    T* operator=(const CComQIPtr<T, piid>& lp) throw()
    {
        if (*this != lp)
            CComQIPtr(lp.p).Swap(*this);
        return *this;
    }
    T* operator=(IUnknown* lp) throw()
    {
        if (!this->IsEqualObject(lp))
            AtlComQIPtrAssign(reinterpret_cast<IUnknown**>(&this->p), lp, *piid);
        return *this;
    }
};

} // namespace ATL

#ifndef _ATL_NO_AUTOMATIC_NAMESPACE
using namespace ATL;
#endif
