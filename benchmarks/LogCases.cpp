// Lines a second to each sink, from one and from eight threads.
#include "benchmarks/Cases.h"
#include "support/Log.h"

using namespace Quillon;

namespace Benchmarks
{
namespace
{

void CALLBACK IgnoreLine(void*, const Logging::LogLine&) {}

void AddSink(const char* name, void (*setLog)())
{
    for (const int threads : {1, 8})
    {
        benchmark::RegisterBenchmark((std::string("log/") + name + ", threads " + std::to_string(threads)).c_str(),
                                     [setLog](benchmark::State& state)
                                     {
                                         if (state.thread_index() == 0)
                                             setLog();
                                         for ([[maybe_unused]] auto _ : state)
                                             LogEntry(LogId::Warning,
                                                      L"IMessage::SaveChanges called on read-only message");
                                         state.SetItemsProcessed(state.iterations());
                                     })
            ->Threads(threads)
            ->UseRealTime();
    }
}

} // namespace

void AddLogCases()
{
    AddSink("off", [] { Logging::TurnLogOff(); });
    AddSink("a host's sink", [] { Logging::SetLogSink(IgnoreLine, nullptr); });
    AddSink("a file", [] { Logging::LogToFile(L"benchmark.log"); });
    AddSink("the debugger", [] { Logging::SetLogSink(nullptr, nullptr); });
}

} // namespace Benchmarks
