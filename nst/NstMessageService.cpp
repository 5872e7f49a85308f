// CNstMessageService: the message-service entry, the service's configuration, the provider initialisation.
#include "nst/NstMessageService.h"

#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "nst/NstMapiSupport.h"
#include "support/CallWrapping.h"
#include "support/DebugTrace.h"
#include "support/Format.h"
#include "support/com_wrap.h"

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

/// The values that a GetProps gave, at least as many as were asked for.
void RequireCount(ULONG count, ULONG expected, const Mapi::PropValuePointer& values, const CallSite& site)
{
    if (!values || count < expected)
        Throw(CRuntimeError(L"The profile section returned fewer properties than were asked for"), site);
}

template <class Function>
Function GetPstFunction(HMODULE module, const char* name) noexcept
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

} // namespace

void CNstMessageService::NstServiceEntry(IMalloc* lpMalloc, IMAPISupport* lpMAPISup, Mapi::ProviderUIParam ulUIParam,
                                         ULONG ulFlags, ULONG ulContext, ULONG cValues, SPropValue* lpProps,
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
    const auto pstServiceEntry = GetPstFunction<MSGSERVICEENTRY*>(module, "NSTServiceEntry");
    if (!pstServiceEntry)
    {
        Throw(CRuntimeError(L"Unable to find NSTServiceEntry in PST module: " + FormatSystemError(GetLastError(), true),
                            false),
              function);
    }

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
    constexpr auto function = L"Quillon::Nst::CNstMessageService::ConfigureService";

    enum
    {
        WidePath,
        NarrowPath,
        Providers,
        EntryId,
        TagCount
    };
    TagArray<TagCount> tags = {
        TagCount, {PR_PROFILE_OFFLINE_STORE_PATH_W, PR_PROFILE_OFFLINE_STORE_PATH, PR_STORE_PROVIDERS, PR_ENTRYID}};
    ULONG count = 0;
    Mapi::PropValuePointer values;
    CheckProfileCall(section->GetProps(tags.Get(), 0, &count, values.Put()), section.p, function);
    RequireCount(count, TagCount, values, function);
    // Only a store that has not been given its identity yet gets one.
    if (values[Providers].ulPropTag != PR_STORE_PROVIDERS || values[EntryId].ulPropTag == PR_ENTRYID)
        return;
    const SBinary& providers = values[Providers].Value.bin;
    if (providers.cb < sizeof(MAPIUID))
        Throw(CRuntimeError(L"PR_STORE_PROVIDERS was of an unexpected length"), function);

    ATL::CComQIPtr<IProfSect> providerSection;
    CheckProfileCall(
        admin->OpenProfileSection(reinterpret_cast<MAPIUID*>(providers.lpb), nullptr, MAPI_MODIFY, &providerSection),
        admin.p, function);
    providerSection = com_wrap(providerSection);
    TagArray<1> serviceUidTag = {1, {PR_SERVICE_UID}};
    ULONG serviceUidCount = 0;
    Mapi::PropValuePointer serviceUid;
    CheckProfileCall(providerSection->GetProps(serviceUidTag.Get(), 0, &serviceUidCount, serviceUid.Put()),
                     providerSection.p, function);
    RequireCount(serviceUidCount, 1, serviceUid, function);
    if (serviceUid->ulPropTag != PR_SERVICE_UID || serviceUid->Value.bin.cb != sizeof(MAPIUID))
        Throw(CRuntimeError(L"PR_SERVICE_UID was of an unexpected length or type"), function);

    const bool hasWidePath = values[WidePath].ulPropTag == PR_PROFILE_OFFLINE_STORE_PATH_W;
    if (!hasWidePath && values[NarrowPath].ulPropTag != PR_PROFILE_OFFLINE_STORE_PATH)
        Throw(CRuntimeError(L"The profile section holds no path of the store"), function);
    const StringA narrowPath(hasWidePath ? "" : values[NarrowPath].Value.lpszA);
    const StringW path = hasWidePath ? StringW(values[WidePath].Value.lpszW) : narrowPath.GetUnicode(CP_ACP);

    Binary entryId = CreateStoreEntryID(path);
    StringA dllName(GetProviderDllName());
    ULONG wrappedSize = 0;
    Mapi::SmartPointer<ENTRYID*, Mapi::MapiBufferDestructor> wrapped;
    CheckCall(Mapi::WrapStoreEntryID(0, dllName.GetBuffer(), static_cast<ULONG>(entryId.GetSize()),
                                     reinterpret_cast<ENTRYID*>(entryId.GetBuffer()), &wrappedSize, wrapped.Put()),
              function);
    const BYTE* const wrappedBytes = reinterpret_cast<const BYTE*>(wrapped.Get());

    MAPIUID uid = {};
    CheckProfileCall(support->NewUID(&uid), support.p, function);

    Mapi::SPropValueVector properties;
    for (ULONG index = 0; index < settings.GetCount(); ++index)
        properties.AddProperty(settings.GetValues()[index]);
    properties.AddBinary(PR_ENTRYID, wrappedBytes, wrappedSize);
    properties.AddBinary(PR_STORE_ENTRYID, wrappedBytes, wrappedSize);
    properties.AddBinary(PR_RECORD_KEY, serviceUid->Value.bin.lpb, sizeof(MAPIUID));
    for (const ULONG tag : {PR_STORE_RECORD_KEY, PR_SEARCH_KEY, PR_PROFILE_SECURE_MAILBOX})
        properties.AddBinary(tag, uid.ab, sizeof(uid));
    properties.AddStringA(PR_PROFILE_USER, "My PR_PROFILE_USER");
    properties.AddLong(PR_PROFILE_CONFIG_FLAGS, 0);
    properties.AddBinary(PR_MDB_PROVIDER, providerUid.ab, sizeof(providerUid));
    if (hasWidePath)
        properties.AddStringW(PR_PST_PATH_W, path);
    else
        properties.AddStringA(PR_PST_PATH, narrowPath.GetString());

    CheckProfileCall(providerSection->SetProps(properties.GetCount(), properties.GetValues(), nullptr),
                     providerSection.p, function);
    CheckProfileCall(section->SetProps(properties.GetCount(), properties.GetValues(), nullptr), section.p, function);
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
    const auto pstProviderInit = GetPstFunction<MSPROVIDERINIT*>(module, "MSProviderInit");
    if (!pstProviderInit)
    {
        Throw(CRuntimeError(L"Unable to find MSProviderInit in PST module: " + FormatSystemError(GetLastError(), true),
                            false),
              function);
    }

    ATL::CComQIPtr<IMSProvider> pstProvider;
    CheckCall(pstProviderInit(module, lpMalloc, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer, ulFlags, ulMAPIVer,
                              lpulProviderVer, &pstProvider),
              function);
    *lppMSProvider = com_wrap(CreateMsProvider(com_wrap(pstProvider))).Detach();
}

} // namespace Quillon::Nst
