// The platform's MAPI headers, and the tags, flags and interface identifiers that they lack. Everything that touches
// MAPI includes this header and no MAPI header of its own.
#pragma once

#if !defined(UNICODE)
#error "MAPI's LPTSTR stands in the signatures of the wrapper classes: compile with UNICODE defined, as the library is."
#endif

// Not every method of the library keeps its exceptions in: the headers must not promise that COM methods do.
#ifndef COM_STDMETHOD_CAN_THROW
#ifdef COM_DECLSPEC_NOTHROW
#error "The COM headers promise that no method throws: define COM_STDMETHOD_CAN_THROW before windows.h is included."
#endif
#define COM_STDMETHOD_CAN_THROW
#endif

#include <windows.h>

#include <objbase.h>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapiguid.h>
#include <mapispi.h>
#include <mapitags.h>

#include <type_traits>

#if defined(__MINGW64_VERSION_MAJOR) && !defined(MAPI_TYPES_ARE_64_BIT)
#error "mingw-w64's MAPI headers cut window handles and bookmarks to 32 bits: put the corrected copies before them."
#endif

// Property tags that the MAPI headers do not define.
#ifndef PR_STORE_UNICODE_MASK
#define PR_STORE_UNICODE_MASK PROP_TAG(PT_LONG, 0x340F)
#endif
#ifndef PR_RIGHTS
#define PR_RIGHTS PROP_TAG(PT_LONG, 0x6639)
#endif
#ifndef PR_OST_OLFI
#define PR_OST_OLFI PROP_TAG(PT_BINARY, 0x7C07)
#endif
#ifndef PR_PST_PATH
#define PR_PST_PATH PROP_TAG(PT_STRING8, 0x6700)
#endif
#ifndef PR_PST_PATH_W
#define PR_PST_PATH_W PROP_TAG(PT_UNICODE, 0x6700)
#endif
#ifndef PR_PROFILE_OFFLINE_STORE_PATH
#define PR_PROFILE_OFFLINE_STORE_PATH PROP_TAG(PT_STRING8, 0x6610)
#endif
#ifndef PR_PROFILE_OFFLINE_STORE_PATH_W
#define PR_PROFILE_OFFLINE_STORE_PATH_W PROP_TAG(PT_UNICODE, 0x6610)
#endif
#ifndef PR_PROFILE_USER
#define PR_PROFILE_USER PROP_TAG(PT_STRING8, 0x6603)
#endif
#ifndef PR_PROFILE_CONFIG_FLAGS
#define PR_PROFILE_CONFIG_FLAGS PROP_TAG(PT_LONG, 0x6601)
#endif
#ifndef PR_PROFILE_SECURE_MAILBOX
#define PR_PROFILE_SECURE_MAILBOX PROP_TAG(PT_BINARY, 0x67F0)
#endif

// Flags that the MAPI headers do not define.
#ifndef STORE_ITEMPROC
#define STORE_ITEMPROC (static_cast<ULONG>(0x00200000))
#endif
#ifndef MDB_OST_LOGON_UNICODE
#define MDB_OST_LOGON_UNICODE (static_cast<ULONG>(0x00000800))
#endif
#ifndef MDB_OST_LOGON_ANSI
#define MDB_OST_LOGON_ANSI (static_cast<ULONG>(0x00001000))
#endif

// Whatever the headers are, and whatever was defined after the first of them.
#define KIVNST_TEXT(...) #__VA_ARGS__
#define KIVNST_EXPANDED_TEXT(...) KIVNST_TEXT(__VA_ARGS__)
static_assert(sizeof(KIVNST_EXPANDED_TEXT(COM_DECLSPEC_NOTHROW)) == 1,
              "The COM headers promise that no method throws: define COM_STDMETHOD_CAN_THROW for the whole build.");
#undef KIVNST_EXPANDED_TEXT
#undef KIVNST_TEXT
static_assert(std::is_same_v<BOOKMARK, ULONG_PTR> &&
                  std::is_same_v<decltype(&IMsgStore::Unadvise), HRESULT (STDMETHODCALLTYPE IMsgStore::*)(ULONG_PTR)> &&
                  std::is_same_v<decltype(&IMAPISupport::DoProgressDialog),
                                 HRESULT (STDMETHODCALLTYPE IMAPISupport::*)(ULONG_PTR, ULONG, LPMAPIPROGRESS*)>,
              "The MAPI headers have the types of 32-bit clients: use those of 64-bit ones.");

// The MAPI headers attach no identifier to their interfaces; counted interface pointers want one.
#if defined(_MSC_VER)
#define KIVNST_MAPI_UUID(Interface, Low)                                                                               \
    struct __declspec(uuid("000203" #Low "-0000-0000-C000-000000000046")) Interface;
#else
#define KIVNST_MAPI_UUID(Interface, Low) __CRT_UUID_DECL(Interface, 0x000203##Low, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)
#endif

KIVNST_MAPI_UUID(IMAPITable, 01)
KIVNST_MAPI_UUID(IMAPIProp, 03)
KIVNST_MAPI_UUID(IProfSect, 04)
KIVNST_MAPI_UUID(IMsgStore, 06)
KIVNST_MAPI_UUID(IMessage, 07)
KIVNST_MAPI_UUID(IAttach, 08)
KIVNST_MAPI_UUID(IMAPIContainer, 0B)
KIVNST_MAPI_UUID(IMAPIFolder, 0C)
KIVNST_MAPI_UUID(IMAPISupport, 0F)
KIVNST_MAPI_UUID(IMSProvider, 10)
KIVNST_MAPI_UUID(IMSLogon, 13)
KIVNST_MAPI_UUID(IProviderAdmin, 25)

#undef KIVNST_MAPI_UUID
