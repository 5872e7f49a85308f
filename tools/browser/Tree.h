// A store's folders as a tree, for the commands that show or count them.
#pragma once

#include "tools/browser/MapiTools.h"

namespace Browser
{
/// A folder with what lies below it.
struct FolderNode
{
    Testbed::Bytes entryId;
    std::wstring name;
    LONG messages = 0;
    LONG unread = 0;
    LONG hidden = 0;
    std::vector<FolderNode> children;
};

/// Reads the tree below the top of the information store, or (`all`) below the root folder.
FolderNode ReadTree(const Testbed::MapiMemory& memory, IMsgStore& store, bool all);
size_t CountFolders(const FolderNode& node);
size_t CountMessages(const FolderNode& node);
void PrintTree(const FolderNode& tree, size_t indent);
Json TreeJson(const FolderNode& node);
} // namespace Browser
