// A search service in this process: the platform's objects as bare tables of slots, so that a method that stood in
// another slot in the library's declarations would not be found here.
#pragma once

#include "tests/common/ImportHook.h"

#include <windows.h>

#include <objbase.h>

#include <string>
#include <vector>

namespace Tests
{

/// The steps of an exclusion, in their order.
enum class SearchStep
{
    CreateInstance,
    GetCatalog,
    GetCrawlScopeManager,
    IncludedInCrawlScope,
    AddUserScopeRule,
    SaveAll,
    Count
};

/// Answers for the system when the library creates an object, as long as it lives: whatever this machine has, there is
/// no search service but a SearchService.
class NoSearchService
{
public:
    NoSearchService();

private:
    ImportHook<HRESULT(REFCLSID, IUnknown*, DWORD, REFIID, void**)> m_hook;
};

/// What the library is given for the search service, as long as it lives. One at a time.
class SearchService
{
public:
    SearchService();
    SearchService(const SearchService&) = delete;
    SearchService& operator=(const SearchService&) = delete;
    ~SearchService();

    /// What each step gives.
    HRESULT results[static_cast<int>(SearchStep::Count)] = {};
    HRESULT& Result(SearchStep step) { return results[static_cast<int>(step)]; }
    /// The step that gives no object in spite of its result.
    SearchStep givingNothing = SearchStep::Count;
    /// What IncludedInCrawlScope says.
    BOOL included = TRUE;

    /// The calls on the objects, with their arguments.
    std::vector<std::wstring> calls;
    /// References that are held on all objects now.
    LONG References() const;
    /// References that were ever taken.
    LONG ReferencesTaken() const;

private:
    NoSearchService m_noOther;
};

} // namespace Tests
