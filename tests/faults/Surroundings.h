// Everything that the library calls, made of objects and functions whose every call may fail.
#pragma once

#include "nst/NstMapiFolder.h"
#include "nst/NstMessage.h"
#include "nst/NstMessageService.h"
#include "nst/NstMsProvider.h"
#include "nst/NstMsgStore.h"
#include "tests/common/Properties.h"
#include "tests/faults/Faults.h"
#include "tests/wrappers/Recorder.h"

#include <map>
#include <utility>

namespace Tests
{

/// An object whose calls count, and what its GetProps knows.
class FaultyObject : public Recorder
{
public:
    explicit FaultyObject(const char* name, bool hasLastError = true);

    /// The method in `slot`, called `method`, does `action` in success.
    template <class Action>
    void On(int slot, const char* method, Action action)
    {
        SetBehaviour(slot, [call = m_name + "::" + method, action](const RawArguments& arguments) -> HRESULT
                     { return Faults::Get().Pass(call.c_str(), [&] { action(arguments); }); });
    }
    /// It answers QueryInterface, GetProps, SetProps and SaveChanges as every IMAPIProp.
    void BeProp();
    /// Stores the object, with a reference, where argument `index` points to.
    void GiveTo(const RawArguments& arguments, std::size_t index);

    std::map<ULONG, Property> properties;

private:
    std::string m_name;
};

/// The objects around one run of an operation. One at a time.
class Surroundings
{
public:
    Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    ~Surroundings();

    /// Runs `action` with the planned fault armed: the code that it gives, or that of the exception with which it ends.
    template <class Action>
    HRESULT Run(Action&& action)
    {
        Faults& faults = Faults::Get();
        faults.Arm();
        try
        {
            HRESULT hr = S_OK;
            if constexpr (std::is_void_v<decltype(action())>)
                action();
            else
                hr = action();
            faults.Disarm();
            return hr;
        }
        catch (const Quillon::CException& exception)
        {
            faults.Disarm();
            return exception.GetHResult();
        }
        catch (const ForeignError&)
        {
            faults.Disarm();
            endedForeign = true;
            return E_UNEXPECTED;
        }
    }

    /// Fails the test for each object on which a reference is left.
    void ExpectNoReferences() const;

    FaultyObject support{"IMAPISupport"};
    FaultyObject ownSection{"own IProfSect"};
    FaultyObject serviceSection{"service IProfSect"};
    FaultyObject providerSection{"provider IProfSect"};
    FaultyObject admin{"IProviderAdmin"};
    FaultyObject provider{"IMSProvider", false};
    FaultyObject logon{"IMSLogon"};
    FaultyObject store{"IMsgStore"};
    FaultyObject folder{"IMAPIFolder"};
    FaultyObject root{"root IMAPIFolder"};
    FaultyObject message{"IMessage"};
    FaultyObject attachment{"IAttach"};
    FaultyObject table{"IMAPITable"};
    FaultyObject searchManager{"ISearchManager", false};
    FaultyObject searchCatalog{"ISearchCatalogManager", false};
    FaultyObject searchScope{"ISearchCrawlScopeManager", false};

    /// What the store's OpenEntry gives.
    ULONG openedType = MAPI_FOLDER;
    FaultyObject* opened = &folder;
    /// An exception of another type than the library's came out.
    bool endedForeign = false;
    /// The host has an extended error to tell.
    bool hostRefuses = false;

private:
    std::vector<const FaultyObject*> All() const;
};

/// Makes an object by the library's factory, unless the fault is that the host's gives nothing.
template <class I, class Make>
ATL::CComQIPtr<I> MakeByHost(const char* factory, Make&& make)
{
    return Faults::Get().PassHook(factory) ? make() : ATL::CComQIPtr<I>();
}

class FaultyStore : public Quillon::Nst::CNstMsgStore
{
public:
    using CNstMsgStore::CNstMsgStore;

    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        return MakeByHost<IMAPIFolder>("CreateFolder", [&] { return CNstMsgStore::CreateFolder(folder); });
    }
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        return MakeByHost<IMessage>("CreateMessage", [&] { return CNstMsgStore::CreateMessage(message); });
    }
    void OverrideStoreProperties(SPropValue* props, ULONG count) override
    {
        Faults::Get().PassHook("OverrideStoreProperties");
        CNstMsgStore::OverrideStoreProperties(props, count);
    }
    void OverrideModifiableStoreProperties(SPropValue* props, ULONG count) override
    {
        Faults::Get().PassHook("OverrideModifiableStoreProperties");
        CNstMsgStore::OverrideModifiableStoreProperties(props, count);
    }
};

class FaultyFolder : public Quillon::Nst::CNstMapiFolder
{
public:
    using CNstMapiFolder::CNstMapiFolder;

    void OverrideFolderProperties(SPropValue* values, ULONG count) override
    {
        Faults::Get().PassHook("OverrideFolderProperties");
        CNstMapiFolder::OverrideFolderProperties(values, count);
    }
};

class FaultyMessage : public Quillon::Nst::CNstMessage
{
public:
    using CNstMessage::CNstMessage;

    void OverrideMessageProperties(SPropValue* values, ULONG count) override
    {
        Faults::Get().PassHook("OverrideMessageProperties");
        CNstMessage::OverrideMessageProperties(values, count);
    }
};

class FaultyProvider : public Quillon::Nst::CNstMsProvider
{
public:
    using CNstMsProvider::CNstMsProvider;
    using CNstMsProvider::ConfigureNstSubtreeEntryId;

    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>& section) override
    {
        return MakeByHost<IMAPISupport>("CreateMapiSupport",
                                        [&] { return CNstMsProvider::CreateMapiSupport(support, section); });
    }
    ATL::CComQIPtr<IMsgStore> CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                 const ATL::CComQIPtr<IMAPISupport>& support) override
    {
        return MakeByHost<IMsgStore>("CreateMessageStore",
                                     [&] { return CNstMsProvider::CreateMessageStore(store, support); });
    }
    ATL::CComQIPtr<IMSLogon> CreateMsLogon(const ATL::CComQIPtr<IMSLogon>& logon,
                                           const ATL::CComQIPtr<IMsgStore>& store) override
    {
        return MakeByHost<IMSLogon>("CreateMsLogon", [&] { return CNstMsProvider::CreateMsLogon(logon, store); });
    }
};

class FaultyService : public Quillon::Nst::CNstMessageService
{
public:
    explicit FaultyService(const Surroundings& surroundings) : m_surroundings(surroundings) {}

    Quillon::StringW GetProviderDllName() override;
    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>& section) override;
    void ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support, const ATL::CComQIPtr<IProfSect>& section,
                          const ATL::CComQIPtr<IProviderAdmin>& admin,
                          const Quillon::Mapi::SPropValueVector& settings) override;
    Quillon::Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue* lpProps, ULONG cValues) override;
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override;

private:
    const Surroundings& m_surroundings;
};

} // namespace Tests
