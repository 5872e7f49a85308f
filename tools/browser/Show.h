// Lists of messages, for the commands that show some.
#pragma once

#include "tools/browser/MapiTools.h"

namespace Browser
{
/// Prints the first `limit` messages of a folder as a table; gives how many the folder has.
size_t PrintMessages(const Common::MapiMemory& memory, IMAPIFolder& folder, size_t limit, size_t indent);

/// A message's headers, recipients, attachments and body.
Json MessageJson(const Common::MapiMemory& memory, IMessage& message);
} // namespace Browser
