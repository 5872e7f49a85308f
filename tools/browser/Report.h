// The command "report": what a developer looks at or attaches to a ticket, in one page.
#pragma once

#include <cstddef>

namespace Browser
{
/// What goes into a report, and how much of it.
struct ReportChoice
{
    /// Write over a file that is no report.
    bool force = false;
    /// From the store's root folder instead of the top of the information store.
    bool all = false;
    /// Attempt the modifying calls, on an archive made for it.
    bool attempts = true;
    /// So many messages of a folder are listed at most, shown and hidden ones each.
    size_t listed = 10000;
    /// So many of these with recipients, attachments, body and properties.
    size_t detailed = 50;
};
} // namespace Browser
