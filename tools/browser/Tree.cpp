// The command "tree".
#include "tools/browser/Tree.h"
#include "tools/browser/Commands.h"
#include "tools/browser/MapiTools.h"

using namespace Common;

namespace Browser
{
namespace
{
FolderNode Node(const MapiMemory& memory, IMsgStore& store, const FolderRow& row, int depth)
{
    // Folders nest as deep as their maker liked; the stack does not.
    constexpr int deepest = 200;
    FolderNode node{row.entryId, row.name, row.messages, row.unread, row.hidden.value_or(0), {}};
    // What the parent's table tells need not be asked of the folder.
    if (row.hidden && !row.hasChildren)
        return node;
    const auto folder = OpenFolder(store, row.entryId);
    if (!row.hidden)
        if (const auto hidden = ReadProp(memory, *folder, PR_ASSOC_CONTENT_COUNT))
            node.hidden = hidden->AsLong();
    if (depth < deepest)
        for (const FolderRow& child : SubFolders(memory, *folder))
            node.children.push_back(Node(memory, store, child, depth + 1));
    return node;
}

void AddRows(TextTable& table, const FolderNode& node, size_t depth)
{
    const std::string name = node.name.empty() ? "(no name)" : Utf8(node.name);
    table.Add({std::string(depth * 2, ' ') + name, std::to_string(node.messages), std::to_string(node.unread),
               std::to_string(node.hidden)});
    for (const FolderNode& child : node.children)
        AddRows(table, child, depth + 1);
}
} // namespace

FolderNode ReadTree(const MapiMemory& memory, IMsgStore& store, bool all)
{
    const Bytes entryId = all ? Bytes() : TopOfStore(memory, store);
    if (!all && entryId.empty())
        Fail(MAPI_E_NOT_FOUND,
             L"The store has no archive root: its host has to call ConfigureNstSubtreeEntryId where it "
             L"makes the store.");
    const auto folder = OpenFolder(store, entryId);
    const std::vector<PropValue> values =
        ReadProps(memory, *folder, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_CONTENT_COUNT, PR_CONTENT_UNREAD});
    FolderRow row{
        values[0].AsBytes(), values[1].AsText(), FOLDER_GENERIC, values[2].AsLong(), values[3].AsLong(), {}, true};
    return Node(memory, store, row, 0);
}

ObjectCounts CountTree(const FolderNode& node)
{
    ObjectCounts counts;
    counts.messages = static_cast<size_t>(node.messages);
    counts.hidden = static_cast<size_t>(node.hidden);
    for (const FolderNode& child : node.children)
    {
        const ObjectCounts below = CountTree(child);
        counts.folders += below.folders + 1;
        counts.messages += below.messages;
        counts.hidden += below.hidden;
    }
    return counts;
}

void PrintTree(const FolderNode& tree, size_t indent)
{
    TextTable table({{"folder"}, {"messages", true}, {"unread", true}, {"hidden", true}});
    AddRows(table, tree, 0);
    table.Print(indent);
    PrintLine();
    PrintLine(std::string(indent, ' ') + "In the first: " + FolderCountsText(CountTree(tree)));
}

Json TreeJson(const FolderNode& node)
{
    Json children = Json::array();
    for (const FolderNode& child : node.children)
        children.push_back(TreeJson(child));
    return {{"name", Utf8(node.name)},   {"entryId", ValueJson(PropValue::Binary(PR_ENTRYID, node.entryId))},
            {"messages", node.messages}, {"unread", node.unread},
            {"hidden", node.hidden},     {"folders", std::move(children)}};
}

int RunTree(const Options& options, bool all)
{
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(options.setting);
    const FolderNode tree = ReadTree(archive.Memory(), archive.Store(), all);
    if (options.json)
    {
        PrintLine(TreeJson(tree).dump(2));
        return exitOk;
    }
    PrintTree(tree, 0);
    return exitOk;
}
} // namespace Browser
