// The host's log: files of a size and a number.
#include "tests/hostkit/Environment.h"

#include "support/Log.h"

#include <fstream>
#include <sstream>
#include <thread>

using namespace Quillon;
using KivNstHostKit::CHostLog;

namespace Tests
{
namespace
{

std::string Contents(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream contents;
    contents << stream.rdbuf();
    return contents.str();
}

KivNstHostKit::LogSettings Settings(const std::filesystem::path& file, ULONG bytes, unsigned files)
{
    KivNstHostKit::LogSettings settings;
    settings.path = file.c_str();
    settings.bytesPerFile = bytes;
    settings.files = files;
    return settings;
}

/// Closes the log at its end, as the module's unloading does.
class Log
{
public:
    explicit Log(const KivNstHostKit::LogSettings& settings) { CHostLog::Get().Open(settings); }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() { CHostLog::Get().Close(); }
};

TEST(LogTest, FilesAreHeldToASizeAndANumber)
{
    const std::filesystem::path file = NewFolder() / "host.log";
    {
        const Log log(Settings(file, 2000, 3));
        for (int line = 0; line < 200; ++line)
            LogFormattedEntry(LogId::Warning, L"line %d of the log of this host", line);
    }
    std::uintmax_t sum = 0;
    for (const wchar_t* const end : {L"", L".1", L".2"})
    {
        std::filesystem::path one = file;
        one += end;
        ASSERT_TRUE(std::filesystem::exists(one)) << one;
        EXPECT_LE(std::filesystem::file_size(one), 2000u);
        sum += std::filesystem::file_size(one);
    }
    EXPECT_GT(sum, 4000u);
    std::filesystem::path fourth = file;
    fourth += L".3";
    EXPECT_FALSE(std::filesystem::exists(fourth));
    EXPECT_NE(Contents(file).find("warning: line 199 of the log"), std::string::npos);
    std::filesystem::path second = file;
    second += L".1";
    EXPECT_EQ(Contents(second).find("line 199 "), std::string::npos);
}

TEST(LogTest, OneFileIsBegunAnew)
{
    const std::filesystem::path file = NewFolder() / "host.log";
    {
        const Log log(Settings(file, 500, 1));
        for (int line = 0; line < 50; ++line)
            LogFormattedEntry(LogId::Warning, L"line %d", line);
    }
    EXPECT_LE(std::filesystem::file_size(file), 500u);
    EXPECT_NE(Contents(file).find("line 49\r\n"), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()), {}), 1);
}

TEST(LogTest, ALineThatIsLargerThanAFileIsWrittenAllTheSame)
{
    const std::filesystem::path file = NewFolder() / "host.log";
    const Log log(Settings(file, 100, 2));
    const std::wstring text(300, L'x');
    LogEntry(LogId::Warning, text.c_str());
    EXPECT_NE(Contents(file).find(std::string(300, 'x')), std::string::npos);
}

TEST(LogTest, NoLineIsLostWhileThreadsTurnTheFile)
{
    const std::filesystem::path file = NewFolder() / "host.log";
    constexpr int threads = 4;
    constexpr int lines = 100;
    {
        const Log log(Settings(file, 4000, 20));
        std::vector<std::thread> all;
        for (int number = 0; number < threads; ++number)
        {
            all.emplace_back(
                [number]
                {
                    for (int line = 0; line < lines; ++line)
                        LogFormattedEntry(LogId::Warning, L"thread %d line %d.", number, line);
                });
        }
        for (std::thread& thread : all)
            thread.join();
    }
    std::string whole;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        whole += Contents(entry.path());
    EXPECT_EQ(std::count(whole.begin(), whole.end(), '\n'), threads * lines);
    for (int number = 0; number < threads; ++number)
        for (int line = 0; line < lines; ++line)
        {
            std::ostringstream text;
            text << "thread " << number << " line " << line << ".\r\n";
            EXPECT_NE(whole.find(text.str()), std::string::npos) << text.str();
        }
}

TEST(LogTest, TwoLogsOfOneFileTakeOverFromEachOther)
{
    // As two processes have it: the other one has turned the file, which this one still has open.
    const std::filesystem::path file = NewFolder() / "host.log";
    const Log log(Settings(file, 300, 3));
    LogEntry(LogId::Warning, std::wstring(200, L'a').c_str());
    std::filesystem::path older = file;
    older += L".1";
    std::filesystem::rename(file, older);
    std::ofstream(file) << "the other's\n";
    LogEntry(LogId::Warning, std::wstring(100, L'b').c_str());
    EXPECT_EQ(Contents(file).find("the other's"), 0u) << "the other's file was turned";
    EXPECT_NE(Contents(file).find("bbb"), std::string::npos);
    EXPECT_NE(Contents(older).find("aaa"), std::string::npos);
}

TEST(LogTest, AFileThatCannotBeOpenedLeavesTheArchiveAlone)
{
    const std::filesystem::path folder = NewFolder();
    KivNstHostKit::ArchiveSettings settings;
    settings.log.path = (folder / "no such folder" / "host.log").c_str();
    const OpenArchive archive(GeneratedPst(folder), HostOf(std::move(settings)));
    EXPECT_EQ(archive.Prop(archive.Store(), PR_ACCESS_LEVEL).AsLong(-1), 0);
    CHostLog::Get().Close();
}

TEST(LogTest, ALogonOpensItAndRefusalsStandInIt)
{
    const std::filesystem::path folder = NewFolder();
    KivNstHostKit::ArchiveSettings settings;
    settings.log.path = (folder / "host.log").c_str();
    {
        const OpenArchive archive(GeneratedPst(folder), HostOf(std::move(settings)));
        EXPECT_EQ(archive.Store().SetReceiveFolder(nullptr, 0, 0, nullptr), MAPI_E_NO_ACCESS);
    }
    CHostLog::Get().Close();
    EXPECT_NE(Contents(folder / "host.log")
                  .find("warning: IMsgStore::SetReceiveFolder called on read-only archive store; returning "
                        "MAPI_E_NO_ACCESS\r\n"),
              std::string::npos);
}

} // namespace
} // namespace Tests
