// The values that an archive shows in place of the PST's, or besides them: small functions of the host give them, and
// the same ones serve an object's GetProps and the rows of tables. A list is filled by one thread, before the objects
// that use it are made; from then on it is read on any thread, and so are the host's functions called.
#pragma once

#include "hostkit/Boundary.h"
#include "mapi/MapiBinding.h"
#include "support/MapiProperties.h"

#include <functional>
#include <variant>
#include <vector>

namespace KivNstHostKit
{

/// The object of which a value is asked. Lives for the length of the call.
class CSubject
{
public:
    /// `values` are the object's values at hand; `object`, which may be null, is asked for what they do not have.
    CSubject(ULONG objectType, const SPropValue* values, ULONG count, IMAPIProp* object)
        : m_objectType(objectType),
          m_object(object)
    {
        for (ULONG index = 0; index < count; ++index)
            if (values[index].ulPropTag == PR_ENTRYID)
                m_entryId = Binary(values[index].Value.bin.lpb, values[index].Value.bin.cb);
    }

    /// MAPI_STORE, MAPI_FOLDER, MAPI_MESSAGE or MAPI_ATTACH.
    ULONG GetObjectType() const noexcept { return m_objectType; }

    /// The object's entry ID; null when it has none, as attachments. Throws what reading it throws.
    const Binary& GetEntryId() const
    {
        if (m_entryId.IsNull() && m_object)
        {
            m_entryId = Binary(Quillon::Mapi::TryQueryItemPropertyValue(m_object, PR_ENTRYID));
            m_object = nullptr;
        }
        return m_entryId;
    }

private:
    ULONG m_objectType;
    mutable IMAPIProp* m_object;
    mutable Binary m_entryId;
};

/// A value: text for a tag of a string type (the kit makes it narrow or wide, as asked), bytes for PT_BINARY, a number
/// for PT_LONG, a truth value for PT_BOOLEAN, a time for PT_SYSTIME. The empty one leaves the PST's.
using ArchiveValue = std::variant<std::monostate, StringW, Binary, LONG, bool, FILETIME>;

/// Gives a value of one object. What it throws becomes the result of the call that asked.
using ValueFunction = std::function<ArchiveValue(const CSubject& subject)>;

/// The values of the objects of one kind.
class CValues
{
public:
    /// Has `function` give the property of `tag`. With `adds` objects have the property also where the PST has none.
    /// Where several functions give the same property, the first whose value is not empty counts.
    void Add(ULONG tag, ValueFunction function, bool adds = true)
    {
        m_entries.push_back({tag, std::move(function), adds, true});
    }
    /// The same with one value for all objects.
    void Set(ULONG tag, ArchiveValue value, bool adds = true)
    {
        m_entries.push_back({tag, [value = std::move(value)](const CSubject&) { return value; }, adds, false});
    }

    bool IsEmpty() const noexcept { return m_entries.empty(); }
    /// Whether a value depends on the object of which it is asked.
    bool NeedsSubject() const noexcept
    {
        for (const Entry& entry : m_entries)
            if (entry.needsSubject)
                return true;
        return false;
    }

    /// Puts the values in place of those of a GetProps call or of a row. `requested` are the tags that were asked for,
    /// one for each value, or null where the values' own tags say that. Memory is added to the block `base`. Whether a
    /// value was put.
    bool Apply(const CSubject& subject, const ULONG* requested, ULONG flags, SPropValue* values, ULONG count,
               void* base) const
    {
        bool changed = false;
        if (m_entries.empty())
            return changed;
        for (ULONG index = 0; index < count; ++index)
        {
            SPropValue& value = values[index];
            const ULONG tag = requested ? requested[index] : value.ulPropTag;
            for (const Entry& entry : m_entries)
            {
                if (PROP_ID(entry.tag) != PROP_ID(tag) || (!entry.adds && PROP_TYPE(value.ulPropTag) == PT_ERROR))
                    continue;
                if (Put(entry.function(subject), entry.tag, tag, flags, value, base))
                {
                    changed = true;
                    break;
                }
            }
        }
        return changed;
    }

    /// Adds to `tags` those of the properties that these values add and that are not there yet. Text is wide with
    /// MAPI_UNICODE.
    void AppendTags(ULONG flags, std::vector<ULONG>& tags) const
    {
        for (const Entry& entry : m_entries)
        {
            bool known = !entry.adds;
            for (const ULONG tag : tags)
                known = known || PROP_ID(tag) == PROP_ID(entry.tag);
            if (!known)
                tags.push_back(IsText(entry.tag) ? CHANGE_PROP_TYPE(entry.tag, TextType(flags)) : entry.tag);
        }
    }

    /// Whether an object may have properties that the PST does not know.
    bool AddsAny() const noexcept
    {
        for (const Entry& entry : m_entries)
            if (entry.adds)
                return true;
        return false;
    }

private:
    struct Entry
    {
        ULONG tag;
        ValueFunction function;
        bool adds;
        bool needsSubject;
    };

    static ULONG TextType(ULONG flags) noexcept { return flags & MAPI_UNICODE ? PT_UNICODE : PT_STRING8; }
    static bool IsText(ULONG tag) noexcept { return PROP_TYPE(tag) == PT_UNICODE || PROP_TYPE(tag) == PT_STRING8; }

    static void* Copy(const void* bytes, std::size_t size, void* base)
    {
        void* block = nullptr;
        Quillon::CheckCall(Quillon::Mapi::MAPIAllocateMore(static_cast<ULONG>(size), base, &block),
                           L"KivNstHostKit::CValues::Copy");
        std::memcpy(block, bytes, size);
        return block;
    }

    /// Puts `given`, of a property of type `tag`, where `requested` was asked for. False when there is nothing to be
    /// put: the value is empty, or another type was asked for.
    static bool Put(const ArchiveValue& given, ULONG tag, ULONG requested, ULONG flags, SPropValue& target, void* base)
    {
        ULONG type = PROP_TYPE(requested);
        if (type == PT_UNSPECIFIED || type == PT_ERROR)
            type = IsText(tag) ? TextType(flags) : PROP_TYPE(tag);
        SPropValue made = {};
        made.ulPropTag = CHANGE_PROP_TYPE(requested, type);
        if (const auto* const text = std::get_if<StringW>(&given))
        {
            if (type == PT_UNICODE)
            {
                made.Value.lpszW =
                    static_cast<wchar_t*>(Copy(text->GetString(), (text->GetLength() + 1) * sizeof(wchar_t), base));
            }
            else if (type == PT_STRING8)
            {
                const Quillon::StringA narrow(*text);
                made.Value.lpszA = static_cast<char*>(Copy(narrow.GetString(), narrow.GetLength() + 1, base));
            }
            else
                return false;
        }
        else if (const auto* const bytes = std::get_if<Binary>(&given); bytes && type == PT_BINARY)
        {
            made.Value.bin.cb = static_cast<ULONG>(bytes->GetSize());
            if (bytes->GetSize() != 0)
                made.Value.bin.lpb = static_cast<BYTE*>(Copy(bytes->GetBuffer(), bytes->GetSize(), base));
        }
        else if (const auto* const number = std::get_if<LONG>(&given); number && type == PT_LONG)
            made.Value.l = *number;
        else if (const auto* const truth = std::get_if<bool>(&given); truth && type == PT_BOOLEAN)
            made.Value.b = *truth ? 1 : 0;
        else if (const auto* const time = std::get_if<FILETIME>(&given); time && type == PT_SYSTIME)
            made.Value.ft = *time;
        else
            return false;
        target = made;
        return true;
    }

    std::vector<Entry> m_entries;
};

/// Rewrites what says that an object may be changed: PR_ACCESS, PR_ACCESS_LEVEL, the store's capability masks, a
/// folder's rights. In place, without memory.
inline void ShowReadOnly(SPropValue* values, ULONG count) noexcept
{
    constexpr LONG writable = STORE_MODIFY_OK | STORE_CREATE_OK | static_cast<LONG>(STORE_ITEMPROC);
    constexpr LONG folderVisible = 0x400;
    constexpr LONG readAny = 0x1;
    for (ULONG index = 0; index < count; ++index)
    {
        LONG& number = values[index].Value.l;
        switch (values[index].ulPropTag)
        {
        case PR_ACCESS:
            number = MAPI_ACCESS_READ;
            break;
        case PR_ACCESS_LEVEL:
            number = 0;
            break;
        case PR_STORE_SUPPORT_MASK:
        case PR_STORE_UNICODE_MASK:
            number = (number & ~writable) | STORE_READONLY;
            break;
        case PR_RIGHTS:
            number = (number & folderVisible) | readAny;
            break;
        default:
            break;
        }
    }
}

/// Whether a property could not be had.
inline bool HasErrors(const SPropValue* values, ULONG count) noexcept
{
    for (ULONG index = 0; index < count; ++index)
        if (PROP_TYPE(values[index].ulPropTag) == PT_ERROR)
            return true;
    return false;
}

/// The tags as MAPI takes them: a count and an array in one block.
inline std::vector<ULONG> MakeTagBlock(const std::vector<ULONG>& tags)
{
    std::vector<ULONG> block;
    block.reserve(tags.size() + 1);
    block.push_back(static_cast<ULONG>(tags.size()));
    block.insert(block.end(), tags.begin(), tags.end());
    return block;
}
inline SPropTagArray* AsTagArray(std::vector<ULONG>& block) noexcept
{
    return reinterpret_cast<SPropTagArray*>(block.data());
}

/// The tags of an array that a call gave, which may be null.
inline std::vector<ULONG> TagsOf(const SPropTagArray* tags)
{
    return tags ? std::vector<ULONG>(tags->aulPropTag, tags->aulPropTag + tags->cValues) : std::vector<ULONG>();
}

/// A copy of `tags` in MAPI memory, which the receiver frees with MAPIFreeBuffer.
inline SPropTagArray* AllocateTagArray(const std::vector<ULONG>& tags)
{
    const std::vector<ULONG> block = MakeTagBlock(tags);
    const auto size = static_cast<ULONG>(block.size() * sizeof(ULONG));
    void* const memory = Quillon::Mapi::AllocateMapiBuffer(size);
    std::memcpy(memory, block.data(), size);
    return static_cast<SPropTagArray*>(memory);
}

} // namespace KivNstHostKit
