// The browser's commands. Each gives the program's exit code; each throws `Common::Failure` (or another exception) for
// what ends it with one sentence on the error stream.
#pragma once

#include "tools/browser/ArchiveSession.h"
#include "tools/browser/LogRecorder.h"
#include "tools/browser/Report.h"

#include <filesystem>
#include <string>

namespace Browser
{
constexpr int exitOk = 0;
/// A failure, or a check that found what it looks for (`verify`, `diff`).
constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

/// What the options before the command say.
struct Options
{
    std::shared_ptr<const Mapi> mapi;
    /// The profile, and the store in it.
    Place place;
    bool json = false;
    /// Which wrappers the host gives, and whether modification is on.
    Setting setting;
    /// The library's log as it is recorded.
    LogRecorder* log = nullptr;
};

/// The profiles that MAPI has.
int RunProfiles(const Options& options);
/// The message services of the profile.
int RunServices(const Options& options);
/// The stores of the profile.
int RunStores(const Options& options);
/// Gives a profile an archive, and makes the profile where there is none of its name.
int RunConfigure(const Options& options, const std::filesystem::path& archive);
/// Takes the message service out of the profile, and removes the profile where nothing else is in it. No file is
/// touched.
int RunRemove(const Options& options);

/// The folders with their counts, from the top of the information store or (`all`) the root folder.
int RunTree(const Options& options, bool all);

/// The messages of a folder.
int RunList(const Options& options, const std::wstring& folder, size_t limit);
/// A message's headers, body, recipients and attachments.
int RunShow(const Options& options, const std::wstring& message);
/// The properties of any object.
int RunProps(const Options& options, const std::wstring& object);

/// Copies another PST's mail under the archive root. `all` takes in what lies outside its top of information store.
int RunImport(const Options& options, const std::filesystem::path& source, bool all);
/// Compares every imported object with its source.
int RunVerify(const Options& options, const std::filesystem::path& source, bool all);

/// Attempts every modifying call in the five settings; on another host's store as it is, and there with `all` also
/// those that such a host may let through by design.
int RunTry(const Options& options, bool all);

/// Compares a PST opened unwrapped and wrapped.
int RunDiff(const Options& options, const std::filesystem::path& file);

/// Writes one page with the archive's mail, its properties with what the wrapper changed, the modifying calls, the log
/// and the modules to `file`. Nothing of the archive is changed.
int RunReport(const Options& options, const std::filesystem::path& file, const ReportChoice& choice);

/// The whole path, for newcomers; an empty `source` uses generated mail. With `remove` the profile is removed at the
/// end.
int RunDemo(const Options& options, const std::filesystem::path& source, bool remove);
} // namespace Browser
