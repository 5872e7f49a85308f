// The host kit: everything that a host of the library needs. A host derives one class and names it in one line:
//
//     class CMyHost : public KivNstHostKit::CArchiveHost
//     {
//     public:
//         Quillon::StringW GetModuleName() const override { return L"MyHost.dll"; }
//     };
//
//     KIVNST_HOST_ENTRIES(CMyHost);
//
// That is a read-only archive. docs/host-guide.md tells the rest.
#pragma once

#include "hostkit/Service.h"
