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
    /// "refused": by the wrapper, MAPI_E_NO_ACCESS; "ignored": success without effect; "let through": the provider (or
    /// the support object, which copies folders) got the call; "failed": anything else.
    std::string outcome;
    /// The methods of the provider's objects, and of the support object, that the call reached.
    std::vector<std::string> reached;
    /// The library's lines of log; a detail stands on its entry's line.
    std::vector<std::string> log;
};

/// What the attempts gave, and whether the archive is what it was.
struct TryReport
{
    std::vector<TryRow> rows;
    /// SHA-256 of the archive's file (empty where it has none) and of the file that keeps its changes.
    std::string pstBefore;
    std::string pstAfter;
    std::string overlayBefore;
    std::string overlayAfter;

    bool ArchiveUnchanged() const { return pstBefore == pstAfter && overlayBefore == overlayAfter; }
    Json ToJson() const;
};

/// Runs the attempts in `settings`. Those of the read-only setting with modification off are made on the archive
/// itself, but for those that may change it by design; everything else on copies.
TryReport TryAll(const Options& options, const std::vector<Setting>& settings);

/// Prints the rows of one setting as a table.
void PrintTryRows(const TryReport& report, const Setting& setting, bool refusedOnly, size_t indent);
} // namespace Browser
