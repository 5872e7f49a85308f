// The IMAPIProp half that the store, its folders, messages and attachments have in common.
#pragma once

#include "common/ComObject.h"
#include "common/MemoryStream.h"
#include "common/Mutex.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/LayeredProperties.h"
#include "testbed/pst/Session.h"

namespace Testbed::Pst
{
/// What `PropertyObject` needs of an object, and the bodies of the methods. Methods hold the object's lock.
class PropertyHost : protected PropertySink
{
protected:
    explicit PropertyHost(std::shared_ptr<Session> session) : m_session(std::move(session)), m_lastError(componentName)
    {
    }
    ~PropertyHost() override = default;

    /// The properties as clients see them.
    virtual std::shared_ptr<const PropertySource> Properties() = 0;
    /// Whether this object was opened for writing.
    virtual bool Modifiable() = 0;
    /// Called after clients' changes of one call were given to `Set` and `Remove`.
    virtual void Flush() {}
    /// The body of SaveChanges.
    virtual HRESULT Save(ULONG flags) = 0;
    /// Opens a property that is an object (an embedded message, a table); gives null when it is none of these.
    virtual ComPtr<IUnknown> OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags);
    /// The interface by which the support object copies this object, and its pointer.
    virtual std::pair<LPCIID, IUnknown*> Self() = 0;
    /// Throws MAPI_E_OBJECT_DELETED when what this object stands for is gone.
    virtual void RequireAlive() {}
    /// What the object's methods hold; objects over a shared state give that one's.
    virtual RecursiveMutex& Lock() { return m_lock; }

    /// Throws MAPI_E_INVALID_OBJECT once the store has been closed.
    void RequireOpen() const { m_session->Core(); }
    /// Throws MAPI_E_NO_ACCESS unless `Modifiable`.
    void RequireModifiable();

    HRESULT GetPropsBody(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values);
    HRESULT GetPropListBody(ULONG flags, LPSPropTagArray* tags);
    HRESULT SetPropsBody(ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
    HRESULT DeletePropsBody(LPSPropTagArray tags, LPSPropProblemArray* problems);
    HRESULT OpenPropertyBody(ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* object);
    HRESULT SaveChangesBody(ULONG flags);
    HRESULT CopyToBody(ULONG excludedCount, LPCIID excluded, LPSPropTagArray excludedTags, ULONG_PTR uiParam,
                       LPMAPIPROGRESS progress, LPCIID iid, LPVOID destination, ULONG flags,
                       LPSPropProblemArray* problems);
    HRESULT CopyPropsBody(LPSPropTagArray tags, ULONG_PTR uiParam, LPMAPIPROGRESS progress, LPCIID iid,
                          LPVOID destination, ULONG flags, LPSPropProblemArray* problems);
    HRESULT GetNamesBody(LPSPropTagArray* tags, LPGUID set, ULONG flags, ULONG* count, LPMAPINAMEID** names);
    HRESULT GetIdsBody(ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags);

    std::shared_ptr<Session> m_session;
    LastError m_lastError;

private:
    RecursiveMutex m_lock;
    ComPtr<IStream> OpenStream(ULONG tag, ULONG flags);
};

/// An object with properties that implements `Interface`.
template <class Interface, const IID*... Iids>
class PropertyObject : public ComObject<Interface, Iids...>, protected PropertyHost
{
public:
    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        return m_lastError.Get(m_session->Memory(), hResult, m_session->Flags(ulFlags), lppMAPIError);
    }
    STDMETHODIMP SaveChanges(ULONG ulFlags) override
    {
        return Run([&] { return SaveChangesBody(ulFlags); });
    }
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override
    {
        return Run([&] { return GetPropsBody(lpPropTagArray, ulFlags, lpcValues, lppPropArray); });
    }
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override
    {
        return Run([&] { return GetPropListBody(ulFlags, lppPropTagArray); });
    }
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override
    {
        return Run([&] { return OpenPropertyBody(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk); });
    }
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        return Run([&] { return SetPropsBody(cValues, lpPropArray, lppProblems); });
    }
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        return Run([&] { return DeletePropsBody(lpPropTagArray, lppProblems); });
    }
    // Copying calls back into this object and into the destination, so it must not hold the lock.
    STDMETHODIMP CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam,
                        LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                        LPSPropProblemArray* lppProblems) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           return CopyToBody(ciidExclude, rgiidExclude, lpExcludeProps, ulUIParam, lpProgress,
                                             lpInterface, lpDestObj, ulFlags, lppProblems);
                       });
    }
    STDMETHODIMP CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                           LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                           LPSPropProblemArray* lppProblems) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           return CopyPropsBody(lpIncludeProps, ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags,
                                                lppProblems);
                       });
    }
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                                 LPMAPINAMEID** lpppPropNames) override
    {
        return Run([&] { return GetNamesBody(lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames); });
    }
    STDMETHODIMP GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                 LPSPropTagArray* lppPropTags) override
    {
        return Run([&] { return GetIdsBody(cPropNames, lppPropNames, ulFlags, lppPropTags); });
    }

protected:
    using PropertyHost::PropertyHost;

    // A method's body under the object's lock, its exceptions turned into result codes.
    template <class Body>
    HRESULT Run(Body&& body)
    {
        const std::lock_guard lock(Lock());
        return Guarded(m_lastError,
                       [&]() -> HRESULT
                       {
                           RequireOpen();
                           return body();
                       });
    }
};
} // namespace Testbed::Pst
