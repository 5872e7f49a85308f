// archive-setup's commands change nothing that registration did not write.
#include "nst/StoreProviderRegistration.h"
#include "tests/common/Setting.h"
#include "tests/setup/MapiSvcInf.h"
#include "tests/setup/Tool.h"
#include "tools/setup/Commands.h"
#include "tools/setup/Text.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>

using Tests::InfEntry;
using Tests::ReadInf;
using Tests::Utf8;

namespace
{

constexpr auto hostDll = L"ArchiveHost.dll";

class OwnSections : public testing::Test
{
protected:
    OwnSections() { Tests::WriteFileBytes(path, Tests::SampleInf()); }

    static Setup::Service Describe(const std::wstring& service, const std::wstring& dll = hostDll)
    {
        return {service, L"My Archive", dll, L""};
    }
    void Register(const std::wstring& service, const std::wstring& dll = hostDll, bool dryRun = false) const
    {
        Setup::RegisterCommand(path, Describe(service, dll), dryRun);
    }
    void Unregister(const std::wstring& service, const std::optional<std::wstring>& dll = std::nullopt,
                    bool dryRun = false) const
    {
        Setup::UnregisterCommand(path, service, dll, dryRun);
    }
    Setup::ExitCode Status(const std::wstring& service) const
    {
        return Setup::StatusCommand(path, {service, {}, {}, {}}).code;
    }
    void Write(const wchar_t* section, const wchar_t* key, const wchar_t* value) const
    {
        ASSERT_TRUE(WritePrivateProfileStringW(section, key, value, path.c_str()));
    }
    std::string Bytes() const { return Tests::ReadFileBytes(path); }

    static std::vector<InfEntry> Entries(const std::wstring& service = L"ArchiveSvc")
    {
        return Tests::ExpectedEntries(service, L"My Archive", hostDll, L"");
    }
    void ExpectRegistered() const
    {
        for (const InfEntry& entry : Entries())
            EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);
    }

    /// The parts of a list that the INI functions give, each of which ends with a null character.
    static std::vector<std::wstring> Split(const std::vector<wchar_t>& list)
    {
        std::vector<std::wstring> parts;
        for (const wchar_t* part = list.data(); *part; part += parts.back().size() + 1)
            parts.emplace_back(part);
        return parts;
    }
    std::vector<std::wstring> Sections() const
    {
        std::vector<wchar_t> list(1 << 16);
        GetPrivateProfileSectionNamesW(list.data(), static_cast<DWORD>(list.size()), path.c_str());
        return Split(list);
    }
    std::vector<std::wstring> Keys(const wchar_t* section) const
    {
        std::vector<wchar_t> list(1 << 16);
        GetPrivateProfileStringW(section, nullptr, L"", list.data(), static_cast<DWORD>(list.size()), path.c_str());
        return Split(list);
    }

    /// Every name under which the file has something, and every one whose provider section would be there.
    std::vector<std::wstring> ForeignNames() const
    {
        std::set<std::wstring> names;
        const auto add = [&](const std::wstring& name)
        {
            names.insert(name);
            if (name.ends_with(L"_P"))
                names.insert(name.substr(0, name.size() - 2));
        };
        for (const std::wstring& section : Sections())
        {
            add(section);
            std::wstring providers = ReadInf(path, section, L"Providers").value_or(L"");
            while (!providers.empty())
            {
                const std::size_t comma = std::min(providers.find(L','), providers.size());
                add(providers.substr(0, comma));
                providers.erase(0, comma + 1);
                providers.erase(0, providers.find_first_not_of(L' '));
            }
        }
        for (const wchar_t* const section : {L"Services", L"Default Services"})
            for (const std::wstring& key : Keys(section))
                add(key);
        // Names are compared without regard to case.
        names.insert({L"msems", L"mspst msp", L"services", L"crmlink", L"vault"});
        return {names.begin(), names.end()};
    }
    /// The host's DLL, and the one that the file has under that name.
    std::vector<std::wstring> Dlls(const std::wstring& name) const
    {
        std::vector<std::wstring> dlls = {hostDll};
        for (const auto& [section, key] : {std::pair<std::wstring, const wchar_t*>(name, L"PR_SERVICE_DLL_NAME"),
                                           {name, L"PR_PROVIDER_DLL_NAME"},
                                           {name + L"_P", L"PR_PROVIDER_DLL_NAME"}})
        {
            if (const auto dll = ReadInf(path, section, key))
                dlls.push_back(*dll);
        }
        return dlls;
    }

    /// Gives every command the name of something foreign.
    void ExpectRefused(const std::wstring& name) const
    {
        SCOPED_TRACE(Utf8(name));
        const std::string before = Bytes();
        for (const std::wstring& dll : Dlls(name))
        {
            EXPECT_THROW(Register(name, dll), Setup::SetupError) << Utf8(dll);
            EXPECT_THROW(Unregister(name, dll), Setup::SetupError) << Utf8(dll);
        }
        EXPECT_THROW(Unregister(name), Setup::SetupError);
        EXPECT_EQ(Status(name), Setup::ExitCode::NotRegistered);
        EXPECT_TRUE(Bytes() == before);
    }

    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC.INF";
};

} // namespace

TEST_F(OwnSections, EveryForeignNameIsRefusedByEveryCommand)
{
    const std::vector<std::wstring> names = ForeignNames();
    for (const wchar_t* const name : {L"MSEMS", L"MSPST MSP", L"LISTED", L"NOTES", L"CRMLINK", L"VAULT", L"STRAY_P",
                                      L"STRAY", L"Services", L"msems"})
        EXPECT_THAT(names, testing::Contains(name));
    for (const std::wstring& name : names)
        ExpectRefused(name);
    EXPECT_EQ(Setup::StatusCommand(path, {}).code, Setup::ExitCode::NotRegistered);
    EXPECT_TRUE(Bytes() == Tests::SampleInf());
}

TEST_F(OwnSections, ForeignNamesAreRefusedBesideARegistration)
{
    const std::string leftByThePlatform = Tests::AsThePlatformLeavesIt(path);
    Register(L"ArchiveSvc");
    for (const wchar_t* const name : {L"MSEMS", L"MSPST MSP", L"CRMLINK", L"LISTED", L"STRAY"})
        ExpectRefused(name);
    // Its sections are none of a service of that name.
    ExpectRefused(L"ArchiveSvc_P");
    ExpectRegistered();
    Unregister(L"ArchiveSvc");
    EXPECT_TRUE(Bytes() == leftByThePlatform);
}

// Any commands in any order, with own names and foreign ones.
TEST_F(OwnSections, AfterAnyCommandsTheForeignBytesAreWhatTheyWere)
{
    const std::vector<std::wstring> foreign = ForeignNames();
    const std::vector<std::wstring> own = {L"ArchiveSvc", L"Second archive", L"CRMLINK2", L"MSEMS_P2"};
    const std::string leftByThePlatform = Tests::AsThePlatformLeavesIt(path);
    std::mt19937 random(20240611);
    const auto pick = [&](const std::vector<std::wstring>& names) { return names[random() % names.size()]; };
    for (int sequence = 0; sequence < 3; ++sequence)
    {
        Tests::WriteFileBytes(path, Tests::SampleInf());
        for (int step = 0; step < 15; ++step)
        {
            const std::wstring name = random() % 2 == 0 ? pick(own) : pick(foreign);
            const std::wstring dll = random() % 4 == 0 ? L"OtherHost.dll" : hostDll;
            const bool dryRun = random() % 5 == 0;
            try
            {
                switch (random() % 3)
                {
                case 0:
                    Unregister(name, dll, dryRun);
                    break;
                case 1:
                    Unregister(name, std::nullopt, dryRun);
                    break;
                default:
                    Register(name, dll, dryRun);
                }
            }
            catch (const Setup::SetupError&)
            {
                // Refused; what counts is the file.
            }
        }
        Register(L"ArchiveSvc", ReadInf(path, L"ArchiveSvc", L"PR_SERVICE_DLL_NAME").value_or(hostDll));
        for (const std::wstring& name : own)
            Unregister(name);
        EXPECT_TRUE(Bytes() == leftByThePlatform) << "sequence " << sequence;
    }
}

TEST_F(OwnSections, TheDllSaysWhichHostIsMeant)
{
    Register(L"ArchiveSvc");
    const std::string registered = Bytes();
    for (const bool dryRun : {false, true})
    {
        EXPECT_THROW(Register(L"ArchiveSvc", L"OtherHost.dll", dryRun), Setup::SetupError);
        EXPECT_THROW(Unregister(L"ArchiveSvc", L"OtherHost.dll", dryRun), Setup::SetupError);
    }
    EXPECT_TRUE(Bytes() == registered);
    // A host may move.
    Register(L"ArchiveSvc", L"C:\\Program Files\\Archive\\archivehost.dll");
    EXPECT_EQ(ReadInf(path, L"ArchiveSvc_P", L"PR_PROVIDER_DLL_NAME"), L"C:\\Program Files\\Archive\\archivehost.dll");
    Unregister(L"ArchiveSvc", hostDll);
    EXPECT_EQ(ReadInf(path, L"ArchiveSvc", L"Providers"), std::nullopt);
}

TEST_F(OwnSections, AnyOneEntryIsRepaired)
{
    for (const wchar_t* const value : {L"wrong", static_cast<const wchar_t*>(nullptr)})
    {
        for (const InfEntry& entry : Entries())
        {
            SCOPED_TRACE(Utf8(entry.section + L" " + entry.key));
            Register(L"ArchiveSvc");
            Write(entry.section.c_str(), entry.key.c_str(), value);
            Register(L"ArchiveSvc");
            ExpectRegistered();
        }
    }
}

// A registration ends at the first entry that cannot be written.
TEST_F(OwnSections, ARegistrationThatWasCutShortIsFinishedAndRemoved)
{
    const std::string leftByThePlatform = Tests::AsThePlatformLeavesIt(path);
    const std::vector<InfEntry> entries = Entries();
    for (const std::size_t count : {1u, 2u, 5u, 6u, 7u, 13u})
    {
        SCOPED_TRACE(count);
        const auto begin = [&]
        {
            Tests::WriteFileBytes(path, Tests::SampleInf());
            for (std::size_t index = 0; index < count; ++index)
                Write(entries[index].section.c_str(), entries[index].key.c_str(), entries[index].value.c_str());
        };
        begin();
        Register(L"ArchiveSvc");
        ExpectRegistered();
        begin();
        Unregister(L"ArchiveSvc", hostDll);
        EXPECT_TRUE(Bytes() == leftByThePlatform);
        begin();
        const std::string cutShort = Bytes();
        // The very first entry names no DLL yet.
        bool isRefused = false;
        try
        {
            Register(L"ArchiveSvc", L"OtherHost.dll", true);
        }
        catch (const Setup::SetupError&)
        {
            isRefused = true;
        }
        EXPECT_EQ(isRefused, count > 1);
        // Before the mark is there, only the DLL tells whose it is.
        const bool isMarked = count >= 6;
        if (isMarked)
            Unregister(L"ArchiveSvc");
        else
            EXPECT_THROW(Unregister(L"ArchiveSvc"), Setup::SetupError);
        EXPECT_EQ(Bytes() == cutShort, !isMarked);
    }
}
