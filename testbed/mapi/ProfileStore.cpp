// Profiles in the registry.
#include "testbed/mapi/ProfileStore.h"

#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "common/Text.h"
#include "testbed/common/RegistryKey.h"
#include "testbed/mapi/Turn.h"

#include <algorithm>
#include <atomic>

namespace Testbed
{
const MAPIUID subsystemSection = {
    {0x9E, 0x0D, 0x51, 0x6B, 0x2C, 0x88, 0x4A, 0x37, 0xB1, 0x04, 0x5F, 0xD3, 0x70, 0xAE, 0x19, 0xC6}};

namespace
{
constexpr const wchar_t* rootPath = L"Software\\KivNst Testbed\\Profiles";
// Changes of the list of profiles are made by one program at a time.
constexpr const wchar_t* turnName = L"KivNst testbed: profiles";
constexpr size_t longestName = 64;

std::atomic<std::uint64_t> g_generation{1};

[[noreturn]] void FailRegistry(LSTATUS error)
{
    Fail(MAPI_E_NO_ACCESS, L"The registry does not let profiles be changed (error " + std::to_wstring(error) + L").");
}

void CheckRegistry(LSTATUS error)
{
    if (error != ERROR_SUCCESS)
        FailRegistry(error);
}

RegistryKey OpenKey(const std::wstring& path)
{
    return RegistryKey::Open(HKEY_CURRENT_USER, path);
}

RegistryKey CreateKey(const std::wstring& path)
{
    LSTATUS error = ERROR_SUCCESS;
    RegistryKey key = RegistryKey::Create(HKEY_CURRENT_USER, path, error);
    CheckRegistry(error);
    return key;
}

std::wstring PathOf(const std::wstring& id)
{
    return std::wstring(rootPath) + L"\\" + id;
}

std::vector<std::wstring> SubKeys(const std::wstring& path)
{
    std::vector<std::wstring> names;
    const RegistryKey key = OpenKey(path);
    wchar_t name[256];
    for (DWORD index = 0; key; ++index)
    {
        DWORD length = 256;
        if (RegEnumKeyExW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name, length);
    }
    return names;
}

// The payloads as bytes: what is of fixed size as it is, what is not behind its length, multi-values behind their
// count.
struct Writer
{
    Bytes bytes;

    void Raw(const void* data, size_t size)
    {
        const auto* const begin = static_cast<const BYTE*>(data);
        bytes.insert(bytes.end(), begin, begin + size);
    }
    void Count(size_t count)
    {
        const auto number = static_cast<std::uint32_t>(count);
        Raw(&number, sizeof(number));
    }

    void operator()(std::monostate) {}
    template <class T>
    void operator()(const T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        Raw(&value, sizeof(value));
    }
    void operator()(const std::string& value) { Run(value); }
    void operator()(const std::wstring& value) { Run(value); }
    void operator()(const Bytes& value) { Run(value); }
    template <class T>
    void operator()(const std::vector<T>& values)
    {
        Count(values.size());
        for (const T& value : values)
            (*this)(value);
    }
    template <class T>
    void Run(const T& value)
    {
        Count(value.size());
        Raw(value.data(), value.size() * sizeof(value[0]));
    }
};

struct Reader
{
    const BYTE* at;
    const BYTE* end;

    void Raw(void* data, size_t size)
    {
        if (size > static_cast<size_t>(end - at))
            Fail(MAPI_E_CORRUPT_DATA, L"A property in the profile is damaged.");
        if (size)
            std::memcpy(data, at, size);
        at += size;
    }
    size_t Count(size_t each)
    {
        std::uint32_t count = 0;
        Raw(&count, sizeof(count));
        if (count > static_cast<size_t>(end - at) / each)
            Fail(MAPI_E_CORRUPT_DATA, L"A property in the profile is damaged.");
        return count;
    }

    template <class T>
    void Read(T& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        Raw(&value, sizeof(value));
    }
    void Read(std::monostate&) {}
    void Read(std::string& value) { Run(value); }
    void Read(std::wstring& value) { Run(value); }
    void Read(Bytes& value) { Run(value); }
    template <class T>
    void Read(std::vector<T>& values)
    {
        values.resize(Count(1));
        for (T& value : values)
            Read(value);
    }
    template <class T>
    void Run(T& value)
    {
        value.resize(Count(sizeof(value[0])));
        Raw(value.data(), value.size() * sizeof(value[0]));
    }
};

template <class T>
PropValue ReadAs(ULONG tag, Reader reader)
{
    T value{};
    reader.Read(value);
    return {tag, std::move(value)};
}

PropValue ReadValue(ULONG tag, const Bytes& bytes)
{
    const Reader reader{bytes.data(), bytes.data() + bytes.size()};
    switch (PROP_TYPE(tag))
    {
    case PT_I2:
        return ReadAs<std::int16_t>(tag, reader);
    case PT_LONG:
        return ReadAs<std::int32_t>(tag, reader);
    case PT_R4:
        return ReadAs<float>(tag, reader);
    case PT_DOUBLE:
    case PT_APPTIME:
        return ReadAs<double>(tag, reader);
    case PT_BOOLEAN:
        return ReadAs<bool>(tag, reader);
    case PT_I8:
    case PT_CURRENCY:
    case PT_SYSTIME:
        return ReadAs<std::int64_t>(tag, reader);
    case PT_STRING8:
        return ReadAs<std::string>(tag, reader);
    case PT_UNICODE:
        return ReadAs<std::wstring>(tag, reader);
    case PT_BINARY:
        return ReadAs<Bytes>(tag, reader);
    case PT_CLSID:
        return ReadAs<GUID>(tag, reader);
    case PT_MV_I2:
        return ReadAs<std::vector<std::int16_t>>(tag, reader);
    case PT_MV_LONG:
        return ReadAs<std::vector<std::int32_t>>(tag, reader);
    case PT_MV_R4:
        return ReadAs<std::vector<float>>(tag, reader);
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return ReadAs<std::vector<double>>(tag, reader);
    case PT_MV_I8:
    case PT_MV_CURRENCY:
    case PT_MV_SYSTIME:
        return ReadAs<std::vector<std::int64_t>>(tag, reader);
    case PT_MV_STRING8:
        return ReadAs<std::vector<std::string>>(tag, reader);
    case PT_MV_UNICODE:
        return ReadAs<std::vector<std::wstring>>(tag, reader);
    case PT_MV_BINARY:
        return ReadAs<std::vector<Bytes>>(tag, reader);
    case PT_MV_CLSID:
        return ReadAs<std::vector<GUID>>(tag, reader);
    default:
        Fail(MAPI_E_CORRUPT_DATA, L"A property in the profile has a type that profiles do not keep.");
    }
}

std::wstring ValueName(ULONG tag)
{
    wchar_t name[16];
    swprintf_s(name, 16, L"%08lX", tag);
    return name;
}

class RegistryProfile final : public Profile
{
public:
    RegistryProfile(std::wstring name, std::wstring id) : Profile(std::move(name), std::move(id)) {}

    std::vector<Uid> Sections() const override
    {
        std::vector<Uid> sections;
        for (const std::wstring& name : SubKeys(PathOf(Id())))
        {
            const Bytes bytes = BytesFromHex(name);
            if (bytes.size() == sizeof(MAPIUID))
                std::memcpy(sections.emplace_back().ab, bytes.data(), bytes.size());
        }
        return sections;
    }

    bool HasSection(const Uid& uid) const override { return static_cast<bool>(OpenKey(SectionPath(uid))); }

    PropertyBag Section(const Uid& uid) const override
    {
        PropertyBag section;
        const RegistryKey key = OpenKey(SectionPath(uid));
        wchar_t name[256];
        for (DWORD index = 0; key; ++index)
        {
            DWORD length = 256;
            DWORD size = 0;
            if (RegEnumValueW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
                break;
            Bytes bytes(size);
            if (RegQueryValueExW(key.Get(), name, nullptr, nullptr, bytes.data(), &size) != ERROR_SUCCESS)
                continue;
            bytes.resize(size);
            section.Put(ReadValue(std::wcstoul(name, nullptr, 16), bytes));
        }
        return section;
    }

    void Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed) override
    {
        if (!OpenKey(PathOf(Id())))
            Fail(MAPI_E_OBJECT_DELETED, L"The profile \"" + Name() + L"\" has been deleted.");
        const RegistryKey key = CreateKey(SectionPath(uid));
        const auto present = Section(uid);
        const auto drop = [&](ULONG id)
        {
            if (const PropValue* const old = present.Find(id))
                RegDeleteValueW(key.Get(), ValueName(old->Tag()).c_str());
        };
        for (const PropValue& value : values)
        {
            // Of another type it stands under another name.
            const PropValue* const old = present.Find(value.Id());
            if (old && old->Tag() != value.Tag())
                drop(value.Id());
            Writer writer;
            std::visit(writer, value.Data());
            CheckRegistry(RegSetValueExW(key.Get(), ValueName(value.Tag()).c_str(), 0, REG_BINARY, writer.bytes.data(),
                                         static_cast<DWORD>(writer.bytes.size())));
        }
        for (const ULONG id : removed)
            drop(id);
        ++g_generation;
    }

    void Remove(const Uid& uid) override
    {
        RegDeleteTreeW(HKEY_CURRENT_USER, SectionPath(uid).c_str());
        ++g_generation;
    }

private:
    std::wstring SectionPath(const Uid& uid) const { return PathOf(Id()) + L"\\" + uid.Text(); }
};

MAPIUID InstanceSection()
{
    MAPIUID uid;
    std::memcpy(uid.ab, &MUID_PROFILE_INSTANCE, sizeof(uid.ab));
    return uid;
}

std::wstring UseName(const std::wstring& id)
{
    return L"KivNst testbed: profile in use " + id;
}

bool InUse(const std::wstring& id)
{
    const HANDLE found = OpenEventW(SYNCHRONIZE, FALSE, UseName(id).c_str());
    if (found)
        CloseHandle(found);
    return found != nullptr;
}

constexpr const wchar_t* nameValue = L"Name";
constexpr const wchar_t* deletedValue = L"Deleted";
constexpr const wchar_t* renamedValue = L"Rename to";
constexpr const wchar_t* defaultValue = L"Default profile";

void RemoveProfile(const std::wstring& id)
{
    RegDeleteTreeW(HKEY_CURRENT_USER, PathOf(id).c_str());
    ++g_generation;
}

struct Entry
{
    std::wstring id;
    std::wstring name;
};

// The profiles that are to be seen; carries out on the way what waited for a profile's last session to end.
std::vector<Entry> Entries()
{
    std::vector<Entry> entries;
    for (const std::wstring& id : SubKeys(rootPath))
    {
        RegistryKey key = CreateKey(PathOf(id));
        auto name = key.ReadText(nameValue);
        const auto renamed = key.ReadText(renamedValue);
        if (!name || key.ReadText(deletedValue))
        {
            if (!InUse(id))
                RemoveProfile(id);
            continue;
        }
        if (renamed && !InUse(id))
        {
            CheckRegistry(key.WriteText(nameValue, *renamed));
            RegDeleteValueW(key.Get(), renamedValue);
            name = renamed;
        }
        entries.push_back({id, *name});
    }
    return entries;
}

bool SameName(const std::wstring& a, const std::wstring& b)
{
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::optional<Entry> FindEntry(const std::wstring& name)
{
    for (Entry& entry : Entries())
        if (SameName(entry.name, name))
            return std::move(entry);
    return {};
}

Entry RequireEntry(const std::wstring& name)
{
    auto entry = FindEntry(name);
    if (!entry)
        Fail(MAPI_E_NOT_FOUND, L"There is no profile \"" + name + L"\".");
    return *entry;
}

void RequireFreeName(const std::wstring& name)
{
    const bool sound = !name.empty() && name.size() <= longestName && name.front() != L' ' && name.back() != L' ' &&
                       std::all_of(name.begin(), name.end(),
                                   [](wchar_t c) { return IsCharAlphaNumericW(c) || c == L'_' || c == L' '; });
    if (!sound)
    {
        Fail(MAPI_E_INVALID_PARAMETER, L"\"" + name +
                                           L"\" is no profile's name: at most 64 letters, digits and underscores, and "
                                           L"blanks between them.");
    }
    if (FindEntry(name))
        Fail(MAPI_E_NO_ACCESS, L"There is a profile \"" + name + L"\" already.");
}
} // namespace

std::vector<std::wstring> ProfileStore::Names()
{
    const Turn turn(turnName);
    std::vector<std::wstring> names;
    for (Entry& entry : Entries())
        names.push_back(std::move(entry.name));
    return names;
}

std::wstring ProfileStore::Default()
{
    const Turn turn(turnName);
    const RegistryKey root = OpenKey(rootPath);
    const auto id = root ? root.ReadText(defaultValue) : std::nullopt;
    if (id)
        for (const Entry& entry : Entries())
            if (entry.id == *id)
                return entry.name;
    return {};
}

void ProfileStore::SetDefault(const std::wstring& name)
{
    const Turn turn(turnName);
    RegistryKey root = CreateKey(rootPath);
    if (name.empty())
        RegDeleteValueW(root.Get(), defaultValue);
    else
        CheckRegistry(root.WriteText(defaultValue, RequireEntry(name).id));
}

std::shared_ptr<Profile> ProfileStore::Find(const std::wstring& name)
{
    const Turn turn(turnName);
    const auto entry = FindEntry(name);
    return entry ? std::make_shared<RegistryProfile>(entry->name, entry->id) : nullptr;
}

std::shared_ptr<Profile> ProfileStore::Create(const std::wstring& name)
{
    const Turn turn(turnName);
    RequireFreeName(name);
    const Uid id = Uid::Create();
    CheckRegistry(CreateKey(PathOf(id.Text())).WriteText(nameValue, name));
    auto profile = std::make_shared<RegistryProfile>(name, id.Text());
    profile->Change(InstanceSection(), {PropValue::Uid(PR_SEARCH_KEY, id)}, {});
    profile->Change(globalProfileSection, {}, {});
    profile->Change(subsystemSection, {}, {});
    return profile;
}

void ProfileStore::Delete(const std::wstring& name)
{
    const Turn turn(turnName);
    const Entry entry = RequireEntry(name);
    if (InUse(entry.id))
        CheckRegistry(CreateKey(PathOf(entry.id)).WriteText(deletedValue, L"1"));
    else
        RemoveProfile(entry.id);
}

void ProfileStore::Rename(const std::wstring& name, const std::wstring& newName)
{
    const Turn turn(turnName);
    const Entry entry = RequireEntry(name);
    RequireFreeName(newName);
    CheckRegistry(CreateKey(PathOf(entry.id)).WriteText(InUse(entry.id) ? renamedValue : nameValue, newName));
}

std::shared_ptr<void> ProfileStore::Use(const Profile& profile)
{
    const HANDLE mark = CreateEventW(nullptr, TRUE, FALSE, UseName(profile.Id()).c_str());
    if (!mark)
        Fail(MAPI_E_NOT_ENOUGH_RESOURCES, L"The profile cannot be taken in use.");
    const auto end = [](void* handle) noexcept
    {
        CloseHandle(handle);
        try
        {
            const Turn turn(turnName);
            Entries();
        }
        catch (const std::exception&)
        {
            // Whoever looks next tries it again.
        }
    };
    return {mark, end};
}

std::uint64_t ProfileStore::Generation() noexcept
{
    return g_generation;
}
} // namespace Testbed
