// Profiles in files.
#include "testbed/mapi/Profile.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"

#include <nlohmann/json.hpp>

#include <bit>
#include <cstdio>
#include <fstream>
#include <io.h>

namespace Testbed
{
namespace
{
using Json = nlohmann::json;

constexpr const char* formatName = "mail profile";
constexpr int formatVersion = 1;
constexpr std::uintmax_t maxFileSize = std::uintmax_t{64} * 1024 * 1024;

[[noreturn]] void Corrupt(const std::wstring& what)
{
    Fail(MAPI_E_CORRUPT_DATA, what);
}

std::string HexOf(const void* bytes, size_t size)
{
    return Utf8FromWide(HexText(bytes, size));
}

Bytes HexIn(const Json& json)
{
    return BytesFromHex(WideFromUtf8(json.get<std::string>()));
}

GUID GuidIn(const Json& json)
{
    const Bytes bytes = HexIn(json);
    GUID guid;
    if (bytes.size() != sizeof(guid))
        Corrupt(L"An identifier does not have 16 bytes.");
    std::memcpy(&guid, bytes.data(), sizeof(guid));
    return guid;
}

// Texts are kept readable, everything else exact: bytes and 8-bit strings as hexadecimal digits, reals by their bits.
struct ToJson
{
    Json operator()(std::monostate) const { return nullptr; }
    Json operator()(bool value) const { return value; }
    Json operator()(std::int16_t value) const { return value; }
    Json operator()(std::int32_t value) const { return value; }
    Json operator()(std::int64_t value) const { return value; }
    Json operator()(float value) const { return std::bit_cast<std::uint32_t>(value); }
    Json operator()(double value) const { return std::bit_cast<std::uint64_t>(value); }
    Json operator()(const std::string& value) const { return HexOf(value.data(), value.size()); }
    Json operator()(const std::wstring& value) const { return Utf8FromWide(value); }
    Json operator()(const Bytes& value) const { return HexOf(value.data(), value.size()); }
    Json operator()(const GUID& value) const { return HexOf(&value, sizeof(value)); }

    template <class T>
    Json operator()(const std::vector<T>& values) const
    {
        Json array = Json::array();
        for (const T& value : values)
            array.push_back((*this)(value));
        return array;
    }
};

template <class T>
T In(const Json& json)
{
    if constexpr (std::is_same_v<T, float>)
    {
        return std::bit_cast<float>(json.get<std::uint32_t>());
    }
    else if constexpr (std::is_same_v<T, double>)
    {
        return std::bit_cast<double>(json.get<std::uint64_t>());
    }
    else if constexpr (std::is_same_v<T, std::string>)
    {
        const Bytes bytes = HexIn(json);
        return {bytes.begin(), bytes.end()};
    }
    else if constexpr (std::is_same_v<T, std::wstring>)
    {
        return WideFromUtf8(json.get<std::string>());
    }
    else if constexpr (std::is_same_v<T, Bytes>)
    {
        return HexIn(json);
    }
    else if constexpr (std::is_same_v<T, GUID>)
    {
        return GuidIn(json);
    }
    else
    {
        return json.get<T>();
    }
}

template <class T>
PropValue Single(ULONG tag, const Json& json)
{
    return {tag, In<T>(json)};
}

template <class T>
PropValue Multiple(ULONG tag, const Json& json)
{
    std::vector<T> values;
    for (const Json& value : json)
        values.push_back(In<T>(value));
    return {tag, std::move(values)};
}

PropValue FromJson(ULONG tag, const Json& json)
{
    switch (PROP_TYPE(tag))
    {
    case PT_I2:
        return Single<std::int16_t>(tag, json);
    case PT_LONG:
        return Single<std::int32_t>(tag, json);
    case PT_R4:
        return Single<float>(tag, json);
    case PT_DOUBLE:
    case PT_APPTIME:
        return Single<double>(tag, json);
    case PT_BOOLEAN:
        return Single<bool>(tag, json);
    case PT_I8:
    case PT_CURRENCY:
    case PT_SYSTIME:
        return Single<std::int64_t>(tag, json);
    case PT_STRING8:
        return Single<std::string>(tag, json);
    case PT_UNICODE:
        return Single<std::wstring>(tag, json);
    case PT_BINARY:
        return Single<Bytes>(tag, json);
    case PT_CLSID:
        return Single<GUID>(tag, json);
    case PT_MV_I2:
        return Multiple<std::int16_t>(tag, json);
    case PT_MV_LONG:
        return Multiple<std::int32_t>(tag, json);
    case PT_MV_R4:
        return Multiple<float>(tag, json);
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return Multiple<double>(tag, json);
    case PT_MV_I8:
    case PT_MV_CURRENCY:
    case PT_MV_SYSTIME:
        return Multiple<std::int64_t>(tag, json);
    case PT_MV_STRING8:
        return Multiple<std::string>(tag, json);
    case PT_MV_UNICODE:
        return Multiple<std::wstring>(tag, json);
    case PT_MV_BINARY:
        return Multiple<Bytes>(tag, json);
    case PT_MV_CLSID:
        return Multiple<GUID>(tag, json);
    default:
        Corrupt(L"A property has a type that profiles do not keep.");
    }
}

ULONG TagIn(const std::string& key)
{
    const Bytes bytes = BytesFromHex(WideFromUtf8(key));
    if (bytes.size() != sizeof(ULONG))
        Corrupt(L"A property tag does not have 8 digits.");
    return (ULONG(bytes[0]) << 24) | (ULONG(bytes[1]) << 16) | (ULONG(bytes[2]) << 8) | bytes[3];
}

std::string KeyOf(ULONG tag)
{
    const BYTE bytes[] = {static_cast<BYTE>(tag >> 24), static_cast<BYTE>(tag >> 16), static_cast<BYTE>(tag >> 8),
                          static_cast<BYTE>(tag)};
    return HexOf(bytes, sizeof(bytes));
}

std::map<Uid, PropertyBag> Parse(const std::string& text)
{
    const Json root = Json::parse(text);
    if (root.at("format") != formatName)
        Corrupt(L"It is of another format.");
    if (root.at("version") != formatVersion)
        Corrupt(L"It was written by another version.");
    std::map<Uid, PropertyBag> sections;
    for (const auto& [name, properties] : root.at("sections").items())
    {
        const GUID guid = GuidIn(Json(name));
        Uid uid;
        std::memcpy(uid.ab, &guid, sizeof(uid.ab));
        PropertyBag& bag = sections[uid];
        for (const auto& [key, value] : properties.items())
            bag.Put(FromJson(TagIn(key), value));
    }
    return sections;
}

std::string Format(const std::map<Uid, PropertyBag>& sections)
{
    Json root;
    root["format"] = formatName;
    root["version"] = formatVersion;
    Json& all = root["sections"] = Json::object();
    for (const auto& [uid, bag] : sections)
    {
        Json& section = all[Utf8FromWide(uid.Text())] = Json::object();
        for (const auto& [id, value] : bag.Values())
            section[KeyOf(value.Tag())] = std::visit(ToJson(), value.Data());
    }
    return root.dump(2) + "\n";
}

using SectionMap = std::map<Uid, PropertyBag>;

struct FileCloser
{
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// Writes a file so that its contents are on disk when this returns.
bool WriteFileThrough(const std::filesystem::path& path, const std::string& text)
{
    std::FILE* opened = nullptr;
    _wfopen_s(&opened, path.c_str(), L"wb");
    const std::unique_ptr<std::FILE, FileCloser> file(opened);
    return file && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
           std::fflush(file.get()) == 0 && _commit(_fileno(file.get())) == 0;
}

// A profile in a file of its own, or in memory.
class FileProfile final : public Profile
{
public:
    FileProfile(std::filesystem::path file, std::wstring name) : Profile(std::move(name), {}), m_file(std::move(file))
    {
    }

    std::filesystem::path File() const override { return m_file; }
    void Load(SectionMap sections) { m_sections = std::move(sections); }

    std::vector<Uid> Sections() const override;
    bool HasSection(const Uid& uid) const override;
    PropertyBag Section(const Uid& uid) const override;
    void Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed) override;
    void Remove(const Uid& uid) override;

private:
    void Write(const SectionMap& sections) const;

    mutable std::mutex m_lock;
    std::filesystem::path m_file;
    SectionMap m_sections;
};

std::vector<Uid> FileProfile::Sections() const
{
    const std::lock_guard guard(m_lock);
    std::vector<Uid> uids;
    for (const auto& [uid, bag] : m_sections)
        uids.push_back(uid);
    return uids;
}

bool FileProfile::HasSection(const Uid& uid) const
{
    const std::lock_guard guard(m_lock);
    return m_sections.contains(uid);
}

PropertyBag FileProfile::Section(const Uid& uid) const
{
    const std::lock_guard guard(m_lock);
    const auto found = m_sections.find(uid);
    return found == m_sections.end() ? PropertyBag() : found->second;
}

void FileProfile::Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed)
{
    const std::lock_guard guard(m_lock);
    SectionMap changed = m_sections;
    PropertyBag& section = changed[uid];
    for (const PropValue& value : values)
        section.Put(value);
    for (const ULONG id : removed)
        section.Erase(id);
    Write(changed);
    m_sections = std::move(changed);
}

void FileProfile::Remove(const Uid& uid)
{
    const std::lock_guard guard(m_lock);
    SectionMap changed = m_sections;
    if (changed.erase(uid))
    {
        Write(changed);
        m_sections = std::move(changed);
    }
}

void FileProfile::Write(const SectionMap& sections) const
{
    if (m_file.empty())
        return;
    std::error_code error;
    if (m_file.has_parent_path())
        std::filesystem::create_directories(m_file.parent_path(), error);
    std::filesystem::path fresh = m_file;
    fresh += L".new";
    const bool written = WriteFileThrough(fresh, Format(sections));
    if (!written || !MoveFileExW(fresh.c_str(), m_file.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    {
        std::filesystem::remove(fresh, error);
        Fail(MAPI_E_NOT_ENOUGH_DISK, L"The profile \"" + m_file.wstring() + L"\" cannot be written.");
    }
}
} // namespace

Uid Uid::Create()
{
    GUID guid;
    Check(CoCreateGuid(&guid), L"CoCreateGuid failed.");
    Uid uid;
    std::memcpy(uid.ab, &guid, sizeof(uid.ab));
    return uid;
}

std::optional<Uid> Uid::From(const PropValue* value)
{
    if (!value || value->Type() != PT_BINARY || value->AsBytes().size() != sizeof(MAPIUID))
        return {};
    Uid uid;
    std::memcpy(uid.ab, value->AsBytes().data(), sizeof(uid.ab));
    return uid;
}

std::wstring Uid::Text() const
{
    return HexText(ab, sizeof(ab));
}

std::shared_ptr<Profile> Profile::Open(const std::filesystem::path& file)
{
    const auto profile = std::make_shared<FileProfile>(file, file.stem().wstring());
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        return profile;
    std::ifstream stream(file, std::ios::binary);
    if (!stream || std::filesystem::file_size(file, error) > maxFileSize || error)
        Fail(MAPI_E_NO_ACCESS, L"The profile \"" + file.wstring() + L"\" cannot be read.");
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    try
    {
        profile->Load(Parse(text));
    }
    catch (const Failure& failure)
    {
        Corrupt(L"The profile \"" + file.wstring() + L"\" is damaged: " + failure.Text());
    }
    catch (const Json::exception& exception)
    {
        Corrupt(L"The profile \"" + file.wstring() + L"\" is damaged: " + WideFromUtf8(exception.what()));
    }
    return profile;
}

std::shared_ptr<Profile> Profile::InMemory(std::wstring name)
{
    return std::make_shared<FileProfile>(std::filesystem::path(), std::move(name));
}
} // namespace Testbed
