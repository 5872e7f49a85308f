// A store's folders as a tree, for the commands that show or count them.
#pragma once

#include "tools/browser/Counts.h"
#include "tools/browser/MapiTools.h"

namespace Browser
{
/// A folder with what lies below it.
struct FolderNode
{
    Common::Bytes entryId;
    std::wstring name;
    LONG messages = 0;
    LONG unread = 0;
    LONG hidden = 0;
    std::vector<FolderNode> children;
};

/// Reads the tree below the top of the information store, or (`all`) below the root folder.
FolderNode ReadTree(const Common::MapiMemory& memory, IMsgStore& store, bool all);
/// The folders below the tree's top, and the messages that all of them show and hide.
ObjectCounts CountTree(const FolderNode& node);
/// Prints the folders as a table, and their number.
void PrintTree(const FolderNode& tree, size_t indent);
Json TreeJson(const FolderNode& node);
} // namespace Browser
