// What a folder's table, or a search, looks at of a message.
#pragma once

#include "testbed/pst/Overlay.h"

namespace Testbed::Pst
{
/// A message's properties, each loaded when it is asked for: what the source's table knows with the overlay's changes,
/// then the few that follow from where the message lies (PR_ENTRYID, PR_RECORD_KEY, PR_PARENT_ENTRYID, PR_OBJECT_TYPE,
/// PR_HASATTACH, PR_MSG_STATUS), and only for what neither knows the message itself. `node` says where the message lies
/// now.
std::shared_ptr<const PropertySource> MakeMessageSummary(std::shared_ptr<Overlay> overlay,
                                                         std::shared_ptr<const StoreSource> source,
                                                         const Bytes& recordKey, const Node& node);
} // namespace Testbed::Pst
