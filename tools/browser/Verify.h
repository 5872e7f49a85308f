// Comparing an archive with what was imported into it.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/Counts.h"
#include "tools/browser/Pace.h"

#include <string>
#include <vector>

namespace Browser
{
/// What a comparison found.
struct VerifyReport
{
    ObjectCounts counts;
    size_t recipients = 0;
    size_t properties = 0;
    /// One line for each object that is not in the archive, and for each value that is another one there.
    std::vector<std::string> missing;
    std::vector<std::string> different;

    bool Same() const noexcept { return missing.empty() && different.empty(); }
    Json ToJson() const;
    /// "12 folders, 71 messages, ... compared: nothing missing, nothing different".
    std::string Summary() const;
};

/// Compares every object of the source with the one in the archive that carries its mark: properties, recipients, and
/// attachments with all that is in them. `progress` is told every two seconds. Throws `Common::Failure` when a store
/// cannot be read.
VerifyReport Verify(StoreSession& archive, StoreSession& source, bool all, const Progress& progress);
} // namespace Browser
