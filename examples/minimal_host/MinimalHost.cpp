// The smallest host: a store whose folders and messages refuse changes, and the two functions that MAPI calls.
#include "KivNst.h"

using namespace Quillon;

namespace
{

class Store : public Nst::CNstMsgStore
{
public:
    Store(IMsgStore* store, IMAPISupport* support) : CNstMsgStore(store, support), m_support(support) {}

protected:
    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        return com_wrap<IMAPIFolder>(new Nst::CReadOnlyFolder(folder, this, m_support));
    }
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        return com_wrap<IMessage>(new Nst::CReadOnlyMessage(message));
    }

private:
    ATL::CComQIPtr<IMAPISupport> m_support;
};

class Provider : public Nst::CNstMsProvider
{
public:
    using CNstMsProvider::CNstMsProvider;

protected:
    ATL::CComQIPtr<IMsgStore> CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                 const ATL::CComQIPtr<IMAPISupport>& support) override
    {
        ConfigureNstSubtreeEntryId(store); // the archive's root folder, made at the first logon
        return com_wrap<IMsgStore>(new Store(store, support));
    }
};

class Service : public Nst::CNstMessageService
{
public:
    StringW GetProviderDllName() override { return L"MinimalHost.dll"; } // as it is registered, without the 32

protected:
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override
    {
        return com_wrap<IMSProvider>(new Provider(pstProvider));
    }
};

// MAPI knows no exceptions.
template <class Body>
HRESULT AtBoundary(const wchar_t* function, const Body& body) noexcept
{
    try
    {
        Nst::RequireLibraryVersion();
        body();
        return S_OK;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
    catch (...)
    {
        return E_FAIL;
    }
}

} // namespace

extern "C" HRESULT STDAPICALLTYPE ServiceEntry(HINSTANCE, LPMALLOC malloc, LPMAPISUP support, ULONG_PTR window,
                                               ULONG flags, ULONG context, ULONG count, LPSPropValue values,
                                               LPPROVIDERADMIN admin, LPMAPIERROR* error)
{
    return AtBoundary(L"ServiceEntry",
                      [&]
                      {
                          Service().NstServiceEntry(malloc, support, static_cast<ULONG>(window), flags, context, count,
                                                    values, admin, error);
                      });
}

extern "C" HRESULT STDMAPIINITCALLTYPE MSProviderInit(HINSTANCE, LPMALLOC malloc, LPALLOCATEBUFFER allocate,
                                                      LPALLOCATEMORE allocateMore, LPFREEBUFFER freeBuffer, ULONG flags,
                                                      ULONG mapiVersion, ULONG* providerVersion, LPMSPROVIDER* provider)
{
    return AtBoundary(L"MSProviderInit",
                      [&]
                      {
                          Service().NstProviderInit(malloc, allocate, allocateMore, freeBuffer, flags, mapiVersion,
                                                    providerVersion, provider);
                      });
}
