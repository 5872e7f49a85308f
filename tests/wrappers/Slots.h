// Every virtual slot of every exported wrapper class, in the order of the virtual table.
#pragma once

#include "support/MapiHeaders.h"

namespace Tests
{

/// What the slot does when it does not refuse.
enum class Kind
{
    QueryInterface,
    AddRef,
    Release,
    Pass,         ///< forwarded under the rule for MAPI calls
    Com,          ///< forwarded under the rule for COM calls
    Checked,      ///< forwarded; a failure is thrown, caught and returned
    Companion,    ///< forwarded to another object than the wrapped one
    Logon,        ///< the provider's two logons
    SpoolerLogon, //
    Destructor,
    Factory,
    Hook
};

/// What the slot does instead while store modification is off.
enum class Gate
{
    None,
    Refused,       ///< a line, MAPI_E_NO_ACCESS, the wrapped object is not called
    RefusedNaming, ///< the same, but the wrapped object is asked for its display name
    ReadAccess,    ///< forwarded without MAPI_MODIFY and MAPI_BEST_ACCESS in the flags
    Ignored        ///< S_OK, the wrapped object is not called
};

/// One slot.
struct Slot
{
    const char* name;
    /// Its number, the destructor taking one slot; see RealSlot.
    int number;
    /// One letter for each argument. u: 32 bits; w: 64 bits that are no pointer (a window handle, bookmark or
    /// connection number); p: opaque, must not be touched; V: one property value, its count in front; T: a tag array;
    /// G: a UID. O: an output that the wrapper reads afterwards; o: an output that the wrapper takes in for itself
    /// first: the wrapped object sees another address.
    const char* arguments;
    Kind kind;
    HRESULT quiet = S_OK;
    Gate gate = Gate::None;
};

#if defined(_MSC_VER)
/// How many slots a virtual destructor takes: one that deletes or not as it is told.
constexpr int destructorSlots = 1;
#else
/// How many slots a virtual destructor takes: one that destroys, one that deletes too.
constexpr int destructorSlots = 2;
#endif

/// The slot's number in the virtual table of this compiler; `interfaceSlots` is how many stand before the destructor.
constexpr int RealSlot(int number, int interfaceSlots)
{
    return number <= interfaceSlots ? number : number + destructorSlots - 1;
}

// clang-format off

constexpr Slot providerSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"Shutdown", 3, "p", Kind::Com},
    {"Logon", 4, "pwpupupppppp", Kind::Logon},
    {"SpoolerLogon", 5, "pwpupupupppp", Kind::SpoolerLogon},
    {"CompareStoreIDs", 6, "upupup", Kind::Com},
    {"destructor", 7, "", Kind::Destructor},
    {"CreateMapiSupport", 8, "", Kind::Factory},
    {"CreateMessageStore", 9, "", Kind::Factory},
    {"ConfigureNstSubtreeEntryId", 10, "", Kind::Hook},
    {"CreateMsLogon", 11, "", Kind::Factory},
};

constexpr Slot logonSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"Logoff", 4, "p", Kind::Pass},
    {"OpenEntry", 5, "uppupp", Kind::Companion},
    {"CompareEntryIDs", 6, "upupup", Kind::Pass},
    {"Advise", 7, "upupp", Kind::Pass},
    {"Unadvise", 8, "u", Kind::Pass},
    {"OpenStatusEntry", 9, "pupp", Kind::Pass},
    {"destructor", 10, "", Kind::Destructor},
};

constexpr Slot storeSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass, MAPI_E_NOT_FOUND, Gate::Refused},
    {"SetProps", 8, "uVp", Kind::Pass, S_OK, Gate::Refused},
    {"DeleteProps", 9, "Tp", Kind::Pass, S_OK, Gate::Refused},
    {"CopyTo", 10, "uppwpppup", Kind::Pass},
    {"CopyProps", 11, "pwpppup", Kind::Pass},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"Advise", 14, "upupp", Kind::Pass},
    {"Unadvise", 15, "w", Kind::Pass},
    {"CompareEntryIDs", 16, "upupup", Kind::Pass},
    {"OpenEntry", 17, "uppuoo", Kind::Pass},
    {"SetReceiveFolder", 18, "puup", Kind::Pass, S_OK, Gate::Refused},
    {"GetReceiveFolder", 19, "puppp", Kind::Pass},
    {"GetReceiveFolderTable", 20, "up", Kind::Pass},
    {"StoreLogoff", 21, "p", Kind::Pass},
    {"AbortSubmit", 22, "upu", Kind::Pass},
    {"GetOutgoingQueue", 23, "up", Kind::Pass},
    {"SetLockState", 24, "pu", Kind::Pass},
    {"FinishedMsg", 25, "uup", Kind::Pass},
    {"NotifyNewMail", 26, "p", Kind::Pass},
    {"destructor", 27, "", Kind::Destructor},
    {"CreateFolder", 28, "", Kind::Factory},
    {"CreateMessage", 29, "", Kind::Factory},
    {"OverrideStoreProperties", 30, "", Kind::Hook},
    {"OverrideModifiableStoreProperties", 31, "", Kind::Hook},
};

constexpr Slot folderSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass},
    {"SetProps", 8, "uVp", Kind::Pass},
    {"DeleteProps", 9, "Tp", Kind::Pass},
    {"CopyTo", 10, "uppwpppup", Kind::Pass},
    {"CopyProps", 11, "pwpppup", Kind::Pass},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"GetContentsTable", 14, "uo", Kind::Checked},
    {"GetHierarchyTable", 15, "uo", Kind::Checked},
    {"OpenEntry", 16, "uppupp", Kind::Companion},
    {"SetSearchCriteria", 17, "ppu", Kind::Pass},
    {"GetSearchCriteria", 18, "uppp", Kind::Pass},
    {"CreateMessage", 19, "puo", Kind::Checked},
    {"CopyMessages", 20, "pppwpu", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"DeleteMessages", 21, "pwpu", Kind::Pass},
    {"CreateFolder", 22, "upppuo", Kind::Checked},
    {"CopyFolder", 23, "uppppwpu", Kind::Companion},
    {"DeleteFolder", 24, "upwpu", Kind::Pass},
    {"SetReadFlags", 25, "pwpu", Kind::Pass},
    {"GetMessageStatus", 26, "upup", Kind::Pass},
    {"SetMessageStatus", 27, "upuup", Kind::Pass},
    {"SaveContentsSort", 28, "pu", Kind::Pass},
    {"EmptyFolder", 29, "wpu", Kind::Pass},
    {"destructor", 30, "", Kind::Destructor},
    {"OverrideFolderProperties", 31, "", Kind::Hook},
};

constexpr Slot readOnlyFolderSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass, S_OK, Gate::Refused},
    {"SetProps", 8, "uVp", Kind::Pass, S_OK, Gate::Refused},
    {"DeleteProps", 9, "Tp", Kind::Pass, S_OK, Gate::Refused},
    {"CopyTo", 10, "uppwpppup", Kind::Pass},
    {"CopyProps", 11, "pwpppup", Kind::Pass},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"GetContentsTable", 14, "uo", Kind::Checked},
    {"GetHierarchyTable", 15, "uo", Kind::Checked},
    {"OpenEntry", 16, "uppupp", Kind::Companion},
    {"SetSearchCriteria", 17, "ppu", Kind::Pass},
    {"GetSearchCriteria", 18, "uppp", Kind::Pass},
    {"CreateMessage", 19, "puo", Kind::Checked, S_OK, Gate::RefusedNaming},
    {"CopyMessages", 20, "pppwpu", Kind::Pass, MAPI_E_DECLINE_COPY, Gate::RefusedNaming},
    {"DeleteMessages", 21, "pwpu", Kind::Pass, S_OK, Gate::RefusedNaming},
    {"CreateFolder", 22, "upppuo", Kind::Checked, S_OK, Gate::RefusedNaming},
    {"CopyFolder", 23, "uppppwpu", Kind::Companion},
    {"DeleteFolder", 24, "upwpu", Kind::Pass, S_OK, Gate::RefusedNaming},
    {"SetReadFlags", 25, "pwpu", Kind::Pass, S_OK, Gate::RefusedNaming},
    {"GetMessageStatus", 26, "upup", Kind::Pass},
    {"SetMessageStatus", 27, "upuup", Kind::Pass, S_OK, Gate::RefusedNaming},
    {"SaveContentsSort", 28, "pu", Kind::Pass},
    {"EmptyFolder", 29, "wpu", Kind::Pass, S_OK, Gate::RefusedNaming},
    {"destructor", 30, "", Kind::Destructor},
    {"OverrideFolderProperties", 31, "", Kind::Hook},
};

constexpr Slot tableSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"Advise", 4, "upp", Kind::Pass},
    {"Unadvise", 5, "w", Kind::Pass},
    {"GetStatus", 6, "pp", Kind::Pass},
    {"SetColumns", 7, "pu", Kind::Pass},
    {"QueryColumns", 8, "up", Kind::Pass},
    {"GetRowCount", 9, "up", Kind::Pass},
    {"SeekRow", 10, "wup", Kind::Pass},
    {"SeekRowApprox", 11, "uu", Kind::Pass},
    {"QueryPosition", 12, "ppp", Kind::Pass},
    {"FindRow", 13, "pwu", Kind::Pass, MAPI_E_NOT_FOUND},
    {"Restrict", 14, "pu", Kind::Pass},
    {"CreateBookmark", 15, "p", Kind::Pass},
    {"FreeBookmark", 16, "w", Kind::Pass},
    {"SortTable", 17, "pu", Kind::Pass},
    {"QuerySortOrder", 18, "p", Kind::Pass},
    {"QueryRows", 19, "uup", Kind::Pass},
    {"Abort", 20, "", Kind::Pass},
    {"ExpandRow", 21, "upuupp", Kind::Pass},
    {"CollapseRow", 22, "upup", Kind::Pass},
    {"WaitForCompletion", 23, "uup", Kind::Pass},
    {"GetCollapseState", 24, "uuppp", Kind::Pass},
    {"SetCollapseState", 25, "uupp", Kind::Pass},
    {"destructor", 26, "", Kind::Destructor},
};

constexpr Slot messageSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass},
    {"SetProps", 8, "uVp", Kind::Pass},
    {"DeleteProps", 9, "Tp", Kind::Pass},
    {"CopyTo", 10, "uppwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"CopyProps", 11, "pwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"GetAttachmentTable", 14, "up", Kind::Pass},
    {"OpenAttach", 15, "upup", Kind::Pass},
    {"CreateAttach", 16, "pupp", Kind::Pass},
    {"DeleteAttach", 17, "uwpu", Kind::Pass},
    {"GetRecipientTable", 18, "up", Kind::Pass},
    {"ModifyRecipients", 19, "up", Kind::Pass},
    {"SubmitMessage", 20, "u", Kind::Pass},
    {"SetReadFlag", 21, "u", Kind::Pass},
    {"destructor", 22, "", Kind::Destructor},
    {"OverrideMessageProperties", 23, "", Kind::Hook},
};

constexpr Slot readOnlyMessageSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass, S_OK, Gate::Refused},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass, S_OK, Gate::ReadAccess},
    {"SetProps", 8, "uVp", Kind::Pass, S_OK, Gate::Refused},
    {"DeleteProps", 9, "Tp", Kind::Pass, S_OK, Gate::Refused},
    {"CopyTo", 10, "uppwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"CopyProps", 11, "pwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"GetAttachmentTable", 14, "up", Kind::Pass},
    {"OpenAttach", 15, "upup", Kind::Pass, S_OK, Gate::ReadAccess},
    {"CreateAttach", 16, "pupp", Kind::Pass, S_OK, Gate::Refused},
    {"DeleteAttach", 17, "uwpu", Kind::Pass, S_OK, Gate::Refused},
    {"GetRecipientTable", 18, "up", Kind::Pass},
    {"ModifyRecipients", 19, "up", Kind::Pass, S_OK, Gate::Refused},
    {"SubmitMessage", 20, "u", Kind::Pass, S_OK, Gate::Refused},
    {"SetReadFlag", 21, "u", Kind::Pass, S_OK, Gate::Ignored},
    {"destructor", 22, "", Kind::Destructor},
    {"OverrideMessageProperties", 23, "", Kind::Hook},
};

constexpr Slot attachSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"SaveChanges", 4, "u", Kind::Pass},
    {"GetProps", 5, "puOO", Kind::Checked, MAPI_W_ERRORS_RETURNED},
    {"GetPropList", 6, "up", Kind::Pass},
    {"OpenProperty", 7, "upuup", Kind::Pass},
    {"SetProps", 8, "uVp", Kind::Pass},
    {"DeleteProps", 9, "Tp", Kind::Pass},
    {"CopyTo", 10, "uppwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"CopyProps", 11, "pwpppup", Kind::Pass, MAPI_E_DECLINE_COPY},
    {"GetNamesFromIDs", 12, "ppupp", Kind::Pass},
    {"GetIDsFromNames", 13, "upup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"destructor", 14, "", Kind::Destructor},
};

constexpr Slot supportSlots[] = {
    {"QueryInterface", 0, "pp", Kind::QueryInterface},
    {"AddRef", 1, "", Kind::AddRef},
    {"Release", 2, "", Kind::Release},
    {"GetLastError", 3, "uup", Kind::Pass},
    {"GetMemAllocRoutines", 4, "ppp", Kind::Pass},
    {"Subscribe", 5, "puupp", Kind::Pass},
    {"Unsubscribe", 6, "u", Kind::Pass, MAPI_E_NOT_INITIALIZED},
    {"Notify", 7, "pupp", Kind::Pass},
    {"ModifyStatusRow", 8, "uVu", Kind::Pass},
    {"OpenProfileSection", 9, "Gup", Kind::Pass, MAPI_E_NOT_FOUND},
    {"RegisterPreprocessor", 10, "pppppu", Kind::Pass},
    {"NewUID", 11, "p", Kind::Pass},
    {"MakeInvalid", 12, "upuu", Kind::Pass},
    {"SpoolerYield", 13, "u", Kind::Pass},
    {"SpoolerNotify", 14, "up", Kind::Pass},
    {"CreateOneOff", 15, "pppupp", Kind::Pass},
    {"SetProviderUID", 16, "pu", Kind::Pass},
    {"CompareEntryIDs", 17, "upupup", Kind::Pass},
    {"OpenTemplateID", 18, "upupppp", Kind::Pass},
    {"OpenEntry", 19, "uppupp", Kind::Pass},
    {"GetOneOffTable", 20, "up", Kind::Pass},
    {"Address", 21, "ppp", Kind::Pass},
    {"Details", 22, "pppuppppu", Kind::Pass},
    {"NewEntry", 23, "wuupuppp", Kind::Pass},
    {"DoConfigPropsheet", 24, "wupppu", Kind::Pass},
    {"CopyMessages", 25, "pppppwpu", Kind::Pass},
    {"CopyFolder", 26, "ppuppppwpu", Kind::Pass},
    {"DoCopyTo", 27, "ppuppwpppup", Kind::Pass},
    {"DoCopyProps", 28, "pppwpppup", Kind::Pass},
    {"DoProgressDialog", 29, "wup", Kind::Pass},
    {"ReadReceipt", 30, "upp", Kind::Pass},
    {"PrepareSubmit", 31, "pp", Kind::Pass},
    {"ExpandRecips", 32, "pp", Kind::Pass},
    {"UpdatePAB", 33, "up", Kind::Pass},
    {"DoSentMail", 34, "up", Kind::Pass},
    {"OpenAddressBook", 35, "pup", Kind::Pass, MAPI_W_ERRORS_RETURNED},
    {"Preprocess", 36, "uup", Kind::Pass},
    {"CompleteMsg", 37, "uup", Kind::Pass},
    {"StoreLogoffTransports", 38, "p", Kind::Pass},
    {"StatusRecips", 39, "pp", Kind::Pass},
    {"WrapStoreEntryID", 40, "uppp", Kind::Pass},
    {"ModifyProfile", 41, "u", Kind::Pass, MAPI_E_NO_SUPPORT},
    {"IStorageFromStream", 42, "ppup", Kind::Pass},
    {"GetSvcConfigSupportObj", 43, "up", Kind::Pass},
    {"destructor", 44, "", Kind::Destructor},
};

// clang-format on

} // namespace Tests
