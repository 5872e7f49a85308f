// Comparing a PST as its provider shows it with the same one behind the wrappers.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/MapiTools.h"

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

/// Walks both stores from the store objects and the root folder down and compares every property of every object and
/// every row of every table. Both have to be logged on to the same file.
DiffReport Compare(PstSession& unwrapped, ArchiveSession& wrapped, const Setting& setting);

/// The store properties by which a client sees that a store is an archive, before (unwrapped) and after.
std::vector<Difference> StoreDifferences(PstSession& unwrapped, ArchiveSession& wrapped, const Setting& setting);
} // namespace Browser
