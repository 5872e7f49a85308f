// What a host says of an archive, and what the objects of one open archive share.
#pragma once

#include "hostkit/Values.h"
#include "nst/KivNstCore.h"

#include <memory>

namespace KivNstHostKit
{

/// The two folder properties and the five store properties that the library's own read-only wrappers leave writable. An
/// archive of the kit leaves none, unless the host names them in its settings.
inline constexpr ULONG libraryFolderTags[] = {PROP_TAG(PT_BINARY, 0x3020), PROP_TAG(PT_BINARY, 0x3021)};
inline constexpr ULONG libraryStoreTags[] = {PROP_TAG(PT_SYSTIME, 0x7FE9), PROP_TAG(PT_BINARY, 0x7FE8),
                                             PROP_TAG(PT_BINARY, 0x7FE7), PR_SEARCH, PROP_TAG(PT_UNICODE, 0x7FEB)};

/// Where the log goes.
struct LogSettings
{
    /// The full path of the file; empty for none: then the log goes where it went before.
    StringW path;
    /// The size that a file is held to.
    ULONG bytesPerFile = 4 * 1024 * 1024;
    /// How many files there are at most: the one at `path`, and older ones with ".1", ".2" and so on appended.
    unsigned files = 3;
};

/// How one archive behaves. Read at each logon and fixed until the store is closed; another archive in the same process
/// has its own.
struct ArchiveSettings
{
    /// The archive's name, wherever clients look: the store, its top folder, the status row, the profile. Empty leaves
    /// the PST's.
    StringW displayName;
    /// The archive can be changed: for the process that fills it.
    bool isWritable = false;
    /// Store and folder properties, as whole tags, that clients may write all the same.
    std::vector<ULONG> writableStoreTags;
    std::vector<ULONG> writableFolderTags;
    /// Values in place of the PST's, or besides them.
    CValues storeValues;
    CValues folderValues;
    CValues messageValues;
    CValues attachmentValues;
    /// The library's private identifiers give the PST's own objects, through which all can be changed.
    bool givesProviderObjects = false;
    LogSettings log;
    /// The host's own, for its CreateStore; the kit does not look at it.
    LONG hostOptions = 0;
};

/// What the objects of one logon share. Immutable: any thread.
class CArchive
{
public:
    /// Over the PST's store and the support object, of which it takes references. Throws what reading the store throws.
    CArchive(ArchiveSettings settings, const ATL::CComQIPtr<IMsgStore>& pstStore,
             const ATL::CComQIPtr<IMAPISupport>& support)
        : m_settings(std::move(settings)),
          m_store(pstStore),
          m_support(support)
    {
        if (!m_settings.displayName.IsEmpty())
        {
            m_settings.storeValues.Set(PR_DISPLAY_NAME_W, m_settings.displayName);
            m_settings.folderValues.Add(
                PR_DISPLAY_NAME_W,
                [top = Quillon::Nst::GetNstSubtreeEntryId(pstStore),
                 name = m_settings.displayName](const CSubject& subject) -> ArchiveValue
                { return AreEqual(top, subject.GetEntryId()) ? ArchiveValue(name) : ArchiveValue(); },
                false);
        }
        const Binary uid(Quillon::Nst::providerUid.ab, sizeof(Quillon::Nst::providerUid));
        m_settings.storeValues.Set(PR_MDB_PROVIDER, uid);
        for (CValues* const values : {&m_settings.folderValues, &m_settings.messageValues})
            values->Set(PR_MDB_PROVIDER, uid, false);
    }

    const ArchiveSettings& GetSettings() const noexcept { return m_settings; }
    bool IsWritable() const noexcept { return m_settings.isWritable; }
    /// The PST's own store and MAPI's support object, wrapped.
    const ATL::CComQIPtr<IMsgStore>& GetPstStore() const noexcept { return m_store; }
    const ATL::CComQIPtr<IMAPISupport>& GetSupport() const noexcept { return m_support; }

    /// The values of the objects of a type, as CSubject has it.
    const CValues& GetValues(ULONG objectType) const noexcept
    {
        switch (objectType)
        {
        case MAPI_STORE:
            return m_settings.storeValues;
        case MAPI_FOLDER:
            return m_settings.folderValues;
        case MAPI_MESSAGE:
            return m_settings.messageValues;
        default:
            return m_settings.attachmentValues;
        }
    }

    /// The flags with which an object is opened for a client that may not change it: without those that ask for
    /// writing.
    ULONG OpenFlags(ULONG flags) const noexcept
    {
        return IsWritable() ? flags : flags & ~static_cast<ULONG>(MAPI_MODIFY | MAPI_BEST_ACCESS);
    }

    /// Whether two entry IDs name the same object of the store. False where the store cannot tell.
    bool IsSameEntry(const Binary& a, const Binary& b) const noexcept
    {
        if (a.IsNull() || b.IsNull())
            return false;
        const auto id = [](const Binary& bytes)
        { return reinterpret_cast<ENTRYID*>(const_cast<BYTE*>(bytes.GetBuffer())); };
        ULONG same = 0;
        return SUCCEEDED(m_store->CompareEntryIDs(static_cast<ULONG>(a.GetSize()), id(a),
                                                  static_cast<ULONG>(b.GetSize()), id(b), 0, &same)) &&
               same != 0;
    }

    /// The folder in which clients make their search folders; null when the store has none.
    Binary GetFinderEntryId() const
    {
        return Binary(Quillon::Mapi::TryQueryItemPropertyValue(m_store, PR_FINDER_ENTRYID));
    }

private:
    static bool AreEqual(const Binary& a, const Binary& b) noexcept
    {
        return !a.IsNull() && a.GetSize() == b.GetSize() && std::memcmp(a.GetBuffer(), b.GetBuffer(), a.GetSize()) == 0;
    }

    ArchiveSettings m_settings;
    ATL::CComQIPtr<IMsgStore> m_store;
    ATL::CComQIPtr<IMAPISupport> m_support;
};

using ArchivePointer = std::shared_ptr<const CArchive>;

/// Asked of an object of the kit that refuses changes, it gives that object; others do not know it. So a copy into an
/// archive is refused before anything is read.
inline constexpr IID iidReadOnlyObject = {0x3B1F0E77, 0x52C9, 0x4D0C, {0x9B, 0x0A, 0x6E, 0x51, 0xC4, 0x8D, 0x27, 0x93}};

/// Whether a destination is an object of an archive that refuses changes. It may be null.
inline bool IsReadOnlyObject(void* destination) noexcept
{
    // Whatever interface it is passed as, IUnknown's methods are the first.
    auto* const object = static_cast<IUnknown*>(destination);
    void* found = nullptr;
    if (!object || FAILED(object->QueryInterface(iidReadOnlyObject, &found)) || !found)
        return false;
    static_cast<IUnknown*>(found)->Release();
    return true;
}

} // namespace KivNstHostKit
