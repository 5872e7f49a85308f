// What the library reads from the registry: values of any type, unterminated, too long, or of half a character. In a
// process of its own, which has another registry and no MAPI module.
#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "support/OutlookAddIn.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

using namespace Quillon;
using Tests::Bytes;
using Tests::Random;
using Tests::Text;

namespace
{

constexpr auto mailKey = L"Software\\Clients\\Mail";
constexpr auto outlookKey = L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe";
constexpr auto clientKey = L"Software\\Clients\\Mail\\Client";

/// A value as it lies in the registry.
struct RawValue
{
    DWORD type = REG_SZ;
    Bytes bytes;
};

Bytes BytesOfText(const std::wstring& text)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.data());
    return Bytes(bytes, bytes + text.size() * sizeof(wchar_t));
}

DWORD MakeTypeOfValue(Random& random)
{
    constexpr DWORD types[] = {REG_SZ,        REG_SZ,     REG_SZ,       REG_SZ,    REG_EXPAND_SZ, REG_EXPAND_SZ,
                               REG_EXPAND_SZ, REG_BINARY, REG_MULTI_SZ, REG_DWORD, REG_NONE,      REG_QWORD};
    return random.Of(types);
}

/// A value that holds `text` more or less: with or without its terminator, with something behind it, of half a
/// character more, too long, or of another type.
RawValue MakeValueOf(Random& random, const std::wstring& text, bool canBeOdd = true)
{
    RawValue value{MakeTypeOfValue(random), BytesOfText(text)};
    if (random.Chance(3, 4))
        value.bytes.insert(value.bytes.end(), 2, BYTE(0));
    if (random.Chance(1, 5))
    {
        const Bytes more = BytesOfText(Tests::MakeText(random));
        value.bytes.insert(value.bytes.end(), more.begin(), more.end());
    }
    if (canBeOdd && random.Chance(1, 8))
        value.bytes.push_back(static_cast<BYTE>(random.Next()));
    if (random.Chance(1, 12))
        value.bytes.resize(510 + random.Below(14) + (canBeOdd ? 0 : value.bytes.size() % 2), BYTE('x'));
    if (!canBeOdd && value.bytes.size() % 2)
        value.bytes.pop_back();
    return value;
}

/// The characters up to the first terminator; half a character at the end counts as one.
std::wstring TextOf(const RawValue& value)
{
    std::wstring text;
    for (std::size_t at = 0; at < value.bytes.size(); at += 2)
    {
        const unsigned high = at + 1 < value.bytes.size() ? value.bytes[at + 1] : 0;
        const auto character = static_cast<wchar_t>(high << 8 | value.bytes[at]);
        if (character == L'\0')
            break;
        text += character;
    }
    return text;
}

std::wstring Expand(const std::wstring& text)
{
    std::wstring expanded(0x8000, L'\0');
    const DWORD length = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), static_cast<DWORD>(expanded.size()));
    expanded.resize(length - 1);
    return expanded;
}

// What the library is made to see of the system.

/// The modules that it tries to load, in order; none of them is there.
std::vector<std::wstring> tried;
std::vector<HKEY> opened;
bool isStubThere = false;
std::string componentPath;
int stubReferences = 0;
bool areArgumentsWhole = true;
char stub; // its address stands for the module

HMODULE WINAPI RefuseToLoadW(LPCWSTR name)
{
    tried.emplace_back(name);
    SetLastError(ERROR_MOD_NOT_FOUND);
    if (tried.back() != L"mapi32.dll" || !isStubThere)
        return nullptr;
    ++stubReferences;
    return reinterpret_cast<HMODULE>(&stub);
}

HMODULE WINAPI RefuseToLoadA(LPCSTR name)
{
    tried.emplace_back(name, name + std::strlen(name));
    return nullptr;
}

BOOL WINAPI FindNoModule(DWORD, LPCWSTR, HMODULE* module)
{
    *module = nullptr;
    return FALSE;
}

BOOL STDAPICALLTYPE GiveComponentPath(LPSTR component, LPSTR qualifier, LPSTR path, DWORD size, BOOL)
{
    const auto isWhole = [](const char* text) { return std::find(text, text + 261, '\0') != text + 261; };
    areArgumentsWhole = areArgumentsWhole && isWhole(component) && isWhole(qualifier) && size == 260;
    // A stub may fill the whole buffer and leave no terminator.
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    std::memcpy(path, componentPath.data(), std::min<std::size_t>(componentPath.size(), size));
    return !componentPath.empty();
}

FARPROC WINAPI FindFunction(HMODULE module, LPCSTR name)
{
    if (module != reinterpret_cast<HMODULE>(&stub))
        return GetProcAddress(module, name);
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(GiveComponentPath));
}

BOOL WINAPI FreeStub(HMODULE module)
{
    if (module != reinterpret_cast<HMODULE>(&stub))
        return FreeLibrary(module);
    --stubReferences;
    return TRUE;
}

LSTATUS WINAPI OpenKey(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result)
{
    const LSTATUS status = RegOpenKeyExW(key, path, options, access, result);
    if (status == ERROR_SUCCESS)
        opened.push_back(*result);
    return status;
}

std::wstring SystemMapi()
{
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\mapi32.dll";
}

/// Whether a value fits into a buffer of narrow characters.
bool FitsNarrow(const RawValue& value, std::size_t size)
{
    if (value.type != REG_SZ && value.type != REG_EXPAND_SZ && value.type != REG_MULTI_SZ)
        return value.bytes.size() <= size;
    const std::wstring text(reinterpret_cast<const wchar_t*>(value.bytes.data()), value.bytes.size() / 2);
    return text.empty() || WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                               nullptr, nullptr) <= static_cast<int>(size);
}

/// What the registry says of the mail client, each value there or not.
struct Registration
{
    std::optional<RawValue> defaultName;
    std::optional<RawValue> component;
    std::optional<RawValue> locale;
    std::optional<RawValue> paths[2];
};

constexpr std::size_t mostBytes = 520;

/// The modules that are tried for it, in order.
std::vector<std::wstring> Expect(const Registration& registration)
{
    std::vector<std::wstring> expected;
    const auto& name = registration.defaultName;
    const bool isRegistered = name && name->type == REG_SZ && name->bytes.size() <= mostBytes &&
                              _wcsicmp(TextOf(*name).c_str(), L"Client") == 0;
    if (isRegistered && registration.component && registration.locale && FitsNarrow(*registration.component, 260) &&
        FitsNarrow(*registration.locale, 260))
    {
        expected.emplace_back(L"mapi32.dll");
        if (!isStubThere)
            expected.emplace_back(L"mapistub.dll");
        else if (!componentPath.empty())
            expected.emplace_back(componentPath.begin(),
                                  componentPath.begin() +
                                      static_cast<std::ptrdiff_t>(std::min<std::size_t>(componentPath.size(), 260)));
    }
    for (const auto& path : registration.paths)
    {
        if (!isRegistered || !path || path->bytes.size() > mostBytes)
            continue;
        const std::wstring text = TextOf(*path);
        if (path->type == REG_SZ)
            expected.push_back(text);
        else if (path->type == REG_EXPAND_SZ && Expand(text).size() < 260)
            expected.push_back(Expand(text));
    }
    expected.push_back(SystemMapi());
    return expected;
}

void TryRegistration(Random& random, Tests::ScratchRegistry& registry)
{
    const auto maybe = [&](std::size_t count, const std::wstring& text, bool canBeOdd = true)
    { return random.Chance(count, 10) ? std::optional(MakeValueOf(random, text, canBeOdd)) : std::nullopt; };
    constexpr std::wstring_view clients[] = {L"Client", L"Client", L"CLIENT", L"Client", L"Nobody", L"%s%n", L"\xD800"};
    constexpr std::wstring_view paths[] = {L"C:\\100%\\%n.dll", L"%KIVNST_LONG%x", L"%KIVNST_SHORT%\\\xD800.dll", L"",
                                           L"client.dll",       L"%NOBODY%\\x.dll"};
    Registration registration;
    registration.defaultName = maybe(9, std::wstring(random.Of(clients)));
    registration.component = maybe(7, Tests::MakeText(random), false);
    registration.locale = maybe(7, L"1033", false);
    for (auto& path : registration.paths)
        path = maybe(8, random.Chance(1, 3) ? Tests::MakeText(random) : std::wstring(random.Of(paths)));
    isStubThere = random.Chance(1, 2);
    componentPath = random.Chance(1, 4) ? "" : std::string(random.Below(300), 'p');
    SetEnvironmentVariableW(L"KIVNST_LONG", std::wstring(250 + random.Below(20), L'v').c_str());

    RegDeleteTreeW(HKEY_LOCAL_MACHINE, mailKey);
    const auto write = [&](const wchar_t* key, const wchar_t* name, const std::optional<RawValue>& value)
    {
        if (value)
            registry.SetBytes(key, name, value->type, value->bytes.data(), value->bytes.size());
    };
    registry.SetText(clientKey, L"Unused", L"");
    write(mailKey, nullptr, registration.defaultName);
    write(clientKey, L"MSIComponentID", registration.component);
    write(clientKey, L"MSIApplicationLCID", registration.locale);
    write(clientKey, L"DllPathEx", registration.paths[0]);
    write(clientKey, L"DllPath", registration.paths[1]);

    tried.clear();
    ASSERT_EQ(Mapi::GetMapiModule(), nullptr);
    for (const HKEY key : opened)
        RegCloseKey(key);
    opened.clear();
    ASSERT_EQ(tried, Expect(registration));
    ASSERT_EQ(stubReferences, 0);
    ASSERT_TRUE(areArgumentsWhole);
}

void TryOutlookPath(Random& random, Tests::ScratchRegistry& registry, const std::vector<std::wstring>& files)
{
    std::wstring path = random.Of(files);
    if (random.Chance(1, 3))
        path = L"\"" + path + L"\"";
    if (random.Chance(1, 6))
        path += random.Chance(1, 2) ? L"\"" : L"x";
    if (random.Chance(1, 6))
        path = Tests::MakeText(random);
    const RawValue value = MakeValueOf(random, path);
    registry.SetBytes(outlookKey, nullptr, value.type, value.bytes.data(), value.bytes.size());

    std::wstring expected;
    if (value.type == REG_SZ)
        expected = TextOf(value);
    else if (value.type == REG_EXPAND_SZ)
        expected = Expand(TextOf(value));
    if (!expected.empty())
    {
        if (expected.size() >= 2 && expected.front() == L'"' && expected.back() == L'"')
            expected = expected.substr(1, expected.size() - 2);
        const DWORD attributes = GetFileAttributesW(expected.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
            expected.clear();
    }
    const std::wstring found = Text(OutlookAddIn::GetOutlookPath());
    if (value.bytes.size() % 2)
    {
        // What becomes of half a character is the system's affair; a file that is not there is given in no case.
        ASSERT_TRUE(found.empty() || GetFileAttributesW(found.c_str()) != INVALID_FILE_ATTRIBUTES);
    }
    else
    {
        ASSERT_EQ(found, expected) << "type " << value.type << ", " << value.bytes.size() << " bytes";
    }
}

/// The hash by another road: all of it first, modulo 2^32 last.
std::uint32_t Hash(const Bytes& id)
{
    std::uint64_t hash = 0;
    const std::size_t whole = id.size() / 4 * 4;
    for (std::size_t at = 0; at < id.size();)
    {
        std::uint64_t next = id[at++];
        for (int shift = 8; at % 4 != 0 && at < whole; shift += 8)
            next |= static_cast<std::uint64_t>(id[at++]) << shift;
        hash = (hash * 33 + next) % 0x100000000;
    }
    return static_cast<std::uint32_t>(hash);
}

/// Takes an escaped name back to what it was; nothing when it holds what must have been escaped.
std::optional<std::wstring> Unescape(const std::wstring& escaped)
{
    std::wstring name;
    for (std::size_t at = 0; at < escaped.size(); ++at)
    {
        if (std::wcschr(L"*/?\\", escaped[at]))
            return std::nullopt;
        if (escaped[at] != L'%')
        {
            name += escaped[at];
            continue;
        }
        const std::wstring code = escaped.substr(at + 1, 2);
        at += 2;
        constexpr std::wstring_view characters = L"%*/?\\";
        constexpr std::wstring_view codes[] = {L"25", L"2A", L"2F", L"3F", L"5C"};
        const auto* const known = std::find(std::begin(codes), std::end(codes), code);
        if (known == std::end(codes))
            return std::nullopt;
        name += characters[static_cast<std::size_t>(known - codes)];
    }
    return name;
}

void TryUrl(Random& random)
{
    const Bytes id = Tests::MakeBytes(random, 300);
    const std::wstring name = Tests::MakeText(random);
    const std::wstring url =
        Text(Nst::GetStoreMapiUrl(Binary(id.data(), id.size()), StringW(name.data(), name.size())));
    wchar_t hash[16] = {};
    std::swprintf(hash, 16, L"(%x)/", Hash(id));
    ASSERT_TRUE(url.ends_with(hash)) << Hash(id);
    const std::size_t begin = url.find(L"}/");
    ASSERT_TRUE(url.starts_with(L"mapi"));
    ASSERT_NE(url.find(L"://{S-1-"), std::wstring::npos);
    ASSERT_LT(begin, url.size());
    const std::wstring escaped = url.substr(begin + 2, url.size() - begin - 2 - std::wcslen(hash));
    ASSERT_EQ(Unescape(escaped), std::optional(name));
}

} // namespace

TEST_ALONE(GeneratedRegistry, LeadsToTheModulesThatItNames)
{
    Tests::ScratchRegistry registry;
    SetEnvironmentVariableW(L"KIVNST_SHORT", L"C:\\short");
    const Tests::ImportHook<BOOL(DWORD, LPCWSTR, HMODULE*)> find("GetModuleHandleExW", FindNoModule);
    const Tests::ImportHook<HMODULE(LPCWSTR)> loadWide("LoadLibraryW", RefuseToLoadW);
    const Tests::ImportHook<HMODULE(LPCSTR)> loadNarrow("LoadLibraryA", RefuseToLoadA);
    const Tests::ImportHook<FARPROC(HMODULE, LPCSTR)> function("GetProcAddress", FindFunction);
    const Tests::ImportHook<BOOL(HMODULE)> free("FreeLibrary", FreeStub);
    const Tests::ImportHook<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)> open("RegOpenKeyExW", OpenKey);
    Tests::RunCases("registered MAPI modules", 1'500, [&](Random& random) { TryRegistration(random, registry); });
}

TEST_ALONE(GeneratedRegistry, LeadsToTheMailClientThatIsThere)
{
    Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    std::vector<std::wstring> files = {L"Z:\\no such\\outlook.exe", L"%KIVNST_FOLDER%\\outlook.exe", L""};
    SetEnvironmentVariableW(L"KIVNST_FOLDER", folder.Path().c_str());
    for (const wchar_t* const name : {L"outlook.exe", L"100% %s %n.exe", L"\u00FC \u0416.exe"})
    {
        Tests::WriteFileBytes(folder / name, "");
        files.push_back(folder / name);
    }
    std::wstring detour = folder.Path().wstring();
    for (int count = 0; count < 200; ++count)
        detour += L"\\.";
    files.push_back(detour + L"\\outlook.exe");
    files.push_back(folder.Path().wstring());
    Tests::RunCases("registered mail clients", 3'000, [&](Random& random) { TryOutlookPath(random, registry, files); });
}

TEST_ALONE(GeneratedUrls, HoldTheHashAndTheEscapedName)
{
    Tests::ScratchRegistry registry;
    registry.SetOutlookPath(Tests::OutlookProgram());
    Tests::RunCases("store URLs", 1'500, TryUrl);
}
