// Defines MAPI's interface identifiers, once for every module that links this library.
#include <windows.h>

#include <objbase.h>

#include <initguid.h>

#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIAdviseSink
#define USES_IID_IMAPIProgress
#define USES_IID_IProviderAdmin
#define USES_IID_IProfAdmin
#define USES_IID_IMsgServiceAdmin
#define USES_IID_IMAPIProp
#define USES_IID_IProfSect
#define USES_IID_IMAPIStatus
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_IID_IMAPISup
#define USES_IID_IMSProvider
#define USES_IID_IMSLogon
#define USES_PS_MAPI
#define USES_PS_PUBLIC_STRINGS
#define USES_MUID_PROFILE_INSTANCE
#include <mapiguid.h>

#include "common/MsgServiceAdmin2.h"
