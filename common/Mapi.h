// The MAPI headers in one place, with the few names that they lack.
#pragma once

#include <windows.h>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapiguid.h>
#include <mapispi.h>
#include <mapitags.h>
#include <mapix.h>

namespace Common
{
/// The first identifier of named properties.
constexpr ULONG firstNamedId = 0x8000;

/// Property tags that store providers and their services use and that the MAPI headers do not name.
namespace Tags
{
/// Path of the PST file, in a store provider's profile section.
constexpr ULONG pstPathW = PROP_TAG(PT_UNICODE, 0x6700);
constexpr ULONG pstPathA = PROP_TAG(PT_STRING8, 0x6700);
/// Path of the PST file, as the caller of a configuration supplies it.
constexpr ULONG offlineStorePathW = PROP_TAG(PT_UNICODE, 0x6610);
constexpr ULONG offlineStorePathA = PROP_TAG(PT_STRING8, 0x6610);
/// Allocated identifier ranges of an offline store.
constexpr ULONG ostOlfi = PROP_TAG(PT_BINARY, 0x7C07);
} // namespace Tags

/// Logon flags of a store of the offline kind, which the MAPI headers do not name.
constexpr ULONG logonUnicode = 0x00000800;
constexpr ULONG logonAnsi = 0x00001000;

/// A text or binary property of more bytes than this is not returned by GetProps or in a table row: its entry says
/// MAPI_E_NOT_ENOUGH_MEMORY, and a client has to read it with OpenProperty. 4 KB is where stores begin with that.
constexpr size_t maxInlineSize = size_t{4} * 1024 - 1;
} // namespace Common
