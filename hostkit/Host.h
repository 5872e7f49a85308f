// The one class from which a host derives.
#pragma once

#include "hostkit/Store.h"
#include "mapi/SPropValueVector.h"

namespace KivNstHostKit
{

/// What a host decides. An object is made for each call of the module's entry points, and lives as long as what that
/// call made: it keeps nothing but what it was built with. Any thread. Whatever its operations throw, of any type,
/// becomes the result of the call that they were needed for.
class CArchiveHost
{
public:
    CArchiveHost() = default;
    CArchiveHost(const CArchiveHost&) = delete;
    CArchiveHost& operator=(const CArchiveHost&) = delete;
    virtual ~CArchiveHost() = default;

    /// The file name of the host's own module, as MAPI knows it ("MyHost.dll").
    virtual StringW GetModuleName() const = 0;

    /// How the archive behaves whose message service has this profile section. Called once at each logon, and for its
    /// name when the service is configured; the section is open for the length of the call alone. The kit's own are
    /// those of a read-only archive.
    virtual ArchiveSettings GetSettings(IProfSect* /*section*/) const { return ArchiveSettings(); }

    /// Looks at the values of a configure call before anything of it is stored; throws
    /// Quillon::Mapi::ExtendedMapiError to refuse them and say why.
    virtual void CheckConfiguration(const SPropValue* /*values*/, ULONG /*count*/) const {}

    /// What a new archive's profile sections hold besides its identity.
    virtual Quillon::Mapi::SPropValueVector GetFirstSettings(SPropValue* /*values*/, ULONG /*count*/) const
    {
        return Quillon::Mapi::SPropValueVector();
    }

    /// Makes the store that MAPI is given. For hosts with wrappers of their own: a guard (hostkit/Guards.h) keeps their
    /// exceptions in.
    virtual ATL::CComQIPtr<IMsgStore> CreateStore(const ArchivePointer& archive) const { return MakeStore(archive); }
};

using HostPointer = std::shared_ptr<const CArchiveHost>;

} // namespace KivNstHostKit
