// Copying of messages, folders and properties over MAPI's public interfaces: what MAPI's support object does for
// providers. It knows nothing of the stores that it copies between.
#pragma once

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// Two objects, the interfaces that they are to be asked for, and the flags of IMAPIProp::CopyTo.
struct CopyPair
{
    LPCIID sourceInterface = nullptr;
    LPUNKNOWN source = nullptr;
    LPCIID destinationInterface = nullptr;
    LPUNKNOWN destination = nullptr;
    ULONG flags = 0;
};

/// What IMAPIProp::CopyTo leaves out.
struct CopyExceptions
{
    ULONG interfaceCount = 0;
    LPCIID interfaces = nullptr;
    LPSPropTagArray tags = nullptr;
};

/// Copies all properties of an object, and of a message its recipients and attachments (embedded messages included),
/// of a folder its messages and subfolders, unless excluded by tag (PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS,
/// PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS, PR_CONTAINER_HIERARCHY). Large properties go by stream, named
/// properties keep their names. The destination is not saved: that is the caller's. Flags: MAPI_MOVE, MAPI_NOREPLACE.
/// `problems`, where it is given, gets what single properties gave, indexed as in the source's list, or null for none.
/// Throws `Failure`: MAPI_E_INTERFACE_NOT_SUPPORTED when an object does not answer the interface named for it,
/// MAPI_E_INVALID_PARAMETER for null objects, MAPI_E_UNKNOWN_FLAGS.
void CopyObject(const MapiMemory& memory, const CopyPair& objects, const CopyExceptions& exceptions,
                LPSPropProblemArray* problems);

/// Copies the properties of `tags` only; PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS and a folder's container tags
/// stand for what is in them. What the source does not have is passed over. As `CopyObject` otherwise.
void CopyProperties(const MapiMemory& memory, LPSPropTagArray tags, const CopyPair& objects,
                    LPSPropProblemArray* problems);

/// Copies or (MESSAGE_MOVE) moves messages between folders. The source is asked for `sourceInterface`, the destination
/// for `destinationInterface`, null meaning IMAPIFolder; an object that does not answer makes it fail with
/// MAPI_E_INTERFACE_NOT_SUPPORTED before anything is copied. Messages that fail are passed over and the result is
/// MAPI_W_PARTIAL_COMPLETION. Throws `Failure`.
HRESULT CopyMessages(const MapiMemory& memory, LPCIID sourceInterface, LPVOID source, const ENTRYLIST& messages,
                     LPCIID destinationInterface, LPVOID destination, LPMAPIPROGRESS progress, ULONG flags);

/// Copies or (FOLDER_MOVE) moves the folder of `entryId`, with its messages and (COPY_SUBFOLDERS, or when moving) its
/// subfolders, under the destination folder. `source` is the parent, asked for `sourceInterface` as above. A null name
/// keeps the folder's own. MAPI_E_COLLISION when the destination has a folder of that name, MAPI_E_FOLDER_CYCLE when
/// it lies in the folder that is copied. Throws `Failure`; gives MAPI_W_PARTIAL_COMPLETION when single messages failed.
HRESULT CopyFolder(const MapiMemory& memory, LPCIID sourceInterface, LPVOID source, ULONG entryIdSize,
                   LPENTRYID entryId, LPCIID destinationInterface, LPVOID destination, LPTSTR newName,
                   LPMAPIPROGRESS progress, ULONG flags);
} // namespace Testbed
