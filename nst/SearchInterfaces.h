// The administration interfaces of Windows Search, as far as their slots are needed: no header here has them. Methods
// that the library does not call stand in their place with the arguments that the platform documents.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <propidl.h>

namespace Quillon::Nst::Search
{

struct ISearchRoot;
struct IEnumSearchRoots;
struct IEnumSearchScopeRules;
struct ISearchItemsChangedSink;
struct ISearchPersistentItemsChangedSink;
struct ISearchViewChangedSink;
struct ISearchQueryHelper;

/// Where a URL's inclusion or exclusion comes from.
using ClusionReason = int;
using CatalogStatus = int;
using CatalogPausedReason = int;
using ProxyAccess = int;

inline constexpr CLSID clsidSearchManager = {
    0x7D096C5F, 0xAC08, 0x4F1F, {0xBE, 0xB7, 0x5C, 0x22, 0xC5, 0x17, 0xCE, 0x39}};
inline constexpr IID iidSearchManager = {0xAB310581, 0xAC80, 0x11D1, {0x8D, 0xF3, 0x00, 0xC0, 0x4F, 0xB6, 0xEF, 0x69}};
inline constexpr IID iidSearchCatalogManager = {
    0xAB310581, 0xAC80, 0x11D1, {0x8D, 0xF3, 0x00, 0xC0, 0x4F, 0xB6, 0xEF, 0x50}};
inline constexpr IID iidSearchCrawlScopeManager = {
    0xAB310581, 0xAC80, 0x11D1, {0x8D, 0xF3, 0x00, 0xC0, 0x4F, 0xB6, 0xEF, 0x55}};

/// Which URLs of a catalog are crawled.
struct ISearchCrawlScopeManager : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE AddDefaultScopeRule(LPCWSTR url, BOOL fInclude, DWORD fFollowFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddRoot(ISearchRoot* root) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveRoot(LPCWSTR url) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumerateRoots(IEnumSearchRoots** roots) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddHierarchicalScope(LPCWSTR url, BOOL fInclude, BOOL fDefault,
                                                           BOOL fOverrideChildren) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddUserScopeRule(LPCWSTR url, BOOL fInclude, BOOL fOverrideChildren,
                                                       DWORD fFollowFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveScopeRule(LPCWSTR url) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumerateScopeRules(IEnumSearchScopeRules** rules) = 0;
    virtual HRESULT STDMETHODCALLTYPE HasParentScopeRule(LPCWSTR url, BOOL* has) = 0;
    virtual HRESULT STDMETHODCALLTYPE HasChildScopeRule(LPCWSTR url, BOOL* has) = 0;
    virtual HRESULT STDMETHODCALLTYPE IncludedInCrawlScope(LPCWSTR url, BOOL* included) = 0;
    virtual HRESULT STDMETHODCALLTYPE IncludedInCrawlScopeEx(LPCWSTR url, BOOL* included, ClusionReason* reason) = 0;
    virtual HRESULT STDMETHODCALLTYPE RevertToDefaultScopes() = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveAll() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetParentScopeVersionId(LPCWSTR url, LONG* id) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveDefaultScopeRule(LPCWSTR url) = 0;
};

/// One catalog.
struct ISearchCatalogManager : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE get_Name(LPWSTR* name) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetParameter(LPCWSTR name, PROPVARIANT** value) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetParameter(LPCWSTR name, PROPVARIANT* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCatalogStatus(CatalogStatus* status, CatalogPausedReason* reason) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Reindex() = 0;
    virtual HRESULT STDMETHODCALLTYPE ReindexMatchingURLs(LPCWSTR pattern) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReindexSearchRoot(LPCWSTR rootUrl) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_ConnectTimeout(DWORD timeout) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ConnectTimeout(DWORD* timeout) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DataTimeout(DWORD timeout) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DataTimeout(DWORD* timeout) = 0;
    virtual HRESULT STDMETHODCALLTYPE NumberOfItems(LONG* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE NumberOfItemsToIndex(LONG* incremental, LONG* notification,
                                                           LONG* highPriority) = 0;
    virtual HRESULT STDMETHODCALLTYPE URLBeingIndexed(LPWSTR* url) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetURLIndexingState(LPCWSTR url, DWORD* state) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPersistentItemsChangedSink(ISearchPersistentItemsChangedSink** sink) = 0;
    virtual HRESULT STDMETHODCALLTYPE RegisterViewForNotification(LPCWSTR view, ISearchViewChangedSink* sink,
                                                                  DWORD* cookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemsChangedSink(IUnknown* site, REFIID riid, void** sink,
                                                          GUID* resetSignature, GUID* checkpointSignature,
                                                          DWORD* lastCheckpoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterViewForNotification(DWORD cookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetExtensionClusion(LPCWSTR extension, BOOL exclude) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumerateExcludedExtensions(IEnumString** extensions) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetQueryHelper(ISearchQueryHelper** helper) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_DiacriticSensitivity(BOOL sensitive) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_DiacriticSensitivity(BOOL* sensitive) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCrawlScopeManager(ISearchCrawlScopeManager** manager) = 0;
};

/// The search service.
struct ISearchManager : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetIndexerVersionStr(LPWSTR* version) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIndexerVersion(DWORD* major, DWORD* minor) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetParameter(LPCWSTR name, PROPVARIANT** value) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetParameter(LPCWSTR name, const PROPVARIANT* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ProxyName(LPWSTR* name) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_BypassList(LPWSTR* list) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetProxy(ProxyAccess access, BOOL localBypass, DWORD port, LPCWSTR name,
                                               LPCWSTR bypassList) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCatalog(LPCWSTR name, ISearchCatalogManager** manager) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_UserAgent(LPWSTR* agent) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_UserAgent(LPCWSTR agent) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_UseProxy(ProxyAccess* access) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_LocalBypass(BOOL* bypass) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_PortNumber(DWORD* port) = 0;
};

} // namespace Quillon::Nst::Search
