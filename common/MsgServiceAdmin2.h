// IMsgServiceAdmin2 and the flags of profile administration and logon that the MAPI headers lack.
#pragma once

#include "common/Mapi.h"

DEFINE_OLEGUID(IID_IMsgServiceAdmin2, 0x00020387, 0, 0);

/// IMsgServiceAdmin with a creating call that gives the new service's identifier. The objects that answer for
/// IMsgServiceAdmin answer for it, too.
struct IMsgServiceAdmin2 : IMsgServiceAdmin
{
    /// As CreateMsgService; `lpuidService` gets the new service's PR_SERVICE_UID, or is null.
    virtual HRESULT STDMETHODCALLTYPE CreateMsgServiceEx(LPTSTR lpszService, LPTSTR lpszDisplayName,
                                                         ULONG_PTR ulUIParam, ULONG ulFlags,
                                                         LPMAPIUID lpuidService) = 0;
};

namespace Common
{
/// OpenProfileSection: opens a provider's section for a client, too.
constexpr ULONG mapiForceAccess = 0x00080000;
/// MAPILogonEx: a session that works in the background.
constexpr ULONG mapiBackgroundSession = 0x00200000;
/// CreateMsgService: no notice that the mail client has to be started anew.
constexpr ULONG serviceNoRestartWarning = 0x00000080;
/// OpenMsgStore: the server's store instead of a local cache.
constexpr ULONG mdbOnline = 0x00000100;
/// The section of the one account of older profiles, which every profile has.
constexpr MAPIUID globalProfileSection = {
    {0x13, 0xDB, 0xB0, 0xC8, 0xAA, 0x05, 0x10, 0x1A, 0x9B, 0xB0, 0x00, 0xAA, 0x00, 0x2F, 0xC4, 0x5A}};
} // namespace Common
