// What a registration in MAPISVC.INF consists of, what registering would change, and what is wrong with one.
//
// The entries are nowhere listed here: they are what the library writes into a scratch file.
#pragma once

#include "support/StringW.h"
#include "tools/setup/InfFile.h"
#include "tools/setup/Probe.h"

#include <optional>
#include <string>
#include <vector>

namespace Setup
{

/// What a host tells of its message service.
struct Service
{
    std::wstring name;
    std::wstring displayName;
    std::wstring dllName;
    std::wstring extraFlags;
};

/// A text as the library takes it.
Quillon::StringW ToString(const std::wstring& text);

/// The section of the provider that belongs to a service.
std::wstring GetProviderSection(const std::wstring& serviceName);

/// Throws SetupError when a text cannot stand in an INI file as it is: line ends and other control characters, blanks
/// or quotation marks around it, and in the service's name what ends a section's or a key's name; and when a flag is
/// none of a message service.
void RequireSound(const Service& service);
void RequireSoundName(const std::wstring& serviceName);

/// Throws SetupError when the file has anything under the service's name or its provider's that registering an archive
/// store did not write, or that names another DLL than `dllName`; or when the name is one of the file's own sections.
void RequireOwn(const InfFile& file, const std::wstring& serviceName, const std::optional<std::wstring>& dllName);

/// What a change does to one entry.
struct Change
{
    enum class Kind
    {
        Add,
        Replace,
        Keep,
        Remove
    };
    Kind kind;
    Entry entry;
    /// What stands there now, where that is replaced.
    std::wstring previous;
};

/// What registering would do to each of the entries, in their order. The file is not changed: the change is made to a
/// copy. Throws SetupError when the file cannot hold one of the texts.
std::vector<Change> PlanRegistration(const InfFile& file, const Service& service);

/// What unregistering would remove. The file is not changed.
std::vector<Change> PlanRemoval(const InfFile& file, const std::wstring& serviceName);

/// Registers, by the library; a read-only file is one afterwards, too. Throws SetupError.
void Register(const InfFile& file, const Service& service);

/// The same for unregistering.
void Unregister(const InfFile& file, const std::wstring& serviceName);

/// One thing that is wrong with a registration.
struct Problem
{
    enum class Kind
    {
        MissingEntry,
        WrongValue,
        MissingDll,
        UnusableDll
    };
    Kind kind;
    /// The entry as it should be; of a DLL, the one that names it.
    Entry entry;
    /// What stands there instead of it, for a wrong value; the path of an unusable DLL; for a missing one, the path of
    /// the file that only lacks the "32" in its name, if there is one.
    std::wstring actual;
    /// What is wrong with an unusable DLL.
    DllProblem dll;
};

/// The state of one registration.
struct Status
{
    enum class State
    {
        NotRegistered,
        /// Something else has the name.
        Foreign,
        Registered
    };
    Service service;
    State state = State::NotRegistered;
    /// The DLL that MAPI would load.
    std::optional<std::wstring> dllPath;
    std::vector<Problem> problems;
};

/// What the caller knows a registration should be; what it does not know is taken from the registration itself.
struct Expectation
{
    std::wstring name;
    std::optional<std::wstring> displayName;
    std::optional<std::wstring> dllName;
    std::optional<std::wstring> extraFlags;
};

Status GetStatus(const InfFile& file, const Expectation& expectation);

/// The names of the services that registration wrote, whole or in part.
std::vector<std::wstring> FindServices(const InfFile& file);

} // namespace Setup
