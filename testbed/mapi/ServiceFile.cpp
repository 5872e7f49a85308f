// Reading MAPISVC.INF.
#include "testbed/mapi/ServiceFile.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/mapi/ThisModule.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr const wchar_t* fileName = L"MAPISVC.INF";

struct NamedNumber
{
    const wchar_t* name;
    ULONG number;
};

// The properties that the file's documentation names, in the type that the file gives them.
constexpr NamedNumber propertyNames[] = {
    {L"PR_DISPLAY_NAME", PR_DISPLAY_NAME_W},
    {L"PR_COMMENT", PR_COMMENT_W},
    {L"PR_PROVIDER_DISPLAY", PR_PROVIDER_DISPLAY_W},
    {L"PR_PROVIDER_DLL_NAME", PR_PROVIDER_DLL_NAME_W},
    {L"PR_SERVICE_DLL_NAME", PR_SERVICE_DLL_NAME_W},
    {L"PR_SERVICE_ENTRY_NAME", PR_SERVICE_ENTRY_NAME},
    {L"PR_SERVICE_SUPPORT_FILES", PR_SERVICE_SUPPORT_FILES_W},
    {L"PR_SERVICE_DELETE_FILES", PR_SERVICE_DELETE_FILES_W},
    {L"PR_RESOURCE_FLAGS", PR_RESOURCE_FLAGS},
    {L"PR_RESOURCE_TYPE", PR_RESOURCE_TYPE},
    {L"PR_STATUS_CODE", PR_STATUS_CODE},
    {L"PR_MDB_PROVIDER", PR_MDB_PROVIDER},
};

constexpr NamedNumber numberNames[] = {
    {L"MAPI_STORE_PROVIDER", MAPI_STORE_PROVIDER},
    {L"MAPI_AB_PROVIDER", MAPI_AB_PROVIDER},
    {L"MAPI_TRANSPORT_PROVIDER", MAPI_TRANSPORT_PROVIDER},
    {L"MAPI_HOOK_PROVIDER", MAPI_HOOK_PROVIDER},
    {L"SERVICE_DEFAULT_STORE", SERVICE_DEFAULT_STORE},
    {L"SERVICE_SINGLE_COPY", SERVICE_SINGLE_COPY},
    {L"SERVICE_CREATE_WITH_STORE", SERVICE_CREATE_WITH_STORE},
    {L"SERVICE_PRIMARY_IDENTITY", SERVICE_PRIMARY_IDENTITY},
    {L"SERVICE_NO_PRIMARY_IDENTITY", SERVICE_NO_PRIMARY_IDENTITY},
    {L"STATUS_DEFAULT_OUTBOUND", STATUS_DEFAULT_OUTBOUND},
    {L"STATUS_DEFAULT_STORE", STATUS_DEFAULT_STORE},
    {L"STATUS_PRIMARY_IDENTITY", STATUS_PRIMARY_IDENTITY},
    {L"STATUS_SIMPLE_STORE", STATUS_SIMPLE_STORE},
    {L"STATUS_XP_PREFER_LAST", STATUS_XP_PREFER_LAST},
    {L"STATUS_NO_PRIMARY_IDENTITY", STATUS_NO_PRIMARY_IDENTITY},
    {L"STATUS_NO_DEFAULT_STORE", STATUS_NO_DEFAULT_STORE},
    {L"STATUS_TEMP_SECTION", STATUS_TEMP_SECTION},
    {L"STATUS_OWN_STORE", STATUS_OWN_STORE},
    {L"STATUS_NEED_IPM_TREE", STATUS_NEED_IPM_TREE},
    {L"STATUS_PRIMARY_STORE", STATUS_PRIMARY_STORE},
    {L"STATUS_SECONDARY_STORE", STATUS_SECONDARY_STORE},
};

std::optional<ULONG> Look(const NamedNumber* begin, const NamedNumber* end, const std::wstring& name)
{
    const auto found = std::find_if(begin, end, [&](const NamedNumber& known) { return SameName(name, known.name); });
    return found == end ? std::nullopt : std::optional(found->number);
}

std::wstring Trimmed(const std::wstring& text)
{
    const size_t begin = text.find_first_not_of(L" \t");
    return begin == std::wstring::npos ? std::wstring() : text.substr(begin, text.find_last_not_of(L" \t") - begin + 1);
}

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator)
{
    std::vector<std::wstring> parts;
    for (size_t begin = 0; begin <= text.size();)
    {
        const size_t end = std::min(text.find(separator, begin), text.size());
        if (auto part = Trimmed(text.substr(begin, end - begin)); !part.empty())
            parts.push_back(std::move(part));
        begin = end + 1;
    }
    return parts;
}

struct Line
{
    std::wstring key;
    std::wstring value;
};

std::vector<Line> ReadSection(const std::filesystem::path& file, const std::wstring& section)
{
    std::vector<wchar_t> buffer(4096);
    for (;;)
    {
        const DWORD length =
            GetPrivateProfileSectionW(section.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()), file.c_str());
        if (length + 2 < buffer.size())
            break;
        buffer.resize(buffer.size() * 2);
    }
    std::vector<Line> lines;
    for (const wchar_t* at = buffer.data(); *at; at += std::wcslen(at) + 1)
    {
        const std::wstring text = at;
        const size_t equals = text.find(L'=');
        if (equals == std::wstring::npos || text.front() == L';')
            continue;
        lines.push_back({Trimmed(text.substr(0, equals)), Trimmed(text.substr(equals + 1))});
    }
    return lines;
}

std::optional<ULONG> TagOf(std::wstring key)
{
    if (const auto known = Look(std::begin(propertyNames), std::end(propertyNames), key))
        return known;
    if (key.starts_with(L"0x") || key.starts_with(L"0X"))
        key.erase(0, 2);
    if (key.size() != 8 || key.find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring::npos)
        return {};
    return std::wcstoul(key.c_str(), nullptr, 16);
}

[[noreturn]] void FailEntry(const Line& line)
{
    Fail(MAPI_E_CORRUPT_DATA,
         std::wstring(fileName) + L" has an entry that cannot be read: " + line.key + L"=" + line.value + L".");
}

LONG ReadFlags(const Line& line)
{
    ULONG flags = 0;
    for (const std::wstring& part : Split(line.value, L'|'))
    {
        wchar_t* end = nullptr;
        const ULONG number = std::wcstoul(part.c_str(), &end, 0);
        const auto known = Look(std::begin(numberNames), std::end(numberNames), part);
        if (!known && *end != L'\0')
            FailEntry(line);
        flags |= known.value_or(number);
    }
    return static_cast<LONG>(flags);
}

LONG ReadBytesAsLong(const Line& line)
{
    const Bytes bytes = BytesFromHex(line.value);
    if (bytes.size() != sizeof(LONG))
        FailEntry(line);
    LONG number = 0;
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
}

PropValue ReadValue(ULONG tag, const Line& line)
{
    const bool named = line.key.starts_with(L"PR_");
    switch (PROP_TYPE(tag))
    {
    case PT_UNICODE:
    case PT_STRING8:
        return PropValue::String(tag, line.value);
    case PT_MV_UNICODE:
        return {tag, Split(line.value, L',')};
    case PT_LONG:
        return PropValue::Long(tag, named ? ReadFlags(line) : ReadBytesAsLong(line));
    case PT_BOOLEAN:
        return PropValue::Boolean(tag, ReadFlags(line) != 0);
    case PT_BINARY:
        return PropValue::Binary(tag, BytesFromHex(line.value));
    default:
        FailEntry(line);
    }
}

std::vector<PropValue> Properties(const std::vector<Line>& lines)
{
    std::vector<PropValue> properties;
    for (const Line& line : lines)
        if (const auto tag = TagOf(line.key))
            properties.push_back(ReadValue(*tag, line));
    return properties;
}

std::vector<std::wstring> ListUnder(const std::vector<Line>& lines, const wchar_t* key)
{
    for (const Line& line : lines)
        if (SameName(line.key, key))
            return Split(line.value, L',');
    return {};
}

InstalledService::ExtraSection ReadExtraSection(const std::filesystem::path& file, const std::wstring& name)
{
    const auto lines = ReadSection(file, name);
    InstalledService::ExtraSection section{Uid::Create(), Properties(lines)};
    for (const Line& line : lines)
    {
        if (!SameName(line.key, L"UID"))
            continue;
        const Bytes bytes = BytesFromHex(line.value);
        if (bytes.size() != sizeof(MAPIUID))
            FailEntry(line);
        std::memcpy(section.uid.ab, bytes.data(), sizeof(MAPIUID));
    }
    return section;
}
} // namespace

std::filesystem::path ServiceFile::Path()
{
    const std::filesystem::path beside = ThisModulePath().replace_filename(fileName);
    std::error_code error;
    if (std::filesystem::is_regular_file(beside, error))
        return beside;
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    const std::filesystem::path system = std::filesystem::path(folder) / fileName;
    if (!std::filesystem::is_regular_file(system, error))
    {
        Fail(MAPI_E_NOT_FOUND, std::wstring(fileName) + L" is neither beside MAPI (\"" + beside.wstring() +
                                   L"\") nor in the system folder.");
    }
    return system;
}

std::optional<InstalledService> ServiceFile::Find(const std::wstring& name)
{
    const std::filesystem::path file = Path();
    const auto services = ReadSection(file, L"Services");
    const auto listed =
        std::find_if(services.begin(), services.end(), [&](const Line& line) { return SameName(line.key, name); });
    if (listed == services.end())
        return {};
    const auto lines = ReadSection(file, listed->key);
    InstalledService service{listed->key, Properties(lines), {}, {}};
    for (const std::wstring& provider : ListUnder(lines, L"Providers"))
        service.providers.push_back({provider, Properties(ReadSection(file, provider))});
    for (const std::wstring& section : ListUnder(lines, L"Sections"))
        service.sections.push_back(ReadExtraSection(file, section));
    return service;
}

std::vector<std::wstring> ServiceFile::DefaultServices()
{
    std::vector<std::wstring> names;
    for (const Line& line : ReadSection(Path(), L"Default Services"))
        names.push_back(line.key);
    return names;
}
} // namespace Testbed
