// Keeping a store out of the search index, against a search service in this process.
#include "nst/KivNstCore.h"

#include "nst/SearchInterfaces.h"
#include "support/Exceptions.h"
#include "support/Format.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"
#include "tests/setup/SearchDouble.h"

#include <gmock/gmock.h>

using namespace Quillon;
using testing::ElementsAre;
using Tests::Entry;
using Tests::SearchStep;
using Tests::Text;

namespace
{

constexpr auto file = L"KivNstCore.cpp";
constexpr auto function = L"Quillon::Nst::ExcludeStoreFromIndexing";
constexpr int stepCount = static_cast<int>(SearchStep::Count);

class SearchExclusion : public testing::Test
{
protected:
    SearchExclusion()
    {
        m_registry.SetOutlookPath(Tests::OutlookProgram());
        url = Text(Nst::GetStoreMapiUrl(storeId, storeName));
    }

    void Exclude() const { Nst::ExcludeStoreFromIndexing(storeId, storeName); }

    /// The code of the CComError with which the exclusion ends; S_OK when it ends with none.
    HRESULT ExcludeWithCode() const
    {
        try
        {
            Exclude();
        }
        catch (const CComError& error)
        {
            return error.GetHResult();
        }
        return S_OK;
    }

    /// The calls of the first `count` steps.
    std::vector<std::wstring> Calls(int count) const
    {
        const std::vector<std::wstring> all = {L"CreateInstance",
                                               L"GetCatalog SystemIndex",
                                               L"GetCrawlScopeManager",
                                               L"IncludedInCrawlScope " + url,
                                               L"AddUserScopeRule " + url + L" 0 1 0",
                                               L"SaveAll"};
        return std::vector<std::wstring>(all.begin(), all.begin() + count);
    }

    testing::Matcher<const Tests::LogLine&> Excluding() const
    {
        return Entry(LogId::Action, L"Excluding store from indexing: " + url);
    }

    static constexpr BYTE bytes[] = {1, 0, 0, 0, 2};
    const Binary storeId{bytes, sizeof(bytes)};
    const StringW storeName = L"Archive/Mail 100%";
    std::wstring url;

private:
    Tests::ScratchRegistry m_registry;
    Tests::NoSearchService m_noService;
};

const auto excluded = Entry(LogId::Action, L"Store successfully excluded from indexing");

} // namespace

TEST_F(SearchExclusion, AddsARuleForAnIncludedStore)
{
    ASSERT_TRUE(url.find(L"/Archive%2FMail 100%25(23)/") != std::wstring::npos);
    Tests::SearchService service;
    Tests::LogCapture log;
    Exclude();
    EXPECT_EQ(service.calls, Calls(stepCount));
    EXPECT_THAT(log.Lines(), ElementsAre(Excluding(), excluded));
    EXPECT_EQ(service.ReferencesTaken(), 3);
    EXPECT_EQ(service.References(), 0);
}

TEST_F(SearchExclusion, TakesAnyTrueForIncluded)
{
    for (const BOOL included : {1, -1, 2})
    {
        Tests::SearchService service;
        service.included = included;
        Exclude();
        EXPECT_EQ(service.calls, Calls(stepCount));
    }
}

TEST_F(SearchExclusion, ChangesNothingForAnExcludedStore)
{
    Tests::SearchService service;
    service.included = FALSE;
    Tests::LogCapture log;
    Exclude();
    EXPECT_EQ(service.calls, Calls(4));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Excluding(), Entry(LogId::Action, L"Store was already excluded from indexing")));
    EXPECT_EQ(service.References(), 0);
}

TEST_F(SearchExclusion, EndsAtTheStepThatFails)
{
    for (int step = 0; step < stepCount; ++step)
    {
        for (const HRESULT hr : {E_ACCESSDENIED, E_FAIL, static_cast<HRESULT>(0x80040D07)})
        {
            SCOPED_TRACE(testing::Message() << "step " << step << ", " << std::hex << hr);
            Tests::SearchService service;
            service.results[step] = hr;
            Tests::LogCapture log;
            EXPECT_EQ(ExcludeWithCode(), hr);
            EXPECT_EQ(service.calls, Calls(step + 1));
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Excluding(), Tests::Throwing(file, function, Text(FormatComError(hr)))));
            EXPECT_EQ(service.References(), 0);
        }
    }
}

TEST_F(SearchExclusion, GoesOnAfterAWarning)
{
    constexpr HRESULT warning = 0x00040D01;
    const std::wstring told = Text(FormatErrorWithContext(FormatSystemError(warning, true), L""));
    for (int step = 0; step < stepCount; ++step)
    {
        SCOPED_TRACE(step);
        Tests::SearchService service;
        service.results[step] = warning;
        Tests::LogCapture log;
        Exclude();
        EXPECT_EQ(service.calls, Calls(stepCount));
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Excluding(),
                                Tests::Event(L"Non-success condition during COM call", file, function, told),
                                excluded));
    }
    Tests::SearchService service;
    for (HRESULT& result : service.results)
        result = S_FALSE;
    Tests::LogCapture log;
    Exclude();
    EXPECT_EQ(service.calls, Calls(stepCount));
    EXPECT_EQ(log.Lines().size(), 8u);
    EXPECT_EQ(service.References(), 0);
}

TEST_F(SearchExclusion, RefusesAServiceThatGivesNoObject)
{
    const SearchStep giving[] = {SearchStep::CreateInstance, SearchStep::GetCatalog, SearchStep::GetCrawlScopeManager};
    for (const SearchStep step : giving)
    {
        Tests::SearchService service;
        service.givingNothing = step;
        Tests::LogCapture log;
        EXPECT_EQ(ExcludeWithCode(), E_POINTER);
        EXPECT_EQ(service.calls, Calls(static_cast<int>(step) + 1));
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Excluding(), Tests::Throwing(file, function, Text(FormatComError(E_POINTER)))));
        EXPECT_EQ(service.References(), 0);
    }
}

TEST_F(SearchExclusion, FailsWithoutTheSearchService)
{
    Tests::LogCapture log;
    const HRESULT hr = ExcludeWithCode();
    EXPECT_EQ(hr, REGDB_E_CLASSNOTREG);
    EXPECT_THAT(log.Lines(), ElementsAre(Excluding(), Tests::Throwing(file, function, Text(FormatComError(hr)))));
}

TEST(SearchInterfaces, HaveTheIdentifiersOfWindowsSearch)
{
    const struct
    {
        GUID id;
        const wchar_t* text;
    } table[] = {
        {Nst::Search::clsidSearchManager, L"{7D096C5F-AC08-4F1F-BEB7-5C22C517CE39}"},
        {Nst::Search::iidSearchManager, L"{AB310581-AC80-11D1-8DF3-00C04FB6EF69}"},
        {Nst::Search::iidSearchCatalogManager, L"{AB310581-AC80-11D1-8DF3-00C04FB6EF50}"},
        {Nst::Search::iidSearchCrawlScopeManager, L"{AB310581-AC80-11D1-8DF3-00C04FB6EF55}"},
    };
    for (const auto& row : table)
    {
        wchar_t text[40] = {};
        StringFromGUID2(row.id, text, 40);
        EXPECT_STREQ(text, row.text);
    }
}

TEST(SearchExclusionWithoutMailClient, AsksNobody)
{
    const Tests::ScratchRegistry registry;
    Tests::SearchService service;
    Tests::LogCapture log;
    EXPECT_THROW(Nst::ExcludeStoreFromIndexing(Binary(), L"x"), CRuntimeError);
    EXPECT_TRUE(service.calls.empty());
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Throwing(file, L"GetMapiUrlScheme", L"Unable to determine Outlook version")));
}
