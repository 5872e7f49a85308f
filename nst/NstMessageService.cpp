// CNstMessageService: the message-service entry, the service's configuration, the provider initialisation.
#include "nst/NstMessageService.h"

#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "nst/NstMapiSupport.h"
#include "support/CallWrapping.h"
#include "support/DebugTrace.h"
#include "support/Format.h"
#include "support/com_wrap.h"

#include <utility>

namespace Quillon::Mapi
{

StringW FormatMessageServiceContext(ULONG ulContext)
{
    switch (ulContext)
    {
    case MSG_SERVICE_INSTALL:
        return L"MSG_SERVICE_INSTALL";
    case MSG_SERVICE_CREATE:
        return L"MSG_SERVICE_CREATE";
    case MSG_SERVICE_CONFIGURE:
        return L"MSG_SERVICE_CONFIGURE";
    case MSG_SERVICE_DELETE:
        return L"MSG_SERVICE_DELETE";
    case MSG_SERVICE_UNINSTALL:
        return L"MSG_SERVICE_UNINSTALL";
    case MSG_SERVICE_PROVIDER_CREATE:
        return L"MSG_SERVICE_PROVIDER_CREATE";
    case MSG_SERVICE_PROVIDER_DELETE:
        return L"MSG_SERVICE_PROVIDER_DELETE";
    default:
        return FormatString(L"Unknown (%u)", ulContext);
    }
}

} // namespace Quillon::Mapi

namespace Quillon::Nst
{
namespace
{

/// A tag array of fixed size, as GetProps takes it.
template <ULONG Count>
struct TagArray
{
    ULONG cValues = Count;
    ULONG aulPropTag[Count];

    SPropTagArray* Get() noexcept { return reinterpret_cast<SPropTagArray*>(this); }
};

SBinary ProviderUidValue() noexcept
{
    // SBinary has no const bytes; who is given them does not write them.
    return {sizeof(providerUid), const_cast<BYTE*>(providerUid.ab)};
}

/// A function of the PST module. Throws CRuntimeError when the module has none of that name.
template <class Function>
Function FindPstFunction(HMODULE module, const char* name, const CallSite& site)
{
    const FARPROC found = GetProcAddress(module, name);
    if (!found)
    {
        const StringW reason = FormatSystemError(GetLastError(), true);
        Throw(CRuntimeError(FormatString(L"Unable to find %hs in PST module: %s", name, reason.GetString()), false),
              site);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

// The steps of ConfigureService, whose name stands in the event lines of all of them.

constexpr auto configureService = L"Quillon::Nst::CNstMessageService::ConfigureService";

/// The values of `tags` in their order; an error value for each that the section does not hold.
template <ULONG Count>
Mapi::PropValuePointer ReadSection(IProfSect* section, TagArray<Count> tags, const CallSite& site)
{
    ULONG count = 0;
    Mapi::PropValuePointer values;
    // What is missing is a warning in the log each time: of a new store the identity, and of each the path in the width
    // that it was not given in.
    CheckProfileCall(section->GetProps(tags.Get(), 0, &count, values.Put()), section, site);
    if (!values || count < Count)
        Throw(CRuntimeError(L"The profile section returned fewer properties than were asked for"), site);
    return values;
}

/// The section of the store provider that stands first in the service's list of them.
ATL::CComQIPtr<IProfSect> OpenProviderSection(IProviderAdmin* admin, const SBinary& providers)
{
    // A null UID would open another section than a provider's.
    if (providers.cb < sizeof(MAPIUID) || !providers.lpb)
        Throw(CRuntimeError(L"PR_STORE_PROVIDERS was of an unexpected length"), configureService);
    ATL::CComQIPtr<IProfSect> section;
    CheckProfileCall(
        admin->OpenProfileSection(reinterpret_cast<MAPIUID*>(providers.lpb), nullptr, MAPI_MODIFY, &section), admin,
        configureService);
    return com_wrap(section);
}

/// PR_SERVICE_UID, which has the size of a UID.
Mapi::PropValuePointer ReadServiceUid(IProfSect* providerSection)
{
    Mapi::PropValuePointer uid = ReadSection<1>(providerSection, {1, {PR_SERVICE_UID}}, configureService);
    if (uid->ulPropTag != PR_SERVICE_UID || uid->Value.bin.cb != sizeof(MAPIUID) || !uid->Value.bin.lpb)
        Throw(CRuntimeError(L"PR_SERVICE_UID was of an unexpected length or type"), configureService);
    return uid;
}

/// Where the store lies.
struct StorePath
{
    StringW path;
    bool isNarrow; ///< as the profile holds it
    StringA narrowPath;
};

/// The path from the two values of the service's section, of which the wide one is preferred.
StorePath ReadStorePath(const SPropValue& wide, const SPropValue& narrow)
{
    if (wide.ulPropTag == PR_PROFILE_OFFLINE_STORE_PATH_W)
        return {StringW(wide.Value.lpszW), false, StringA()};
    if (narrow.ulPropTag != PR_PROFILE_OFFLINE_STORE_PATH)
        Throw(CRuntimeError(L"The profile section holds no path of the store"), configureService);
    StringA narrowPath(narrow.Value.lpszA);
    StringW path = narrowPath.GetUnicode(CP_ACP);
    return {std::move(path), true, std::move(narrowPath)};
}

/// An entry ID that MAPI allocated.
struct WrappedEntryId
{
    Mapi::SmartPointer<ENTRYID*, Mapi::MapiBufferDestructor> entryId;
    ULONG size = 0;
};

/// The entry ID by which MAPI finds the store at `path` and the module that provides it.
WrappedEntryId WrapEntryId(const StringW& path, StringA moduleName)
{
    Binary entryId = CreateStoreEntryID(path);
    WrappedEntryId wrapped;
    CheckCall(Mapi::WrapStoreEntryID(0, moduleName.GetBuffer(), static_cast<ULONG>(entryId.GetSize()),
                                     reinterpret_cast<ENTRYID*>(entryId.GetBuffer()), &wrapped.size,
                                     wrapped.entryId.Put()),
              configureService);
    return wrapped;
}

/// Adds what identifies the store.
void AddIdentity(Mapi::SPropValueVector& properties, const WrappedEntryId& wrapped, const MAPIUID& serviceUid,
                 const MAPIUID& storeUid)
{
    for (const ULONG tag : {PR_ENTRYID, PR_STORE_ENTRYID})
        properties.AddBinary(tag, reinterpret_cast<const BYTE*>(wrapped.entryId.Get()), wrapped.size);
    properties.AddBinary(PR_RECORD_KEY, serviceUid.ab, sizeof(serviceUid));
    for (const ULONG tag : {PR_STORE_RECORD_KEY, PR_SEARCH_KEY, PR_PROFILE_SECURE_MAILBOX})
        properties.AddBinary(tag, storeUid.ab, sizeof(storeUid));
    properties.AddStringA(PR_PROFILE_USER, "My PR_PROFILE_USER");
    properties.AddLong(PR_PROFILE_CONFIG_FLAGS, 0);
    properties.AddBinary(PR_MDB_PROVIDER, providerUid.ab, sizeof(providerUid));
}

} // namespace

void CNstMessageService::NstServiceEntry(IMalloc* lpMalloc, IMAPISupport* lpMAPISup, ULONG ulUIParam, ULONG ulFlags,
                                         ULONG ulContext, ULONG cValues, SPropValue* lpProps,
                                         IProviderAdmin* lpProviderAdmin, MAPIERROR** lppMapiError)
{
    constexpr auto function = L"Quillon::Nst::CNstMessageService::NstServiceEntry";
    DebugTrace(
        [ulContext]
        {
            return FormatString(L"CNstMessageService::NstServiceEntry(%s)",
                                Mapi::FormatMessageServiceContext(ulContext).GetString());
        });
    if (!lpMAPISup || !lpProviderAdmin)
        Throw(CComError(MAPI_E_INVALID_PARAMETER), function);
    if (ulContext == MSG_SERVICE_PROVIDER_CREATE || ulContext == MSG_SERVICE_PROVIDER_DELETE)
        Throw(CComError(MAPI_E_NO_SUPPORT), function);

    const HMODULE module = GetPstModule();
    if (!module)
        Throw(CRuntimeError(L"Unable to load PST module: " + FormatSystemError(GetLastError(), true), false), function);
    const auto pstServiceEntry = FindPstFunction<MSGSERVICEENTRY*>(module, "NSTServiceEntry", function);

    const ATL::CComQIPtr<IProviderAdmin> admin(lpProviderAdmin);
    ATL::CComQIPtr<IProfSect> section;
    CheckProfileCall(admin->OpenProfileSection(nullptr, nullptr, MAPI_MODIFY, &section), admin.p, function);
    section = com_wrap(section);
    if (lpProps && cValues)
        CheckProfileCall(section->SetProps(cValues, lpProps, nullptr), section.p, function);
    ConfigureMdbProvider(section);

    TagArray<3> tags = {3, {PR_PROFILE_OFFLINE_STORE_PATH_W, PR_PROFILE_OFFLINE_STORE_PATH, PR_MDB_PROVIDER}};
    ULONG count = 0;
    Mapi::PropValuePointer values;
    // The path is stored in one width as a rule, so that this, too, logs a warning in nearly every call.
    CheckProfileCall(section->GetProps(tags.Get(), MAPI_UNICODE, &count, values.Put()), section.p, function);

    // The PST module gets what the section holds now, not the caller's list, and no provider admin.
    const ATL::CComQIPtr<IMAPISupport> support = com_wrap(CreateMapiSupport(lpMAPISup, section));
    CheckCall(pstServiceEntry(module, lpMalloc, support, ulUIParam, ulFlags, ulContext, count, values.Get(), nullptr,
                              lppMapiError),
              function);

    if (ulContext == MSG_SERVICE_CONFIGURE)
    {
        try
        {
            ConfigureService(support, section, admin, GetProfileSectionConfiguration(lpProps, cValues));
        }
        catch (const Mapi::ExtendedMapiError& error)
        {
            LogEntry(LogId::Error, L"Unable to configure service");
            if (lppMapiError)
                *lppMapiError = Mapi::CreateMapiError(ulFlags, error.GetError()).Detach();
            Throw(CComError(MAPI_E_INVALID_PARAMETER), function);
        }
    }
    CheckProfileCall(section->SaveChanges(KEEP_OPEN_READWRITE), section.p, function);
}

void CNstMessageService::ConfigureMdbProvider(const ATL::CComQIPtr<IProfSect>& section)
{
    constexpr auto function = L"Quillon::Nst::CNstMessageService::ConfigureMdbProvider";
    SPropValue property = {};
    property.ulPropTag = PR_MDB_PROVIDER;
    property.Value.bin = ProviderUidValue();
    CheckProfileCall(section->SetProps(1, &property, nullptr), section.p, function);
    CheckProfileCall(section->SaveChanges(KEEP_OPEN_READWRITE), section.p, function);
}

ATL::CComQIPtr<IMAPISupport> CNstMessageService::CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                                   const ATL::CComQIPtr<IProfSect>& section)
{
    return com_wrap<IMAPISupport>(new CNstMapiSupport(support, section));
}

void CNstMessageService::ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support,
                                          const ATL::CComQIPtr<IProfSect>& section,
                                          const ATL::CComQIPtr<IProviderAdmin>& admin,
                                          const Mapi::SPropValueVector& settings)
{
    enum
    {
        WidePath,
        NarrowPath,
        Providers,
        EntryId,
        TagCount
    };
    const Mapi::PropValuePointer values = ReadSection<TagCount>(
        section,
        {TagCount, {PR_PROFILE_OFFLINE_STORE_PATH_W, PR_PROFILE_OFFLINE_STORE_PATH, PR_STORE_PROVIDERS, PR_ENTRYID}},
        configureService);
    // Only a store that has not been given its identity yet gets one.
    if (values[Providers].ulPropTag != PR_STORE_PROVIDERS || values[EntryId].ulPropTag == PR_ENTRYID)
        return;

    const ATL::CComQIPtr<IProfSect> providerSection = OpenProviderSection(admin, values[Providers].Value.bin);
    const Mapi::PropValuePointer serviceUid = ReadServiceUid(providerSection);
    const StorePath store = ReadStorePath(values[WidePath], values[NarrowPath]);
    const WrappedEntryId wrapped = WrapEntryId(store.path, StringA(GetProviderDllName()));
    MAPIUID storeUid = {};
    CheckProfileCall(support->NewUID(&storeUid), support.p, configureService);

    Mapi::SPropValueVector properties;
    for (ULONG index = 0; index < settings.GetCount(); ++index)
        properties.AddProperty(settings.GetValues()[index]);
    AddIdentity(properties, wrapped, *reinterpret_cast<const MAPIUID*>(serviceUid->Value.bin.lpb), storeUid);
    if (store.isNarrow)
        properties.AddStringA(PR_PST_PATH, store.narrowPath.GetString());
    else
        properties.AddStringW(PR_PST_PATH_W, store.path);

    for (IProfSect* const target : {providerSection.p, section.p})
        CheckProfileCall(target->SetProps(properties.GetCount(), properties.GetValues(), nullptr), target,
                         configureService);
}

Mapi::SPropValueVector CNstMessageService::GetProfileSectionConfiguration(SPropValue*, ULONG)
{
    return Mapi::SPropValueVector();
}

void CNstMessageService::NstProviderInit(IMalloc* lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer,
                                         LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG ulFlags,
                                         ULONG ulMAPIVer, ULONG* lpulProviderVer, IMSProvider** lppMSProvider)
{
    constexpr auto function = L"Quillon::Nst::CNstMessageService::NstProviderInit";
    if (!lppMSProvider || !lpulProviderVer)
        Throw(CComError(MAPI_E_INVALID_PARAMETER), function);
    // Before any other check, so that MAPI learns the provider's version even when the call fails.
    *lppMSProvider = nullptr;
    *lpulProviderVer = CURRENT_SPI_VERSION;
    if (ulMAPIVer < CURRENT_SPI_VERSION)
    {
        LogEntry(LogId::Error,
                 L"MSProviderInit: The version of the subsystem cannot handle this version of the provider");
        Throw(CComError(MAPI_E_VERSION), function);
    }

    const HMODULE module = GetPstModule();
    if (!module)
        Throw(CRuntimeError(L"Unable to load mspst32.dll"), function);
    const auto pstProviderInit = FindPstFunction<MSPROVIDERINIT*>(module, "MSProviderInit", function);

    ATL::CComQIPtr<IMSProvider> pstProvider;
    CheckCall(pstProviderInit(module, lpMalloc, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer, ulFlags, ulMAPIVer,
                              lpulProviderVer, &pstProvider),
              function);
    *lppMSProvider = com_wrap(CreateMsProvider(com_wrap(pstProvider))).Detach();
}

} // namespace Quillon::Nst
