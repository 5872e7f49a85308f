// The registration in an INI file: names and paths that hold what format strings and INI files take for their own.
#include "nst/StoreProviderRegistration.h"
#include "support/Exceptions.h"
#include "support/Log.h"
#include "tests/common/Setting.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

using namespace Quillon;
using Tests::Random;

namespace
{

using Section = std::map<std::wstring, std::wstring>;
using Ini = std::map<std::wstring, Section>;

constexpr wchar_t otherContent[] = L"\xFEFF[Services]\r\nOther=Other 100%s\r\n[Other]\r\nkey=%n=[x];\r\n";

void WriteWide(const std::wstring& path, const std::wstring& text)
{
    Tests::WriteFileBytes(path, std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)));
}

/// An INI file in UTF-16, read by hand.
Ini ReadIni(const std::wstring& path)
{
    const std::string bytes = Tests::ReadFileBytes(path);
    std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
    Ini ini;
    std::wstring section;
    if (!text.empty() && text[0] == L'\xFEFF')
        text.erase(0, 1);
    for (std::size_t at = 0; at < text.size();)
    {
        std::size_t end = text.find_first_of(L"\r\n", at);
        end = end == std::wstring::npos ? text.size() : end;
        const std::wstring line = text.substr(at, end - at);
        at = end + 1;
        if (line.empty())
            continue;
        const std::size_t equals = line.find(L'=');
        if (line.front() == L'[' && line.back() == L']')
            ini.try_emplace(section = line.substr(1, line.size() - 2));
        else if (equals == std::wstring::npos)
            ini[section][line];
        else
            ini[section][line.substr(0, equals)] = line.substr(equals + 1);
    }
    return ini;
}

/// What is left of a text that an INI file can hold: no line ends, and none of `without`; nothing to trim or unquote at
/// its ends.
std::wstring MakeIniText(Random& random, std::wstring_view without)
{
    std::wstring text = L"a";
    for (const wchar_t character : Tests::MakeText(random))
    {
        const bool isPlain = character > L' ' && without.find(character) == std::wstring_view::npos;
        if (isPlain || character == L' ' || character == L'%')
            text += character;
    }
    return text.substr(0, 200) + L"z";
}

Ini Registered(Ini ini, const std::wstring& service, const std::wstring& display, const std::wstring& dll,
               const std::wstring& flags)
{
    ini[L"Services"][service] = display;
    ini[service] = {{L"PR_DISPLAY_NAME", display},
                    {L"PR_SERVICE_DLL_NAME", dll},
                    {L"PR_SERVICE_ENTRY_NAME", L"ServiceEntry"},
                    {L"PR_RESOURCE_FLAGS", L"SERVICE_NO_PRIMARY_IDENTITY" + (flags.empty() ? L"" : L"|" + flags)},
                    {L"Providers", service + L"_P"},
                    {L"PR_SERVICE_SUPPORT_FILES", dll},
                    {L"PR_SERVICE_DELETE_FILES", dll}};
    ini[service + L"_P"] = {{L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER"},
                            {L"PR_PROVIDER_DLL_NAME", dll},
                            {L"PR_RESOURCE_FLAGS", L"STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY"},
                            {L"PR_DISPLAY_NAME", display},
                            {L"PR_PROVIDER_DISPLAY", display + L" Provider"},
                            {L"0x67020003", L"00000010"}};
    return ini;
}

/// The lines that were logged.
struct Lines
{
    std::vector<std::wstring> texts;

    Lines()
    {
        Logging::SetLogSink([](void* context, const Logging::LogLine& line)
                            { static_cast<Lines*>(context)->texts.emplace_back(line.text); }, this);
    }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;
    ~Lines()
    {
        Logging::SetLogSink([](void*, const Logging::LogLine&) {}, nullptr);
    }
};

void RegisterAndUnregister(Random& random, const Tests::TempFolder& folder)
{
    constexpr std::wstring_view files[] = {L"plain.inf",         L"100% %s %n.inf", L"[x] = ;.inf", L"%25.inf",
                                           L"\u00FC \u0416.inf", L"no ending",      L"'quoted'.inf"};
    const std::wstring path = folder / std::wstring(random.Of(files));
    WriteWide(path, otherContent);
    if (random.Chance(1, 4))
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    const Ini before = ReadIni(path);

    const std::wstring service = L"Svc" + MakeIniText(random, L"[]=;\"'");
    const std::wstring display = MakeIniText(random, L"\"'");
    const std::wstring dll = MakeIniText(random, L"\"'");
    const std::wstring flags = random.Chance(1, 2) ? L"" : MakeIniText(random, L"\"'");
    const Lines lines;
    OutlookAddIn::RegisterStoreProvider(service.c_str(), display.c_str(), dll.c_str(), path.c_str(), flags.c_str());
    ASSERT_EQ(ReadIni(path), Registered(before, service, display, dll, flags));
    ASSERT_EQ(lines.texts, (std::vector{L"Adding service '" + service + L"' to MAPISVC.INF: " + path}));

    OutlookAddIn::UnregisterStoreProvider(service.c_str(), path.c_str());
    ASSERT_EQ(ReadIni(path), before);
    ASSERT_EQ(lines.texts.back(), L"Removing service '" + service + L"' from MAPISVC.INF: " + path);
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

/// Paths to which nothing can be written: the failure is told once, with all names as they are.
void RegisterInVain(Random& random, const Tests::TempFolder& folder)
{
    constexpr std::wstring_view names[] = {L"%s%n.inf", L"plain.inf", L"100%\\x.inf"};
    const std::wstring path = folder / (L"no such folder\\" + std::wstring(random.Of(names)));
    const std::wstring service = L"Svc" + Tests::MakeText(random);
    const std::wstring display = Tests::MakeText(random);
    const Lines lines;
    try
    {
        OutlookAddIn::RegisterStoreProvider(service.c_str(), display.c_str(), L"%s", path.c_str(), L"%n");
        FAIL() << "nothing was thrown for " << std::filesystem::path(path);
    }
    catch (const CWinError& error)
    {
        ASSERT_NE(error.GetError(), 0u);
        ASSERT_EQ(lines.texts.size(), 3u);
        ASSERT_EQ(lines.texts.back(), L"Failed to write private profile value to file '" + path + L"', [" + service +
                                          L"_P].PR_RESOURCE_TYPE = 'MAPI_STORE_PROVIDER': " +
                                          Tests::Text(error.Format()));
    }
    ASSERT_THROW(OutlookAddIn::UnregisterStoreProvider(service.c_str(), path.c_str()), CWinError);
    ASSERT_FALSE(std::filesystem::is_regular_file(path));
}

} // namespace

TEST(GeneratedRegistrations, AreWrittenAndRemovedAsTheyAre)
{
    const Tests::TempFolder folder;
    Tests::RunCases("registrations", 80, [&](Random& random) { RegisterAndUnregister(random, folder); });
}

TEST(GeneratedRegistrations, FailOnceWhereNothingCanBeWritten)
{
    const Tests::TempFolder folder;
    Tests::RunCases("registrations in vain", 400, [&](Random& random) { RegisterInVain(random, folder); });
}
