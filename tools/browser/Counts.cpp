// Naming what was counted.
#include "tools/browser/Counts.h"

namespace Browser
{
std::string FolderCountsText(const ObjectCounts& counts)
{
    return Count(counts.folders, "folder", "folders") + ", " + Count(counts.messages, "message", "messages") + ", " +
           Count(counts.hidden, "hidden message", "hidden messages");
}

std::string CountsText(const ObjectCounts& counts)
{
    return FolderCountsText(counts) + ", " + Count(counts.embedded, "embedded message", "embedded messages") + ", " +
           Count(counts.attachments, "attachment", "attachments");
}

Json CountsJson(const ObjectCounts& counts)
{
    return {{"folders", counts.folders},
            {"messages", counts.messages},
            {"hiddenMessages", counts.hidden},
            {"embeddedMessages", counts.embedded},
            {"attachments", counts.attachments}};
}
} // namespace Browser
