// How many objects of each kind there are, counted and named in the same way by all commands.
#pragma once

#include "tools/browser/Console.h"

namespace Browser
{
struct ObjectCounts
{
    /// Those below the folder at the top.
    size_t folders = 0;
    /// What the folders show, their hidden messages not among them.
    size_t messages = 0;
    size_t hidden = 0;
    /// Messages that are attached to another message, at any depth.
    size_t embedded = 0;
    /// The attachments with which these are among them.
    size_t attachments = 0;

    bool operator==(const ObjectCounts&) const = default;
};

/// "7 folders, 71 messages, 2 hidden messages".
std::string FolderCountsText(const ObjectCounts& counts);
/// The same with ", 1 embedded message, 12 attachments".
std::string CountsText(const ObjectCounts& counts);
Json CountsJson(const ObjectCounts& counts);
} // namespace Browser
