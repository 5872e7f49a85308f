// An operation of the library: how it is run, and for each call that it makes what its failure comes to.
#pragma once

#include "support/Format.h"
#include "support/MapiErrors.h"
#include "tests/common/LogCapture.h"
#include "tests/faults/Surroundings.h"

#include <functional>
#include <string>
#include <vector>

namespace Tests
{

/// The unit and the function that stand in an event line.
struct Site
{
    const wchar_t* file = nullptr;
    const wchar_t* function = nullptr;
};

/// What a run has to come to.
struct Expected
{
    HRESULT result = S_OK;
    std::vector<testing::Matcher<const LogLine&>> lines;
    /// The text of the exception that ends the work; it ends with `result`.
    std::wstring text;
    bool ends = false;

    void Log(Quillon::LogId level, const std::wstring& line) { lines.push_back(Entry(level, line)); }
    /// The work ends with an exception that nothing is written about here.
    void End(HRESULT hr, const std::wstring& description)
    {
        result = hr;
        text = description;
        ends = true;
    }
    /// The library throws.
    void Throw(const Site& site, HRESULT hr, const std::wstring& description)
    {
        lines.push_back(Throwing(site.file, site.function, description));
        End(hr, description);
    }
};

/// How a call's failure is taken, by the shapes of the library's calls.
enum class Shape
{
    Mapi,      ///< checked, of a MAPI object
    Profile,   ///< the same, of the profile: a warning is an event
    Com,       ///< checked
    Pass,      ///< its result is written down and given on
    Try,       ///< reading a property that need not be there
    Query,     ///< reading a property that must be there
    Set,       ///< writing one property
    Interface, ///< QueryInterface
    Hook,
    Factory,
    System, ///< of the operating system: `then` says all
    Ignored ///< its result is not looked at; or `then` says all
};

/// One call of an operation.
struct Rule
{
    const char* call;
    Shape shape;
    Site site = {};
    std::wstring context = {};
    HRESULT quiet = S_OK;
    /// Its warning is the operation's result.
    bool givesResult = false;
    /// What follows from a failure besides the shape; `code` is what the call gave.
    std::function<void(Expected& expected, long code)> then = {};
    /// What follows from success without an object; empty: not to be tried.
    std::function<void(Expected& expected)> nothing = {};
};

struct Operation
{
    const char* name;
    std::vector<Rule> rules;
    std::function<HRESULT(Surroundings&)> run;
    /// The method whose handler turns exceptions into codes; none: exceptions leave the operation.
    Site handler = {};
    /// What the operation comes to without a fault.
    std::function<void(Expected&)> base = {};
    /// What happens to its result in the end.
    std::function<void(Expected&)> finally = {};
    /// Codes besides E_OUTOFMEMORY that a lack of memory may come to.
    std::vector<HRESULT> withoutMemory = {};
    /// It writes lines about what it does, which are not looked at.
    bool tellsActions = false;
    /// Failures are given on, none is thrown.
    bool isPassThrough = false;
};

void PrintTo(const Operation& operation, std::ostream* stream);

/// All of them.
const std::vector<Operation>& Operations();

/// The text of a MAPI failure, with the extended error that the objects give in this run.
std::wstring MapiText(HRESULT hr, const std::wstring& context = {});
std::wstring ComText(HRESULT hr);
std::wstring TagText(ULONG tag);
/// A property that must be there is not.
std::function<void(Expected&)> Missing(ULONG tag);
/// An object that is null where none may be is refused.
void GivesNull(Expected& expected);
/// Nothing follows.
void Succeed(Expected& expected);
/// Puts further calls behind `rules`.
void Append(std::vector<Rule>& rules, const std::vector<Rule>& more);

// The lists that Operations() is made of.
std::vector<Operation> StoreOperations();
std::vector<Operation> ProviderOperations();
std::vector<Operation> ServiceOperations();
std::vector<Operation> SystemOperations();

} // namespace Tests
