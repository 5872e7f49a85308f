// Comparing a PST as its provider shows it with the same one behind the wrappers.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/MapiTools.h"
#include "tools/browser/Pace.h"

#include <map>
#include <string>
#include <vector>

namespace Browser
{
/// A value that is another one behind the wrappers.
struct Difference
{
    std::string object;
    std::string property;
    std::string unwrapped;
    std::string wrapped;
    /// Why it is so; empty when nothing explains it.
    std::string rule;
};

/// What a comparison found.
struct DiffReport
{
    size_t objects = 0;
    size_t properties = 0;
    size_t rows = 0;
    /// The differences of the store, and of other objects those that nothing explains; the explained ones of folders
    /// and messages are many and alike, and only counted.
    std::vector<Difference> differences;
    /// How many differences each rule explained, by kind of object, property and rule.
    std::map<std::string, size_t> explained;
    size_t unexplained = 0;

    Json ToJson() const;
};

/// What a store was when it was recorded; long values by their size and SHA-256.
struct StoreRecord;

/// Reads the store's own properties and receive folders, and where wanted everything below its root folder; then
/// `progress` is told every two seconds.
std::shared_ptr<const StoreRecord> Record(StoreSession& unwrapped, bool withFolders, const Progress& progress);

/// Compares what was recorded of a PST, every property of every object and every row of every table, with the same
/// `file` behind a host's service. `progress` is told every two seconds.
DiffReport Compare(const StoreRecord& unwrapped, StoreSession& wrapped, const std::filesystem::path& file,
                   const Setting& setting, const Progress& progress);
} // namespace Browser
