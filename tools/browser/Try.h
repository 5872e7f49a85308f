// Attempting every call that modifies something.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/Console.h"

#include <string>
#include <vector>

namespace Browser
{
struct Options;

/// What one call gave.
struct TryRow
{
    Setting setting;
    /// "store", "folder", "message" or "attachment".
    std::string object;
    /// The method, and in parentheses what sets the call apart from others of it.
    std::string call;
    std::string code;
    /// "refused": MAPI_E_NO_ACCESS by the wrapper; "succeeded"; "failed": any other failure, also one with
    /// MAPI_E_NO_ACCESS that the library's log ascribes to what is behind the wrapper.
    std::string outcome;
    /// The library's lines of log; a detail stands on its entry's line.
    std::vector<std::string> log;
};

/// What the attempts gave, and whether the archive is what it was.
struct TryReport
{
    std::vector<TryRow> rows;
    /// SHA-256 over what the archive held: the properties of store and folders, the rows of the contents tables, and
    /// all of the message on which the calls were made.
    std::string before;
    std::string after;

    bool ArchiveUnchanged() const { return before == after; }
    Json ToJson() const;
};

/// Told of the attempts, for those who can see more of a call than its caller.
class AttemptWatch
{
public:
    virtual ~AttemptWatch() = default;
    /// Attempts on these objects of this store follow.
    virtual void Begin(StoreSession& archive, const Common::Bytes& folder, const Common::Bytes& message,
                       std::optional<ULONG> attachment) = 0;
    virtual void Before() = 0;
    virtual void After(const TryRow& row) = 0;
};

/// Where attempts may be made.
enum class TryPlace
{
    /// On the archive itself where it has to refuse them, else on archives made for it.
    ArchiveWhereRefused,
    /// On archives made for it alone.
    OwnArchives
};

/// Runs the attempts in `settings`. Made on the archive itself are all of the host kit's setting, and those of the
/// read-only setting with modification off that may not change it by design; everything else is made on archives of its
/// own, with a copy of the same message. On another host's store as it is, those that may change it by design are made
/// only with `all`. `place` may rule the archive itself out. `watch` may be null.
TryReport TryAll(const Options& options, const std::vector<Setting>& settings, AttemptWatch* watch, bool all = false,
                 TryPlace place = TryPlace::ArchiveWhereRefused);

/// Prints the rows of one setting as a table.
void PrintTryRows(const TryReport& report, const Setting& setting, bool refusedOnly, size_t indent);
} // namespace Browser
