// The MAPI interface identifiers that the tests and their doubles use.
#define INITGUID
#define USES_IID_IAttachment
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_IID_IMAPIProp
#define USES_IID_IMAPISup
#define USES_IID_IMAPITable
#define USES_IID_IMSLogon
#define USES_IID_IMSProvider
#define USES_IID_IMessage
#define USES_IID_IMsgStore
#define USES_IID_IProfSect
#define USES_IID_IProviderAdmin
#include "support/MapiHeaders.h"
