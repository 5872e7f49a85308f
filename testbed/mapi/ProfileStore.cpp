// Profiles in the registry.
#include "testbed/mapi/ProfileStore.h"

#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "common/Text.h"
#include "testbed/common/PropCodec.h"
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
constexpr const wchar_t* rootPath = L"Software\\KivNst Testbed\\Mail profiles";
// Changes of the list of profiles are made by one program at a time.
constexpr const wchar_t* turnName = L"KivNst testbed: profiles";

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

std::wstring ValueName(ULONG id)
{
    wchar_t name[8];
    swprintf_s(name, 8, L"%04lX", id);
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
            section.Put(ReadValue(bytes));
        }
        return section;
    }

    void Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed) override
    {
        if (!OpenKey(PathOf(Id())))
            Fail(MAPI_E_OBJECT_DELETED, L"The profile \"" + Name() + L"\" has been deleted.");
        const RegistryKey key = CreateKey(SectionPath(uid));
        for (const PropValue& value : values)
        {
            const Bytes bytes = WriteValue(value);
            CheckRegistry(RegSetValueExW(key.Get(), ValueName(value.Id()).c_str(), 0, REG_BINARY, bytes.data(),
                                         static_cast<DWORD>(bytes.size())));
        }
        for (const ULONG id : removed)
            RegDeleteValueW(key.Get(), ValueName(id).c_str());
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
    const bool sound = !name.empty() && name.size() <= ProfileStore::longestName && name.front() != L' ' &&
                       name.back() != L' ' &&
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
