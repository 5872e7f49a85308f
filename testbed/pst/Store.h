// The objects of an open store: the store itself, its folders, and the logon over them.
#pragma once

#include "testbed/pst/Message.h"

namespace Testbed::Pst
{
ComPtr<IMsgStore> MakeStore(std::shared_ptr<Session> session);
/// `modifiable` says whether the folder is open for writing, which the session has to allow.
ComPtr<IMAPIFolder> MakeFolder(std::shared_ptr<Session> session, NodeId node, bool modifiable);
ComPtr<IMSLogon> MakeLogon(std::shared_ptr<Session> session);

/// The body of OpenEntry of the store, its logon and its folders. A null entry ID opens the root folder, the store's
/// own the store. Folders and messages are opened for writing only when MAPI_MODIFY or MAPI_BEST_ACCESS asks for it.
HRESULT OpenStoreEntry(const std::shared_ptr<Session>& session, ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags,
                       ULONG* type, LPUNKNOWN* object);

/// The contents table (or the hidden one) of a folder.
ComPtr<IMAPITable> MakeContentsTable(std::shared_ptr<Session> session, NodeId folder, bool associated, ULONG flags);
/// The table of a folder's sub-folders, or with CONVENIENT_DEPTH of all folders below it.
ComPtr<IMAPITable> MakeHierarchyTable(std::shared_ptr<Session> session, NodeId folder, ULONG flags);

/// A folder's properties as clients see them.
std::shared_ptr<LayeredProperties> FolderProperties(const std::shared_ptr<Session>& session, const Node& folder);
} // namespace Testbed::Pst
