// The objects of a store provider that is as fast as one can be which keeps the contract: everything is in memory, the
// answers are real. What a wrapper adds shows most beside it. Each is made with one reference; any thread.
#pragma once

#include "support/MapiHeaders.h"

namespace Benchmarks
{

/// MAPI's allocators, of the module beside the program.
struct Mapi
{
    LPALLOCATEBUFFER allocateBuffer;
    LPALLOCATEMORE allocateMore;
    LPFREEBUFFER freeBuffer;
};

/// Loads the module with the first call; ends the program where it is not there.
const Mapi& GetMapi();

/// A contents table of generated messages with the columns of a mail client's list.
IMAPITable* MakeTable(ULONG rows);
/// A folder; its contents table has so many rows.
IMAPIFolder* MakeFolder(ULONG rows);
IMessage* MakeMessage();
/// A store with the 200 properties of GetStoreTags; opens the two entries below.
IMsgStore* MakeStore();
IMAPISupport* MakeSupport();

constexpr ULONG entryIdSize = 24;
/// The entry of a folder, and of a message.
ENTRYID* GetFolderEntryId() noexcept;
ENTRYID* GetMessageEntryId() noexcept;

} // namespace Benchmarks
