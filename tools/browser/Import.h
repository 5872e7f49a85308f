// Importing a PST's mail into an archive.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/Copy.h"
#include "tools/browser/Counts.h"
#include "tools/browser/Pace.h"
#include "tools/browser/SourceMark.h"

namespace Browser
{
/// What an import did.
struct ImportReport
{
    /// What the source has; of the attachments, and of the messages among them, only those of new messages.
    ObjectCounts source;
    /// What was not in the archive yet.
    ObjectCounts added;
    /// Search folders show messages of other folders and are left out.
    size_t searchFolders = 0;
    std::vector<CopyProblem> problems;
};

/// Imports what lies below the source's top, folder by folder; what an earlier run imported is left as it is. The
/// archive has to be logged on with modification on. `progress` is told of each folder, and every two seconds within a
/// large one. Throws `Common::Failure`.
ImportReport Import(StoreSession& archive, StoreSession& source, bool all, const Progress& progress);

/// Sees to it that there is the profile and has an archive: by default in the current folder, with the profile's name.
void RequireArchive(ArchiveSession& archive, const Setting& setting, const Progress& progress);
} // namespace Browser
