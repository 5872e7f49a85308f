// What a registration in MAPISVC.INF consists of, what registering would change, and what is wrong with one.
//
// The entries are nowhere listed here: they are what the library writes into a scratch file.
#pragma once

#include "tools/setup/InfFile.h"

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

/// The section of the provider that belongs to a service.
std::wstring GetProviderSection(const std::wstring& serviceName);

/// Throws SetupError when a text cannot stand in an INI file as it is: line ends and other control characters, blanks
/// or quotation marks around it, and in the service's name what ends a section's or a key's name.
void RequireSound(const Service& service);
void RequireSoundName(const std::wstring& serviceName);

/// Throws SetupError when `serviceName` is a service of the file that is not an archive store's (its "Providers" names
/// another provider section than its own, and its own, with the library's mark in it, is not there), or when it is one
/// of the file's own sections.
void RequireOwn(const InfFile& file, const std::wstring& serviceName);

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

/// Registers, by the library. Throws SetupError.
void Register(const InfFile& file, const Service& service);

/// Unregisters, by the library. Throws SetupError.
void Unregister(const InfFile& file, const std::wstring& serviceName);

/// One thing that is wrong with a registration.
struct Problem
{
    enum class Kind
    {
        MissingEntry,
        WrongValue,
        MissingDll
    };
    Kind kind;
    /// The entry as it should be; for a missing DLL, the one that names it.
    Entry entry;
    /// What stands there instead of it, for a wrong value.
    std::wstring actual;
};

/// The state of one registration.
struct Status
{
    Service service;
    /// Whether anything of it is in the file.
    bool isRegistered = false;
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

/// The names of the services whose "Providers" is their own provider section, and of those of which only the provider
/// section, with the library's mark in it, is left.
std::vector<std::wstring> FindServices(const InfFile& file);

} // namespace Setup
