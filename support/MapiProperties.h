// Reading and writing single properties, and the names of property tags. A null object is answered as one whose call
// failed with E_POINTER.
#pragma once

#include "support/Binary.h"
#include "support/MapiErrors.h"

namespace Quillon::Mapi
{

/// Reads one property with GetProps. Throws CMapiError when the read fails or the value comes back as an error value
/// (its code then). Never null. Any thread.
KIVNST_API PropValuePointer QueryItemProperty(IMAPIProp* object, ULONG tag);

/// The same, but null instead of an exception. A property that is missing is not logged; any other failure is, at
/// level 0.
KIVNST_API PropValuePointer TryQueryItemProperty(IMAPIProp* object, ULONG tag) noexcept;

/// The property's value, empty when it is missing, is neither string nor binary, or cannot be copied for want of
/// memory.
KIVNST_API Value TryQueryItemPropertyValue(IMAPIProp* object, ULONG tag) noexcept;

/// Copies a PT_STRING8, PT_UNICODE or PT_BINARY value; throws CRuntimeError for another type, CComError(E_INVALIDARG)
/// for bytes at a null address.
KIVNST_API Value GetValueFromMapiProperty(const SPropValue* property);

/// The object's PR_ENTRYID. Throws as QueryItemProperty, and CRuntimeError when the object gives another type.
KIVNST_API Binary QueryItemEntryId(IMAPIProp* object);

/// The object's PR_DISPLAY_NAME, wide or in the ANSI code page. Throws as QueryItemProperty, and CRuntimeError when the
/// object gives another type.
KIVNST_API StringW QueryItemDisplayName(IMAPIProp* object);

/// Sets one property and throws CMapiError on failure, also when the object reports a problem with the value. (MAPI's
/// function of similar name returns a code instead.)
KIVNST_API void HrSetOneProp(IMAPIProp* object, SPropValue* property);

/// The name of a property tag: "PR_DISPLAY_NAME_W"; "0x7FE70102" where MAPI has no name for it. Any thread.
KIVNST_API StringW FormatMapiPropertyTag(ULONG tag);

/// The names of all tags of an array, joined by ", ". A null array gives an empty text. Any thread.
KIVNST_API StringW FormatMapiPropertyTags(const SPropTagArray* tags);
KIVNST_API StringW FormatMapiPropertyTags(const SPropValue* values, ULONG count);

/// The names of the flag bits of IMAPIContainer::SetSearchCriteria, joined by " | "; unknown bits in hexadecimal, "0"
/// for none. Any thread.
KIVNST_API StringW FormatSetSearchCriteriaFlags(ULONG flags);

/// Full path of the MAPI subsystem module in use, which is found and loaded if need be; empty when there is none.
/// Throws CWinError when the system does not tell it. Defined beside the binding of the MAPI module, in mapi/.
KIVNST_API StringW GetMapiPath();

} // namespace Quillon::Mapi
