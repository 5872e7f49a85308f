// OnDie.
#include "support/Die.h"

#include "support/Log.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Quillon;

namespace
{

void __stdcall Record(void* context, unsigned code)
{
    static_cast<std::vector<unsigned>*>(context)->push_back(code);
}

} // namespace

TEST(OnDie, ReturnsWithoutAHandler)
{
    SetDieHandler(nullptr, nullptr);
    OnDie(1);
}

TEST(OnDie, CallsTheHandlerWithTheCodeAndReturns)
{
    std::vector<unsigned> codes;
    SetDieHandler(Record, &codes);
    OnDie(0x80040600);
    OnDie(7);
    SetDieHandler(nullptr, nullptr);
    OnDie(8);
    EXPECT_EQ(codes, (std::vector<unsigned>{0x80040600, 7}));
}

TEST(OnDie, WritesTheLogFileFirst)
{
    const Tests::TempFolder folder;
    static std::wstring path;
    static std::string seen;
    path = folder / L"log.txt";
    seen.clear();
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"the reason");
    SetDieHandler([](void*, unsigned) { seen = Tests::ReadFileBytes(path); }, nullptr);
    OnDie(1);
    SetDieHandler(nullptr, nullptr);
    Logging::SetLogSink(nullptr, nullptr);
    EXPECT_NE(seen.find("error: the reason"), std::string::npos);
}

TEST(OnDie, HasTheLogFileWrittenToTheDiskBeforeTheHandlerMayEndAll)
{
    const Tests::TempFolder folder;
    static int flushes;
    static int flushesSeen;
    flushes = flushesSeen = 0;
    const Tests::ImportHook<BOOL(HANDLE)> hook("FlushFileBuffers",
                                               [](HANDLE file) -> BOOL
                                               {
                                                   ++flushes;
                                                   return FlushFileBuffers(file);
                                               });
    SetDieHandler([](void*, unsigned) { flushesSeen = flushes; }, nullptr);
    OnDie(1);
    EXPECT_EQ(flushes, 0) << "there is no file";
    Logging::LogToFile((folder / L"log.txt").c_str());
    OnDie(1);
    EXPECT_EQ(flushesSeen, 1);
    SetDieHandler(nullptr, nullptr);
    Logging::SetLogSink(nullptr, nullptr);
}
